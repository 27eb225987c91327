// SPDX-License-Identifier: MIT
/* Numbers that tetherctl reads out of the server's text replies. The library
 * hands such replies over as text; tetherctl takes a number from them only
 * when the whole text is one, within the range the caller names, so that a
 * reply too large for an int is reported instead of narrowed. */
#ifndef TETHERCTL_REPLYNUMBERS_H
#define TETHERCTL_REPLYNUMBERS_H

#include <optional>
#include <string_view>

namespace tetherctl {

/** `text` as a decimal number (an optional "-", then digits, nothing else)
 * when it lies between `least` and `most`; otherwise nothing. */
std::optional<int> replyInteger(std::string_view text, int least, int most);

}  // namespace tetherctl

#endif

// SPDX-License-Identifier: MIT
/* Whole-text decimal numbers with explicit range checks. */
#include "tools/ReplyNumbers.h"

#include <charconv>
#include <system_error>

namespace tetherctl {

std::optional<int> replyInteger(std::string_view text, int least, int most) {
    const char* const end = text.data() + text.size();
    long long value = 0;
    const auto [stop, error] = std::from_chars(text.data(), end, value, 10);
    if (error != std::errc() || stop != end || value < least || value > most) return std::nullopt;
    return static_cast<int>(value);
}

}  // namespace tetherctl

// SPDX-License-Identifier: MIT
/* Printing a command's text lines or its JSON object. */
#include "tools/Output.h"

#include <cstdio>

namespace tetherctl {

void Output::line(const std::string& text) const {
    if (json) return;
    std::fputs(text.c_str(), stdout);
    std::fputc('\n', stdout);
}

void Output::finish() const {
    if (!json) return;
    std::fputs(document.dump().c_str(), stdout);
    std::fputc('\n', stdout);
}

}  // namespace tetherctl

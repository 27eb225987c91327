// SPDX-License-Identifier: MIT
/* SessionValues: the arithmetic and text handling the conversation applies
 * to values off the wire. */
#include "server/Conversation.h"

namespace tetherhost::sim {

std::string slice(const std::string& bytes, std::size_t offset, std::size_t length) {
    std::string part = offset < bytes.size() ? bytes.substr(offset, length) : std::string();
    part.resize(length, '\0');
    return part;
}

std::string shortened(std::string_view text) {
    constexpr std::size_t shown = 32;
    std::string result(text.substr(0, shown));
    for (char& c : result)
        if (static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) >= 0x7F) c = '?';
    return text.size() > shown ? result + "..." : result;
}

}  // namespace tetherhost::sim

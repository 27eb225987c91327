// SPDX-License-Identifier: MIT
/* Bits: construction, concatenation and the hex form. */
#include "svf/Bits.h"

#include <cstring>

namespace tetherhost::svf {

namespace {

std::size_t byteCount(std::uint64_t length) { return static_cast<std::size_t>((length + 7) / 8); }

// Clears the bits beyond `length` in the last byte, which every Bits keeps 0.
void clearTail(Bits& bits) {
    const unsigned used = static_cast<unsigned>(bits.length % 8);
    if (used != 0) bits.bytes.back() &= static_cast<std::uint8_t>((1u << used) - 1);
}

}  // namespace

Bits Bits::zeros(std::uint64_t length) { return Bits{length, std::vector<std::uint8_t>(byteCount(length), 0)}; }

Bits Bits::ones(std::uint64_t length) {
    Bits bits{length, std::vector<std::uint8_t>(byteCount(length), 0xFF)};
    clearTail(bits);
    return bits;
}

bool Bits::bit(std::uint64_t index) const {
    return index < length && ((bytes[static_cast<std::size_t>(index / 8)] >> (index % 8)) & 1u) != 0;
}

void Bits::append(const Bits& later) {
    if (later.length == 0) return;
    const unsigned offset = static_cast<unsigned>(length % 8);
    const std::size_t start = bytes.size();
    if (offset == 0) {
        // Byte aligned: the common case (headers and bodies of whole bytes) is one copy.
        bytes.resize(start + later.bytes.size());
        std::memcpy(bytes.data() + start, later.bytes.data(), later.bytes.size());
    } else {
        bytes.reserve(byteCount(length + later.length));
        for (const std::uint8_t byte : later.bytes) {
            bytes.back() = static_cast<std::uint8_t>(bytes.back() | (byte << offset));
            bytes.push_back(static_cast<std::uint8_t>(byte >> (8 - offset)));
        }
        bytes.resize(byteCount(length + later.length));
    }
    length += later.length;
    clearTail(*this);
}

std::string Bits::hex() const {
    static constexpr char digits[] = "0123456789ABCDEF";
    const std::uint64_t count = (length + 3) / 4;
    std::string text(static_cast<std::size_t>(count), '0');
    for (std::uint64_t i = 0; i < count; ++i) {
        const std::uint8_t byte = bytes[static_cast<std::size_t>(i / 2)];
        text[static_cast<std::size_t>(count - 1 - i)] = digits[(i % 2 == 0 ? byte : byte >> 4) & 0xF];
    }
    return text;
}

}  // namespace tetherhost::svf

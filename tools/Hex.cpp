// SPDX-License-Identifier: MIT
/* Conversions between hex text, byte strings and scan values. */
#include "tools/Hex.h"

#include <cctype>

namespace tetherctl {

namespace {

int digitValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::string withoutPrefix(const std::string& text) {
    if (text.size() >= 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) return text.substr(2);
    return text;
}

constexpr char digits[] = "0123456789ABCDEF";

}  // namespace

std::optional<Bytes> parseHexBytes(const std::string& text) {
    const std::string hex = withoutPrefix(text);
    if (hex.size() % 2 != 0) return std::nullopt;
    Bytes bytes;
    bytes.reserve(hex.size() / 2);
    for (std::size_t i = 0; i < hex.size(); i += 2) {
        const int high = digitValue(hex[i]);
        const int low = digitValue(hex[i + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        bytes.push_back(static_cast<unsigned char>(high << 4 | low));
    }
    return bytes;
}

std::string formatHexBytes(const Bytes& bytes) {
    std::string text;
    text.reserve(bytes.size() * 2);
    for (unsigned char byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 0xF];
    }
    return text;
}

std::optional<Bytes> parseScanValue(const std::string& text, int bitCount) {
    const std::string hex = withoutPrefix(text);
    if (hex.empty() || bitCount < 0) return std::nullopt;
    Bytes bits(static_cast<std::size_t>(bitCount + 7) / 8, 0);
    // The last digit holds bits 0 to 3, the one before it bits 4 to 7, and so on.
    for (std::size_t i = 0; i < hex.size(); ++i) {
        const int value = digitValue(hex[hex.size() - 1 - i]);
        if (value < 0) return std::nullopt;
        for (int b = 0; b < 4; ++b) {
            if (!(value >> b & 1)) continue;
            const std::size_t bit = i * 4 + static_cast<std::size_t>(b);
            if (bit >= static_cast<std::size_t>(bitCount)) return std::nullopt;
            bits[bit / 8] |= static_cast<unsigned char>(1u << (bit % 8));
        }
    }
    return bits;
}

std::string formatScanValue(const Bytes& bits, int bitCount) {
    if (bitCount <= 0) return "0";
    const std::size_t digitCount = static_cast<std::size_t>(bitCount + 3) / 4;
    std::string text(digitCount, '0');
    for (std::size_t d = 0; d < digitCount; ++d) {
        int value = 0;
        for (int b = 0; b < 4; ++b) {
            const std::size_t bit = d * 4 + static_cast<std::size_t>(b);
            if (bit >= static_cast<std::size_t>(bitCount) || bit / 8 >= bits.size()) continue;
            if (bits[bit / 8] >> (bit % 8) & 1) value |= 1 << b;
        }
        text[digitCount - 1 - d] = digits[value];
    }
    return text;
}

}  // namespace tetherctl

// SPDX-License-Identifier: MIT
/* Hexadecimal text for tetherctl's data: byte strings in wire order, and
 * scan values, whose bit 0 is the first bit shifted (bit 0 of byte 0). */
#ifndef TETHERCTL_HEX_H
#define TETHERCTL_HEX_H

#include <optional>
#include <string>
#include <vector>

namespace tetherctl {

using Bytes = std::vector<unsigned char>;

/** Bytes in wire order from pairs of hex digits ("0x" prefix allowed);
 * nothing when the text is not an even number of hex digits. */
std::optional<Bytes> parseHexBytes(const std::string& text);

/** Bytes in wire order as upper-case hex digits, two per byte. */
std::string formatHexBytes(const Bytes& bytes);

/** A scan value written as a hex number, most significant digit first
 * ("0x" prefix allowed), as (bitCount + 7) / 8 bytes with bit 0 of the value
 * in bit 0 of byte 0; nothing when it is not a hex number or has a bit set at
 * or above `bitCount`. */
std::optional<Bytes> parseScanValue(const std::string& text, int bitCount);

/** The first `bitCount` bits of `bits` (bit 0 of byte 0 first) as a hex
 * number of (bitCount + 3) / 4 digits, most significant first; missing bytes
 * count as 0. */
std::string formatScanValue(const Bytes& bits, int bitCount);

}  // namespace tetherctl

#endif

// SPDX-License-Identifier: MIT
/* Bits: the bit vectors an SVF scan carries (TDI, TDO, MASK, SMASK and the
 * composed scans), in the order they go on the wire. Bit i is bit (i % 8) of
 * bytes[i / 8], and bit 0 is shifted first; in SVF's hex that is the least
 * significant bit of the rightmost digit. The bits at and beyond `length` in
 * the last byte are always 0, so two vectors with the same bits compare
 * equal byte for byte. */
#ifndef TETHERHOST_SVF_BITS_H
#define TETHERHOST_SVF_BITS_H

#include <cstdint>
#include <string>
#include <vector>

namespace tetherhost::svf {

struct Bits {
    std::uint64_t length = 0;
    std::vector<std::uint8_t> bytes;  // (length + 7) / 8 bytes

    static Bits zeros(std::uint64_t length);
    static Bits ones(std::uint64_t length);

    bool bit(std::uint64_t index) const;
    /** `later`'s bits are shifted after this one's. */
    void append(const Bits& later);
    /** SVF-style: most significant digit first, (length + 3) / 4 digits, upper case; "" for no bits. */
    std::string hex() const;

    friend bool operator==(const Bits&, const Bits&) = default;
};

}  // namespace tetherhost::svf

#endif

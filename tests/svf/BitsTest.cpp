// SPDX-License-Identifier: MIT
/* Tests of Bits: shift order, the cleared tail, concatenation and hex. */
#include <gtest/gtest.h>

#include <vector>

#include "svf/Bits.h"

namespace tetherhost::svf {
namespace {

TEST(Bits, ZerosAndOnesHoldExactlyTheirLength) {
    EXPECT_EQ(Bits::ones(10).bytes, (std::vector<std::uint8_t>{0xFF, 0x03}));
    EXPECT_EQ(Bits::ones(10).hex(), "3FF");
    EXPECT_EQ(Bits::ones(16).bytes, (std::vector<std::uint8_t>{0xFF, 0xFF}));
    EXPECT_EQ(Bits::zeros(5).bytes, (std::vector<std::uint8_t>{0x00}));
    EXPECT_EQ(Bits::zeros(5).hex(), "00");
    EXPECT_EQ(Bits::zeros(0).bytes.size(), 0u);
}

TEST(Bits, BitZeroIsTheLeastSignificantBitOfTheFirstByte) {
    const Bits bits{12, {0x34, 0x0A}};  // 0xA34
    EXPECT_FALSE(bits.bit(0));
    EXPECT_TRUE(bits.bit(2));
    EXPECT_TRUE(bits.bit(4));
    EXPECT_TRUE(bits.bit(5));
    EXPECT_FALSE(bits.bit(8));
    EXPECT_TRUE(bits.bit(9));
    EXPECT_TRUE(bits.bit(11));
    EXPECT_FALSE(bits.bit(12));  // beyond the length
}

TEST(Bits, HexIsMostSignificantDigitFirstInUpperCase) {
    EXPECT_EQ((Bits{32, {0xEF, 0xBE, 0xAD, 0xDE}}.hex()), "DEADBEEF");
    EXPECT_EQ((Bits{9, {0x55, 0x01}}.hex()), "155");
    EXPECT_EQ(Bits{}.hex(), "");
}

TEST(Bits, AppendOnAByteBoundaryPutsTheLaterBitsAbove) {
    Bits bits = Bits::ones(8);
    bits.append(Bits{4, {0x05}});
    EXPECT_EQ(bits.length, 12u);
    EXPECT_EQ(bits.bytes, (std::vector<std::uint8_t>{0xFF, 0x05}));
    EXPECT_EQ(bits.hex(), "5FF");
}

TEST(Bits, AppendInsideAByteShiftsTheLaterBits) {
    Bits bits{3, {0x05}};          // 101
    bits.append(Bits{6, {0x2A}});  // 101010, shifted after: 0x2A << 3
    EXPECT_EQ(bits.length, 9u);
    EXPECT_EQ(bits.bytes, (std::vector<std::uint8_t>{0x55, 0x01}));
    bits.append(Bits{7, {0x7F}});  // fills bits 9 to 15
    EXPECT_EQ(bits.hex(), "FF55");
    bits.append(Bits{1, {0x01}});
    EXPECT_EQ(bits.bytes, (std::vector<std::uint8_t>{0x55, 0xFF, 0x01}));
}

TEST(Bits, AppendingNoBitsChangesNothing) {
    Bits bits{3, {0x05}};
    bits.append(Bits{});
    EXPECT_EQ(bits, (Bits{3, {0x05}}));
    Bits empty;
    empty.append(Bits{3, {0x05}});
    EXPECT_EQ(empty, (Bits{3, {0x05}}));
}

}  // namespace
}  // namespace tetherhost::svf

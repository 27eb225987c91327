// SPDX-License-Identifier: MIT
/* The byte and chunk counts and the bit reversal that both ends of the
 * protocol share. */
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>

#include "protocol/Frames.h"

namespace tetherhost::protocol {
namespace {

TEST(ByteCount, RoundsPositiveBitCountsUpToWholeBytes) {
    EXPECT_EQ(byteCountOf(1), 1);
    EXPECT_EQ(byteCountOf(8), 1);
    EXPECT_EQ(byteCountOf(9), 2);
    EXPECT_EQ(byteCountOf(8192), 1024);
    EXPECT_EQ(byteCountOf(8193), 1025);
    EXPECT_EQ(byteCountOf(16384), 2048);
    EXPECT_EQ(byteCountOf(16385), 2049);
}

TEST(ByteCount, TruncatesNegativeSumsTowardZero) {
    EXPECT_EQ(byteCountOf(0), 0);
    for (int bits = -1; bits >= -14; --bits) EXPECT_EQ(byteCountOf(bits), 0) << bits;
    for (int bits = -15; bits >= -22; --bits) EXPECT_EQ(byteCountOf(bits), -1) << bits;
    EXPECT_EQ(byteCountOf(-23), -2);
}

TEST(ByteCount, BitCountsNearIntMaxWrapRoundLikeThe32BitSum) {
    EXPECT_EQ(byteCountOf(INT_MAX - 7), 268435455);
    EXPECT_EQ(byteCountOf(INT_MAX - 6), -268435456);
    EXPECT_EQ(byteCountOf(INT_MAX), -268435455);
    EXPECT_EQ(byteCountOf(INT_MIN), -268435455);
}

TEST(ChunkCount, CountsWholeAndPartChunksOf1024Bytes) {
    EXPECT_EQ(chunkCountOf(1024), 1);
    EXPECT_EQ(chunkCountOf(1025), 2);
    EXPECT_EQ(chunkCountOf(2048), 2);
    EXPECT_EQ(chunkCountOf(2049), 3);
    EXPECT_EQ(chunkCountOf(std::int64_t{2} * 1024 * 1024), 2048);
    EXPECT_EQ(chunkCountOf(0), 0);
    EXPECT_EQ(chunkCountOf(-1), 0);
    EXPECT_EQ(chunkCountOf(-268435455), -262143);
    EXPECT_EQ(chunkCountOf(INT_MAX), 2097152);
}

TEST(BitReversal, MirrorsTheBitsOfAByte) {
    EXPECT_EQ(reverseBits(0x01), 0x80);
    EXPECT_EQ(reverseBits(0x12), 0x48);
    EXPECT_EQ(reverseBits(0x50), 0x0A);
    EXPECT_EQ(reverseBits(0xA5), 0xA5);
    EXPECT_EQ(reverseBits(0x00), 0x00);
    EXPECT_EQ(reverseBits(0xFF), 0xFF);
    for (int byte = 0; byte < 256; ++byte) EXPECT_EQ(reverseBits(reverseBits(static_cast<unsigned char>(byte))), byte);
}

}  // namespace
}  // namespace tetherhost::protocol

// SPDX-License-Identifier: MIT
/* The frame reader: tokens and raw bytes come out whole whatever pieces the
 * stream arrives in; a token without a NUL within 1024 bytes is refused. */
#include <gtest/gtest.h>

#include <string>

#include "protocol/FrameReader.h"
#include "SimulatorHarness.h"

namespace tetherhost::test {
namespace {

using protocol::FrameReader;
using Result = FrameReader::Result;

void feed(FrameReader& reader, const std::string& bytes) { reader.feed(bytes.data(), bytes.size()); }

TEST(FrameReader, TokenArrivingOneByteAtATimeComesOutWhole) {
    FrameReader reader;
    std::string token;
    const std::string stream = wire("board1\0");
    for (std::size_t i = 0; i + 1 < stream.size(); ++i) {
        reader.feed(&stream[i], 1);
        EXPECT_EQ(reader.token(token), Result::NeedMore) << "after " << i + 1 << " bytes";
    }
    reader.feed(&stream.back(), 1);
    ASSERT_EQ(reader.token(token), Result::Ready);
    EXPECT_EQ(token, "board1");
    EXPECT_EQ(reader.buffered(), 0U);
}

TEST(FrameReader, SeveralTokensInOnePieceComeOutInOrder) {
    FrameReader reader;
    feed(reader, wire("44\0"
                      "12\0"
                      "\0"
                      "-5\0"));
    std::string token;
    for (const char* expected : {"44", "12", "", "-5"}) {
        ASSERT_EQ(reader.token(token), Result::Ready);
        EXPECT_EQ(token, expected);
    }
    EXPECT_EQ(reader.token(token), Result::NeedMore);
}

TEST(FrameReader, RawBytesSplitAcrossPiecesIncludingZeroBytes) {
    FrameReader reader;
    const std::string block = wire("\x01\0\x02\0\0\xFF\x80");
    feed(reader, block.substr(0, 3));
    std::string bytes;
    EXPECT_EQ(reader.take(block.size(), bytes), Result::NeedMore);
    feed(reader, block.substr(3) + wire("9\0"));
    ASSERT_EQ(reader.take(block.size(), bytes), Result::Ready);
    EXPECT_EQ(bytes, block);
    ASSERT_EQ(reader.token(bytes), Result::Ready);
    EXPECT_EQ(bytes, "9");
}

TEST(FrameReader, TokenOf1023CharactersIsTheLongestAccepted) {
    FrameReader reader;
    feed(reader, std::string(1023, 'a') + std::string(1, '\0'));
    std::string token;
    ASSERT_EQ(reader.token(token), Result::Ready);
    EXPECT_EQ(token.size(), 1023U);
}

TEST(FrameReader, NoNulWithin1024BytesIsOverlongEvenWhenOneFollows) {
    FrameReader reader;
    feed(reader, std::string(1000, 'a'));
    std::string token;
    EXPECT_EQ(reader.token(token), Result::NeedMore);
    feed(reader, std::string(24, 'a') + std::string(1, '\0'));
    EXPECT_EQ(reader.token(token), Result::Overlong);
}

TEST(FrameReader, LongConversationKeepsTheBufferSmall) {
    FrameReader reader;
    std::string token;
    for (int i = 0; i < 100000; ++i) {
        feed(reader, wire("+\0"));
        ASSERT_EQ(reader.token(token), Result::Ready);
        ASSERT_EQ(token, "+");
    }
    feed(reader, wire("x"));
    EXPECT_EQ(reader.buffered(), 1U);
}

}  // namespace
}  // namespace tetherhost::test

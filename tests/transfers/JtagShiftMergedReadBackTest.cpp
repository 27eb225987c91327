// SPDX-License-Identifier: MIT
/* The JTAG shift's read-back when the status text and the read-back arrive
 * in one receive, as a stream socket may deliver them: the library takes the
 * bytes behind the status text's NUL as the read-back's first bytes, never
 * waits for them again, and stays in step for the next command. A library
 * that waited would be ended by the peer's step time-out, which closes the
 * connection: the test then fails on -1002 rather than hanging. */
#include <ostream>

#include "TransferTesting.h"

namespace tetherhost::test {
namespace {

struct MergeCase {
    int bitCount;
    std::size_t readBackBytes;  // what the server sends: one zero byte for 0 bits
};

void PrintTo(const MergeCase& c, std::ostream* out) { *out << "{bitCount " << c.bitCount << "}"; }

class MergedReadBack : public TransferTest {
protected:
    /** A shift without read-back after the merged one: it must find the
     * connection in step. */
    void scriptNextCommand() {
        tokens(*peer, {"0", "8", "0", "0"});
        peer->expect(bytes("n\0")).reply("r").expect(goToken).reply(bytes("5\0"));
    }
    void expectNextCommandInStep() { EXPECT_EQ(jtagShift(0, 8, 0, 0, "n"), 5); }

    /** Both blocks of a single-block shift with read-back, up to the go token. */
    void scriptBlocks(int bitCount, const std::string& first, const std::string& second) {
        tokens(*peer, {"0", std::to_string(bitCount), "1", "0"});
        peer->expect(first + bytes("\0")).reply("r");
        peer->expect(second + bytes("\0")).reply("s");
        peer->expect(goToken);
    }
};

using JtagShiftMerged = MergedReadBack;
class JtagShiftMergedSingleBlock : public MergedReadBack, public ::testing::WithParamInterface<MergeCase> {};

TEST_P(JtagShiftMergedSingleBlock, StatusAndWholeReadBackInOneSendAreReadOnce) {
    const MergeCase c = GetParam();
    const std::size_t byteCount = (static_cast<std::size_t>(c.bitCount) + 7) / 8;
    const std::string data = pattern(byteCount);
    const std::string readBack = c.bitCount == 0 ? std::string(1, '\0') : pattern(c.readBackBytes, 'K');
    scriptBlocks(c.bitCount, data, data);
    peer->reply(bytes("0\0") + readBack);
    scriptNextCommand();
    peer->start();
    EXPECT_EQ(jtagShift(0, c.bitCount, 1, 0, data.c_str(), data.c_str()), static_cast<int>(c.readBackBytes));
    EXPECT_EQ(ids(), (Ids{"1111", "1103", "1042"}));
    // A 0-bit scan's zero byte is read but holds no scan data.
    const auto expected = c.bitCount == 0 ? std::make_pair(-1022, std::string()) : std::make_pair(0, readBack);
    EXPECT_EQ(takeTdo(c.bitCount, byteCount), expected);
    expectNextCommandInStep();
    EXPECT_TRUE(peerFinished());
}

INSTANTIATE_TEST_SUITE_P(Sizes, JtagShiftMergedSingleBlock,
                         ::testing::Values(MergeCase{0, 1}, MergeCase{8, 1}, MergeCase{32, 4}, MergeCase{8000, 1000},
                                           MergeCase{8192, 1024}),
                         [](const auto& info) { return bitsName(info.param.bitCount); });

TEST_F(JtagShiftMerged, ReadBackBegunInTheStatusReceiveIsCompletedByOneReceive) {
    const std::string data = pattern(1000);
    const std::string readBack = pattern(1000, 'K');
    scriptBlocks(8000, data, data);
    peer->reply(bytes("0\0") + readBack.substr(0, 3)).reply(readBack.substr(3));
    scriptNextCommand();
    peer->start();
    EXPECT_EQ(jtagShift(0, 8000, 1, 0, data.c_str(), data.c_str()), 1000);
    EXPECT_EQ(takeTdo(8000, 1000), std::make_pair(0, readBack));
    expectNextCommandInStep();
    EXPECT_TRUE(peerFinished());
}

TEST_F(JtagShiftMerged, BytesBehindTheStatusAreIgnoredWhenNothingIsReadBack) {
    tokens(*peer, {"2", "8", "1", "0"});
    peer->expect(bytes("a\0")).reply("r").expect(bytes("b\0")).reply("s");
    peer->expect(goToken).reply(bytes("7\0") + "Z");
    peer->start();
    EXPECT_EQ(jtagShift(2, 8, 1, 0, "a", "b"), 7);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(takeTdo(8, 1), std::make_pair(-1022, std::string("?")));
}

struct ChunkedMergeCase {
    int bitCount;
    std::size_t chunkCount;
};

void PrintTo(const ChunkedMergeCase& c, std::ostream* out) {
    *out << "{bitCount " << c.bitCount << ", chunkCount " << c.chunkCount << "}";
}

class JtagShiftMergedChunkCounts : public MergedReadBack, public ::testing::WithParamInterface<ChunkedMergeCase> {};

/** The read-back as the server sends it: chunks of 1024 bytes, each
 * beginning with "+", the last one short. */
std::string chunkedReadBack(std::size_t byteCount) {
    std::string readBack = pattern(byteCount, 'K');
    for (std::size_t at = 0; at < byteCount; at += 1024) readBack[at] = '+';
    return readBack;
}

TEST_P(JtagShiftMergedChunkCounts, StatusAndFirstChunkInOneSendBeginTheReadBack) {
    const ChunkedMergeCase c = GetParam();
    const std::size_t byteCount = (static_cast<std::size_t>(c.bitCount) + 7) / 8;
    const std::string data = pattern(byteCount);
    const std::string readBack = chunkedReadBack(byteCount);
    tokens(*peer, {"0", std::to_string(c.bitCount), "1", "0"});
    chunks(*peer, data, true);
    chunks(*peer, data, true);
    peer->expect(goToken).reply(bytes("0\0") + readBack.substr(0, 1024)).expect(goToken);
    for (std::size_t at = 1024; at < byteCount; at += 1024) peer->reply(readBack.substr(at, 1024)).expect(goToken);
    scriptNextCommand();
    peer->start();
    EXPECT_EQ(jtagShift(0, c.bitCount, 1, 0, data.c_str(), data.c_str()), 2);
    Ids expected{"1111", "1103"};
    expected.insert(expected.end(), c.chunkCount, "1110");  // the first block's chunks only
    EXPECT_EQ(ids(), expected);
    EXPECT_EQ(takeTdo(c.bitCount, byteCount), std::make_pair(0, readBack));
    expectNextCommandInStep();
    EXPECT_TRUE(peerFinished());
}

INSTANTIATE_TEST_SUITE_P(Sizes, JtagShiftMergedChunkCounts,
                         ::testing::Values(ChunkedMergeCase{24576, 3}, ChunkedMergeCase{20000, 3}),
                         [](const auto& info) { return bitsName(info.param.bitCount); });

TEST_F(JtagShiftMerged, CarriedFirstChunkWithoutPlusGives1002After1040) {
    const std::string data = pattern(1025);
    tokens(*peer, {"0", "8200", "1", "0"});
    chunks(*peer, data, true);
    chunks(*peer, data, true);
    peer->expect(goToken).reply(bytes("0\0") + "xAAAA");
    peer->start();
    EXPECT_EQ(jtagShift(0, 8200, 1, 0, data.c_str(), data.c_str()), -1002);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids().back(), "1040");
}

}  // namespace
}  // namespace tetherhost::test

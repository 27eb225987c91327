// SPDX-License-Identifier: MIT
/* The generic shift of command 19 (sendShiftargs). */
#include <climits>
#include <ostream>

#include "TransferTesting.h"

namespace tetherhost::test {
namespace {

using GenericShift = TransferTest;

const char* const noBlock = nullptr;

TEST_F(GenericShift, SingleBlockOf8192BitsIsOneSendOf1024Bytes) {
    const std::string data = pattern(1024);
    tokens(*peer, {"1", "8192", "1024", "0"});
    peer->expect(data).reply("+");
    peer->start();
    EXPECT_EQ(genericShift(1, 8192, 0, data.c_str()), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1111", "1102", "1041"}));
    EXPECT_EQ(linesOf("1041"), Ids{"1041 xfer: generic shift data block sent, awaiting the server's "
                                   "reply (reply buffer '')"});
    EXPECT_EQ(client.GetClientStatus(), 0);
}

struct ChunkCase {
    int bitCount;
    std::size_t byteCount;
};

void PrintTo(const ChunkCase& c, std::ostream* out) {
    *out << "{bitCount " << c.bitCount << ", byteCount " << c.byteCount << "}";
}

class GenericShiftChunks : public TransferTest, public ::testing::WithParamInterface<ChunkCase> {};

TEST_P(GenericShiftChunks, ChunksGoOutAtTheirTrueLengthThenOneMoreAcknowledgement) {
    const ChunkCase c = GetParam();
    const std::string data = pattern(c.byteCount);
    tokens(*peer, {"0", std::to_string(c.bitCount), std::to_string(c.byteCount), "0"});
    chunks(*peer, data, false);
    peer->reply("+");
    peer->start();
    EXPECT_EQ(genericShift(0, c.bitCount, 0, data.c_str()), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1111", "1102"}));
}

INSTANTIATE_TEST_SUITE_P(Boundaries, GenericShiftChunks,
                         ::testing::Values(ChunkCase{8193, 1025}, ChunkCase{16384, 2048}, ChunkCase{16385, 2049},
                                           ChunkCase{24000, 3000}),
                         [](const auto& info) { return bitsName(info.param.bitCount); });

TEST_F(GenericShift, ShiftOf3000BytesGoesAsChunksOf1024_1024And952) {
    const std::string data = pattern(3000);
    tokens(*peer, {"0", "24000", "3000", "0"});
    peer->expect(data.substr(0, 1024)).ack();
    peer->expect(data.substr(1024, 1024)).ack();
    peer->expect(data.substr(2048, 952)).ack();
    peer->reply(bytes("+\0"));
    peer->start();
    EXPECT_EQ(genericShift(0, 24000, 0, data.c_str()), 0);
    EXPECT_TRUE(peerFinished());
}

TEST_F(GenericShift, ZeroBitsFailsTheEmptyBlockSendAfter1037) {
    tokens(*peer, {"0", "0", "0", "0"});
    peer->start();
    EXPECT_EQ(genericShift(0, 0, 0, "a"), -1001);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1111", "1102", "1037"}));
    EXPECT_EQ(client.GetClientStatus(), 0);
}

TEST_F(GenericShift, BitCountsOfMinusOneAndMinusEightGiveAnEmptyBlock) {
    for (const int bitCount : {-1, -8}) {
        SCOPED_TRACE(bitCount);
        peer = ScriptedPeer::onSocketPair();
        log.clear();
        tokens(*peer, {"0", std::to_string(bitCount), "0", "0"});
        peer->start();
        EXPECT_EQ(genericShift(0, bitCount, 0, "a"), -1001);
        EXPECT_TRUE(peerFinished());
        EXPECT_EQ(ids(), (Ids{"1111", "1102", "1037"}));
    }
}

TEST_F(GenericShift, BitCountIntMaxSendsAWrappedByteCountAndFailsTheBlock) {
    tokens(*peer, {"0", "2147483647", "-268435455", "0"});
    peer->start();
    EXPECT_EQ(genericShift(0, INT_MAX, 0, "a"), -1001);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1111", "1102", "1037"}));
}

TEST_F(GenericShift, ChunkedReadBackKeepsBlocksExactlyAsReceived) {
    const std::string data = pattern(2048);
    tokens(*peer, {"0", "16384", "2048", "1"});
    chunks(*peer, data, false);
    peer->reply("xabc").expect(goToken).reply("yde").expect(goToken);
    peer->start();
    EXPECT_EQ(genericShift(0, 16384, 1, data.c_str()), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(takeTdo(16384, 7), std::make_pair(0, std::string("xabcyde")));
}

TEST_F(GenericShift, SingleBlockReadBackKeepsTheFirstByteCountBytes) {
    tokens(*peer, {"0", "32", "4", "1"});
    peer->expect("abcd").reply("0123456789");
    peer->start();
    EXPECT_EQ(genericShift(0, 32, 1, "abcd"), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(takeTdo(80, 10), std::make_pair(0, std::string("0123??????")));
}

TEST_F(GenericShift, SingleBlockWithoutReadBackEmptiesEarlierScanData) {
    holdTdo("keep");
    tokens(*peer, {"0", "8", "1", "0"});
    peer->expect("a").reply("z");
    peer->start();
    EXPECT_EQ(genericShift(0, 8, 0, "a"), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(takeTdo(32, 4).first, -1022);
}

TEST_F(GenericShift, ChunkedShiftWithoutReadBackKeepsEarlierScanData) {
    holdTdo("keep");
    const std::string data = pattern(1025);
    tokens(*peer, {"0", "8200", "1025", "0"});
    chunks(*peer, data, false);
    peer->reply("+");
    peer->start();
    EXPECT_EQ(genericShift(0, 8200, 0, data.c_str()), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(takeTdo(32, 4), std::make_pair(0, std::string("keep")));
}

TEST_F(GenericShift, NullFirstBlockSendsNothingAndReturns1020) {
    QuietPeer quiet;
    socketOverride = quiet.clientSocket();
    EXPECT_EQ(genericShift(0, 8, 0, noBlock), -1020);
    EXPECT_EQ(quiet.pending(), "");
    EXPECT_EQ(ids(), Ids{"1111"});
}

TEST_F(GenericShift, FinalAcknowledgementWithoutPlusGives1002After1038) {
    const std::string data = pattern(1025);
    tokens(*peer, {"0", "8200", "1025", "0"});
    chunks(*peer, data, false);
    peer->reply("-");
    peer->start();
    EXPECT_EQ(genericShift(0, 8200, 0, data.c_str()), -1002);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1111", "1102", "1038"}));
}

TEST_F(GenericShift, PeerClosingMidChunkGives1002) {
    const std::string data = pattern(2048);
    tokens(*peer, {"0", "16384", "2048", "0"});
    peer->expect(data.substr(0, 1024)).ack().expectAny(100).closeConnection();
    peer->start();
    EXPECT_EQ(genericShift(0, 16384, 0, data.c_str()), -1002);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1111", "1102", "1038"}));
}

TEST_F(GenericShift, PeerClosingMidReadBackKeepsTheChunksReceived) {
    const std::string data = pattern(2048);
    tokens(*peer, {"0", "16384", "2048", "1"});
    chunks(*peer, data, false);
    peer->reply("first").expect(goToken).closeConnection();
    peer->start();
    EXPECT_EQ(genericShift(0, 16384, 1, data.c_str()), -1002);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1111", "1102", "1038"}));
    EXPECT_EQ(takeTdo(16384, 5), std::make_pair(0, std::string("first")));
}

TEST_F(GenericShift, PeerClosedBeforeTheShiftFailsTheFirstTokenAfter1037) {
    closePeer();
    EXPECT_EQ(genericShift(0, 8, 0, "a"), -1001);
    EXPECT_EQ(ids(), (Ids{"1111", "1102", "1037"}));
}

}  // namespace
}  // namespace tetherhost::test

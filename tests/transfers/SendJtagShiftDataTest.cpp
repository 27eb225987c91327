// SPDX-License-Identifier: MIT
/* The one-call JTAG shift SendJTAGShiftData on byte buffers. */
#include <climits>

#include "ClientUtils.h"
#include "LByteBuffer.h"
#include "TransferTesting.h"

namespace tetherhost::test {
namespace {

using SendJtagShiftData = TransferTest;

LByteBuffer bufferOf(const std::string& data) {
    return LByteBuffer(reinterpret_cast<const unsigned char*>(data.data()), static_cast<int>(data.size()));
}

const std::string zeroFrame(1024, '\0');

/* The four token frames, each a fixed 1024-byte frame, acknowledged with `ack`. */
void tokenFrames(ScriptedPeer& peer, const std::string& flags, const std::string& bitCount,
                 const std::string& ack = bytes("+\0")) {
    for (const std::string& token : {std::string("44"), std::string("12"), flags, bitCount})
        peer.expect(padded(token)).reply(ack);
}

TEST_F(SendJtagShiftData, Bits16384SendOnlyTheFirst1024BytesThenTwoZeroFrames) {
    const std::string data = pattern(2048);
    tokenFrames(*peer, "0", "16384");
    peer->expect(data.substr(0, 1024)).ack();
    peer->expect(zeroFrame).ack().expect(zeroFrame).ack();
    peer->start();
    int s = socket();
    EXPECT_EQ(SendJTAGShiftData(s, 0, 16384, 1, bufferOf(data), LByteBuffer(), LByteBuffer()), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(s, socket());
    EXPECT_EQ(ids(), Ids{});
}

TEST_F(SendJtagShiftData, Bits16385GoAsChunksOf1024_1024And1) {
    const std::string data = pattern(2049);
    tokenFrames(*peer, "3", "16385");
    chunks(*peer, data, false);
    peer->expect(zeroFrame).ack().expect(zeroFrame).ack();
    peer->start();
    int s = socket();
    EXPECT_EQ(SendJTAGShiftData(s, 3, 16385, 1, bufferOf(data), LByteBuffer(), LByteBuffer()), 0);
    EXPECT_TRUE(peerFinished());
}

TEST_F(SendJtagShiftData, LargeShiftWithTwoBlocksSendsTheFirstBufferTwiceThenAZeroFrame) {
    const std::string data = pattern(2049);
    tokenFrames(*peer, "0", "16385");
    chunks(*peer, data, false);
    chunks(*peer, data, false);
    peer->expect(zeroFrame).ack();
    peer->start();
    int s = socket();
    EXPECT_EQ(SendJTAGShiftData(s, 0, 16385, 2, bufferOf(data), bufferOf(pattern(2049, 'X')), LByteBuffer()), 0);
    EXPECT_TRUE(peerFinished());
}

TEST_F(SendJtagShiftData, LargeShiftWithThreeBlocksSendsTheFirstBufferThreeTimes) {
    const std::string data = pattern(2049);
    tokenFrames(*peer, "0", "16385");
    chunks(*peer, data, false);
    chunks(*peer, data, false);
    chunks(*peer, data, false);
    peer->start();
    int s = socket();
    EXPECT_EQ(
        SendJTAGShiftData(s, 0, 16385, 3, bufferOf(data), bufferOf(pattern(2049, 'X')), bufferOf(pattern(2049, 'Y'))),
        0);
    EXPECT_TRUE(peerFinished());
}

TEST_F(SendJtagShiftData, SmallShiftSendsZerosInTheSecondAndThirdSlots) {
    const std::string data = pattern(13);
    tokenFrames(*peer, "0", "100");
    peer->expect(padded(data)).ack();
    peer->expect(zeroFrame).ack().expect(zeroFrame).ack();
    peer->start();
    int s = socket();
    EXPECT_EQ(SendJTAGShiftData(s, 0, 100, 3, bufferOf(data), bufferOf(pattern(13, 'X')), bufferOf(pattern(13, 'Y'))),
              0);
    EXPECT_TRUE(peerFinished());
}

TEST_F(SendJtagShiftData, TokenAcknowledgementsAreNotCheckedForPlus) {
    tokenFrames(*peer, "0", "8", "-x");
    peer->expect(padded("a")).reply("-x");
    peer->expect(zeroFrame).reply("-x").expect(zeroFrame).reply("-x");
    peer->start();
    int s = socket();
    EXPECT_EQ(SendJTAGShiftData(s, 0, 8, 1, bufferOf("a"), LByteBuffer(), LByteBuffer()), 0);
    EXPECT_TRUE(peerFinished());
}

TEST_F(SendJtagShiftData, PeerClosingAfterTheCommandFrameGives1002) {
    peer->expect(padded("44")).closeConnection();
    peer->start();
    int s = socket();
    EXPECT_EQ(SendJTAGShiftData(s, 0, 8, 1, bufferOf("a"), LByteBuffer(), LByteBuffer()), -1002);
    EXPECT_TRUE(peerFinished());
}

TEST_F(SendJtagShiftData, FailedSendGives1001) {
    closePeer();
    int s = socket();
    EXPECT_EQ(SendJTAGShiftData(s, 0, 8, 1, bufferOf("a"), LByteBuffer(), LByteBuffer()), -1001);
}

TEST_F(SendJtagShiftData, LargeShiftChunkAcknowledgementMustBeginWithPlus) {
    const std::string data = pattern(2049);
    tokenFrames(*peer, "0", "16385");
    peer->expect(data.substr(0, 1024)).reply("-");
    peer->start();
    int s = socket();
    EXPECT_EQ(SendJTAGShiftData(s, 0, 16385, 1, bufferOf(data), LByteBuffer(), LByteBuffer()), -1002);
    EXPECT_TRUE(peerFinished());
}

TEST_F(SendJtagShiftData, PeerClosingMidChunkGives1002) {
    const std::string data = pattern(2049);
    tokenFrames(*peer, "0", "16385");
    peer->expect(data.substr(0, 1024)).ack().expectAny(100).closeConnection();
    peer->start();
    int s = socket();
    EXPECT_EQ(SendJTAGShiftData(s, 0, 16385, 1, bufferOf(data), LByteBuffer(), LByteBuffer()), -1002);
    EXPECT_TRUE(peerFinished());
}

TEST_F(SendJtagShiftData, ShortFirstBufferOnTheLargePathSendsZerosForTheMissingBytes) {
    const std::string data = pattern(10);
    tokenFrames(*peer, "0", "16392");
    peer->expect(padded(data)).ack().expect(zeroFrame).ack().expect(bytes("\0")).ack();
    peer->expect(zeroFrame).ack().expect(zeroFrame).ack();
    peer->start();
    int s = socket();
    EXPECT_EQ(SendJTAGShiftData(s, 0, 16392, 1, bufferOf(data), LByteBuffer(), LByteBuffer()), 0);
    EXPECT_TRUE(peerFinished());
}

TEST_F(SendJtagShiftData, EmptyFirstBufferSendsAZeroFrameInTheFirstSlot) {
    tokenFrames(*peer, "0", "8");
    peer->expect(zeroFrame).ack().expect(zeroFrame).ack().expect(zeroFrame).ack();
    peer->start();
    int s = socket();
    EXPECT_EQ(SendJTAGShiftData(s, 0, 8, 1, LByteBuffer(), LByteBuffer(), LByteBuffer()), 0);
    EXPECT_TRUE(peerFinished());
}

TEST_F(SendJtagShiftData, BitCountIntMaxHasNoChunksAndOnlyTheZeroFramesOfUnnamedSlots) {
    tokenFrames(*peer, "0", "2147483647");
    peer->expect(zeroFrame).ack().expect(zeroFrame).ack();
    peer->start();
    int s = socket();
    EXPECT_EQ(SendJTAGShiftData(s, 0, INT_MAX, 1, bufferOf("a"), LByteBuffer(), LByteBuffer()), 0);
    EXPECT_TRUE(peerFinished());

    peer = ScriptedPeer::onSocketPair();
    tokenFrames(*peer, "0", "2147483647");
    peer->start();
    s = socket();
    EXPECT_EQ(SendJTAGShiftData(s, 0, INT_MAX, 3, bufferOf("a"), LByteBuffer(), LByteBuffer()), 0);
    EXPECT_TRUE(peerFinished());
}

TEST_F(SendJtagShiftData, NegativeBitCountsTakeTheSingleFramePath) {
    tokenFrames(*peer, "0", "-8");
    peer->expect(padded("ab")).ack().expect(zeroFrame).ack().expect(zeroFrame).ack();
    peer->start();
    int s = socket();
    EXPECT_EQ(SendJTAGShiftData(s, 0, -8, 1, bufferOf("ab"), LByteBuffer(), LByteBuffer()), 0);
    EXPECT_TRUE(peerFinished());
}

}  // namespace
}  // namespace tetherhost::test

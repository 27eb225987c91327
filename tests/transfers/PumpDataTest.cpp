// SPDX-License-Identifier: MIT
/* Pump data of command 42 (sendPumpData). */
#include <climits>

#include "TransferTesting.h"

namespace tetherhost::test {
namespace {

using PumpData = TransferTest;

const char* const noBlock = nullptr;

std::string pumpLine(const std::string& shown) {
    return "1044 xfer: pump data frame sent, frame buffer holds '" + shown + "'";
}

TEST_F(PumpData, SingleBlockOf8192BitsPostsEachTokenThenTheDataThenTheLastAcknowledgement) {
    const std::string data = pattern(1024);
    tokens(*peer, {"8192", "5", "0"});
    peer->expect(data).reply("r");
    peer->start();
    EXPECT_EQ(pumpData(data.c_str(), 8192, 5, 0), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1112", "1044", "1044", "1044", "1110", "1044"}));
    EXPECT_EQ(linesOf("1044"), (Ids{pumpLine("8192"), pumpLine("5"), pumpLine("0"), pumpLine("+")}));
    EXPECT_EQ(client.GetClientStatus(), 0);
}

TEST_F(PumpData, MessageAfterTheSingleBlockShowsWhateverTheLastAcknowledgementWas) {
    peer->expectFrame("16").ack().expectFrame("0").ack().expectFrame("0").reply("+Q");
    peer->expect("ab").reply("r");
    peer->start();
    EXPECT_EQ(pumpData("ab", 16, 0, 0), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(linesOf("1044").back(), pumpLine("+Q"));
}

TEST_F(PumpData, Chunks8193BitsAsTrueLengthsWithAnAnnouncementBeforeEach) {
    const std::string data = pattern(1025);
    tokens(*peer, {"8193", "1", "0"});
    chunks(*peer, data, false);
    peer->reply(bytes("+\0"));
    peer->start();
    EXPECT_EQ(pumpData(data.c_str(), 8193, 1, 0), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1112", "1044", "1044", "1044", "1110", "1110"}));
}

TEST_F(PumpData, ThreeChunksReadBackKeepTheirLeadingPlus) {
    const std::string data = pattern(3072);
    tokens(*peer, {"24576", "0", "1"});
    chunks(*peer, data, false);
    peer->reply("+a").expect(goToken).reply("+b").expect(goToken).reply("+c").expect(goToken);
    peer->start();
    EXPECT_EQ(pumpData(data.c_str(), 24576, 0, 1), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1112", "1044", "1044", "1044", "1110", "1110", "1110"}));
    EXPECT_EQ(takeTdo(24576, 6), std::make_pair(0, std::string("+a+b+c")));
}

TEST_F(PumpData, ChunkedWithoutReadBackNeedsOneMorePlus) {
    const std::string data = pattern(1025);
    tokens(*peer, {"8200", "0", "0"});
    chunks(*peer, data, false);
    peer->reply(bytes("-\0"));
    peer->start();
    EXPECT_EQ(pumpData(data.c_str(), 8200, 0, 0), -1002);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1112", "1044", "1044", "1044", "1110", "1110", "1045"}));
}

TEST_F(PumpData, ReadBackChunkNotBeginningWithPlusGives1002) {
    const std::string data = pattern(1025);
    tokens(*peer, {"8200", "0", "1"});
    chunks(*peer, data, false);
    peer->reply("+one").expect(goToken).reply("two");
    peer->start();
    EXPECT_EQ(pumpData(data.c_str(), 8200, 0, 1), -1002);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids().back(), "1045");
    EXPECT_EQ(takeTdo(8200, 4), std::make_pair(0, std::string("+one")));
}

TEST_F(PumpData, SingleBlockReadBackIsFilledFromTheZeroedReplyBuffer) {
    tokens(*peer, {"24", "0", "1"});
    peer->expect("abc").reply("Z");
    peer->start();
    EXPECT_EQ(pumpData("abc", 24, 0, 1), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(takeTdo(24, 3), std::make_pair(0, bytes("Z\0\0")));
}

TEST_F(PumpData, NullDataWithBytesToPumpSendsNothingAndReturns1020) {
    QuietPeer quiet;
    socketOverride = quiet.clientSocket();
    EXPECT_EQ(pumpData(noBlock, 8, 0, 0), -1020);
    EXPECT_EQ(quiet.pending(), "");
    EXPECT_EQ(ids(), Ids{"1112"});
}

TEST_F(PumpData, NullDataWithNoBytesGoesOnAndFailsTheEmptySend) {
    tokens(*peer, {"0", "0", "0"});
    peer->start();
    EXPECT_EQ(pumpData(noBlock, 0, 0, 0), -1001);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1112", "1044", "1044", "1044", "1110", "1043"}));
}

TEST_F(PumpData, ZeroAndNegativeBitCountsFailTheBlockSend) {
    for (const int bitCount : {0, -1, -8}) {
        SCOPED_TRACE(bitCount);
        peer = ScriptedPeer::onSocketPair();
        log.clear();
        tokens(*peer, {std::to_string(bitCount), "0", "0"});
        peer->start();
        EXPECT_EQ(pumpData("a", bitCount, 0, 0), -1001);
        EXPECT_TRUE(peerFinished());
        EXPECT_EQ(ids(), (Ids{"1112", "1044", "1044", "1044", "1110", "1043"}));
    }
}

TEST_F(PumpData, BitCountIntMaxHasNoChunksToSend) {
    holdTdo("old");
    tokens(*peer, {"2147483647", "0", "1"});
    peer->start();
    EXPECT_EQ(pumpData("a", INT_MAX, 0, 1), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1112", "1044", "1044", "1044"}));
    EXPECT_EQ(takeTdo(8, 1).first, -1022);
}

TEST_F(PumpData, BitCountIntMaxWithoutReadBackStillNeedsTheFinalPlus) {
    tokens(*peer, {"2147483647", "0", "0"});
    peer->reply("+");
    peer->start();
    EXPECT_EQ(pumpData("a", INT_MAX, 0, 0), 0);
    EXPECT_TRUE(peerFinished());
}

TEST_F(PumpData, PeerClosingMidChunkGives1002) {
    const std::string data = pattern(2048);
    tokens(*peer, {"16384", "0", "0"});
    peer->expect(data.substr(0, 1024)).ack().expectAny(10).closeConnection();
    peer->start();
    EXPECT_EQ(pumpData(data.c_str(), 16384, 0, 0), -1002);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids().back(), "1045");
}

TEST_F(PumpData, PeerClosedBeforeThePumpFailsTheFirstTokenAfter1043) {
    closePeer();
    EXPECT_EQ(pumpData("a", 8, 0, 0), -1001);
    EXPECT_EQ(ids(), (Ids{"1112", "1043"}));
    EXPECT_EQ(client.GetClientStatus(), 0);
}

}  // namespace
}  // namespace tetherhost::test

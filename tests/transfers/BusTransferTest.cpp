// SPDX-License-Identifier: MIT
/* SSPI (sendSSPIShiftargs) and I2C (sendI2CShiftargs) transfers, including
 * the back-to-back pair of commands 47 and 51 on one argument list. */
#include <climits>

#include "TransferTesting.h"

namespace tetherhost::test {
namespace {

using Sspi = TransferTest;
using I2c = TransferTest;

const char* const noData = nullptr;

std::string sspiLine(const std::string& shown) {
    return "1047 xfer: SSPI frame sent, showing '" + shown +
           "' (the integer token, or the client name after the data block)";
}

const std::string i2cLine = "1050 xfer: I2C frame sent to the server for client xfer";

/* Each byte with its bit order reversed. */
std::string reversed(const std::string& data) {
    std::string out = data;
    for (char& c : out) {
        unsigned char in = static_cast<unsigned char>(c), r = 0;
        for (int bit = 0; bit < 8; ++bit) r = static_cast<unsigned char>(r | (((in >> bit) & 1) << (7 - bit)));
        c = static_cast<char>(r);
    }
    return out;
}

TEST_F(Sspi, Command50With16BitsSendsThreeTokensTheBlockAndReadsAFinalPlus) {
    tokens(*peer, {"7", "16", "9"});
    peer->expect("ab").ack();
    peer->start();
    EXPECT_EQ(sspi(1, 0, 7, 16, "ab", 9), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1113", "1047", "1047", "1047", "1110", "1047"}));
    EXPECT_EQ(linesOf("1047"), (Ids{sspiLine("7"), sspiLine("16"), sspiLine("9"), sspiLine("xfer")}));
    EXPECT_EQ(client.GetClientStatus(), 0);
}

TEST_F(Sspi, Bits8192IsOneBlockOf1024Bytes) {
    const std::string data = pattern(1024);
    tokens(*peer, {"0", "8192", "0"});
    peer->expect(data).ack();
    peer->start();
    EXPECT_EQ(sspi(1, 0, 0, 8192, data.c_str(), 0), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1113", "1047", "1047", "1047", "1110", "1047"}));
}

TEST_F(Sspi, Bits8193GoesAsChunksOf1024And1ThenTheFinalAcknowledgement) {
    const std::string data = pattern(1025);
    tokens(*peer, {"0", "8193", "0"});
    chunks(*peer, data, false);
    peer->ack();
    peer->start();
    EXPECT_EQ(sspi(1, 0, 0, 8193, data.c_str(), 0), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1113", "1047", "1047", "1047", "1110", "1110"}));
}

TEST_F(Sspi, Command52ShortReadBackFillsTheRestWithZeros) {
    tokens(*peer, {"1", "24", "2"});
    peer->expect("abc").reply("Q");
    peer->start();
    EXPECT_EQ(sspi(1, 1, 1, 24, "abc", 2), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(takeTdo(24, 3), std::make_pair(0, bytes("Q\0\0")));
}

TEST_F(Sspi, Command51SecondTransferTakesTheNextFourElementsAndItsReadBackRemains) {
    tokens(*peer, {"1", "16", "2"});
    peer->reply("ab");
    tokens(*peer, {"3", "16", "4"});
    peer->expect("cd").reply("X");
    peer->start();
    int s = socket();
    int first = 0, second = 0, after = 0;
    withVaList(
        [&](va_list list) {
            first = client.sendSSPIShiftargs(s, 0, 1, list);
            second = client.sendSSPIShiftargs(s, 1, 1, list);
            after = va_arg(list, int);
            return 0;
        },
        1, 16, noData, 2, 3, 16, "cd", 4, 4242);
    EXPECT_EQ(first, 0);
    EXPECT_EQ(second, 0);
    EXPECT_EQ(after, 4242);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1113", "1047", "1047", "1047", "1113", "1047", "1047", "1047", "1110", "1047"}));
    EXPECT_EQ(takeTdo(16, 2), std::make_pair(0, bytes("X\0")));
}

TEST_F(Sspi, ReadOnlyTransferWithoutWriteAcceptsANullDataPointer) {
    tokens(*peer, {"1", "8", "2"});
    peer->reply("R");
    peer->start();
    EXPECT_EQ(sspi(0, 1, 1, 8, noData, 2), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(takeTdo(8, 1), std::make_pair(0, std::string("R")));
}

TEST_F(Sspi, ChunkedReadBackDoesNotExamineTheFirstByte) {
    const std::string data = pattern(1025);
    tokens(*peer, {"0", "8200", "0"});
    chunks(*peer, data, false);
    peer->reply("-a").expect(goToken).reply("-b").expect(goToken);
    peer->start();
    EXPECT_EQ(sspi(1, 1, 0, 8200, data.c_str(), 0), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(takeTdo(8200, 4), std::make_pair(0, std::string("-a-b")));
}

TEST_F(Sspi, PeerClosingDuringChunkedReadBackKeepsTheChunksReceived) {
    tokens(*peer, {"0", "8200", "0"});
    peer->reply("xchunk1").expect(goToken).closeConnection();
    peer->start();
    EXPECT_EQ(sspi(0, 1, 0, 8200, noData, 0), -1002);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1113", "1047", "1047", "1047", "1048"}));
    EXPECT_EQ(takeTdo(8200, 7), std::make_pair(0, std::string("xchunk1")));
    EXPECT_EQ(client.GetClientStatus(), 0);
}

TEST_F(Sspi, NeitherWriteNorReadBackStillReadsTheFinalAcknowledgement) {
    tokens(*peer, {"0", "8", "0"});
    peer->reply("+");
    peer->start();
    EXPECT_EQ(sspi(0, 0, 0, 8, noData, 0), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1113", "1047", "1047", "1047"}));
}

TEST_F(Sspi, FinalAcknowledgementWithoutPlusGives1002After1048) {
    tokens(*peer, {"0", "8", "0"});
    peer->expect("a").reply("x");
    peer->start();
    EXPECT_EQ(sspi(1, 0, 0, 8, "a", 0), -1002);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids().back(), "1048");
}

TEST_F(Sspi, WriteOfZeroOrNegativeBitsFailsTheBlockSendAfter1046) {
    for (const int bitCount : {0, -1, -8}) {
        SCOPED_TRACE(bitCount);
        peer = ScriptedPeer::onSocketPair();
        log.clear();
        tokens(*peer, {"0", std::to_string(bitCount), "0"});
        peer->start();
        EXPECT_EQ(sspi(1, 0, 0, bitCount, "a", 0), -1001);
        EXPECT_TRUE(peerFinished());
        EXPECT_EQ(ids(), (Ids{"1113", "1047", "1047", "1047", "1110", "1046"}));
    }
}

TEST_F(Sspi, BitCountIntMaxHasNoChunksAndEndsWithTheFinalAcknowledgement) {
    tokens(*peer, {"0", "2147483647", "0"});
    peer->reply("+");
    peer->start();
    EXPECT_EQ(sspi(1, 0, 0, INT_MAX, "a", 0), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1113", "1047", "1047", "1047"}));
}

TEST_F(Sspi, PeerClosingMidChunkGives1002) {
    const std::string data = pattern(2048);
    tokens(*peer, {"0", "16384", "0"});
    peer->expect(data.substr(0, 1024)).ack().expectAny(1).closeConnection();
    peer->start();
    EXPECT_EQ(sspi(1, 0, 0, 16384, data.c_str(), 0), -1002);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids().back(), "1048");
}

TEST_F(Sspi, PeerClosedBeforeTheTransferFailsTheFirstTokenAfter1046) {
    closePeer();
    EXPECT_EQ(sspi(1, 0, 0, 8, "a", 0), -1001);
    EXPECT_EQ(ids(), (Ids{"1113", "1046"}));
}

TEST_F(I2c, ByteValueTravelsBitReversedFromItsLowByte) {
    struct Case {
        int byteValue;
        const char* token;
    };
    for (const Case c : {Case{0x50, "10"}, Case{0x1A5, "165"}, Case{0x01, "128"}, Case{0x12, "72"}}) {
        SCOPED_TRACE(c.byteValue);
        peer = ScriptedPeer::onSocketPair();
        tokens(*peer, {"1", c.token, "8", "2"});
        peer->reply("+");
        peer->start();
        EXPECT_EQ(i2c(0, 0, 1, c.byteValue, 8, noData, 2), 0);
        EXPECT_TRUE(peerFinished());
    }
}

TEST_F(I2c, Command46SendsTheDataByteReversedAndNamesOnlyTheClient) {
    tokens(*peer, {"1", "0", "8", "2"});
    peer->expect("\x80").ack();
    peer->start();
    EXPECT_EQ(i2c(1, 0, 1, 0, 8, "\x01", 2), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1114", "1050", "1050", "1050", "1050", "1050"}));
    EXPECT_EQ(linesOf("1050"), Ids(5, i2cLine));
    EXPECT_EQ(client.GetClientStatus(), 0);
}

TEST_F(I2c, Command48ReadBackIsNotReversed) {
    tokens(*peer, {"1", "0", "8", "2"});
    peer->expect("\x80").reply("\x01");
    peer->start();
    EXPECT_EQ(i2c(1, 1, 1, 0, 8, "\x01", 2), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(takeTdo(8, 1), std::make_pair(0, std::string("\x01")));
}

TEST_F(I2c, Bits8200SendsReversedChunksThenReadsBackChunksBeginningWithPlus) {
    const std::string data = pattern(1025);
    tokens(*peer, {"0", "0", "8200", "0"});
    chunks(*peer, reversed(data), false);
    peer->reply("+r1").expect(goToken).reply("+r2").expect(goToken);
    peer->start();
    EXPECT_EQ(i2c(1, 1, 0, 0, 8200, data.c_str(), 0), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1114", "1050", "1050", "1050", "1050"}));
    EXPECT_EQ(takeTdo(8200, 6), std::make_pair(0, std::string("+r1+r2")));
}

TEST_F(I2c, ReadBackChunkNotBeginningWithPlusGives1002AndKeepsEarlierChunks) {
    tokens(*peer, {"0", "0", "8200", "0"});
    peer->reply("+ok").expect(goToken).reply("x");
    peer->start();
    EXPECT_EQ(i2c(0, 1, 0, 0, 8200, noData, 0), -1002);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1114", "1050", "1050", "1050", "1050", "1051"}));
    EXPECT_EQ(takeTdo(8200, 3), std::make_pair(0, std::string("+ok")));
}

TEST_F(I2c, Command47SecondTransferTakesTheNextFiveElements) {
    tokens(*peer, {"1", "128", "8", "2"});
    peer->reply("a");
    tokens(*peer, {"3", "10", "8", "4"});
    peer->expect("\x80").reply("b");
    peer->start();
    int s = socket();
    int first = 0, second = 0, after = 0;
    withVaList(
        [&](va_list list) {
            first = client.sendI2CShiftargs(s, 0, 1, list);
            second = client.sendI2CShiftargs(s, 1, 1, list);
            after = va_arg(list, int);
            return 0;
        },
        1, 0x01, 8, noData, 2, 3, 0x50, 8, "\x01", 4, 4242);
    EXPECT_EQ(first, 0);
    EXPECT_EQ(second, 0);
    EXPECT_EQ(after, 4242);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(takeTdo(8, 1), std::make_pair(0, std::string("b")));
}

TEST_F(I2c, WriteOfZeroOrNegativeBitsFailsTheBlockSendAfter1049) {
    for (const int bitCount : {0, -1, -8}) {
        SCOPED_TRACE(bitCount);
        peer = ScriptedPeer::onSocketPair();
        log.clear();
        tokens(*peer, {"0", "0", std::to_string(bitCount), "0"});
        peer->start();
        EXPECT_EQ(i2c(1, 0, 0, 0, bitCount, "a", 0), -1001);
        EXPECT_TRUE(peerFinished());
        EXPECT_EQ(ids(), (Ids{"1114", "1050", "1050", "1050", "1050", "1049"}));
    }
}

TEST_F(I2c, BitCountIntMaxHasNoChunksToSendOrReadBack) {
    holdTdo("old");
    tokens(*peer, {"0", "0", "2147483647", "0"});
    peer->start();
    EXPECT_EQ(i2c(1, 1, 0, 0, INT_MAX, "a", 0), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(takeTdo(8, 1).first, -1022);
}

TEST_F(I2c, PeerClosingMidChunkGives1002After1051) {
    const std::string data = pattern(2048);
    tokens(*peer, {"0", "0", "16384", "0"});
    peer->expect(reversed(data.substr(0, 1024))).ack().expectAny(1).closeConnection();
    peer->start();
    EXPECT_EQ(i2c(1, 0, 0, 0, 16384, data.c_str(), 0), -1002);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids().back(), "1051");
}

}  // namespace
}  // namespace tetherhost::test

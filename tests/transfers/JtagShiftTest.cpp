// SPDX-License-Identifier: MIT
/* The JTAG shift (sendJTAGShiftargs) and the collection of scan return data
 * (both GetTDO overloads). */
#include <climits>
#include <ostream>

#include "TransferTesting.h"

namespace tetherhost::test {
namespace {

using JtagShift = TransferTest;
using GetTdo = TransferTest;

const char* const noBlock = nullptr;

TEST_F(JtagShift, SingleBlockOf8192BitsSendsItsDataAndOneZeroByte) {
    const std::string data = pattern(1024);
    tokens(*peer, {"0", "8192", "0", "0"});
    peer->expect(data + bytes("\0")).reply("ok").expect(goToken).reply(bytes("7\0"));
    peer->start();
    EXPECT_EQ(jtagShift(0, 8192, 0, 0, data.c_str()), 7);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1111", "1103", "1042"}));
    EXPECT_EQ(linesOf("1042"),
              Ids{"1042 xfer: JTAG shift data block sent, awaiting the server's reply (last reply '')"});
    EXPECT_EQ(client.GetClientStatus(), 0);
}

struct ChunkCase {
    int bitCount;
    std::size_t byteCount;
    std::size_t chunkCount;
};

void PrintTo(const ChunkCase& c, std::ostream* out) {
    *out << "{bitCount " << c.bitCount << ", byteCount " << c.byteCount << ", chunkCount " << c.chunkCount << "}";
}

class JtagShiftChunks : public TransferTest, public ::testing::WithParamInterface<ChunkCase> {};

TEST_P(JtagShiftChunks, ChunksAreEachSentAs1024BytesAndAnnounced) {
    const ChunkCase c = GetParam();
    const std::string data = pattern(c.byteCount);
    tokens(*peer, {"0", std::to_string(c.bitCount), "0", "0"});
    chunks(*peer, data, true);
    peer->expect(goToken).reply(bytes("0\0"));
    peer->start();
    EXPECT_EQ(jtagShift(0, c.bitCount, 0, 0, data.c_str()), 0);
    EXPECT_TRUE(peerFinished());
    Ids expected{"1111", "1103"};
    expected.insert(expected.end(), c.chunkCount, "1110");
    EXPECT_EQ(ids(), expected);
}

INSTANTIATE_TEST_SUITE_P(Boundaries, JtagShiftChunks,
                         ::testing::Values(ChunkCase{8193, 1025, 2}, ChunkCase{16384, 2048, 2},
                                           ChunkCase{16385, 2049, 3}),
                         [](const auto& info) { return bitsName(info.param.bitCount); });

TEST_F(JtagShift, ZeroBitsSendsOneZeroBytePerBlock) {
    tokens(*peer, {"0", "0", "2", "1"});
    peer->expect(bytes("\0")).reply("AB");
    peer->expect(bytes("\0")).reply("C");
    peer->expect(bytes("\0")).reply("D");
    peer->expect(goToken).reply(bytes("3\0"));
    peer->start();
    EXPECT_EQ(jtagShift(0, 0, 2, 1, "x", "y", "z"), 3);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1111", "1103", "1042", "1042"}));
}

TEST_F(JtagShift, ThirdBlockMessageShowsThePreviousRepliesLaidOverEachOther) {
    tokens(*peer, {"2", "8", "1", "1"});
    peer->expect(bytes("a\0")).reply("abcdef");
    peer->expect(bytes("b\0")).reply("XY");
    peer->expect(bytes("c\0")).reply("z");
    peer->expect(goToken).reply(bytes("4\0"));
    peer->start();
    EXPECT_EQ(jtagShift(2, 8, 1, 1, "a", "b", "c"), 4);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(linesOf("1042"),
              (Ids{"1042 xfer: JTAG shift data block sent, awaiting the server's reply (last reply '')",
                   "1042 xfer: JTAG shift data block sent, awaiting the server's reply (last reply "
                   "'XYcdef')"}));
}

TEST_F(JtagShift, EvenWithSecondSendsTheSecondBlockAndReadsNothingBack) {
    tokens(*peer, {"0", "16", "2", "0"});
    peer->expect(bytes("ab\0")).reply("r");
    peer->expect(bytes("cd\0")).reply("s");
    peer->expect(goToken).reply(bytes("0\0"));
    peer->start();
    EXPECT_EQ(jtagShift(0, 16, 2, 0, "ab", "cd"), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(takeTdo(16, 2).first, -1022);
}

TEST_F(JtagShift, FlagsValueTwoSuppressesTheReadBack) {
    tokens(*peer, {"2", "16", "1", "0"});
    peer->expect(bytes("ab\0")).reply("r");
    peer->expect(bytes("cd\0")).reply("s");
    peer->expect(goToken).reply(bytes("5\0"));
    peer->start();
    EXPECT_EQ(jtagShift(2, 16, 1, 0, "ab", "cd"), 5);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(takeTdo(16, 2).first, -1022);
}

TEST_F(JtagShift, NegativeStatusIsReturnedUnchangedWithoutReadBack) {
    tokens(*peer, {"0", "8", "1", "0"});
    peer->expect(bytes("a\0")).reply("r");
    peer->expect(bytes("b\0")).reply("s");
    peer->expect(goToken).reply(bytes("-7\0"));
    peer->start();
    EXPECT_EQ(jtagShift(0, 8, 1, 0, "a", "b"), -7);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1111", "1103", "1042"}));
}

TEST_F(JtagShift, SingleBlockReadBackTakesByteCountBytesOfTheReplyBuffer) {
    tokens(*peer, {"0", "40", "1", "0"});
    peer->expect(bytes("11111\0")).reply("x");
    peer->expect(bytes("22222\0")).reply("y");
    peer->expect(goToken).reply(bytes("00042\0")).reply("abc");
    peer->start();
    EXPECT_EQ(jtagShift(0, 40, 1, 0, "11111", "22222"), 3);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1111", "1103", "1042"}));
    EXPECT_EQ(takeTdo(40, 8), std::make_pair(0, std::string("abc42???")));
    EXPECT_EQ(ids(), (Ids{"1111", "1103", "1042", "1104"}));
}

TEST_F(JtagShift, ChunkedReadBackKeepsEachChunkWithItsLeadingPlus) {
    const std::string first = pattern(1025, 'A');
    const std::string second = pattern(1025, 'K');
    tokens(*peer, {"0", "8200", "1", "0"});
    chunks(*peer, first, true);
    chunks(*peer, second, true);
    peer->expect(goToken).reply(bytes("0\0"));
    peer->reply("+AAAA").expect(goToken).reply("+BB").expect(goToken);
    peer->start();
    EXPECT_EQ(jtagShift(0, 8200, 1, 0, first.c_str(), second.c_str()), 2);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1111", "1103", "1110", "1110"}));
    EXPECT_EQ(takeTdo(8200, 10), std::make_pair(0, std::string("+AAAA+BB??")));
}

TEST_F(JtagShift, ChunkedPathWithoutReadBackKeepsEarlierScanData) {
    holdTdo("keep");
    const std::string data = pattern(1025);
    tokens(*peer, {"0", "8200", "0", "0"});
    chunks(*peer, data, true);
    peer->expect(goToken).reply(bytes("0\0"));
    peer->start();
    EXPECT_EQ(jtagShift(0, 8200, 0, 0, data.c_str()), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(takeTdo(32, 4), std::make_pair(0, std::string("keep")));
}

TEST_F(JtagShift, SingleBlockWithoutReadBackEmptiesEarlierScanData) {
    holdTdo("keep");
    tokens(*peer, {"0", "8", "0", "0"});
    peer->expect(bytes("a\0")).reply("r").expect(goToken).reply(bytes("0\0"));
    peer->start();
    EXPECT_EQ(jtagShift(0, 8, 0, 0, "a"), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(takeTdo(32, 4).first, -1022);
}

TEST_F(JtagShift, NullFirstBlockSendsNothingAndReturns1020) {
    QuietPeer quiet;
    socketOverride = quiet.clientSocket();
    EXPECT_EQ(jtagShift(0, 8, 0, 0, noBlock), -1020);
    EXPECT_EQ(quiet.pending(), "");
    EXPECT_EQ(ids(), Ids{"1111"});
    EXPECT_EQ(client.GetClientStatus(), 0);
}

TEST_F(JtagShift, NullSecondBlockOnTheSingleBlockPathReturns1021) {
    tokens(*peer, {"0", "8", "1", "0"});
    peer->expect(bytes("a\0")).reply("r");
    peer->start();
    EXPECT_EQ(jtagShift(0, 8, 1, 0, "a", noBlock), -1021);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1111", "1103", "1042"}));
    EXPECT_EQ(client.GetClientStatus(), 0);
}

TEST_F(JtagShift, NullThirdBlockOnTheSingleBlockPathReturns1021) {
    tokens(*peer, {"0", "8", "1", "1"});
    peer->expect(bytes("a\0")).reply("r");
    peer->expect(bytes("b\0")).reply("s");
    peer->start();
    EXPECT_EQ(jtagShift(0, 8, 1, 1, "a", "b", noBlock), -1021);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1111", "1103", "1042"}));
}

TEST_F(JtagShift, NullThirdBlockOnTheChunkedPathReturns1021) {
    const std::string data = pattern(1025);
    tokens(*peer, {"0", "8200", "0", "1"});
    chunks(*peer, data, true);
    peer->start();
    EXPECT_EQ(jtagShift(0, 8200, 0, 1, data.c_str(), noBlock), -1021);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1111", "1103", "1110", "1110"}));
}

TEST_F(JtagShift, NullSecondBlockOnTheChunkedPathReturns1021) {
    const std::string data = pattern(1025);
    tokens(*peer, {"0", "8200", "1", "0"});
    chunks(*peer, data, true);
    peer->start();
    EXPECT_EQ(jtagShift(0, 8200, 1, 0, data.c_str(), noBlock), -1021);
    EXPECT_TRUE(peerFinished());
}

TEST_F(JtagShift, FailedTokenSendReturns1001After1039) {
    closePeer();
    EXPECT_EQ(jtagShift(0, 8, 0, 0, "a"), -1001);
    EXPECT_EQ(ids(), (Ids{"1111", "1103", "1039"}));
    EXPECT_EQ(client.GetClientStatus(), 0);
}

TEST_F(JtagShift, TokenAcknowledgementWithoutPlusReturns1002After1040) {
    peer->expectFrame("0").reply(bytes("-\0"));
    peer->start();
    EXPECT_EQ(jtagShift(0, 8, 0, 0, "a"), -1002);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1111", "1103", "1040"}));
}

TEST_F(JtagShift, ChunkAcknowledgementWithoutPlusReturns1002) {
    const std::string data = pattern(1025);
    tokens(*peer, {"0", "8200", "0", "0"});
    peer->expect(data.substr(0, 1024)).reply("x");
    peer->start();
    EXPECT_EQ(jtagShift(0, 8200, 0, 0, data.c_str()), -1002);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1111", "1103", "1110", "1040"}));
}

TEST_F(JtagShift, PeerClosingMidChunkGives1002) {
    const std::string data = pattern(1025);
    tokens(*peer, {"0", "8200", "0", "0"});
    peer->expect(data.substr(0, 1024)).ack().expectAny(500).closeConnection();
    peer->start();
    EXPECT_EQ(jtagShift(0, 8200, 0, 0, data.c_str()), -1002);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1111", "1103", "1110", "1110", "1040"}));
}

TEST_F(JtagShift, PeerClosingBeforeTheStatusTextGives1002) {
    tokens(*peer, {"0", "8", "0", "0"});
    peer->expect(bytes("a\0")).reply("r").expect(goToken).closeConnection();
    peer->start();
    EXPECT_EQ(jtagShift(0, 8, 0, 0, "a"), -1002);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1111", "1103", "1042", "1040"}));
}

TEST_F(JtagShift, PeerClosingMidChunkedReadBackKeepsTheChunksReceived) {
    const std::string data = pattern(1025);
    tokens(*peer, {"0", "8200", "1", "0"});
    chunks(*peer, data, true);
    chunks(*peer, data, true);
    peer->expect(goToken).reply(bytes("0\0")).reply("+first").expect(goToken).closeConnection();
    peer->start();
    EXPECT_EQ(jtagShift(0, 8200, 1, 0, data.c_str(), data.c_str()), -1002);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1111", "1103", "1110", "1110", "1040"}));
    EXPECT_EQ(takeTdo(8200, 6), std::make_pair(0, std::string("+first")));
}

TEST_F(JtagShift, ReadBackChunkNotBeginningWithPlusGives1002) {
    const std::string data = pattern(1025);
    tokens(*peer, {"0", "8200", "1", "0"});
    chunks(*peer, data, true);
    chunks(*peer, data, true);
    peer->expect(goToken).reply(bytes("0\0")).reply("+ok").expect(goToken).reply("-bad");
    peer->start();
    EXPECT_EQ(jtagShift(0, 8200, 1, 0, data.c_str(), data.c_str()), -1002);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1111", "1103", "1110", "1110", "1040"}));
    EXPECT_EQ(takeTdo(8200, 3), std::make_pair(0, std::string("+ok")));
}

TEST_F(JtagShift, FailedSingleBlockReadBackGives1002WithoutAMessage) {
    holdTdo("old");
    tokens(*peer, {"0", "8", "1", "0"});
    peer->expect(bytes("a\0")).reply("r").expect(bytes("b\0")).reply("s");
    peer->expect(goToken).reply(bytes("0\0")).closeConnection();
    peer->start();
    EXPECT_EQ(jtagShift(0, 8, 1, 0, "a", "b"), -1002);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1111", "1103", "1042"}));
    EXPECT_EQ(takeTdo(8, 1).first, -1022);
}

struct BitCountCase {
    int bitCount;
    bool blockGoesOut;  // false: the block's send has a length of 0 or less
};

void PrintTo(const BitCountCase& c, std::ostream* out) {
    *out << "{bitCount " << c.bitCount << ", blockGoesOut " << (c.blockGoesOut ? "true" : "false") << "}";
}

class JtagShiftBitCounts : public TransferTest, public ::testing::WithParamInterface<BitCountCase> {};

TEST_P(JtagShiftBitCounts, ByteCountFollowsThe32BitArithmetic) {
    const BitCountCase c = GetParam();
    tokens(*peer, {"0", std::to_string(c.bitCount), "0", "0"});
    if (c.blockGoesOut) peer->expect(bytes("\0")).reply("r").expect(goToken).reply(bytes("0\0"));
    peer->start();
    EXPECT_EQ(jtagShift(0, c.bitCount, 0, 0, "a"), c.blockGoesOut ? 0 : -1001);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), c.blockGoesOut ? (Ids{"1111", "1103", "1042"}) : (Ids{"1111", "1103", "1039"}));
}

INSTANTIATE_TEST_SUITE_P(Edges, JtagShiftBitCounts,
                         ::testing::Values(BitCountCase{0, true}, BitCountCase{-1, true}, BitCountCase{-8, true},
                                           BitCountCase{-14, true}, BitCountCase{-15, false},
                                           BitCountCase{INT_MAX, false}),
                         [](const auto& info) { return bitsName(info.param.bitCount); });

TEST_F(JtagShift, TwoMebibyteShiftWithReadBack) {
    constexpr int bitCount = 2 * 1024 * 1024 * 8;
    const std::string first = pattern(std::size_t{2} * 1024 * 1024, 'A');
    const std::string second = pattern(std::size_t{2} * 1024 * 1024, 'M');
    tokens(*peer, {"0", std::to_string(bitCount), "1", "0"});
    chunks(*peer, first, true);
    chunks(*peer, second, true);
    peer->expect(goToken).reply(bytes("0\0"));
    std::string returned;
    for (int i = 0; i < 2048; ++i) {
        const std::string chunk = "+" + pattern(1023, static_cast<char>('A' + i % 26));
        peer->reply(chunk).expect(goToken);
        returned += chunk;
    }
    peer->start();
    EXPECT_EQ(jtagShift(0, bitCount, 1, 0, first.c_str(), second.c_str()), 2);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids().size(), 2u + 2048u);
    const auto [result, dest] = takeTdo(bitCount, returned.size());
    EXPECT_EQ(result, 0);
    EXPECT_EQ(dest, returned);
}

TEST_F(GetTdo, AfterAFailedShiftThatClearedTheDataReports1022) {
    holdTdo("data");
    tokens(*peer, {"0", "8", "0", "0"});
    peer->expect(bytes("a\0")).closeConnection();
    peer->start();
    EXPECT_EQ(jtagShift(0, 8, 0, 0, "a"), -1002);
    EXPECT_TRUE(peerFinished());
    log.clear();
    EXPECT_EQ(takeTdo(32, 4), std::make_pair(-1022, std::string("????")));
    EXPECT_EQ(ids(), (Ids{"1104", "1105"}));
}

TEST_F(GetTdo, NullDestinationReturns1023AndKeepsTheData) {
    holdTdo("abcd");
    EXPECT_EQ(client.GetTDO(static_cast<char*>(nullptr), 32), -1023);
    EXPECT_EQ(ids(), Ids{"1104"});
    EXPECT_EQ(takeTdo(32, 4), std::make_pair(0, std::string("abcd")));
}

TEST_F(GetTdo, CopiesTheByteCountAndEmptiesTheData) {
    holdTdo("abcdef");
    EXPECT_EQ(takeTdo(12, 6), std::make_pair(0, std::string("ab????")));
    EXPECT_EQ(takeTdo(12, 6), std::make_pair(-1022, std::string("??????")));
    EXPECT_EQ(ids(), (Ids{"1104", "1104", "1105"}));
}

TEST_F(GetTdo, CopiesNoMoreThanTheDataHeldAndLeavesTheRestOfTheDestination) {
    holdTdo("ab");
    EXPECT_EQ(takeTdo(64, 8), std::make_pair(0, std::string("ab??????")));
}

TEST_F(GetTdo, BitCountsGivingNoBytesCopyNothingButEmptyTheData) {
    for (const int bitCount : {0, -8, -15, INT_MAX}) {
        SCOPED_TRACE(bitCount);
        holdTdo("ab");
        EXPECT_EQ(takeTdo(bitCount, 2), std::make_pair(0, std::string("??")));
        EXPECT_EQ(takeTdo(16, 2).first, -1022);
    }
}

TEST_F(GetTdo, ReferenceFormCopiesAndThenPointsAtAnEmptyTextWhenNothingIsHeld) {
    holdTdo("abcd");
    unsigned char buffer[4] = {};
    unsigned char* dest = buffer;
    EXPECT_EQ(client.GetTDO(dest, 32), 0);
    EXPECT_EQ(dest, buffer);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer), 4), "abcd");
    EXPECT_EQ(client.GetTDO(dest, 32), -1022);
    ASSERT_NE(dest, nullptr);
    EXPECT_NE(dest, buffer);
    EXPECT_EQ(dest[0], 0);
}

TEST_F(GetTdo, ReferenceFormWithNullDestinationReturns1023) {
    holdTdo("abcd");
    unsigned char* dest = nullptr;
    EXPECT_EQ(client.GetTDO(dest, 32), -1023);
    EXPECT_EQ(dest, nullptr);
    EXPECT_EQ(takeTdo(32, 4), std::make_pair(0, std::string("abcd")));
}

TEST_F(GetTdo, LeavesTheStoredStatusAlone) {
    client.SetClientStatus(55);
    EXPECT_EQ(takeTdo(8, 1).first, -1022);
    holdTdo("a");
    EXPECT_EQ(takeTdo(8, 1).first, 0);
    EXPECT_EQ(client.GetClientStatus(), 55);
}

}  // namespace
}  // namespace tetherhost::test

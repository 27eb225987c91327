// SPDX-License-Identifier: MIT
/* A server that says more than it was asked for, or that closes in the
 * middle of a chunk. Every receive stays within its frame buffer; bytes
 * beyond what a receive asked for wait in the socket and answer the next
 * receive; read-back data beyond the bit count never reach the caller's
 * buffer; and a connection closed halfway through a chunk ends the transfer
 * with -1002 after the marshaller's receive-failed message. */
#include "TransferTesting.h"

namespace tetherhost::test {
namespace {

using ExcessAnswers = TransferTest;
using CutChunks = TransferTest;

/** A read-back of `byteCount` bytes as the server sends it: chunks of 1024
 * bytes, each beginning with "+". */
std::string plusChunks(std::size_t byteCount) {
    std::string readBack = pattern(byteCount, 'K');
    for (std::size_t at = 0; at < byteCount; at += 1024) readBack[at] = '+';
    return readBack;
}

TEST_F(ExcessAnswers, BytesBehindATokenAcknowledgementAnswerTheNextTokenAndFailItWith1002) {
    // The acknowledgement receive takes two bytes: "7" and its NUL wait and
    // are taken as the acknowledgement of the bit count.
    peer->expectFrame("0").reply(bytes("+\0") + bytes("7\0")).expectFrame("8");
    peer->start();
    EXPECT_EQ(jtagShift(0, 8, 0, 0, "a"), -1002);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(peer->received(), bytes("0\0") + bytes("8\0"));
    EXPECT_EQ(ids(), (Ids{"1111", "1103", "1040"}));
    EXPECT_EQ(client.GetClientStatus(), 0);
}

TEST_F(ExcessAnswers, ReadBackLongerThanTheBlockFillsOneFrameAndItsRestFailsTheNextShift) {
    // A 1024-byte scan read back with five bytes too many, all in one send
    // behind the status: the frame takes 1024 bytes of read-back and the
    // five left over are the next shift's first acknowledgement.
    const std::string data = pattern(1024);
    const std::string readBack = pattern(1024, 'K');
    tokens(*peer, {"0", "8192", "1", "0"});
    peer->expect(data + bytes("\0")).reply("r").expect(data + bytes("\0")).reply("s");
    peer->expect(goToken).reply(bytes("0\0") + readBack + "EXTRA");
    peer->expectFrame("0");
    peer->start();
    EXPECT_EQ(jtagShift(0, 8192, 1, 0, data.c_str(), data.c_str()), 1024);
    EXPECT_EQ(takeTdo(8192, 1024), std::make_pair(0, readBack));
    log.clear();
    EXPECT_EQ(jtagShift(0, 8, 0, 0, "n"), -1002);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1111", "1103", "1040"}));
    EXPECT_EQ(client.GetClientStatus(), 0);
}

TEST_F(ExcessAnswers, SingleBlockReadBackBeyondTheByteCountIsCountedButNotKept) {
    tokens(*peer, {"0", "8", "1", "0"});
    peer->expect(bytes("a\0")).reply("r").expect(bytes("b\0")).reply("s");
    peer->expect(goToken).reply(bytes("0\0") + "K" + "EXTRA");
    peer->start();
    EXPECT_EQ(jtagShift(0, 8, 1, 0, "a", "b"), 6);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1111", "1103", "1042"}));
    EXPECT_EQ(takeTdo(8, 6), std::make_pair(0, std::string("K?????")));
}

TEST_F(ExcessAnswers, ALastReadBackChunkLongerThanAnnouncedIsKeptButGetTdoCopiesOnlyTheBitCount) {
    // 1025 bytes come back as 1024 and 1: the second chunk brings five more.
    const std::string data = pattern(1025);
    const std::string readBack = plusChunks(1025);
    tokens(*peer, {"0", "8200", "1", "0"});
    chunks(*peer, data, true);
    chunks(*peer, data, true);
    peer->expect(goToken).reply(bytes("0\0")).reply(readBack.substr(0, 1024)).expect(goToken);
    peer->reply(readBack.substr(1024) + "EXTRA").expect(goToken);
    peer->start();
    EXPECT_EQ(jtagShift(0, 8200, 1, 0, data.c_str(), data.c_str()), 2);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1111", "1103", "1110", "1110"}));
    EXPECT_EQ(takeTdo(8200, 1030), std::make_pair(0, readBack + "?????"));
    EXPECT_EQ(takeTdo(8200, 1).first, -1022);
}

TEST_F(CutChunks, PeerClosingHalfwayThroughAReadBackChunkBegunBehindTheStatusGives1002After1040) {
    holdTdo("old");
    const std::string data = pattern(1025);
    tokens(*peer, {"0", "8200", "1", "0"});
    chunks(*peer, data, true);
    chunks(*peer, data, true);
    peer->expect(goToken).reply(bytes("0\0") + "+half").closeConnection();
    peer->start();
    EXPECT_EQ(jtagShift(0, 8200, 1, 0, data.c_str(), data.c_str()), -1002);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1111", "1103", "1110", "1110", "1040"}));
    EXPECT_EQ(client.GetClientStatus(), 0);
    // The read-back was emptied before the chunk: neither the old data nor
    // the half chunk remain.
    EXPECT_EQ(takeTdo(8200, 5), std::make_pair(-1022, std::string("?????")));
}

TEST_F(CutChunks, PumpReadBackChunkCutShortIsTakenWholeAndTheCloseFailsTheNextChunkWith1002) {
    // One receive is one chunk: the library cannot tell half a chunk from a
    // short one. It sends its go token for the 500 bytes and finds the
    // connection closed when it waits for the third chunk.
    const std::string data = pattern(3072);
    const std::string readBack = plusChunks(3072);
    tokens(*peer, {"24576", "0", "1"});
    chunks(*peer, data, false);
    peer->reply(readBack.substr(0, 1024)).expect(goToken);
    peer->reply(readBack.substr(1024, 500)).expect(goToken).closeConnection();
    peer->start();
    EXPECT_EQ(pumpData(data.c_str(), 24576, 0, 1), -1002);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1112", "1044", "1044", "1044", "1110", "1110", "1110", "1045"}));
    EXPECT_EQ(client.GetClientStatus(), 0);
    EXPECT_EQ(takeTdo(24576, 3072), std::make_pair(0, readBack.substr(0, 1524) + std::string(3072 - 1524, '?')));
}

}  // namespace
}  // namespace tetherhost::test

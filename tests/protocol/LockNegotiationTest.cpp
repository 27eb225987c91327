// SPDX-License-Identifier: MIT
/* ClientUtils::DetermineMutex on a socketpair: the lock request, the answer
 * as a number, the flag it sets and the result. */
#include <signal.h>
#include <sys/socket.h>

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "ClientUtils.h"
#include "MessageLog.h"
#include "ProtocolTesting.h"
#include "ScriptedPeer.h"

namespace {

using namespace tetherhost::test;

class LockNegotiation : public ::testing::Test {
protected:
    void SetUp() override { signal(SIGPIPE, SIG_DFL); }

    /** One negotiation against `answer`; the flag starts at `flagBefore`. */
    int negotiate(const std::string& answer, int flagBefore) {
        peer->expect(bytes("+\0")).reply(answer);
        peer->start();
        flag = flagBefore;
        int socket = peer->clientSocket();
        const int result = utils->DetermineMutex(socket, flag);
        EXPECT_TRUE(peer->finish()) << peer->failure();
        EXPECT_EQ(peer->received(), bytes("+\0"));
        return result;
    }

    std::unique_ptr<ScriptedPeer> peer = ScriptedPeer::onSocketPair();
    MessageLog log;
    std::unique_ptr<ClientUtils> utils = log.utils("board1");
    Trace trace{"board1"};
    int flag = 0;
};

TEST_F(LockNegotiation, AnswerOneGrantsTheLock) {
    EXPECT_EQ(negotiate("1", 0), 0);
    EXPECT_EQ(flag, 1);
    trace.post("1086").number("1075", 1);
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(LockNegotiation, AnswerZeroWithNulRefusesWithMinusOne) {
    EXPECT_EQ(negotiate(bytes("0\0"), 1), -1);
    EXPECT_EQ(flag, 0);
    trace.post("1086").post("1076");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(LockNegotiation, AnswerTwoIsHandedBackAndClearsTheFlag) {
    EXPECT_EQ(negotiate("2", 1), 2);
    EXPECT_EQ(flag, 0);
    trace.post("1086").post("1076");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(LockNegotiation, AnswerMinusOneGivesMinusOneLikeARefusal) {
    EXPECT_EQ(negotiate("-1", 1), -1);
    EXPECT_EQ(flag, 0);
}

TEST_F(LockNegotiation, AnAcknowledgementInsteadOfANumberReadsAsZero) {
    EXPECT_EQ(negotiate(bytes("+\0"), 1), -1);
    EXPECT_EQ(flag, 0);
    trace.post("1086").post("1076");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(LockNegotiation, OnlyTheFirstTwoCharactersOfTheAnswerAreRead) {
    EXPECT_EQ(negotiate("123", 1), 12);
    EXPECT_EQ(flag, 0);
    char rest[8] = {};
    EXPECT_EQ(recv(peer->clientSocket(), rest, sizeof rest, MSG_DONTWAIT), 1);
    EXPECT_STREQ(rest, "3");
}

TEST_F(LockNegotiation, APeerThatClosesGivesMinus1002AndLeavesTheFlag) {
    peer->expect(bytes("+\0")).closeConnection();
    peer->start();
    flag = 1;
    int socket = peer->clientSocket();
    EXPECT_EQ(utils->DetermineMutex(socket, flag), -1002);
    EXPECT_TRUE(peer->finish()) << peer->failure();
    EXPECT_EQ(flag, 1);
    trace.post("1086").post("1074");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(LockNegotiation, AnUnsentRequestGivesMinus1001AndLeavesTheFlag) {
    peer->start();
    ASSERT_TRUE(peer->finish()) << peer->failure();
    flag = 1;
    int socket = peer->clientSocket();
    EXPECT_EQ(utils->DetermineMutex(socket, flag), -1001);
    EXPECT_EQ(flag, 1);
    trace.post("1086").twice("1073");
    EXPECT_EQ(log.lines(), trace.lines());
}

}  // namespace

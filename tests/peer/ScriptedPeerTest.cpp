// SPDX-License-Identifier: MIT
/* Tests of the scripted peer on a Unix socketpair: matching and mismatching
 * expects, replies kept apart, bounded waits and descriptor ownership. */
#include "PeerTestHelpers.h"
#include "ScriptedPeer.h"
#include "support/ReceiveQueue.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <chrono>

namespace tetherhost::test {
namespace {

using namespace std::string_literals;
using Clock = std::chrono::steady_clock;
using Receives = std::vector<std::string>;

TEST(ScriptedPeerOnSocketPair, MatchingExpectPassesAndRecordsTheBytes) {
    auto peer = ScriptedPeer::onSocketPair();
    peer->expectFrame("4").ack();
    peer->start();
    const int client = peer->clientSocket();
    ASSERT_TRUE(sendBytes(client, "4\0"s));
    EXPECT_EQ(receiveOnce(client), "+\0"s);
    EXPECT_TRUE(peer->finish());
    EXPECT_EQ(peer->failure(), "");
    EXPECT_EQ(peer->received(), "4\0"s);
}

TEST(ScriptedPeerOnSocketPair, ExpectCollectsBytesFromSeveralSends) {
    auto peer = ScriptedPeer::onSocketPair();
    peer->expectFrame("hello").ack();
    peer->start();
    const int client = peer->clientSocket();
    ASSERT_TRUE(sendBytes(client, "he"));
    // The second half goes only once the peer has taken the first, so the
    // peer sees two receives.
    ASSERT_TRUE(waitPeerDrained(client, 10000));
    ASSERT_TRUE(sendBytes(client, "llo\0"s));
    EXPECT_EQ(receiveOnce(client), "+\0"s);
    EXPECT_TRUE(peer->finish());
    EXPECT_EQ(peer->failure(), "");
}

TEST(ScriptedPeerOnSocketPair, ExpectTakesNoMoreThanItsOwnBytes) {
    auto peer = ScriptedPeer::onSocketPair();
    peer->expect("ab").expect("cd");
    peer->start();
    ASSERT_TRUE(sendBytes(peer->clientSocket(), "abcd"));
    EXPECT_TRUE(peer->finish());
    EXPECT_EQ(peer->failure(), "");
    EXPECT_EQ(peer->received(), "abcd");
}

TEST(ScriptedPeerOnSocketPair, MismatchFailsNamingTheStepAndClosesTheConnection) {
    auto peer = ScriptedPeer::onSocketPair();
    peer->expectFrame("1").expectFrame("4").ack();
    peer->start();
    const int client = peer->clientSocket();
    ASSERT_TRUE(sendBytes(client,
                          "1\0"
                          "5\0"s));
    EXPECT_EQ(receiveUntilClosed(client), Receives{});
    EXPECT_FALSE(peer->finish());
    EXPECT_EQ(peer->failure(), R"(step 2 of 3 (expect "4\0"): received "5\0")");
    EXPECT_EQ(peer->received(),
              "1\0"
              "5\0"s);
}

TEST(ScriptedPeerOnSocketPair, ExpectAnyAcceptsWhateverArrives) {
    auto peer = ScriptedPeer::onSocketPair();
    peer->expectAny(3).reply("ok");
    peer->start();
    const int client = peer->clientSocket();
    ASSERT_TRUE(sendBytes(client, "x\0\xff"s));
    EXPECT_EQ(receiveOnce(client), "ok");
    EXPECT_TRUE(peer->finish());
    EXPECT_EQ(peer->received(), "x\0\xff"s);
}

TEST(ScriptedPeerOnSocketPair, ClientEndingItsStreamFailsTheExpect) {
    auto peer = ScriptedPeer::onSocketPair();
    peer->expectFrame("12");
    peer->start();
    const int client = peer->clientSocket();
    ASSERT_TRUE(sendBytes(client, "1"));
    ASSERT_EQ(shutdown(client, SHUT_WR), 0);
    EXPECT_FALSE(peer->finish());
    EXPECT_EQ(peer->failure(), R"(step 1 of 1 (expect "12\0"): received "1", then the connection closed)");
    EXPECT_EQ(peer->received(), "1");
}

// The client starts reading only once the first reply is waiting for it,
// when a peer that did not wait would send the second into the same receive;
// they still arrive as two receives.
TEST(ScriptedPeerOnSocketPair, TwoRepliesInARowArriveAsTwoReceives) {
    auto peer = ScriptedPeer::onSocketPair();
    peer->reply("first").reply("second");
    peer->start();
    ASSERT_TRUE(waitReadable(peer->clientSocket()));
    EXPECT_EQ(receiveUntilClosed(peer->clientSocket()), (Receives{"first", "second"}));
    EXPECT_TRUE(peer->finish());
    EXPECT_EQ(peer->failure(), "");
}

TEST(ScriptedPeerOnSocketPair, SecondReplyWaitsUntilTheClientReadsTheFirst) {
    auto peer = ScriptedPeer::onSocketPair();
    peer->reply("a").reply("b");
    peer->start();
    EXPECT_FALSE(peer->finish(300));
    EXPECT_EQ(
        peer->failure(),
        R"(step 2 of 2 (reply "b"): the client had not read the previous reply when finish(300) stopped the script)");
    EXPECT_EQ(receiveUntilClosed(peer->clientSocket()), Receives{"a"});
}

TEST(ScriptedPeerOnSocketPair, CloseConnectionEndsTheStreamMidScript) {
    auto peer = ScriptedPeer::onSocketPair();
    peer->reply("bye").closeConnection().expectFrame("x");
    peer->start();
    EXPECT_EQ(receiveUntilClosed(peer->clientSocket()), Receives{"bye"});
    EXPECT_FALSE(peer->finish());
    EXPECT_EQ(peer->failure(), R"(step 3 of 3 (expect "x\0"): the connection is closed)");
}

TEST(ScriptedPeerOnSocketPair, SilentClientFailsAtTheStepTimeOut) {
    auto peer = ScriptedPeer::onSocketPair();
    peer->expectFrame("1");
    const auto started = Clock::now();
    peer->start();
    EXPECT_FALSE(peer->finish(10000));
    const auto waited = Clock::now() - started;
    EXPECT_GE(waited, std::chrono::milliseconds(5000));
    EXPECT_EQ(peer->failure(), R"(step 1 of 1 (expect "1\0"): received "", then nothing within 5000 ms)");
}

TEST(ScriptedPeerOnSocketPair, FinishTimeOutStopsAWaitingScript) {
    auto peer = ScriptedPeer::onSocketPair();
    peer->expectFrame("1");
    peer->start();
    EXPECT_FALSE(peer->finish(200));
    EXPECT_EQ(peer->failure(), R"(step 1 of 1 (expect "1\0"): received "", then finish(200) stopped the script)");
    EXPECT_EQ(receiveUntilClosed(peer->clientSocket()), Receives{});
}

TEST(ScriptedPeerOnSocketPair, AcceptNextNeedsAListeningPeer) {
    auto peer = ScriptedPeer::onSocketPair();
    peer->acceptNext();
    peer->start();
    EXPECT_FALSE(peer->finish());
    EXPECT_EQ(peer->failure(), "step 1 of 1 (accept): this peer does not listen");
}

TEST(ScriptedPeerOnSocketPair, FinishBeforeStartFails) {
    auto peer = ScriptedPeer::onSocketPair();
    peer->ack();
    EXPECT_FALSE(peer->finish());
    EXPECT_EQ(peer->failure(), "finish() was called before start()");
    EXPECT_EQ(receiveUntilClosed(peer->clientSocket()), Receives{});
}

TEST(ScriptedPeerOnSocketPair, StepAddedAfterStartFails) {
    auto peer = ScriptedPeer::onSocketPair();
    peer->start();
    peer->ack();
    EXPECT_FALSE(peer->finish());
    EXPECT_EQ(peer->failure(), "a step was added after start()");
}

TEST(ScriptedPeerOnSocketPair, DestructorClosesEveryDescriptor) {
    const int before = openDescriptorCount();
    {
        auto peer = ScriptedPeer::onSocketPair();
        peer->reply("a").reply("b");
        peer->start();
        EXPECT_EQ(receiveUntilClosed(peer->clientSocket()), (Receives{"a", "b"}));
        EXPECT_TRUE(peer->finish());
        EXPECT_GT(openDescriptorCount(), before);
    }
    EXPECT_EQ(openDescriptorCount(), before);
}

TEST(ScriptedPeerOnSocketPair, DestroyingARunningPeerNeitherHangsNorLeaks) {
    const int before = openDescriptorCount();
    {
        auto peer = ScriptedPeer::onSocketPair();
        peer->expectFrame("never sent");
        peer->start();
    }
    EXPECT_EQ(openDescriptorCount(), before);
}

}  // namespace
}  // namespace tetherhost::test

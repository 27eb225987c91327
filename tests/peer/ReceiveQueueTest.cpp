// SPDX-License-Identifier: MIT
/* Tests of the peer receive-queue probe on Unix socketpairs and TCP loopback. */
#include "PeerTestHelpers.h"
#include "support/ReceiveQueue.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace tetherhost::test {
namespace {

using namespace std::string_literals;
using Clock = std::chrono::steady_clock;

class ReceiveQueueSocketPair : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0); }
    void TearDown() override {
        for (const int end : ends) {
            if (end >= 0) close(end);
        }
    }
    void closeReader() {
        close(ends[1]);
        ends[1] = -1;
    }
    int& writer = ends[0];
    int& reader = ends[1];
    int ends[2] = {-1, -1};
};

std::string readExactly(int socket, std::size_t count) {
    std::string bytes(count, '\0');
    const ssize_t got = recv(socket, bytes.data(), count, MSG_WAITALL);
    bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    return bytes;
}

TEST_F(ReceiveQueueSocketPair, CountsTheBytesThePeerHasNotRead) {
    EXPECT_EQ(peerUnreadBytes(writer), 0);
    ASSERT_TRUE(sendBytes(writer, "4\0"s));
    ASSERT_TRUE(sendBytes(writer, "hello"));
    EXPECT_EQ(peerUnreadBytes(writer), 7);
    EXPECT_EQ(readExactly(reader, 3), "4\0h"s);
    EXPECT_EQ(peerUnreadBytes(writer), 4);
    EXPECT_EQ(readExactly(reader, 4), "ello");
    EXPECT_EQ(peerUnreadBytes(writer), 0);
}

TEST_F(ReceiveQueueSocketPair, CountsEachDirectionSeparately) {
    ASSERT_TRUE(sendBytes(writer, "abc"));
    ASSERT_TRUE(sendBytes(reader, "z"));
    EXPECT_EQ(peerUnreadBytes(writer), 3);
    EXPECT_EQ(peerUnreadBytes(reader), 1);
}

TEST_F(ReceiveQueueSocketPair, ClosedPeerCannotBeTold) {
    ASSERT_TRUE(sendBytes(writer, "abc"));
    closeReader();
    EXPECT_EQ(peerUnreadBytes(writer), -1);
    EXPECT_FALSE(waitPeerDrained(writer, 1000));
}

TEST_F(ReceiveQueueSocketPair, WaitReturnsAtOnceWhenNothingIsPending) {
    // With no time to wait, only a first look that finds nothing unread can succeed.
    EXPECT_TRUE(waitPeerDrained(writer, 0));
}

TEST_F(ReceiveQueueSocketPair, WaitReturnsOnceThePeerHasReadTheRest) {
    ASSERT_TRUE(sendBytes(writer, "hello"));
    EXPECT_EQ(readExactly(reader, 3), "hel");
    EXPECT_FALSE(waitPeerDrained(writer, 0));
    std::string readLater;
    std::thread reading([this, &readLater] { readLater = readExactly(reader, 2); });
    const bool drained = waitPeerDrained(writer, 10000);
    reading.join();
    EXPECT_TRUE(drained);
    EXPECT_EQ(readLater, "lo");
}

TEST_F(ReceiveQueueSocketPair, WaitTimesOutWhileThePeerDoesNotRead) {
    ASSERT_TRUE(sendBytes(writer, "hello"));
    const auto started = Clock::now();
    EXPECT_FALSE(waitPeerDrained(writer, 200));
    EXPECT_GE(Clock::now() - started, std::chrono::milliseconds(200));
    EXPECT_EQ(peerUnreadBytes(writer), 5);
}

TEST(ReceiveQueueTcp, CountsTheBytesThePeerHasNotRead) {
    LoopbackConnection connection;
    ASSERT_TRUE(connection.established());
    EXPECT_EQ(peerUnreadBytes(connection.server), 0);
    // One segment: once the client can read, all seven bytes are queued.
    ASSERT_TRUE(sendBytes(connection.server, "4\0hello"s));
    ASSERT_TRUE(waitReadable(connection.client));
    EXPECT_EQ(peerUnreadBytes(connection.server), 7);
    EXPECT_EQ(readExactly(connection.client, 3), "4\0h"s);
    EXPECT_EQ(peerUnreadBytes(connection.server), 4);
    EXPECT_EQ(readExactly(connection.client, 4), "ello");
    EXPECT_EQ(peerUnreadBytes(connection.server), 0);
}

TEST(ReceiveQueueTcp, CountsTheClientToServerDirection) {
    LoopbackConnection connection;
    ASSERT_TRUE(connection.established());
    ASSERT_TRUE(sendBytes(connection.client, "abc"));
    ASSERT_TRUE(waitReadable(connection.server));
    EXPECT_EQ(peerUnreadBytes(connection.client), 3);
    EXPECT_EQ(peerUnreadBytes(connection.server), 0);
    EXPECT_EQ(readExactly(connection.server, 3), "abc");
    EXPECT_EQ(peerUnreadBytes(connection.client), 0);
}

TEST(ReceiveQueueTcp, ClosedPeerCannotBeTold) {
    LoopbackConnection connection;
    ASSERT_TRUE(connection.established());
    connection.closeClient();
    EXPECT_EQ(peerUnreadBytes(connection.server), -1);
    EXPECT_FALSE(waitPeerDrained(connection.server, 1000));
}

TEST(ReceiveQueueTcp, WaitReturnsOnceThePeerHasReadTheRest) {
    LoopbackConnection connection;
    ASSERT_TRUE(connection.established());
    ASSERT_TRUE(sendBytes(connection.server, "hello"));
    ASSERT_TRUE(waitReadable(connection.client));
    EXPECT_EQ(readExactly(connection.client, 3), "hel");
    EXPECT_FALSE(waitPeerDrained(connection.server, 0));
    std::string readLater;
    std::thread reading([&connection, &readLater] { readLater = readExactly(connection.client, 2); });
    const bool drained = waitPeerDrained(connection.server, 10000);
    reading.join();
    EXPECT_TRUE(drained);
    EXPECT_EQ(readLater, "lo");
}

TEST(ReceiveQueue, NonSocketCannotBeTold) {
    int pipeEnds[2];
    ASSERT_EQ(pipe(pipeEnds), 0);
    EXPECT_EQ(peerUnreadBytes(pipeEnds[1]), -1);
    EXPECT_FALSE(waitPeerDrained(pipeEnds[1], 100));
    close(pipeEnds[0]);
    close(pipeEnds[1]);
}

TEST(ReceiveQueue, UnconnectedSocketCannotBeTold) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(peerUnreadBytes(fd), -1);
    close(fd);
}

}  // namespace
}  // namespace tetherhost::test

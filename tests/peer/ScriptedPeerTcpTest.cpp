// SPDX-License-Identifier: MIT
/* Tests of the listening scripted peer on 127.0.0.1:TETHERHOST_TEST_PORT (a
 * port of its own, not the server's): accepting, replies kept apart over TCP,
 * the next connection, a busy port and descriptor ownership. */
#include "PeerTestHelpers.h"
#include "ScriptedPeer.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tetherhost::test {
namespace {

using namespace std::string_literals;
using Receives = std::vector<std::string>;

constexpr int port = TETHERHOST_TEST_PORT;
const std::string portText = std::to_string(port);

/* A client connection that the test closes when it ends. */
struct Client {
    Client() : fd(connectLoopback(port)) {}
    ~Client() {
        if (fd >= 0) close(fd);
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    const int fd;
};

TEST(ListeningScriptedPeer, AcceptsAClientThatConnectedBeforeStart) {
    auto peer = ScriptedPeer::listening(port);
    EXPECT_EQ(peer->clientSocket(), -1);
    peer->expectFrame("client").ack();
    Client client;
    ASSERT_GE(client.fd, 0);
    peer->start();
    ASSERT_TRUE(sendBytes(client.fd, "client\0"s));
    EXPECT_EQ(receiveOnce(client.fd), "+\0"s);
    EXPECT_EQ(receiveUntilClosed(client.fd), Receives{});
    EXPECT_TRUE(peer->finish());
    EXPECT_EQ(peer->failure(), "");
    EXPECT_EQ(peer->received(), "client\0"s);
}

TEST(ListeningScriptedPeer, TwoRepliesInARowArriveAsTwoReceives) {
    auto peer = ScriptedPeer::listening(port);
    peer->expectFrame("go").reply("first").reply("second");
    peer->start();
    Client client;
    ASSERT_GE(client.fd, 0);
    ASSERT_TRUE(sendBytes(client.fd, "go\0"s));
    ASSERT_TRUE(waitReadable(client.fd));
    EXPECT_EQ(receiveUntilClosed(client.fd), (Receives{"first", "second"}));
    EXPECT_TRUE(peer->finish());
    EXPECT_EQ(peer->failure(), "");
}

TEST(ListeningScriptedPeer, AcceptNextServesTheNextConnection) {
    auto peer = ScriptedPeer::listening(port);
    peer->expectFrame("1").ack().acceptNext().expectFrame("2").ack();
    peer->start();
    Client first;
    ASSERT_GE(first.fd, 0);
    ASSERT_TRUE(sendBytes(first.fd, "1\0"s));
    EXPECT_EQ(receiveUntilClosed(first.fd), Receives{"+\0"s});
    Client second;
    ASSERT_GE(second.fd, 0);
    ASSERT_TRUE(sendBytes(second.fd, "2\0"s));
    EXPECT_EQ(receiveUntilClosed(second.fd), Receives{"+\0"s});
    EXPECT_TRUE(peer->finish());
    EXPECT_EQ(peer->failure(), "");
    EXPECT_EQ(peer->received(),
              "1\0"
              "2\0"s);
}

TEST(ListeningScriptedPeer, NoClientFailsTheAcceptStep) {
    auto peer = ScriptedPeer::listening(port);
    peer->expectFrame("1");
    peer->start();
    EXPECT_FALSE(peer->finish(200));
    EXPECT_EQ(peer->failure(), "step 1 of 2 (accept): no client connected to 127.0.0.1:" + portText +
                                   ", finish(200) stopped the script");
}

TEST(ListeningScriptedPeer, ClientGoneBeforeTheSecondReplyFailsIt) {
    auto peer = ScriptedPeer::listening(port);
    peer->expectFrame("go").reply("first").reply("second");
    peer->start();
    {
        Client client;
        ASSERT_GE(client.fd, 0);
        ASSERT_TRUE(sendBytes(client.fd, "go\0"s));
        ASSERT_TRUE(waitReadable(client.fd));
    }
    EXPECT_FALSE(peer->finish());
    EXPECT_EQ(
        peer->failure(),
        R"(step 4 of 4 (reply "second"): cannot tell whether the client read the previous reply (connection gone?))");
}

TEST(ListeningScriptedPeer, BusyPortIsReported) {
    // Address reuse lets the occupant in beside connections of earlier tests
    // that linger on the port, but no second socket may listen there.
    const int occupant = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(occupant, 0);
    const int on = 1;
    ASSERT_EQ(setsockopt(occupant, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(occupant, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(occupant, 1), 0);
    auto peer = ScriptedPeer::listening(port);
    peer->ack();
    peer->start();
    EXPECT_FALSE(peer->finish());
    EXPECT_EQ(peer->failure(), "cannot listen on 127.0.0.1:" + portText + ": Address already in use");
    close(occupant);
}

TEST(ListeningScriptedPeer, DestructorClosesEveryDescriptor) {
    const int before = openDescriptorCount();
    {
        auto peer = ScriptedPeer::listening(port);
        peer->expectFrame("go").reply("a").reply("b");
        peer->start();
        Client client;
        ASSERT_GE(client.fd, 0);
        ASSERT_TRUE(sendBytes(client.fd, "go\0"s));
        EXPECT_EQ(receiveUntilClosed(client.fd), (Receives{"a", "b"}));
        EXPECT_TRUE(peer->finish());
    }
    EXPECT_EQ(openDescriptorCount(), before);
}

TEST(ListeningScriptedPeer, DestroyingAWaitingPeerNeitherHangsNorLeaks) {
    const int before = openDescriptorCount();
    {
        auto peer = ScriptedPeer::listening(port);
        peer->expectFrame("never sent");
        peer->start();
        Client client;
        ASSERT_GE(client.fd, 0);
    }
    EXPECT_EQ(openDescriptorCount(), before);
}

}  // namespace
}  // namespace tetherhost::test

// SPDX-License-Identifier: MIT
/* Client::Disconnect on a connection: the farewell command 9999, shutdown
 * and close, and what each answer of the server leads to. */
#include <fcntl.h>

#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "Client.h"
#include "ConnectedClient.h"
#include "ProtocolTesting.h"

namespace {

using namespace tetherhost::test;

const std::string request = bytes("+\0");

class Disconnect : public ConnectedClient {
protected:
    static bool isClosed(int descriptor) { return fcntl(descriptor, F_GETFD) == -1 && errno == EBADF; }
};

TEST_F(Disconnect, AFarewellAnsweredWithZeroShutsDownAndClosesTheSocket) {
    peer->expectFrame("9999").ack().expect(request).reply(bytes("0\0"));
    connect();
    const int descriptor = socket();
    EXPECT_EQ(client.Disconnect(), 0);
    EXPECT_TRUE(isClosed(descriptor));
    EXPECT_EQ(client.GetClientSocket(), descriptor) << "the old number stays";
    EXPECT_EQ(client.GetClientStatus(), 0);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    EXPECT_EQ(peer->received(), introduction() + bytes("9999\0") + request);
    trace.post("1098").number("1093", 9999).number("1012", 0).post("1096").post("1019", "").post("1021", "0");
    trace.post("1028");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(Disconnect, AFarewellAnsweredWithMinusOneClosesWithoutShutdownAndGivesMinus1008) {
    peer->expectFrame("9999").ack().expect(request).reply(bytes("-1\0"));
    connect();
    const int descriptor = socket();
    EXPECT_EQ(client.Disconnect(), -1008);
    EXPECT_EQ(client.GetClientStatus(), -1008);
    EXPECT_TRUE(isClosed(descriptor));
    EXPECT_TRUE(peerFinished()) << peer->failure();
    trace.post("1098").number("1093", 9999).number("1012", 0).post("1096").post("1019", "").post("1021", "-1");
    trace.twice("1026");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(Disconnect, AFailedFarewellDoesNotStopTheShutdown) {
    peer->expectFrame("9999").closeConnection();
    connect();
    const int descriptor = socket();
    EXPECT_EQ(client.Disconnect(), 0);
    EXPECT_EQ(client.GetClientStatus(), -1002) << "as the farewell left it";
    EXPECT_TRUE(isClosed(descriptor));
    EXPECT_TRUE(peerFinished()) << peer->failure();
    trace.post("1098").twice("1010").post("1028");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(Disconnect, AFarewellAnsweredWithAnotherNumberStillDisconnects) {
    peer->expectFrame("9999").ack().expect(request).reply(bytes("-2\0"));
    connect();
    EXPECT_EQ(client.Disconnect(), 0);
    EXPECT_TRUE(peerFinished()) << peer->failure();
}

TEST_F(Disconnect, CalledTwiceTheSecondCallFindsTheDescriptorClosedAndGivesMinus1009) {
    peer->expectFrame("9999").ack().expect(request).reply(bytes("0\0"));
    connect();
    ASSERT_EQ(client.Disconnect(), 0);
    log.clear();
    EXPECT_EQ(client.Disconnect(), -1009);
    EXPECT_EQ(client.GetClientStatus(), -1009);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    trace.post("1098").twice("1009").post("1027");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(Disconnect, TheClientCanConnectAgainAfterwards) {
    peer->expectFrame("9999").ack().expect(request).reply(bytes("0\0")).acceptNext();
    introduce(*peer, name);
    peer->expectFrame("38").ack().expect(request).reply(bytes("5\0"));
    connect();
    ASSERT_EQ(client.Disconnect(), 0);
    ASSERT_EQ(client.Connect(nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(client.Send(38), 5);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    EXPECT_EQ(peer->received(), introduction() + bytes("9999\0") + request + introduction() + bytes("38\0") + request);
}

}  // namespace

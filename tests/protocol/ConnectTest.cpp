// SPDX-License-Identifier: MIT
/* Client::Connect against a server that listens on 127.0.0.1:4001: the
 * introduction by name, the requested log file and the failures after the
 * connection stands. */
#include <fcntl.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "Client.h"
#include "ConnectedClient.h"
#include "MessageLog.h"
#include "ProtocolTesting.h"

namespace {

using namespace tetherhost::test;

class Connect : public ConnectedClient {
protected:
    // The log runs from before Connect here: it shows Connect's own messages.
    void SetUp() override {
        signal(SIGPIPE, SIG_DFL);
        log.attach(client);
    }
};

TEST_F(Connect, AListeningServerThatAnswersTheNameWithAnyBytesConnectsWithoutDetection) {
    peer->expectFrame(name).reply("x");
    peer->start();
    client.SetClientStatus(-5);
    EXPECT_EQ(client.Connect(nullptr, nullptr, nullptr), 0);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    EXPECT_EQ(client.GetClientStatus(), 0);
    EXPECT_GT(client.GetClientSocket(), 2);
    EXPECT_EQ(peer->received(), introduction());
    trace.post("1089").post("1090").post("1091");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(Connect, ARequestedLogFileIsSetAfterTheIntroduction) {
    introduce(*peer, name);
    peer->start();
    TempDir directory;
    const std::string requested = directory.file("session.log");
    EXPECT_EQ(client.Connect(nullptr, requested.c_str(), nullptr), 0);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    // "1092" and Set_Log_File's own "1099" still reach the old file; the
    // requested one starts empty and takes the next message.
    trace.post("1089").post("1090").post("1091").post("1092").post("1099");
    EXPECT_EQ(log.lines(), trace.lines());
    ASSERT_TRUE(fileLines(requested).empty());
    EXPECT_EQ(access(requested.c_str(), F_OK), 0);
    client.ValidClient();
    EXPECT_EQ(fileLines(requested), Trace(name).post("1088").lines());
}

TEST_F(Connect, AnEmptyLogFileNameSetsNoLogFile) {
    introduce(*peer, name);
    peer->start();
    EXPECT_EQ(client.Connect(nullptr, "", nullptr), 0);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    client.ValidClient();
    trace.post("1089").post("1090").post("1091").post("1088");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(Connect, AServerThatClosesWithoutAnsweringTheNameStoresMinus1002AndReturnsMinus1001) {
    peer->expectFrame(name).closeConnection();
    peer->start();
    EXPECT_EQ(client.Connect(nullptr, nullptr, nullptr), -1001);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    EXPECT_EQ(client.GetClientStatus(), -1002);
    EXPECT_GT(client.GetClientSocket(), 2);
    EXPECT_EQ(peer->received(), introduction());
    trace.post("1089").post("1090").post("1091").texts("1007", name, name);
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(Connect, TheConnectionIsNotInheritedByProgramsTheHostStarts) {
    introduce(*peer, name);
    peer->start();
    ASSERT_EQ(client.Connect(nullptr, nullptr, nullptr), 0);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    const int flags = fcntl(socket(), F_GETFD);
    ASSERT_NE(flags, -1);
    EXPECT_TRUE(flags & FD_CLOEXEC);
}

TEST_F(Connect, ANameOf5000BytesIsSentAsItsFirst1023Bytes) {
    const std::string longName(5000, 'n');
    const std::string cut(1023, 'n');
    std::vector<char> chars = nameBuffer(longName);
    Client longClient(chars.data());
    log.attach(longClient);
    peer->expectFrame(cut).ack();
    peer->start();
    EXPECT_EQ(longClient.Connect(nullptr, nullptr, nullptr), 0);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    EXPECT_EQ(peer->received(), cut + '\0');
    EXPECT_EQ(log.lines(), Trace(longName).post("1089").post("1090").post("1091").lines());
}

TEST_F(Connect, AServerThatClosesAfterA5000ByteNameShowsTheCutNameTwice) {
    const std::string longName(5000, 'n');
    const std::string cut(1023, 'n');
    std::vector<char> chars = nameBuffer(longName);
    Client longClient(chars.data());
    log.attach(longClient);
    peer->expectFrame(cut).closeConnection();
    peer->start();
    EXPECT_EQ(longClient.Connect(nullptr, nullptr, nullptr), -1001);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    EXPECT_EQ(longClient.GetClientStatus(), -1002);
    EXPECT_EQ(log.lines(), Trace(longName).post("1089").post("1090").post("1091").texts("1007", cut, cut).lines());
}

TEST_F(Connect, AnAnswerOfAFull1024BytesWithoutNulCompletesTheIntroduction) {
    peer->expectFrame(name).reply(std::string(1024, 'a'));
    peer->start();
    EXPECT_EQ(client.Connect(nullptr, nullptr, nullptr), 0);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    EXPECT_EQ(client.GetClientStatus(), 0);
}

TEST_F(Connect, ConnectingAgainOpensANewConnectionAndLeavesTheOldOneOpen) {
    introduce(*peer, name);
    peer->acceptNext();
    introduce(*peer, name);
    peer->start();
    ASSERT_EQ(client.Connect(nullptr, nullptr, nullptr), 0);
    const int first = socket();
    ASSERT_EQ(client.Connect(nullptr, nullptr, nullptr), 0);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    EXPECT_NE(socket(), first);
    EXPECT_NE(fcntl(first, F_GETFD), -1);
    close(first);
    EXPECT_EQ(peer->received(), introduction() + introduction());
}

}  // namespace

namespace {

using namespace tetherhost::test;

class DestroyedClient : public ConnectedClient {};

TEST_F(DestroyedClient, ADestroyedConnectedClientSendsNothingAndLeavesItsDescriptorOpen) {
    auto client = std::make_unique<Client>(nameChars.data());
    peer->expectAny(1);  // after the introduction the fixture scripted
    peer->start();
    ASSERT_EQ(client->Connect(nullptr, nullptr, nullptr), 0);
    const int descriptor = static_cast<int>(client->GetClientSocket());
    client.reset();
    EXPECT_NE(fcntl(descriptor, F_GETFD), -1) << "the destructor must not close the connection";
    // The peer is still waiting for a byte after the introduction: none may
    // have come from the destructor. Our own marker byte is what it gets.
    ASSERT_EQ(send(descriptor, "!", 1, MSG_NOSIGNAL), 1);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    EXPECT_EQ(peer->received(), introduction() + "!");
    close(descriptor);
}

}  // namespace

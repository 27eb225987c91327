// SPDX-License-Identifier: MIT
/* The transfers reached through Client::Send on a connected client: the two
 * back-to-back transfers of commands 47 and 51 on one argument list, and the
 * status that Send records for a marshaller. The peer listens on
 * 127.0.0.1:4001, where Connect looks for the server. */
#include <unistd.h>

#include "TransferTesting.h"

namespace tetherhost::test {
namespace {

class TransferSend : public ::testing::Test {
protected:
    TransferSend() : client(const_cast<char*>("xfer")), peer(ScriptedPeer::listening(4001)) {
        log.attach(client);
        peer->expectFrame("xfer").reply("hello");
    }
    ~TransferSend() override {
        if (client.GetClientSocket() > 0) close(static_cast<int>(client.GetClientSocket()));
    }

    /** Starts the script and connects the client to the peer. */
    void connect() {
        peer->start();
        ASSERT_EQ(client.Connect(const_cast<char*>(""), nullptr, nullptr), 0);
        log.clear();
    }

    ::testing::AssertionResult peerFinished() {
        if (peer->finish()) return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << peer->failure();
    }

    /** The integer reply that Send reads after a marshaller. */
    void integerReply(const std::string& text) { peer->expect(goToken).reply(text + '\0'); }

    MessageLog log;
    Client client;
    std::unique_ptr<ScriptedPeer> peer;
};

TEST_F(TransferSend, Command51RunsAReadOnlyThenAWritingSspiTransferOnOneList) {
    peer->expectFrame("51").reply("ok");
    tokens(*peer, {"1", "16", "2"});
    peer->reply("ab");
    tokens(*peer, {"3", "16", "4"});
    peer->expect("cd").reply("XY");
    integerReply("9");
    connect();
    EXPECT_EQ(client.Send(51, 1, 16, static_cast<const char*>(nullptr), 2, 3, 16, "cd", 4), 9);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(client.GetClientStatus(), 0);
    unsigned char tdo[2] = {};
    unsigned char* dest = tdo;
    EXPECT_EQ(client.GetTDO(dest, 16), 0);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(tdo), 2), "XY");
}

TEST_F(TransferSend, Command47MakesTheSecondI2cTransferEvenWhenTheFirstFails) {
    peer->expectFrame("47").reply("ok");
    peer->expectFrame("1").reply("-");
    tokens(*peer, {"3", "10", "8", "4"});
    peer->expect("\x80").reply("b");
    integerReply("5");
    connect();
    EXPECT_EQ(client.Send(47, 1, 0x01, 8, static_cast<const char*>(nullptr), 2, 3, 0x50, 8, "\x01", 4), 5);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(client.GetClientStatus(), 0);
    const Ids posted = log.identifiers();
    ASSERT_GE(posted.size(), 4u);
    EXPECT_EQ((Ids{posted[0], posted[1], posted[2], posted[3]}), (Ids{"1093", "1114", "1050", "1051"}));
    EXPECT_EQ(posted[4], "1114");
}

TEST_F(TransferSend, Command42RecordsTheMarshallersFailureAndReadsNoReply) {
    peer->expectFrame("42").reply("ok");
    connect();
    EXPECT_EQ(client.Send(42, static_cast<const char*>(nullptr), 8, 0, 0), -1020);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(client.GetClientStatus(), -1020);
    EXPECT_EQ(log.identifiers(), (Ids{"1093", "1112"}));
}

TEST_F(TransferSend, Command42WhoseLastReadBackChunkIsCutByACloseReturns0AndRecordsMinus1002) {
    // The half chunk is taken as the whole last chunk, so the pump succeeds;
    // only the integer reply that should follow it is missing. Send keeps the
    // marshaller's 0 as its result and records the reader's -1002.
    const std::string data = pattern(2048);
    std::string readBack = pattern(2048, 'K');
    readBack[0] = readBack[1024] = '+';
    peer->expectFrame("42").reply("ok");
    tokens(*peer, {"16384", "0", "1"});
    chunks(*peer, data, false);
    peer->reply(readBack.substr(0, 1024)).expect(goToken);
    peer->reply(readBack.substr(1024, 500)).expect(goToken).closeConnection();
    connect();
    EXPECT_EQ(client.Send(42, data.c_str(), 16384, 0, 1), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(client.GetClientStatus(), -1002);
    EXPECT_EQ(log.identifiers(), (Ids{"1093", "1112", "1044", "1044", "1044", "1110", "1110", "1096", "1019", "1020"}));
    std::string tdo(2048, '?');
    EXPECT_EQ(client.GetTDO(tdo.data(), 16384), 0);
    EXPECT_EQ(tdo, readBack.substr(0, 1524) + std::string(2048 - 1524, '?'));
}

/* An 8-bit data scan with read-back through Send(44, 12, ...), scripted up to
 * its go token; the test chooses how the status and the read-back arrive. */
class TransferSendShift : public TransferSend {
protected:
    void scriptUpToTheGoToken() {
        peer->expectFrame("44").reply("ok");
        peer->expectFrame("12").ack();
        tokens(*peer, {"0", "8", "1", "0"});
        peer->expect(bytes("a\0")).reply("r").expect(bytes("b\0")).reply("s");
        peer->expect(goToken);
    }
    /** Send returns the integer reply 3 and keeps the read-back "Q". */
    void expectIntegerReplyAndReadBack() {
        integerReply("3");
        connect();
        EXPECT_EQ(client.Send(44, 12, 0, 8, 1, 0, "a", "b"), 3);
        EXPECT_TRUE(peerFinished());
        EXPECT_EQ(client.GetClientStatus(), 0);
        char tdo[1] = {};
        EXPECT_EQ(client.GetTDO(tdo, 8), 0);
        EXPECT_EQ(tdo[0], 'Q');
    }
};

TEST_F(TransferSendShift, Command44WithSubCommand12ReturnsTheIntegerReplyAfterTheReadBack) {
    scriptUpToTheGoToken();
    peer->reply(bytes("0\0")).reply("Q");
    expectIntegerReplyAndReadBack();
}

TEST_F(TransferSendShift, Command44WithTheReadBackMergedIntoTheStatusReceiveStaysInStep) {
    scriptUpToTheGoToken();
    peer->reply(bytes("0\0") + "Q");
    expectIntegerReplyAndReadBack();
}

}  // namespace
}  // namespace tetherhost::test

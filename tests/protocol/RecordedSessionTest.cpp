/* A host's whole session played from a conversation file: the library's
 * calls against tests/data/conversations/jtag-scan-session.jsonl, byte for
 * byte, with the values each call returns and the scan data it brings back. */
#include <gtest/gtest.h>

#include "Client.h"
#include "Conversation.h"
#include "ProtocolTesting.h"
#include "ScriptedPeer.h"

namespace {

using namespace tetherhost::test;

TEST(RecordedSession, AJtagScanSessionSendsExactlyTheRecordedBytes) {
    const Conversation conversation = conversationNamed("jtag-scan-session");
    auto peer = ScriptedPeer::listening();
    peer->play(conversation).start();
    std::vector<char> name = nameBuffer("board1");
    Client client(name.data());
    ASSERT_EQ(client.Connect(nullptr, nullptr, nullptr), 0) << peer->failure();
    EXPECT_EQ(client.Send(4, "app", "user", 0), 0);
    EXPECT_EQ(client.Send(33), 0);
    const unsigned char tdi[] = {0x3F};
    const unsigned char expected[] = {0x00};
    EXPECT_EQ(client.Send(44, 12, 0, 6, 1, 0, tdi, expected), 0);
    char tdo[1] = {};
    EXPECT_EQ(client.GetTDO(tdo, 6), 0);
    EXPECT_EQ(tdo[0], 0x2A);
    EXPECT_EQ(client.Send(34), 0);
    EXPECT_EQ(client.Send(35), 0);
    EXPECT_EQ(client.Disconnect(), 0);
    EXPECT_TRUE(peer->finish()) << peer->failure();
    EXPECT_EQ(peer->received(), clientBytes(conversation));
}

}  // namespace

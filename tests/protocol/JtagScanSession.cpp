// SPDX-License-Identifier: MIT
/* The jtag-scan-session conversation, made by the library. */
#include "JtagScanSession.h"

#include <gtest/gtest.h>

#include "Client.h"
#include "Conversation.h"
#include "ProtocolTesting.h"

namespace tetherhost::test {

std::unique_ptr<ScriptedPeer> playJtagScanSession(const MessageLog* log) {
    auto peer = ScriptedPeer::listening();
    peer->play(conversationNamed("jtag-scan-session")).start();
    std::vector<char> name = nameBuffer("board1");
    Client client(name.data());
    if (log != nullptr) log->attach(client);
    const int connected = client.Connect(nullptr, nullptr, nullptr);
    EXPECT_EQ(connected, 0) << peer->failure();
    if (connected != 0) return peer;
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
    return peer;
}

}  // namespace tetherhost::test

// SPDX-License-Identifier: MIT
/* Fixture of the tests that talk through a Client's own connection: a peer
 * listening on 127.0.0.1:4001 whose script begins with the client's
 * introduction, and a log that starts once the client is connected. */
#ifndef TETHERHOST_TESTS_CONNECTEDCLIENT_H
#define TETHERHOST_TESTS_CONNECTEDCLIENT_H

#include <signal.h>
#include <sys/socket.h>

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Client.h"
#include "MessageLog.h"
#include "ProtocolTesting.h"
#include "ScriptedPeer.h"

namespace tetherhost::test {

class ConnectedClient : public ::testing::Test {
protected:
    void SetUp() override {
        // A send to a server that has gone away must not end the process.
        signal(SIGPIPE, SIG_DFL);
        introduce(*peer, name);
    }

    /** Starts the peer's script, connects and starts the log. */
    void connect() {
        peer->start();
        ASSERT_EQ(client.Connect(nullptr, nullptr, nullptr), 0) << peer->failure();
        log.attach(client);
    }
    /** connect(), then both locks taken as grantBothLocks scripts them (the
     * script must hold those steps first); the log starts after them. */
    void connectHoldingBothLocks() {
        connect();
        ASSERT_TRUE(takeBothLocks(client)) << peer->failure();
        log.clear();
    }
    /** Ends the peer's script; true when every step ran as written. */
    bool peerFinished() { return peer->finish(); }

    /** The client's name frame, the first bytes the server receives. */
    std::string introduction() const { return name + '\0'; }
    int socket() { return static_cast<int>(client.GetClientSocket()); }
    /** Every later send on the client's socket fails. */
    void breakSending() { ASSERT_EQ(shutdown(socket(), SHUT_WR), 0); }

    const std::string name = "board1";
    std::vector<char> nameChars = nameBuffer(name);
    Client client{nameChars.data()};
    std::unique_ptr<ScriptedPeer> peer = ScriptedPeer::listening();
    MessageLog log;
    Trace trace{name};
};

}  // namespace tetherhost::test

#endif

// SPDX-License-Identifier: MIT
/* ScriptedPeer: plays the server side of a conversation from a script of
 * "expect these exact bytes" and "send these bytes" steps, on its own thread,
 * and records every byte it received. It runs on one end of a Unix socketpair
 * (for code that takes a socket) or listens on 127.0.0.1 (for Connect and the
 * members that use the Client's own connection).
 *
 * Two replies in a row (no expect between them) never merge into one receive
 * of the client: before the second one the peer waits until the client has
 * read everything sent so far. Every wait is bounded, so a test whose client
 * misbehaves fails instead of hanging; when the script ends (or a step fails)
 * the peer closes the connection, which unblocks a client still reading. */
#ifndef TETHERHOST_TESTS_SCRIPTEDPEER_H
#define TETHERHOST_TESTS_SCRIPTEDPEER_H

#include <memory>
#include <string>

#include "Conversation.h"

namespace tetherhost::test {

class ScriptedPeer {
public:
    /** A peer on one end of a fresh socketpair; clientSocket() is the other end. */
    static std::unique_ptr<ScriptedPeer> onSocketPair();
    /** A peer listening on 127.0.0.1:`port`; the script starts by accepting
     * one connection. */
    static std::unique_ptr<ScriptedPeer> listening(int port = 4001);

    /** Ends the script (closing the connection) and joins the peer's thread. */
    ~ScriptedPeer();

    /** The client's end of the socketpair (-1 for a listening peer). It stays
     * owned by the peer and is closed by its destructor. */
    int clientSocket() const;

    /** Receive exactly these bytes (a mismatch or a time-out fails the step). */
    ScriptedPeer& expect(const std::string& bytes);
    /** expect(token followed by its NUL byte): one argument frame. */
    ScriptedPeer& expectFrame(const std::string& token);
    /** Receive exactly `count` bytes whatever they are. */
    ScriptedPeer& expectAny(std::size_t count);
    /** Send these bytes. */
    ScriptedPeer& reply(const std::string& bytes);
    /** reply("+" and NUL): the standard acknowledgement. */
    ScriptedPeer& ack();
    /** Close the connection at this point of the script. */
    ScriptedPeer& closeConnection();
    /** Listening peer: close the current connection and accept the next one. */
    ScriptedPeer& acceptNext();
    /** Every step of `conversation`, in order: the client's sends are
     * expected, its receives replied. */
    ScriptedPeer& play(const Conversation& conversation);

    /** Runs the script on the peer's thread. */
    void start();
    /** Waits (at most `timeoutMs`) for the script to end; true when every step
     * ran as scripted. The connection is closed when this returns. */
    bool finish(int timeoutMs = 5000);

    /** Every byte received, in order. */
    std::string received() const;
    /** The first failed step, described; empty when none failed. */
    std::string failure() const;

    struct State;

private:
    explicit ScriptedPeer(std::unique_ptr<State> state);
    std::unique_ptr<State> state;
};

/** An std::string holding `bytes` exactly, NUL bytes included. */
template <std::size_t N>
std::string bytes(const char (&literal)[N]) {
    return std::string(literal, N - 1);
}

}  // namespace tetherhost::test

#endif

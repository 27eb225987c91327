// SPDX-License-Identifier: MIT
/* SessionServer: the server side of a fault-injection run. It plays a
 * conversation of exact client bytes and server replies (sends and receives
 * only), like the scripted peer, but is
 * made for a client that goes wrong part-way:
 *
 * - every reply waits until the client has read everything sent before it,
 *   so a client that is a reply behind (after a receive that came short)
 *   meets each reply alone and a run never depends on timing;
 * - client bytes are compared as they arrive: at the first byte that
 *   differs, or after a pause of two seconds in the middle of an expected
 *   frame (ten before its first byte), the server closes the connection,
 *   which ends a client that waits for an answer with a failed receive;
 * - a listening server answers every connection after the first (a client
 *   reconnecting) with a fixed introduction answer once its name has come.
 *
 * It never fails a run by itself: stop() says whether the script ran to its
 * end, and the test decides what that means. */
#ifndef TETHERHOST_TESTS_SESSIONSERVER_H
#define TETHERHOST_TESTS_SESSIONSERVER_H

#include <memory>
#include <string>

#include "Conversation.h"

namespace tetherhost::test {

class SessionServer {
public:
    /** Listens on 127.0.0.1:`port`; the first connection plays `script`. */
    static std::unique_ptr<SessionServer> listening(int port, Conversation script, std::string introductionAnswer);
    /** Plays `script` on `connection` (a connected socket it then owns). */
    static std::unique_ptr<SessionServer> onSocket(int connection, Conversation script);

    /** Stops the server if still running. */
    ~SessionServer();
    SessionServer(const SessionServer&) = delete;
    SessionServer& operator=(const SessionServer&) = delete;

    /** Empty when the server is up; otherwise why it could not start. */
    std::string startError() const;
    /** Stops the server and closes every descriptor it holds. Empty when the
     * script ran to its end as written; otherwise where it stopped. */
    std::string stop();
    /** Connections after the first that were answered (valid after stop()). */
    int reconnections() const;

    struct State;

private:
    explicit SessionServer(std::unique_ptr<State> state);
    std::unique_ptr<State> state;
};

}  // namespace tetherhost::test

#endif

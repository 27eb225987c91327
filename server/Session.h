/* Session: the server side of one client connection, as one coroutine that
 * reads like the conversation itself: the introduction, then command after
 * command, each with exactly the frames, blocks, chunks, go tokens,
 * acknowledgements and replies that the library's side exchanges. */
#ifndef TETHERHOST_SERVER_SESSION_H
#define TETHERHOST_SERVER_SESSION_H

#include <asio/awaitable.hpp>
#include <asio/ip/tcp.hpp>
#include <cstdint>

#include "Cable.h"
#include "Locks.h"
#include "Trace.h"

namespace tetherhost::sim {

/** What all connections of one server share. */
struct ServerState {
    Cable& cable;
    Locks& locks;
    Trace& trace;
    int connected = 0;              // connections open now
    std::uint64_t connections = 0;  // connections accepted so far
};

/** Serves `socket` until the client leaves or breaks the protocol; the
 * connection's locks are released however it ends. */
asio::awaitable<void> serveConnection(asio::ip::tcp::socket& socket, ServerState& state, ConnectionId id);

/** The text reply of command 1: the server's name and version and, as
 * ";"-separated fields, the clients connected now, the connections served so
 * far and the bytes of heap in use. */
std::string statusReport(const ServerState& state);

}  // namespace tetherhost::sim

#endif

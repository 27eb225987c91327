// SPDX-License-Identifier: MIT
/* Session: the server side of one client connection, as one coroutine that
 * reads like the conversation itself: the introduction, then command after
 * command, each with exactly the frames, blocks, chunks, go tokens,
 * acknowledgements and replies that the library's side exchanges. */
#ifndef TETHERHOST_SERVER_SESSION_H
#define TETHERHOST_SERVER_SESSION_H

#include <asio/awaitable.hpp>
#include <asio/ip/tcp.hpp>
#include <array>
#include <cstdint>
#include <string>

#include "server/Cable.h"
#include "server/Faults.h"
#include "server/Limits.h"
#include "server/Locks.h"
#include "server/Trace.h"
#include "server/TransferMemory.h"
#include "support/ByteUnits.h"

namespace tetherhost::sim {

/** What all connections of one server share. */
struct ServerState {
    ServerState(Cable& cable, Trace& trace, const Limits& limits)
        : cable(cable), trace(trace), limits(limits), transferMemory(limits.transferMemory) {}

    Cable& cable;
    Trace& trace;
    const Limits& limits;
    Locks locks;
    TransferMemory transferMemory;
    int connected = 0;              // connections open now
    ConnectionId chainOwner = 0;    // the door connection (remote_bitbang, XVC) that owns the chain; 0: none
    std::uint64_t connections = 0;  // connections accepted so far
    Faults* faults = nullptr;       // --faults: the rules the model's answers go through; null: none
    /* Every receive lands here and is handed to its connection's frame
     * reader at once (one thread serves all), so a connection waiting for
     * its client holds no receive buffer of its own. */
    std::array<char, 16 * units::kibi> received{};
};

/** Serves `socket` until the client leaves or breaks the protocol; however
 * it ends, the connection's locks are released and the socket is closed. */
asio::awaitable<void> serveConnection(asio::ip::tcp::socket& socket, ServerState& state, ConnectionId id);

/** A connection that the model takes over part-way, after a replayed
 * recording (--replay-then-model): the client has introduced itself as
 * `clientName`, and `received` holds the bytes it sent that were not taken
 * yet. The model goes on between two commands, with the locks the
 * connection holds in the server's state. */
struct Handover {
    std::string clientName;
    std::string received;
    std::uint64_t answers = 0;  // the answers the replay sent, which the fault rules' frames count
};

/** Serves `socket` from where `handover` leaves it, as serveConnection does
 * after an introduction. */
asio::awaitable<void> serveConnection(asio::ip::tcp::socket& socket, ServerState& state, ConnectionId id,
                                      Handover handover);

/** The text reply of command 1: the server's name and version and, as
 * ";"-separated fields, the clients connected now, the connections served so
 * far and the bytes of heap in use. */
std::string statusReport(const ServerState& state);

}  // namespace tetherhost::sim

#endif

// SPDX-License-Identifier: MIT
/* ClientDrain: the wait that keeps two sends of the server from merging
 * into one receive of a client that receives twice without sending in
 * between (a JTAG shift's status text and read-back; two receives in a row
 * of a replayed recording). See docs/simulator.md, "Sends the client may
 * receive together". */
#ifndef TETHERHOST_SERVER_CLIENTDRAIN_H
#define TETHERHOST_SERVER_CLIENTDRAIN_H

#include <asio/awaitable.hpp>
#include <asio/ip/tcp.hpp>

namespace tetherhost::sim {

/** Waits until the client has read everything sent on `socket` so far: our
 * unsent queue is empty and the client's socket holds no unread bytes.
 * Polled with a timer, so the other connections go on being served
 * meanwhile; a best effort, given up after 10 s. */
asio::awaitable<void> waitClientDrained(asio::ip::tcp::socket& socket);

}  // namespace tetherhost::sim

#endif

/* RemoteBitbangSession: one connection on the remote_bitbang door. While it
 * is open it owns the chain: OpenOCD clocks the chain a TCK edge at a time,
 * and a library client's scan in between would break its sequence. */
#ifndef TETHERHOST_SERVER_REMOTEBITBANGSESSION_H
#define TETHERHOST_SERVER_REMOTEBITBANGSESSION_H

#include <asio/awaitable.hpp>
#include <asio/ip/tcp.hpp>

#include "server/Session.h"

namespace tetherhost::sim {

/** Serves remote_bitbang requests on `socket` until the client quits, leaves
 * or sends a byte that is no request; the socket is closed when it returns.
 * One connection owns the chain at a time: a second one is closed at once. */
asio::awaitable<void> serveRemoteBitbang(asio::ip::tcp::socket& socket, ServerState& state, ConnectionId id);

}  // namespace tetherhost::sim

#endif

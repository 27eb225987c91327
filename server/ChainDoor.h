// SPDX-License-Identifier: MIT
/* ChainDoor: the connections of the doors through which other tools clock
 * the chain themselves (remote_bitbang, XVC): the protocol each door speaks,
 * and the one loop that serves them all. Such a client keeps its own idea of
 * the controllers' state, so while its connection is open it owns the chain:
 * the library's chain operations are answered -7, and a second door
 * connection, of either kind, is closed at once. */
#ifndef TETHERHOST_SERVER_CHAINDOOR_H
#define TETHERHOST_SERVER_CHAINDOOR_H

#include <asio/awaitable.hpp>
#include <asio/ip/tcp.hpp>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "server/Session.h"

namespace tetherhost::sim {

/** The protocol of a door, fed the bytes of each receive as they come. */
class ChainDoorProtocol {
public:
    virtual ~ChainDoorProtocol() = default;
    /** Carries out what `received` completes, appending the answers to
     * `answers`; why the connection is to be closed, or nullopt to go on. */
    virtual std::optional<std::string> feed(std::string_view received, std::string& answers) = 0;
    /** TCK cycles clocked so far, for the trace line of the close. */
    virtual std::uint64_t cycles() const = 0;
};

/** Makes a door's protocol for a connection that owns the chain; `where`
 * names the connection in the trace. */
using ChainDoorFactory = std::unique_ptr<ChainDoorProtocol> (*)(ServerState& state, const Trace::Where& where);

/** The remote_bitbang door's protocol (RemoteBitbangSession.cpp): OpenOCD's
 * requests carried out as they arrive; closes on quit or a byte that is no
 * request. */
std::unique_ptr<ChainDoorProtocol> remoteBitbangDoor(ServerState& state, const Trace::Where& where);
/** The XVC door's protocol (XvcSession.cpp): Xilinx Virtual Cable commands
 * carried out as they arrive, the TCK period a client sets traced when it
 * changes; closes on bytes that are no command or a shift of no bits or over
 * the limit. */
std::unique_ptr<ChainDoorProtocol> xvcDoor(ServerState& state, const Trace::Where& where);

/** Serves a door connection named `door` in the trace: refused at once when
 * another owns the chain, otherwise the chain's owner until it closes. */
asio::awaitable<void> serveChainDoor(asio::ip::tcp::socket& socket, ServerState& state, ConnectionId id,
                                     std::string_view door, ChainDoorFactory makeProtocol);

}  // namespace tetherhost::sim

#endif

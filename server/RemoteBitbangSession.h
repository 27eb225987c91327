/* RemoteBitbangSession: the remote_bitbang door's side of a connection:
 * OpenOCD's requests carried out as they arrive, and the reasons such a
 * connection closes (quit, a byte that is no request). The server's loop
 * gives it the chain for as long as the connection stays open: OpenOCD
 * clocks the chain a TCK edge at a time, and a library client's scan in
 * between would break its sequence. */
#ifndef TETHERHOST_SERVER_REMOTEBITBANGSESSION_H
#define TETHERHOST_SERVER_REMOTEBITBANGSESSION_H

#include <memory>

#include "server/ChainDoor.h"

namespace tetherhost::sim {

/** The remote_bitbang protocol of one connection, on the cable's chain. */
std::unique_ptr<ChainDoorProtocol> remoteBitbangDoor(ServerState& state, const Trace::Where& where);

}  // namespace tetherhost::sim

#endif

/* XvcSession: the XVC door's side of a connection: Xilinx Virtual Cable
 * commands carried out as they arrive, the TCK period a client sets traced
 * when it changes, and the reasons such a connection closes (bytes that are
 * no command, a shift of no bits or over the limit). The server's loop gives
 * it the chain for as long as the connection stays open, as it does the
 * remote_bitbang door. */
#ifndef TETHERHOST_SERVER_XVCSESSION_H
#define TETHERHOST_SERVER_XVCSESSION_H

#include <memory>

#include "server/ChainDoor.h"

namespace tetherhost::sim {

/** The XVC protocol of one connection, on the cable's chain; its events go
 * to the trace as `where`'s. */
std::unique_ptr<ChainDoorProtocol> xvcDoor(ServerState& state, const Trace::Where& where);

}  // namespace tetherhost::sim

#endif

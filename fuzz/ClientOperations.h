// SPDX-License-Identifier: MIT
/* The client's side of the client fuzz targets: one input's operations on a
 * Client, run against a HostileServer. The operations cover Connect, Send
 * with every marshalling, the four readers, GetTDO, Disconnect, the
 * marshallers and argument senders called directly, lock negotiation and the
 * one-call JTAG shift; every byte the server says comes from the input too.
 *
 * Input layout:
 *   byte 0       bit 0: log every message to a file (the replies then flow
 *                through message output as well)
 *   byte 1       number of operations after the first Connect (1 to 8)
 *   operations   each an operation byte and its arguments, see operation()
 *   the rest     the server's pieces, read by the target's own function */
#ifndef TETHERHOST_FUZZ_CLIENTOPERATIONS_H
#define TETHERHOST_FUZZ_CLIENTOPERATIONS_H

#include <cstddef>
#include <cstdint>

#include "FuzzInput.h"
#include "HostileServer.h"

namespace tetherhost::fuzz {

/** Runs the input in `data`: its operations against a server of
 * `transport` whose pieces `readPieces` takes from the rest of the input. */
void runClientSession(const std::uint8_t* data, std::size_t size, HostileServer::Transport transport,
                      Pieces (*readPieces)(FuzzInput&));

}  // namespace tetherhost::fuzz

#endif

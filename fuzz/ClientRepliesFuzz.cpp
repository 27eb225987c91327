// SPDX-License-Identifier: MIT
/* Fuzz target "client_replies": the library against a hostile server whose
 * every record reaches the client as one receive. Every byte the server says
 * comes from the input: the answer to the client's introduction, the answers
 * to command frames, acknowledgements, lock answers, replies to the readers,
 * status texts and read-back data.
 *
 * Input layout: the operations of ClientOperations.h, then the server's
 * records, each a length byte L and L bytes (255 stands for 1024 bytes);
 * L = 0 closes the connection there, and the records after it go to the
 * next connection.
 *
 * The server's side is a SOCK_SEQPACKET socketpair, so that each record
 * reaches the client as one receive (cut to the receive's capacity, as a
 * stream peer that sent it alone would be) and the client decides nothing by
 * timing. The records are in the socket before the client runs and the
 * server's end is then shut for writing, so every receive returns at once:
 * a record, or 0 when they have run out. */
#include <cstddef>
#include <cstdint>

#include "ClientOperations.h"

namespace {

using namespace tetherhost::fuzz;

Pieces records(FuzzInput& in) {
    Pieces result;
    while (in.remaining() > 0 && result.size() < maxPieces) result.push_back(readPiece(in));
    return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    runClientSession(data, size, HostileServer::Transport::Records, records);
    return 0;
}

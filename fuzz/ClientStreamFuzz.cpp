// SPDX-License-Identifier: MIT
/* Fuzz target "client_stream": the library against a hostile server on a
 * stream socket, where the input decides how the server's bytes are cut
 * into the pieces that reach the client, merged across replies or split
 * inside one. A receive brings at most what is left of one piece (up to its
 * capacity), and what it leaves waits for the next receive: a server that
 * says more than a receive asks for, a status text followed by read-back
 * in one piece, an acknowledgement cut after its "+".
 *
 * Input layout: the operations of ClientOperations.h, then the server's
 * records, each a delivery byte D, a length byte L and L bytes (255 stands
 * for 1024 bytes; L = 0 closes the connection there, and the records after
 * it go to the next connection). D >> 1, when it lies inside the record,
 * splits the record there into two pieces; bit 0 of D merges the record's
 * (last) piece with the next record's first.
 *
 * The library's recv is linked to this harness (--wrap): before each one on
 * the server's connection, the next piece goes into the socket if nothing
 * waits to be read there, or, with no piece left, the server's end is shut
 * for writing. Every receive therefore returns at once (bytes, or 0 for the
 * end), one thread does everything, and nothing depends on timing. */
#include <sys/socket.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "ClientOperations.h"

namespace {

using namespace tetherhost::fuzz;

Pieces deliveries(FuzzInput& in) {
    Pieces result;
    std::string merged;  // a piece waiting to be joined by the next record
    while (in.remaining() > 0 && result.size() < maxPieces) {
        const std::uint8_t delivery = in.byte();
        std::string record = readPiece(in);
        if (record.empty()) {
            if (!merged.empty()) result.push_back(std::move(merged));
            merged.clear();
            result.emplace_back();
            continue;
        }
        const std::size_t split = delivery >> 1;
        if (split > 0 && split < record.size()) {
            result.push_back(merged + record.substr(0, split));
            merged.clear();
            record.erase(0, split);
        }
        merged += record;
        if ((delivery & 1) == 0) {
            result.push_back(std::move(merged));
            merged.clear();
        }
    }
    if (!merged.empty()) result.push_back(std::move(merged));
    return result;
}

}  // namespace

extern "C" {
ssize_t __real_recv(int fd, void* buffer, std::size_t size, int flags);

ssize_t __wrap_recv(int fd, void* buffer, std::size_t size, int flags) {
    if (activeServer != nullptr) activeServer->beforeReceive(fd);
    return __real_recv(fd, buffer, size, flags);
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    runClientSession(data, size, HostileServer::Transport::Stream, deliveries);
    return 0;
}
}

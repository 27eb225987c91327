// SPDX-License-Identifier: MIT
/* Limits: how much of the machine one simulator lets its clients use. A
 * shared lab server must stay up whatever a client does, so every resource
 * a client can make it hold has a ceiling here, and each is documented in
 * docs/simulator.md. */
#ifndef TETHERHOST_SERVER_LIMITS_H
#define TETHERHOST_SERVER_LIMITS_H

#include <chrono>
#include <cstddef>

#include "support/ByteUnits.h"

namespace tetherhost::sim {

struct Limits {
    /** Connections open at once; one more is accepted and closed at once,
     * so its client fails instead of waiting. */
    int maxConnections = 4096;
    /** How long a connection may keep a command or an introduction half
     * sent. Between commands a connection may stay silent for ever. */
    std::chrono::seconds stallTimeout{30};
    /** Bytes of chunked scan and pump data that all connections together
     * may hold while a transfer is received. */
    std::size_t transferMemory = 64 * units::mebi;
};

}  // namespace tetherhost::sim

#endif

// SPDX-License-Identifier: MIT
/* TransferMemory: the shared budget's bookkeeping. */
#include "server/TransferMemory.h"

namespace tetherhost::sim {

bool TransferMemory::Hold::add(std::size_t bytes) {
    if (bytes > memory.capacity - memory.used) return false;
    memory.used += bytes;
    held += bytes;
    return true;
}

void TransferMemory::Hold::clear() {
    memory.used -= held;
    held = 0;
}

}  // namespace tetherhost::sim

// SPDX-License-Identifier: MIT
/* Locks: grant, refuse, release. */
#include "server/Locks.h"

namespace tetherhost::sim {

bool Locks::acquire(Lock lock, ConnectionId who) {
    ConnectionId& holder = holders[static_cast<std::size_t>(lock)];
    if (holder != 0 && holder != who) return false;
    holder = who;
    return true;
}

void Locks::release(Lock lock, ConnectionId who) {
    ConnectionId& holder = holders[static_cast<std::size_t>(lock)];
    if (holder == who) holder = 0;
}

void Locks::releaseAll(ConnectionId who) {
    release(Lock::Session, who);
    release(Lock::Command, who);
}

bool Locks::holdsBoth(ConnectionId who) const { return holder(Lock::Session) == who && holder(Lock::Command) == who; }

}  // namespace tetherhost::sim

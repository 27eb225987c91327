// SPDX-License-Identifier: MIT
/* Locks: the server's two locks, the session lock (asked for at the end of
 * command 4) and the command lock (command 33). Each is free or held by one
 * connection. */
#ifndef TETHERHOST_SERVER_LOCKS_H
#define TETHERHOST_SERVER_LOCKS_H

#include <array>
#include <cstdint>

namespace tetherhost::sim {

using ConnectionId = std::uint64_t;

enum class Lock { Session = 0, Command = 1 };

/** The holder a fault rule (hold_lock) puts on a lock for "another client",
 * on behalf of connection `connection`: no connection has this id, and each
 * connection's stand-in is its own, so that it can be freed when that
 * connection ends. */
constexpr ConnectionId standInFor(ConnectionId connection) { return connection | ConnectionId{1} << 63; }

class Locks {
public:
    /** Grants the lock when it is free or already held by `who`; false when
     * another connection holds it. */
    bool acquire(Lock lock, ConnectionId who);
    /** Frees the lock if `who` holds it. */
    void release(Lock lock, ConnectionId who);
    /** Frees both locks of `who`. */
    void releaseAll(ConnectionId who);
    /** Gives the lock to `who`, whoever held it. */
    void seize(Lock lock, ConnectionId who) { holders[static_cast<std::size_t>(lock)] = who; }
    bool holdsBoth(ConnectionId who) const;
    /** The holder, or 0 (no connection has id 0). */
    ConnectionId holder(Lock lock) const { return holders[static_cast<std::size_t>(lock)]; }

private:
    std::array<ConnectionId, 2> holders{};
};

}  // namespace tetherhost::sim

#endif

// SPDX-License-Identifier: MIT
/* ReceiveQueue: how many bytes the other end of a connected socket has not
 * yet read. A sender uses it to keep two of its messages from merging into
 * one receive of a peer that reads twice without sending in between: before
 * the second message it waits until the peer has taken the first.
 *
 * The kernel's socket diagnostics (NETLINK_SOCK_DIAG) report the receive
 * queue of the peer's socket: on TCP over loopback (inet_diag) it is found by
 * the connection's addresses and ports, on a Unix socketpair (unix_diag) by
 * the peer inode that our own socket names. (The sender's own SIOCOUTQ on a
 * Unix socket counts kernel memory, several hundred bytes per send.) */
#ifndef TETHERHOST_SUPPORT_RECEIVEQUEUE_H
#define TETHERHOST_SUPPORT_RECEIVEQUEUE_H

namespace tetherhost {

/** Bytes sent on `socket` that its peer has not read yet; -1 when this cannot
 * be told (an unsupported socket type, or the peer socket is gone). */
long peerUnreadBytes(int socket);

/** Waits until peerUnreadBytes(socket) is 0, polling at short intervals, for
 * at most `timeoutMs` milliseconds. Returns true when the peer has read
 * everything, false on time-out or when it cannot be told (peer gone). */
bool waitPeerDrained(int socket, int timeoutMs);

}  // namespace tetherhost

#endif

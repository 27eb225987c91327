// SPDX-License-Identifier: MIT
/* HostileServer: the server's side of every connection the library opens
 * while a client fuzz target runs one input. What the server says is a queue
 * of pieces taken from the input; an empty piece closes the connection
 * there, and the pieces after it go to the next connection. The library's
 * socket() and connect() are linked to this file (--wrap), so Connect and
 * everything after it runs on a socketpair whose far end is this server.
 *
 * However the pieces travel, the server never waits for the client and the
 * client never waits for the server: a receive finds bytes, or the end of
 * what the server says (the server's end is shut for writing), so no input
 * can hang the library. */
#ifndef TETHERHOST_FUZZ_HOSTILESERVER_H
#define TETHERHOST_FUZZ_HOSTILESERVER_H

#include <sys/types.h>

#include <cstddef>
#include <deque>
#include <string>
#include <vector>

#include "FuzzInput.h"

namespace tetherhost::fuzz {

/* The bytes of one piece; an empty one closes the connection. */
using Pieces = std::deque<std::string>;

/* Most pieces one input gives the server. */
inline constexpr std::size_t maxPieces = 512;

/** One piece as an input gives it: a length byte L, then L bytes; 255
 * stands for 1024 bytes (a full frame), and 0 for a close. */
std::string readPiece(FuzzInput& in);

class HostileServer {
public:
    enum class Transport {
        // SOCK_SEQPACKET, every piece in the socket before the client runs:
        // each piece is one receive, cut to the receive's capacity.
        Records,
        // SOCK_STREAM, one piece at a time: the next piece goes out when the
        // client is about to receive and nothing waits to be read, so a
        // receive brings at most what is left of one piece, and what a
        // receive leaves of a piece waits for the next one.
        Stream,
    };

    HostileServer(Pieces pieces, Transport transport);
    ~HostileServer();
    HostileServer(const HostileServer&) = delete;
    HostileServer& operator=(const HostileServer&) = delete;

    /** A new connection: what the previous one left unread, then the
     * pending pieces up to the next close. The client's end, or -1. */
    int open();
    /** `fd` is the client's end of one of this server's open connections. */
    bool owns(int fd) const;
    /** Discards what the client has sent so far. */
    void drain();
    /** Stream transport, before the client receives on `fd`: when nothing
     * waits to be read there, the connection's next piece goes out, or,
     * with none left, the server's end is shut for writing. */
    void beforeReceive(int fd);

private:
    struct Connection {
        int client;
        int server;
        ino_t inode;
        Pieces unsent;
    };

    static bool isOpen(const Connection& connection);
    void send(Connection& connection);
    void reclaimUnread(Connection& previous);
    void closeAll();

    Pieces pending;
    Transport transport;
    std::vector<Connection> connections;
};

/** The server of the input being run; null between inputs. */
extern HostileServer* activeServer;

}  // namespace tetherhost::fuzz

#endif

// SPDX-License-Identifier: MIT
/* Client-side helpers for the tests of the scripted peer and the receive-queue
 * probe: bounded receives, loopback connections and a descriptor count. */
#ifndef TETHERHOST_TESTS_PEER_PEERTESTHELPERS_H
#define TETHERHOST_TESTS_PEER_PEERTESTHELPERS_H

#include <optional>
#include <string>
#include <vector>

namespace tetherhost::test {

/** One recv of up to 1024 bytes, waiting at most `timeoutMs` for data: the
 * bytes, "" at the end of the stream, nothing on time-out or error. */
std::optional<std::string> receiveOnce(int socket, int timeoutMs = 2000);

/** Every receiveOnce until the end of the stream, "" excluded; a receive
 * that times out or fails ends the list with "<no end of stream>". */
std::vector<std::string> receiveUntilClosed(int socket, int timeoutMs = 2000);

/** Sends all of `bytes` in one call; true when every byte went. */
bool sendBytes(int socket, const std::string& bytes);

/** Waits at most `timeoutMs` for `socket` to have data to read. */
bool waitReadable(int socket, int timeoutMs = 2000);

/** A new TCP connection to 127.0.0.1:`port`; -1 when it fails. */
int connectLoopback(int port);

/** How many descriptors this process has open. */
int openDescriptorCount();

/** Both ends of a TCP connection over loopback, on a port the kernel picks. */
class LoopbackConnection {
public:
    LoopbackConnection();
    ~LoopbackConnection();
    LoopbackConnection(const LoopbackConnection&) = delete;
    LoopbackConnection& operator=(const LoopbackConnection&) = delete;

    /** Both ends are open. */
    bool established() const;
    /** Closes the client end now. */
    void closeClient();

    int client = -1;
    int server = -1;
};

}  // namespace tetherhost::test

#endif

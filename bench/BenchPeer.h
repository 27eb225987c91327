// SPDX-License-Identifier: MIT
/* BenchPeer: the server side that the protocol benchmarks run against. It
 * listens on 127.0.0.1:4001, accepts connections one after another and
 * answers exactly the exchanges the benchmarks make: the introduction, a
 * command without arguments (command frame, then the integer reply) and the
 * JTAG shift of command 44, sub-command 12, with read-back. The library and
 * the floor client (plain send/recv doing the identical exchange) talk to
 * the same peer, so their ratio measures the library's own overhead. */
#ifndef TETHERHOST_BENCH_BENCHPEER_H
#define TETHERHOST_BENCH_BENCHPEER_H

#include <atomic>
#include <string>
#include <thread>

namespace tetherhost::bench {

class BenchPeer {
public:
    BenchPeer();
    ~BenchPeer();
    BenchPeer(const BenchPeer&) = delete;
    BenchPeer& operator=(const BenchPeer&) = delete;

private:
    void serve();
    void converse(int connection);
    int listener = -1;
    std::atomic<bool> stopping{false};
    std::thread thread;
};

/** A plain connected socket to 127.0.0.1:4001 that has sent its name and
 * read the answer, as Connect does. */
int connectFloorClient(const char* name);

/** Reads one NUL-terminated token (without the NUL); false on close. */
bool readToken(int socket, std::string& token);
/** Reads exactly `count` bytes into `data`; false on close. */
bool readExact(int socket, char* data, long count);

}  // namespace tetherhost::bench

#endif

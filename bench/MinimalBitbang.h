// SPDX-License-Identifier: MIT
/* MinimalBitbang: the smallest server of OpenOCD's remote_bitbang protocol
 * that OpenOCD can initialise and scan, for the door benchmark to hold the
 * simulator's remote_bitbang door against. One TAP: the 16-state controller,
 * an instruction register that captures ...01 and a 32-bit data register
 * that captures the IDCODE, whatever the instruction. A blocking thread
 * serves one connection at a time on 127.0.0.1:`port`, takes each receive
 * byte by byte and answers the TDO reads in one send per receive, as the
 * door does, so what separates the two is the door's own cost per byte. */
#ifndef TETHERHOST_BENCH_MINIMALBITBANG_H
#define TETHERHOST_BENCH_MINIMALBITBANG_H

#include <atomic>
#include <cstdint>
#include <mutex>
#include <thread>

namespace tetherhost::bench {

class MinimalBitbangServer {
public:
    /** Listens on 127.0.0.1:`port` before it returns (throws when it cannot),
     * so a client may connect at once. */
    MinimalBitbangServer(int port, int irLength, std::uint32_t idcode);
    /** Closes the listener and any open connection, and joins the thread. */
    ~MinimalBitbangServer();
    MinimalBitbangServer(const MinimalBitbangServer&) = delete;
    MinimalBitbangServer& operator=(const MinimalBitbangServer&) = delete;

    /** CPU seconds the serving thread has used so far. */
    double cpuSeconds();

private:
    void serve();
    void converse(int socket) const;

    const int irLength;
    const std::uint32_t idcode;
    int listener = -1;
    std::mutex connectionGuard;
    int connection = -1;  // the connection being served, guarded for the destructor's shutdown
    std::atomic<bool> stopping{false};
    std::thread thread;
};

}  // namespace tetherhost::bench

#endif

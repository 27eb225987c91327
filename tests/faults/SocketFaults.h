// SPDX-License-Identifier: MIT
/* SocketFaults: a link-time interposer on send and recv (the test programs
 * link with -Wl,--wrap=send,--wrap=recv, so the library's calls come here
 * first) that records every call a thread makes and makes the Nth one fail.
 * It works beside AddressSanitizer, which an LD_PRELOAD library does not.
 *
 * Only the thread that holds a FaultPlan is watched: a test's own server,
 * on its own thread, passes through untouched. */
#ifndef TETHERHOST_TESTS_SOCKETFAULTS_H
#define TETHERHOST_TESTS_SOCKETFAULTS_H

#include <cstddef>
#include <string>
#include <vector>

namespace tetherhost::test {

enum class Fault {
    None,   // every call goes through: the plan only records
    Error,  // the call returns -1 (errno ECONNRESET) without touching the socket
    Zero,   // the call returns 0 without touching the socket
    Short,  // send: every byte goes out, the count returned is one less;
            // recv: one receive of at most 1 byte, the rest stays queued
};

std::string toString(Fault fault);

struct SocketCall {
    bool isSend;
    std::size_t length;  // bytes asked for
    long result;         // what the library was given
    int firstByte;       // recv: the first byte received, -1 when none
};

class FaultPlan {
public:
    /** Watches the calling thread; the call with index `target` (0-based,
     * sends and receives counted together) gets `fault`. */
    explicit FaultPlan(Fault fault = Fault::None, std::size_t target = 0);
    /** Stops watching. */
    ~FaultPlan();
    FaultPlan(const FaultPlan&) = delete;
    FaultPlan& operator=(const FaultPlan&) = delete;

    /** Every call made so far, in order. */
    const std::vector<SocketCall>& calls() const { return made; }

    // Used by the wrappers.
    long send(int fd, const void* data, std::size_t length, int flags);
    long recv(int fd, void* data, std::size_t length, int flags);

private:
    bool faultsNow() const { return fault != Fault::None && made.size() == target; }

    Fault fault;
    std::size_t target;
    std::vector<SocketCall> made;
};

}  // namespace tetherhost::test

#endif

// SPDX-License-Identifier: MIT
/* SocketFaults: the send and recv wrappers and the per-thread fault plan. */
#include "SocketFaults.h"

#include <sys/socket.h>
#include <sys/types.h>

#include <cerrno>

extern "C" {
ssize_t __real_send(int fd, const void* data, size_t length, int flags);
ssize_t __real_recv(int fd, void* data, size_t length, int flags);
}

namespace tetherhost::test {
namespace {

thread_local FaultPlan* watching = nullptr;

}  // namespace

std::string toString(Fault fault) {
    switch (fault) {
    case Fault::None: return "none";
    case Fault::Error: return "-1";
    case Fault::Zero: return "0";
    case Fault::Short: return "short";
    }
    return "?";
}

FaultPlan::FaultPlan(Fault fault, std::size_t target) : fault(fault), target(target) { watching = this; }

FaultPlan::~FaultPlan() { watching = nullptr; }

long FaultPlan::send(int fd, const void* data, std::size_t length, int flags) {
    long result;
    if (!faultsNow()) {
        result = __real_send(fd, data, length, flags);
    } else if (fault == Fault::Short) {
        // A short count for bytes that did all go out: the library must take
        // it as a success and send none of them again.
        result = __real_send(fd, data, length, flags);
        if (result > 1) --result;
    } else {
        errno = ECONNRESET;
        result = fault == Fault::Error ? -1 : 0;
    }
    made.push_back({true, length, result, -1});
    return result;
}

long FaultPlan::recv(int fd, void* data, std::size_t length, int flags) {
    long result;
    if (!faultsNow()) {
        result = __real_recv(fd, data, length, flags);
    } else if (fault == Fault::Short) {
        // A reply that arrives in pieces: this receive gets its first byte.
        result = __real_recv(fd, data, length > 0 ? 1 : 0, flags);
    } else {
        errno = ECONNRESET;
        result = fault == Fault::Error ? -1 : 0;
    }
    const int firstByte = result > 0 ? static_cast<unsigned char>(*static_cast<const char*>(data)) : -1;
    made.push_back({false, length, result, firstByte});
    return result;
}

}  // namespace tetherhost::test

extern "C" {

ssize_t __wrap_send(int fd, const void* data, size_t length, int flags) {
    using tetherhost::test::watching;
    return watching != nullptr ? watching->send(fd, data, length, flags) : __real_send(fd, data, length, flags);
}

ssize_t __wrap_recv(int fd, void* data, size_t length, int flags) {
    using tetherhost::test::watching;
    return watching != nullptr ? watching->recv(fd, data, length, flags) : __real_recv(fd, data, length, flags);
}
}

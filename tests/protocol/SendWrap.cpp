// SPDX-License-Identifier: MIT
/* The send wrapper of the protocol tests (linked with -Wl,--wrap=send). */
#include "SendWrap.h"

#include <sys/socket.h>
#include <sys/types.h>

#include <atomic>

extern "C" ssize_t __real_send(int socket, const void* data, size_t length, int flags);

namespace {
std::atomic<int> watched{-1};
std::atomic<int> callCount{0};
std::atomic<int> flagsSeen{0};
std::atomic<long> nextLimit{-1};
}  // namespace

extern "C" ssize_t __wrap_send(int socket, const void* data, size_t length, int flags) {
    if (socket == watched.load()) {
        callCount.fetch_add(1);
        flagsSeen.store(flags);
        const long limit = nextLimit.exchange(-1);
        if (limit >= 0 && static_cast<size_t>(limit) < length) length = static_cast<size_t>(limit);
    }
    return __real_send(socket, data, length, flags);
}

namespace tetherhost::test::sendwrap {

void watch(int descriptor) {
    watched.store(descriptor);
    callCount.store(0);
    flagsSeen.store(0);
    nextLimit.store(-1);
}

int calls() { return callCount.load(); }

int lastFlags() { return flagsSeen.load(); }

void limitNext(long bytes) { nextLimit.store(bytes); }

}  // namespace tetherhost::test::sendwrap

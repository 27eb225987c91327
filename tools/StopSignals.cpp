// SPDX-License-Identifier: MIT
/* The stop flag and its signal handlers. */
#include "tools/StopSignals.h"

#include <csignal>

namespace tetherctl {

// Lock-free, so setting it from a signal handler is safe.
std::atomic<bool> stopRequested{false};
static_assert(std::atomic<bool>::is_always_lock_free);

namespace {

extern "C" void requestStop(int) { stopRequested = true; }

}  // namespace

void catchStopSignals() {
    stopRequested = false;
    struct sigaction action {};
    action.sa_handler = requestStop;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

}  // namespace tetherctl

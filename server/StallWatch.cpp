// SPDX-License-Identifier: MIT
/* StallWatch: arming and checking the connection's stall timer. */
#include "server/StallWatch.h"

namespace tetherhost::sim {

StallWatch::StallWatch(asio::ip::tcp::socket& socket, std::chrono::seconds timeout)
    : socket(socket), timer(socket.get_executor()), timeout(timeout) {}

void StallWatch::expect() {
    if (!counting) {
        counting = true;
        lastProgress = Clock::now();
    }
    if (!armed) arm();
}

void StallWatch::relax() { counting = false; }

void StallWatch::arm() {
    armed = true;
    timer.expires_at(lastProgress + timeout);
    timer.async_wait([this, alive = std::weak_ptr<char>(alive)](const std::error_code& error) {
        if (!error && !alive.expired()) check();
    });
}

/* The timer fires at the deadline of the progress it was armed for; later
 * progress moves the deadline, and the timer is armed again for it. */
void StallWatch::check() {
    armed = false;
    if (!counting) return;
    if (Clock::now() - lastProgress < timeout) {
        arm();
        return;
    }
    hasStalled = true;
    std::error_code ignored;
    socket.cancel(ignored);
}

}  // namespace tetherhost::sim

// SPDX-License-Identifier: MIT
/* ClientDrain: polling the two queues between the server's send and the
 * client's receive. */
#include "server/ClientDrain.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <asio/steady_timer.hpp>
#include <asio/use_awaitable.hpp>
#include <chrono>

#include "support/ReceiveQueue.h"

namespace tetherhost::sim {

asio::awaitable<void> waitClientDrained(asio::ip::tcp::socket& socket) {
    using namespace std::chrono;
    constexpr auto patience = seconds(10);
    constexpr auto longestPause = microseconds(1000);
    const int descriptor = socket.native_handle();
    const auto deadline = steady_clock::now() + patience;
    asio::steady_timer timer(socket.get_executor());
    microseconds pause(0);
    for (;;) {
        int unsent = 0;
        const long unread = peerUnreadBytes(descriptor);
        if (ioctl(descriptor, SIOCOUTQNSD, &unsent) != 0) unsent = 0;
        if (unread == 0 && unsent == 0) co_return;
        if (steady_clock::now() >= deadline) co_return;  // a client that stopped reading gets it anyway
        // When the kernel cannot tell (-1), one pause of the longest length
        // stands in for the answer.
        pause =
            unread < 0 ? longestPause : std::min(pause == microseconds(0) ? microseconds(10) : pause * 2, longestPause);
        timer.expires_after(pause);
        co_await timer.async_wait(asio::use_awaitable);
        if (unread < 0) co_return;
    }
}

}  // namespace tetherhost::sim

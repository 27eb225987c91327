// SPDX-License-Identifier: MIT
/* StallWatch: the limit on how long a connection may keep the server
 * waiting in the middle of something (a half-sent command, a reply it does
 * not read). One timer per connection, re-armed only when it fires, so that
 * the receives and sends it watches pay no more than a clock read each. */
#ifndef TETHERHOST_SERVER_STALLWATCH_H
#define TETHERHOST_SERVER_STALLWATCH_H

#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <memory>

namespace tetherhost::sim {

class StallWatch {
public:
    StallWatch(asio::ip::tcp::socket& socket, std::chrono::seconds timeout);
    StallWatch(const StallWatch&) = delete;
    StallWatch& operator=(const StallWatch&) = delete;

    /** Waits from now on count: the client owes us bytes or must take ours.
     * The clock starts when counting starts. */
    void expect();
    /** Waits from now on do not count: the connection is idle between
     * commands, which it may be for ever. */
    void relax();
    /** Bytes moved: the clock starts again. */
    void progress() { lastProgress = Clock::now(); }

    /** True once the watch has cancelled the connection's waits. */
    bool stalled() const { return hasStalled; }
    std::chrono::seconds limit() const { return timeout; }

private:
    using Clock = std::chrono::steady_clock;
    void arm();
    void check();

    asio::ip::tcp::socket& socket;
    asio::steady_timer timer;
    std::chrono::seconds timeout;
    Clock::time_point lastProgress = Clock::now();
    bool counting = false;
    bool armed = false;
    bool hasStalled = false;
    /* A timer handler already queued when the connection ends must not
     * touch it: the handler holds this weakly. */
    std::shared_ptr<char> alive = std::make_shared<char>();
};

}  // namespace tetherhost::sim

#endif

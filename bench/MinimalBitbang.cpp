// SPDX-License-Identifier: MIT
/* MinimalBitbang: OpenOCD's remote_bitbang requests carried out on one TAP
 * with nothing more than OpenOCD needs to initialise it and scan. */
#include "MinimalBitbang.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <ctime>
#include <stdexcept>
#include <string>

#include "protocol/TapStates.h"

namespace tetherhost::bench {

namespace {

using protocol::TapState;

/* The one TAP. The instruction is never decoded: every data scan goes
 * through the 32-bit register, which is all the benchmark's scans need. */
struct Tap {
    int irLength;
    std::uint32_t idcode;
    TapState state = TapState::TestLogicReset;
    std::uint64_t ir = 0;
    std::uint32_t dr = 0;

    /* What a rising TCK edge does: the current state's action with this
     * TDI, then the move that TMS selects. */
    void clock(bool tms, bool tdi) {
        switch (state) {
        case TapState::CaptureDr: dr = idcode; break;
        case TapState::ShiftDr: dr = (dr >> 1) | (static_cast<std::uint32_t>(tdi) << 31); break;
        case TapState::CaptureIr: ir = 0b01; break;
        case TapState::ShiftIr: ir = (ir >> 1) | (static_cast<std::uint64_t>(tdi) << (irLength - 1)); break;
        default: break;
        }
        state = protocol::nextTapState(state, tms);
    }
    /* TDO between edges: bit 0 of the shifting register, pulled up otherwise. */
    bool tdo() const {
        if (state == TapState::ShiftDr) return (dr & 1U) != 0;
        if (state == TapState::ShiftIr) return (ir & 1U) != 0;
        return true;
    }
};

}  // namespace

MinimalBitbangServer::MinimalBitbangServer(int port, int irLength, std::uint32_t idcode)
    : irLength(irLength), idcode(idcode) {
    listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || listen(listener, 4) != 0) {
        ::close(listener);
        throw std::runtime_error("the minimal remote_bitbang server cannot listen on 127.0.0.1:" +
                                 std::to_string(port));
    }
    thread = std::thread([this] { serve(); });
}

MinimalBitbangServer::~MinimalBitbangServer() {
    stopping = true;
    ::shutdown(listener, SHUT_RDWR);
    {
        const std::lock_guard<std::mutex> lock(connectionGuard);
        if (connection >= 0) ::shutdown(connection, SHUT_RDWR);
    }
    thread.join();
    ::close(listener);
}

double MinimalBitbangServer::cpuSeconds() {
    clockid_t clock{};
    timespec used{};
    if (pthread_getcpuclockid(thread.native_handle(), &clock) != 0 || clock_gettime(clock, &used) != 0) return 0;
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

void MinimalBitbangServer::serve() {
    while (!stopping) {
        const int accepted = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (accepted < 0) continue;
        {
            // Set under the guard, so the destructor either sees it or has
            // already said to stop.
            const std::lock_guard<std::mutex> lock(connectionGuard);
            if (stopping) {
                ::close(accepted);
                return;
            }
            connection = accepted;
        }
        // TDO answers go out as soon as they are due, as the door sends them.
        const int on = 1;
        setsockopt(accepted, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        converse(accepted);
        const std::lock_guard<std::mutex> lock(connectionGuard);
        ::close(accepted);
        connection = -1;
    }
}

void MinimalBitbangServer::converse(int socket) const {
    Tap tap{irLength, idcode};
    bool tck = false;
    bool trst = false;
    char requests[16384];
    std::string answers;
    for (;;) {
        const ssize_t received = ::recv(socket, requests, sizeof requests, 0);
        if (received <= 0) return;
        answers.clear();
        bool closing = false;
        for (ssize_t i = 0; i < received && !closing; ++i) {
            const char request = requests[i];
            if (request >= '0' && request <= '7') {
                // 4: TCK, 2: TMS, 1: TDI; the TAP samples on the rising edge.
                const int pins = request - '0';
                const bool rising = (pins & 4) != 0 && !tck;
                if (rising && !trst) tap.clock((pins & 2) != 0, (pins & 1) != 0);
                tck = (pins & 4) != 0;
            } else if (request == 'R') {
                answers.push_back(tap.tdo() ? '1' : '0');
            } else if (request >= 'r' && request <= 'u') {
                // 2: TRST, 1: SRST (not wired). TRST holds the controller in reset.
                trst = ((request - 'r') & 2) != 0;
                if (trst) tap.state = TapState::TestLogicReset;
            } else if (request != 'B' && request != 'b') {
                // 'Q', or a byte that is no request: the connection ends.
                closing = true;
            }
        }
        if (!answers.empty() &&
            ::send(socket, answers.data(), answers.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(answers.size()))
            return;
        if (closing) return;
    }
}

}  // namespace tetherhost::bench

// SPDX-License-Identifier: MIT
/* ChainDoor: a door connection's loop: ownership of the chain, what arrives
 * handed to the door's protocol, its answers sent back in one send per
 * receive, and the close traced with the TCK cycles it clocked. */
#include "server/ChainDoor.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <asio/use_awaitable.hpp>
#include <asio/write.hpp>

namespace tetherhost::sim {

namespace {

/* Gives the chain back however the connection ends. */
class ChainOwnership {
public:
    ChainOwnership(ServerState& state, ConnectionId id) : state(state) { state.chainOwner = id; }
    ~ChainOwnership() { state.chainOwner = 0; }
    ChainOwnership(const ChainOwnership&) = delete;
    ChainOwnership& operator=(const ChainOwnership&) = delete;

private:
    ServerState& state;
};

/* Door clients such as openFPGALoader write a command in two pieces
 * without TCP_NODELAY, so their second piece waits for the acknowledgement
 * of the first, which the kernel delays by some 40 ms when no answer goes
 * back. Quick acknowledgement ends that wait; the kernel clears it again
 * now and then, so it is set anew after every receive. */
void acknowledgeAtOnce(asio::ip::tcp::socket& socket) {
    const int on = 1;
    setsockopt(socket.native_handle(), IPPROTO_TCP, TCP_QUICKACK, &on, sizeof on);
}

}  // namespace

asio::awaitable<void> serveChainDoor(asio::ip::tcp::socket& socket, ServerState& state, ConnectionId id,
                                     std::string_view door, ChainDoorFactory makeProtocol) {
    const Trace::Where where{id, door, {}};
    std::error_code ignored;
    if (state.chainOwner != 0) {
        socket.close(ignored);
        state.trace.event(where, "refused: the chain is owned by connection " + std::to_string(state.chainOwner));
        co_return;
    }
    std::string reason = "client left";
    std::uint64_t cycles = 0;
    {
        const ChainOwnership owner(state, id);
        state.trace.event(where, "connected; the chain is this connection's until it closes");
        const std::unique_ptr<ChainDoorProtocol> protocol = makeProtocol(state, where);
        std::string answers;
        try {
            for (;;) {
                const std::size_t received =
                    co_await socket.async_read_some(asio::buffer(state.received), asio::use_awaitable);
                acknowledgeAtOnce(socket);
                answers.clear();
                const std::optional<std::string> closing =
                    protocol->feed(std::string_view(state.received.data(), received), answers);
                if (!answers.empty()) co_await asio::async_write(socket, asio::buffer(answers), asio::use_awaitable);
                if (closing) {
                    reason = *closing;
                    break;
                }
            }
        } catch (const std::system_error& error) {
            if (error.code() != asio::error::eof) reason = error.code().message();
        }
        cycles = protocol->cycles();
        socket.shutdown(asio::socket_base::shutdown_both, ignored);
        socket.close(ignored);
    }
    // The chain is free and the socket closed before the close is traced:
    // whoever reads the trace may rely on both.
    state.trace.event(where, "closed: " + reason + " (" + std::to_string(cycles) + " TCK cycles)");
}

}  // namespace tetherhost::sim

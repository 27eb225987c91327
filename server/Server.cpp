/* Server: the listening socket, the connections' coroutines, signals and
 * the idle exit. */
#include "Server.h"

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/experimental/as_tuple.hpp>
#include <asio/use_awaitable.hpp>
#include <csignal>
#include <exception>

namespace tetherhost::sim {

Server::Server(asio::io_context& io, Cable& cable, Trace& trace, std::chrono::seconds idleExit)
    : io(io), acceptor(io), idleTimer(io), signals(io, SIGINT, SIGTERM), idleExit(idleExit),
      state{cable, locks, trace} {}

void Server::listen(unsigned short port) {
    const asio::ip::tcp::endpoint endpoint(asio::ip::make_address_v4("127.0.0.1"), port);
    acceptor.open(endpoint.protocol());
    acceptor.set_option(asio::ip::tcp::acceptor::reuse_address(true));
    acceptor.bind(endpoint);
    acceptor.listen(asio::socket_base::max_listen_connections);
}

void Server::start() {
    signals.async_wait([this](const std::error_code& error, int) {
        if (!error) stop();
    });
    asio::co_spawn(io, accept(), asio::detached);
    armIdleTimer();
}

asio::awaitable<void> Server::accept() {
    using asio::experimental::as_tuple;
    asio::steady_timer backOff(io);
    while (acceptor.is_open()) {
        auto [error, socket] = co_await acceptor.async_accept(as_tuple(asio::use_awaitable));
        if (error == asio::error::operation_aborted) co_return;
        if (error) {
            // Out of descriptors or memory: give the open connections a
            // moment to finish instead of spinning.
            backOff.expires_after(std::chrono::milliseconds(100));
            co_await backOff.async_wait(as_tuple(asio::use_awaitable));
            continue;
        }
        // Replies are small and each is sent when it is due.
        socket.set_option(asio::ip::tcp::no_delay(true), error);
        ++state.connected;
        const ConnectionId id = ++state.connections;
        idleTimer.cancel();
        asio::co_spawn(io, serve(std::move(socket), id), asio::detached);
    }
}

asio::awaitable<void> Server::serve(asio::ip::tcp::socket socket, ConnectionId id) {
    try {
        co_await serveConnection(socket, state, id);
    } catch (const std::exception&) {
        // A fault of ours, already traced by the session. The connection is
        // closed and counted out all the same; the others go on.
    }
    std::error_code ignored;
    socket.shutdown(asio::socket_base::shutdown_both, ignored);
    socket.close(ignored);
    if (--state.connected == 0) armIdleTimer();
}

void Server::armIdleTimer() {
    if (idleExit.count() == 0 || !acceptor.is_open()) return;
    idleTimer.expires_after(idleExit);
    idleTimer.async_wait([this](const std::error_code& error) {
        if (!error && state.connected == 0) stop();
    });
}

void Server::stop() {
    std::error_code ignored;
    acceptor.close(ignored);
    signals.cancel(ignored);
    idleTimer.cancel();
    io.stop();
}

}  // namespace tetherhost::sim

// SPDX-License-Identifier: MIT
/* Server: the listening sockets, the connections' coroutines, signals and
 * the idle exit, and the refusal of connections it cannot serve. */
#include "server/Server.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/experimental/as_tuple.hpp>
#include <asio/use_awaitable.hpp>
#include <cerrno>
#include <csignal>
#include <exception>
#include <string>

#include "server/ChainDoor.h"
#include "server/Replay.h"

namespace tetherhost::sim {

namespace {

void bindLoopback(asio::ip::tcp::acceptor& acceptor, unsigned short port) {
    const asio::ip::tcp::endpoint endpoint(asio::ip::make_address_v4("127.0.0.1"), port);
    acceptor.open(endpoint.protocol());
    acceptor.set_option(asio::ip::tcp::acceptor::reuse_address(true));
    acceptor.bind(endpoint);
    acceptor.listen(asio::socket_base::max_listen_connections);
}

}  // namespace

Server::Server(asio::io_context& io, Cable& cable, Trace& trace, const Limits& limits, std::chrono::seconds idleExit)
    : io(io),
      acceptor(io),
      bitbangAcceptor(io),
      xvcAcceptor(io),
      idleTimer(io),
      signals(io, SIGINT, SIGTERM),
      idleExit(idleExit),
      state(cable, trace, limits),
      spareDescriptor(open("/dev/null", O_RDONLY | O_CLOEXEC)) {}

Server::~Server() {
    if (spareDescriptor >= 0) close(spareDescriptor);
}

void Server::listen(unsigned short port) { bindLoopback(acceptor, port); }

void Server::listenRemoteBitbang(unsigned short port) { bindLoopback(bitbangAcceptor, port); }

void Server::listenXvc(unsigned short port) { bindLoopback(xvcAcceptor, port); }

void Server::start() {
    signals.async_wait([this](const std::error_code& error, int) {
        if (!error) stop();
    });
    asio::co_spawn(io, accept(acceptor, Door::Library), asio::detached);
    if (bitbangAcceptor.is_open()) asio::co_spawn(io, accept(bitbangAcceptor, Door::RemoteBitbang), asio::detached);
    if (xvcAcceptor.is_open()) asio::co_spawn(io, accept(xvcAcceptor, Door::Xvc), asio::detached);
    armIdleTimer();
}

asio::awaitable<void> Server::accept(asio::ip::tcp::acceptor& from, Door door) {
    using asio::experimental::as_tuple;
    asio::steady_timer backOff(io);
    bool connectionWaiting = false;
    while (from.is_open()) {
        auto [error, socket] = co_await from.async_accept(as_tuple(asio::use_awaitable));
        if (error == asio::error::operation_aborted) co_return;
        if (!error) {
            admit(std::move(socket), door);
            continue;
        }
        if (error == asio::error::no_descriptors || error.value() == ENFILE) {
            // accept fails this way whether or not a connection waits: wait
            // for one, try once more (a connection may have ended
            // meanwhile), and only then make room to refuse it.
            if (!connectionWaiting) {
                const auto [waitError] =
                    co_await from.async_wait(asio::socket_base::wait_read, as_tuple(asio::use_awaitable));
                if (waitError == asio::error::operation_aborted) co_return;
                connectionWaiting = true;
                continue;
            }
            connectionWaiting = false;
            if (refuseWithSpare(from)) continue;
        }
        // Out of memory, or no spare descriptor to make room with: give the
        // open connections a moment to finish instead of spinning.
        state.trace.event({0, {}, {}}, "accept failed: " + error.message() + "; trying again in 100 ms");
        backOff.expires_after(std::chrono::milliseconds(100));
        co_await backOff.async_wait(as_tuple(asio::use_awaitable));
    }
}

void Server::admit(asio::ip::tcp::socket socket, Door door) {
    const ConnectionId id = ++state.connections;
    std::error_code ignored;
    if (state.connected >= state.limits.maxConnections) {
        state.trace.event({id, {}, {}}, "refused: " + std::to_string(state.connected) + " connections open");
        socket.close(ignored);
        return;
    }
    // Replies are small and each is sent when it is due.
    socket.set_option(asio::ip::tcp::no_delay(true), ignored);
    ++state.connected;
    idleTimer.cancel();
    asio::co_spawn(io, serve(std::move(socket), id, door), asio::detached);
}

/* With no descriptor left, a waiting connection would sit in the listen
 * queue, its client connected and never answered. The spare descriptor
 * makes room to take it and close it, so its client sees a failure now.
 * False when the spare cannot be had back. */
bool Server::refuseWithSpare(asio::ip::tcp::acceptor& from) {
    if (spareDescriptor < 0) spareDescriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (spareDescriptor < 0) return false;
    close(spareDescriptor);
    const int refused = ::accept4(from.native_handle(), nullptr, nullptr, SOCK_CLOEXEC);
    if (refused >= 0) {
        close(refused);
        state.trace.event({++state.connections, {}, {}}, "refused: out of descriptors");
    }
    spareDescriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    return spareDescriptor >= 0;
}

asio::awaitable<void> Server::serve(asio::ip::tcp::socket socket, ConnectionId id, Door door) {
    // Under --replay-then-model the model serves the connections beyond the
    // recording.
    const bool replayed = replayRun != nullptr && !(replayRun->thenModel() && replayRun->exhausted());
    try {
        if (door == Door::Library && replayed)
            co_await serveReplayed(socket, state, id, *replayRun);
        else if (door == Door::Library)
            co_await serveConnection(socket, state, id);
        else if (door == Door::RemoteBitbang)
            co_await serveChainDoor(socket, state, id, "remote_bitbang", remoteBitbangDoor);
        else
            co_await serveChainDoor(socket, state, id, "xvc", xvcDoor);
    } catch (const std::exception&) {
        // A fault of ours, already traced by the session, which has closed
        // the connection. It is counted out all the same; the others go on.
    }
    if (--state.connected == 0) armIdleTimer();
    if (door == Door::Library && replayRun != nullptr && !replayRun->thenModel() && replayRun->done()) stop();
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
    bitbangAcceptor.close(ignored);
    xvcAcceptor.close(ignored);
    signals.cancel(ignored);
    idleTimer.cancel();
    io.stop();
}

}  // namespace tetherhost::sim

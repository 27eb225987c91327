// SPDX-License-Identifier: MIT
/* Server: listens on 127.0.0.1, runs one coroutine per connection (a
 * Session for the library's clients, or the replay of a recorded connection
 * under --replay; a ChainDoor connection on the remote_bitbang and XVC
 * doors), all on one io_context thread, and stops on SIGINT or SIGTERM,
 * after a time without clients, or when a replay has served its
 * recording. */
#ifndef TETHERHOST_SERVER_SERVER_H
#define TETHERHOST_SERVER_SERVER_H

#include <asio/awaitable.hpp>
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>

#include "server/Cable.h"
#include "server/Limits.h"
#include "server/Session.h"
#include "server/Trace.h"

namespace tetherhost::sim {

class ReplayRun;

class Server {
public:
    /** `idleExit`: stop after this long with no client connected; zero:
     * never. */
    Server(asio::io_context& io, Cable& cable, Trace& trace, const Limits& limits, std::chrono::seconds idleExit);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /** Binds 127.0.0.1:`port` and listens; throws std::system_error. */
    void listen(unsigned short port);
    /** Also listens on 127.0.0.1:`port` for OpenOCD's remote_bitbang
     * clients; throws std::system_error. */
    void listenRemoteBitbang(unsigned short port);
    /** Also listens on 127.0.0.1:`port` for Xilinx Virtual Cable clients;
     * throws std::system_error. */
    void listenXvc(unsigned short port);
    /** Starts accepting, the idle timer and the signal handling; io.run()
     * then serves until the server stops. */
    void start();
    /** Serves the library's clients from `run` (--replay): each connection
     * takes the next recorded one. Without --replay-then-model the server
     * stops once every recorded connection has been replayed. */
    void replay(ReplayRun& run) { replayRun = &run; }
    /** Every answer of the model goes through `rules` (--faults). */
    void faults(Faults& rules) { state.faults = &rules; }

private:
    /** Which protocol a listening socket serves. */
    enum class Door { Library, RemoteBitbang, Xvc };

    asio::awaitable<void> accept(asio::ip::tcp::acceptor& from, Door door);
    asio::awaitable<void> serve(asio::ip::tcp::socket socket, ConnectionId id, Door door);
    void admit(asio::ip::tcp::socket socket, Door door);
    bool refuseWithSpare(asio::ip::tcp::acceptor& from);
    void armIdleTimer();
    void stop();

    asio::io_context& io;
    asio::ip::tcp::acceptor acceptor;
    asio::ip::tcp::acceptor bitbangAcceptor;
    asio::ip::tcp::acceptor xvcAcceptor;
    asio::steady_timer idleTimer;
    asio::signal_set signals;
    std::chrono::seconds idleExit;
    ServerState state;
    /* Held open so that, with every other descriptor in use, one is left to
     * accept a waiting connection and close it. */
    int spareDescriptor = -1;
    ReplayRun* replayRun = nullptr;
};

}  // namespace tetherhost::sim

#endif

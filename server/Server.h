/* Server: listens on 127.0.0.1, runs one Session coroutine per connection,
 * all on one io_context thread, and stops on SIGINT or SIGTERM, or after a
 * time without clients. */
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
    /** Starts accepting, the idle timer and the signal handling; io.run()
     * then serves until the server stops. */
    void start();

private:
    asio::awaitable<void> accept();
    asio::awaitable<void> serve(asio::ip::tcp::socket socket, ConnectionId id);
    void admit(asio::ip::tcp::socket socket);
    bool refuseWithSpare();
    void armIdleTimer();
    void stop();

    asio::io_context& io;
    asio::ip::tcp::acceptor acceptor;
    asio::steady_timer idleTimer;
    asio::signal_set signals;
    std::chrono::seconds idleExit;
    ServerState state;
    /* Held open so that, with every other descriptor in use, one is left to
     * accept a waiting connection and close it. */
    int spareDescriptor = -1;
};

}  // namespace tetherhost::sim

#endif

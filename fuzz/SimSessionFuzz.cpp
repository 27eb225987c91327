// SPDX-License-Identifier: MIT
/* Fuzz target "sim_session": the simulator's conversation with a hostile
 * client. The whole input is what the client sends on one connection, from
 * its introduction on; the client then stops sending and reads (and drops)
 * whatever the server answers, as a real client would, so the server's
 * waits for the client to take a reply end at once.
 *
 * The session runs on one end of a Unix socketpair under an io_context of
 * its own, with a fresh cable and fresh locks per input. It must end by
 * itself, through the end of the client's stream or a protocol error it
 * handles; an exception that leaves the session is rethrown here, so the
 * fuzzer reports it like a crash (in the server it would end the connection
 * without releasing its locks). */
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <asio/co_spawn.hpp>
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <cstddef>
#include <cstdint>
#include <exception>

#include "server/Cable.h"
#include "server/Locks.h"
#include "server/Session.h"
#include "server/Trace.h"

namespace {

/* The client's side after it has sent everything: reads until the server
 * closes. */
class Reader {
public:
    explicit Reader(asio::ip::tcp::socket& client) : client(client) {}
    void start() {
        client.async_read_some(asio::buffer(discard), [this](const std::error_code& error, std::size_t) {
            if (!error) start();
        });
    }

private:
    asio::ip::tcp::socket& client;
    std::array<char, std::size_t{16} * 1024> discard{};
};

/* Sends the whole stream; the other end is not read yet, so the socket must
 * hold it (fuzz inputs are far smaller than a socket's buffer). */
bool preload(int fd, const std::uint8_t* data, std::size_t size) {
    const int capacity = 1 << 20;
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &capacity, sizeof capacity);
    std::size_t sent = 0;
    while (sent < size) {
        const ssize_t count = send(fd, data + sent, size - sent, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count <= 0) return false;
        sent += static_cast<std::size_t>(count);
    }
    return shutdown(fd, SHUT_WR) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return 0;
    if (!preload(ends[0], data, size)) {
        close(ends[0]);
        close(ends[1]);
        return 0;
    }

    asio::io_context io;
    asio::ip::tcp::socket client(io);
    asio::ip::tcp::socket server(io);
    // The sockets only read and write: a stream socket of any family will do.
    client.assign(asio::ip::tcp::v4(), ends[0]);
    server.assign(asio::ip::tcp::v4(), ends[1]);

    tetherhost::sim::Cable cable;
    tetherhost::sim::Trace trace;
    const tetherhost::sim::Limits limits;
    tetherhost::sim::ServerState state(cable, trace, limits);
    std::exception_ptr escaped;
    asio::co_spawn(io, tetherhost::sim::serveConnection(server, state, 1), [&](std::exception_ptr error) {
        escaped = error;
        server.close();
    });
    Reader reader(client);
    reader.start();
    io.run();
    if (escaped) std::rethrow_exception(escaped);
    return 0;
}

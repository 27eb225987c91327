/* RemoteBitbangSession: a remote_bitbang connection's loop: what arrives is
 * carried out on the chain at once, and the TDO answers go back in one send
 * per receive, as OpenOCD batches its reads. */
#include "server/RemoteBitbangSession.h"

#include <asio/use_awaitable.hpp>
#include <asio/write.hpp>
#include <cstdio>
#include <string>
#include <string_view>

#include "server/RemoteBitbang.h"

namespace tetherhost::sim {

namespace {

std::string byteName(unsigned char byte) {
    char name[8];
    std::snprintf(name, sizeof name, "0x%02X", byte);
    return name;
}

}  // namespace

asio::awaitable<void> serveRemoteBitbang(asio::ip::tcp::socket& socket, ServerState& state, ConnectionId id) {
    const Trace::Where where{id, "remote_bitbang", {}};
    std::error_code ignored;
    if (state.chainOwner != 0) {
        socket.close(ignored);
        state.trace.event(where, "refused: the chain is owned by connection " + std::to_string(state.chainOwner));
        co_return;
    }
    state.chainOwner = id;
    state.trace.event(where, "connected; the chain is this connection's until it closes");
    RemoteBitbang door(state.cable.jtag);
    std::string reason = "client left";
    std::string answers;
    try {
        for (;;) {
            const std::size_t received =
                co_await socket.async_read_some(asio::buffer(state.received), asio::use_awaitable);
            answers.clear();
            const RemoteBitbang::Outcome outcome =
                door.feed(std::string_view(state.received.data(), received), answers);
            if (!answers.empty()) co_await asio::async_write(socket, asio::buffer(answers), asio::use_awaitable);
            if (outcome == RemoteBitbang::Outcome::Quit) {
                reason = "quit";
                break;
            }
            if (outcome == RemoteBitbang::Outcome::Garbage) {
                reason = "not a remote_bitbang request: " + byteName(door.garbage());
                break;
            }
        }
    } catch (const std::system_error& error) {
        if (error.code() != asio::error::eof) reason = error.code().message();
    }
    state.chainOwner = 0;
    socket.shutdown(asio::socket_base::shutdown_both, ignored);
    socket.close(ignored);
    state.trace.event(where, "closed: " + reason + " (" + std::to_string(door.cycles()) + " TCK cycles)");
}

}  // namespace tetherhost::sim

// SPDX-License-Identifier: MIT
/* Replay: `tetherhost --replay FILE` serves the connections of a recording
 * (TETHERHOST_RECORD, docs/conversations.md) in order, one to each library
 * client that connects: every byte the client sends is compared with the
 * recorded bytes, and the recorded server bytes are sent back with the
 * recorded boundaries. At the first difference the connection is closed
 * and a report names the connection, the step, the command the bytes belong
 * to, and the expected and received bytes. With --replay-then-model the
 * model goes on with each connection whose recording ended, and serves the
 * connections beyond the recording. See docs/simulator.md, "Replaying a
 * recording". */
#ifndef TETHERHOST_SERVER_REPLAY_H
#define TETHERHOST_SERVER_REPLAY_H

#include <asio/awaitable.hpp>
#include <asio/ip/tcp.hpp>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/Recording.h"
#include "server/Session.h"
#include "server/Trace.h"

namespace tetherhost::sim {

/** One replay run: the recorded connections, which of them clients have
 * taken, and whether every one was replayed exactly. */
class ReplayRun {
public:
    /** Reads the recording at `path`; throws std::runtime_error
     * ("path:line: what") when it cannot be read or holds no connection.
     * `reportOnStandardError`: every report goes to standard error too (off
     * when the trace itself goes there). */
    ReplayRun(const std::string& path, bool thenModel, bool reportOnStandardError);

    bool thenModel() const { return modelAfterwards; }
    const std::string& origin() const { return path; }
    std::size_t size() const { return connections.size(); }

    /** A library connection arrived; its number in the run, from 1. */
    std::size_t arrived() { return ++arrivals; }
    /** The next recorded connection for it, numbered from 1 in the order
     * of the recording, or null when every one has been taken. */
    const protocol::RecordedConnection* take(std::size_t& number);
    /** Every recorded connection has been taken by a client. */
    bool exhausted() const { return taken == connections.size(); }
    /** The replay of recorded connection `number` has ended, exactly or
     * not. */
    void ended(std::size_t number, bool exact);
    /** Every recorded connection has been taken and its replay has ended. */
    bool done() const { return finished == connections.size(); }

    /** Writes `report` as a trace line (at `where`) and on standard error;
     * the run then ends with status 1. */
    void report(Trace& trace, const Trace::Where& where, const std::string& report);

    /** At the end of the run: reports each recorded connection that no
     * client took or whose replay did not end, writes the outcome, and gives
     * the exit status: 0 when every recorded connection was replayed
     * exactly, 1 otherwise. */
    int finish(Trace& trace);

private:
    std::string path;
    bool modelAfterwards;
    bool onStandardError;
    std::vector<protocol::RecordedConnection> connections;
    /* How each recorded connection's replay went. */
    enum class Outcome : unsigned char { Waiting, Playing, Exact, Diverged };
    std::vector<Outcome> outcomes;
    std::size_t arrivals = 0;
    std::size_t taken = 0;
    std::size_t finished = 0;
    std::size_t reports = 0;
};

/** Serves one library connection of `run`: the next recorded connection is
 * replayed on it, and then, with --replay-then-model, the model goes on. A
 * connection beyond the recording is closed at once and reported (under
 * --replay-then-model the server hands those to the model instead). */
asio::awaitable<void> serveReplayed(asio::ip::tcp::socket& socket, ServerState& state, ConnectionId id, ReplayRun& run);

/** `bytes` as a report shows them: in double quotes, printable characters
 * as they are, NUL as \0, other bytes as \xNN (and \" \\ \n \r \t). */
std::string shownBytes(std::string_view bytes);

/** The expected and received bytes of a step that differ first at byte
 * `at`: both whole when short, otherwise a window around that byte. */
std::string comparedBytes(std::string_view expected, std::string_view received, std::size_t at);

}  // namespace tetherhost::sim

#endif

// SPDX-License-Identifier: MIT
/* Trace: the --trace output, one line per frame in either direction and one
 * per connection event:
 *
 *   <seconds> c<connection> <client> <direction> <command> <item> ["<text>"] <length>
 *
 * seconds since the server started (microsecond resolution); the connection's
 * number; the client's name ("-" until it has introduced itself); "<" for a
 * frame from the client, ">" for one to the client, "=" for an event; the
 * command being served ("-" between commands, "44/12" for a sub-command);
 * what the frame is (name, command, arg, text, block, chunk, go, request,
 * ack, answer, lock, reply, status, read-back, ...); for text frames their
 * text, C-escaped and cut after 64 characters; and the frame's length in
 * bytes. Events carry a text and no length. */
#ifndef TETHERHOST_SERVER_TRACE_H
#define TETHERHOST_SERVER_TRACE_H

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace tetherhost::sim {

class Trace {
public:
    Trace() = default;
    ~Trace();
    Trace(const Trace&) = delete;
    Trace& operator=(const Trace&) = delete;

    /** Starts tracing to `path` ("-": standard error). False when the file
     * cannot be opened. */
    bool open(const std::string& path);

    struct Where {
        std::uint64_t connection;
        std::string_view client;
        std::string_view command;
    };

    /** A frame that carries text (tokens, acknowledgements, replies). */
    void text(const Where& where, char direction, std::string_view item, std::string_view frame);
    /** A frame of raw bytes, shown by its length only. */
    void data(const Where& where, char direction, std::string_view item, std::size_t length);
    /** A connection event: opened, closed and why. */
    void event(const Where& where, std::string_view what);
    /** A replay's report of where a client left its recording: an event
     * whose text (item "diverged") is escaped but never cut. */
    void divergence(const Where& where, std::string_view report);

private:
    void write(const Where& where, char direction, std::string_view item, const std::string& rest);

    std::FILE* out = nullptr;
    bool ownsFile = false;
    std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();
};

}  // namespace tetherhost::sim

#endif

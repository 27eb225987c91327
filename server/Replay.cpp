// SPDX-License-Identifier: MIT
/* Replay: one recorded connection played to a client, step by step, and the
 * run's bookkeeping and reports. */
#include "server/Replay.h"

#include <algorithm>
#include <asio/use_awaitable.hpp>
#include <asio/write.hpp>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "server/ClientDrain.h"
#include "server/Locks.h"
#include "protocol/RecordedCommands.h"
#include "server/StallWatch.h"

namespace tetherhost::sim {
namespace {

using protocol::ClientItem;
using protocol::RecordedCommands;
using protocol::RecordedConnection;
using protocol::RecordedStep;
using Kind = RecordedStep::Kind;
using Role = ClientItem::Role;
using asio::use_awaitable;

/* Steps of at most this many bytes are shown whole in a report; of longer
 * ones, a window of `windowBytes` from `bytesBefore` before the first
 * difference. */
constexpr std::size_t wholeBytes = 48;
constexpr std::size_t windowBytes = 32;
constexpr std::size_t bytesBefore = 8;

/* Bytes that read as a protocol token (a text and its NUL) are traced as
 * text, anything else by its length. */
bool looksLikeToken(std::string_view bytes) {
    return !bytes.empty() && bytes.find('\0') == bytes.size() - 1 &&
           std::all_of(bytes.begin(), bytes.end() - 1, [](char c) {
               const auto byte = static_cast<unsigned char>(c);
               return byte >= 0x20 && byte < 0x7F;
           });
}

/* An item's name as one field of a trace line ("tdi chunk 2" as
 * "tdi-chunk-2"). */
std::string traceItem(std::string item) {
    std::replace(item.begin(), item.end(), ' ', '-');
    return item;
}

/* What a report shows of the bytes received for a step that expected
 * `expected`: as many bytes, or, when both are tokens, the received token
 * whole (up to its NUL). */
std::string_view receivedPart(std::string_view expected, std::string_view pending) {
    const std::size_t end = pending.find('\0');
    if (!expected.empty() && expected.back() == '\0' && end != std::string_view::npos && end < wholeBytes)
        return pending.substr(0, end + 1);
    return pending.substr(0, std::min(pending.size(), expected.size()));
}

/* A lock answer grants the lock when it reads as 1, as the library reads
 * it. */
bool grants(const std::string& answer) { return std::strtol(answer.c_str(), nullptr, 10) == 1; }

/* One recorded connection played on one socket. */
class Replayer {
public:
    Replayer(asio::ip::tcp::socket& socket, ServerState& state, ConnectionId id, ReplayRun& run,
             const RecordedConnection& recorded, std::size_t number)
        : socket(socket),
          state(state),
          id(id),
          run(run),
          recorded(recorded),
          number(number),
          commands(protocol::clientBytes(recorded.steps)),
          watch(socket, state.limits.stallTimeout) {}

    /** Plays the recording; what the model needs to go on, when it is to. */
    asio::awaitable<std::optional<Handover>> play();

private:
    Trace::Where where() const { return {id, clientName, label}; }
    /* "connection 1 (recorded as ...)": the connection of the recording. */
    std::string connectionText() const;
    /* "connection 1 (recorded as ...), step 14 (line 37)". */
    std::string stepText() const;

    asio::awaitable<bool> receiveMore();
    asio::awaitable<bool> clientSends(const RecordedStep& step);
    asio::awaitable<bool> clientSendsAny(const RecordedStep& step);
    asio::awaitable<void> clientReceives(const RecordedStep& step, bool afterReceive);
    asio::awaitable<bool> clientCloses();
    void followLocks(const ClientItem& item);
    void diverged(const std::string& report);
    void close();

    asio::ip::tcp::socket& socket;
    ServerState& state;
    ConnectionId id;
    ReplayRun& run;
    const RecordedConnection& recorded;
    std::size_t number;
    RecordedCommands commands;
    StallWatch watch;
    std::string pending;           // received and not yet compared
    std::size_t clientOffset = 0;  // recorded client bytes matched so far
    std::size_t step = 0;          // the step being played, from 1
    std::string clientName;
    std::string label;
    std::optional<Lock> lockAsked;  // the last send asked for this lock
    std::uint64_t answers = 0;      // recorded server bytes sent, as sends
};

std::string Replayer::connectionText() const {
    std::string text = "connection " + std::to_string(number);
    if (!recorded.name.empty()) text += " (recorded as " + recorded.name + ")";
    return text;
}

std::string Replayer::stepText() const {
    const RecordedStep& current = recorded.steps[step - 1];
    return connectionText() + ", step " + std::to_string(step) + " (line " + std::to_string(current.line) + ")";
}

asio::awaitable<std::optional<Handover>> Replayer::play() {
    state.trace.event(where(), "connected: replaying connection " + std::to_string(number) + " of " +
                                   std::to_string(run.size()) +
                                   (recorded.name.empty() ? std::string() : " (" + recorded.name + ")"));
    bool exact = true;
    bool closedHere = false;
    step = 1;
    try {
        socket.non_blocking(true);
        bool afterReceive = false;
        for (; step <= recorded.steps.size() && exact && !closedHere; ++step) {
            const RecordedStep& current = recorded.steps[step - 1];
            switch (current.kind) {
            case Kind::ClientSends:
                exact = co_await clientSends(current);
                if (!current.bytes.empty()) afterReceive = false;
                break;
            case Kind::ClientSendsAny:
                exact = co_await clientSendsAny(current);
                afterReceive = false;
                break;
            case Kind::ClientReceives:
                co_await clientReceives(current, afterReceive);
                if (!current.bytes.empty()) afterReceive = true;
                break;
            case Kind::Close:
            case Kind::Accept:
                // Locks freed and socket closed before the event, as the
                // model does.
                state.locks.releaseAll(id);
                close();
                state.trace.event(where(), "closed: the recording closes the connection here");
                closedHere = true;
                break;
            }
        }
    } catch (const std::system_error& error) {
        // A stall, a reset, a client that stopped taking what it is sent.
        const bool receiving = recorded.steps[step - 1].kind == Kind::ClientReceives;
        std::string why = "the connection failed: " + error.code().message();
        if (watch.stalled())
            why = (receiving ? "the client took nothing for " : "nothing came for ") +
                  std::to_string(watch.limit().count()) + " s";
        diverged(stepText() + ": " + (receiving ? "the recorded answer" : commands.at(clientOffset).describe()) + ": " +
                 why);
        exact = false;
    }
    if (exact && !closedHere && run.thenModel()) {
        // The model keeps its own watch from here on.
        watch.relax();
        run.ended(number, true);
        Handover handover{clientName, {}, answers};
        handover.received.swap(pending);
        co_return handover;
    }
    if (exact && !closedHere) exact = co_await clientCloses();
    state.locks.releaseAll(id);
    close();
    if (!closedHere) state.trace.event(where(), exact ? "closed: recording replayed" : "closed: diverged");
    run.ended(number, exact);
    co_return std::nullopt;
}

asio::awaitable<bool> Replayer::receiveMore() {
    for (;;) {
        co_await socket.async_wait(asio::socket_base::wait_read, use_awaitable);
        std::error_code error;
        const std::size_t received = socket.read_some(asio::buffer(state.received), error);
        if (error == asio::error::would_block) continue;
        if (error == asio::error::eof) co_return false;
        if (error) throw std::system_error(error);
        watch.progress();
        pending.append(state.received.data(), received);
        co_return true;
    }
}

/* The client sends exactly the recorded bytes, in one piece or several,
 * or together with what follows (kept for the next step). They are
 * compared as they come, so a client that sends something else is stopped
 * at its first different byte rather than waited for. */
asio::awaitable<bool> Replayer::clientSends(const RecordedStep& current) {
    const std::string& expected = current.bytes;
    if (expected.empty()) co_return true;  // a failed send, recorded without bytes
    const ClientItem first = commands.at(clientOffset);
    label = first.label();
    for (;;) {
        const std::size_t available = std::min(pending.size(), expected.size());
        const auto differ =
            std::mismatch(expected.begin(), expected.begin() + static_cast<std::ptrdiff_t>(available), pending.begin());
        const auto at = static_cast<std::size_t>(differ.first - expected.begin());
        if (at < available) {
            label = commands.at(clientOffset + at).label();
            diverged(stepText() + ": " + commands.at(clientOffset + at).describe() + ": " +
                     comparedBytes(expected, receivedPart(expected, pending), at));
            co_return false;
        }
        if (available == expected.size()) break;
        // Waiting for a command or a request may take as long as the host
        // likes; anywhere else the client owes the rest.
        const bool betweenCommands =
            pending.empty() &&
            (first.role == Role::CommandFrame || first.role == Role::Request || first.role == Role::LockRequest);
        if (betweenCommands)
            watch.relax();
        else
            watch.expect();
        const bool more = co_await receiveMore();
        if (!more) {
            diverged(stepText() + ": " + commands.at(clientOffset + pending.size()).describe() + ": " +
                     comparedBytes(expected, pending, pending.size()) + "; then the client closed the connection");
            co_return false;
        }
    }
    if (looksLikeToken(expected))
        state.trace.text(where(), '<', traceItem(first.item), expected);
    else
        state.trace.data(where(), '<', traceItem(first.item), expected.size());
    pending.erase(0, expected.size());
    clientOffset += expected.size();
    if (first.role == Role::Introduction) clientName = commands.clientName();
    followLocks(first);
    co_return true;
}

asio::awaitable<bool> Replayer::clientSendsAny(const RecordedStep& current) {
    while (pending.size() < current.count) {
        watch.expect();
        const bool more = co_await receiveMore();
        if (!more) {
            diverged(stepText() + ": expected " + std::to_string(current.count) + " bytes of any value, received " +
                     std::to_string(pending.size()) + "; then the client closed the connection");
            co_return false;
        }
    }
    state.trace.data(where(), '<', "any", current.count);
    pending.erase(0, current.count);
    co_return true;
}

/* The recorded server bytes go out in one send. A second receive in a row
 * goes out only once the client has taken the first, so that the two do not
 * merge into one receive of the client. */
asio::awaitable<void> Replayer::clientReceives(const RecordedStep& current, bool afterReceive) {
    if (current.bytes.empty()) co_return;  // a failed receive, recorded without bytes
    if (afterReceive) co_await waitClientDrained(socket);
    if (looksLikeToken(current.bytes))
        state.trace.text(where(), '>', "answer", current.bytes);
    else
        state.trace.data(where(), '>', "answer", current.bytes.size());
    watch.expect();
    co_await asio::async_write(socket, asio::buffer(current.bytes), use_awaitable);
    watch.progress();
    ++answers;
    if (lockAsked) {
        if (grants(current.bytes)) state.locks.acquire(*lockAsked, id);
        lockAsked.reset();
    }
}

/* The server's locks follow the recording: a connection that was granted a
 * lock holds it until it gives it back, as it did in the model, so that
 * the model sees the same holders (other connections, and this one when
 * the model goes on with it). */
void Replayer::followLocks(const ClientItem& item) {
    if (item.role == Role::LockRequest) {
        lockAsked = item.command == protocol::command::openSession ? Lock::Session : Lock::Command;
        return;
    }
    if (item.role != Role::CommandFrame) return;
    switch (item.command) {
    case protocol::command::releaseCommandLock: state.locks.release(Lock::Command, id); break;
    case protocol::command::releaseSessionLock: state.locks.release(Lock::Session, id); break;
    case protocol::command::farewell: state.locks.releaseAll(id); break;
    default: break;
    }
}

/* After the recording's last step: the replay's side is closed at once, and
 * the client is to close its side without sending anything more. A client
 * that keeps its connection open and silent is closed after the stall
 * time. */
asio::awaitable<bool> Replayer::clientCloses() {
    std::error_code ignored;
    socket.shutdown(asio::socket_base::shutdown_send, ignored);
    try {
        for (;;) {
            if (!pending.empty()) {
                diverged(connectionText() + ", after its last step (line " +
                         std::to_string(recorded.steps.empty() ? 0 : recorded.steps.back().line) +
                         "): the recording ends here, received " +
                         shownBytes(std::string_view(pending).substr(0, wholeBytes)) +
                         (pending.size() > wholeBytes ? "..." : ""));
                co_return false;
            }
            watch.expect();
            const bool more = co_await receiveMore();
            if (!more) co_return true;
        }
    } catch (const std::system_error&) {
        // Silent for the stall time, or gone: nothing more was sent.
    }
    co_return true;
}

void Replayer::diverged(const std::string& report) { run.report(state.trace, where(), report); }

void Replayer::close() {
    std::error_code ignored;
    socket.shutdown(asio::socket_base::shutdown_both, ignored);
    socket.close(ignored);
}

}  // namespace

ReplayRun::ReplayRun(const std::string& path, bool thenModel, bool reportOnStandardError)
    : path(path),
      modelAfterwards(thenModel),
      onStandardError(reportOnStandardError),
      connections(protocol::splitConnections(protocol::readRecording(path))) {
    if (connections.empty()) throw std::runtime_error(path + ": holds no recorded connection");
    outcomes.assign(connections.size(), Outcome::Waiting);
}

const RecordedConnection* ReplayRun::take(std::size_t& number) {
    if (taken == connections.size()) return nullptr;
    outcomes[taken] = Outcome::Playing;
    number = ++taken;
    return &connections[taken - 1];
}

void ReplayRun::ended(std::size_t number, bool exactly) {
    ++finished;
    outcomes[number - 1] = exactly ? Outcome::Exact : Outcome::Diverged;
}

void ReplayRun::report(Trace& trace, const Trace::Where& where, const std::string& text) {
    ++reports;
    trace.divergence(where, text);
    if (onStandardError) std::fprintf(stderr, "tetherhost: replay: %s\n", text.c_str());
}

int ReplayRun::finish(Trace& trace) {
    for (std::size_t i = 0; i < connections.size(); ++i) {
        if (outcomes[i] != Outcome::Waiting && outcomes[i] != Outcome::Playing) continue;
        std::string text = "connection " + std::to_string(i + 1);
        if (!connections[i].name.empty()) text += " (recorded as " + connections[i].name + ")";
        text += outcomes[i] == Outcome::Playing ? ": its replay had not ended when the run ended"
                                                : ": no client came for it";
        report(trace, {0, {}, {}}, text);
    }
    const auto exact = static_cast<std::size_t>(std::count(outcomes.begin(), outcomes.end(), Outcome::Exact));
    const bool allExact = reports == 0 && exact == connections.size();
    const std::string outcome =
        std::to_string(exact) + " of " + std::to_string(connections.size()) + " recorded connections replayed exactly";
    trace.event({0, {}, {}}, "replay ended: " + outcome);
    if (onStandardError)
        std::fprintf(stderr, "tetherhost: replay of %s: %s%s\n", path.c_str(), outcome.c_str(),
                     allExact ? "" : "; the replay diverged");
    return allExact ? 0 : 1;
}

asio::awaitable<void> serveReplayed(asio::ip::tcp::socket& socket, ServerState& state, ConnectionId id,
                                    ReplayRun& run) {
    const std::size_t arrival = run.arrived();
    std::size_t number = 0;
    const RecordedConnection* recorded = run.take(number);
    if (recorded == nullptr) {
        run.report(state.trace, {id, {}, {}},
                   "connection " + std::to_string(arrival) + ": the recording holds " + std::to_string(run.size()) +
                       (run.size() == 1 ? " connection" : " connections") + "; this one was closed");
        std::error_code ignored;
        socket.close(ignored);
        state.trace.event({id, {}, {}}, "refused: beyond the recording");
        co_return;
    }
    std::optional<Handover> handover;
    {
        // Gone (with its stall watch) before the model takes the socket.
        Replayer replayer(socket, state, id, run, *recorded, number);
        handover = co_await replayer.play();
    }
    if (handover) co_await serveConnection(socket, state, id, std::move(*handover));
}

std::string shownBytes(std::string_view bytes) {
    std::string shown = "\"";
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        switch (c) {
        case '\0': shown += "\\0"; break;
        case '"': shown += "\\\""; break;
        case '\\': shown += "\\\\"; break;
        case '\n': shown += "\\n"; break;
        case '\r': shown += "\\r"; break;
        case '\t': shown += "\\t"; break;
        default:
            if (byte >= 0x20 && byte < 0x7F) {
                shown += c;
            } else {
                char escape[5];
                std::snprintf(escape, sizeof escape, "\\x%02x", byte);
                shown += escape;
            }
        }
    }
    return shown + "\"";
}

std::string comparedBytes(std::string_view expected, std::string_view received, std::size_t at) {
    if (expected.size() <= wholeBytes && received.size() <= wholeBytes)
        return "expected " + shownBytes(expected) + ", received " +
               (received.empty() ? std::string("nothing") : shownBytes(received));
    const std::size_t from = at > bytesBefore ? at - bytesBefore : 0;
    const auto window = [&](std::string_view bytes) {
        if (from >= bytes.size()) return std::string("nothing there");
        const std::string_view part = bytes.substr(from, windowBytes);
        return std::string(from > 0 ? "..." : "") + shownBytes(part) + (from + part.size() < bytes.size() ? "..." : "");
    };
    return "at byte " + std::to_string(at) + " of " + std::to_string(expected.size()) + ": expected " +
           window(expected) + ", received " + window(received);
}

}  // namespace tetherhost::sim

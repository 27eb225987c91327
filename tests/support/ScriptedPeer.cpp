// SPDX-License-Identifier: MIT
/* ScriptedPeer: the scripted server side of a test conversation. The script
 * runs on the peer's own thread; every wait in it is bounded by the step
 * time-out and can be cut short through an eventfd that finish() and the
 * destructor signal, so a misbehaving client fails its test instead of
 * hanging it. */
#include "ScriptedPeer.h"

#include "support/ReceiveQueue.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

namespace tetherhost::test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds stepTimeout{5000};
// A drain wait is cut into slices so that a stop request is noticed soon.
constexpr int drainSliceMs = 50;

/* The bytes as a quoted string with NUL, control and non-ASCII bytes escaped. */
std::string printable(const std::string& bytes) {
    std::string text = "\"";
    for (const unsigned char byte : bytes) {
        switch (byte) {
        case '\0': text += "\\0"; break;
        case '\n': text += "\\n"; break;
        case '\r': text += "\\r"; break;
        case '\t': text += "\\t"; break;
        case '"': text += "\\\""; break;
        case '\\': text += "\\\\"; break;
        default:
            if (byte >= 0x20 && byte < 0x7f) {
                text += static_cast<char>(byte);
            } else {
                char escape[5];
                std::snprintf(escape, sizeof escape, "\\x%02x", byte);
                text += escape;
            }
        }
    }
    return text + "\"";
}

std::string systemError(const char* call) { return std::string(call) + " failed: " + std::strerror(errno); }

void closeDescriptor(int& fd) {
    if (fd >= 0) close(fd);
    fd = -1;
}

/* Shutting down before closing sends the end of stream at once, so a client
 * blocked in recv returns 0. */
void shutAndClose(int& fd) {
    if (fd >= 0) shutdown(fd, SHUT_RDWR);
    closeDescriptor(fd);
}

struct Step {
    enum class Kind { Expect, ExpectAny, Reply, Close, Accept };
    Kind kind;
    std::string bytes;      // Expect, Reply
    std::size_t count = 0;  // Expect, ExpectAny: how many bytes to receive
};

enum class Wait { Ready, TimedOut, Stopped };

}  // namespace

struct ScriptedPeer::State {
    State() : wakeup(eventfd(0, EFD_CLOEXEC)) {
        if (wakeup < 0) recordFailure(systemError("eventfd"));
    }

    /* Steps are only taken before start(): the thread reads them unguarded. */
    void add(Step step) {
        if (started) {
            recordFailure("a step was added after start()");
            return;
        }
        steps.push_back(std::move(step));
    }

    void recordFailure(const std::string& text) {
        const std::lock_guard<std::mutex> lock(mutex);
        if (failure.empty()) failure = text;
    }

    bool noFailureYet() const {
        const std::lock_guard<std::mutex> lock(mutex);
        return failure.empty();
    }

    /* Asks the thread to abandon its current wait and end the script. */
    void stop(const std::string& reason) {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            if (stopping) return;
            stopReason = reason;
            stopping = true;
        }
        const std::uint64_t one = 1;
        if (write(wakeup, &one, sizeof one) != static_cast<ssize_t>(sizeof one)) {
            recordFailure(systemError("write to the stop eventfd"));
        }
    }

    void run() {
        bool replyUnread = false;  // the previous step was a reply the client may not have read
        for (std::size_t index = 0; index < steps.size(); ++index) {
            if (!runStep(index, replyUnread)) break;
            replyUnread = steps[index].kind == Step::Kind::Reply;
        }
        shutAndClose(connection);
        closeDescriptor(listener);
        {
            const std::lock_guard<std::mutex> lock(mutex);
            done = true;
        }
        ended.notify_all();
    }

    bool runStep(std::size_t index, bool replyUnread) {
        const Step& step = steps[index];
        const auto deadline = Clock::now() + stepTimeout;
        switch (step.kind) {
        case Step::Kind::Expect:
        case Step::Kind::ExpectAny: return receive(index, deadline);
        case Step::Kind::Reply:
            if (connection < 0) return fail(index, "the connection is closed");
            return (!replyUnread || awaitDrained(index, deadline)) && sendAll(index, deadline);
        case Step::Kind::Close: shutAndClose(connection); return true;
        case Step::Kind::Accept: return acceptConnection(index, deadline);
        }
        return fail(index, "unknown step");
    }

    bool receive(std::size_t index, Clock::time_point deadline) {
        const Step& step = steps[index];
        std::string got;
        while (got.size() < step.count) {
            if (connection < 0) return fail(index, "the connection is closed");
            const Wait wait = waitFor(connection, POLLIN, deadline);
            if (wait != Wait::Ready) return fail(index, "received " + printable(got) + ", then " + why(wait));
            char chunk[4096];
            const ssize_t count =
                recv(connection, chunk, std::min(sizeof chunk, step.count - got.size()), MSG_DONTWAIT);
            if (count > 0) {
                got.append(chunk, static_cast<std::size_t>(count));
                const std::lock_guard<std::mutex> lock(mutex);
                received.append(chunk, static_cast<std::size_t>(count));
                continue;
            }
            if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) continue;
            return fail(index, "received " + printable(got) + ", then " +
                                   (count == 0 ? std::string("the connection closed") : systemError("recv")));
        }
        if (step.kind == Step::Kind::Expect && got != step.bytes) return fail(index, "received " + printable(got));
        return true;
    }

    /* Waits until the client has read every byte sent so far, so that the
     * next reply cannot join the previous one in a single receive. */
    bool awaitDrained(std::size_t index, Clock::time_point deadline) {
        while (!waitPeerDrained(connection, drainSliceMs)) {
            if (peerUnreadBytes(connection) < 0) {
                return fail(index, "cannot tell whether the client read the previous reply (connection gone?)");
            }
            if (Clock::now() >= deadline) {
                return fail(index, "the client did not read the previous reply within " + timeoutText());
            }
            if (isStopping()) return fail(index, "the client had not read the previous reply when " + reasonForStop());
        }
        return true;
    }

    bool sendAll(std::size_t index, Clock::time_point deadline) {
        const std::string& bytes = steps[index].bytes;
        std::size_t sent = 0;
        while (sent < bytes.size()) {
            const ssize_t count =
                send(connection, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (count > 0) {
                sent += static_cast<std::size_t>(count);
                continue;
            }
            if (count < 0 && errno == EINTR) continue;
            if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
                const Wait wait = waitFor(connection, POLLOUT, deadline);
                if (wait == Wait::Ready) continue;
                return fail(index, "sent " + std::to_string(sent) + " bytes, then " + why(wait));
            }
            return fail(index, "sent " + std::to_string(sent) + " bytes, then " +
                                   (count == 0 ? std::string("send returned 0") : systemError("send")));
        }
        return true;
    }

    bool acceptConnection(std::size_t index, Clock::time_point deadline) {
        shutAndClose(connection);
        if (listener < 0) return fail(index, "this peer does not listen");
        for (;;) {
            const Wait wait = waitFor(listener, POLLIN, deadline);
            if (wait != Wait::Ready) {
                return fail(index, "no client connected to 127.0.0.1:" + std::to_string(port) + ", " + why(wait));
            }
            connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (connection >= 0) return true;
            if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR && errno != ECONNABORTED) {
                return fail(index, systemError("accept"));
            }
        }
    }

    /* Polls `fd` together with the stop eventfd, until `deadline`. */
    Wait waitFor(int fd, short events, Clock::time_point deadline) {
        for (;;) {
            if (isStopping()) return Wait::Stopped;
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
            if (left <= 0) return Wait::TimedOut;
            pollfd watched[2] = {{fd, events, 0}, {wakeup, POLLIN, 0}};
            if (poll(watched, 2, static_cast<int>(left)) > 0 && watched[0].revents != 0) return Wait::Ready;
        }
    }

    std::string why(Wait wait) const {
        return wait == Wait::TimedOut ? "nothing within " + timeoutText() : reasonForStop();
    }

    static std::string timeoutText() { return std::to_string(stepTimeout.count()) + " ms"; }

    bool isStopping() const {
        const std::lock_guard<std::mutex> lock(mutex);
        return stopping;
    }

    std::string reasonForStop() const {
        const std::lock_guard<std::mutex> lock(mutex);
        return stopReason;
    }

    std::string describe(const Step& step) const {
        switch (step.kind) {
        case Step::Kind::Expect: return "expect " + printable(step.bytes);
        case Step::Kind::ExpectAny: return "expectAny " + std::to_string(step.count) + " bytes";
        case Step::Kind::Reply: return "reply " + printable(step.bytes);
        case Step::Kind::Close: return "closeConnection";
        case Step::Kind::Accept: return "accept";
        }
        return "unknown step";
    }

    bool fail(std::size_t index, const std::string& what) {
        recordFailure("step " + std::to_string(index + 1) + " of " + std::to_string(steps.size()) + " (" +
                      describe(steps[index]) + "): " + what);
        return false;
    }

    // Set up before start(); afterwards owned by the thread until it is joined.
    std::vector<Step> steps;
    int port = 0;
    int listener = -1;
    int connection = -1;
    // Owned by the peer object.
    int clientEnd = -1;
    const int wakeup;
    bool started = false;
    std::thread thread;

    mutable std::mutex mutex;
    std::condition_variable ended;
    bool done = false;
    bool stopping = false;
    std::string stopReason;
    std::string received;
    std::string failure;
};

ScriptedPeer::ScriptedPeer(std::unique_ptr<State> state) : state(std::move(state)) {}

std::unique_ptr<ScriptedPeer> ScriptedPeer::onSocketPair() {
    auto state = std::make_unique<State>();
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0) {
        state->connection = ends[0];
        state->clientEnd = ends[1];
    } else {
        state->recordFailure(systemError("socketpair"));
    }
    return std::unique_ptr<ScriptedPeer>(new ScriptedPeer(std::move(state)));
}

std::unique_ptr<ScriptedPeer> ScriptedPeer::listening(int port) {
    auto state = std::make_unique<State>();
    state->port = port;
    state->steps.push_back(Step{Step::Kind::Accept, {}, 0});
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int on = 1;
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
        bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 && listen(fd, 8) == 0) {
        state->listener = fd;
    } else {
        state->recordFailure("cannot listen on 127.0.0.1:" + std::to_string(port) + ": " + std::strerror(errno));
        closeDescriptor(fd);
    }
    return std::unique_ptr<ScriptedPeer>(new ScriptedPeer(std::move(state)));
}

ScriptedPeer::~ScriptedPeer() {
    if (state->thread.joinable()) {
        state->stop("the peer was destroyed");
        state->thread.join();
    }
    shutAndClose(state->connection);
    closeDescriptor(state->listener);
    closeDescriptor(state->clientEnd);
    if (state->wakeup >= 0) close(state->wakeup);
}

int ScriptedPeer::clientSocket() const { return state->clientEnd; }

ScriptedPeer& ScriptedPeer::expect(const std::string& bytes) {
    state->add(Step{Step::Kind::Expect, bytes, bytes.size()});
    return *this;
}

ScriptedPeer& ScriptedPeer::expectFrame(const std::string& token) { return expect(token + '\0'); }

ScriptedPeer& ScriptedPeer::expectAny(std::size_t count) {
    state->add(Step{Step::Kind::ExpectAny, {}, count});
    return *this;
}

ScriptedPeer& ScriptedPeer::reply(const std::string& bytes) {
    state->add(Step{Step::Kind::Reply, bytes, 0});
    return *this;
}

ScriptedPeer& ScriptedPeer::ack() { return reply(bytes("+\0")); }

ScriptedPeer& ScriptedPeer::closeConnection() {
    state->add(Step{Step::Kind::Close, {}, 0});
    return *this;
}

ScriptedPeer& ScriptedPeer::acceptNext() {
    state->add(Step{Step::Kind::Accept, {}, 0});
    return *this;
}

ScriptedPeer& ScriptedPeer::play(const Conversation& conversation) {
    for (const ConversationStep& step : conversation) {
        switch (step.kind) {
        case ConversationStep::Kind::ClientSends: expect(step.bytes); break;
        case ConversationStep::Kind::ClientSendsAny: expectAny(step.count); break;
        case ConversationStep::Kind::ClientReceives: reply(step.bytes); break;
        case ConversationStep::Kind::Close: closeConnection(); break;
        case ConversationStep::Kind::Accept: acceptNext(); break;
        }
    }
    return *this;
}

void ScriptedPeer::start() {
    if (state->started) {
        state->recordFailure("start() was called twice");
        return;
    }
    state->started = true;
    if (!state->noFailureYet()) return;
    State* running = state.get();
    state->thread = std::thread([running] { running->run(); });
}

bool ScriptedPeer::finish(int timeoutMs) {
    if (state->thread.joinable()) {
        std::unique_lock<std::mutex> lock(state->mutex);
        const bool ended =
            state->ended.wait_for(lock, std::chrono::milliseconds(timeoutMs), [this] { return state->done; });
        lock.unlock();
        if (!ended) state->stop("finish(" + std::to_string(timeoutMs) + ") stopped the script");
        state->thread.join();
    } else {
        if (!state->started) state->recordFailure("finish() was called before start()");
        shutAndClose(state->connection);
        closeDescriptor(state->listener);
    }
    return failure().empty();
}

std::string ScriptedPeer::received() const {
    const std::lock_guard<std::mutex> lock(state->mutex);
    return state->received;
}

std::string ScriptedPeer::failure() const {
    const std::lock_guard<std::mutex> lock(state->mutex);
    return state->failure;
}

}  // namespace tetherhost::test

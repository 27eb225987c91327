// SPDX-License-Identifier: MIT
/* SessionServer: one thread that polls the listener, the scripted connection,
 * the reconnections and a stop eventfd. */
#include "SessionServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <thread>

#include "support/ReceiveQueue.h"

namespace tetherhost::test {
namespace {

using Clock = std::chrono::steady_clock;

/* How long the client may pause in the middle of an expected frame, and
 * before a frame at all (long enough for a client under valgrind). */
constexpr std::chrono::milliseconds partialFrameLimit{2000};
constexpr std::chrono::milliseconds silenceLimit{10000};
/* How often an unread reply is looked at again before the next one goes. */
constexpr int drainPollMs = 1;

/* Ends a connection with FIN, never with RST: bytes the client sent and the
 * script did not take yet are read first (a socket closed with unread bytes
 * resets the connection, and the client's end would no longer name its
 * peer). */
void closeConnection(int& fd) {
    if (fd < 0) return;
    char discard[4096];
    while (recv(fd, discard, sizeof discard, MSG_DONTWAIT) > 0) {
    }
    shutdown(fd, SHUT_RDWR);
    close(fd);
    fd = -1;
}

bool sendAll(int fd, const std::string& bytes) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count = send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) return false;
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

}  // namespace

struct SessionServer::State {
    Conversation script;
    std::string introductionAnswer;
    int listener = -1;
    int scripted = -1;
    bool scriptedAccepted = false;
    int wake = -1;
    std::thread thread;

    // Owned by the thread while it runs.
    std::size_t step = 0;
    std::string received;  // bytes of the current expected step so far
    Clock::time_point lastProgress = Clock::now();
    std::string stopped;  // why the script stopped early
    struct Reconnection {
        int fd;
        std::string name;
        bool answered;
    };
    std::vector<Reconnection> reconnectionList;
    std::string error;

    std::chrono::milliseconds idle() const { return received.empty() ? silenceLimit : partialFrameLimit; }

    bool scriptDone() const { return step == script.size(); }
    bool clientSends() const { return script[step].kind == ConversationStep::Kind::ClientSends; }
    bool expecting() const { return scripted >= 0 && !scriptDone() && clientSends(); }
    bool replying() const { return scripted >= 0 && !scriptDone() && !clientSends(); }

    std::string where() const {
        return "step " + std::to_string(step + 1) + " of " + std::to_string(script.size()) + ": ";
    }

    void end(const std::string& why) {
        if (stopped.empty()) stopped = where() + why;
        closeConnection(scripted);
    }

    void advance() {
        ++step;
        received.clear();
        lastProgress = Clock::now();
    }

    /* Sends the pending reply once the client has read all before it. */
    bool replyWhenDrained() {
        const long unread = peerUnreadBytes(scripted);
        if (unread > 0) return false;
        if (!sendAll(scripted, script[step].bytes)) {
            end("the reply could not be sent");
            return true;
        }
        advance();
        return true;
    }

    void readScripted() {
        const std::string& expected = script[step].bytes;
        char chunk[4096];
        const std::size_t wanted = std::min(sizeof chunk, expected.size() - received.size());
        const ssize_t count = recv(scripted, chunk, wanted, MSG_DONTWAIT);
        if (count == 0) return end("the client closed the connection");
        if (count < 0) {
            if (errno != EAGAIN && errno != EINTR) end(std::string("recv: ") + std::strerror(errno));
            return;
        }
        received.append(chunk, static_cast<std::size_t>(count));
        lastProgress = Clock::now();
        if (expected.compare(0, received.size(), received) != 0) return end("the client sent other bytes");
        if (received.size() == expected.size()) advance();
    }

    void accept() {
        const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) return;
        // A reply that follows another must not wait for the client's
        // delayed acknowledgement of the first.
        const int on = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        if (!scriptedAccepted) {
            scripted = fd;
            scriptedAccepted = true;
            lastProgress = Clock::now();
        } else {
            reconnectionList.push_back({fd, {}, false});
        }
    }

    void readReconnection(Reconnection& reconnection) {
        char chunk[1024];
        const ssize_t count = recv(reconnection.fd, chunk, sizeof chunk, MSG_DONTWAIT);
        if (count <= 0) {
            if (count == 0) closeConnection(reconnection.fd);
            return;
        }
        reconnection.name.append(chunk, static_cast<std::size_t>(count));
        if (reconnection.name.find('\0') != std::string::npos) {
            reconnection.answered = sendAll(reconnection.fd, introductionAnswer);
        }
    }

    void run() {
        for (;;) {
            if (replying() && replyWhenDrained()) continue;
            std::vector<pollfd> watched{{wake, POLLIN, 0}};
            if (listener >= 0) watched.push_back({listener, POLLIN, 0});
            if (expecting()) watched.push_back({scripted, POLLIN, 0});
            for (const Reconnection& reconnection : reconnectionList)
                if (reconnection.fd >= 0 && !reconnection.answered) watched.push_back({reconnection.fd, POLLIN, 0});
            int timeout = -1;
            if (replying()) {
                timeout = drainPollMs;
            } else if (expecting()) {
                const auto left = idle() - (Clock::now() - lastProgress);
                timeout = static_cast<int>(
                    std::max<long long>(0, std::chrono::duration_cast<std::chrono::milliseconds>(left).count()));
            }
            poll(watched.data(), watched.size(), timeout);
            if (watched[0].revents != 0) break;
            for (std::size_t i = 1; i < watched.size(); ++i) {
                if (watched[i].revents == 0) continue;
                if (watched[i].fd == listener) {
                    accept();
                } else if (watched[i].fd == scripted) {
                    readScripted();
                } else {
                    for (Reconnection& reconnection : reconnectionList)
                        if (reconnection.fd == watched[i].fd) readReconnection(reconnection);
                }
            }
            if (expecting() && Clock::now() - lastProgress >= idle()) {
                end(received.empty() ? "the client sent nothing" : "the client stopped in the middle of a frame");
            }
        }
    }

    void closeAll() {
        // Connections still in the listener's queue would be reset when it
        // closes; taking them first ends them like every other one.
        if (listener >= 0) {
            while (poll(std::vector<pollfd>{{listener, POLLIN, 0}}.data(), 1, 0) > 0) accept();
        }
        closeConnection(scripted);
        for (Reconnection& reconnection : reconnectionList) closeConnection(reconnection.fd);
        if (listener >= 0) close(listener);
        listener = -1;
        if (wake >= 0) close(wake);
        wake = -1;
    }
};

SessionServer::SessionServer(std::unique_ptr<State> state) : state(std::move(state)) {
    State* running = this->state.get();
    running->wake = eventfd(0, EFD_CLOEXEC);
    if (running->wake < 0) {
        running->error = "eventfd failed";
        return;
    }
    for (std::size_t i = 0; i < running->script.size() && running->error.empty(); ++i) {
        const ConversationStep::Kind kind = running->script[i].kind;
        if (kind != ConversationStep::Kind::ClientSends && kind != ConversationStep::Kind::ClientReceives)
            running->error = "step " + std::to_string(i + 1) + ": a session server plays only sends and receives";
    }
    if (running->error.empty()) running->thread = std::thread([running] { running->run(); });
}

std::unique_ptr<SessionServer> SessionServer::listening(int port, Conversation script, std::string introductionAnswer) {
    auto state = std::make_unique<State>();
    state->script = std::move(script);
    state->introductionAnswer = std::move(introductionAnswer);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int on = 1;
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
        bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 && listen(fd, 8) == 0) {
        state->listener = fd;
    } else {
        state->error = "cannot listen on 127.0.0.1:" + std::to_string(port) + ": " + std::strerror(errno);
        if (fd >= 0) close(fd);
    }
    return std::unique_ptr<SessionServer>(new SessionServer(std::move(state)));
}

std::unique_ptr<SessionServer> SessionServer::onSocket(int connection, Conversation script) {
    auto state = std::make_unique<State>();
    state->script = std::move(script);
    state->scripted = connection;
    state->scriptedAccepted = true;
    return std::unique_ptr<SessionServer>(new SessionServer(std::move(state)));
}

SessionServer::~SessionServer() { stop(); }

std::string SessionServer::startError() const { return state->error; }

std::string SessionServer::stop() {
    if (state->thread.joinable()) {
        const std::uint64_t one = 1;
        if (write(state->wake, &one, sizeof one) != static_cast<ssize_t>(sizeof one)) state->error = "cannot wake";
        state->thread.join();
    }
    state->closeAll();
    if (!state->error.empty()) return state->error;
    if (!state->stopped.empty()) return state->stopped;
    if (!state->scriptDone()) return state->where() + "the script was not finished";
    return {};
}

int SessionServer::reconnections() const {
    int answered = 0;
    for (const State::Reconnection& reconnection : state->reconnectionList)
        if (reconnection.answered) ++answered;
    return answered;
}

}  // namespace tetherhost::test

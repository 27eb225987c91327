// SPDX-License-Identifier: MIT
/* The hostile server's connections, and the socket() and connect() that the
 * library is linked to. The harness reads sockets with recvfrom, never recv:
 * the stream target wraps recv to hand out the server's pieces. */
#include "HostileServer.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tetherhost::fuzz {

namespace {

constexpr std::size_t longPiece = 1024;

ino_t inodeOf(int fd) {
    struct stat status {};
    return fstat(fd, &status) == 0 ? status.st_ino : 0;
}

/* One receive that does not wait. */
ssize_t receiveNow(int fd, void* buffer, std::size_t size) {
    return recvfrom(fd, buffer, size, MSG_DONTWAIT, nullptr, nullptr);
}

}  // namespace

HostileServer* activeServer = nullptr;

std::string readPiece(FuzzInput& in) {
    const std::uint8_t length = in.byte();
    return in.bytes(length == 0xFF ? longPiece : length);
}

HostileServer::HostileServer(Pieces pieces, Transport transport) : pending(std::move(pieces)), transport(transport) {}

HostileServer::~HostileServer() { closeAll(); }

int HostileServer::open() {
    int ends[2];
    const int type = transport == Transport::Records ? SOCK_SEQPACKET : SOCK_STREAM;
    if (socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, ends) != 0) return -1;
    // Far more than an input holds, so that no send of either side waits.
    const int size = 1 << 20;
    for (const int end : ends) setsockopt(end, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
    // A client that sends more than the socket holds gets a failed send, and
    // a receive that would wait gets a failed receive, instead of blocking
    // the fuzzer for ever.
    fcntl(ends[0], F_SETFL, fcntl(ends[0], F_GETFL) | O_NONBLOCK);
    if (!connections.empty()) reclaimUnread(connections.back());
    Connection& connection = connections.emplace_back(Connection{ends[0], ends[1], inodeOf(ends[0]), {}});
    while (!pending.empty()) {
        std::string piece = std::move(pending.front());
        pending.pop_front();
        if (piece.empty()) break;
        connection.unsent.push_back(std::move(piece));
    }
    if (transport == Transport::Records) {
        while (!connection.unsent.empty()) send(connection);
        shutdown(ends[1], SHUT_WR);
    }
    return ends[0];
}

bool HostileServer::owns(int fd) const {
    for (const Connection& connection : connections)
        if (connection.client == fd && isOpen(connection)) return true;
    return false;
}

void HostileServer::drain() {
    if (connections.empty()) return;
    char discard[4096];
    while (receiveNow(connections.back().server, discard, sizeof discard) > 0) {
    }
}

void HostileServer::beforeReceive(int fd) {
    for (Connection& connection : connections) {
        if (connection.client != fd || !isOpen(connection)) continue;
        int waiting = 0;
        if (ioctl(fd, FIONREAD, &waiting) == 0 && waiting > 0) return;
        if (connection.unsent.empty())
            shutdown(connection.server, SHUT_WR);
        else
            send(connection);
        return;
    }
}

/* The library closes the client's end in Disconnect; the descriptor may
 * then name something else. */
bool HostileServer::isOpen(const Connection& connection) { return inodeOf(connection.client) == connection.inode; }

void HostileServer::send(Connection& connection) {
    const std::string piece = std::move(connection.unsent.front());
    connection.unsent.pop_front();
    ::send(connection.server, piece.data(), piece.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

void HostileServer::reclaimUnread(Connection& previous) {
    if (!isOpen(previous)) return;
    Pieces unread;
    std::string piece(longPiece, '\0');
    for (;;) {
        const ssize_t size = receiveNow(previous.client, piece.data(), piece.size());
        if (size <= 0) break;
        unread.emplace_back(piece.data(), static_cast<std::size_t>(size));
    }
    unread.insert(unread.end(), previous.unsent.begin(), previous.unsent.end());
    previous.unsent.clear();
    pending.insert(pending.begin(), unread.begin(), unread.end());
}

void HostileServer::closeAll() {
    for (const Connection& connection : connections) {
        if (isOpen(connection)) close(connection.client);
        close(connection.server);
    }
    connections.clear();
}

}  // namespace tetherhost::fuzz

extern "C" {
int __real_socket(int domain, int type, int protocol);
int __real_connect(int fd, const sockaddr* address, socklen_t length);

int __wrap_socket(int domain, int type, int protocol) {
    using tetherhost::fuzz::activeServer;
    return activeServer != nullptr ? activeServer->open() : __real_socket(domain, type, protocol);
}

int __wrap_connect(int fd, const sockaddr* address, socklen_t length) {
    using tetherhost::fuzz::activeServer;
    return activeServer != nullptr && activeServer->owns(fd) ? 0 : __real_connect(fd, address, length);
}
}

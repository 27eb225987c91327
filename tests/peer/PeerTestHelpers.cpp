// SPDX-License-Identifier: MIT
/* Client-side helpers for the peer tests. */
#include "PeerTestHelpers.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>

namespace tetherhost::test {
namespace {

sockaddr_in loopbackAddress(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

void closeIfOpen(int& fd) {
    if (fd >= 0) close(fd);
    fd = -1;
}

}  // namespace

bool waitReadable(int socket, int timeoutMs) {
    pollfd watched{socket, POLLIN, 0};
    return poll(&watched, 1, timeoutMs) == 1;
}

std::optional<std::string> receiveOnce(int socket, int timeoutMs) {
    if (!waitReadable(socket, timeoutMs)) return std::nullopt;
    char buffer[1024];
    const ssize_t count = recv(socket, buffer, sizeof buffer, 0);
    if (count < 0) return std::nullopt;
    return std::string(buffer, static_cast<std::size_t>(count));
}

std::vector<std::string> receiveUntilClosed(int socket, int timeoutMs) {
    std::vector<std::string> receives;
    for (;;) {
        const std::optional<std::string> bytes = receiveOnce(socket, timeoutMs);
        if (!bytes) {
            receives.emplace_back("<no end of stream>");
            return receives;
        }
        if (bytes->empty()) return receives;
        receives.push_back(*bytes);
    }
}

bool sendBytes(int socket, const std::string& bytes) {
    return send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

int connectLoopback(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopbackAddress(port);
    if (fd >= 0 && connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return fd;
    if (fd >= 0) close(fd);
    return -1;
}

int openDescriptorCount() {
    DIR* directory = opendir("/proc/self/fd");
    if (directory == nullptr) return -1;
    int count = 0;
    while (const dirent* entry = readdir(directory)) {
        if (entry->d_name[0] != '.') ++count;
    }
    closedir(directory);
    return count;
}

LoopbackConnection::LoopbackConnection() {
    int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopbackAddress(0);
    socklen_t length = sizeof address;
    if (listener >= 0 && bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        listen(listener, 1) == 0 && getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
        client = connectLoopback(ntohs(address.sin_port));
        if (client >= 0) server = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    }
    closeIfOpen(listener);
}

LoopbackConnection::~LoopbackConnection() {
    closeIfOpen(client);
    closeIfOpen(server);
}

bool LoopbackConnection::established() const { return client >= 0 && server >= 0; }

void LoopbackConnection::closeClient() { closeIfOpen(client); }

}  // namespace tetherhost::test

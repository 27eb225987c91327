// SPDX-License-Identifier: MIT
/* The benchmarks' server side: a blocking, one-connection-at-a-time peer that
 * speaks just the exchanges the benchmarks make. */
#include "BenchPeer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "support/ReceiveQueue.h"

namespace tetherhost::bench {

namespace {

constexpr int port = 4001;
constexpr char ack[] = {'+', '\0'};

bool sendAll(int socket, const void* data, long length) {
    return ::send(socket, data, static_cast<std::size_t>(length), MSG_NOSIGNAL) == length;
}

sockaddr_in serverAddress() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = inet_addr("127.0.0.1");
    return address;
}

int toInt(const std::string& token) { return static_cast<int>(std::strtol(token.c_str(), nullptr, 10)); }

}  // namespace

bool readExact(int socket, char* data, long count) {
    long done = 0;
    while (done < count) {
        const long got = ::recv(socket, data + done, static_cast<std::size_t>(count - done), 0);
        if (got <= 0) return false;
        done += got;
    }
    return true;
}

bool readToken(int socket, std::string& token) {
    token.clear();
    char byte;
    while (true) {
        if (::recv(socket, &byte, 1, 0) != 1) return false;
        if (byte == '\0') return true;
        token.push_back(byte);
    }
}

BenchPeer::BenchPeer() {
    listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const sockaddr_in address = serverAddress();
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || listen(listener, 4) != 0)
        throw std::runtime_error("the benchmark peer cannot listen on 127.0.0.1:4001");
    thread = std::thread([this] { serve(); });
}

BenchPeer::~BenchPeer() {
    stopping = true;
    ::shutdown(listener, SHUT_RDWR);
    thread.join();
    ::close(listener);
}

void BenchPeer::serve() {
    while (!stopping) {
        pollfd waiting{listener, POLLIN, 0};
        if (poll(&waiting, 1, 100) <= 0) continue;
        const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) continue;
        // The peer sends twice in a row (status text, then read-back): without
        // TCP_NODELAY the second send would wait for the client's delayed ACK.
        const int on = 1;
        setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        converse(connection);
        ::close(connection);
    }
}

void BenchPeer::converse(int connection) {
    std::string token;
    if (!readToken(connection, token) || !sendAll(connection, ack, 2)) return;  // the name
    std::vector<char> block(1025);
    while (readToken(connection, token)) {
        if (token == "+") {  // a reply request: the integer reply
            if (!sendAll(connection, "0", 2)) return;
            continue;
        }
        if (!sendAll(connection, ack, 2)) return;
        if (token != "44") continue;  // a command without arguments
        // JTAG shift: sub-command, flags, bit count, withSecond, withThird.
        int values[5];
        for (int& value : values) {
            if (!readToken(connection, token) || !sendAll(connection, ack, 2)) return;
            value = toInt(token);
        }
        const int bitCount = values[2];
        const long byteCount = (static_cast<long>(bitCount) + 7) / 8;
        const int blocks = 1 + (values[3] != 0) + (values[4] != 0);
        const bool chunked = byteCount > 1024;
        const long chunkCount = (byteCount + 1023) / 1024;
        for (int b = 0; b < blocks; ++b) {
            const long pieces = chunked ? chunkCount : 1;
            const long pieceLength = chunked ? 1024 : byteCount + 1;
            for (long c = 0; c < pieces; ++c)
                if (!readExact(connection, block.data(), pieceLength) || !sendAll(connection, ack, 2)) return;
        }
        if (!readExact(connection, block.data(), 2) || !sendAll(connection, "0", 2)) return;  // go, status
        if ((values[3] & 1) == 0 || (values[1] & 2) != 0) continue;
        // The read-back follows the status text with no client send between:
        // wait until the client has taken the status.
        waitPeerDrained(connection, 1000);
        if (!chunked) {
            std::memset(block.data(), 0x5a, static_cast<std::size_t>(byteCount));
            if (!sendAll(connection, block.data(), byteCount)) return;
            continue;
        }
        block[0] = '+';
        std::memset(block.data() + 1, 0x5a, 1023);
        char goToken[2];
        for (long c = 0; c < chunkCount; ++c)
            if (!sendAll(connection, block.data(), 1024) || !readExact(connection, goToken, 2)) return;
    }
}

int connectFloorClient(const char* name) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
    const sockaddr_in address = serverAddress();
    if (connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("the floor client cannot connect");
    char reply[1025] = {};
    sendAll(socket, name, static_cast<long>(std::strlen(name)) + 1);
    ::recv(socket, reply, 1024, 0);
    return socket;
}

}  // namespace tetherhost::bench

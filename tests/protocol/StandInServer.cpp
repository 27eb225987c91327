// SPDX-License-Identifier: MIT
/* A stand-in for the tetherhost server executable, for the tests of the
 * server start-up in Connect. It listens on 127.0.0.1:4001, accepts its
 * clients one after another, reads each one's NUL-terminated name and
 * answers "+" and NUL, then waits until every client has closed and exits.
 *
 * It records what it saw, one fact per line, in the file that the
 * environment variable TETHERHOST_STANDIN_RECORD names:
 *   pid <n>, pgid <n>, argc <n>, argv0 <text>, inherited_sockets <n>,
 *   listening, name <text> (per client), done.
 * TETHERHOST_STANDIN_CLIENTS sets how many clients it serves (1 by default)
 * and TETHERHOST_STANDIN_LISTEN_DELAY_MS how long it waits before it
 * listens (0 by default). An alarm ends it after 30 seconds whatever
 * happens, so it never lingers. */
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

constexpr int port = 4001;
constexpr unsigned int lifetimeSeconds = 30;
constexpr int highestInheritedDescriptor = 1024;

FILE* record = nullptr;

void note(const std::string& line) {
    std::fprintf(record, "%s\n", line.c_str());
    std::fflush(record);
}

int environmentNumber(const char* name, int fallback) {
    const char* value = std::getenv(name);
    return value != nullptr ? std::atoi(value) : fallback;
}

/* Sockets this process was given by whoever started it. */
int inheritedSockets() {
    int count = 0;
    for (int fd = 0; fd < highestInheritedDescriptor; ++fd) {
        struct stat status;
        if (fstat(fd, &status) == 0 && S_ISSOCK(status.st_mode)) ++count;
    }
    return count;
}

std::string readName(int connection) {
    std::string name;
    char byte;
    while (recv(connection, &byte, 1, 0) == 1 && byte != '\0') name.push_back(byte);
    return name;
}

void awaitClose(int connection) {
    char buffer[256];
    while (recv(connection, buffer, sizeof buffer, 0) > 0) {
    }
    close(connection);
}

}  // namespace

int main(int argc, char** argv) {
    alarm(lifetimeSeconds);
    const int sockets = inheritedSockets();
    const char* recordPath = std::getenv("TETHERHOST_STANDIN_RECORD");
    if (recordPath == nullptr || (record = std::fopen(recordPath, "a")) == nullptr) return 2;
    note("pid " + std::to_string(getpid()));
    note("pgid " + std::to_string(getpgrp()));
    note("argc " + std::to_string(argc));
    note(std::string("argv0 ") + argv[0]);
    note("inherited_sockets " + std::to_string(sockets));

    usleep(static_cast<useconds_t>(environmentNumber("TETHERHOST_STANDIN_LISTEN_DELAY_MS", 0)) * 1000);
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 || listen(listener, 8) != 0) {
        note("cannot listen");
        return 1;
    }
    note("listening");

    std::vector<int> clients;
    const int expected = environmentNumber("TETHERHOST_STANDIN_CLIENTS", 1);
    for (int served = 0; served < expected; ++served) {
        const int connection = accept(listener, nullptr, nullptr);
        if (connection < 0) break;
        note("name " + readName(connection));
        send(connection, "+", 2, MSG_NOSIGNAL);
        clients.push_back(connection);
    }
    close(listener);
    for (const int connection : clients) awaitClose(connection);
    note("done");
    return 0;
}

// SPDX-License-Identifier: MIT
/* Helpers of the protocol tests. */
#include "ProtocolTesting.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "Client.h"
#include "platform/MessageTemplate.h"
#include "platform/msgManager.h"

namespace tetherhost::test {

std::string messageLine(const char* id, ...) {
    msgManager catalogue("tetherhostclient");
    std::string messageTemplate;
    std::string line;
    catalogue.queryMsgString(id, messageTemplate);
    va_list args;
    va_start(args, id);
    fillTemplate(messageTemplate, args, line);
    va_end(args);
    return line;
}

Trace::Trace(std::string clientName) : name(std::move(clientName)) {}

Trace& Trace::post(const char* id) {
    expected.push_back(messageLine(id, name.c_str()));
    return *this;
}

Trace& Trace::post(const char* id, const std::string& text) {
    expected.push_back(messageLine(id, name.c_str(), text.c_str()));
    return *this;
}

Trace& Trace::twice(const char* id) { return post(id, name); }

Trace& Trace::number(const char* id, int value) {
    expected.push_back(messageLine(id, name.c_str(), value));
    return *this;
}

Trace& Trace::texts(const char* id, const std::string& first, const std::string& second) {
    expected.push_back(messageLine(id, first.c_str(), second.c_str()));
    return *this;
}

std::vector<char> nameBuffer(const std::string& name) {
    std::vector<char> buffer(name.begin(), name.end());
    buffer.push_back('\0');
    return buffer;
}

ScriptedPeer& introduce(ScriptedPeer& peer, const std::string& name) { return peer.expectFrame(name).ack(); }

ScriptedPeer& grantBothLocks(ScriptedPeer& peer) { return peer.play(conversationNamed("both-locks")); }

bool takeBothLocks(Client& client) { return client.Send(4, "app", "user", 0) == 0 && client.Send(33) == 0; }

std::string bothLocksBytes() { return clientBytes(conversationNamed("both-locks")); }

StdinReplacement::StdinReplacement() : saved(dup(0)) {
    const int devNull = open("/dev/null", O_RDWR | O_CLOEXEC);
    dup2(devNull, 0);
    close(devNull);
}

StdinReplacement::StdinReplacement(int descriptor) : saved(dup(0)) { dup2(descriptor, 0); }

StdinReplacement::~StdinReplacement() {
    if (saved >= 0) {
        dup2(saved, 0);
        close(saved);
    } else {
        close(0);
    }
}

void copyExecutable(const std::string& from, const std::string& to) {
    std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing);
    std::filesystem::permissions(to, std::filesystem::perms::owner_all | std::filesystem::perms::group_exec |
                                         std::filesystem::perms::others_exec);
}

pid_t spawn(const std::string& path, const std::vector<std::string>& arguments) {
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawn(&pid, path.c_str(), nullptr, nullptr, argv.data(), environ) != 0) return -1;
    return pid;
}

namespace {
template <typename Check>
bool waitUntil(int timeoutMs, Check check) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        if (check()) return true;
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

bool processExists(pid_t pid) { return !(kill(pid, 0) == -1 && errno == ESRCH); }
}  // namespace

bool waitGone(pid_t pid, int timeoutMs) {
    return waitUntil(timeoutMs, [pid] { return !processExists(pid); });
}

void endChild(pid_t pid) {
    if (pid <= 0) return;
    kill(pid, SIGKILL);
    // Collected here unless the server reaper collects it first.
    waitUntil(5000, [pid] {
        waitpid(pid, nullptr, WNOHANG);
        return !processExists(pid);
    });
}

bool serverProcessRuns() {
    return std::system("pidof -x tetherhost > /dev/null 2>&1") == 0 ||
           std::system("pidof -x tetherhostmain > /dev/null 2>&1") == 0;
}

Lines fileLines(const std::string& path) {
    Lines lines;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

bool waitForLine(const std::string& path, const std::string& line, int timeoutMs) {
    return waitUntil(timeoutMs, [&] {
        for (const std::string& present : fileLines(path))
            if (present == line) return true;
        return false;
    });
}

}  // namespace tetherhost::test

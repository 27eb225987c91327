// SPDX-License-Identifier: MIT
/* SimulatorHarness: processes, the raw client and /proc look-ups. */
#include "SimulatorHarness.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <thread>

namespace tetherhost::test {
namespace {

using Clock = std::chrono::steady_clock;

void pause(int milliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds)); }

/* The ids of all processes, from the numeric entries of /proc. */
std::vector<pid_t> allProcesses() {
    std::vector<pid_t> result;
    DIR* proc = opendir("/proc");
    if (proc == nullptr) return result;
    while (const dirent* entry = readdir(proc)) {
        char* end = nullptr;
        const long pid = std::strtol(entry->d_name, &end, 10);
        if (end != entry->d_name && *end == '\0') result.push_back(static_cast<pid_t>(pid));
    }
    closedir(proc);
    return result;
}

}  // namespace

std::string simulatorProgram() { return TETHERHOST_SIMULATOR_PROGRAM; }

ScratchDir::ScratchDir() {
    char name[] = "/tmp/tetherhost-sim-test-XXXXXX";
    path = mkdtemp(name) != nullptr ? name : "/tmp";
}

ScratchDir::~ScratchDir() {
    std::error_code ignored;
    if (path != "/tmp") std::filesystem::remove_all(path, ignored);
}

int openDescriptors(pid_t pid) {
    int count = 0;
    DIR* descriptors = opendir(("/proc/" + std::to_string(pid) + "/fd").c_str());
    if (descriptors == nullptr) return -1;
    while (const dirent* entry = readdir(descriptors)) count += entry->d_name[0] != '.' ? 1 : 0;
    closedir(descriptors);
    return count;
}

long residentKilobytes(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
    return -1;
}

TraceFollower::TraceFollower(const std::string& path) : path(path), watch(inotify_init1(IN_CLOEXEC)) {
    if (watch >= 0) inotify_add_watch(watch, path.c_str(), IN_MODIFY);
}

TraceFollower::~TraceFollower() {
    if (watch >= 0) ::close(watch);
}

bool TraceFollower::waitFor(const std::string& needle, int count, int timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    // The watch was set before the first look, so a change between a look
    // and the wait still wakes the wait.
    while (this->count(needle) < count) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd ready{watch, POLLIN, 0};
        if (left <= 0 || watch < 0 || poll(&ready, 1, static_cast<int>(left)) <= 0) return this->count(needle) >= count;
        char events[4096];
        if (read(watch, events, sizeof events) < 0) return false;
    }
    return true;
}

int TraceFollower::count(const std::string& needle) const {
    std::istringstream text(fileText(path));
    int found = 0;
    for (std::string line; std::getline(text, line);) found += line.find(needle) != std::string::npos ? 1 : 0;
    return found;
}

std::string TraceFollower::lines(const std::string& needle) const {
    std::istringstream text(fileText(path));
    std::string found;
    for (std::string line; std::getline(text, line);)
        if (line.find(needle) != std::string::npos) found += line + "\n";
    return found;
}

pid_t spawnProgram(const std::string& program, const std::vector<std::string>& arguments) {
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawn(&pid, program.c_str(), nullptr, nullptr, argv.data(), environ) != 0) return -1;
    return pid;
}

std::optional<int> waitChild(pid_t pid, int timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        int status = 0;
        const pid_t done = waitpid(pid, &status, WNOHANG);
        if (done == pid) return status;
        if (done < 0 && errno == ECHILD) {
            // Reaped by someone else (the library's SIGCHLD reaper): the
            // process is gone, its status unknown.
            return waitGone(pid, timeoutMs) ? std::optional<int>(-1) : std::nullopt;
        }
        if (Clock::now() >= deadline) return std::nullopt;
        pause(10);
    }
}

bool waitGone(pid_t pid, int timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (kill(pid, 0) == 0 || errno != ESRCH) {
        // A zombie of ours still answers kill(); collect it if it is ours.
        waitpid(pid, nullptr, WNOHANG);
        if (Clock::now() >= deadline) return false;
        pause(10);
    }
    return true;
}

std::string simulatorAlias(const ScratchDir& scratch) {
    std::string program = scratch.file("simulator-under-test");
    if (access(program.c_str(), X_OK) == 0) return program;
    if (link(simulatorProgram().c_str(), program.c_str()) != 0) {
        std::filesystem::copy_file(simulatorProgram(), program);
        chmod(program.c_str(), 0755);
    }
    return program;
}

std::unique_ptr<Simulator> Simulator::start(int port, const std::vector<std::string>& options) {
    return launch(port, {}, options);
}

std::unique_ptr<Simulator> Simulator::startLimited(int port, const std::string& ulimitArguments,
                                                   const std::vector<std::string>& options) {
    return launch(port, ulimitArguments, options);
}

std::unique_ptr<Simulator> Simulator::launch(int port, const std::string& ulimitArguments,
                                             const std::vector<std::string>& options) {
    std::unique_ptr<Simulator> simulator(new Simulator);
    std::string program = simulatorAlias(simulator->scratch);
    const std::string pidFile = simulator->file("simulator.pid");
    std::vector<std::string> arguments = {"simulator-under-test", "--port", std::to_string(port), "--pid-file",
                                          pidFile};
    arguments.insert(arguments.end(), options.begin(), options.end());
    if (!ulimitArguments.empty()) {
        // The shell sets the limits and becomes the simulator (same pid).
        arguments[0] = program;
        arguments.insert(arguments.begin(), {"sh", "-c", "ulimit " + ulimitArguments + " && exec \"$0\" \"$@\""});
        program = "/bin/sh";
    }
    // Another program on this machine may hold the port for a while (4001
    // is everybody's): wait for it, and start again when it was taken
    // between the look and the bind (the simulator then exits with 1).
    const auto deadline = Clock::now() + std::chrono::seconds(60);
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (!waitPortFree(port, static_cast<int>(std::max<long>(left.count(), 0)))) return nullptr;
        simulator->process = spawnProgram(program, arguments);
        if (simulator->process < 0) return nullptr;
        // The pid file is written once the port is listening.
        const auto startDeadline = Clock::now() + std::chrono::seconds(5);
        int status = 0;
        bool exited = false;
        while (fileText(pidFile) != std::to_string(simulator->process) + "\n") {
            if (waitpid(simulator->process, &status, WNOHANG) == simulator->process) {
                exited = true;
                break;
            }
            if (Clock::now() >= startDeadline) return nullptr;
            pause(5);
        }
        if (!exited) return simulator;
        const bool portTaken = WIFEXITED(status) && WEXITSTATUS(status) == 1;
        if (!portTaken || Clock::now() >= deadline) {
            simulator->status = status;
            return nullptr;
        }
    }
}

Simulator::~Simulator() {
    if (process < 0 || status) return;
    if (!stop(SIGTERM)) {
        kill(process, SIGKILL);
        waitChild(process, 5000);
    }
}

std::optional<int> Simulator::stop(int signal, int timeoutMs) {
    if (status) return status;
    kill(process, signal);
    return waitExit(timeoutMs);
}

std::optional<int> Simulator::waitExit(int timeoutMs) {
    if (!status) status = waitChild(process, timeoutMs);
    return status;
}

std::unique_ptr<TracedSimulator> TracedSimulator::start(int port, const std::vector<std::string>& options) {
    std::unique_ptr<TracedSimulator> simulator(new TracedSimulator);
    TracedSimulator& self = *simulator;
    const std::string pidFile = self.scratch.file("simulator.pid");
    std::ofstream(pidFile, std::ios::trunc).flush();
    std::ofstream(self.trace(), std::ios::trunc).flush();
    TraceFollower pid(pidFile);
    std::vector<std::string> arguments = {"sh",
                                          "-c",
                                          "errors=$1; shift; exec \"$@\" 2>\"$errors\"",
                                          "sh",
                                          self.scratch.file("stderr.txt"),
                                          simulatorAlias(self.scratch),
                                          "--port",
                                          std::to_string(port),
                                          "--pid-file",
                                          pidFile,
                                          "--trace",
                                          self.trace()};
    arguments.insert(arguments.end(), options.begin(), options.end());
    self.process = spawnProgram("/bin/sh", arguments);
    if (self.process < 0) return nullptr;
    // The pid file is written once the port is listening.
    if (!pid.waitFor(std::to_string(self.process))) return nullptr;
    return simulator;
}

TracedSimulator::~TracedSimulator() {
    if (process < 0 || status) return;
    kill(process, SIGKILL);
    waitChild(process, 5000);
}

int TracedSimulator::exitStatus() {
    if (!status) status = waitChild(process, 10000);
    return status && WIFEXITED(*status) ? WEXITSTATUS(*status) : -1;
}

int TracedSimulator::stop() {
    if (!status) kill(process, SIGTERM);
    return exitStatus();
}

std::string TracedSimulator::errors() const { return fileText(scratch.file("stderr.txt")); }

/* The inode of the socket listening on 127.0.0.1:`port`; empty when none. */
static std::string listeningInode(int port) {
    char local[32];
    std::snprintf(local, sizeof local, "0100007F:%04X", port);
    std::istringstream table(fileText("/proc/net/tcp"));
    std::string line;
    while (std::getline(table, line)) {
        std::istringstream fields(line);
        std::string slot, localAddress, remoteAddress, state, queues, timer, retransmits, uid, timeout, inode;
        fields >> slot >> localAddress >> remoteAddress >> state >> queues >> timer >> retransmits >> uid >> timeout >>
            inode;
        if (localAddress == local && state == "0A") return inode;
    }
    return {};
}

bool portListening(int port) { return !listeningInode(port).empty(); }

bool waitPortFree(int port, int timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (portListening(port)) {
        if (Clock::now() >= deadline) return false;
        pause(50);
    }
    return true;
}

pid_t listeningOwner(int port) {
    const std::string inode = listeningInode(port);
    if (inode.empty()) return -1;
    const std::string target = "socket:[" + inode + "]";
    for (const pid_t pid : allProcesses()) {
        const std::string fdDir = "/proc/" + std::to_string(pid) + "/fd";
        DIR* fds = opendir(fdDir.c_str());
        if (fds == nullptr) continue;
        bool owns = false;
        while (const dirent* entry = readdir(fds)) {
            char link[64] = {};
            const std::string path = fdDir + "/" + entry->d_name;
            if (readlink(path.c_str(), link, sizeof link - 1) > 0 && target == link) owns = true;
        }
        closedir(fds);
        if (owns) return pid;
    }
    return -1;
}

std::vector<pid_t> processesNamed(const std::string& name) {
    std::vector<pid_t> result;
    for (const pid_t pid : allProcesses()) {
        std::string comm = fileText("/proc/" + std::to_string(pid) + "/comm");
        if (!comm.empty() && comm.back() == '\n') comm.pop_back();
        if (comm == name) result.push_back(pid);
    }
    return result;
}

RawClient::RawClient(int port) {
    socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const timeval patience{10, 0};
    if (socket < 0 || setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience) != 0 ||
        connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        close();
    }
}

RawClient::~RawClient() { close(); }

void RawClient::close() {
    if (socket >= 0) ::close(socket);
    socket = -1;
}

bool RawClient::send(std::string_view bytes) {
    return socket >= 0 &&
           ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

std::string RawClient::receive(std::size_t capacity) {
    std::string buffer(capacity, '\0');
    const ssize_t received = socket >= 0 ? recv(socket, buffer.data(), capacity, 0) : -1;
    buffer.resize(received > 0 ? static_cast<std::size_t>(received) : 0);
    return buffer;
}

std::string RawClient::exchange(const std::string& token, std::size_t capacity) {
    if (!send(std::string_view(token.c_str(), token.size() + 1))) return {};
    return receive(capacity);
}

bool RawClient::introduce(const std::string& name) { return exchange(name) == plus; }

std::string RawClient::replyText() {
    if (!send(plus)) return {};
    const std::string reply = receive(1024);
    return reply.substr(0, reply.find('\0'));
}

int RawClient::reply() { return static_cast<int>(std::strtol(replyText().c_str(), nullptr, 10)); }

std::string RawClient::openSession() {
    exchange("4");
    exchange("application");
    exchange("user");
    for (const char* option : {"0", "0", "0", "1", "0", "0", "0", "1", "0", "0"}) exchange(option);
    if (!send(plus)) return {};
    return receive(2);
}

std::string RawClient::commandLock() {
    exchange("33");
    if (!send(plus)) return {};
    return receive(2);
}

bool RawClient::takeLocks() { return openSession() == wire("1\0") && commandLock() == wire("1\0"); }

int RawClient::leave() {
    exchange("9999");
    const int result = reply();
    close();
    return result;
}

JtagShiftReply RawClient::jtagShift(const JtagShift& shift) {
    JtagShiftReply result;
    bool framed = exchange("44") == plus && exchange("12", 2) == plus;
    for (const int token : {shift.flags, shift.bitCount, shift.withSecond, shift.withThird})
        framed = exchange(std::to_string(token), 2) == plus && framed;
    const int byteCount = (shift.bitCount + 7) / 8;
    const int chunkCount = (byteCount + 1023) / 1024;
    std::vector<const std::string*> blocks = {&shift.first};
    if (shift.withSecond != 0) blocks.push_back(&shift.second);
    if (shift.withThird != 0) blocks.push_back(&shift.third);
    for (const std::string* block : blocks) {
        if (byteCount <= 1024) {
            std::string data = block->substr(0, static_cast<std::size_t>(byteCount));
            data.resize(static_cast<std::size_t>(byteCount) + 1, '\0');
            framed = send(data) && receive(1024) == plus && framed;
            continue;
        }
        for (int i = 0; i < chunkCount; ++i) {
            std::string chunk = block->size() > static_cast<std::size_t>(i) * 1024
                                    ? block->substr(static_cast<std::size_t>(i) * 1024, 1024)
                                    : "";
            chunk.resize(1024, '\0');
            framed = send(chunk) && receive(2) == plus && framed;
        }
    }
    framed = send(plus) && framed;
    result.status = receive(1024);
    result.framed = framed;
    const long status = std::strtol(result.status.c_str(), nullptr, 10);
    if ((shift.withSecond & 1) == 0 || status < 0 || (shift.flags & 2) != 0) return result;
    // A stream socket may bring the read-back's first bytes in the status's
    // receive: they begin the read-back, as the library takes them.
    const std::size_t textEnd = result.status.find('\0');
    if (textEnd != std::string::npos) {
        result.readBack = result.status.substr(textEnd + 1);
        result.status.resize(textEnd + 1);
    }
    const std::size_t firstPart =
        byteCount <= 1024 ? std::max<std::size_t>(static_cast<std::size_t>(byteCount), 1) : 1024;
    if (result.readBack.size() < firstPart) result.readBack += receive(1024 - result.readBack.size());
    if (byteCount <= 1024) return result;
    result.framed = send(plus) && result.framed;
    for (int i = 1; i < chunkCount; ++i) {
        result.readBack += receive(1024);
        result.framed = send(plus) && result.framed;
    }
    return result;
}

bool RawClient::closedByServer() {
    char byte = 0;
    return socket >= 0 && recv(socket, &byte, 1, 0) == 0;
}

long statusField(const std::string& report, const std::string& key) {
    const std::size_t at = report.find(";" + key + "=");
    if (at == std::string::npos) return -1;
    return std::strtol(report.c_str() + at + key.size() + 2, nullptr, 10);
}

long settledHeap(int port) {
    RawClient probe(port);
    if (!probe.introduce("heap-probe")) return -1;
    long heap = -1;
    const auto deadline = Clock::now() + std::chrono::seconds(5);
    for (;;) {
        probe.exchange("1");
        probe.reply();
        const std::string report = probe.replyText();
        if (statusField(report, "clients") == 1) {
            heap = statusField(report, "heap");
            break;
        }
        if (Clock::now() >= deadline) break;
        pause(20);
    }
    probe.leave();
    return heap;
}

std::string bitString(const std::vector<bool>& bits) {
    std::string bytes((bits.size() + 7) / 8, '\0');
    for (std::size_t i = 0; i < bits.size(); ++i)
        if (bits[i]) bytes[i / 8] = static_cast<char>(bytes[i / 8] | (1 << (i % 8)));
    return bytes;
}

bool bitOf(const std::string& bytes, std::size_t index) {
    return index / 8 < bytes.size() && ((static_cast<unsigned char>(bytes[index / 8]) >> (index % 8)) & 1U) != 0;
}

std::string littleEndian(unsigned value) {
    std::string bytes(4, '\0');
    for (int i = 0; i < 4; ++i) bytes[static_cast<std::size_t>(i)] = static_cast<char>((value >> (8 * i)) & 0xFFU);
    return bytes;
}

std::string pattern(std::size_t count, unsigned seed) {
    std::mt19937 generator(seed);
    std::string bytes(count, '\0');
    for (char& byte : bytes) byte = static_cast<char>(generator() & 0xFFU);
    return bytes;
}

std::string delayed(const std::string& tdi, std::size_t bitCount, std::size_t delay) {
    std::vector<bool> bits(std::min(delay, bitCount), false);
    for (std::size_t i = 0; i + delay < bitCount; ++i) bits.push_back(bitOf(tdi, i));
    return bitString(bits);
}

std::string unframe(const std::string& framed) {
    std::string data;
    for (std::size_t offset = 0; offset < framed.size(); offset += 1024) data += framed.substr(offset + 1, 1023);
    return data;
}

std::string fileText(const std::string& path) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

int runTool(const std::vector<std::string>& arguments, const std::string& outputPath, std::string& output) {
    std::vector<std::string> shell = {"sh", "-c", "out=$1; shift; exec \"$@\" >\"$out\" 2>&1", "sh", outputPath};
    shell.insert(shell.end(), arguments.begin(), arguments.end());
    const pid_t pid = spawnProgram("/bin/sh", shell);
    const std::optional<int> status = waitChild(pid, 60000);
    if (!status) {
        kill(pid, SIGKILL);
        waitChild(pid, 5000);
    }
    output = fileText(outputPath);
    return status.value_or(-1);
}

std::vector<std::string> openOcdOnDoor(const std::string& openocd, int doorPort) {
    return {openocd,
            "-c",
            "adapter driver remote_bitbang",
            "-c",
            "remote_bitbang host 127.0.0.1",
            "-c",
            "remote_bitbang port " + std::to_string(doorPort),
            "-c",
            "transport select jtag"};
}

}  // namespace tetherhost::test

// SPDX-License-Identifier: MIT
/* The benchmarks' processes: scratch directories, children, the simulator. */
#include "BenchProcesses.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/inotify.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace tetherhost::bench {

namespace {

using Clock = std::chrono::steady_clock;

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

/* A descriptor closed with its owner. */
struct Descriptor {
    explicit Descriptor(int number) : number(number) {}
    ~Descriptor() {
        if (number >= 0) ::close(number);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    const int number;
};

}  // namespace

std::string fileText(const std::string& path) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

Cpu Cpu::of(const rusage& usage) { return {seconds(usage.ru_utime), seconds(usage.ru_stime)}; }

ScratchDir::ScratchDir(const std::string& purpose) {
    std::string name = "/tmp/tetherhost-" + purpose + "-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("cannot make a scratch directory");
    path = name;
}

ScratchDir::~ScratchDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

Child::Child(const std::string& program, const std::vector<std::string>& arguments, const std::string& outputPath) {
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (!outputPath.empty()) {
        posix_spawn_file_actions_addopen(&actions, 1, outputPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        posix_spawn_file_actions_adddup2(&actions, 1, 2);
    }
    const int failed = posix_spawn(&process, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failed != 0) throw std::runtime_error("cannot start " + program);
    // Through syscall: glibc 2.36's <sys/pidfd.h> lacks C linkage for C++.
    watch = static_cast<int>(syscall(SYS_pidfd_open, process, 0));
    if (watch < 0) {
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
        throw std::runtime_error("cannot watch " + program);
    }
}

Child::~Child() {
    end();
    if (watch >= 0) ::close(watch);
}

std::optional<int> Child::wait(std::chrono::milliseconds patience) {
    if (status) return status;
    pollfd ended{watch, POLLIN, 0};
    if (poll(&ended, 1, static_cast<int>(patience.count())) != 1) return std::nullopt;
    int result = 0;
    if (wait4(process, &result, 0, &usage) != process) return std::nullopt;
    status = result;
    return status;
}

double Child::cpuSeconds() const {
    if (status) return cpu().total();
    clockid_t clock{};
    timespec used{};
    if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &used) != 0) return 0;
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

void Child::end() {
    if (status) return;
    kill(process, SIGTERM);
    if (!wait(std::chrono::seconds(5))) {
        kill(process, SIGKILL);
        wait(std::chrono::seconds(5));
    }
}

Simulator::Simulator(const std::string& program, const std::vector<std::string>& options) {
    const std::string pidFile = scratch.file("tetherhost.pid");
    std::vector<std::string> arguments = {"tetherhost", "--idle-exit", "0", "--pid-file", pidFile};
    arguments.insert(arguments.end(), options.begin(), options.end());
    // The watch is set before the start, so the write cannot be missed.
    const Descriptor changes(inotify_init1(IN_CLOEXEC));
    if (changes.number < 0 || inotify_add_watch(changes.number, scratch.directory().c_str(), IN_CLOSE_WRITE) < 0)
        throw std::runtime_error("cannot watch the scratch directory");
    process.emplace(program, arguments);
    const auto deadline = Clock::now() + std::chrono::seconds(10);
    while (fileText(pidFile).empty()) {
        pollfd events[] = {{changes.number, POLLIN, 0}, {process->exitDescriptor(), POLLIN, 0}};
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        char drained[4096];
        if (left.count() <= 0 || poll(events, 2, static_cast<int>(left.count())) <= 0 ||
            (events[1].revents & POLLIN) != 0 || read(changes.number, drained, sizeof drained) < 0)
            throw std::runtime_error("the simulator did not start listening");
    }
}

ProcessRun runProgram(const std::string& program, const std::vector<std::string>& arguments,
                      const std::string& outputPath, std::chrono::milliseconds patience) {
    const auto start = Clock::now();
    Child child(program, arguments, outputPath);
    const std::optional<int> status = child.wait(patience);
    const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    const std::string output = fileText(outputPath);
    if (!status) throw std::runtime_error(arguments[0] + " did not finish:\n" + output);
    if (!WIFEXITED(*status) || WEXITSTATUS(*status) != 0)
        throw std::runtime_error(arguments[0] + " failed:\n" + output);
    return {output, elapsed, child.cpu(), child.peakResidentKiB()};
}

}  // namespace tetherhost::bench

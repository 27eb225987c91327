// SPDX-License-Identifier: MIT
/* Running programs for the tool tests. */
#include "ProgramRunner.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

namespace tetherhost::test {

namespace {

double now() { return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count(); }

/* In the child: the environment additions, then exec; never returns. */
[[noreturn]] void execute(const std::vector<std::string>& argv, const std::vector<std::string>& environment) {
    for (const std::string& setting : environment) {
        const std::size_t equals = setting.find('=');
        setenv(setting.substr(0, equals).c_str(), setting.substr(equals + 1).c_str(), 1);
    }
    std::vector<char*> arguments;
    arguments.reserve(argv.size() + 1);
    for (const std::string& argument : argv) arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    execv(arguments[0], arguments.data());
    _exit(127);
}

void recordStatus(Finished& result, int status) {
    if (WIFEXITED(status)) {
        result.exitCode = WEXITSTATUS(status);
    } else if (WIFSIGNALED(status)) {
        result.signal = WTERMSIG(status);
    }
}

/* Waits for `pid` at most `timeoutMs`; kills it when the time is up. */
void reap(pid_t pid, Finished& result, int timeoutMs) {
    const double deadline = now() + timeoutMs / 1000.0;
    int status = 0;
    for (;;) {
        const pid_t done = waitpid(pid, &status, WNOHANG);
        if (done == pid) break;
        if (done < 0) return;
        if (now() > deadline) {
            result.timedOut = true;
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    recordStatus(result, status);
}

}  // namespace

RunningProgram::RunningProgram(const std::vector<std::string>& argv, const std::vector<std::string>& environment) {
    int out[2];
    int err[2];
    if (pipe(out) != 0 || pipe(err) != 0) return;
    started = now();
    child = fork();
    if (child == 0) {
        dup2(out[1], STDOUT_FILENO);
        dup2(err[1], STDERR_FILENO);
        close(out[0]);
        close(out[1]);
        close(err[0]);
        close(err[1]);
        execute(argv, environment);
    }
    close(out[1]);
    close(err[1]);
    outPipe = out[0];
    errPipe = err[0];
}

RunningProgram::~RunningProgram() {
    if (child > 0 && result.exitCode < 0 && result.signal == 0) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    if (outPipe >= 0) close(outPipe);
    if (errPipe >= 0) close(errPipe);
}

void RunningProgram::drain(int timeoutMs) {
    const double deadline = now() + timeoutMs / 1000.0;
    while (outPipe >= 0 || errPipe >= 0) {
        pollfd watched[2] = {{outPipe, POLLIN, 0}, {errPipe, POLLIN, 0}};
        const int remaining = static_cast<int>((deadline - now()) * 1000);
        if (remaining <= 0) return;
        if (poll(watched, 2, remaining) <= 0) return;
        for (int i = 0; i < 2; ++i) {
            int& descriptor = i == 0 ? outPipe : errPipe;
            if (descriptor < 0 || watched[i].revents == 0) continue;
            char buffer[4096];
            const ssize_t count = read(descriptor, buffer, sizeof buffer);
            if (count <= 0) {
                close(descriptor);
                descriptor = -1;
            } else {
                (i == 0 ? result.out : result.err).append(buffer, static_cast<std::size_t>(count));
            }
        }
    }
}

std::string RunningProgram::outputSoFar() {
    for (int descriptor : {outPipe, errPipe}) {
        if (descriptor < 0) continue;
        pollfd watched{descriptor, POLLIN, 0};
        while (poll(&watched, 1, 0) == 1) {
            char buffer[4096];
            const ssize_t count = read(descriptor, buffer, sizeof buffer);
            if (count <= 0) break;
            (descriptor == outPipe ? result.out : result.err).append(buffer, static_cast<std::size_t>(count));
        }
    }
    return result.out + result.err;
}

Finished RunningProgram::finish(int timeoutMs) {
    drain(timeoutMs);
    reap(child, result, timeoutMs);
    result.seconds = now() - started;
    return result;
}

Finished runProgram(const std::vector<std::string>& argv, const std::vector<std::string>& environment, int timeoutMs) {
    RunningProgram program(argv, environment);
    return program.finish(timeoutMs);
}

Finished runInTerminal(const std::vector<std::string>& argv, int timeoutMs) {
    Finished result;
    int terminal = -1;
    const double started = now();
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child < 0) return result;
    if (child == 0) execute(argv, {});
    const double deadline = started + timeoutMs / 1000.0;
    for (;;) {
        pollfd watched{terminal, POLLIN, 0};
        const int remaining = static_cast<int>((deadline - now()) * 1000);
        if (remaining <= 0 || poll(&watched, 1, remaining) <= 0) break;
        char buffer[4096];
        const ssize_t count = read(terminal, buffer, sizeof buffer);
        if (count <= 0) break;  // EIO once the program and its children have closed the terminal
        result.out.append(buffer, static_cast<std::size_t>(count));
    }
    close(terminal);
    reap(child, result, timeoutMs);
    result.seconds = now() - started;
    return result;
}

Simulator::Simulator(const std::vector<std::string>& options) {
    const std::string pidFile = folder.file("pid");
    // Run under another name, so that the simulator never counts as a
    // running "tetherhost" for the server detection of Connect.
    const std::string program = folder.file("tool-test-simulator");
    std::error_code linkError;
    std::filesystem::create_symlink(TETHERHOST_PATH, program, linkError);
    std::vector<std::string> argv = {program,   "--idle-exit",       "120", "--pid-file", pidFile,
                                     "--trace", folder.file("trace")};
    argv.insert(argv.end(), options.begin(), options.end());
    const std::string errors = folder.file("stderr");
    child = fork();
    if (child == 0) {
        const int log = open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(log, STDOUT_FILENO);
        dup2(log, STDERR_FILENO);
        execute(argv, {});
    }
    // The simulator writes its pid file once it listens.
    const double deadline = now() + 10;
    while (!std::filesystem::exists(pidFile)) {
        int status = 0;
        if (waitpid(child, &status, WNOHANG) == child) {
            child = -1;
            problem = "the simulator ended at once: " + readFile(errors);
            return;
        }
        if (now() > deadline) {
            problem = "the simulator did not start listening within 10 seconds";
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

Simulator::~Simulator() {
    if (child <= 0) return;
    kill(child, SIGTERM);
    Finished ignored;
    reap(child, ignored, 10000);
}

std::string Simulator::trace() const { return readFile(folder.file("trace")); }

std::unique_ptr<Simulator> startSimulator(const std::vector<std::string>& options) {
    constexpr int attempts = 5;
    std::unique_ptr<Simulator> simulator;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        waitForPort4001();
        simulator = std::make_unique<Simulator>(options);
        if (simulator->failure().find("Address already in use") == std::string::npos) break;
    }
    return simulator;
}

bool port4001Taken() {
    std::istringstream table(readFile("/proc/net/tcp"));
    std::string line;
    std::getline(table, line);  // the column titles
    while (std::getline(table, line)) {
        std::istringstream fields(line);
        std::string slot;
        std::string local;
        std::string remote;
        std::string state;
        fields >> slot >> local >> remote >> state;
        constexpr const char* listening = "0A";
        if (state == listening && (local == "0100007F:0FA1" || local == "00000000:0FA1")) return true;
    }
    return false;
}

bool waitForPort4001(int seconds) {
    const double deadline = now() + seconds;
    while (port4001Taken()) {
        if (now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    return true;
}

bool tetherhostProcessRuns() {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
        const std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") != std::string::npos) continue;
        std::string command = readFile(entry.path().string() + "/comm");
        if (command == "tetherhost\n" || command == "tetherhostmain\n") return true;
    }
    return false;
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << bytes;
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

}  // namespace tetherhost::test

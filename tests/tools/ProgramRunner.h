// SPDX-License-Identifier: MIT
/* Helpers for the tests of tetherctl and the examples: running a program
 * with its output captured (on pipes or on a pseudo-terminal), starting and
 * stopping the tetherhost simulator by its process id, temporary folders and
 * files. */
#ifndef TETHERHOST_TESTS_TOOLS_PROGRAMRUNNER_H
#define TETHERHOST_TESTS_TOOLS_PROGRAMRUNNER_H

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "TempDir.h"

namespace tetherhost::test {

struct Finished {
    int exitCode = -1;  // -1 when the program was ended by a signal
    int signal = 0;
    bool timedOut = false;
    std::string out;
    std::string err;
    double seconds = 0;
};

/** A program started with its standard output and error on pipes. The
 * environment gets `environment` ("NAME=value") on top of this process's. */
class RunningProgram {
public:
    RunningProgram(const std::vector<std::string>& argv, const std::vector<std::string>& environment = {});
    ~RunningProgram();
    RunningProgram(const RunningProgram&) = delete;
    RunningProgram& operator=(const RunningProgram&) = delete;

    pid_t pid() const { return child; }
    /** Output so far, without waiting. */
    std::string outputSoFar();
    /** Reads both streams to their end (also from the program's own children
     * that keep them open) and reaps the program; kills it after `timeoutMs`. */
    Finished finish(int timeoutMs = 60000);

private:
    void drain(int timeoutMs);

    pid_t child = -1;
    int outPipe = -1;
    int errPipe = -1;
    Finished result;
    double started = 0;
};

/** Runs `argv` to its end. */
Finished runProgram(const std::vector<std::string>& argv, const std::vector<std::string>& environment = {},
                    int timeoutMs = 60000);

/** Runs `argv` with standard output and error on a pseudo-terminal; `out`
 * holds everything written to it. */
Finished runInTerminal(const std::vector<std::string>& argv, int timeoutMs = 60000);

/** The tetherhost simulator on 127.0.0.1:4001, started with --pid-file and
 * --trace in a folder of its own, from a link named tool-test-simulator;
 * ready when the constructor returns without a failure. The destructor stops
 * it with SIGTERM to its process id. */
class Simulator {
public:
    explicit Simulator(const std::vector<std::string>& options = {});
    ~Simulator();
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    /** Empty when the simulator listens; otherwise why it does not. */
    const std::string& failure() const { return problem; }
    pid_t pid() const { return child; }
    /** The simulator's trace so far: one line per frame. */
    std::string trace() const;

private:
    TempDir folder;
    pid_t child = -1;
    std::string problem;
};

/** Starts the simulator once port 4001 is free, trying again (up to five
 * times) when another program takes the port first; the last attempt's
 * failure() tells why when none succeeded. */
std::unique_ptr<Simulator> startSimulator(const std::vector<std::string>& options = {});

/** A socket listens on port 4001 of 127.0.0.1 (or of every address). Read
 * from /proc/net/tcp, without connecting: a probe connection would count as
 * a client and keep an idle server alive. */
bool port4001Taken();
/** Waits up to `seconds` for port 4001 to be free (a server that Connect
 * started earlier ends after a minute without clients); true when it is. */
bool waitForPort4001(int seconds = 70);
/** A process named tetherhost runs on this machine (Connect would then not
 * start one). */
bool tetherhostProcessRuns();

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& bytes);

/** The lines of `text`, without their newlines. */
std::vector<std::string> linesOf(const std::string& text);

}  // namespace tetherhost::test

#endif

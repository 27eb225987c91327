// SPDX-License-Identifier: MIT
/* BenchProcesses: what the benchmarks that drive other programs (OpenOCD,
 * openFPGALoader, tetherctl, the simulator) need to run them: a scratch
 * directory, processes watched through a pidfd and ended by their pid, the
 * simulator started and ready once its pid file is written, and a tool run
 * to its end with its output, time, CPU and peak memory. Nothing waits by
 * sleeping: readiness and ends are polled events. */
#ifndef TETHERHOST_BENCH_BENCHPROCESSES_H
#define TETHERHOST_BENCH_BENCHPROCESSES_H

#include <sys/resource.h>
#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace tetherhost::bench {

/** The whole text of a file; "" when it cannot be read. */
std::string fileText(const std::string& path);

/** User and system CPU time in seconds. */
struct Cpu {
    double user = 0;
    double system = 0;

    static Cpu of(const rusage& usage);
    double total() const { return user + system; }
    Cpu operator-(const Cpu& before) const { return {user - before.user, system - before.system}; }
};

/** A private temporary directory named after `purpose`, removed with its
 * contents. */
class ScratchDir {
public:
    explicit ScratchDir(const std::string& purpose);
    ~ScratchDir();
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;
    const std::string& directory() const { return path; }
    std::string file(const std::string& name) const { return path + "/" + name; }

private:
    std::string path;
};

/** A process of ours, watched through a pidfd, so that waiting for its end
 * is a poll; ended by its pid (SIGTERM, then SIGKILL) unless it has ended. */
class Child {
public:
    /** Starts `program` with `arguments` (argument zero included); with an
     * `outputPath`, its standard output and error go to that file. */
    Child(const std::string& program, const std::vector<std::string>& arguments, const std::string& outputPath = {});
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    /** Readable once the process has ended. */
    int exitDescriptor() const { return watch; }
    /** Waits at most `patience` for the process to end; its wait status, or
     * nullopt when it is still running. */
    std::optional<int> wait(std::chrono::milliseconds patience);
    /** CPU the process used, once it has ended. */
    Cpu cpu() const { return Cpu::of(usage); }
    /** CPU seconds the process has used so far, all its threads (once it
     * has ended: in all). */
    double cpuSeconds() const;
    /** Its peak resident memory in KiB, once it has ended. */
    long peakResidentKiB() const { return usage.ru_maxrss; }

private:
    void end();

    pid_t process = -1;
    int watch = -1;
    std::optional<int> status;
    rusage usage{};
};

/** The tetherhost simulator (`program`) on 127.0.0.1:4001 with `options`,
 * ready once its pid file is written (after every port listens); ended when
 * it goes. */
class Simulator {
public:
    Simulator(const std::string& program, const std::vector<std::string>& options);
    double cpuSeconds() const { return process->cpuSeconds(); }

private:
    ScratchDir scratch{"simulator"};
    std::optional<Child> process;
};

/** What a program run to its end did. */
struct ProcessRun {
    std::string output;
    double seconds = 0;  // from its start to its end, by our clock
    Cpu cpu;
    long peakResidentKiB = 0;
};

/** Runs a program to its end, its output in `outputPath`. Throws when it
 * fails or outlives `patience`. */
ProcessRun runProgram(const std::string& program, const std::vector<std::string>& arguments,
                      const std::string& outputPath, std::chrono::milliseconds patience);

}  // namespace tetherhost::bench

#endif

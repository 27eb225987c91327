/* DoorBench: how fast the tools people drive cables with go through the
 * simulator's doors. OpenOCD's drscan rate (32 and 4096 bits) through the
 * remote_bitbang door and, in runs paired with those, through MinimalBitbang
 * on the same one-TAP chain, so that the door's own cost shows beside OpenOCD's;
 * the same scans through the library (command 44, sub-command 12); and
 * openFPGALoader's --detect time through the XVC door (Debian's OpenOCD has
 * no XVC client). OpenOCD times its scans itself, in its Tcl after init, so
 * its start-up does not count. Every process started here is ended by its
 * pid. The simulator takes 127.0.0.1:4001, so this runs in a private network
 * namespace: scripts/bench-doors.sh, or bench/report with the others. */
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "Client.h"
#include "MinimalBitbang.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int doorPort = 44853;
constexpr int minimalPort = 44854;
constexpr int xvcPort = 2542;
/* Both remote_bitbang servers hold one TAP shaped as chains/xc7a35t.json
 * describes the Artix-7 XC7A35T, which openFPGALoader also knows. */
constexpr const char* chainName = "xc7a35t";
constexpr int irLength = 6;
constexpr std::uint32_t idcode = 0x0362D093;
constexpr int idcodeInstruction = 0x09;
constexpr auto toolPatience = std::chrono::minutes(2);

char clientName[] = "doorbench";

/* OpenOCD's side of the measure: COUNT data scans of BITS bits of VALUE
 * after one untimed scan, timed with OpenOCD's own clock; it prints the
 * time and the last scan's TDO on one line. */
constexpr const char* rateScript = R"(proc drscan_rate {tap instruction bits count value} {
    irscan $tap $instruction
    drscan $tap $bits $value
    set start [clock microseconds]
    for {set i 0} {$i < $count} {incr i} {
        set tdo [drscan $tap $bits $value]
    }
    set elapsed [expr {[clock microseconds] - $start}]
    echo "drscan_rate $elapsed $tdo"
}
)";

std::string fileText(const std::string& path) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

/* A private temporary directory, removed with its contents. */
class ScratchDir {
public:
    ScratchDir() {
        char name[] = "/tmp/tetherhost-doorbench-XXXXXX";
        if (mkdtemp(name) == nullptr) throw std::runtime_error("cannot make a scratch directory");
        path = name;
    }
    ~ScratchDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;
    const std::string& directory() const { return path; }
    std::string file(const std::string& name) const { return path + "/" + name; }

private:
    std::string path;
};

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

/* A process of ours, watched through a pidfd, so that waiting for its end
 * is a poll; ended by its pid (SIGTERM, then SIGKILL) unless it has ended. */
class Child {
public:
    /** Starts `program` with `arguments` (argument zero included); with an
     * `outputPath`, its standard output and error go to that file. */
    Child(const std::string& program, const std::vector<std::string>& arguments, const std::string& outputPath = {}) {
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
    ~Child() {
        end();
        if (watch >= 0) ::close(watch);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    /** Readable once the process has ended. */
    int exitDescriptor() const { return watch; }
    /** Waits at most `patience` for the process to end; its wait status, or
     * nullopt when it is still running. */
    std::optional<int> wait(std::chrono::milliseconds patience) {
        if (status) return status;
        pollfd ended{watch, POLLIN, 0};
        if (poll(&ended, 1, static_cast<int>(patience.count())) != 1) return std::nullopt;
        int result = 0;
        rusage usage{};
        if (wait4(process, &result, 0, &usage) != process) return std::nullopt;
        status = result;
        endedCpu = seconds(usage.ru_utime) + seconds(usage.ru_stime);
        return status;
    }
    /** CPU seconds the process has used so far, all its threads (once it
     * has ended: in all). */
    double cpuSeconds() const {
        if (status) return endedCpu;
        clockid_t clock{};
        timespec used{};
        if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &used) != 0) return 0;
        return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
    }

private:
    static double seconds(const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    }
    void end() {
        if (status) return;
        kill(process, SIGTERM);
        if (!wait(std::chrono::seconds(5))) {
            kill(process, SIGKILL);
            wait(std::chrono::seconds(5));
        }
    }

    pid_t process = -1;
    int watch = -1;
    std::optional<int> status;
    double endedCpu = 0;
};

/* The tetherhost simulator on 127.0.0.1:4001 with `options`, ready once its
 * pid file is written (after every port listens), for the benchmark's life. */
class Simulator {
public:
    explicit Simulator(const std::vector<std::string>& options) {
        const std::string pidFile = scratch.file("tetherhost.pid");
        std::vector<std::string> arguments = {"tetherhost", "--idle-exit", "0", "--pid-file", pidFile};
        arguments.insert(arguments.end(), options.begin(), options.end());
        // The watch is set before the start, so the write cannot be missed.
        const Descriptor changes(inotify_init1(IN_CLOEXEC));
        if (changes.number < 0 || inotify_add_watch(changes.number, scratch.directory().c_str(), IN_CLOSE_WRITE) < 0)
            throw std::runtime_error("cannot watch the scratch directory");
        process.emplace(TETHERHOST_SIMULATOR_PROGRAM, arguments);
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
    double cpuSeconds() const { return process->cpuSeconds(); }

private:
    ScratchDir scratch;
    std::optional<Child> process;
};

struct ToolRun {
    std::string output;
    double cpuSeconds = 0;
};

/* Runs a tool to its end, its output in `outputPath`: what it printed and
 * the CPU it used. Throws when it fails or outlives toolPatience. */
ToolRun runTool(const std::string& program, const std::vector<std::string>& arguments, const std::string& outputPath) {
    Child tool(program, arguments, outputPath);
    const std::optional<int> status = tool.wait(toolPatience);
    const std::string output = fileText(outputPath);
    if (!status) throw std::runtime_error(arguments[0] + " did not finish:\n" + output);
    if (!WIFEXITED(*status) || WEXITSTATUS(*status) != 0)
        throw std::runtime_error(arguments[0] + " failed:\n" + output);
    return {output, tool.cpuSeconds()};
}

/* The TDI of the benchmark's scans: a fixed pattern of (bits + 7) / 8 bytes. */
std::vector<unsigned char> scanPattern(int bits) {
    std::vector<unsigned char> bytes(static_cast<std::size_t>((bits + 7) / 8));
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>((i * 37 + 11) & 0xFFU);
    return bytes;
}

/* What a data scan of `tdi` through the 32-bit IDCODE register returns: the
 * captured IDCODE, then TDI 32 bits late. */
std::vector<unsigned char> expectedTdo(const std::vector<unsigned char>& tdi) {
    std::vector<unsigned char> tdo(tdi.size(), 0);
    for (std::size_t bit = 0; bit < tdo.size() * 8; ++bit) {
        const bool value =
            bit < 32 ? ((idcode >> bit) & 1U) != 0 : ((tdi[(bit - 32) / 8] >> ((bit - 32) % 8)) & 1U) != 0;
        if (value) tdo[bit / 8] = static_cast<unsigned char>(tdo[bit / 8] | (1U << (bit % 8)));
    }
    return tdo;
}

/* Bytes (first bit shifted: bit 0 of byte 0) as OpenOCD writes a scan value:
 * hexadecimal, most significant digit first, every digit written. */
std::string openOcdHex(const std::vector<unsigned char>& bytes) {
    std::string text;
    for (auto byte = bytes.rbegin(); byte != bytes.rend(); ++byte) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", *byte);
        text += digits;
    }
    return text;
}

/* Runs `body`, a failure (a tool that failed, a simulator that did not
 * start) becoming the benchmark's error, every process still ended. */
template <typename Body>
void guarded(benchmark::State& state, Body body) {
    try {
        body();
    } catch (const std::exception& error) {
        state.SkipWithError(error.what());
    }
}

/* What one OpenOCD run measured. */
struct OpenOcdRun {
    double seconds = 0;            // the timed scans, by OpenOCD's clock
    double openOcdCpuSeconds = 0;  // OpenOCD's, the whole run
    double serverCpuSeconds = 0;   // the server's, around the whole run
};

/* One OpenOCD run on the remote_bitbang server at `port`: `count` data
 * scans of `bits` bits after init, timed by OpenOCD, the last one's TDO
 * checked. `serverCpuSeconds` reads the server's CPU time. */
OpenOcdRun openOcdScans(int port, int bits, long count, const ScratchDir& scratch,
                        const std::function<double()>& serverCpuSeconds) {
    const std::string script = scratch.file("drscan_rate.tcl");
    std::ofstream(script) << rateScript;
    const std::vector<unsigned char> tdi = scanPattern(bits);
    char expectedId[16];
    std::snprintf(expectedId, sizeof expectedId, "0x%08x", idcode);
    const std::vector<std::string> arguments = {"openocd",
                                                "-c",
                                                "adapter driver remote_bitbang",
                                                "-c",
                                                "remote_bitbang host 127.0.0.1",
                                                "-c",
                                                "remote_bitbang port " + std::to_string(port),
                                                "-c",
                                                "transport select jtag",
                                                "-c",
                                                "jtag newtap " + std::string(chainName) + " tap -irlen " +
                                                    std::to_string(irLength) + " -expected-id " + expectedId,
                                                "-c",
                                                "init",
                                                "-c",
                                                "source " + script,
                                                "-c",
                                                "drscan_rate " + std::string(chainName) + ".tap " +
                                                    std::to_string(idcodeInstruction) + " " + std::to_string(bits) +
                                                    " " + std::to_string(count) + " 0x" + openOcdHex(tdi),
                                                "-c",
                                                "shutdown"};
    OpenOcdRun run;
    const double cpuBefore = serverCpuSeconds();
    const ToolRun tool = runTool(TETHERHOST_OPENOCD, arguments, scratch.file("openocd.out"));
    run.serverCpuSeconds = serverCpuSeconds() - cpuBefore;
    run.openOcdCpuSeconds = tool.cpuSeconds;
    const std::size_t line = tool.output.find("drscan_rate ");
    long microseconds = 0;
    char tdo[2048] = {};
    if (line == std::string::npos ||
        std::sscanf(tool.output.c_str() + line, "drscan_rate %ld %2047s", &microseconds, tdo) != 2 || microseconds <= 0)
        throw std::runtime_error("no rate in OpenOCD's output:\n" + tool.output);
    if (tdo != openOcdHex(expectedTdo(tdi)))
        throw std::runtime_error(std::string("wrong TDO from OpenOCD's scans: ") + tdo);
    run.seconds = static_cast<double>(microseconds) / 1e6;
    return run;
}

/* The median of an odd number of values. */
double median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

/* OpenOCD's drscan through the door and through the minimal server, in
 * pairs of runs one right after the other (which one goes first
 * alternates), so that other load on the machine weighs on both alike; the
 * ratio is the median of the pairs' ratios. range(0) bits, range(1) scans
 * per run; the time reported is the door's median run. */
void BM_OpenOcdDrscan(benchmark::State& state) {
    guarded(state, [&] {
        constexpr int pairs = 11;
        const int bits = static_cast<int>(state.range(0));
        const long count = static_cast<long>(state.range(1));
        const Simulator simulator({"--chain", chainName, "--remote-bitbang", std::to_string(doorPort)});
        tetherhost::bench::MinimalBitbangServer minimalServer(minimalPort, irLength, idcode);
        const ScratchDir scratch;
        const auto viaDoor = [&] {
            return openOcdScans(doorPort, bits, count, scratch, [&] { return simulator.cpuSeconds(); });
        };
        const auto viaMinimal = [&] {
            return openOcdScans(minimalPort, bits, count, scratch, [&] { return minimalServer.cpuSeconds(); });
        };
        const double scans = static_cast<double>(count);
        for ([[maybe_unused]] auto _ : state) {
            std::vector<double> door, minimal, ratio, doorCpu, minimalCpu, openOcdCpu;
            for (int pair = 0; pair < pairs; ++pair) {
                OpenOcdRun doorRun, minimalRun;
                if (pair % 2 == 0) {
                    doorRun = viaDoor();
                    minimalRun = viaMinimal();
                } else {
                    minimalRun = viaMinimal();
                    doorRun = viaDoor();
                }
                door.push_back(doorRun.seconds / scans);
                minimal.push_back(minimalRun.seconds / scans);
                ratio.push_back(doorRun.seconds / minimalRun.seconds);
                doorCpu.push_back(doorRun.serverCpuSeconds / scans);
                minimalCpu.push_back(minimalRun.serverCpuSeconds / scans);
                openOcdCpu.push_back(doorRun.openOcdCpuSeconds / scans);
            }
            state.SetIterationTime(median(door) * scans);
            state.counters["door_scans_per_s"] = 1 / median(door);
            state.counters["minimal_scans_per_s"] = 1 / median(minimal);
            state.counters["door_us_per_scan"] = median(door) * 1e6;
            state.counters["minimal_us_per_scan"] = median(minimal) * 1e6;
            state.counters["door_vs_minimal"] = median(ratio);
            // CPU over the whole run, OpenOCD's start-up and init included.
            state.counters["door_cpu_us_per_scan"] = median(doorCpu) * 1e6;
            state.counters["minimal_cpu_us_per_scan"] = median(minimalCpu) * 1e6;
            state.counters["openocd_cpu_us_per_scan"] = median(openOcdCpu) * 1e6;
        }
    });
}
/* About a fifth of a second of scans in each OpenOCD run at the rates seen here. */
BENCHMARK(BM_OpenOcdDrscan)
    ->Args({32, 4000})
    ->Args({4096, 80})
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

/* The same data scans through the library, against the simulator on the
 * same chain with the same instruction selected first. */
void BM_LibraryDrscan(benchmark::State& state) {
    guarded(state, [&] {
        const int bits = static_cast<int>(state.range(0));
        const Simulator simulator({"--chain", chainName});
        Client client(clientName);
        if (client.Connect(nullptr, nullptr, nullptr) != 0) {
            state.SkipWithError("the library did not connect");
            return;
        }
        char instruction[] = {static_cast<char>(idcodeInstruction), 0};
        const std::vector<unsigned char> pattern = scanPattern(bits);
        std::vector<char> tdi(pattern.begin(), pattern.end());
        tdi.push_back(0);
        std::vector<unsigned char> tdo(pattern.size() + 1);
        unsigned char* destination = tdo.data();
        if (client.Send(44, 12, 1, irLength, 0, 0, instruction) != 0 ||
            client.Send(44, 12, 0, bits, 1, 0, tdi.data(), tdi.data()) != 0 || client.GetTDO(destination, bits) != 0 ||
            std::vector<unsigned char>(tdo.begin(), tdo.begin() + static_cast<long>(pattern.size())) !=
                expectedTdo(pattern)) {
            state.SkipWithError("the library's scan did not return the expected TDO");
            return;
        }
        const double cpuBefore = simulator.cpuSeconds();
        const auto start = Clock::now();
        for ([[maybe_unused]] auto _ : state) {
            client.Send(44, 12, 0, bits, 1, 0, tdi.data(), tdi.data());
            benchmark::DoNotOptimize(client.GetTDO(destination, bits));
        }
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        const double scans = static_cast<double>(state.iterations());
        state.counters["scans_per_s"] = scans / seconds;
        state.counters["us_per_scan"] = seconds * 1e6 / scans;
        state.counters["server_cpu_us_per_scan"] = (simulator.cpuSeconds() - cpuBefore) * 1e6 / scans;
        client.Disconnect();
    });
}
BENCHMARK(BM_LibraryDrscan)->Arg(32)->Arg(4096)->UseRealTime()->Unit(benchmark::kMicrosecond);

/* openFPGALoader --detect through the XVC door, a whole run each (its
 * start-up included), median of 15. */
void BM_OpenFpgaLoaderDetect(benchmark::State& state) {
    guarded(state, [&] {
        constexpr std::size_t runs = 15;
        const Simulator simulator({"--chain", chainName, "--xvc", std::to_string(xvcPort)});
        const ScratchDir scratch;
        const std::vector<std::string> arguments = {
            "openFPGALoader", "-c", "xvc-client", "--ip", "127.0.0.1", "--port", std::to_string(xvcPort), "--detect"};
        char expectedLine[32];
        std::snprintf(expectedLine, sizeof expectedLine, "idcode 0x%x", idcode);
        for ([[maybe_unused]] auto _ : state) {
            std::vector<double> milliseconds;
            for (std::size_t run = 0; run < runs; ++run) {
                const auto start = Clock::now();
                const std::string output =
                    runTool(TETHERHOST_OPENFPGALOADER, arguments, scratch.file("openFPGALoader.out")).output;
                milliseconds.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
                if (output.find(expectedLine) == std::string::npos) {
                    state.SkipWithError(("openFPGALoader did not find the IDCODE:\n" + output).c_str());
                    return;
                }
            }
            std::sort(milliseconds.begin(), milliseconds.end());
            state.SetIterationTime(milliseconds[runs / 2] / 1e3);
            state.counters["median_ms"] = milliseconds[runs / 2];
            state.counters["min_ms"] = milliseconds.front();
            state.counters["max_ms"] = milliseconds.back();
        }
    });
}
BENCHMARK(BM_OpenFpgaLoaderDetect)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

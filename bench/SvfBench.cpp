// SPDX-License-Identifier: MIT
/* SvfBench: the SVF player against OpenOCD's svf command and against its
 * floor, on one simulator with one TAP (chains/xc7a35t.json), with every
 * ratio taken from runs of the same round. Two files, written at run time:
 * one SDR of 4 Mibit, and 10,000 SIR/SDR pairs of 6 and 32 bits; every scan
 * gives TDO, so that every player reads it back and compares. A file is
 * played six ways, in rounds (see BM_SvfPlay):
 *
 * - OpenOCD's svf through the simulator's remote_bitbang door, and through
 *   MinimalBitbang (a bare TAP behind the same protocol), timed in OpenOCD's
 *   own Tcl around the svf command, so that its start-up and init do not
 *   count; the better of the two is OpenOCD's time, so that a slow door
 *   cannot make the ratio;
 * - `tetherctl svf --quiet FILE` as a whole process, and the same on a file
 *   without statements; the difference is tetherctl's time for the file
 *   (reading and checking it whole, then playing it);
 * - the library's svf::play in this process, timed around the call;
 * - the floor (SvfFloor): the same scans as raw frames.
 *
 * A third benchmark measures tetherctl's peak resident memory on a file of
 * about 100 MB of 8-Mibit scans against a file of one such scan. Each
 * benchmark keeps itself and all it starts on one CPU (see OneCpu). Every
 * process started here is ended by its pid. The simulator takes
 * 127.0.0.1:4001, so this runs in a private network namespace:
 * scripts/bench-svf.sh, or bench/report with the others. */
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
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
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include "BenchProcesses.h"
#include "Client.h"
#include "MinimalBitbang.h"
#include "SvfFiles.h"
#include "SvfFloor.h"
#include "SvfPlayer.h"

namespace {

namespace bench = tetherhost::bench;
using bench::Cpu;
using bench::ProcessRun;
using bench::ScratchDir;
using Clock = std::chrono::steady_clock;

constexpr int doorPort = 44853;
constexpr int minimalPort = 44854;
constexpr auto toolPatience = std::chrono::minutes(5);
constexpr int longScanBits = 4 << 20;
constexpr long shortPairs = 10000;
/* The frames of the floor and of the library are compared on a file of
 * this many pairs: every pair makes the same frames. */
constexpr long checkedPairs = 50;
/* The memory files: 8-Mibit scans, one and many (about 100 MB of SVF). */
constexpr int memoryScanBits = 8 << 20;
constexpr long memoryScans = 24;

char clientName[] = "svfbench";

/* OpenOCD's side: the svf command on FILE, timed with OpenOCD's own clock.
 * A failed svf (a TDO mismatch) raises an error, so no time is printed. */
constexpr const char* timedSvfScript = R"(proc svf_timed {file} {
    set start [clock microseconds]
    svf -quiet $file
    echo "svf_timed [expr {[clock microseconds] - $start}]"
}
)";

/* The CPU this thread has used: what the player in this process costs. */
Cpu threadCpu() {
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return Cpu::of(usage);
}

/* The simulator with the benchmark's chain and `options`. */
class Simulator : public bench::Simulator {
public:
    explicit Simulator(std::vector<std::string> options)
        : bench::Simulator(TETHERHOST_SIMULATOR_PROGRAM, withChain(std::move(options))) {}

private:
    static std::vector<std::string> withChain(std::vector<std::string> options) {
        options.insert(options.end(), {"--chain", bench::svfChainName});
        return options;
    }
};

ProcessRun runProgram(const std::string& program, const std::vector<std::string>& arguments,
                      const std::string& outputPath) {
    return bench::runProgram(program, arguments, outputPath, toolPatience);
}

/* An SVF file as the benchmark writes it: `pattern`'s scans `repeat` times. */
struct Workload {
    std::vector<bench::WireScan> pattern;
    long repeat = 1;

    std::uint64_t scans() const { return pattern.size() * static_cast<std::uint64_t>(repeat); }
    std::uint64_t bits() const {
        std::uint64_t bits = 0;
        for (const bench::WireScan& scan : pattern) bits += static_cast<std::uint64_t>(scan.bits);
        return bits * static_cast<std::uint64_t>(repeat);
    }
    /** Writes the file; its size in bytes. */
    std::uint64_t write(const std::string& path) const {
        bench::SvfWriter writer(path);
        writer.comment("written by bench_svf: " + std::to_string(scans()) + " compared scans on one " +
                       bench::svfChainName + " TAP");
        for (long i = 0; i < repeat; ++i)
            for (const bench::WireScan& scan : pattern) writer.write(scan);
        return writer.finish();
    }
};

Workload longScanFile(int bits) { return {{bench::selectIdcode(), bench::longScan(bits)}, 1}; }
Workload pairsFile(long pairs) { return {{bench::selectIdcode(), bench::readIdcode()}, pairs}; }

/* Keeps this thread, and every process and thread it starts meanwhile, on
 * the CPU it runs on, and gives it its CPUs back at the end. Each play is a
 * client and a server waking each other thousands of times; on the 2-vCPU
 * machine this was written on, that goes 1.25 to 4 times slower when the two
 * sit on different CPUs (OpenOCD's svf of the 4 Mibit file: 2.4 s against
 * 1.9 s; the pairs: 1.3 s against 0.47 s; the library and the floor alike),
 * and the scheduler's choice changed from run to run. On one CPU every
 * player gets the cheaper wake-ups, and the ratios compare like with like. */
class OneCpu {
public:
    OneCpu() {
        const int current = sched_getcpu();
        if (current < 0 || sched_getaffinity(0, sizeof before, &before) != 0)
            throw std::runtime_error("cannot read this thread's CPUs");
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(current, &one);
        if (sched_setaffinity(0, sizeof one, &one) != 0) throw std::runtime_error("cannot keep to one CPU");
    }
    ~OneCpu() { sched_setaffinity(0, sizeof before, &before); }
    OneCpu(const OneCpu&) = delete;
    OneCpu& operator=(const OneCpu&) = delete;

private:
    cpu_set_t before{};
};

/* Runs `body` on one CPU (OneCpu), a failure (a tool that failed, a
 * simulator that did not start) becoming the benchmark's error, every
 * process still ended. */
template <typename Body>
void guarded(benchmark::State& state, Body body) {
    try {
        const OneCpu pinned;
        body();
    } catch (const std::exception& error) {
        state.SkipWithError(error.what());
    }
}

/* OpenOCD's svf on `svfPath` through the remote_bitbang server at `port`:
 * the seconds the svf command took, by OpenOCD's clock. */
double openOcdSvf(int port, const std::string& svfPath, const ScratchDir& scratch) {
    const std::string script = scratch.file("svf_timed.tcl");
    std::ofstream(script) << timedSvfScript;
    char expectedId[16];
    std::snprintf(expectedId, sizeof expectedId, "0x%08x", bench::svfIdcode);
    const ProcessRun run =
        runProgram(TETHERHOST_OPENOCD,
                   {"openocd", "-c", "adapter driver remote_bitbang", "-c", "remote_bitbang host 127.0.0.1", "-c",
                    "remote_bitbang port " + std::to_string(port), "-c", "transport select jtag", "-c",
                    "jtag newtap " + std::string(bench::svfChainName) + " tap -irlen " +
                        std::to_string(bench::svfIrLength) + " -expected-id " + expectedId,
                    "-c", "init", "-c", "source " + script, "-c", "svf_timed " + svfPath, "-c", "shutdown"},
                   scratch.file("openocd.out"));
    const std::size_t line = run.output.find("svf_timed ");
    long microseconds = 0;
    if (line == std::string::npos || std::sscanf(run.output.c_str() + line, "svf_timed %ld", &microseconds) != 1 ||
        microseconds <= 0)
        throw std::runtime_error("no time in OpenOCD's output:\n" + run.output);
    return static_cast<double>(microseconds) / 1e6;
}

/* `tetherctl svf --quiet` on `svfPath`, which must pass, as a whole process. */
ProcessRun tetherctlSvf(const std::string& svfPath, const ScratchDir& scratch) {
    ProcessRun run =
        runProgram(TETHERHOST_TETHERCTL, {"tetherctl", "svf", "--quiet", svfPath}, scratch.file("tetherctl.out"));
    if (run.output.find(": passed: ") == std::string::npos)
        throw std::runtime_error("tetherctl svf did not pass:\n" + run.output);
    return run;
}

/* Wall and CPU time of a run in this thread. */
struct Timed {
    double seconds = 0;
    Cpu cpu;
};

template <typename Body>
Timed timed(Body body) {
    const Cpu before = threadCpu();
    const auto start = Clock::now();
    body();
    return {std::chrono::duration<double>(Clock::now() - start).count(), threadCpu() - before};
}

/* The library's svf::play on `svfPath` in this process, timed around the
 * call; every scan must pass. */
Timed libraryPlay(const std::string& svfPath, const Workload& workload) {
    Client client(clientName);
    if (client.Connect(nullptr, nullptr, nullptr) != 0) throw std::runtime_error("the library did not connect");
    std::ifstream in(svfPath, std::ios::binary);
    tetherhost::svf::Report report;
    const Timed run = timed([&] { report = tetherhost::svf::play(client, in, svfPath); });
    client.Disconnect();
    if (report.outcome != tetherhost::svf::Outcome::Passed || report.scans != workload.scans())
        throw std::runtime_error("svf::play did not pass: " + std::to_string(report.scans) + " scans, " +
                                 std::to_string(report.mismatches.size()) + " mismatches " + report.error);
    return run;
}

/* The floor: the same scans as raw frames; every one must match. */
Timed floorPlay(const Workload& workload) {
    bench::SvfFloorClient floor(clientName);
    long failed = 0;
    const Timed run = timed([&] {
        for (long i = 0; i < workload.repeat; ++i)
            for (const bench::WireScan& scan : workload.pattern) failed += floor.scan(scan) != 0 ? 1 : 0;
    });
    if (failed != 0) throw std::runtime_error("the floor's scans failed or mismatched: " + std::to_string(failed));
    return run;
}

/* The frames of command 44 in a simulator trace, without time, connection
 * and client: "< 44/12 tdi 5", "> 44/12 status \"0\" 2", ... */
std::vector<std::string> scanFrames(const std::string& tracePath) {
    std::ifstream trace(tracePath);
    std::vector<std::string> frames;
    for (std::string line; std::getline(trace, line);) {
        std::istringstream fields(line);
        std::string time, connection, client, direction, command;
        if (!(fields >> time >> connection >> client >> direction >> command)) continue;
        if ((direction != "<" && direction != ">") || command.rfind("44", 0) != 0) continue;
        std::string frame = direction;
        frame += ' ';
        frame += command;
        std::string rest;
        std::getline(fields, rest);
        frame += rest;
        frames.push_back(std::move(frame));
    }
    return frames;
}

/* Checks, in the simulator's traces, that the floor makes the library's
 * frames for `workload`, one by one (the traces show each frame's text
 * and length); the count of frames compared. */
std::size_t checkFloorFrames(const Workload& workload, const ScratchDir& scratch) {
    const std::string svfPath = scratch.file("checked.svf");
    workload.write(svfPath);
    const std::string libraryTrace = scratch.file("library.trace");
    const std::string floorTrace = scratch.file("floor.trace");
    {
        const Simulator traced({"--trace", libraryTrace});
        libraryPlay(svfPath, workload);
    }
    {
        const Simulator traced({"--trace", floorTrace});
        floorPlay(workload);
    }
    const std::vector<std::string> library = scanFrames(libraryTrace);
    const std::vector<std::string> floor = scanFrames(floorTrace);
    const auto differ = std::mismatch(library.begin(), library.end(), floor.begin(), floor.end());
    if (library.empty() || differ.first != library.end() || differ.second != floor.end()) {
        const auto index = std::to_string(differ.first - library.begin());
        throw std::runtime_error("the floor's frames are not the library's, from frame " + index + ": library \"" +
                                 (differ.first != library.end() ? *differ.first : "(end)") + "\", floor \"" +
                                 (differ.second != floor.end() ? *differ.second : "(end)") + "\"");
    }
    return library.size();
}

/* The median of an odd number of values. */
double median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

enum class File { LongScan, ShortPairs };

/* The samples the passes of BM_SvfPlay give, one per pass: every counter's
 * but OpenOCD's. */
struct Passes {
    std::vector<double> whole, startup, net, play, floor, netVsFloor, playVsFloor;
    std::vector<double> tetherctlUser, tetherctlSystem, playUser, playSystem, floorUser, floorSystem, simulator;
};

/* One file played six ways (see the top of this file): `rounds` rounds,
 * each of OpenOCD through the door and through the minimal server (which
 * goes first alternates) and `passes` passes of tetherctl on the file and
 * on the empty file, svf::play and the floor, in an order that turns from
 * pass to pass. Each counter is the median of its samples; a ratio to the
 * floor, the median of the passes' ratios; the ratio to OpenOCD, the median
 * of the rounds' (OpenOCD's better time over the median of the round's
 * tetherctl times). The time reported is tetherctl's for the file,
 * start-up taken off. */
void BM_SvfPlay(benchmark::State& state, File kind) {
    guarded(state, [&] {
        const bool longScan = kind == File::LongScan;
        constexpr int rounds = 5;
        // The long file plays in a tenth of a second, the short pairs in seconds.
        const int passes = longScan ? 5 : 1;
        const Workload workload = longScan ? longScanFile(longScanBits) : pairsFile(shortPairs);
        const ScratchDir scratch("svfbench");
        const std::string svfPath = scratch.file("played.svf");
        const std::string emptyPath = scratch.file("empty.svf");
        const std::uint64_t fileBytes = workload.write(svfPath);
        Workload{{}, 0}.write(emptyPath);
        const std::size_t framesChecked = checkFloorFrames(longScan ? workload : pairsFile(checkedPairs), scratch);

        const Simulator simulator({"--remote-bitbang", std::to_string(doorPort)});
        bench::MinimalBitbangServer minimalServer(minimalPort, bench::svfIrLength, bench::svfIdcode);
        const double scans = static_cast<double>(workload.scans());
        const double bits = static_cast<double>(workload.bits());
        for ([[maybe_unused]] auto _ : state) {
            std::vector<double> door, minimal, openOcd, speedup, speedupWhole;
            Passes all;
            for (int round = 0; round < rounds; ++round) {
                double doorSeconds = 0, minimalSeconds = 0;
                if (round % 2 == 0) {
                    doorSeconds = openOcdSvf(doorPort, svfPath, scratch);
                    minimalSeconds = openOcdSvf(minimalPort, svfPath, scratch);
                } else {
                    minimalSeconds = openOcdSvf(minimalPort, svfPath, scratch);
                    doorSeconds = openOcdSvf(doorPort, svfPath, scratch);
                }
                const double best = std::min(doorSeconds, minimalSeconds);
                door.push_back(doorSeconds);
                minimal.push_back(minimalSeconds);
                openOcd.push_back(best);
                std::vector<double> roundNet, roundWhole;
                for (int pass = 0; pass < passes; ++pass) {
                    ProcessRun file, empty;
                    Timed library, raw;
                    double simulatorCpu = 0;
                    const std::vector<std::function<void()>> plays = {
                        [&] { file = tetherctlSvf(svfPath, scratch); },
                        [&] { empty = tetherctlSvf(emptyPath, scratch); },
                        [&] {
                            const double before = simulator.cpuSeconds();
                            library = libraryPlay(svfPath, workload);
                            simulatorCpu = simulator.cpuSeconds() - before;
                        },
                        [&] { raw = floorPlay(workload); },
                    };
                    const auto turn = static_cast<std::size_t>(round) * static_cast<std::size_t>(passes) +
                                      static_cast<std::size_t>(pass);
                    for (std::size_t i = 0; i < plays.size(); ++i) plays[(i + turn) % plays.size()]();
                    const double net = file.seconds - empty.seconds;
                    const Cpu tetherctlCpu = file.cpu - empty.cpu;
                    roundNet.push_back(net);
                    roundWhole.push_back(file.seconds);
                    all.whole.push_back(file.seconds);
                    all.startup.push_back(empty.seconds);
                    all.net.push_back(net);
                    all.play.push_back(library.seconds);
                    all.floor.push_back(raw.seconds);
                    all.netVsFloor.push_back(net / raw.seconds);
                    all.playVsFloor.push_back(library.seconds / raw.seconds);
                    all.tetherctlUser.push_back(tetherctlCpu.user);
                    all.tetherctlSystem.push_back(tetherctlCpu.system);
                    all.playUser.push_back(library.cpu.user);
                    all.playSystem.push_back(library.cpu.system);
                    all.floorUser.push_back(raw.cpu.user);
                    all.floorSystem.push_back(raw.cpu.system);
                    all.simulator.push_back(simulatorCpu);
                }
                speedup.push_back(best / median(roundNet));
                speedupWhole.push_back(best / median(roundWhole));
            }
            state.SetIterationTime(median(all.net));
            auto& counters = state.counters;
            counters["file_bytes"] = static_cast<double>(fileBytes);
            counters["scans"] = scans;
            counters["frames_checked"] = static_cast<double>(framesChecked);
            counters["openocd_door_ms"] = median(door) * 1e3;
            counters["openocd_minimal_ms"] = median(minimal) * 1e3;
            counters["openocd_ms"] = median(openOcd) * 1e3;
            counters["tetherctl_whole_ms"] = median(all.whole) * 1e3;
            counters["tetherctl_startup_ms"] = median(all.startup) * 1e3;
            counters["tetherctl_ms"] = median(all.net) * 1e3;
            counters["play_ms"] = median(all.play) * 1e3;
            counters["floor_ms"] = median(all.floor) * 1e3;
            counters["speedup_vs_openocd"] = median(speedup);
            counters["speedup_vs_openocd_whole_process"] = median(speedupWhole);
            counters["tetherctl_vs_floor"] = median(all.netVsFloor);
            counters["play_vs_floor"] = median(all.playVsFloor);
            counters["tetherctl_bits_per_s"] = bits / median(all.net);
            counters["tetherctl_scans_per_s"] = scans / median(all.net);
            counters["play_bits_per_s"] = bits / median(all.play);
            counters["play_scans_per_s"] = scans / median(all.play);
            counters["floor_bits_per_s"] = bits / median(all.floor);
            counters["floor_scans_per_s"] = scans / median(all.floor);
            counters["openocd_bits_per_s"] = bits / median(openOcd);
            counters["openocd_scans_per_s"] = scans / median(openOcd);
            // CPU per scan, user and system: tetherctl's for the file
            // (start-up taken off), this thread's in svf::play and in the
            // floor; the simulator's while svf::play ran.
            const auto perScan = [&](const std::vector<double>& cpu) { return median(cpu) * 1e6 / scans; };
            counters["tetherctl_user_us_per_scan"] = perScan(all.tetherctlUser);
            counters["tetherctl_system_us_per_scan"] = perScan(all.tetherctlSystem);
            counters["play_user_us_per_scan"] = perScan(all.playUser);
            counters["play_system_us_per_scan"] = perScan(all.playSystem);
            counters["floor_user_us_per_scan"] = perScan(all.floorUser);
            counters["floor_system_us_per_scan"] = perScan(all.floorSystem);
            counters["simulator_cpu_us_per_scan"] = perScan(all.simulator);
        }
    });
}
BENCHMARK_CAPTURE(BM_SvfPlay, LongScan4Mibit, File::LongScan)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_SvfPlay, ShortPairs10000, File::ShortPairs)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

/* tetherctl's peak resident memory on a file of one 8-Mibit compared scan
 * and on one of memoryScans of them (about 100 MB): a player in bounded
 * memory needs no more for the large file. */
void BM_SvfMemory(benchmark::State& state) {
    guarded(state, [&] {
        const ScratchDir scratch("svfbench");
        const std::string smallPath = scratch.file("small.svf");
        const std::string largePath = scratch.file("large.svf");
        const Workload small = {{bench::selectIdcode(), bench::longScan(memoryScanBits)}, 1};
        const Workload large = {small.pattern, memoryScans};
        const std::uint64_t smallBytes = small.write(smallPath);
        const std::uint64_t largeBytes = large.write(largePath);
        const Simulator simulator({});
        for ([[maybe_unused]] auto _ : state) {
            const ProcessRun smallRun = tetherctlSvf(smallPath, scratch);
            const ProcessRun largeRun = tetherctlSvf(largePath, scratch);
            state.SetIterationTime(largeRun.seconds);
            state.counters["small_file_MB"] = static_cast<double>(smallBytes) / 1e6;
            state.counters["large_file_MB"] = static_cast<double>(largeBytes) / 1e6;
            state.counters["small_peak_rss_kB"] = static_cast<double>(smallRun.peakResidentKiB);
            state.counters["large_peak_rss_kB"] = static_cast<double>(largeRun.peakResidentKiB);
            state.counters["large_vs_small_rss"] =
                static_cast<double>(largeRun.peakResidentKiB) / static_cast<double>(smallRun.peakResidentKiB);
            state.counters["large_bits_per_s"] = static_cast<double>(large.bits()) / largeRun.seconds;
        }
    });
}
BENCHMARK(BM_SvfMemory)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

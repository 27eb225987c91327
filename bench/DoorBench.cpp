// SPDX-License-Identifier: MIT
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

#include "BenchProcesses.h"
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

using tetherhost::bench::ProcessRun;
using tetherhost::bench::runProgram;
using tetherhost::bench::ScratchDir;
using tetherhost::bench::Simulator;

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
    const ProcessRun tool = runProgram(TETHERHOST_OPENOCD, arguments, scratch.file("openocd.out"), toolPatience);
    run.serverCpuSeconds = serverCpuSeconds() - cpuBefore;
    run.openOcdCpuSeconds = tool.cpu.total();
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
        const Simulator simulator(TETHERHOST_SIMULATOR_PROGRAM,
                                  {"--chain", chainName, "--remote-bitbang", std::to_string(doorPort)});
        tetherhost::bench::MinimalBitbangServer minimalServer(minimalPort, irLength, idcode);
        const ScratchDir scratch("doorbench");
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
        const Simulator simulator(TETHERHOST_SIMULATOR_PROGRAM, {"--chain", chainName});
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
        const Simulator simulator(TETHERHOST_SIMULATOR_PROGRAM,
                                  {"--chain", chainName, "--xvc", std::to_string(xvcPort)});
        const ScratchDir scratch("doorbench");
        const std::vector<std::string> arguments = {
            "openFPGALoader", "-c", "xvc-client", "--ip", "127.0.0.1", "--port", std::to_string(xvcPort), "--detect"};
        char expectedLine[32];
        std::snprintf(expectedLine, sizeof expectedLine, "idcode 0x%x", idcode);
        for ([[maybe_unused]] auto _ : state) {
            std::vector<double> milliseconds;
            for (std::size_t run = 0; run < runs; ++run) {
                const auto start = Clock::now();
                const std::string output =
                    runProgram(TETHERHOST_OPENFPGALOADER, arguments, scratch.file("openFPGALoader.out"), toolPatience)
                        .output;
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

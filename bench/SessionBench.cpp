// SPDX-License-Identifier: MIT
/* The session layer against the bare Client, in the same run and against
 * the same simulator: Send(38), and a 32-bit JTAG data scan with read-back
 * (command 44, sub-command 12, then GetTDO), each made through
 * <tetherhost/session.hpp> and through Client::Send directly. Besides the
 * four plain timings, BM_Session_Paired alternates blocks of the two ways
 * and reports the median of the blocks' ratios (layer / Client), which the
 * machine's other jobs move far less than separate timings.
 *
 * With --scan-block N the program instead times N layer scans in one block
 * and prints the nanoseconds per scan: bench/python_scan.py pairs that with
 * the same scans made from Python. */
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <tetherhost/session.hpp>

#include "BenchProcesses.h"

namespace {

using Clock = std::chrono::steady_clock;

/* One simulator for the whole run, on 127.0.0.1:4001. */
tetherhost::bench::Simulator& simulator() {
    static tetherhost::bench::Simulator running(TETHERHOST_SIMULATOR_PROGRAM, {});
    return running;
}

/* A Client of its own, connected; Send(38) and the scan are not
 * lock-guarded, so it takes no locks. */
class Bare {
public:
    Bare() : client(name) { client.Connect(nullptr, nullptr, nullptr); }
    ~Bare() { client.Disconnect(); }
    Bare(const Bare&) = delete;
    Bare& operator=(const Bare&) = delete;

    int send38() { return client.Send(38); }
    /* The scan as a careful host makes it by hand: a zero expected block for
     * the read-back, the status checked, the TDO collected. */
    int scan32(const unsigned char* tdi, unsigned char* tdo) {
        const int result = client.Send(44, 12, 0, 32, 1, 0, tdi, zeros);
        if (result < 0 || client.GetClientStatus() != 0) return -1;
        return client.GetTDO(tdo, 32);
    }

private:
    char name[12] = "bench-bare";
    unsigned char zeros[4] = {};
    Client client;
};

const std::vector<unsigned char> tdi = {0x33, 0x33, 0x33, 0x33};

void BM_Session_Send38_Client(benchmark::State& state) {
    simulator();
    Bare bare;
    for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(bare.send38());
}
BENCHMARK(BM_Session_Send38_Client)->UseRealTime();

void BM_Session_Send38_Layer(benchmark::State& state) {
    simulator();
    tetherhost::Session session("bench-layer");
    for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(session.send<38>());
}
BENCHMARK(BM_Session_Send38_Layer)->UseRealTime();

void BM_Session_Scan32_Client(benchmark::State& state) {
    simulator();
    Bare bare;
    unsigned char tdo[4] = {};
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(bare.scan32(tdi.data(), tdo));
        benchmark::DoNotOptimize(tdo);
    }
}
BENCHMARK(BM_Session_Scan32_Client)->UseRealTime();

void BM_Session_Scan32_Layer(benchmark::State& state) {
    simulator();
    tetherhost::Session session("bench-layer");
    for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(session.scanDr(32, tdi));
}
BENCHMARK(BM_Session_Scan32_Layer)->UseRealTime();

double median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

template <class Call>
double blockSeconds(int calls, Call call) {
    const auto start = Clock::now();
    for (int i = 0; i < calls; ++i) call();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

template <class First, class Second>
void inOrder(bool firstFirst, First first, Second second) {
    if (firstFirst) {
        first();
        second();
    } else {
        second();
        first();
    }
}

/* `rounds` pairs of blocks of `calls` calls each; which way goes first
 * alternates from round to round. */
void BM_Session_Paired(benchmark::State& state) {
    constexpr int rounds = 41;
    constexpr int calls = 200;
    simulator();
    Bare bare;
    tetherhost::Session session("bench-layer");
    unsigned char tdo[4] = {};
    std::vector<double> sendRatios, scanRatios, sendClient, sendLayer, scanClient, scanLayer;
    for ([[maybe_unused]] auto _ : state) {
        for (int round = 0; round < rounds; ++round) {
            const bool clientFirst = round % 2 == 0;
            double client = 0, layer = 0;
            auto clientBlock = [&] { client = blockSeconds(calls, [&] { benchmark::DoNotOptimize(bare.send38()); }); };
            auto layerBlock = [&] {
                layer = blockSeconds(calls, [&] { benchmark::DoNotOptimize(session.send<38>()); });
            };
            inOrder(clientFirst, clientBlock, layerBlock);
            sendRatios.push_back(layer / client);
            sendClient.push_back(client / calls);
            sendLayer.push_back(layer / calls);

            auto clientScans = [&] {
                client = blockSeconds(calls, [&] { benchmark::DoNotOptimize(bare.scan32(tdi.data(), tdo)); });
            };
            auto layerScans = [&] {
                layer = blockSeconds(calls, [&] { benchmark::DoNotOptimize(session.scanDr(32, tdi)); });
            };
            inOrder(clientFirst, clientScans, layerScans);
            scanRatios.push_back(layer / client);
            scanClient.push_back(client / calls);
            scanLayer.push_back(layer / calls);
        }
    }
    state.counters["send38_ratio"] = median(sendRatios);
    state.counters["scan32_ratio"] = median(scanRatios);
    state.counters["send38_client_us"] = median(sendClient) * 1e6;
    state.counters["send38_layer_us"] = median(sendLayer) * 1e6;
    state.counters["scan32_client_us"] = median(scanClient) * 1e6;
    state.counters["scan32_layer_us"] = median(scanLayer) * 1e6;
}
BENCHMARK(BM_Session_Paired)->Iterations(1)->Unit(benchmark::kSecond);

/* --scan-block N: one block of N layer scans against the server already
 * listening on 4001; prints nanoseconds per scan. */
int scanBlock(int calls) {
    tetherhost::Session session("bench-cpp");
    session.scanDr(32, tdi);
    const double seconds = blockSeconds(calls, [&] { benchmark::DoNotOptimize(session.scanDr(32, tdi)); });
    std::printf("%.0f\n", seconds * 1e9 / calls);
    return 0;
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc == 3 && std::strcmp(argv[1], "--scan-block") == 0) return scanBlock(std::atoi(argv[2]));
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "bench_session: %s\n", error.what());
    return 1;
}

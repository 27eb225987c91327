// SPDX-License-Identifier: MIT
/* The simulator against the floor: one client's Send(38) against the
 * tetherhost simulator and against the minimal blocking server (BenchPeer)
 * in the same run; commands per second with 1, 16 and 64 concurrent clients;
 * the simulator's CPU time per command; one client's latency beside 100
 * stalled connections; and its memory before and after a million commands. The simulator is started from the benchmark's own
 * directory and ended by its process id. */
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include "BenchPeer.h"
#include "Client.h"

namespace {

char clientName[] = "bench";

std::string ownDirectory() {
    char path[4096] = {};
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    std::string text(path, length > 0 ? static_cast<std::size_t>(length) : 0);
    return text.substr(0, text.rfind('/'));
}

/* A tetherhost simulator process on 127.0.0.1:4001 for the benchmark's life. */
class Simulator {
public:
    explicit Simulator(const std::vector<std::string>& options = {}) {
        const std::string program = ownDirectory() + "/tetherhost";
        std::vector<std::string> words = {"tetherhost", "--idle-exit", "0"};
        words.insert(words.end(), options.begin(), options.end());
        std::vector<char*> argv;
        argv.reserve(words.size() + 1);
        for (std::string& word : words) argv.push_back(word.data());
        argv.push_back(nullptr);
        if (posix_spawn(&pid, program.c_str(), nullptr, nullptr, argv.data(), environ) != 0)
            throw std::runtime_error("cannot start " + program);
        // Ready when it answers the introduction.
        for (int attempt = 0; attempt < 500; ++attempt) {
            try {
                ::close(tetherhost::bench::connectFloorClient("probe"));
                return;
            } catch (const std::exception&) {
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
        }
        throw std::runtime_error("the simulator did not start listening");
    }
    ~Simulator() {
        kill(pid, SIGTERM);
        waitpid(pid, nullptr, 0);
    }
    /** User plus system CPU seconds the simulator has used so far. */
    double cpuSeconds() const {
        std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
        std::string text((std::istreambuf_iterator<char>(stat)), {});
        std::istringstream fields(text.substr(text.rfind(')') + 2));
        std::string field;
        unsigned long long user = 0, system = 0;
        for (int index = 3; fields >> field; ++index) {
            if (index == 14) user = std::stoull(field);
            if (index == 15) {
                system = std::stoull(field);
                break;
            }
        }
        return static_cast<double>(user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
    }
    /** Resident memory in kilobytes. */
    long residentKilobytes() const {
        std::ifstream status("/proc/" + std::to_string(pid) + "/status");
        for (std::string line; std::getline(status, line);)
            if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
        return -1;
    }

private:
    pid_t pid = 0;
};

void sendLoop(benchmark::State& state) {
    Client client(clientName);
    client.Connect(nullptr, nullptr, nullptr);
    for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(client.Send(38));
    client.Disconnect();
}

void BM_Send38_MinimalServer(benchmark::State& state) {
    tetherhost::bench::BenchPeer peer;
    sendLoop(state);
}
BENCHMARK(BM_Send38_MinimalServer)->UseRealTime();

void BM_Send38_Simulator(benchmark::State& state) {
    Simulator simulator;
    sendLoop(state);
}
BENCHMARK(BM_Send38_Simulator)->UseRealTime();

/* `clients` connections, each sending Send(38) for a fixed time. */
void BM_Simulator_ConcurrentClients(benchmark::State& state) {
    const int clients = static_cast<int>(state.range(0));
    Simulator simulator;
    for ([[maybe_unused]] auto _ : state) {
        std::atomic<long> commands{0};
        std::atomic<bool> stop{false};
        std::vector<std::thread> threads;
        threads.reserve(static_cast<std::size_t>(clients));
        const double cpuBefore = simulator.cpuSeconds();
        const auto start = std::chrono::steady_clock::now();
        for (int c = 0; c < clients; ++c)
            threads.emplace_back([&] {
                Client client(clientName);
                if (client.Connect(nullptr, nullptr, nullptr) != 0) return;
                while (!stop.load(std::memory_order_relaxed)) {
                    client.Send(38);
                    commands.fetch_add(1, std::memory_order_relaxed);
                }
                client.Disconnect();
            });
        std::this_thread::sleep_for(std::chrono::seconds(2));
        stop = true;
        for (std::thread& thread : threads) thread.join();
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        state.SetIterationTime(seconds);
        state.counters["commands_per_s"] = static_cast<double>(commands.load()) / seconds;
        state.counters["server_cpu_us_per_cmd"] =
            (simulator.cpuSeconds() - cpuBefore) * 1e6 / static_cast<double>(commands.load());
    }
}
BENCHMARK(BM_Simulator_ConcurrentClients)
    ->Arg(1)
    ->Arg(16)
    ->Arg(64)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kSecond);

/* One client's Send(38) latency, median of 10,000, while `stalled`
 * connections each hold half a command token (their stall time set longer
 * than the run, so they stay). The ratio of the two runs shows what stalled
 * clients cost the others. */
void BM_Simulator_LatencyBesideStalledClients(benchmark::State& state) {
    const auto stalled = static_cast<std::size_t>(state.range(0));
    Simulator simulator({"--stall-timeout", "3600"});
    std::vector<int> stallers;
    for (std::size_t i = 0; i < stalled; ++i) {
        const int socket = tetherhost::bench::connectFloorClient("stalled");
        if (::send(socket, "4", 1, MSG_NOSIGNAL) != 1) throw std::runtime_error("a stalled client could not send");
        stallers.push_back(socket);
    }
    Client client(clientName);
    client.Connect(nullptr, nullptr, nullptr);
    constexpr std::size_t commands = 10000;
    std::vector<double> microseconds(commands);
    for ([[maybe_unused]] auto _ : state) {
        for (double& latency : microseconds) {
            const auto start = std::chrono::steady_clock::now();
            benchmark::DoNotOptimize(client.Send(38));
            latency = std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
        }
        std::nth_element(microseconds.begin(), microseconds.begin() + commands / 2, microseconds.end());
        state.SetIterationTime(microseconds[commands / 2] / 1e6);
    }
    state.counters["median_us"] = microseconds[commands / 2];
    client.Disconnect();
    for (const int socket : stallers) ::close(socket);
}
BENCHMARK(BM_Simulator_LatencyBesideStalledClients)
    ->Arg(0)
    ->Arg(100)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

/* The simulator's resident memory before and after a million commands. */
void BM_Simulator_MillionCommandsMemory(benchmark::State& state) {
    Simulator simulator;
    Client client(clientName);
    client.Connect(nullptr, nullptr, nullptr);
    client.Send(38);
    const long before = simulator.residentKilobytes();
    for ([[maybe_unused]] auto _ : state)
        for (int i = 0; i < 1000000; ++i) client.Send(38);
    state.counters["server_rss_growth_kB"] = static_cast<double>(simulator.residentKilobytes() - before);
    client.Disconnect();
}
BENCHMARK(BM_Simulator_MillionCommandsMemory)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();

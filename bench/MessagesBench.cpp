// SPDX-License-Identifier: MIT
/* Cost of posting a numbered message: with both switches off (the path every
 * library step takes when a host application logs nothing) and with a log
 * file set (one open, write and close per line). The baseline is the bare
 * call of a variadic member taking the identifier as a std::string, which
 * every post pays whatever it does. */
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <string>

#include <benchmark/benchmark.h>

#include "AllocationCounter.h"
#include "Client.h"

namespace {

struct Baseline {
    int calls = 0;
    __attribute__((noinline)) void Post(std::string id, ...) {
        va_list args;
        va_start(args, id);
        calls += static_cast<int>(id.size());
        va_end(args);
    }
};

void reportAllocations(benchmark::State& state, std::uint64_t before) {
    state.counters["allocs_per_op"] = benchmark::Counter(
        static_cast<double>(tetherhost::bench::allocationCount() - before) / static_cast<double>(state.iterations()));
}

char name[] = "board1";

void BM_BaselineVariadicCall(benchmark::State& state) {
    Baseline baseline;
    const auto before = tetherhost::bench::allocationCount();
    for ([[maybe_unused]] auto _ : state) baseline.Post("1061", name, name);
    benchmark::DoNotOptimize(baseline.calls);
    reportAllocations(state, before);
}
BENCHMARK(BM_BaselineVariadicCall);

void BM_PrintMessageSwitchesOff(benchmark::State& state) {
    Client client(name);
    const auto before = tetherhost::bench::allocationCount();
    for ([[maybe_unused]] auto _ : state) client.PrintMessage("1061", name, name);
    reportAllocations(state, before);
}
BENCHMARK(BM_PrintMessageSwitchesOff);

void BM_PrintMessageToLogFile(benchmark::State& state) {
    char path[] = "/tmp/tetherhost-bench-log-XXXXXX";
    const int fd = mkstemp(path);
    close(fd);
    Client client(name);
    client.Set_Log_File(path);
    const auto before = tetherhost::bench::allocationCount();
    for ([[maybe_unused]] auto _ : state) client.PrintMessage("1061", name, name);
    reportAllocations(state, before);
    std::remove(path);
}
BENCHMARK(BM_PrintMessageToLogFile);

}  // namespace

BENCHMARK_MAIN();

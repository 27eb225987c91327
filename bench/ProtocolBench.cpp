// SPDX-License-Identifier: MIT
/* The library's protocol cost against its floor: a minimal client written
 * directly on send/recv that makes the identical byte exchange with the same
 * peer in the same run. Send(38) is a command frame, its answer, a reply
 * request and the integer reply; the JTAG shifts are command 44, sub-command
 * 12, two data blocks and the read-back, collected with GetTDO. */
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "AllocationCounter.h"
#include "BenchPeer.h"
#include "Client.h"
#include "support/HeapInUse.h"

using tetherhost::bench::allocationCount;
using tetherhost::bench::BenchPeer;

namespace {

char clientName[] = "bench";

void reportPerOperation(benchmark::State& state, std::uint64_t allocationsBefore) {
    state.counters["allocs_per_op"] = benchmark::Counter(static_cast<double>(allocationCount() - allocationsBefore) /
                                                         static_cast<double>(state.iterations()));
}

/* The floor's frame exchange: one send, one receive of at most `capacity`. */
struct FloorClient {
    int socket = tetherhost::bench::connectFloorClient(clientName);
    char reply[1025] = {};
    ~FloorClient() { ::close(socket); }

    long exchange(const char* token, long capacity) {
        ::send(socket, token, std::strlen(token) + 1, MSG_NOSIGNAL);
        std::memset(reply, 0, 1024);
        return ::recv(socket, reply, static_cast<std::size_t>(capacity), 0);
    }
    long sendBlock(const char* data, long length) {
        return ::send(socket, data, static_cast<std::size_t>(length), MSG_NOSIGNAL);
    }
    /* After the status receive of `got` bytes: the read-back bytes that came
     * with it behind the status text's NUL, moved to the start of `reply`. A
     * stream socket may merge the two, and the library takes them so. */
    long carryAfterStatus(long got) {
        const long carried = got - static_cast<long>(std::strlen(reply) + 1);
        if (carried <= 0) return 0;
        std::memmove(reply, reply + (got - carried), static_cast<std::size_t>(carried));
        return carried;
    }
    int integerReply() {
        exchange("+", 1024);
        return static_cast<int>(std::strtol(reply, nullptr, 10));
    }
};

void BM_Send38_Floor(benchmark::State& state) {
    BenchPeer peer;
    FloorClient floor;
    for ([[maybe_unused]] auto _ : state) {
        floor.exchange("38", 1024);
        benchmark::DoNotOptimize(floor.integerReply());
    }
}
BENCHMARK(BM_Send38_Floor)->UseRealTime();

void BM_Send38_Library(benchmark::State& state) {
    BenchPeer peer;
    Client client(clientName);
    client.Connect(nullptr, nullptr, nullptr);
    const auto before = allocationCount();
    for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(client.Send(38));
    reportPerOperation(state, before);
    client.Disconnect();
}
BENCHMARK(BM_Send38_Library)->UseRealTime();

/* Heap in use before and after a million Send(38) calls, logging off. */
void BM_Send38_MillionCallsHeapGrowth(benchmark::State& state) {
    BenchPeer peer;
    Client client(clientName);
    client.Connect(nullptr, nullptr, nullptr);
    client.Send(38);
    const std::size_t before = tetherhost::heapInUse();
    for ([[maybe_unused]] auto _ : state)
        for (int i = 0; i < 1000000; ++i) client.Send(38);
    state.counters["heap_growth_bytes"] = static_cast<double>(tetherhost::heapInUse()) - static_cast<double>(before);
    client.Disconnect();
}
BENCHMARK(BM_Send38_MillionCallsHeapGrowth)->Iterations(1)->Unit(benchmark::kSecond);

/* One JTAG shift with read-back: `bits` bits, two data blocks (the second
 * block's presence is what enables the read-back). */
void floorShift(FloorClient& floor, const std::vector<char>& data, int bits, std::vector<char>& tdo) {
    const long byteCount = (static_cast<long>(bits) + 7) / 8;
    char text[16];
    floor.exchange("44", 1024);
    floor.exchange("12", 2);
    floor.exchange("0", 2);
    std::snprintf(text, sizeof text, "%d", bits);
    floor.exchange(text, 2);
    floor.exchange("1", 2);
    floor.exchange("0", 2);
    std::vector<char> block(1025, 0);
    if (byteCount <= 1024) {
        for (int b = 0; b < 2; ++b) {
            std::memcpy(block.data(), data.data(), static_cast<std::size_t>(byteCount));
            floor.sendBlock(block.data(), byteCount + 1);
            ::recv(floor.socket, floor.reply, 1024, 0);
        }
        const long carried = floor.carryAfterStatus(floor.exchange("+", 1024));  // go token, status text
        long got = carried;
        if (carried < std::max(byteCount, 1L))
            got += ::recv(floor.socket, floor.reply + carried, static_cast<std::size_t>(1024 - carried), 0);
        if (got > 0) tdo.assign(floor.reply, floor.reply + byteCount);
    } else {
        const long chunkCount = (byteCount + 1023) / 1024;
        for (int b = 0; b < 2; ++b)
            for (long c = 0; c < chunkCount; ++c) {
                std::memset(block.data(), 0, 1024);
                const long remaining = byteCount - 1024 * c;
                std::memcpy(block.data(), data.data() + 1024 * c,
                            static_cast<std::size_t>(remaining < 1024 ? remaining : 1024));
                floor.sendBlock(block.data(), 1024);
                ::recv(floor.socket, floor.reply, 2, 0);
            }
        long carried = floor.carryAfterStatus(floor.exchange("+", 1024));
        tdo.clear();
        for (long c = 0; c < chunkCount; ++c) {
            const long got =
                carried + ::recv(floor.socket, floor.reply + carried, static_cast<std::size_t>(1024 - carried), 0);
            carried = 0;
            tdo.insert(tdo.end(), floor.reply, floor.reply + got);
            floor.sendBlock("+", 2);
        }
    }
    benchmark::DoNotOptimize(floor.integerReply());
}

void BM_JtagShift_Floor(benchmark::State& state) {
    const int bits = static_cast<int>(state.range(0));
    BenchPeer peer;
    FloorClient floor;
    std::vector<char> data((bits + 7) / 8 + 1, 0x33);
    std::vector<char> tdo;
    for ([[maybe_unused]] auto _ : state) floorShift(floor, data, bits, tdo);
    state.SetBytesProcessed(state.iterations() * ((bits + 7) / 8));
}
BENCHMARK(BM_JtagShift_Floor)->Arg(32)->Arg(8 << 20)->UseRealTime();

void BM_JtagShift_Library(benchmark::State& state) {
    const int bits = static_cast<int>(state.range(0));
    BenchPeer peer;
    Client client(clientName);
    client.Connect(nullptr, nullptr, nullptr);
    std::vector<char> data((bits + 7) / 8 + 1, 0x33);
    std::vector<char> tdo((bits + 7) / 8 + 1);
    const auto before = allocationCount();
    for ([[maybe_unused]] auto _ : state) {
        client.Send(44, 12, 0, bits, 1, 0, data.data(), data.data());
        benchmark::DoNotOptimize(client.GetTDO(tdo.data(), bits));
    }
    reportPerOperation(state, before);
    state.SetBytesProcessed(state.iterations() * ((bits + 7) / 8));
    client.Disconnect();
}
BENCHMARK(BM_JtagShift_Library)->Arg(32)->Arg(8 << 20)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();

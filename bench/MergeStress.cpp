// SPDX-License-Identifier: MIT
/* MergeStress: JTAG shifts with read-back through the library against the
 * simulator, for finding what a stream socket does under load. Every TDO is
 * checked, and the client side counts how often the read-back arrived in the
 * same receive as the status text: the simulator cannot see that, since the
 * merge happens in the client's own kernel receive. The library's calls to
 * send and recv are watched through the linker's --wrap: a receive right
 * after the go token (the two bytes "+" and NUL) that brings bytes behind
 * the status text's NUL took read-back bytes with it. Usage: stress_merge
 * [SHIFTS] (default 100000); run it with scripts/stress-merge.sh, which adds
 * the CPU hog and the private network.
 * Exit status 0 when every TDO was right, 1 otherwise. */
#include <sys/socket.h>
#include <sys/types.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Client.h"

extern "C" ssize_t __real_recv(int socket, void* buffer, size_t length, int flags);
extern "C" ssize_t __real_send(int socket, const void* buffer, size_t length, int flags);

namespace {
bool afterPlusFrame = false;  // the last send was "+" and NUL: a go token or a reply request
long mergedReceives = 0;
}  // namespace

extern "C" ssize_t __wrap_send(int socket, const void* buffer, size_t length, int flags) {
    afterPlusFrame = length == 2 && std::memcmp(buffer, "+", 2) == 0;
    return __real_send(socket, buffer, length, flags);
}

/* The receive after a go token holds the status text; after a reply request,
 * the integer reply. Either is one NUL-terminated text, so bytes behind its
 * NUL can only be the read-back's. */
extern "C" ssize_t __wrap_recv(int socket, void* buffer, size_t length, int flags) {
    const ssize_t received = __real_recv(socket, buffer, length, flags);
    if (afterPlusFrame && received > 0) {
        const auto* bytes = static_cast<const char*>(buffer);
        const void* nul = std::memchr(bytes, '\0', static_cast<std::size_t>(received));
        if (nul != nullptr && static_cast<const char*>(nul) + 1 < bytes + received) ++mergedReceives;
    }
    afterPlusFrame = false;
    return received;
}

namespace {

/* The virtual chain's three parts in bypass: a data scan comes back as the
 * data delayed by three bits, taken least significant bit first. */
std::uint64_t throughBypass(std::uint64_t tdi) { return tdi << 3; }

std::uint64_t nextPattern(std::uint64_t& state) {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    return state;
}

}  // namespace

int main(int argc, char** argv) {
    const long shifts = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 100000;
    char name[] = "merge-stress";
    char nothing[] = "";
    Client client(name);
    if (client.Connect(nothing, nullptr, nullptr) != 0) {
        std::fprintf(stderr, "stress_merge: cannot connect to the simulator\n");
        return 1;
    }
    unsigned char ones[] = {0xFF, 0xFF, 0x03};
    if (client.Send(44, 12, 1, 18, 0, 0, ones) != 0) {
        std::fprintf(stderr, "stress_merge: cannot put the chain in bypass\n");
        return 1;
    }
    long wrong = 0;
    std::uint64_t state = 0x9E3779B97F4A7C15ULL;
    for (long i = 0; i < shifts; ++i) {
        const std::uint64_t tdi = nextPattern(state);
        unsigned char in[8];
        unsigned char placeholder[8] = {};
        for (int b = 0; b < 8; ++b) in[b] = static_cast<unsigned char>(tdi >> (8 * b));
        const int result = client.Send(44, 12, 0, 64, 1, 0, in, placeholder);
        char out[8] = {};
        const int taken = client.GetTDO(out, 64);
        std::uint64_t tdo = 0;
        for (int b = 0; b < 8; ++b) tdo |= static_cast<std::uint64_t>(static_cast<unsigned char>(out[b])) << (8 * b);
        if (result != 0 || taken != 0 || tdo != throughBypass(tdi)) {
            if (++wrong <= 10)
                std::fprintf(stderr, "shift %ld: Send %d, GetTDO %d, TDO %016llx, expected %016llx\n", i, result, taken,
                             static_cast<unsigned long long>(tdo), static_cast<unsigned long long>(throughBypass(tdi)));
        }
    }
    client.Disconnect();
    const long merged = mergedReceives;
    std::printf("shifts %ld, wrong TDO %ld, merged read-backs %ld (%.1f per million)\n", shifts, wrong, merged,
                shifts > 0 ? 1e6 * static_cast<double>(merged) / static_cast<double>(shifts) : 0.0);
    return wrong == 0 ? 0 : 1;
}

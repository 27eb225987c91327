// SPDX-License-Identifier: MIT
/* careful_host: a host application that reads the IDCODEs of the JTAG
 * chain and means to get them from a lab server that misbehaves:
 *
 * - the command lock may be held by another client: it asks again, up to
 *   five times;
 * - the server may end the connection: it connects again and starts over,
 *   once;
 * - the server may be too busy for a scan (reply -6): it scans again, up to
 *   three times.
 *
 * It says on standard output what it recovered from, then the IDCODEs. Its
 * tests (CMakeLists.txt beside it) run it against its own recording
 * (tetherhost --replay careful_host.jsonl) and under one fault each
 * (tetherhost --faults faults/NAME.json); docs/testing-host-applications.md
 * tells how they were made.
 *
 * Usage: careful_host [SERVER_DIRECTORY]
 * SERVER_DIRECTORY is where Connect finds the server program "tetherhost" if
 * it has to start one; by default the directory of this program. */
#include <cstddef>
#include <cstdio>

#include "Client.h"

namespace {

constexpr int lockAttempts = 5;
constexpr int scanAttempts = 3;
constexpr int lockRefused = -1;  // Send(33): another client holds the command lock
constexpr int busy = -6;         // the server's reply: its transfer memory is in use, try again
constexpr int chainBits = 96;    // the chain's three 32-bit IDCODEs
constexpr int chainBytes = chainBits / 8;

enum class Outcome { Done, ConnectionLost, Failed };

/* One session, from Connect to Disconnect. */
Outcome session(const char* serverDirectory) {
    Client client(const_cast<char*>("careful_host"));
    if (client.Connect(nullptr, nullptr, serverDirectory) != 0) {
        std::printf("careful_host: no server answers (status %d)\n", client.GetClientStatus());
        return Outcome::Failed;
    }
    // After a negative status of the library the connection is out of step
    // or gone: the only way on is a new one.
    const auto lost = [&client](const char* step) {
        std::printf("careful_host: %s failed with status %d; connecting again\n", step, client.GetClientStatus());
        client.Disconnect();
        return Outcome::ConnectionLost;
    };
    const auto failed = [&client](const char* what) {
        std::printf("careful_host: %s; giving up\n", what);
        client.Disconnect();
        return Outcome::Failed;
    };

    const int opened = client.Send(4, "careful_host", "1.0", 0);
    if (opened == lockRefused) return failed("another client holds the session");
    if (opened != 0) return lost("opening the session");

    for (int attempt = 1;; ++attempt) {
        const int taken = client.Send(33);
        if (taken == 0) break;
        if (taken != lockRefused) return lost("taking the command lock");
        if (attempt == lockAttempts) return failed("the command lock stays with another client");
        // A host sharing a busy lab server would wait a little here.
        std::printf("careful_host: the command lock is held by another client (attempt %d); asking again\n", attempt);
    }

    client.Send(44, 3);  // reset the TAPs: every data register holds its IDCODE
    if (client.GetClientStatus() < 0) return lost("resetting the TAPs");
    const unsigned char tdi[chainBytes] = {};
    const unsigned char expected[chainBytes] = {};
    for (int attempt = 1;; ++attempt) {
        // A data scan with read-back (withSecond 1 sends an expected TDO);
        // the reply counts the bits that differ from it, or says why the
        // server could not scan.
        const int reply = client.Send(44, 12, 0, chainBits, 1, 0, tdi, expected);
        if (client.GetClientStatus() < 0) return lost("the scan");
        if (reply != busy) break;
        if (attempt == scanAttempts) return failed("the server stays busy");
        std::printf("careful_host: the server is busy (reply %d, attempt %d); scanning again\n", reply, attempt);
    }

    unsigned char tdoBytes[chainBytes] = {};
    unsigned char* tdo = tdoBytes;
    if (client.GetTDO(tdo, chainBits) != 0) return failed("no scan data came back");
    std::printf("IDCODEs, the device next to TDO first:");
    for (std::size_t offset = 0; offset < sizeof tdoBytes; offset += 4) {
        const unsigned char* bytes = tdoBytes + offset;
        const unsigned long idcode =
            bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<unsigned long>(bytes[3]) << 24;
        std::printf(" 0x%08lX", idcode);
    }
    std::printf("\n");

    client.Send(34);  // the command lock back
    client.Send(35);  // and the session lock
    if (client.Disconnect() != 0) return failed("the farewell failed");
    return Outcome::Done;
}

}  // namespace

int main(int argc, char** argv) {
    const char* serverDirectory = argc > 1 ? argv[1] : nullptr;
    Outcome outcome = session(serverDirectory);
    if (outcome == Outcome::ConnectionLost) outcome = session(serverDirectory);
    return outcome == Outcome::Done ? 0 : 1;
}

// SPDX-License-Identifier: MIT
/* minimal_host: a complete session of a host application, in order: connect
 * (the library starts the tetherhost server when none answers), open the
 * session with command 4 (the session lock), take the command lock with 33,
 * reset the TAPs, make one JTAG scan with read-back, collect the scan's data
 * with GetTDO, give both locks back and disconnect.
 *
 * Usage: minimal_host [SERVER_DIRECTORY]
 * SERVER_DIRECTORY is where Connect finds the server program "tetherhost" if
 * it has to start one; by default the directory of this program. */
#include <cstdio>

#include "Client.h"

namespace {

int fail(Client& client, const char* step, int status) {
    std::fprintf(stderr, "minimal_host: %s failed with status %d\n", step, status);
    client.Disconnect();
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    Client client(const_cast<char*>("minimal_host"));
    char connectText[] = "127.0.0.1";  // ignored: the server is always 127.0.0.1:4001
    int status = client.Connect(connectText, nullptr, argc > 1 ? argv[1] : nullptr);
    if (status != 0) {
        std::fprintf(stderr, "minimal_host: Connect failed with status %d\n", status);
        return 1;
    }

    // Command 4: two texts (who we are), the number of options that follow
    // (none: the defaults), then the session lock negotiation. 0 means granted.
    status = client.Send(4, "minimal_host", "1.0", 0);
    if (status != 0) return fail(client, "opening the session (command 4)", status);
    // Command 33: the command lock. Both locks are needed for the guarded
    // commands (28 and below, except 1, 3 and 4).
    status = client.Send(33);
    if (status != 0) return fail(client, "taking the command lock (command 33)", status);

    // Command 44 carries the JTAG-interface sub-commands: 3 resets the TAPs,
    // after which every device's data register holds its IDCODE.
    client.Send(44, 3);
    if (client.GetClientStatus() < 0) return fail(client, "resetting the TAPs", client.GetClientStatus());

    // Sub-command 12: a JTAG shift. flags 0 is a data-register scan; 32 bits;
    // withSecond 1 sends a second block (the expected TDO) and asks for the
    // read-back; withThird 0: no mask. Then the blocks, 4 bytes each.
    const unsigned char tdi[4] = {0xFF, 0xFF, 0xFF, 0xFF};
    const unsigned char expected[4] = {0, 0, 0, 0};
    const int mismatches = client.Send(44, 12, 0, 32, 1, 0, tdi, expected);
    if (client.GetClientStatus() < 0) return fail(client, "the JTAG shift", client.GetClientStatus());

    unsigned char tdoBytes[4] = {0, 0, 0, 0};
    unsigned char* tdo = tdoBytes;
    status = client.GetTDO(tdo, 32);
    if (status != 0) return fail(client, "GetTDO", status);
    // Bit 0 of byte 0 is the first bit out of TDO: the IDCODE of the device
    // next to the cable's TDO.
    const unsigned long idcode =
        tdoBytes[0] | tdoBytes[1] << 8 | tdoBytes[2] << 16 | static_cast<unsigned long>(tdoBytes[3]) << 24;
    std::printf("IDCODE of the device next to TDO: 0x%08lX (server's compare result %d)\n", idcode, mismatches);

    client.Send(34);  // give the command lock back
    client.Send(35);  // and the session lock
    status = client.Disconnect();
    if (status != 0) {
        std::fprintf(stderr, "minimal_host: Disconnect failed with status %d\n", status);
        return 1;
    }
    std::printf("disconnected\n");
    return 0;
}

// SPDX-License-Identifier: MIT
/* RemoteBitbang: the requests of OpenOCD's remote_bitbang protocol carried
 * out on the virtual chain, one TCK edge at a time. */
#include "server/RemoteBitbang.h"

namespace tetherhost::sim {

void RemoteBitbang::drive(bool newTck, bool newTms, bool newTdi) {
    // A TAP samples TMS and TDI on the rising edge of TCK; while TRST holds
    // the controllers in Test-Logic-Reset, edges change nothing.
    if (newTck && !tck && !chain.trst()) {
        chain.clock(newTms, newTdi);
        ++clocked;
    }
    tck = newTck;
    tms = newTms;
    tdi = newTdi;
}

void RemoteBitbang::resetLines(bool newTrst, bool newSrst) {
    chain.setTrst(newTrst);
    trstHeld = newTrst;
    srst = newSrst;
}

RemoteBitbang::~RemoteBitbang() {
    // A client that leaves with TRST asserted lets go of the line.
    if (trstHeld) chain.setTrst(false);
}

RemoteBitbang::Outcome RemoteBitbang::feed(std::string_view requests, std::string& answers) {
    for (const char request : requests) {
        switch (request) {
        case '0':
        case '1':
        case '2':
        case '3':
        case '4':
        case '5':
        case '6':
        case '7': {
            const int pins = request - '0';
            drive((pins & 4) != 0, (pins & 2) != 0, (pins & 1) != 0);
            break;
        }
        case 'R': answers.push_back(chain.tdo() ? '1' : '0'); break;
        case 'r':
        case 's':
        case 't':
        case 'u': {
            const int lines = request - 'r';
            resetLines((lines & 2) != 0, (lines & 1) != 0);
            break;
        }
        case 'B': led = true; break;
        case 'b': led = false; break;
        // SWD names TCK SWCLK and TMS SWDIO; a JTAG chain sees the same
        // edges. Undriven, SWDIO reads high (the line's pull-up).
        case 'O': swdioDriven = true; break;
        case 'o': swdioDriven = false; break;
        case 'c': answers.push_back(!swdioDriven || tms ? '1' : '0'); break;
        case 'd':
        case 'e':
        case 'f':
        case 'g': {
            const int pins = request - 'd';
            drive((pins & 2) != 0, (pins & 1) != 0, tdi);
            break;
        }
        case 'Q': return Outcome::Quit;
        default: rejected = static_cast<unsigned char>(request); return Outcome::Garbage;
        }
    }
    return Outcome::More;
}

}  // namespace tetherhost::sim

// SPDX-License-Identifier: MIT
/* RemoteBitbang: OpenOCD's remote_bitbang protocol, request by request, on
 * the virtual chain. Every byte the client sends is one request: drive the
 * cable's pins ('0' to '7': TCK, TMS and TDI as the three bits of the digit),
 * read TDO ('R', answered '0' or '1'), TRST and SRST ('r' to 'u'), the LED
 * ('B', 'b'), the SWD forms of the same pins ('O', 'o', 'c', 'd' to 'g') and
 * quit ('Q'). The chain is clocked on each rising edge of TCK, with the TMS
 * and TDI of that request, as a TAP samples them; TDO is what the chain
 * presents before that edge. This class holds no socket: the server feeds it
 * what arrived and sends back what it answers. */
#ifndef TETHERHOST_SERVER_REMOTEBITBANG_H
#define TETHERHOST_SERVER_REMOTEBITBANG_H

#include <cstdint>
#include <string>
#include <string_view>

#include "server/JtagChain.h"

namespace tetherhost::sim {

class RemoteBitbang {
public:
    explicit RemoteBitbang(JtagChain& chain) : chain(chain) {}
    ~RemoteBitbang();
    RemoteBitbang(const RemoteBitbang&) = delete;
    RemoteBitbang& operator=(const RemoteBitbang&) = delete;

    enum class Outcome {
        More,     // every request was carried out; more may come
        Quit,     // the client asked to end the connection
        Garbage,  // a byte that is no request: the connection is to be closed
    };

    /** Carries out `requests` in order, appending each answer to `answers`.
     * Stops at a quit request or at the first byte that is no request; what
     * came before it has been carried out. */
    Outcome feed(std::string_view requests, std::string& answers);

    /** The byte that ended the last feed with Outcome::Garbage. */
    unsigned char garbage() const { return rejected; }
    /** Rising TCK edges clocked into the chain so far. */
    std::uint64_t cycles() const { return clocked; }
    bool ledOn() const { return led; }
    bool systemResetAsserted() const { return srst; }

private:
    void drive(bool newTck, bool newTms, bool newTdi);
    void resetLines(bool newTrst, bool newSrst);

    JtagChain& chain;
    bool tck = false;
    bool tms = false;
    bool tdi = false;
    bool trstHeld = false;  // this client asserted TRST and has not released it
    bool srst = false;
    bool led = false;
    bool swdioDriven = false;
    unsigned char rejected = 0;
    std::uint64_t clocked = 0;
};

}  // namespace tetherhost::sim

#endif

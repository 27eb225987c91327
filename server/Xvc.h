// SPDX-License-Identifier: MIT
/* Xvc: the Xilinx Virtual Cable 1.0 protocol, command by command, on the
 * virtual chain. Three commands: "getinfo:" (answered with the server's
 * version and the longest vector it takes), "settck:" and a 4-byte period in
 * nanoseconds (answered with the period used), and "shift:", a 4-byte bit
 * count and the TMS and TDI vectors (answered with the TDO vector). Numbers
 * are little-endian; a vector holds (bits + 7) / 8 bytes, bit 0 of byte 0
 * first. Commands may arrive cut anywhere or several in one receive: what is
 * not yet a whole command is kept until the rest comes. This class holds no
 * socket: the server feeds it what arrived and sends back what it answers. */
#ifndef TETHERHOST_SERVER_XVC_H
#define TETHERHOST_SERVER_XVC_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "server/JtagChain.h"
#include "support/ByteUnits.h"

namespace tetherhost::sim {

class Xvc {
public:
    /** The longest TMS or TDI vector a shift may carry, as "getinfo:"
     * announces it: 2 KiB, 16,384 TCK cycles per shift. */
    static constexpr std::size_t maxVectorBytes = 2 * units::kibi;
    static constexpr std::size_t maxShiftBits = maxVectorBytes * 8;

    explicit Xvc(JtagChain& chain) : chain(chain) {}

    enum class Outcome {
        More,     // every whole command was carried out; more may come
        Garbage,  // bytes that are no command: the connection is to be closed
    };

    /** Carries out the commands that `bytes` completes, in order, appending
     * each answer to `answers`. Stops at the first bytes that are no
     * command, or a shift it does not take; what came before has been
     * carried out. */
    Outcome feed(std::string_view bytes, std::string& answers);

    /** Why the last feed ended with Outcome::Garbage. */
    const std::string& garbage() const { return rejection; }
    /** TCK cycles clocked into the chain so far. */
    std::uint64_t cycles() const { return clocked; }
    /** The TCK period in nanoseconds the client last set; none until it
     * sets one. The virtual chain runs at any speed, so the period asked for
     * is the period used. */
    std::optional<std::uint32_t> tckPeriod() const { return period; }

private:
    /** Carries out the command at the start of `command` if it is whole; the
     * bytes it took, 0 when it is incomplete or rejected. */
    std::size_t carryOut(std::string_view command, std::string& answers);
    void shift(std::uint32_t bitCount, std::string_view tms, std::string_view tdi, std::string& answers);

    JtagChain& chain;
    std::string pending;  // the start of a command whose rest has not come
    std::string rejection;
    std::optional<std::uint32_t> period;
    std::uint64_t clocked = 0;
};

}  // namespace tetherhost::sim

#endif

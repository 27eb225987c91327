// SPDX-License-Identifier: MIT
/* JtagChain: the devices behind the cable's JTAG port. Each device is a TAP
 * with the 16-state controller of IEEE 1149.1, an instruction register of up
 * to 64 bits that captures its own value (...01 unless told otherwise), a
 * one-bit BYPASS register that captures 0, (optionally) a 32-bit IDCODE
 * register that is selected after reset, and the data registers of the
 * instructions its description lists. The all-ones instruction and every
 * instruction the description does not name select BYPASS. All TAPs share
 * TCK and TMS; TDI enters the first device, each device's TDO feeds the next
 * one's TDI, and the last device's TDO is the cable's TDO.
 *
 * Bit strings are byte strings, least significant bit of byte 0 first: the
 * first bit shifted in or out is bit 0 of byte 0. */
#ifndef TETHERHOST_SERVER_JTAGCHAIN_H
#define TETHERHOST_SERVER_JTAGCHAIN_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "protocol/TapStates.h"

namespace tetherhost::sim {

// The controller's states and moves are the protocol's (sub-commands 8 and
// 17 to 20 carry state numbers).
using protocol::isStableState;
using protocol::nextTapState;
using protocol::TapState;
using protocol::tapStateCount;
using protocol::tapStateName;

/** A register's bits, least significant first, 64 to a word. */
using RegisterBits = std::vector<std::uint64_t>;

/** An instruction that selects a data register of its own. */
struct TapInstruction {
    std::string name;
    std::uint64_t opcode = 0;
    std::size_t length = 1;
    /** Loaded at Capture-DR. Absent: the register keeps what was last
     * shifted into it (all zeros at first), across scans and resets. */
    std::optional<RegisterBits> capture;
};

struct TapDevice {
    std::string name;
    int irLength = 0;
    /** Absent: the device has no IDCODE register and selects BYPASS after reset. */
    std::optional<std::uint32_t> idcode;
    std::uint64_t idcodeInstruction = 0;
    /** Loaded into the instruction register at Capture-IR. */
    std::uint64_t irCapture = 0b01;
    std::vector<TapInstruction> instructions;
};

/** Longest instruction register the model accepts. */
inline constexpr int maxIrLength = 64;
/** Longest data register an instruction may select: 1 Mibit. */
inline constexpr std::size_t maxRegisterLength = std::size_t{1} << 20;

/** A shift register of any length: bits enter at the top and leave at bit 0. */
class ShiftRegister {
public:
    explicit ShiftRegister(std::size_t length = 1) { resize(length); }

    /** Makes the register `length` bits long, all zeros. */
    void resize(std::size_t length);
    std::size_t length() const { return bitCount; }
    /** Sets the register to `value` (64 bits to a word, least significant
     * first); bits beyond its length are dropped. */
    void load(std::span<const std::uint64_t> value);
    bool bit(std::size_t index) const { return ((words[index / 64] >> (index % 64)) & 1U) != 0; }
    void assign(std::size_t index, bool value);
    /** One shift: bit 0 leaves (returned), `in` enters as the top bit. */
    bool shift(bool in);
    /** The first 64 bits. */
    std::uint64_t low() const { return words.front(); }

private:
    RegisterBits words;
    std::size_t bitCount = 0;
};

/** The built-in chain: three devices with instruction registers of 4, 6 and
 * 8 bits and made-up IDCODEs. */
std::vector<TapDevice> defaultChain();

/** Checks a chain description; the empty text when it is usable, otherwise
 * what is wrong with it. */
std::string validateChain(const std::vector<TapDevice>& devices);

enum class ScanKind { Instruction, Data };

/** Bits of `bits` that differ from `expected` where `mask` is 1, among the
 * first `bitCount`. Missing bytes count as 0. */
std::size_t countMismatches(const std::string& bits, const std::string& expected, const std::string& mask,
                            std::size_t bitCount);

class JtagChain {
public:
    /** Devices in chain order, from the cable's TDI to its TDO; all start in
     * Test-Logic-Reset. The description must pass validateChain. */
    explicit JtagChain(std::vector<TapDevice> devices);

    /** One TCK cycle: TMS and TDI are sampled, the current state's action is
     * done, the controller moves on. Returns the cable's TDO for the cycle,
     * 1 (pulled up) when no register is being shifted. While TRST is
     * asserted the cycle changes nothing. */
    bool clock(bool tms, bool tdi);
    /** The cable's TDO now, between TCK edges: bit 0 of the last device's
     * register in the Shift states, 1 (pulled up) in any other. It is the
     * bit the next clock() in a Shift state returns. */
    bool tdo() const;
    /** Five cycles with TMS high: Test-Logic-Reset from any state. */
    void reset();
    /** TRST: every controller to Test-Logic-Reset at once, without TCK. */
    void testReset();
    /** TRST held (true) or released: while held, the controllers stay in
     * Test-Logic-Reset and TCK changes nothing. */
    void setTrst(bool asserted);
    bool trst() const { return trstAsserted; }
    /** One TCK cycle with the TMS that leads to `next`; false, and nothing
     * clocked, when `next` does not follow the current state. */
    bool stepTo(TapState next);
    /** `count` TCK cycles in the current stable state, TMS holding it there:
     * counted, and nothing else changes. */
    void idle(std::uint64_t count);
    /** TCK cycles clocked so far (idle ones included). */
    std::uint64_t cycles() const { return clocked; }
    /** Drives TMS along the shortest path from the current state to `target`. */
    void moveTo(TapState target);
    /** One whole scan: to Capture, through Shift for `bitCount` bits of
     * `tdi` (missing bytes shift in as 0) and Exit1, then on to `end`, a
     * stable state: the Pause state of the same register stays before
     * Update, any other is reached through Update by the shortest path.
     * From the Pause state of the same register the scan goes on through
     * Exit2 to Shift without a new Capture, so a long scan can be split.
     * Returns the TDO bits, (bitCount + 7) / 8 bytes; all ones while TRST
     * is held, when nothing moves. */
    std::string scan(ScanKind kind, const std::string& tdi, std::size_t bitCount, TapState end = TapState::RunTestIdle);

    TapState state() const { return current; }
    const std::vector<TapDevice>& devices() const { return descriptions; }
    /** The instruction that device `index` holds. */
    std::uint64_t instruction(std::size_t index) const { return taps.at(index).instruction; }
    // A tap's registers: the instruction register, then BYPASS or IDCODE
    // (whichever was captured last; neither keeps a value), then one per
    // listed instruction in the description's order.
    static constexpr std::size_t instructionRegister = 0;
    static constexpr std::size_t fixedRegister = 1;
    static constexpr std::size_t firstListedRegister = 2;
    /** Device `index`'s registers as they hold now, in that order. */
    const std::vector<ShiftRegister>& registersOf(std::size_t index) const { return taps.at(index).registers; }

private:
    struct Tap {
        std::uint64_t instruction = 0;
        std::vector<ShiftRegister> registers;
        /** The register between TDI and TDO in the Shift states. */
        std::size_t shifting = fixedRegister;
        ShiftRegister& active() { return registers[shifting]; }
        const ShiftRegister& active() const { return registers[shifting]; }
    };

    void capture(ScanKind kind);
    void enter(TapState state);
    /** Shift for `bitCount` cycles in a Shift state, TMS high on the last. */
    std::string shiftThrough(const std::string& tdi, std::size_t bitCount);
    std::uint64_t resetInstruction(std::size_t index) const;

    std::vector<TapDevice> descriptions;
    std::vector<Tap> taps;
    TapState current = TapState::TestLogicReset;
    bool trstAsserted = false;
    std::uint64_t clocked = 0;
};

}  // namespace tetherhost::sim

#endif

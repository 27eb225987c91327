/* JtagChain: the devices behind the cable's JTAG port. Each device is a TAP
 * with the 16-state controller of IEEE 1149.1, an instruction register that
 * captures ...01, a one-bit BYPASS register that captures 0 and selected by
 * the all-ones instruction, and (optionally) a 32-bit IDCODE register that is
 * selected after reset. All TAPs share TCK and TMS; TDI enters the first
 * device, each device's TDO feeds the next one's TDI, and the last device's
 * TDO is the cable's TDO.
 *
 * Bit strings are byte strings, least significant bit of byte 0 first: the
 * first bit shifted in or out is bit 0 of byte 0. */
#ifndef TETHERHOST_SERVER_JTAGCHAIN_H
#define TETHERHOST_SERVER_JTAGCHAIN_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tetherhost::sim {

enum class TapState : unsigned char {
    TestLogicReset,
    RunTestIdle,
    SelectDrScan,
    CaptureDr,
    ShiftDr,
    Exit1Dr,
    PauseDr,
    Exit2Dr,
    UpdateDr,
    SelectIrScan,
    CaptureIr,
    ShiftIr,
    Exit1Ir,
    PauseIr,
    Exit2Ir,
    UpdateIr,
};

inline constexpr int tapStateCount = 16;

/** The controller's state after one TCK with this TMS. */
TapState nextTapState(TapState state, bool tms);
/** The IEEE 1149.1 name of a state, e.g. "Run-Test/Idle". */
const char* tapStateName(TapState state);

struct TapDevice {
    std::string name;
    int irLength = 0;
    /** Absent: the device has no IDCODE register and selects BYPASS after reset. */
    std::optional<std::uint32_t> idcode;
    std::uint32_t idcodeInstruction = 0;
};

/** Longest instruction register the model accepts. */
inline constexpr int maxIrLength = 32;

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
     * 1 (pulled up) when no register is being shifted. */
    bool clock(bool tms, bool tdi);
    /** Five cycles with TMS high: Test-Logic-Reset from any state. */
    void reset();
    /** Drives TMS along the shortest path from the current state to `target`. */
    void moveTo(TapState target);
    /** One whole scan from the current state: to Capture, through Shift for
     * `bitCount` bits of `tdi` (missing bytes shift in as 0), Exit1, Update,
     * and on to Run-Test/Idle. Returns the TDO bits, (bitCount + 7) / 8 bytes. */
    std::string scan(ScanKind kind, const std::string& tdi, std::size_t bitCount);

    TapState state() const { return current; }
    const std::vector<TapDevice>& devices() const { return descriptions; }
    /** The instruction that device `index` holds. */
    std::uint32_t instruction(std::size_t index) const { return taps.at(index).instruction; }

private:
    struct Tap {
        std::uint32_t instruction;
        std::uint64_t shift;  // the register between Capture and Update
        int shiftLength;
    };

    void capture(ScanKind kind);
    void enter(TapState state);
    /** Shift for `bitCount` cycles in a Shift state, TMS high on the last. */
    std::string shiftThrough(const std::string& tdi, std::size_t bitCount);
    std::uint32_t resetInstruction(std::size_t index) const;
    bool selectsIdcode(std::size_t index) const;

    std::vector<TapDevice> descriptions;
    std::vector<Tap> taps;
    TapState current = TapState::TestLogicReset;
};

}  // namespace tetherhost::sim

#endif

/* Statement: one SVF statement as the reader hands it out, checked on its
 * own (names, numbers, stable states, adjacent path steps) but not against
 * the statements before it; ScanComposer applies the rules that carry over
 * from one statement to the next. Also the TAP controller's states, under
 * IEEE 1149.1's numbers, which are the simulator's sub-command numbers too. */
#ifndef TETHERHOST_SVF_STATEMENT_H
#define TETHERHOST_SVF_STATEMENT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "svf/Bits.h"

namespace tetherhost::svf {

enum class State : int {
    Reset = 0,
    Idle = 1,
    DrSelect = 2,
    DrCapture = 3,
    DrShift = 4,
    DrExit1 = 5,
    DrPause = 6,
    DrExit2 = 7,
    DrUpdate = 8,
    IrSelect = 9,
    IrCapture = 10,
    IrShift = 11,
    IrExit1 = 12,
    IrPause = 13,
    IrExit2 = 14,
    IrUpdate = 15
};

/** Reset, Idle, DrPause, IrPause: the states the controller may be left in. */
bool isStable(State state);
/** RESET, IDLE, DRSELECT, ... IRUPDATE, in any case. */
std::optional<State> stateNamed(std::string_view svfName);
/** The upper-case SVF name. */
std::string_view svfName(State state);
/** The state one TCK with this TMS level leads to. */
State nextState(State from, bool tms);
/** `to` is reachable from `from` in one TCK (with TMS 0 or 1). */
bool follows(State from, State to);

enum class Kind { Sir, Sdr, Hir, Hdr, Tir, Tdr, EndIr, EndDr, StatePath, RunTest, Frequency, Trst };

/** The statement's SVF keyword: "SIR", ... "STATE", "RUNTEST", "FREQUENCY", "TRST". */
std::string_view svfKeyword(Kind kind);

/** The parameters of SIR, SDR, HIR, HDR, TIR and TDR as written; each present one has `length` bits. */
struct ScanFields {
    std::uint64_t length = 0;
    std::optional<Bits> tdi, tdo, mask, smask;
};

enum class Clock { Tck, Sck };

/** RUNTEST as written; what is left out is left out here too (the player keeps the defaults). */
struct RunTestFields {
    std::optional<State> runState;
    std::optional<std::uint64_t> count;  // run_count, clocked on `clock`
    Clock clock = Clock::Tck;
    std::optional<double> minSeconds, maxSeconds;
    std::optional<State> endState;
};

enum class TrstMode { On, Off, Z, Absent };

struct Statement {
    Kind kind = Kind::Sir;
    long firstLine = 0, lastLine = 0;  // 1-based; lastLine is the line of the closing ';'
    long firstColumn = 0;              // 1-based byte column of the statement's first word
    std::string summary;  // the text, whitespace and comments collapsed to one space, cut at 100 characters with "..."
    ScanFields scan;      // Sir, Sdr, Hir, Hdr, Tir, Tdr
    State state = State::Idle;      // EndIr, EndDr
    std::vector<State> path;        // StatePath: every state named, in order; the last is stable
    RunTestFields runTest;          // RunTest
    std::optional<double> hz;       // Frequency (absent: full speed)
    TrstMode trst = TrstMode::Off;  // Trst
};

}  // namespace tetherhost::svf

#endif

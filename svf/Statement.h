// SPDX-License-Identifier: MIT
/* Statement: one SVF statement as the reader hands it out, checked on its
 * own (names, numbers, stable states, adjacent path steps) but not against
 * the statements before it; ScanComposer applies the rules that carry over
 * from one statement to the next. The TAP controller's states are the
 * protocol's (protocol/TapStates.h); here are their SVF names. */
#ifndef TETHERHOST_SVF_STATEMENT_H
#define TETHERHOST_SVF_STATEMENT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/TapStates.h"
#include "svf/Bits.h"

namespace tetherhost::svf {

/** The TAP controller's states, under the protocol's numbers. */
using State = protocol::TapState;
using protocol::follows;
using protocol::isStableState;
using protocol::nextTapState;

/** RESET, IDLE, DRSELECT, ... IRUPDATE, in any case. */
std::optional<State> stateNamed(std::string_view svfName);
/** The upper-case SVF name. */
std::string_view svfName(State state);

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
    State state = State::RunTestIdle;  // EndIr, EndDr
    std::vector<State> path;           // StatePath: every state named, in order; the last is stable
    RunTestFields runTest;             // RunTest
    std::optional<double> hz;          // Frequency (absent: full speed)
    TrstMode trst = TrstMode::Off;     // Trst
};

}  // namespace tetherhost::svf

#endif

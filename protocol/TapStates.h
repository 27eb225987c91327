// SPDX-License-Identifier: MIT
/* TapStates: the sixteen states of the IEEE 1149.1 TAP controller under the
 * numbers the JTAG-interface sub-commands carry (8 reports one; 17 to 20
 * take one), their names as sub-command 8's text gives them, and how TMS
 * moves the controller between them. The simulator's chain, the SVF player
 * and the benchmarks' minimal remote_bitbang server share them. */
#ifndef TETHERHOST_PROTOCOL_TAPSTATES_H
#define TETHERHOST_PROTOCOL_TAPSTATES_H

#include <array>
#include <cstddef>

namespace tetherhost::protocol {

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
constexpr TapState nextTapState(TapState state, bool tms) {
    using S = TapState;
    switch (state) {
    case S::TestLogicReset: return tms ? S::TestLogicReset : S::RunTestIdle;
    case S::RunTestIdle: return tms ? S::SelectDrScan : S::RunTestIdle;
    case S::SelectDrScan: return tms ? S::SelectIrScan : S::CaptureDr;
    case S::CaptureDr:
    case S::ShiftDr: return tms ? S::Exit1Dr : S::ShiftDr;
    case S::Exit1Dr: return tms ? S::UpdateDr : S::PauseDr;
    case S::PauseDr: return tms ? S::Exit2Dr : S::PauseDr;
    case S::Exit2Dr: return tms ? S::UpdateDr : S::ShiftDr;
    case S::UpdateDr: return tms ? S::SelectDrScan : S::RunTestIdle;
    case S::SelectIrScan: return tms ? S::TestLogicReset : S::CaptureIr;
    case S::CaptureIr:
    case S::ShiftIr: return tms ? S::Exit1Ir : S::ShiftIr;
    case S::Exit1Ir: return tms ? S::UpdateIr : S::PauseIr;
    case S::PauseIr: return tms ? S::Exit2Ir : S::PauseIr;
    case S::Exit2Ir: return tms ? S::UpdateIr : S::ShiftIr;
    case S::UpdateIr: return tms ? S::SelectDrScan : S::RunTestIdle;
    }
    return S::TestLogicReset;
}

/** `to` is one TCK from `from`, with TMS low or high. */
constexpr bool follows(TapState from, TapState to) {
    return nextTapState(from, false) == to || nextTapState(from, true) == to;
}

/** The four states a controller stays in while TMS holds: Test-Logic-Reset,
 * Run-Test/Idle, Pause-DR and Pause-IR. */
constexpr bool isStableState(TapState state) {
    return state == TapState::TestLogicReset || state == TapState::RunTestIdle || state == TapState::PauseDr ||
           state == TapState::PauseIr;
}

/** The IEEE 1149.1 names of the states, in their order. */
inline constexpr std::array<const char*, tapStateCount> tapStateNames = {
    "Test-Logic-Reset", "Run-Test/Idle", "Select-DR-Scan", "Capture-DR",     "Shift-DR",   "Exit1-DR",
    "Pause-DR",         "Exit2-DR",      "Update-DR",      "Select-IR-Scan", "Capture-IR", "Shift-IR",
    "Exit1-IR",         "Pause-IR",      "Exit2-IR",       "Update-IR"};

/** The IEEE 1149.1 name of a state, e.g. "Run-Test/Idle". */
constexpr const char* tapStateName(TapState state) { return tapStateNames.at(static_cast<std::size_t>(state)); }

}  // namespace tetherhost::protocol

#endif

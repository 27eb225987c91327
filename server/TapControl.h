// SPDX-License-Identifier: MIT
/* TapControl: what the cable's JTAG port does beyond a scan, as an SVF
 * player needs it: the end states that scans stop in (sticky, as SVF's ENDIR
 * and ENDDR are), moves to a stable state by the shortest path or one state
 * at a time along an explicit path, TCK cycles in a stable state with a
 * minimum time (SVF's RUNTEST), TRST, and the TCK frequency. Time is virtual:
 * every TCK cycle the chain is clocked counts one period of the frequency,
 * and a minimum time is added to the clock, not slept. Each operation
 * answers the integer reply of its sub-command. */
#ifndef TETHERHOST_SERVER_TAPCONTROL_H
#define TETHERHOST_SERVER_TAPCONTROL_H

#include <cstdint>
#include <string>

#include "server/JtagChain.h"

namespace tetherhost::sim {

class TapControl {
public:
    explicit TapControl(JtagChain& chain) : chain(chain) {}

    /** The state scans of `kind` end in (Run-Test/Idle until set). */
    TapState endState(ScanKind kind) const { return kind == ScanKind::Instruction ? irEnd : drEnd; }
    /** Sets it; `state` by its number (IEEE order, as sub-command 8 reports
     * it) must be a stable state, or the reply is outOfRange. */
    int setEndState(ScanKind kind, int state);
    /** To the stable state `state` by the shortest TMS path; from a Pause
     * state to itself, round through Update and Capture, as SVF's STATE. */
    int moveTo(int state);
    /** One TCK cycle to `state`, which must follow the current state. */
    int stepTo(int state);
    /** `count` TCK cycles in the current stable state (none when
     * `systemClock`: the count is of another clock and only time passes),
     * taking at least `minimumNs` nanoseconds of virtual time. */
    int runTest(std::uint64_t count, std::uint64_t minimumNs, bool systemClock);
    /** TRST asserted (1) or released (0). */
    int setTrst(int asserted);
    /** TCK frequency in Hz, at least 1. */
    int setFrequency(int hz);
    /** "tck_hz=N;cycles=N;virtual_ns=N;trst=0|1;" */
    std::string report();
    /** Virtual time since start, in nanoseconds. */
    std::uint64_t virtualNs();
    /** Whether the cable's operations also take their virtual time in wall
     * time (the simulator's --real-time). */
    bool realTime() const { return inRealTime; }
    void setRealTime(bool on) { inRealTime = on; }

private:
    /** Adds the time of the cycles clocked since the last call. */
    void account();

    JtagChain& chain;
    TapState irEnd = TapState::RunTestIdle;
    TapState drEnd = TapState::RunTestIdle;
    std::uint64_t frequencyHz = 1000000;
    std::uint64_t accountedCycles = 0;
    std::uint64_t virtualPs = 0;
    bool inRealTime = false;
};

}  // namespace tetherhost::sim

#endif

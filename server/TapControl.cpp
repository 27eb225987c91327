// SPDX-License-Identifier: MIT
/* TapControl: end states, moves, RUNTEST on a virtual clock, TRST and the
 * TCK frequency. */
#include "server/TapControl.h"

#include <algorithm>
#include <optional>

#include "protocol/Status.h"

namespace tetherhost::sim {

namespace reply = protocol::reply;

namespace {

constexpr std::uint64_t psPerSecond = 1000000000000ULL;
constexpr std::uint64_t psPerNs = 1000;

std::optional<TapState> stateNumbered(int number) {
    if (number < 0 || number >= tapStateCount) return std::nullopt;
    return static_cast<TapState>(number);
}

std::optional<TapState> stableStateNumbered(int number) {
    const std::optional<TapState> state = stateNumbered(number);
    if (!state || !isStableState(*state)) return std::nullopt;
    return state;
}

}  // namespace

void TapControl::account() {
    const std::uint64_t cycles = chain.cycles();
    virtualPs += (cycles - accountedCycles) * (psPerSecond / frequencyHz);
    accountedCycles = cycles;
}

int TapControl::setEndState(ScanKind kind, int state) {
    const std::optional<TapState> end = stableStateNumbered(state);
    if (!end) return reply::outOfRange;
    (kind == ScanKind::Instruction ? irEnd : drEnd) = *end;
    return reply::done;
}

int TapControl::moveTo(int state) {
    const std::optional<TapState> target = stableStateNumbered(state);
    if (!target) return reply::outOfRange;
    // From a Pause state to itself SVF goes round rather than standing
    // still: Exit2, Update, Select, Capture, Exit1 and back to Pause, so the
    // register is updated and captured anew.
    if (*target == chain.state() && (*target == TapState::PauseDr || *target == TapState::PauseIr)) {
        const bool data = *target == TapState::PauseDr;
        chain.stepTo(data ? TapState::Exit2Dr : TapState::Exit2Ir);
        chain.stepTo(data ? TapState::UpdateDr : TapState::UpdateIr);
        chain.moveTo(data ? TapState::CaptureDr : TapState::CaptureIr);
    }
    chain.moveTo(*target);
    account();
    return reply::done;
}

int TapControl::stepTo(int state) {
    const std::optional<TapState> next = stateNumbered(state);
    if (!next || !chain.stepTo(*next)) return reply::outOfRange;
    account();
    return reply::done;
}

int TapControl::runTest(std::uint64_t count, std::uint64_t minimumNs, bool systemClock) {
    if (!isStableState(chain.state())) return reply::outOfRange;
    account();
    const std::uint64_t started = virtualPs;
    if (!systemClock) chain.idle(count);
    account();
    virtualPs = std::max(virtualPs, started + minimumNs * psPerNs);
    return reply::done;
}

int TapControl::setTrst(int asserted) {
    if (asserted != 0 && asserted != 1) return reply::outOfRange;
    chain.setTrst(asserted == 1);
    return reply::done;
}

int TapControl::setFrequency(int hz) {
    if (hz < 1) return reply::outOfRange;
    account();
    frequencyHz = static_cast<std::uint64_t>(hz);
    return reply::done;
}

std::uint64_t TapControl::virtualNs() {
    account();
    return virtualPs / psPerNs;
}

std::string TapControl::report() {
    const std::uint64_t ns = virtualNs();
    return "tck_hz=" + std::to_string(frequencyHz) + ";cycles=" + std::to_string(chain.cycles()) +
           ";virtual_ns=" + std::to_string(ns) + ";trst=" + (chain.trst() ? "1" : "0") + ";";
}

}  // namespace tetherhost::sim

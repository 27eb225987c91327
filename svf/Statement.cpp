/* The TAP controller's states: names, stability and the one-TCK steps of
 * IEEE 1149.1's state diagram. */
#include "svf/Statement.h"

#include <array>
#include <cctype>

namespace tetherhost::svf {

namespace {

constexpr std::array<std::string_view, 16> names = {
    "RESET",    "IDLE",     "DRSELECT",  "DRCAPTURE", "DRSHIFT", "DREXIT1", "DRPAUSE", "DREXIT2",
    "DRUPDATE", "IRSELECT", "IRCAPTURE", "IRSHIFT",   "IREXIT1", "IRPAUSE", "IREXIT2", "IRUPDATE"};

struct Step {
    State low, high;  // after a TCK with TMS 0, with TMS 1
};

// clang-format off
constexpr std::array<Step, 16> steps = {{
    {State::Idle, State::Reset},          // Reset
    {State::Idle, State::DrSelect},       // Idle
    {State::DrCapture, State::IrSelect},  // DrSelect
    {State::DrShift, State::DrExit1},     // DrCapture
    {State::DrShift, State::DrExit1},     // DrShift
    {State::DrPause, State::DrUpdate},    // DrExit1
    {State::DrPause, State::DrExit2},     // DrPause
    {State::DrShift, State::DrUpdate},    // DrExit2
    {State::Idle, State::DrSelect},       // DrUpdate
    {State::IrCapture, State::Reset},     // IrSelect
    {State::IrShift, State::IrExit1},     // IrCapture
    {State::IrShift, State::IrExit1},     // IrShift
    {State::IrPause, State::IrUpdate},    // IrExit1
    {State::IrPause, State::IrExit2},     // IrPause
    {State::IrShift, State::IrUpdate},    // IrExit2
    {State::Idle, State::DrSelect},       // IrUpdate
}};
// clang-format on

constexpr std::array<std::string_view, 12> keywords = {"SIR",   "SDR",   "HIR",   "HDR",     "TIR",       "TDR",
                                                       "ENDIR", "ENDDR", "STATE", "RUNTEST", "FREQUENCY", "TRST"};

std::size_t indexOf(State state) { return static_cast<std::size_t>(state); }

}  // namespace

bool isStable(State state) {
    return state == State::Reset || state == State::Idle || state == State::DrPause || state == State::IrPause;
}

std::optional<State> stateNamed(std::string_view svfName) {
    for (std::size_t i = 0; i < names.size(); ++i) {
        const std::string_view name = names[i];
        if (name.size() != svfName.size()) continue;
        bool same = true;
        for (std::size_t c = 0; c < name.size() && same; ++c) {
            same = std::toupper(static_cast<unsigned char>(svfName[c])) == name[c];
        }
        if (same) return static_cast<State>(i);
    }
    return std::nullopt;
}

std::string_view svfName(State state) { return names[indexOf(state)]; }

State nextState(State from, bool tms) { return tms ? steps[indexOf(from)].high : steps[indexOf(from)].low; }

std::string_view svfKeyword(Kind kind) { return keywords[static_cast<std::size_t>(kind)]; }

bool follows(State from, State to) { return nextState(from, false) == to || nextState(from, true) == to; }

}  // namespace tetherhost::svf

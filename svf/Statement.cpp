// SPDX-License-Identifier: MIT
/* The SVF names of the TAP controller's states and of the statements. */
#include "svf/Statement.h"

#include <array>
#include <cctype>

namespace tetherhost::svf {

namespace {

constexpr std::array<std::string_view, 16> names = {
    "RESET",    "IDLE",     "DRSELECT",  "DRCAPTURE", "DRSHIFT", "DREXIT1", "DRPAUSE", "DREXIT2",
    "DRUPDATE", "IRSELECT", "IRCAPTURE", "IRSHIFT",   "IREXIT1", "IRPAUSE", "IREXIT2", "IRUPDATE"};

constexpr std::array<std::string_view, 12> keywords = {"SIR",   "SDR",   "HIR",   "HDR",     "TIR",       "TDR",
                                                       "ENDIR", "ENDDR", "STATE", "RUNTEST", "FREQUENCY", "TRST"};

std::size_t indexOf(State state) { return static_cast<std::size_t>(state); }

}  // namespace

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

std::string_view svfKeyword(Kind kind) { return keywords[static_cast<std::size_t>(kind)]; }

}  // namespace tetherhost::svf

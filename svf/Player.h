// SPDX-License-Identifier: MIT
/* Player: plays SVF statements, one at a time, on a JtagPort. It keeps what
 * carries from statement to statement beyond the scans themselves (the
 * RUNTEST run and end states, the TAP state it last left the chain in) and
 * turns each statement into the port's operations; the scans are composed
 * by ScanComposer. What it did is counted into a Report. */
#ifndef TETHERHOST_SVF_PLAYER_H
#define TETHERHOST_SVF_PLAYER_H

#include <optional>
#include <string>

#include "SvfPlayer.h"
#include "svf/JtagPort.h"
#include "svf/ScanComposer.h"
#include "svf/Statement.h"

namespace tetherhost::svf {

class Player {
public:
    Player(JtagPort& port, const Options& options, Report& report) : port(port), options(options), report(report) {}

    /** Plays one statement; false when play must stop: a mismatch without
     * keepGoing, or a failed operation (the report says which). Throws
     * Error for a statement that breaks an SVF rule. */
    bool play(const Statement& statement, const std::string& fileName);

private:
    bool scan(const Statement& statement, const Scan& composed);
    bool runTest(const Statement& statement);
    /** Throws Error for a step that does not follow the state before it. */
    bool statePath(const Statement& statement, const std::string& fileName);
    bool moveTo(const Statement& statement, State target);
    /** Records a failed operation; false. */
    bool failed(const Statement& statement, int status, const char* operation);

    JtagPort& port;
    const Options& options;
    Report& report;
    ScanComposer composer;
    State runState = State::RunTestIdle;
    State runEndState = State::RunTestIdle;
    State irEnd = State::RunTestIdle;
    State drEnd = State::RunTestIdle;
    /** Where the player last left the chain; unknown until it moves it. */
    std::optional<State> at;
};

/** Reads `in` statement by statement and plays each on `port`, stopping as
 * Player::play says; what check and play share. */
Report playStream(JtagPort& port, std::istream& in, const std::string& name, const Options& options);

}  // namespace tetherhost::svf

#endif

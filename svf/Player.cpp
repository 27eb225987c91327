// SPDX-License-Identifier: MIT
/* Player: each SVF statement as the port's operations, and the report. */
#include "svf/Player.h"

#include <cmath>
#include <limits>

#include "protocol/Status.h"
#include "svf/Error.h"
#include "svf/Reader.h"

namespace tetherhost::svf {

namespace {

constexpr double nsPerSecond = 1e9;

/** Seconds as whole nanoseconds, rounded up so that a minimum time is met. */
std::uint64_t nanoseconds(double seconds) {
    const double ns = std::ceil(seconds * nsPerSecond);
    if (!(ns > 0)) return 0;
    if (ns >= static_cast<double>(std::numeric_limits<std::uint64_t>::max()))
        return std::numeric_limits<std::uint64_t>::max();
    return static_cast<std::uint64_t>(ns);
}

/** The actual TDO in hex, with 'x' for each digit not wholly returned. */
std::string actualHex(const ScanResult& result) {
    std::string text = result.tdo.hex();
    const std::uint64_t digits = text.size();
    for (std::uint64_t digit = 0; digit < digits; ++digit) {
        // Digit 0 of the text is the most significant, holding bits from
        // 4 * (digits - 1) upwards.
        const std::uint64_t lowBit = 4 * (digits - 1 - digit);
        const std::uint64_t highBit = std::min(lowBit + 4, result.tdo.length);
        if (highBit > result.returned) text[digit] = 'x';
    }
    return text;
}

}  // namespace

bool Player::failed(const Statement& statement, int status, const char* operation) {
    report.outcome = Outcome::CableFailed;
    report.errorLine = statement.firstLine;
    report.error = "line " + std::to_string(statement.firstLine) + ": " + operation + " failed with status " +
                   std::to_string(status) + " (" + statement.summary + ")";
    return false;
}

bool Player::play(const Statement& statement, const std::string& fileName) {
    ++report.statements;
    if (const std::optional<Scan> composed = composer.take(statement, fileName)) return scan(statement, *composed);
    switch (statement.kind) {
    case Kind::EndIr:
    case Kind::EndDr: {
        const bool instruction = statement.kind == Kind::EndIr;
        const int status = port.setEndState(instruction, statement.state);
        if (status < 0) return failed(statement, status, instruction ? "ENDIR" : "ENDDR");
        (instruction ? irEnd : drEnd) = statement.state;
        return true;
    }
    case Kind::StatePath: return statePath(statement, fileName);
    case Kind::RunTest: return runTest(statement);
    case Kind::Frequency: {
        // Without a value, FREQUENCY asks for full speed: the cable keeps
        // the frequency it has.
        if (!statement.hz) return true;
        const double hz = std::round(*statement.hz);
        const int rounded = hz < 1                                 ? 1
                            : hz > std::numeric_limits<int>::max() ? std::numeric_limits<int>::max()
                                                                   : static_cast<int>(hz);
        const int status = port.setFrequency(rounded);
        return status >= 0 || failed(statement, status, "FREQUENCY");
    }
    case Kind::Trst: {
        // Z (not driven) releases TRST as OFF does; ABSENT means the
        // cable has none, so nothing is sent.
        if (statement.trst == TrstMode::Absent) return true;
        const bool asserted = statement.trst == TrstMode::On;
        const int status = port.setTrst(asserted);
        if (status < 0) return failed(statement, status, "TRST");
        if (asserted) at = State::TestLogicReset;
        return true;
    }
    default: return true;  // headers and trailers: kept by the composer
    }
}

bool Player::scan(const Statement& statement, const Scan& composed) {
    const ScanResult result = port.scan(composed);
    if (result.status < 0) return failed(statement, result.status, composed.instruction ? "SIR" : "SDR");
    at = composed.instruction ? irEnd : drEnd;
    ++report.scans;
    report.bitsShifted += composed.tdi.length;
    if (!composed.check) return true;
    ++report.tdoChecks;
    if (result.status == 0) return true;
    Mismatch mismatch;
    mismatch.firstLine = statement.firstLine;
    mismatch.lastLine = statement.lastLine;
    mismatch.statement = statement.summary;
    mismatch.expected = composed.expected.hex();
    mismatch.mask = composed.mask.hex();
    mismatch.actual = actualHex(result);
    mismatch.differingBits = static_cast<std::uint64_t>(result.status);
    report.mismatches.push_back(std::move(mismatch));
    report.outcome = Outcome::Mismatched;
    return options.keepGoing;
}

bool Player::moveTo(const Statement& statement, State target) {
    // RUNTEST moves only when not there already.
    if (at == target) return true;
    const int status = port.moveTo(target);
    if (status < 0) return failed(statement, status, "a move");
    at = target;
    return true;
}

bool Player::runTest(const Statement& statement) {
    const RunTestFields& fields = statement.runTest;
    // A run state given becomes the end state too, unless ENDSTATE says
    // otherwise; both carry over to the next RUNTEST.
    if (fields.runState) runState = runEndState = *fields.runState;
    if (fields.endState) runEndState = *fields.endState;
    if (!moveTo(statement, runState)) return false;
    // With a time only, time passes and no cycles are clocked.
    const std::uint64_t count = fields.count.value_or(0);
    const std::uint64_t minimumNs = fields.minSeconds ? nanoseconds(*fields.minSeconds) : 0;
    const int status = port.runTest(count, minimumNs, fields.clock);
    if (status < 0) return failed(statement, status, "RUNTEST");
    return moveTo(statement, runEndState);
}

bool Player::statePath(const Statement& statement, const std::string& fileName) {
    const std::vector<State>& path = statement.path;
    if (path.size() == 1) {
        // Sent even when the chain is there already: from a Pause state to
        // itself SVF goes round through Update and Capture.
        const int status = port.moveTo(path.front());
        if (status < 0) return failed(statement, status, "a move");
        at = path.front();
        return true;
    }
    // An explicit path is taken one TCK per state, Test-Logic-Reset
    // included: each state must follow the one before, the first the state
    // the chain is in.
    for (const State state : path) {
        if (at && !follows(*at, state))
            throw Error(fileName, statement.firstLine, statement.firstColumn,
                        "STATE: " + std::string(svfName(state)) + " is not one TCK from " + std::string(svfName(*at)));
        const int status = port.stepTo(state);
        if (status == protocol::reply::outOfRange)
            throw Error(fileName, statement.firstLine, statement.firstColumn,
                        "STATE: " + std::string(svfName(state)) + " is not one TCK from the TAP's state");
        if (status < 0) return failed(statement, status, "a STATE step");
        at = state;
    }
    return true;
}

Report playStream(JtagPort& port, std::istream& in, const std::string& name, const Options& options) {
    Report report;
    Player player(port, options, report);
    Reader reader(in, name);
    Progress progress;
    try {
        while (const std::optional<Statement> statement = reader.next()) {
            if (options.stop != nullptr && options.stop->load()) {
                report.outcome = Outcome::Stopped;
                break;
            }
            const bool goOn = player.play(*statement, name);
            if (options.progress) {
                progress.bytesRead = reader.bytesConsumed();
                progress.scans = report.scans;
                progress.bitsShifted = report.bitsShifted;
                options.progress(progress);
            }
            if (!goOn) break;
        }
    } catch (const Error& error) {
        report.outcome = Outcome::BadFile;
        report.error = error.what();
        report.errorLine = error.line;
    }
    return report;
}

}  // namespace tetherhost::svf

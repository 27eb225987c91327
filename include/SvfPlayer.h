// SPDX-License-Identifier: MIT
/* SvfPlayer: plays SVF (Serial Vector Format) files through a connected
 * Client: every SIR and SDR is one JTAG shift that the server compares
 * against the expected TDO and mask, and the other statements drive the TAP
 * controllers' end states, moves, RUNTEST, TRST and TCK frequency through
 * the simulator's TAP-control sub-commands. A file is read as a stream, one
 * statement at a time, so memory is bounded by the longest statement.
 *
 * Installed as <tetherhost/SvfPlayer.h> with libtetherhost_svf; C++11 and
 * later, no Qt needed. */
#ifndef TETHERHOST_SVFPLAYER_H
#define TETHERHOST_SVFPLAYER_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <istream>
#include <string>
#include <vector>

#include "TetherhostExport.h"

class Client;

namespace tetherhost {
namespace svf {

/** A compared scan whose TDO differed from the expected value under the mask. */
struct Mismatch {
    long firstLine = 0;     // where the statement starts
    long lastLine = 0;      // the line of its closing ';'
    std::string statement;  // its text, shortened
    /** Hex, most significant digit first, one digit per four bits of the
     * whole scan (headers and trailers included). In `actual`, an 'x' marks
     * a digit whose bits did not all come back: a long scan's read-back
     * carries 1023 TDO bytes per 1024-byte chunk, so its last bytes stay
     * with the server. */
    std::string expected, actual, mask;
    std::uint64_t differingBits = 0;  // as the server counted them
};

struct Progress {
    std::uint64_t bytesRead = 0;  // of the input, up to the last statement played
    std::uint64_t scans = 0;
    std::uint64_t bitsShifted = 0;
};

struct Options {
    /** Play on after a mismatch, and count them all. */
    bool keepGoing = false;
    /** Called after each statement. */
    std::function<void(const Progress&)> progress;
    /** When it becomes true (a signal handler may set it), play stops
     * before the next statement. */
    const std::atomic<bool>* stop = nullptr;
};

enum class Outcome {
    Passed,       // every compared scan matched
    Mismatched,   // at least one did not
    BadFile,      // a syntax error, a broken SVF rule or an unsupported statement
    CableFailed,  // the client or the server failed a command
    Stopped       // `stop` was set
};

struct Report {
    Outcome outcome = Outcome::Passed;
    std::uint64_t statements = 0;
    std::uint64_t scans = 0;
    std::uint64_t bitsShifted = 0;
    std::uint64_t tdoChecks = 0;
    std::vector<Mismatch> mismatches;
    /** BadFile: "FILE:LINE:COLUMN: what was expected"; CableFailed: the
     * statement's line and the status. */
    std::string error;
    long errorLine = 0;
};

/** Reads and checks the whole of `in` without sending anything: the
 * statistics of what play would do, or BadFile. */
TETHERHOST_API Report check(std::istream& in, const std::string& name);

/** Plays `in` (named `name` in messages) through `client`, which must be
 * connected; the caller holds the locks it wants. Stops at the first
 * mismatch unless `keepGoing`, at a bad statement (what came before it has
 * been played) and at a failed command. */
TETHERHOST_API Report play(Client& client, std::istream& in, const std::string& name,
                           const Options& options = Options());

}  // namespace svf
}  // namespace tetherhost

#endif

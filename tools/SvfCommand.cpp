// SPDX-License-Identifier: MIT
/* `tetherctl svf FILE`: plays an SVF file through the library with the SVF
 * player (libtetherhost_svf). A regular file is first read whole and checked,
 * so a file with a syntax error sends nothing; standard input ("-") and
 * pipes are played as they come and stop at the first error. A TDO mismatch is shown
 * with the statement's lines, the expected, actual and mask values and the
 * differing digits marked. Ctrl-C stops between two statements. */
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include "Client.h"
#include "SvfPlayer.h"
#include "tools/Commands.h"
#include "tools/Failure.h"
#include "tools/Progress.h"
#include "tools/StopSignals.h"

namespace tetherctl {

namespace {

namespace svf = tetherhost::svf;

/** Hex digits shown of a long scan's values: a window around the first
 * digit that differs. */
constexpr std::size_t shownDigits = 64;

int hexValue(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    return digit - 'a' + 10;
}

/** '^' under each digit whose compared bits differ, '?' under one that did
 * not come back. */
std::string differences(const svf::Mismatch& mismatch) {
    std::string marks(mismatch.actual.size(), ' ');
    for (std::size_t i = 0; i < marks.size(); ++i) {
        if (mismatch.actual[i] == 'x') {
            marks[i] = '?';
            continue;
        }
        const int mask = hexValue(mismatch.mask[i]);
        if (((hexValue(mismatch.expected[i]) ^ hexValue(mismatch.actual[i])) & mask) != 0) marks[i] = '^';
    }
    return marks;
}

std::string lines(const svf::Mismatch& mismatch) {
    return mismatch.firstLine == mismatch.lastLine
               ? std::to_string(mismatch.lastLine)
               : std::to_string(mismatch.firstLine) + "-" + std::to_string(mismatch.lastLine);
}

/** The mismatch as people read it: where, the statement, and the values. */
std::vector<std::string> describe(const std::string& file, const svf::Mismatch& mismatch) {
    const std::string marks = differences(mismatch);
    std::size_t first = 0;
    std::size_t count = marks.size();
    if (count > shownDigits) {
        const std::size_t differing = std::min(marks.find_first_not_of(' '), marks.size() - 1);
        first = differing > shownDigits / 2 ? std::min(differing - shownDigits / 2, marks.size() - shownDigits) : 0;
        count = shownDigits;
    }
    const bool cut = count < marks.size();
    const auto shown = [&](const std::string& digits) {
        return (first > 0 ? "..." : "") + digits.substr(first, count) + (first + count < marks.size() ? "..." : "");
    };
    const std::string indent = first > 0 ? "   " : "";
    std::vector<std::string> text = {
        file + ":" + lines(mismatch) + ": TDO mismatch, " + std::to_string(mismatch.differingBits) +
            (mismatch.differingBits == 1 ? " bit differs: " : " bits differ: ") + mismatch.statement,
        "  expected " + shown(mismatch.expected),
        "  actual   " + shown(mismatch.actual),
        "  mask     " + shown(mismatch.mask),
        "           " + indent + marks.substr(first, count),
    };
    if (cut)
        text.push_back("  (hex digits " + std::to_string(first) + " to " + std::to_string(first + count - 1) + " of " +
                       std::to_string(marks.size()) + ", most significant first)");
    return text;
}

/** The simulator's virtual clock, in nanoseconds, from its clock report;
 * -1 when the server gives none. */
long long virtualNs(Client& client) {
    if (client.Send(command::jtagInterface, sub::clockReport) < 0) return -1;
    const std::string report = client.Read();
    const std::string key = "virtual_ns=";
    const std::size_t at = report.find(key);
    if (at == std::string::npos) return -1;
    return std::stoll(report.substr(at + key.size()));
}

void fillStatistics(Json& data, const svf::Report& report) {
    data["statements"] = report.statements;
    data["scans"] = report.scans;
    data["bits"] = report.bitsShifted;
    data["tdo_checks"] = report.tdoChecks;
}

std::string statistics(const svf::Report& report) {
    return std::to_string(report.statements) + " statements, " + std::to_string(report.scans) + " scans, " +
           std::to_string(report.bitsShifted) + " bits, " + std::to_string(report.tdoChecks) + " TDO checks";
}

}  // namespace

void runSvf(const CommonOptions& common, const SvfOptions& options, Output& out) {
    const bool fromStandardInput = options.file == "-";
    const std::string name = fromStandardInput ? "<stdin>" : options.file;
    // A pipe or a terminal can be read once only: it is checked as it is
    // played, as standard input is.
    const bool checkedFirst = !fromStandardInput && std::filesystem::is_regular_file(options.file);
    Json& data = out.data();
    data["command"] = "svf";
    data["file"] = name;
    std::ifstream file;
    std::uint64_t size = 0;
    if (!fromStandardInput) {
        file.open(options.file, std::ios::binary);
        if (!file) throw UsageError("svf: cannot read " + options.file);
        if (checkedFirst) size = static_cast<std::uint64_t>(std::filesystem::file_size(options.file));
    }
    std::istream& in = fromStandardInput ? std::cin : file;
    // A regular file is checked whole before anything is sent.
    if (checkedFirst || options.dryRun) {
        const svf::Report checked = svf::check(in, name);
        if (checked.outcome == svf::Outcome::BadFile) throw UsageError("svf: " + checked.error);
        if (options.dryRun) {
            fillStatistics(data, checked);
            out.line(name + ": " + statistics(checked) + "; nothing sent");
            return;
        }
        file.clear();
        file.seekg(0);
    }

    catchStopSignals();
    ServerSession session(common);
    session.begin();
    Client& client = session.client();
    const long long virtualBefore = virtualNs(client);
    const bool drawn = !options.quiet && checkedFirst && isatty(STDERR_FILENO) == 1;
    ProgressBar bar(stderr, size, drawn);
    const auto start = std::chrono::steady_clock::now();
    svf::Options play;
    play.keepGoing = options.keepGoing;
    play.stop = &stopRequested;
    // Without a bar the player is not called back at all: formatting a rate
    // after every statement would be most of its own work on short scans.
    if (drawn) {
        play.progress = [&](const svf::Progress& progress) {
            const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            const double rate = seconds > 0 ? static_cast<double>(progress.bitsShifted) / seconds : 0.0;
            char detail[64];
            std::snprintf(detail, sizeof detail, "%llu scans  %.3g bit/s",
                          static_cast<unsigned long long>(progress.scans), rate);
            bar.update(progress.bytesRead, detail);
        };
    }
    const svf::Report report = svf::play(client, in, name, play);
    // What follows the last statement (comments, line ends) was read too:
    // a file played to its end shows whole.
    if (drawn && report.outcome == svf::Outcome::Passed) play.progress({size, report.scans, report.bitsShifted});
    bar.finish();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

    fillStatistics(data, report);
    Json mismatches{Json::Array{}};
    for (const svf::Mismatch& mismatch : report.mismatches) {
        Json entry;
        entry["first_line"] = mismatch.firstLine;
        entry["line"] = mismatch.lastLine;
        entry["expected"] = mismatch.expected;
        entry["actual"] = mismatch.actual;
        entry["mask"] = mismatch.mask;
        entry["differing_bits"] = mismatch.differingBits;
        mismatches.push(std::move(entry));
        for (const std::string& text : describe(name, mismatch)) out.line(text);
    }
    data["mismatches"] = std::move(mismatches);
    data["seconds"] = seconds;
    data["bits_per_second"] = seconds > 0 ? static_cast<double>(report.bitsShifted) / seconds : 0.0;
    data["scans_per_second"] = seconds > 0 ? static_cast<double>(report.scans) / seconds : 0.0;
    if (report.outcome != svf::Outcome::CableFailed) {
        const long long virtualAfter = virtualNs(client);
        data["virtual_ns"] = virtualBefore >= 0 && virtualAfter >= 0 ? Json(virtualAfter - virtualBefore) : Json();
    }
    switch (report.outcome) {
    case svf::Outcome::Stopped:
        session.end();
        throw Interrupted("svf: interrupted after " + statistics(report) + "; the locks were released");
    case svf::Outcome::BadFile: throw UsageError("svf: " + report.error);
    case svf::Outcome::CableFailed: throw std::runtime_error("svf: " + report.error);
    case svf::Outcome::Mismatched:
        session.end();
        throw TdoMismatch("svf: " + std::to_string(report.mismatches.size()) + " TDO mismatch" +
                          (report.mismatches.size() == 1 ? "" : "es") + " in " + name);
    case svf::Outcome::Passed: break;
    }
    session.end();
    out.line(name + ": passed: " + statistics(report));
}

}  // namespace tetherctl

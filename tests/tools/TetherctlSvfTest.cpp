// SPDX-License-Identifier: MIT
/* `tetherctl svf` against the simulator's built-in chain: which command-44
 * exchanges each statement makes (read from the simulator's trace), the exit
 * statuses (0 passed, 1 TDO mismatch, 2 bad file, 130 Ctrl-C), the mismatch
 * report, --keep-going and --json, --dry-run, the progress bar on a
 * terminal, standard input, a file with a syntax error or PIO sending
 * nothing, and Ctrl-C between two statements of a file read from a pipe. */
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "ProgramRunner.h"

namespace tetherhost::test {
namespace {

using nlohmann::json;
using SubCommands = std::vector<std::string>;

/* The built-in chain after a reset: the IDCODEs of tap2, tap1 and tap0 come
 * out in that order, so tap0's is the most significant in SVF's hex; an
 * instruction scan captures ...01 in each of the 4, 6 and 8-bit registers. */
const std::string passing =
    "! IDCODEs after a reset, then every device in BYPASS\n"
    "STATE RESET;\n"
    "SDR 96 TDI (0) TDO (10A5C1FF23E171FF07B421FF);\n"
    "SIR 18 TDI (3FFFF) TDO (04101);\n"
    "SDR 3 TDI (5) TDO (0);\n"
    "RUNTEST 10 TCK;\n";

/** Bits (bit 0 first) as SVF hex: most significant digit first. */
std::string svfHex(const std::vector<bool>& bits) {
    std::string hex;
    for (std::size_t digit = (bits.size() + 3) / 4; digit-- > 0;) {
        unsigned value = 0;
        for (std::size_t b = 0; b < 4 && digit * 4 + b < bits.size(); ++b)
            if (bits[digit * 4 + b]) value |= 1U << b;
        hex += "0123456789ABCDEF"[value];
    }
    return hex;
}

class TetherctlSvf : public ::testing::Test {
protected:
    void SetUp() override {
        simulator = startSimulator();
        ASSERT_EQ(simulator->failure(), "");
    }

    std::vector<std::string> command(const std::vector<std::string>& arguments) const {
        std::vector<std::string> argv = {TETHERCTL_PATH, "--server-dir", noServer.path(), "--name", "svfer"};
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        return argv;
    }

    Finished tetherctl(const std::vector<std::string>& arguments) { return runProgram(command(arguments)); }

    std::string svfFile(const std::string& name, const std::string& text) {
        std::string path = files.file(name);
        writeFile(path, text);
        return path;
    }

    /** The sub-commands of command 44 that svfer sent, in order. */
    SubCommands subCommandsSent() const {
        static const std::regex sent("svfer < 44 sub-command \"([0-9]+)\"");
        SubCommands numbers;
        for (const std::string& line : linesOf(simulator->trace())) {
            std::smatch match;
            if (std::regex_search(line, match, sent)) numbers.push_back(match[1]);
        }
        return numbers;
    }

    TempDir noServer;
    TempDir files;
    std::unique_ptr<Simulator> simulator;
};

TEST_F(TetherctlSvf, APassingFileMakesOneExchangePerScanAndExitsZero) {
    const std::string file = svfFile("pass.svf", passing);
    const Finished run = tetherctl({"svf", file});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, file + ": passed: 5 statements, 3 scans, 117 bits, 3 TDO checks\n");
    EXPECT_EQ(run.err, "");
    // The clock report before and after; STATE RESET is a move (19); each
    // scan one JTAG shift (12); RUNTEST, already in IDLE, only its cycles (89).
    EXPECT_EQ(subCommandsSent(), (SubCommands{"9", "19", "12", "12", "12", "89", "9"}));
}

TEST_F(TetherctlSvf, AMismatchExitsOneShowingExpectedActualAndMask) {
    const std::string file =
        svfFile("fail.svf", "STATE RESET;\nSDR 96 TDI (0)\n    TDO (10A5C1FF23E171FF07B421FE);\nSIR 18 TDI (3FFFF);\n");
    const Finished run = tetherctl({"svf", file});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, "tetherctl: svf: 1 TDO mismatch in " + file + "\n");
    EXPECT_EQ(run.out, file +
                           ":2-3: TDO mismatch, 1 bit differs: SDR 96 TDI (0) TDO (10A5C1FF23E171FF07B421FE);\n"
                           "  expected 10A5C1FF23E171FF07B421FE\n"
                           "  actual   10A5C1FF23E171FF07B421FF\n"
                           "  mask     FFFFFFFFFFFFFFFFFFFFFFFF\n"
                           "                                  ^\n");
    // Play stopped at the mismatch: the SIR was not sent, and the locks
    // were given back.
    EXPECT_EQ(subCommandsSent(), (SubCommands{"9", "19", "12", "9"}));
    EXPECT_NE(simulator->trace().find("svfer < 9999 command"), std::string::npos);
}

TEST_F(TetherctlSvf, KeepGoingReportsEveryMismatchInTheJsonObject) {
    const std::string file = svfFile("two.svf",
                                     "STATE RESET;\nSDR 32 TDI (0) TDO (07B421FE);\n"
                                     "SIR 18 TDI (3FFFF) TDO (04101);\nSDR 3 TDI (0) TDO (7);\n");
    const Finished run = tetherctl({"--json", "svf", "--keep-going", file});
    EXPECT_EQ(run.exitCode, 1);
    const json result = json::parse(run.out);
    EXPECT_EQ(result["scans"], 3);
    EXPECT_EQ(result["tdo_checks"], 3);
    ASSERT_EQ(result["mismatches"].size(), 2u);
    EXPECT_EQ(result["mismatches"][0]["line"], 2);
    EXPECT_EQ(result["mismatches"][0]["actual"], "07B421FF");
    EXPECT_EQ(result["mismatches"][0]["differing_bits"], 1);
    EXPECT_EQ(result["mismatches"][1]["line"], 4);
    EXPECT_EQ(result["mismatches"][1]["actual"], "0");
    EXPECT_EQ(result["mismatches"][1]["differing_bits"], 3);
    // 32 + 18 + 3 cycles in Shift and the moves between, at 1 MHz.
    EXPECT_GT(result["virtual_ns"].get<long>(), 53000);
    EXPECT_EQ(result["error"]["message"], "svf: 2 TDO mismatches in " + file);
}

TEST_F(TetherctlSvf, ALongScansMismatchShowsTheReturnedTdoAndMarksTheTailThatWasNot) {
    // 16384 bits through the three BYPASS registers: TDO is TDI three bits
    // late. The read-back's two chunks carry 2 x 1023 of the 2048 bytes.
    constexpr std::size_t bits = 16384;
    std::vector<bool> tdi(bits);
    std::uint32_t state = 0x2468ACE1u;
    for (std::size_t i = 0; i < bits; ++i) {
        state = state * 1664525u + 1013904223u;
        tdi[i] = (state >> 31) != 0;
    }
    std::vector<bool> tdo(bits, false);
    for (std::size_t i = 3; i < bits; ++i) tdo[i] = tdi[i - 3];
    std::vector<bool> expected = tdo;
    expected[0] = true;  // the one bit that differs
    const std::string file = svfFile("long.svf", "STATE RESET;\nSIR 18 TDI (3FFFF);\nSDR " + std::to_string(bits) +
                                                     " TDI (" + svfHex(tdi) + ")\n  TDO (" + svfHex(expected) + ");\n");
    const Finished run = tetherctl({"--json", "svf", file});
    EXPECT_EQ(run.exitCode, 1) << run.err;
    const json result = json::parse(run.out);
    ASSERT_EQ(result["mismatches"].size(), 1u);
    const json& mismatch = result["mismatches"][0];
    EXPECT_EQ(mismatch["first_line"], 3);
    EXPECT_EQ(mismatch["line"], 4);
    EXPECT_EQ(mismatch["differing_bits"], 1);
    // The last 2 bytes, four hex digits, stayed with the server.
    const std::string actual = svfHex(tdo);
    EXPECT_EQ(mismatch["actual"], "xxxx" + actual.substr(4));
    EXPECT_EQ(subCommandsSent(), (SubCommands{"9", "19", "12", "12", "9"}));
}

TEST_F(TetherctlSvf, ASyntaxErrorExitsTwoNamingLineAndColumnAndSendsNothing) {
    const std::string file = svfFile("bad.svf", "STATE RESET;\nSIR 4 TDI (1);\nSDR 8 TDI (1G);\n");
    const Finished run = tetherctl({"svf", file});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_TRUE(std::regex_match(run.err, std::regex("tetherctl: svf: " + file + ":3:13: .*\n"))) << run.err;
    EXPECT_EQ(simulator->trace().find("svfer"), std::string::npos);
}

TEST_F(TetherctlSvf, PioIsRefusedBeforeAnythingIsSent) {
    const std::string file = svfFile("pio.svf", "STATE RESET;\nPIOMAP (IN A);\n");
    const Finished run = tetherctl({"svf", file});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_NE(run.err.find(file + ":2:"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("not supported"), std::string::npos) << run.err;
    EXPECT_EQ(simulator->trace().find("svfer"), std::string::npos);
}

TEST_F(TetherctlSvf, DryRunPrintsTheStatisticsAndConnectsToNothing) {
    const std::string file = svfFile("pass.svf", passing);
    const Finished run = tetherctl({"svf", "--dry-run", file});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, file + ": 5 statements, 3 scans, 117 bits, 3 TDO checks; nothing sent\n");
    EXPECT_EQ(simulator->trace().find("svfer"), std::string::npos);
}

TEST_F(TetherctlSvf, AProgressBarIsDrawnOnATerminalUnlessQuiet) {
    const std::string file = svfFile("pass.svf", passing);
    const std::string size = std::to_string(passing.size());
    const Finished onTerminal = runInTerminal(command({"svf", file}));
    EXPECT_EQ(onTerminal.exitCode, 0) << onTerminal.out;
    EXPECT_NE(onTerminal.out.find("\r[##############################] 100%  " + size + " B / " + size + " B"),
              std::string::npos)
        << onTerminal.out;
    EXPECT_NE(onTerminal.out.find("  3 scans  "), std::string::npos) << onTerminal.out;
    EXPECT_NE(onTerminal.out.find(" bit/s"), std::string::npos) << onTerminal.out;
    const Finished quiet = runInTerminal(command({"svf", "--quiet", file}));
    EXPECT_EQ(quiet.exitCode, 0) << quiet.out;
    EXPECT_EQ(quiet.out.find('['), std::string::npos) << quiet.out;
}

TEST_F(TetherctlSvf, StandardInputIsPlayedAsItComes) {
    const std::string file = svfFile("pass.svf", passing);
    const Finished run = runProgram({"/bin/sh", "-c", "exec \"$0\" \"$@\" < " + file, TETHERCTL_PATH, "--server-dir",
                                     noServer.path(), "--name", "svfer", "svf", "-"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "<stdin>: passed: 5 statements, 3 scans, 117 bits, 3 TDO checks\n");
}

TEST_F(TetherctlSvf, CtrlCBetweenTwoStatementsGivesTheLocksBackAndExits130) {
    const std::string fifo = files.file("statements.svf");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    RunningProgram player(command({"svf", fifo}));
    // Opening blocks until tetherctl opens the pipe to read it.
    const int writer = open(fifo.c_str(), O_WRONLY);
    ASSERT_GE(writer, 0);
    const std::string first = "SIR 18 TDI (3FFFF);\n";
    ASSERT_EQ(write(writer, first.data(), first.size()), static_cast<ssize_t>(first.size()));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (subCommandsSent() != SubCommands{"9", "12"} && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ASSERT_EQ(subCommandsSent(), (SubCommands{"9", "12"}));
    ASSERT_EQ(kill(player.pid(), SIGINT), 0);
    // The next statement is read, and not played.
    const std::string second = "SDR 3 TDI (0);\n";
    ASSERT_EQ(write(writer, second.data(), second.size()), static_cast<ssize_t>(second.size()));
    close(writer);
    const Finished run = player.finish();
    EXPECT_EQ(run.exitCode, 130) << run.err;
    EXPECT_EQ(run.err,
              "tetherctl: svf: interrupted after 1 statements, 1 scans, 18 bits, 0 TDO checks; the locks were "
              "released\n");
    EXPECT_EQ(subCommandsSent(), (SubCommands{"9", "12", "9"}));
    const std::string trace = simulator->trace();
    EXPECT_NE(trace.find("svfer < 34 command \"34\""), std::string::npos);
    EXPECT_NE(trace.find("svfer < 35 command \"35\""), std::string::npos);
}

}  // namespace
}  // namespace tetherhost::test

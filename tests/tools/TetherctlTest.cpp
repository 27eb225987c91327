// SPDX-License-Identifier: MIT
/* End-to-end tests of every tetherctl subcommand against the tetherhost
 * simulator: exit codes, the exact text output, the --json output parsed,
 * the library's log file and debug output, the progress bar seen on a
 * terminal, Ctrl-C during a pump, and the failure when no server answers
 * and none can be started. */
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

/* Bytes that differ from piece to piece, so that a piece read back out of
 * place shows. */
std::string patternBytes(std::size_t size) {
    std::string bytes(size, '\0');
    std::uint32_t state = 0x12345678u;
    for (char& byte : bytes) {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

std::size_t countOf(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

/* The simulator runs for each test; every tetherctl run gets an empty
 * --server-dir, so that it never starts a server of its own. */
class TetherctlTest : public ::testing::Test {
protected:
    void SetUp() override {
        simulator = startSimulator(simulatorOptions());
        ASSERT_EQ(simulator->failure(), "");
    }

    virtual std::vector<std::string> simulatorOptions() { return {}; }

    Finished tetherctl(const std::vector<std::string>& arguments, const std::vector<std::string>& environment = {}) {
        return runProgram(command(arguments), environment);
    }

    std::vector<std::string> command(const std::vector<std::string>& arguments) const {
        std::vector<std::string> argv = {TETHERCTL_PATH, "--server-dir", noServer.path()};
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        return argv;
    }

    static json parsed(const Finished& run) {
        try {
            return json::parse(run.out);
        } catch (const json::exception& error) {
            ADD_FAILURE() << "not JSON: " << run.out << " (" << error.what() << ")";
            return json();
        }
    }

    TempDir noServer;
    TempDir files;
    std::unique_ptr<Simulator> simulator;
};

TEST_F(TetherctlTest, ChainListsEachDeviceWithItsIdcodeFields) {
    const Finished run = tetherctl({"chain"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.out,
              "3 devices on the chain, position 0 next to the cable's TDI:\n"
              "  0: IDCODE 0x10A5C1FF  version 0x1  part 0x0A5C  manufacturer 0x0FF  tap0, IR 4 bits\n"
              "  1: IDCODE 0x23E171FF  version 0x2  part 0x3E17  manufacturer 0x0FF  tap1, IR 6 bits\n"
              "  2: IDCODE 0x07B421FF  version 0x0  part 0x7B42  manufacturer 0x0FF  tap2, IR 8 bits\n");
}

TEST_F(TetherctlTest, ChainJsonDescribesEachDevice) {
    const Finished run = tetherctl({"chain", "--json"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const json result = parsed(run);
    EXPECT_EQ(result["command"], "chain");
    EXPECT_EQ(result["count"], 3);
    ASSERT_EQ(result["devices"].size(), 3u);
    const json& device = result["devices"][1];
    EXPECT_EQ(device["position"], 1);
    EXPECT_EQ(device["idcode"], 0x23E171FF);
    EXPECT_EQ(device["version"], 2);
    EXPECT_EQ(device["part"], 0x3E17);
    EXPECT_EQ(device["manufacturer"], 0x0FF);
    EXPECT_EQ(device["name"], "tap1");
    EXPECT_EQ(device["irLength"], 6);
    EXPECT_FALSE(result.contains("error"));
}

TEST_F(TetherctlTest, ShiftReturnsTheCapturedInstructionsThenBypassBits) {
    // Each device's instruction register captures ...01; from TDO: 8, 6 and
    // 4 bits.
    Finished run = tetherctl({"shift", "ir", "18", "3FFFF"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "TDO 0x04101\n");
    // All ones selects BYPASS everywhere: three 0 bits, then the TDI.
    run = tetherctl({"--json", "shift", "dr", "6", "0x3F"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const json result = parsed(run);
    EXPECT_EQ(result["register"], "dr");
    EXPECT_EQ(result["bits"], 6);
    EXPECT_EQ(result["tdi"], "0x3F");
    EXPECT_EQ(result["tdo"], "0x38");
}

TEST_F(TetherctlTest, ShiftRefusesAValueWiderThanTheScan) {
    const Finished run = tetherctl({"shift", "ir", "4", "1F"});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.err, "tetherctl: shift: VALUE must be a hex number of at most 4 bits\n");
    EXPECT_EQ(run.out, "");
}

TEST_F(TetherctlTest, SspiProgrammingClearsBitsAndEraseSetsThemAgain) {
    Finished run = tetherctl({"sspi", "0x100", "DEADBEEF"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "programmed 4 bytes at 0x100\ndata at 0x100: DEADBEEF\n");
    run = tetherctl({"sspi", "0x100", "0F0F"});
    EXPECT_EQ(run.out, "programmed 2 bytes at 0x100\ndata at 0x100: 0E0D\n");
    run = tetherctl({"sspi", "0x100", "--read", "4", "--json"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    json result = parsed(run);
    EXPECT_EQ(result["data"], "0E0DBEEF");
    EXPECT_TRUE(result["written"].is_null());
    run = tetherctl({"sspi", "0x100", "0F0F", "--erase"});
    EXPECT_EQ(run.out, "programmed 2 bytes at 0x100\ndata at 0x100: 0F0F\n");
    run = tetherctl({"sspi", "0x100", "--read", "4"});
    EXPECT_EQ(run.out, "data at 0x100: 0F0FFFFF\n");
}

TEST_F(TetherctlTest, SspiWriteOnlyReadsNothingBack) {
    Finished run = tetherctl({"--json", "sspi", "0x200", "AA", "--write-only"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const json result = parsed(run);
    EXPECT_EQ(result["written"], "AA");
    EXPECT_TRUE(result["data"].is_null());
    run = tetherctl({"sspi", "0x200", "--read", "1"});
    EXPECT_EQ(run.out, "data at 0x200: AA\n");
}

TEST_F(TetherctlTest, SspiOutsideTheMemoryIsRefusedByTheServer) {
    const Finished run = tetherctl({"sspi", "0x10000", "00"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err,
              "tetherctl: transferring on SSPI (command 52): the server answered -2: an address, length or mode that "
              "the target does not have\n");
}

TEST_F(TetherctlTest, I2cWritesAndReadsTheBytesBack) {
    const Finished run = tetherctl({"i2c", "0x10", "0102A5"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "wrote 3 bytes at 0x10 of device 0x50\ndata at 0x10: 0102A5\n");
}

TEST_F(TetherctlTest, I2cToAnAbsentDeviceIsNotAcknowledged) {
    const Finished run = tetherctl({"--json", "i2c", "--device", "0x51", "0x10", "01"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err,
              "tetherctl: transferring on I2C (command 48): the server answered -3: no I2C device answers that bus "
              "address\n");
    const json result = parsed(run);
    EXPECT_EQ(result["error"]["status"], -3);
}

TEST_F(TetherctlTest, PumpWithVerifyReadsEveryPieceBack) {
    const std::string file = files.file("data.bin");
    writeFile(file, patternBytes(10000));
    const Finished run = tetherctl({"pump", "--verify", file, "--json"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const json result = parsed(run);
    EXPECT_EQ(result["bytes"], 10000);
    EXPECT_EQ(result["pieces"], 10);
    EXPECT_EQ(result["verified"], true);
    EXPECT_EQ(result["held"], 0);
    EXPECT_EQ(result["interrupted"], false);
}

TEST_F(TetherctlTest, PumpLeavesTheFileInTheBufferUnlessAppending) {
    const std::string file = files.file("data.bin");
    writeFile(file, patternBytes(40000));
    Finished run = tetherctl({"pump", file});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_TRUE(std::regex_match(run.out, std::regex("pumped 40000 bytes from .*data\\.bin in 3 pieces \\([0-9.]+ "
                                                     "[KMG]?i?B/s\\); the pump buffer holds 40000 bytes\n")))
        << run.out;
    run = tetherctl({"pump", "--append", file, "--json"});
    EXPECT_EQ(parsed(run)["held"], 80000);
    run = tetherctl({"pump", "--piece", "1000", file, "--json"});
    const json result = parsed(run);
    EXPECT_EQ(result["held"], 40000);
    EXPECT_EQ(result["pieces"], 40);
    EXPECT_TRUE(result["verified"].is_null());
}

TEST_F(TetherctlTest, PumpDrawsItsProgressBarOnlyOnATerminal) {
    const std::string file = files.file("data.bin");
    writeFile(file, patternBytes(200000));
    const Finished onTerminal = runInTerminal(command({"pump", file}));
    EXPECT_EQ(onTerminal.exitCode, 0) << onTerminal.out;
    EXPECT_NE(onTerminal.out.find("\r[------------------------------]   0%  0 B / 195.3 KiB"), std::string::npos)
        << onTerminal.out;
    EXPECT_NE(onTerminal.out.find("\r[##############################] 100%  195.3 KiB / 195.3 KiB"), std::string::npos)
        << onTerminal.out;
    EXPECT_NE(onTerminal.out.find("/s  0:00 left"), std::string::npos) << onTerminal.out;
    const Finished onPipe = tetherctl({"pump", file});
    EXPECT_EQ(onPipe.exitCode, 0);
    EXPECT_EQ(onPipe.err, "");
}

TEST_F(TetherctlTest, CtrlCDuringAPumpGivesTheLocksBackAndStops) {
    const std::string file = files.file("big.bin");
    writeFile(file, patternBytes(16 << 20));
    RunningProgram pump(command({"--name", "pumper", "--json", "pump", "--verify", file}));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (simulator->trace().find("pumper < 42 command") == std::string::npos &&
           std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ASSERT_EQ(kill(pump.pid(), SIGINT), 0);
    const Finished run = pump.finish();
    EXPECT_EQ(run.exitCode, 130) << run.err;
    EXPECT_TRUE(std::regex_match(
        run.err, std::regex("tetherctl: pump: interrupted after [0-9]+ of 16777216 bytes; the locks were released\n")))
        << run.err;
    const json result = parsed(run);
    EXPECT_EQ(result["interrupted"], true);
    EXPECT_LT(result["bytes"].get<long>(), 16 << 20);
    const std::string trace = simulator->trace();
    EXPECT_NE(trace.find("pumper < 34 command \"34\""), std::string::npos);
    EXPECT_NE(trace.find("pumper < 35 command \"35\""), std::string::npos);
    EXPECT_NE(trace.find("pumper < 9999 command \"9999\""), std::string::npos);
    // The next client gets both locks at once.
    EXPECT_EQ(tetherctl({"chain"}).exitCode, 0);
}

TEST_F(TetherctlTest, SendReadsTheServerStatusAsAList) {
    const Finished run = tetherctl({"--json", "send", "1", "--reply", "list"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const json result = parsed(run);
    EXPECT_EQ(result["command"], 1);
    EXPECT_EQ(result["result"], 0);
    EXPECT_EQ(result["status"], 0);
    ASSERT_EQ(result["reply"].size(), 4u);
    EXPECT_EQ(result["reply"][0], "tetherhost simulator " TETHERHOST_VERSION_TEXT);
    EXPECT_EQ(result["reply"][1], "clients=1");
}

TEST_F(TetherctlTest, SendReadsATextReply) {
    const Finished run = tetherctl({"send", "44", "i:8", "--reply", "text"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "command 44: result 0\nreply: Test-Logic-Reset\n");
}

TEST_F(TetherctlTest, SendPassesTextsAndReadsThemBackAsAList) {
    Finished run = tetherctl({"send", "41", "i:3", "s:alpha", "s:beta", "s:gamma"});
    EXPECT_EQ(run.out, "command 41: result 3\n");
    run = tetherctl({"send", "43", "--reply", "list"});
    EXPECT_EQ(run.out, "command 43: result 3\nreply: 3 fields\n  1: alpha\n  2: beta\n  3: gamma\n");
    run = tetherctl({"send", "43", "--reply", "int"});
    EXPECT_EQ(run.out, "command 43: result 3\nreply: 0\n");
}

TEST_F(TetherctlTest, SendOfAGuardedCommandIsWithheldWithoutTheLocks) {
    Finished run = tetherctl({"send", "5", "i:1"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err,
              "tetherctl: command 5 failed: 1: the command was withheld because the client does not hold both locks; "
              "the server was polled with 8888 instead\n");
    run = tetherctl({"send", "--session", "5", "i:1"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "command 5: result 0\n");
}

TEST_F(TetherctlTest, SendShowsWhatANegativeReplyMeans) {
    const Finished run = tetherctl({"send", "52", "i:70000", "i:8", "x:00", "i:0"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "command 52: result -2 (an address, length or mode that the target does not have)\n");
}

TEST_F(TetherctlTest, LogFileAndDebugShowTheLibrarysMessages) {
    const std::string log = files.file("client.log");
    const Finished run =
        tetherctl({"--name", "logger", "--log", log, "--debug", "chain"}, {"NLSPATH=" TETHERHOST_TEST_NLSPATH});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    // The test catalogue's texts begin with their identifiers.
    const std::vector<std::string> lines = linesOf(readFile(log));
    ASSERT_GE(lines.size(), 10u);
    EXPECT_EQ(lines.front().substr(0, 12), "1089 logger:");
    EXPECT_EQ(lines[1].substr(0, 12), "1090 logger:");
    EXPECT_EQ(lines.back().substr(0, 12), "1028 logger:");
    for (const std::string& line : lines) EXPECT_TRUE(std::regex_match(line, std::regex("[0-9]{4} .*"))) << line;
    // Debugging is on before the log file is named: Set_Log_File's own
    // message is the first on standard error, and the last is Disconnect's.
    EXPECT_EQ(run.err.rfind("tetherhostclient 1099: 1099 logger:", 0), 0u) << run.err;
    EXPECT_NE(run.err.find("\ntetherhostclient 1089: 1089 logger:"), std::string::npos);
    EXPECT_NE(run.err.find("\ntetherhostclient 1028: 1028 logger:"), std::string::npos);
}

TEST_F(TetherctlTest, UnwritableLogFileIsReportedBeforeConnecting) {
    const Finished run = tetherctl({"--log", files.file("missing/folder/client.log"), "chain"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, "tetherctl: opening the log file " + files.file("missing/folder/client.log") +
                           " failed: -1: the server refused the lock (or the log file could not be opened)\n");
    EXPECT_EQ(simulator->trace().find("connected"), std::string::npos);
}

/* A chain with a device that has no IDCODE and selects BYPASS after reset. */
class TetherctlBypassChainTest : public TetherctlTest {
protected:
    std::vector<std::string> simulatorOptions() override {
        const std::string chain = files.file("chain.json");
        writeFile(chain, R"({"devices": [
            {"name": "cpu", "irLength": 5, "idcode": "0x4BA00477", "idcodeInstruction": "0x1E"},
            {"name": "glue", "irLength": 3},
            {"name": "fpga", "irLength": 6, "idcode": "0x0362D093", "idcodeInstruction": "0x09"}]})");
        return {"--chain", chain};
    }
};

TEST_F(TetherctlBypassChainTest, ChainShowsADeviceWithoutIdcode) {
    const Finished run = tetherctl({"chain"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out,
              "3 devices on the chain, position 0 next to the cable's TDI:\n"
              "  0: IDCODE 0x4BA00477  version 0x4  part 0xBA00  manufacturer 0x23B  cpu, IR 5 bits\n"
              "  1: no IDCODE (BYPASS after reset)  glue, IR 3 bits\n"
              "  2: IDCODE 0x0362D093  version 0x0  part 0x362D  manufacturer 0x049  fpga, IR 6 bits\n");
    const json result = parsed(tetherctl({"--json", "chain"}));
    EXPECT_TRUE(result["devices"][1]["idcode"].is_null());
    EXPECT_EQ(result["devices"][1]["name"], "glue");
}

TEST(TetherctlArguments, SendRefusesAnArgumentWithoutAType) {
    const Finished run = runProgram({TETHERCTL_PATH, "send", "5", "5"});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.err, "tetherctl: send: argument '5' needs a type: i:NUMBER, s:TEXT or x:HEX\n");
}

TEST(TetherctlArguments, SendRefusesAShapeBeyondTheLimits) {
    const Finished run = runProgram({TETHERCTL_PATH, "--json", "send", "4", "s:a", "i:1", "i:2", "i:3", "i:4", "i:5",
                                     "i:6", "i:7", "i:8", "i:9", "s:b"});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.err,
              "tetherctl: send: 11 arguments in 3 runs of one kind; 11 arguments may form at most 2 runs (see "
              "tetherctl send --help)\n");
    EXPECT_EQ(json::parse(run.out)["error"]["message"],
              "send: 11 arguments in 3 runs of one kind; 11 arguments may form at most 2 runs (see tetherctl send "
              "--help)");
}

TEST(TetherctlArguments, UnknownOrMissingSubcommandIsAUsageError) {
    Finished run = runProgram({TETHERCTL_PATH, "frobnicate"});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.err.rfind("The following argument was not expected: frobnicate\n", 0), 0u) << run.err;
    run = runProgram({TETHERCTL_PATH, "--json"});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.err, "tetherctl: a subcommand is required (see tetherctl --help)\n");
}

TEST(TetherctlCodes, ListsEveryStatusCodeWithItsMeaning) {
    Finished run = runProgram({TETHERCTL_PATH, "codes"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_NE(run.out.find("\n  -1001: could not send to the server\n"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("\n  -1022: no scan return data to collect\n"), std::string::npos) << run.out;
    run = runProgram({TETHERCTL_PATH, "codes", "--json"});
    const json result = json::parse(run.out);
    ASSERT_EQ(result["status"].size(), 16u);
    EXPECT_EQ(result["status"][4]["code"], -1001);
    EXPECT_EQ(result["status"][4]["meaning"], "could not send to the server");
    ASSERT_EQ(result["serverReplies"].size(), 7u);
    EXPECT_EQ(result["serverReplies"][5]["code"], -6);
    EXPECT_EQ(result["serverReplies"][5]["meaning"],
              "the simulator's transfer memory is in use by other clients; try again");
    EXPECT_EQ(result["serverReplies"][6]["code"], -7);
    EXPECT_EQ(result["serverReplies"][6]["meaning"],
              "a remote_bitbang connection owns the JTAG chain: nothing was clocked; try again once it has closed");
}

TEST(TetherctlWithoutServer, ConnectGivesUpWithMinus1001WhenNoServerCanBeStarted) {
    ASSERT_TRUE(waitForPort4001()) << "127.0.0.1:4001 stays taken by another program";
    // With a tetherhost process running somewhere on the machine, Connect
    // does not try to start one and gives up at once.
    const bool startAttempted = !tetherhostProcessRuns();
    TempDir empty;
    const Finished run = runProgram({TETHERCTL_PATH, "--server-dir", empty.path(), "--json", "chain"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(countOf(run.err, "tetherctl: connecting to the server failed: -1001: could not send to the server\n"), 1u)
        << run.err;
    EXPECT_EQ(json::parse(run.out)["error"]["status"], -1001);
    const std::string startFailure =
        "tetherctl: the tetherhost server could not be started from " + empty.path() + "\n";
    if (startAttempted) {
        EXPECT_EQ(countOf(run.err, startFailure), 1u) << run.err;
        EXPECT_GE(run.seconds, 5.0);
    } else {
        EXPECT_EQ(countOf(run.err, startFailure), 0u) << run.err;
    }
}

TEST(TetherctlWithoutServer, AServerProcessThatDoesNotListenIsNotStartedAgainAndItsIdStaysOffStandardOutput) {
    ASSERT_TRUE(waitForPort4001()) << "127.0.0.1:4001 stays taken by another program";
    // A process named tetherhost that never listens: Connect finds it with
    // pidof, tries a second time at once and gives up. pidof prints the
    // process ids it finds on standard output; tetherctl keeps them off its
    // own standard output, where the JSON goes.
    TempDir folder;
    const std::string impostor = folder.file("tetherhost");
    ASSERT_EQ(symlink("/bin/sleep", impostor.c_str()), 0);
    RunningProgram sleeper({impostor, "30"});
    const std::string pid = std::to_string(sleeper.pid());
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (readFile("/proc/" + pid + "/comm") != "tetherhost\n" && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const Finished run = runProgram({TETHERCTL_PATH, "--server-dir", folder.path(), "--json", "chain"});
    kill(sleeper.pid(), SIGTERM);
    sleeper.finish();
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(json::parse(run.out)["error"]["status"], -1001);
    EXPECT_TRUE(std::regex_search(run.err, std::regex("(^|[ \n])" + pid + "[ \n]"))) << run.err;
    EXPECT_EQ(run.err.find("could not be started"), std::string::npos) << run.err;
    EXPECT_EQ(countOf(run.err, "tetherctl: connecting to the server failed: -1001: could not send to the server\n"), 1u)
        << run.err;
}

TEST(TetherctlStartsTheServer, ChainRunsAgainstTheServerThatConnectStarts) {
    ASSERT_TRUE(waitForPort4001()) << "127.0.0.1:4001 stays taken by another program";
    if (tetherhostProcessRuns())
        GTEST_SKIP() << "a tetherhost process already runs here, so Connect would not start one";
    // Connect starts "tetherhost" from --server-dir: here a script that
    // starts the simulator so that this test learns its process id.
    TempDir serverDir;
    const std::string pidFile = serverDir.file("pid");
    writeFile(serverDir.file("tetherhost"),
              std::string("#!/bin/sh\nexec ") + TETHERHOST_PATH + " --idle-exit 30 --pid-file " + pidFile + "\n");
    chmod(serverDir.file("tetherhost").c_str(), 0755);
    const Finished run = runProgram({TETHERCTL_PATH, "--server-dir", serverDir.path(), "chain"});
    const std::string pid = readFile(pidFile);
    if (!pid.empty()) kill(std::stoi(pid), SIGTERM);
    // The next test needs the port: wait for the server to let it go.
    EXPECT_TRUE(waitForPort4001(10));
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out.rfind("3 devices on the chain", 0), 0u) << run.out;
    EXPECT_GE(run.seconds, 5.0);
    EXPECT_FALSE(pid.empty());
}

}  // namespace
}  // namespace tetherhost::test

// SPDX-License-Identifier: MIT
/* The SVF player against Debian's OpenOCD on the corpus in tests/data/svf:
 * each file is played on a fresh simulator once by OpenOCD's svf command
 * through the remote_bitbang door and once by `tetherctl svf`, from the
 * same starting state: OpenOCD's init (every TAP in BYPASS, in
 * Run-Test/Idle) and the TAP reset that OpenOCD 0.12's svf makes before a
 * file's first statement, which the player's run gets from an OpenOCD run
 * that only initialises and the reset sub-command. They must agree on pass
 * or fail and on the first failing statement (OpenOCD names the line of its
 * closing ';', the player both lines: the last is compared); told to go on
 * after mismatches (-ignore_error, --keep-going), on every failing
 * statement; and for files that pass, on the final TAP state and every
 * device's registers, read through the simulator's sub-commands 8 and 23.
 * Files with a syntax error are compared on failing only.
 *
 * Where OpenOCD departs from the SVF definition (the corpus names the
 * statement), each side is held to its own expectation: OpenOCD to what it
 * was seen to do, the player to the definition. Each file is a test of its
 * own, run in a private network namespace. */
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>
#include <vector>

#include "Client.h"
#include "OpenOcdTaps.h"
#include "SimulatorHarness.h"
#include "server/ChainFile.h"

namespace tetherhost::test {
namespace {

using nlohmann::json;

constexpr int port = 4001;
constexpr int doorPort = TETHERHOST_TEST_DOOR_PORT;
const std::string corpus = TETHERHOST_SVF_CORPUS;

/** What a player is expected to make of a file. */
struct Expected {
    bool passes = false;
    std::vector<long> failingLines;  // every failing statement's last line
    bool badFile = false;            // refused: a syntax error or a broken rule
    long errorLine = 0;              // where, when known
};

Expected outcomeIn(const json& entry) {
    Expected expected;
    if (entry.contains("error") || entry.contains("error_line")) {
        expected.badFile = true;
        if (entry.contains("error_line") && entry["error_line"].is_number()) expected.errorLine = entry["error_line"];
        return expected;
    }
    expected.passes = entry["pass"];
    expected.failingLines = entry["failing_lines"].get<std::vector<long>>();
    return expected;
}

struct CorpusFile {
    std::string file;
    std::string chain;
    std::vector<std::string> flags;
    Expected openOcd;  // as OpenOCD 0.12 was seen to play it
    int openOcdExitStatus = 0;
    Expected player;        // as the SVF definition has it
    std::string departure;  // empty when both are held to the same outcome
    bool flagged(const std::string& flag) const { return std::find(flags.begin(), flags.end(), flag) != flags.end(); }
};

void PrintTo(const CorpusFile& file, std::ostream* out) { *out << file.file << " on " << file.chain; }

CorpusFile corpusFile(const json& entry) {
    CorpusFile file;
    file.file = entry["file"];
    file.chain = entry["chain"];
    file.flags = entry["flags"].get<std::vector<std::string>>();
    file.openOcd.passes = entry["pass"];
    file.openOcd.failingLines = entry["failing_lines"].get<std::vector<long>>();
    file.openOcdExitStatus = entry["exit_status"];
    if (entry.contains("every_statement")) {
        file.player = outcomeIn(entry["every_statement"]);
        file.departure = "OpenOCD 0.12 runs only the first statement of each line";
    } else if (entry.contains("definition")) {
        file.player = outcomeIn(entry["definition"]);
        file.departure = entry["departure"];
    } else {
        file.player = file.openOcd;
        file.player.badFile = file.flagged("syntax-error");
    }
    return file;
}

std::vector<CorpusFile> corpusFiles(bool failingOnly) {
    std::ifstream in(corpus + "/corpus.json");
    const json manifest = json::parse(in);
    std::vector<CorpusFile> files;
    for (const json& entry : manifest["files"]) {
        const CorpusFile file = corpusFile(entry);
        const bool failing = !file.openOcd.failingLines.empty() || !file.player.failingLines.empty();
        if (!failingOnly || failing) files.push_back(file);
    }
    return files;
}

/** What one player made of a file. */
struct Played {
    int exitStatus = -1;
    bool passed = false;
    std::vector<long> failingLines;  // the last line of each failing statement
    std::string registers;           // the TAP state and every device's registers afterwards
    std::string error;               // the player's error message
    std::string log;
};

/** The exit status, or minus the signal that ended the program. */
int exitStatusOf(int waitStatus) {
    if (WIFEXITED(waitStatus)) return WEXITSTATUS(waitStatus);
    return WIFSIGNALED(waitStatus) ? -WTERMSIG(waitStatus) : -1000;
}

class SvfAgreement : public ::testing::TestWithParam<CorpusFile> {
protected:
    void SetUp() override {
        chainPath = std::string(TETHERHOST_SHIPPED_CHAINS) + "/" + GetParam().chain + ".json";
        devices = sim::loadCableConfig(chainPath).chain;
        svfPath = corpus + "/" + GetParam().file;
        noServer = scratch.file("no-server");
        ASSERT_EQ(mkdir(noServer.c_str(), 0700), 0);
    }

    std::unique_ptr<Simulator> freshSimulator() {
        auto simulator = Simulator::start(port, {"--chain", chainPath, "--remote-bitbang", std::to_string(doorPort)});
        EXPECT_NE(simulator, nullptr);
        return simulator;
    }

    /** OpenOCD with every TAP declared, init, then `commands`. */
    int openocd(const std::vector<std::string>& commands, std::string& log) {
        std::vector<std::string> arguments = openOcdOnDoor(TETHERHOST_OPENOCD, doorPort);
        std::vector<std::string> script = openOcdTapDeclarations(devices);
        script.push_back("init");
        script.insert(script.end(), commands.begin(), commands.end());
        script.push_back("shutdown");
        for (const std::string& command : script) arguments.insert(arguments.end(), {"-c", command});
        return runTool(arguments, scratch.file("openocd.out"), log);
    }

    /** The controllers' state and each device's registers, through the library. */
    std::string registers() {
        char name[] = "registers";
        Client client(name);
        // Each read must work, or two failed reads would compare equal.
        const int connected = client.Connect(nullptr, nullptr, nullptr);
        EXPECT_EQ(connected, 0);
        if (connected != 0) return "no connection";
        const int state = client.Send(44, 8);
        EXPECT_GE(state, 0);
        std::string text = "state " + std::to_string(state) + " " + client.Read() + "\n";
        for (std::size_t i = 0; i < devices.size(); ++i) {
            EXPECT_EQ(client.Send(44, 23, static_cast<int>(i)), static_cast<int>(devices.size()));
            const std::string device = client.Read();
            EXPECT_EQ(device.rfind(devices[i].name + ";instruction=", 0), 0U) << device;
            text += device + "\n";
        }
        client.Disconnect();
        return text;
    }

    Played byOpenOcd(bool ignoreErrors) {
        Played played;
        const auto simulator = freshSimulator();
        if (!simulator) return played;
        played.exitStatus =
            exitStatusOf(openocd({std::string("svf ") + (ignoreErrors ? "-ignore_error " : "") + svfPath}, played.log));
        static const std::regex failing("tdo check error at line ([0-9]+)");
        for (std::sregex_iterator it(played.log.begin(), played.log.end(), failing), end; it != end; ++it)
            played.failingLines.push_back(std::stol((*it)[1].str()));
        played.passed = played.log.find("svf file programmed successfully") != std::string::npos;
        played.registers = registers();
        return played;
    }

    Played byPlayer(bool keepGoing) {
        Played played;
        const auto simulator = freshSimulator();
        if (!simulator) return played;
        std::string initialised;
        EXPECT_EQ(exitStatusOf(openocd({}, initialised)), 0) << initialised;
        {
            char name[] = "reset";
            Client client(name);
            EXPECT_EQ(client.Connect(nullptr, nullptr, nullptr), 0);
            EXPECT_EQ(client.Send(44, 3), 0);
            client.Disconnect();
        }
        std::vector<std::string> arguments = {TETHERHOST_TETHERCTL, "--server-dir", noServer, "--json", "svf"};
        if (keepGoing) arguments.push_back("--keep-going");
        arguments.push_back(svfPath);
        played.exitStatus = exitStatusOf(runTool(arguments, scratch.file("tetherctl.out"), played.log));
        played.passed = played.exitStatus == 0;
        // Standard error's line comes first; the JSON object is the line
        // that opens with '{'.
        const std::size_t object = played.log.find('{');
        if (object != std::string::npos) {
            const json result = json::parse(played.log.substr(object), nullptr, false);
            if (result.contains("mismatches"))
                for (const json& mismatch : result["mismatches"]) played.failingLines.push_back(mismatch["line"]);
            if (result.contains("error")) played.error = result["error"]["message"];
        }
        played.registers = registers();
        return played;
    }

    ScratchDir scratch;
    std::string chainPath;
    std::string svfPath;
    std::string noServer;
    std::vector<sim::TapDevice> devices;
};

/** The player's run against what it is expected to do. */
void expectPlayerOutcome(const Played& player, const Expected& expected, const std::string& context) {
    if (expected.badFile) {
        EXPECT_EQ(player.exitStatus, 2) << context;
        if (expected.errorLine != 0) {
            EXPECT_NE(player.error.find(":" + std::to_string(expected.errorLine) + ":"), std::string::npos) << context;
        }
        return;
    }
    EXPECT_EQ(player.passed, expected.passes) << context;
    if (!expected.failingLines.empty()) {
        ASSERT_FALSE(player.failingLines.empty()) << context;
        EXPECT_EQ(player.failingLines.front(), expected.failingLines.front()) << context;
    }
}

TEST_P(SvfAgreement, BothPlayersAgreeOnTheResult) {
    const CorpusFile& file = GetParam();
    if (!file.departure.empty()) std::printf("[ OpenOCD departs ] %s\n", file.departure.c_str());
    const Played openOcd = byOpenOcd(false);
    const Played player = byPlayer(false);
    const std::string both = "OpenOCD:\n" + openOcd.log + "\ntetherctl:\n" + player.log;
    // OpenOCD does what it was seen to do when the corpus was made.
    EXPECT_EQ(openOcd.exitStatus, file.openOcdExitStatus) << both;
    if (!file.flagged("syntax-error")) {
        EXPECT_EQ(openOcd.passed, file.openOcd.passes) << both;
        if (!file.openOcd.failingLines.empty() && !openOcd.failingLines.empty()) {
            EXPECT_EQ(openOcd.failingLines.front(), file.openOcd.failingLines.front()) << both;
        }
    }
    expectPlayerOutcome(player, file.player, both);
    if (!file.departure.empty() || file.player.badFile) return;
    EXPECT_EQ(openOcd.passed, player.passed) << both;
    if (!openOcd.failingLines.empty() && !player.failingLines.empty()) {
        EXPECT_EQ(openOcd.failingLines.front(), player.failingLines.front()) << both;
    }
    if (player.passed) {
        EXPECT_EQ(openOcd.registers, player.registers) << both;
    }
}

/* The files with mismatches, played on after each. */
class SvfAgreementGoingOn : public SvfAgreement {};

TEST_P(SvfAgreementGoingOn, BothListEveryFailingStatement) {
    const CorpusFile& file = GetParam();
    if (!file.departure.empty()) std::printf("[ OpenOCD departs ] %s\n", file.departure.c_str());
    const Played openOcd = byOpenOcd(true);
    const Played player = byPlayer(true);
    const std::string both = "OpenOCD:\n" + openOcd.log + "\ntetherctl:\n" + player.log;
    EXPECT_EQ(openOcd.failingLines, file.openOcd.failingLines) << both;
    if (!file.player.badFile) {
        EXPECT_EQ(player.failingLines, file.player.failingLines) << both;
    }
    if (file.departure.empty()) {
        EXPECT_EQ(openOcd.failingLines, player.failingLines) << both;
    }
}

std::string testName(const ::testing::TestParamInfo<CorpusFile>& info) {
    std::string name = info.param.file.substr(0, info.param.file.rfind('.'));
    for (char& c : name)
        if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
    return name;
}

INSTANTIATE_TEST_SUITE_P(Corpus, SvfAgreement, ::testing::ValuesIn(corpusFiles(false)), testName);
INSTANTIATE_TEST_SUITE_P(Corpus, SvfAgreementGoingOn, ::testing::ValuesIn(corpusFiles(true)), testName);

}  // namespace
}  // namespace tetherhost::test

// SPDX-License-Identifier: MIT
/* tetherctl recorded and replayed: each subcommand that talks to the
 * server is run against the simulator with TETHERHOST_RECORD set, then run
 * again against `tetherhost --replay` of that recording, and prints the
 * same output with the same exit status while the replay ends with status
 * 0. A run with one argument changed is reported at the step and command of
 * that argument. A recording into which two processes wrote at once (this
 * test's own client and a tetherctl beside it) replays to the same two.
 * Each test has its simulators on 127.0.0.1:4001 in namespaces of its own,
 * and ends every process it starts by its pid. */
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <fstream>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "Client.h"
#include "SimulatorHarness.h"

namespace tetherhost::test {
namespace {

constexpr int serverPort = 4001;

struct ToolRun {
    int status = -1;     // the exit status, -1 when it did not exit
    std::string output;  // standard output and error, as written
    bool operator==(const ToolRun&) const = default;
};

std::ostream& operator<<(std::ostream& out, const ToolRun& run) {
    return out << "exit " << run.status << ", output:\n" << run.output;
}

std::vector<std::string> linesOf(const std::string& path) {
    std::vector<std::string> lines;
    std::istringstream text(fileText(path));
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
}

class TetherctlReplay : public ::testing::Test {
protected:
    void TearDown() override { unsetenv("TETHERHOST_RECORD"); }

    /* tetherctl with `arguments`; with `recording`, it records into it. */
    ToolRun tetherctl(const std::vector<std::string>& arguments, const std::string& recording = {}) {
        std::vector<std::string> command = {TETHERHOST_TETHERCTL};
        command.insert(command.end(), arguments.begin(), arguments.end());
        if (recording.empty())
            unsetenv("TETHERHOST_RECORD");
        else
            setenv("TETHERHOST_RECORD", recording.c_str(), 1);
        ToolRun run;
        const int status = runTool(command, files.file("output-" + std::to_string(++runs) + ".txt"), run.output);
        unsetenv("TETHERHOST_RECORD");
        run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return run;
    }

    ScratchDir files;
    int runs = 0;
};

TEST_F(TetherctlReplay, EverySubcommandRecordedAgainstTheModelReplaysWithTheSameOutput) {
    const std::string pumpFile = files.file("pump.bin");
    std::ofstream(pumpFile, std::ios::binary) << pattern(3000, 7);
    const std::vector<std::vector<std::string>> commands = {
        {"chain"},
        {"--json", "chain"},
        {"shift", "ir", "18", "3FFFF"},
        {"shift", "dr", "96", "0"},
        {"sspi", "0x100", "DEADBEEF", "--erase"},
        {"sspi", "0x100", "--read", "4"},
        {"i2c", "0x10", "0102A5"},
        {"i2c", "0x20", "FF", "--write-only"},
        {"pump", pumpFile, "--verify", "--piece", "1000"},
        {"svf", std::string(TETHERHOST_SVF_FILES) + "/comments.svf"},
        {"send", "1", "--reply", "list"},
        {"send", "--session", "44", "i:7", "--reply", "text"},
        {"send", "41", "i:2", "s:alpha", "s:beta"},
    };

    // Recorded against the model, each run into a file of its own.
    std::vector<ToolRun> recorded;
    {
        auto model = Simulator::start(serverPort);
        ASSERT_NE(model, nullptr) << "the simulator did not start on port 4001";
        for (std::size_t i = 0; i < commands.size(); ++i)
            recorded.push_back(tetherctl(commands[i], files.file("run" + std::to_string(i) + ".jsonl")));
        // codes talks to no server: there is nothing to record.
        EXPECT_EQ(tetherctl({"codes"}, files.file("codes.jsonl")).status, 0);
        EXPECT_FALSE(std::ifstream(files.file("codes.jsonl")).good());
        ASSERT_TRUE(model->stop(SIGTERM).has_value());
    }

    for (std::size_t i = 0; i < commands.size(); ++i) {
        const std::string recording = files.file("run" + std::to_string(i) + ".jsonl");
        SCOPED_TRACE(commands[i][0] + (commands[i].size() > 1 ? " " + commands[i][1] : std::string()));
        // Every run made one connection, and succeeded.
        EXPECT_EQ(recorded[i].status, 0) << recorded[i];
        ASSERT_GT(linesOf(recording).size(), 10U);
        const auto replay = TracedSimulator::start(serverPort, {"--replay", recording});
        ASSERT_NE(replay, nullptr);
        ToolRun replayed = tetherctl(commands[i]);
        ToolRun original = recorded[i];
        if (commands[i][0] == "pump") {
            // The one output that is not the server's: the rate measured.
            const std::regex rate(R"(\([0-9.]+ [KMG]?i?B/s\))");
            replayed.output = std::regex_replace(replayed.output, rate, "(rate)");
            original.output = std::regex_replace(original.output, rate, "(rate)");
            EXPECT_NE(original.output.find("(rate)"), std::string::npos) << original.output;
        }
        EXPECT_EQ(replayed, original);
        EXPECT_EQ(replay->exitStatus(), 0) << replay->errors();
        EXPECT_NE(replay->errors().find("1 of 1 recorded connections replayed exactly"), std::string::npos)
            << replay->errors();
    }
}

TEST_F(TetherctlReplay, AChangedArgumentIsReportedAtItsStepAndCommand) {
    const std::string recording = files.file("shift.jsonl");
    {
        auto model = Simulator::start(serverPort);
        ASSERT_NE(model, nullptr);
        ASSERT_EQ(tetherctl({"shift", "dr", "32", "FFFFFFFF"}, recording).status, 0);
        ASSERT_TRUE(model->stop(SIGTERM).has_value());
    }
    // One connection: its steps are the file's lines.
    const std::vector<std::string> lines = linesOf(recording);
    std::size_t bitsLine = 0;
    for (std::size_t i = 0; i < lines.size() && bitsLine == 0; ++i)
        if (lines[i].find(R"("dir":"send","text":"32\u0000")") != std::string::npos) bitsLine = i + 1;
    ASSERT_GT(bitsLine, 0U);

    const auto replay = TracedSimulator::start(serverPort, {"--replay", recording});
    ASSERT_NE(replay, nullptr);
    const ToolRun changed = tetherctl({"shift", "dr", "31", "7FFFFFFF"});
    EXPECT_NE(changed.status, 0);
    EXPECT_EQ(replay->exitStatus(), 1);
    const std::string errors = replay->errors();
    EXPECT_NE(errors.find("step " + std::to_string(bitsLine) + " (line " + std::to_string(bitsLine) +
                          R"(): command 44 (JTAG interface), sub-command 12 (JTAG shift), bits: expected "32\0", )"
                          R"(received "31\0")"),
              std::string::npos)
        << errors;
    EXPECT_NE(errors.find("0 of 1 recorded connections replayed exactly"), std::string::npos) << errors;
}

/* This process's part of the two: it asks for the server's status, lets
 * `beside` run (another process, recording into the same file) while its
 * own connection stays open, then takes the locks, reads the chain's
 * description and leaves. What it saw, in order. */
template <typename Beside>
std::vector<std::string> hostAround(Beside beside) {
    std::vector<std::string> seen;
    char name[] = "alpha";
    Client client(name);
    seen.push_back(std::to_string(client.Connect(nullptr, nullptr, nullptr)));
    seen.push_back(std::to_string(client.Send(1)));
    seen.push_back(client.Read());
    beside();
    char application[] = "app";
    char user[] = "user";
    seen.push_back(std::to_string(client.Send(4, application, user, 0)));
    seen.push_back(std::to_string(client.Send(33)));
    seen.push_back(std::to_string(client.Send(44, 7)));
    seen.push_back(client.Read());
    seen.push_back(std::to_string(client.Disconnect()));
    return seen;
}

TEST_F(TetherctlReplay, ARecordingTwoProcessesMadeAtOnceReplaysToTheSameTwo) {
    const std::string recording = files.file("two.jsonl");
    std::vector<std::string> alphaRecorded;
    ToolRun betaRecorded;
    {
        auto model = Simulator::start(serverPort);
        ASSERT_NE(model, nullptr);
        setenv("TETHERHOST_RECORD", recording.c_str(), 1);
        alphaRecorded = hostAround([&] { betaRecorded = tetherctl({"--name", "beta", "chain"}, recording); });
        unsetenv("TETHERHOST_RECORD");
        ASSERT_TRUE(model->stop(SIGTERM).has_value());
    }
    ASSERT_EQ(alphaRecorded.size(), 8U);
    EXPECT_EQ(alphaRecorded[0], "0");
    EXPECT_EQ(alphaRecorded[6], defaultChainText);
    EXPECT_EQ(betaRecorded.status, 0) << betaRecorded;
    // The two processes' lines are in one file, beta's between alpha's.
    const std::vector<std::string> lines = linesOf(recording);
    ASSERT_GT(lines.size(), 20U);
    const auto clientOf = [](const std::string& line) {
        return line.find(R"("client":"alpha")") != std::string::npos  ? std::string("alpha")
               : line.find(R"("client":"beta")") != std::string::npos ? std::string("beta")
                                                                      : std::string("?");
    };
    std::string order;
    for (const std::string& line : lines) {
        const std::string client = clientOf(line);
        if (order.empty() || order.substr(order.rfind(' ') + 1) != client) order += " " + client;
    }
    EXPECT_EQ(order, " alpha beta alpha");

    const auto replay = TracedSimulator::start(serverPort, {"--replay", recording});
    ASSERT_NE(replay, nullptr);
    ToolRun betaReplayed;
    const std::vector<std::string> alphaReplayed = hostAround([&] {
        betaReplayed = tetherctl({"--name", "beta", "chain"});
    });
    EXPECT_EQ(alphaReplayed, alphaRecorded);
    EXPECT_EQ(betaReplayed, betaRecorded);
    EXPECT_EQ(replay->exitStatus(), 0) << replay->errors();
    EXPECT_NE(replay->errors().find("2 of 2 recorded connections replayed exactly"), std::string::npos)
        << replay->errors();
}

}  // namespace
}  // namespace tetherhost::test

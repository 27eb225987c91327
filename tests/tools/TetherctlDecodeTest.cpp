// SPDX-License-Identifier: MIT
/* tetherctl decode on real conversations: tetherctl runs recorded with
 * TETHERHOST_RECORD against the simulator, decoded as text and as JSON; the
 * simulator's trace of the same runs decodes to the same items in the same
 * order; a file that is neither is refused with exit code 2. */
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>
#include <vector>

#include "ProgramRunner.h"

namespace tetherhost::test {
namespace {

using nlohmann::json;

class TetherctlDecode : public ::testing::Test {
protected:
    void SetUp() override {
        simulator = startSimulator({});
        ASSERT_EQ(simulator->failure(), "");
    }

    /* tetherctl with its conversation recorded into `recording`. */
    Finished recorded(const std::vector<std::string>& arguments) {
        std::vector<std::string> argv = {TETHERCTL_PATH, "--server-dir", noServer.path()};
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        return runProgram(argv, {"TETHERHOST_RECORD=" + recording});
    }

    static Finished decode(const std::vector<std::string>& arguments) {
        std::vector<std::string> argv = {TETHERCTL_PATH, "decode"};
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        return runProgram(argv);
    }

    /* (side, command, item) of every frame line of a decode's JSON, events
     * left out; a chunk is "chunk" whichever block it belongs to, as the
     * trace names it. */
    static std::vector<std::string> frames(const json& decoded) {
        static const std::regex chunk(".* chunk [0-9]+");
        std::vector<std::string> result;
        for (const json& connection : decoded["connections"])
            for (const json& line : connection["lines"]) {
                if (line["side"] == "event") continue;
                const std::string item = line["item"];
                result.push_back(line["side"].get<std::string>() + " " + line["command"].get<std::string>() + " " +
                                 (std::regex_match(item, chunk) ? "chunk" : item));
            }
        return result;
    }

    TempDir noServer;
    TempDir files;
    std::string recording = files.path() + "/recording.jsonl";
    std::unique_ptr<Simulator> simulator;
};

TEST_F(TetherctlDecode, ARecordedShiftIsPrintedAsItsConversation) {
    ASSERT_EQ(recorded({"--name", "board1", "shift", "dr", "6", "3F"}).exitCode, 0);
    const Finished run = decode({recording});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_TRUE(std::regex_search(run.out, std::regex("^connection 1 \"[0-9a-f]{16}-1\", client \"board1\"\n")))
        << run.out;
    // From the sub-command to the reply, line by line as the recording has
    // them (the session's opening takes lines 1 to 34).
    const std::string expected =
        "37    < 44      sub-command     \"12\"                         3 bytes  (JTAG shift)\n"
        "38    > 44/12   ack             \"+\"                          2 bytes\n"
        "39    < 44/12   flags           \"0\"                          2 bytes\n"
        "40    > 44/12   ack             \"+\"                          2 bytes\n"
        "41    < 44/12   bits            \"6\"                          2 bytes\n"
        "42    > 44/12   ack             \"+\"                          2 bytes\n"
        "43    < 44/12   second          \"1\"                          2 bytes\n"
        "44    > 44/12   ack             \"+\"                          2 bytes\n"
        "45    < 44/12   third           \"0\"                          2 bytes\n"
        "46    > 44/12   ack             \"+\"                          2 bytes\n"
        "47    < 44/12   tdi             3f00                         2 bytes\n"
        "48    > 44/12   answer          \"+\"                          2 bytes\n"
        "49    < 44/12   expected        0000                         2 bytes\n"
        "50    > 44/12   answer          \"+\"                          2 bytes\n"
        "51    < 44/12   go              \"+\"                          2 bytes\n"
        "52    > 44/12   status          \"0\"                          2 bytes  (done)\n"
        "53    > 44/12   read-back       3f                           1 byte  (TDO)\n"
        "54    < 44/12   request         \"+\"                          2 bytes\n"
        "55    > 44/12   reply           \"0\"                          2 bytes  (done)\n";
    EXPECT_NE(run.out.find(expected), std::string::npos) << run.out;
}

TEST_F(TetherctlDecode, JsonGivesEveryLineWithItsBytes) {
    ASSERT_EQ(recorded({"--name", "board1", "shift", "dr", "6", "3F"}).exitCode, 0);
    const Finished run = decode({"--json", recording});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const json decoded = json::parse(run.out);
    ASSERT_EQ(decoded["connections"].size(), 1u);
    const json& connection = decoded["connections"][0];
    EXPECT_EQ(connection["client"], "board1");
    // One line per recorded socket call: the read-back came in a receive of
    // its own.
    std::ifstream in(recording);
    std::size_t recordedLines = 0;
    for (std::string line; std::getline(in, line);) ++recordedLines;
    ASSERT_EQ(connection["lines"].size(), recordedLines);
    const json& tdo = connection["lines"][52];
    EXPECT_EQ(tdo, json::parse(R"({"line":53,"side":"server","command":"44/12","item":"read-back","hex":"3f",)"
                               R"("length":1,"note":"TDO"})"));
    EXPECT_EQ(connection["lines"][29], json::parse(R"({"line":30,"side":"server","command":"4","item":"lock",)"
                                                   R"("text":"1","length":2,"note":"granted"})"));
}

TEST_F(TetherctlDecode, TheTraceOfTheSameRunsNamesTheSameFramesInTheSameOrder) {
    const std::string data = files.path() + "/data.bin";
    std::ofstream(data, std::ios::binary) << std::string(3000, '\x5a');
    ASSERT_EQ(recorded({"--name", "board1", "shift", "ir", "18", "3FFFF"}).exitCode, 0);
    ASSERT_EQ(recorded({"i2c", "0", "A5"}).exitCode, 0);
    ASSERT_EQ(recorded({"sspi", "0", "--read", "3000"}).exitCode, 0);
    ASSERT_EQ(recorded({"pump", data}).exitCode, 0);
    ASSERT_EQ(recorded({"send", "1", "--reply", "text"}).exitCode, 0);
    const std::string trace = files.path() + "/trace.txt";
    std::ofstream(trace) << simulator->trace();

    const Finished fromRecording = decode({"--json", recording});
    const Finished fromTrace = decode({"--json", trace});
    ASSERT_EQ(fromRecording.exitCode, 0) << fromRecording.err;
    ASSERT_EQ(fromTrace.exitCode, 0) << fromTrace.err;
    const std::vector<std::string> recordedFrames = frames(json::parse(fromRecording.out));
    EXPECT_GT(recordedFrames.size(), 250u);
    EXPECT_EQ(recordedFrames, frames(json::parse(fromTrace.out)));
}

TEST(TetherctlDecodeFiles, AFileThatIsNeitherIsRefusedNamingItsLine) {
    TempDir files;
    const std::string bad = files.path() + "/bad.jsonl";
    std::ofstream(bad) << "{\"dir\":\"send\",\"text\":\"a\\u0000\"}\n{\"dir\":\"sideways\"}\n";
    Finished run = runProgram({TETHERCTL_PATH, "decode", bad});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_NE(run.err.find("tetherctl: " + bad + ":2: "), std::string::npos) << run.err;
    EXPECT_EQ(run.out, "");

    run = runProgram({TETHERCTL_PATH, "decode", files.path() + "/missing"});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.err, "tetherctl: " + files.path() + "/missing: cannot be read\n");
}

}  // namespace
}  // namespace tetherhost::test

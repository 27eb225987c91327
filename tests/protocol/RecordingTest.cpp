// SPDX-License-Identifier: MIT
/* TETHERHOST_RECORD: a session recorded by the library is, line for line,
 * the conversation it had (so a recording plays back as a test), each
 * connection named apart, each line carrying the client, the call's result
 * and a time that never goes back; a file that cannot be opened changes
 * nothing, neither the results nor the messages posted. */
#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "Conversation.h"
#include "JtagScanSession.h"
#include "MessageLog.h"
#include "TempDir.h"

namespace {

using namespace tetherhost::test;
using nlohmann::json;

std::vector<json> jsonLines(const std::string& path) {
    std::vector<json> lines;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) lines.push_back(json::parse(line));
    return lines;
}

class Recording : public ::testing::Test {
protected:
    void record(const std::string& path) { ASSERT_EQ(setenv("TETHERHOST_RECORD", path.c_str(), 1), 0); }
    void TearDown() override { unsetenv("TETHERHOST_RECORD"); }

    TempDir folder;
};

TEST_F(Recording, ARecordedSessionIsTheConversationItHad) {
    const std::string path = folder.file("session.jsonl");
    record(path);
    playJtagScanSession();
    const Conversation recorded = readConversation(path);
    const Conversation played = conversationNamed("jtag-scan-session");
    ASSERT_EQ(recorded.size(), played.size());
    for (std::size_t i = 0; i < played.size(); ++i) {
        EXPECT_EQ(recorded[i].kind, played[i].kind) << "step " << i;
        EXPECT_EQ(recorded[i].bytes, played[i].bytes) << "step " << i;
    }
}

TEST_F(Recording, EveryLineNamesTheConnectionAndClientWithTheResultAndATime) {
    const std::string path = folder.file("session.jsonl");
    record(path);
    playJtagScanSession();
    const std::vector<json> lines = jsonLines(path);
    ASSERT_FALSE(lines.empty());
    const std::string connection = lines.front()["conn"];
    double before = 0;
    for (const json& line : lines) {
        EXPECT_EQ(line["conn"], connection) << line;
        EXPECT_EQ(line["client"], "board1") << line;
        const std::string bytes = line.contains("text") ? line["text"].get<std::string>() : "";
        EXPECT_EQ(line["ret"], static_cast<long>(bytes.size())) << line;
        EXPECT_GE(line["t"].get<double>(), before) << line;
        before = line["t"];
    }
    EXPECT_EQ(lines.front()["dir"], "send");
    EXPECT_EQ(lines.front()["text"], std::string("board1\0", 7));
}

TEST_F(Recording, TwoConnectionsRecordedIntoOneFileAreNamedApart) {
    const std::string path = folder.file("sessions.jsonl");
    record(path);
    playJtagScanSession();
    playJtagScanSession();
    const std::vector<json> lines = jsonLines(path);
    std::vector<std::string> order;
    for (const json& line : lines)
        if (order.empty() || order.back() != line["conn"]) order.push_back(line["conn"]);
    ASSERT_EQ(order.size(), 2u);
    EXPECT_NE(order[0], order[1]);
    EXPECT_EQ(lines.size(), 2 * conversationNamed("jtag-scan-session").size());
}

TEST_F(Recording, AFileThatCannotBeOpenedChangesNothing) {
    const MessageLog unrecorded;
    playJtagScanSession(&unrecorded);
    record(folder.file("no-such-folder/session.jsonl"));
    const MessageLog recorded;
    playJtagScanSession(&recorded);
    EXPECT_EQ(recorded.lines(), unrecorded.lines());
    EXPECT_FALSE(std::ifstream(folder.file("no-such-folder/session.jsonl")).good());
}

}  // namespace

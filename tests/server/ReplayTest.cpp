// SPDX-License-Identifier: MIT
/* tetherhost --replay: a session recorded with TETHERHOST_RECORD against the
 * simulator is served again from the recording, and the same host code
 * gets the same answers byte for byte (exit status 0); host code that sends
 * something else is stopped at its first different byte with a report
 * naming the step and the command (exit status 1); the connections of one
 * recording are served in order; with --replay-then-model the model goes on
 * after the recording, with the locks the recording holds; two receives in
 * a row stay two receives; a malformed recording is refused at start.
 * Each test has its simulators on 127.0.0.1:4001 in namespaces of its own,
 * and ends every process it starts by its pid. */
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "Client.h"
#include "SimulatorHarness.h"

namespace tetherhost::test {
namespace {

constexpr int serverPort = 4001;

/* The lines of the file at `path`. */
std::vector<std::string> linesOf(const std::string& path) {
    std::vector<std::string> lines;
    std::istringstream text(fileText(path));
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
}

void writeLines(const std::string& path, const std::vector<std::string>& lines) {
    std::ofstream out(path, std::ios::trunc);
    for (const std::string& line : lines) out << line << '\n';
}

/* The number (from 1) of the first line of `path` that holds `needle`; 0
 * when none does. */
std::size_t lineHolding(const std::string& path, const std::string& needle) {
    const std::vector<std::string> lines = linesOf(path);
    for (std::size_t i = 0; i < lines.size(); ++i)
        if (lines[i].find(needle) != std::string::npos) return i + 1;
    return 0;
}

std::unique_ptr<Client> connect(const std::string& name) {
    std::vector<char> buffer(name.begin(), name.end());
    buffer.push_back('\0');
    auto client = std::make_unique<Client>(buffer.data());
    client->Connect(nullptr, nullptr, nullptr);
    return client;
}

/* What a host saw: every call's result, the scan data and the texts it
 * read, in order. */
struct HostView {
    std::vector<int> results;
    std::vector<std::string> data;
    bool operator==(const HostView&) const = default;
};

/* The first part of a host's session: the introduction, both locks, a TAP
 * reset and a data scan of `bits` bits from reset, which reads the IDCODEs
 * (96 bits: all three). */
void scanPart(Client& client, HostView& view, int bits) {
    char application[] = "replay-test";
    char user[] = "tester";
    view.results.push_back(client.Send(4, application, user, 0));
    view.results.push_back(client.Send(33));
    view.results.push_back(client.Send(44, 3));
    std::vector<unsigned char> tdi(12, 0), placeholder(12, 0);
    view.results.push_back(client.Send(44, 12, 0, bits, 1, 0, tdi.data(), placeholder.data()));
    std::string tdo(12, '\xEE');
    view.results.push_back(client.GetTDO(tdo.data(), 96));
    view.data.push_back(tdo);
}

/* A whole session: the scan part, the chain described, both locks given
 * back, the farewell. */
HostView scanSession(int bits = 96) {
    HostView view;
    const auto client = connect("board1");
    view.results.push_back(client->GetClientStatus());
    scanPart(*client, view, bits);
    view.results.push_back(client->Send(44, 7));
    view.data.push_back(client->Read());
    view.results.push_back(client->Send(34));
    view.results.push_back(client->Send(35));
    view.results.push_back(client->Disconnect());
    return view;
}

/* Two hosts at once: the first holds the locks while the second asks for
 * them in vain, then leaves; the second then takes them. */
HostView twoHosts() {
    HostView view;
    const auto first = connect("first");
    const auto second = connect("second");
    char application[] = "app";
    char user[] = "user";
    view.results.push_back(first->Send(4, application, user, 0));
    view.results.push_back(first->Send(33));
    view.results.push_back(second->Send(4, application, user, 0));
    view.results.push_back(second->Send(33));
    view.results.push_back(first->Disconnect());
    view.results.push_back(second->Send(4, application, user, 0));
    view.results.push_back(second->Send(33));
    view.results.push_back(second->Send(44, 7));
    view.data.push_back(second->Read());
    view.results.push_back(second->Disconnect());
    return view;
}

class Replay : public ::testing::Test {
protected:
    /* Runs `host` against the model with TETHERHOST_RECORD naming the file
     * `name`; its path. */
    template <typename Host>
    std::string record(const std::string& name, Host host, HostView& seen) {
        std::string path = files.file(name);
        auto model = Simulator::start(serverPort);
        EXPECT_NE(model, nullptr) << "the simulator did not start on port 4001";
        if (model == nullptr) return path;
        setenv("TETHERHOST_RECORD", path.c_str(), 1);
        seen = host();
        unsetenv("TETHERHOST_RECORD");
        EXPECT_TRUE(model->stop(SIGTERM).has_value());
        return path;
    }

    void TearDown() override { unsetenv("TETHERHOST_RECORD"); }

    ScratchDir files;
};

TEST_F(Replay, TheSameHostCodeIsServedByteForByteAndTheRunEndsWithStatusZero) {
    HostView recorded;
    const std::string path = record(
        "session.jsonl", [] { return scanSession(); }, recorded);
    ASSERT_EQ(recorded.data.size(), 2U);
    ASSERT_EQ(recorded.data[0], littleEndian(idcode2) + littleEndian(idcode1) + littleEndian(idcode0));
    ASSERT_EQ(recorded.data[1], defaultChainText);

    const auto replay = TracedSimulator::start(serverPort, {"--replay", path});
    ASSERT_NE(replay, nullptr);
    EXPECT_EQ(scanSession(), recorded);
    EXPECT_EQ(replay->exitStatus(), 0) << replay->errors();
    const TraceFollower trace(replay->trace());
    EXPECT_EQ(trace.count("closed: recording replayed"), 1) << fileText(replay->trace());
    EXPECT_EQ(trace.count("diverged"), 0);
    EXPECT_NE(replay->errors().find("1 of 1 recorded connections replayed exactly"), std::string::npos)
        << replay->errors();
}

TEST_F(Replay, AChangedArgumentIsReportedWithItsStepAndCommandAndEndsWithStatusOne) {
    HostView recorded;
    const std::string path = record(
        "session.jsonl", [] { return scanSession(96); }, recorded);
    const std::size_t bitsLine = lineHolding(path, R"("text":"96\u0000")");
    ASSERT_GT(bitsLine, 0U);

    const auto replay = TracedSimulator::start(serverPort, {"--replay", path});
    ASSERT_NE(replay, nullptr);
    const HostView changed = scanSession(64);
    EXPECT_NE(changed, recorded);
    EXPECT_EQ(replay->exitStatus(), 1);

    // The recording holds one connection, so its steps are its lines.
    const std::string step = "step " + std::to_string(bitsLine) + " (line " + std::to_string(bitsLine) + ")";
    const std::string what =
        R"(command 44 (JTAG interface), sub-command 12 (JTAG shift), bits: expected "96\0", received "64\0")";
    const std::string errors = replay->errors();
    EXPECT_NE(errors.find("tetherhost: replay: connection 1 (recorded as "), std::string::npos) << errors;
    EXPECT_NE(errors.find(step + ": " + what), std::string::npos) << errors;
    EXPECT_NE(errors.find("0 of 1 recorded connections replayed exactly"), std::string::npos) << errors;

    // The trace holds the same report as one line, quoted.
    const TraceFollower trace(replay->trace());
    ASSERT_EQ(trace.count(" diverged "), 1) << fileText(replay->trace());
    EXPECT_NE(trace.lines(" diverged ").find(R"(bits: expected \"96\\0\", received \"64\\0\")"), std::string::npos)
        << trace.lines(" diverged ");
    EXPECT_EQ(trace.count("closed: diverged"), 1);
}

TEST_F(Replay, TheConnectionsOfOneRecordingAreServedInOrder) {
    HostView recorded;
    const std::string path = record("two.jsonl", twoHosts, recorded);
    // The second host asked for the locks in vain while the first held them.
    ASSERT_EQ(recorded.results, (std::vector<int>{0, 0, -1, -1, 0, 0, 0, 3, 0}));
    // The two connections' lines are interleaved in the file.
    const std::vector<std::string> lines = linesOf(path);
    ASSERT_NE(lines[0].find(R"("client":"first")"), std::string::npos);
    ASSERT_NE(lines[2].find(R"("client":"second")"), std::string::npos);

    const auto replay = TracedSimulator::start(serverPort, {"--replay", path});
    ASSERT_NE(replay, nullptr);
    EXPECT_EQ(twoHosts(), recorded);
    EXPECT_EQ(replay->exitStatus(), 0) << replay->errors();
    const TraceFollower trace(replay->trace());
    EXPECT_EQ(trace.count("c1 - = - event \"connected: replaying connection 1 of 2"), 1) << fileText(replay->trace());
    EXPECT_EQ(trace.count("c2 - = - event \"connected: replaying connection 2 of 2"), 1);
    EXPECT_EQ(trace.count("c1 first = 9999 event \"closed: recording replayed\""), 1) << fileText(replay->trace());
    EXPECT_EQ(trace.count("c2 second = 9999 event \"closed: recording replayed\""), 1);
}

/* The scan part and the farewell. */
HostView scanAndLeave() {
    HostView view;
    const auto client = connect("board1");
    scanPart(*client, view, 96);
    view.results.push_back(client->Disconnect());
    return view;
}

/* The recording at `path` without its farewell: it ends after the scan,
 * with both locks held. */
std::string withoutFarewell(const std::string& path) {
    std::vector<std::string> lines = linesOf(path);
    const std::size_t farewell = lineHolding(path, R"("text":"9999\u0000")");
    EXPECT_GT(farewell, 0U);
    if (farewell > 0) lines.resize(farewell - 1);
    std::string cut = path + ".cut";
    writeLines(cut, lines);
    return cut;
}

/* The scan part as recorded, then what the recording does not hold: a
 * sub-command the model answers, a lock-guarded command, the farewell. */
HostView scanThenMore() {
    HostView view;
    const auto client = connect("board1");
    scanPart(*client, view, 96);
    view.results.push_back(client->Send(44, 7));
    view.data.push_back(client->Read());
    view.results.push_back(client->Send(6));
    view.results.push_back(client->Disconnect());
    return view;
}

TEST_F(Replay, ThenModelGoesOnAfterTheRecordingWithTheLocksItHolds) {
    HostView recorded;
    const std::string cut = withoutFarewell(record("session.jsonl", scanAndLeave, recorded));

    const auto replay = TracedSimulator::start(serverPort, {"--replay", cut, "--replay-then-model"});
    ASSERT_NE(replay, nullptr);
    const HostView seen = scanThenMore();
    // The scan as recorded; the chain's description, command 6 (allowed
    // only to a holder of both locks) and the farewell from the model.
    EXPECT_EQ(seen.results, (std::vector<int>{0, 0, 0, 0, 0, 3, 0, 0}));
    ASSERT_EQ(seen.data.size(), 2U);
    EXPECT_EQ(seen.data[0], recorded.data[0]);
    EXPECT_EQ(seen.data[1], defaultChainText);
    // A client beyond the recording is served by the model too.
    RawClient beyond(serverPort);
    ASSERT_TRUE(beyond.connected());
    EXPECT_TRUE(beyond.introduce("beyond"));
    EXPECT_EQ(beyond.exchange("44"), plus);
    EXPECT_EQ(beyond.exchange("7"), plus);
    EXPECT_EQ(beyond.reply(), 3);
    EXPECT_EQ(beyond.leave(), 0);

    TraceFollower trace(replay->trace());
    ASSERT_TRUE(trace.waitFor("c2 beyond = 9999 event \"closed: client left\""));
    EXPECT_EQ(replay->stop(), 0) << replay->errors();
    EXPECT_EQ(trace.count("c1 board1 = - event \"the model goes on after the recording\""), 1)
        << fileText(replay->trace());
    EXPECT_EQ(trace.count("c1 board1 > 44/7 reply \"3\" 2"), 1);
    EXPECT_EQ(trace.count("c1 board1 > 6 reply \"0\" 2"), 1);
}

TEST_F(Replay, AClientThatGoesOnPastItsRecordingIsReportedWithoutTheModel) {
    HostView recorded;
    const std::string cut = withoutFarewell(record("session.jsonl", scanAndLeave, recorded));

    const auto replay = TracedSimulator::start(serverPort, {"--replay", cut});
    ASSERT_NE(replay, nullptr);
    const HostView seen = scanThenMore();
    EXPECT_EQ(std::vector<int>(seen.results.begin(), seen.results.begin() + 5),
              std::vector<int>(recorded.results.begin(), recorded.results.begin() + 5));
    EXPECT_NE(seen.results[5], 3);  // the connection was closed
    EXPECT_EQ(replay->exitStatus(), 1);
    const std::string errors = replay->errors();
    EXPECT_NE(errors.find("connection 1 (recorded as "), std::string::npos) << errors;
    // What the client sent beyond it begins with the next command's frame
    // (and may hold more: the library goes on after a failed command).
    EXPECT_NE(errors.find(R"(: the recording ends here, received "44\0)"), std::string::npos) << errors;
}

TEST_F(Replay, TwoReceivesInARowStayTwoReceives) {
    // Two sends of the server in a row; without waiting for the first to be
    // taken they would mostly arrive as one receive.
    const std::string path = files.file("two-receives.jsonl");
    writeLines(path, {R"({"dir": "send", "text": "raw\u0000"})", R"({"dir": "recv", "text": "+\u0000"})",
                      R"({"dir": "send", "text": "+\u0000"})", R"({"dir": "recv", "text": "first"})",
                      R"({"dir": "recv", "text": "second"})"});
    const auto replay = TracedSimulator::start(serverPort, {"--replay", path});
    ASSERT_NE(replay, nullptr);
    RawClient client(serverPort);
    ASSERT_TRUE(client.connected());
    EXPECT_TRUE(client.introduce("raw"));
    ASSERT_TRUE(client.send(plus));
    EXPECT_EQ(client.receive(1024), "first");
    EXPECT_EQ(client.receive(1024), "second");
    EXPECT_TRUE(client.closedByServer());
    client.close();
    EXPECT_EQ(replay->exitStatus(), 0) << replay->errors();
}

TEST_F(Replay, ARecordedCloseClosesTheConnectionThere) {
    const std::string path = files.file("closed.jsonl");
    writeLines(path, {R"({"dir": "send", "text": "raw\u0000"})", R"({"dir": "recv", "text": "+\u0000"})",
                      R"({"close": true})"});
    const auto replay = TracedSimulator::start(serverPort, {"--replay", path});
    ASSERT_NE(replay, nullptr);
    RawClient client(serverPort);
    ASSERT_TRUE(client.connected());
    EXPECT_TRUE(client.introduce("raw"));
    EXPECT_TRUE(client.closedByServer());
    EXPECT_EQ(replay->exitStatus(), 0) << replay->errors();
    EXPECT_EQ(TraceFollower(replay->trace()).count("closed: the recording closes the connection here"), 1);
}

TEST_F(Replay, AClientThatLeavesBeforeItsRecordingEndsIsReported) {
    const std::string path = files.file("longer.jsonl");
    writeLines(path, {R"({"dir": "send", "text": "raw\u0000"})", R"({"dir": "recv", "text": "+\u0000"})",
                      R"({"dir": "send", "text": "38\u0000"})", R"({"dir": "recv", "text": "+\u0000"})"});
    const auto replay = TracedSimulator::start(serverPort, {"--replay", path});
    ASSERT_NE(replay, nullptr);
    RawClient client(serverPort);
    ASSERT_TRUE(client.connected());
    EXPECT_TRUE(client.introduce("raw"));
    ASSERT_TRUE(client.send("3"));
    client.close();
    EXPECT_EQ(replay->exitStatus(), 1);
    EXPECT_NE(replay->errors().find(
                  R"(connection 1, step 3 (line 3): command 38, its command frame: expected "38\0", received "3"; )"
                  "then the client closed the connection"),
              std::string::npos)
        << replay->errors();
}

TEST_F(Replay, AMalformedRecordingIsRefusedAtStartNamingItsLine) {
    const std::string path = files.file("bad.jsonl");
    writeLines(path, {R"({"dir": "send", "text": "raw\u0000"})", R"({"dir": "sned", "text": "+\u0000"})"});
    std::string output;
    const int status = runTool({simulatorAlias(files), "--port", std::to_string(serverPort), "--replay", path},
                               files.file("output.txt"), output);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 2);
    EXPECT_NE(output.find("tetherhost: " + path + R"(:2: "dir" is "send" or "recv")"), std::string::npos) << output;

    const std::string empty = files.file("notes.jsonl");
    writeLines(empty, {R"({"note": "nothing recorded"})"});
    const int emptyStatus = runTool({simulatorAlias(files), "--port", std::to_string(serverPort), "--replay", empty},
                                    files.file("output.txt"), output);
    ASSERT_TRUE(WIFEXITED(emptyStatus));
    EXPECT_EQ(WEXITSTATUS(emptyStatus), 2);
    EXPECT_NE(output.find(empty + ": holds no recorded connection"), std::string::npos) << output;
}

}  // namespace
}  // namespace tetherhost::test

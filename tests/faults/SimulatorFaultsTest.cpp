// SPDX-License-Identifier: MIT
/* Every fault rule of the simulator (tetherhost --faults, docs/faults.md)
 * as a host application sees it: the real library against the simulator
 * on 127.0.0.1:4001, each test with its own simulator in namespaces of its
 * own. Each failure gives exactly the return value, the status and the
 * message identifiers the library gives for it (docs/status-codes.md,
 * docs/diagnostics.md): the log runs on the test catalogue, whose lines
 * begin with their identifier. Every rule's firing is also found in the
 * simulator's trace, so each test knows the rule fired where it meant it
 * to. */
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <chrono>
#include <fstream>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "Client.h"
#include "MessageLog.h"
#include "SimulatorHarness.h"

namespace tetherhost::test {
namespace {

constexpr int serverPort = 4001;
constexpr int sendFailed = -1001;
constexpr int receiveFailed = -1002;
constexpr int lockRefused = -1;

using Ids = std::vector<std::string>;

/* A host application's client, its messages in a log of its own. */
class Host {
public:
    explicit Host(const std::string& name) : name(name.begin(), name.end()) {
        this->name.push_back('\0');
        client = std::make_unique<Client>(this->name.data());
        log.attach(*client);
    }

    Client* operator->() { return client.get(); }

    /** Connects; true when Connect returned 0. */
    bool connect() { return client->Connect(nullptr, nullptr, nullptr) == 0; }
    /** Opens the session and takes the command lock; true when both were
     * granted. */
    bool takeLocks() {
        char application[] = "fault-test";
        char user[] = "tester";
        return client->Send(4, application, user, 0) == 0 && client->Send(33) == 0;
    }
    /** The identifiers the client posted since the last call. */
    Ids posted() {
        Ids ids = log.identifiers();
        log.clear();
        return ids;
    }

private:
    std::vector<char> name;
    std::unique_ptr<Client> client;
    MessageLog log;
};

/* What the library posts around the integer reply that ends a command:
 * Read(int&)'s entry, its request sent, its reply received. */
const Ids integerReply = {"1096", "1019", "1021"};

Ids joined(Ids first, const Ids& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

class SimulatorFaults : public ::testing::Test {
protected:
    /* The simulator on port 4001 with `rules` as its faults file. */
    void startWith(const std::string& rules) {
        const std::string path = files.file("faults.json");
        std::ofstream(path) << rules;
        simulator = TracedSimulator::start(serverPort, {"--faults", path});
        ASSERT_NE(simulator, nullptr) << "the simulator did not start with " << rules;
        trace = std::make_unique<TraceFollower>(simulator->trace());
    }

    /* The trace's lines that hold `needle`. */
    int traced(const std::string& needle) const { return trace->count(needle); }
    std::string traceText() const { return fileText(simulator->trace()); }

    ScratchDir files;
    std::unique_ptr<TracedSimulator> simulator;
    std::unique_ptr<TraceFollower> trace;
};

TEST_F(SimulatorFaults, ACloseInPlaceOfAnAnswerFailsTheReceiveWithMinus1002AndSoDoesTheNextCommand) {
    startWith(R"({"rules": [{"command": 33, "close": true}]})");
    Host host("board1");
    ASSERT_TRUE(host.connect());
    char application[] = "app";
    char user[] = "user";
    ASSERT_EQ(host->Send(4, application, user, 0), 0);
    host.posted();

    // The answer to the command frame "33" never comes: the connection ends.
    EXPECT_EQ(host->Send(33), receiveFailed);
    EXPECT_EQ(host->GetClientStatus(), receiveFailed);
    EXPECT_EQ(host.posted(), (Ids{"1010"}));
    // An ended connection still takes a send; its receive finds the end.
    EXPECT_EQ(host->Send(44, 7), receiveFailed);
    EXPECT_EQ(host->GetClientStatus(), receiveFailed);
    EXPECT_EQ(host.posted(), (Ids{"1010"}));

    EXPECT_EQ(traced("c1 board1 = 33 event \"fault: rule 1 closes the connection instead of the answer\""), 1)
        << traceText();
    // The socket is closed before the event is traced.
    EXPECT_TRUE(trace->waitFor("c1 board1 = 33 event \"closed: fault: rule 1 closed the connection\""));
    EXPECT_EQ(traced("c1 board1 > 33 "), 0);  // nothing was answered
}

TEST_F(SimulatorFaults, AResetFailsTheReceiveWithMinus1002AndTheNextSendWithMinus1001) {
    startWith(R"({"rules": [{"command": 33, "reset": true}]})");
    Host host("board1");
    ASSERT_TRUE(host.connect());
    host.posted();

    EXPECT_EQ(host->Send(33), receiveFailed);
    EXPECT_EQ(host->GetClientStatus(), receiveFailed);
    EXPECT_EQ(host.posted(), (Ids{"1010"}));
    // Unlike a close, a reset leaves no connection to send on.
    EXPECT_EQ(host->Send(44, 7), sendFailed);
    EXPECT_EQ(host->GetClientStatus(), sendFailed);
    EXPECT_EQ(host.posted(), (Ids{"1009"}));

    EXPECT_EQ(traced("c1 board1 = 33 event \"fault: rule 1 resets the connection instead of the answer\""), 1)
        << traceText();
    EXPECT_TRUE(trace->waitFor("c1 board1 = 33 event \"closed: fault: rule 1 reset the connection\""));
}

TEST_F(SimulatorFaults, AStalledServerHoldsTheCallUntilItGoesAwayThenTheReceiveFailsWithMinus1002) {
    startWith(R"({"rules": [{"command": 44, "sub": 7, "stall": true}]})");
    Host host("board1");
    ASSERT_TRUE(host.connect());
    host.posted();

    // The library has no time-out: the call waits for as long as the
    // server says nothing.
    std::future<int> result = std::async(std::launch::async, [&host] { return host->Send(44, 7); });
    EXPECT_TRUE(trace->waitFor("c1 board1 = 44/7 event \"fault: rule 1 stalls: no answer from here on\""))
        << traceText();
    EXPECT_EQ(result.wait_for(std::chrono::seconds(0)), std::future_status::timeout);

    // Whatever happened above, the call ends once the server has gone.
    EXPECT_EQ(simulator->stop(), 0);
    EXPECT_EQ(result.get(), receiveFailed);
    EXPECT_EQ(host->GetClientStatus(), receiveFailed);
    // The sub-command was sent; its acknowledgement never came.
    EXPECT_EQ(host.posted(), (Ids{"1093", "1061", "1062"}));
}

TEST_F(SimulatorFaults, ADelayedAnswerMakesTheCallTakeThatLongAndChangesNothingElse) {
    startWith(R"({"rules": [{"command": 44, "sub": 7, "answer": "reply", "delay_ms": 300}]})");
    Host host("board1");
    ASSERT_TRUE(host.connect());
    host.posted();

    const auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(host->Send(44, 7), 3);
    const auto took = std::chrono::steady_clock::now() - started;
    EXPECT_GE(took, std::chrono::milliseconds(300));
    EXPECT_EQ(host->GetClientStatus(), 0);
    EXPECT_EQ(host.posted(), joined({"1093", "1061", "1063"}, integerReply));
    EXPECT_STREQ(host->Read(), defaultChainText.c_str());

    EXPECT_EQ(traced("c1 board1 = 44/7 event \"fault: rule 1 delays the answer by 300 ms\""), 1) << traceText();
    EXPECT_EQ(traced("c1 board1 > 44/7 reply \"3\" 2"), 1);
}

TEST_F(SimulatorFaults, AnotherIntegerReplyIsWhatSendReturnsWithTheStatusZero) {
    startWith(R"({"rules": [{"command": 44, "sub": 12, "reply_integer": -6}]})");
    Host host("board1");
    ASSERT_TRUE(host.connect());
    ASSERT_TRUE(host.takeLocks());
    ASSERT_EQ(host->Send(44, 3), 0);
    host.posted();

    const std::string tdi(12, '\0');
    EXPECT_EQ(host->Send(44, 12, 0, 96, 1, 0, tdi.data(), tdi.data()), -6);
    // The reply is the server's: the library itself did not fail.
    EXPECT_EQ(host->GetClientStatus(), 0);
    EXPECT_EQ(host.posted(), joined({"1093", "1061", "1063", "1111", "1103", "1042"}, integerReply));
    // The scan itself was served as usual.
    std::string tdo(12, '\0');
    EXPECT_EQ(host->GetTDO(tdo.data(), 96), 0);
    EXPECT_EQ(tdo, littleEndian(idcode2) + littleEndian(idcode1) + littleEndian(idcode0));

    EXPECT_EQ(traced("c1 board1 = 44/12 event \"fault: rule 1 replaces the integer reply\""), 1) << traceText();
    EXPECT_EQ(traced("c1 board1 > 44/12 reply \"-6\" 3"), 1);
}

TEST_F(SimulatorFaults, AFarewellAnsweredMinusOneMakesDisconnectReturnMinus1008) {
    startWith(R"({"rules": [{"command": 9999, "reply_integer": -1}]})");
    Host host("board1");
    ASSERT_TRUE(host.connect());
    host.posted();

    EXPECT_EQ(host->Disconnect(), -1008);
    EXPECT_EQ(host->GetClientStatus(), -1008);
    EXPECT_EQ(host.posted(), joined(joined({"1098", "1093", "1012"}, integerReply), {"1026"}));
    EXPECT_EQ(traced("c1 board1 > 9999 reply \"-1\" 3"), 1) << traceText();
}

TEST_F(SimulatorFaults, AnotherTextReplyIsWhatTheReaderGets) {
    startWith(R"({"rules": [{"command": 1, "reply_text": "tetherhost 9.9;clients=7;"}]})");
    Host host("board1");
    ASSERT_TRUE(host.connect());
    ASSERT_EQ(host->Send(1), 0);
    host.posted();

    std::vector<std::string> fields;
    EXPECT_EQ(host->Read(fields), 0);
    EXPECT_EQ(fields, (std::vector<std::string>{"tetherhost 9.9", "clients=7"}));
    EXPECT_EQ(host.posted(), (Ids{"1097", "1023", "1025"}));
    EXPECT_EQ(traced("c1 board1 = 1 event \"fault: rule 1 replaces the text reply\""), 1) << traceText();
}

TEST_F(SimulatorFaults, AnAcknowledgementOtherThanPlusFailsTheArgumentWithMinus1002) {
    // Command 44's answers: its command frame's (1), the sub-command's
    // acknowledgement (2), the integer argument's (3).
    startWith(R"({"rules": [{"command": 44, "sub": 17, "frame_in_command": 3, "ack": "-"}]})");
    Host host("board1");
    ASSERT_TRUE(host.connect());
    host.posted();

    EXPECT_EQ(host->Send(44, 17, 1), receiveFailed);
    EXPECT_EQ(host->GetClientStatus(), receiveFailed);
    // The sub-command acknowledged; the integer sent, its acknowledgement bad.
    EXPECT_EQ(host.posted(), (Ids{"1093", "1061", "1063", "1079", "1061", "1062"}));
    EXPECT_EQ(traced("c1 board1 = 44/17 event \"fault: rule 1 replaces the acknowledgement\""), 1) << traceText();
    EXPECT_EQ(traced("c1 board1 > 44/17 ack \"-\" 2"), 1);
}

TEST_F(SimulatorFaults, AReplySplitAcrossSendsIsCutWhereTheFirstReceiveEnds) {
    startWith(R"({"rules": [{"command": 44, "sub": 7, "answer": "text", "split": 2}]})");
    Host host("board1");
    ASSERT_TRUE(host.connect());
    ASSERT_EQ(host->Send(44, 7), 3);
    host.posted();

    // The text and its NUL, 55 bytes, go as 28 and 27; the reader makes one
    // receive, and the second piece has not been sent when it returns.
    EXPECT_STREQ(host->Read(), defaultChainText.substr(0, 28).c_str());
    EXPECT_EQ(host->GetClientStatus(), 0);
    EXPECT_EQ(host.posted(), (Ids{"1095", "1015", "1017"}));
    EXPECT_EQ(traced("c1 board1 = 44/7 event \"fault: rule 1 splits the answer into 2 sends\""), 1) << traceText();
    EXPECT_EQ(traced("c1 board1 > 44/7 reply \"" + defaultChainText.substr(0, 28) + "\" 28"), 1);
    // The second goes once the client has taken the first.
    EXPECT_TRUE(trace->waitFor("c1 board1 > 44/7 reply \"" + defaultChainText.substr(28) + "\" 27"));
}

TEST_F(SimulatorFaults, ARefusedLockReturnsMinusOneAndTheLockStaysFree) {
    startWith(R"({"rules": [{"command": 33, "refuse_lock": true, "count": 1}]})");
    Host host("board1");
    ASSERT_TRUE(host.connect());
    char application[] = "app";
    char user[] = "user";
    ASSERT_EQ(host->Send(4, application, user, 0), 0);
    host.posted();

    EXPECT_EQ(host->Send(33), lockRefused);
    EXPECT_EQ(host->GetClientStatus(), lockRefused);
    EXPECT_EQ(host.posted(), (Ids{"1093", "1086", "1076"}));
    // Without both locks a guarded command is withheld and the server polled.
    EXPECT_EQ(host->Send(6), 1);
    EXPECT_EQ(host.posted(), (Ids{"1008"}));
    // Nobody holds the lock: the next request gets it.
    EXPECT_EQ(host->Send(33), 0);
    EXPECT_EQ(host.posted(), (Ids{"1093", "1086", "1075"}));

    EXPECT_EQ(traced("c1 board1 = 33 event \"fault: rule 1 refuses the lock\""), 1) << traceText();
    EXPECT_EQ(traced("c1 board1 > 33 lock \"0\" 2"), 1);
    EXPECT_EQ(traced("c1 board1 > 33 lock \"1\" 2"), 1);
}

TEST_F(SimulatorFaults, ALockHeldByAnotherClientIsRefusedToEveryClientUntilTheConnectionItFiredOnEnds) {
    startWith(R"({"rules": [{"client": "first", "command": 33, "answer": "lock", "hold_lock": "command"}]})");
    Host first("first");
    Host second("second");
    ASSERT_TRUE(first.connect());
    ASSERT_TRUE(second.connect());
    first.posted();
    second.posted();

    EXPECT_EQ(first->Send(33), lockRefused);
    EXPECT_EQ(first.posted(), (Ids{"1093", "1086", "1076"}));
    // The rule is for "first", but the lock is held for everybody.
    char application[] = "app";
    char user[] = "user";
    EXPECT_EQ(second->Send(4, application, user, 0), 0);
    EXPECT_EQ(second->Send(33), lockRefused);
    EXPECT_EQ(second->GetClientStatus(), lockRefused);
    second.posted();

    EXPECT_EQ(first->Disconnect(), 0);
    ASSERT_TRUE(trace->waitFor("c1 first = 9999 event \"closed: client left\"")) << traceText();
    EXPECT_EQ(second->Send(33), 0);
    EXPECT_EQ(second.posted(), (Ids{"1093", "1086", "1075"}));
    EXPECT_EQ(traced("c1 first = 33 event \"fault: rule 1 gives the command lock to another client\""), 1)
        << traceText();
}

TEST_F(SimulatorFaults, ALockTakenByAnotherClientMidSessionMakesTheServerRefuseGuardedCommands) {
    startWith(R"({"rules": [{"command": 44, "sub": 7, "answer": "reply", "hold_lock": "both"}]})");
    Host host("board1");
    ASSERT_TRUE(host.connect());
    ASSERT_TRUE(host.takeLocks());
    EXPECT_EQ(host->Send(44, 7), 3);
    host.posted();

    // The library still believes it holds both locks and sends command 6;
    // the server answers -1: this connection does not hold them.
    EXPECT_EQ(host->Send(6), -1);
    EXPECT_EQ(host->GetClientStatus(), 0);
    EXPECT_EQ(host.posted(), joined({"1093"}, integerReply));
    EXPECT_EQ(host->Send(33), lockRefused);
    EXPECT_EQ(host.posted(), (Ids{"1093", "1086", "1076"}));
    EXPECT_EQ(traced("c1 board1 = 44/7 event \"fault: rule 1 gives both locks to another client\""), 1) << traceText();
    EXPECT_EQ(traced("c1 board1 > 6 reply \"-1\" 3"), 1);
}

TEST_F(SimulatorFaults, ALockHeldForACountOfRequestsIsGrantedAfterThem) {
    startWith(R"({"rules": [{"command": 33, "answer": "lock", "hold_lock": "command", "count": 2}]})");
    Host host("board1");
    ASSERT_TRUE(host.connect());
    host.posted();

    EXPECT_EQ(host->Send(33), lockRefused);
    EXPECT_EQ(host->Send(33), lockRefused);
    EXPECT_EQ(host->Send(33), 0);
    EXPECT_EQ(host.posted(), (Ids{"1093", "1086", "1076", "1093", "1086", "1076", "1093", "1086", "1075"}));
    EXPECT_EQ(traced("event \"fault: rule 1 used up: the other client gives the lock back\""), 1) << traceText();
}

TEST_F(SimulatorFaults, AFaultsFileWithAProblemIsRefusedAtStartNamingTheRuleAndField) {
    const std::string path = files.file("faults.json");
    std::ofstream(path) << R"({"rules": [{"command": 33, "close": true}, {"command": 44, "dely_ms": 5}]})";
    std::string output;
    const int status = runTool({simulatorAlias(files), "--port", std::to_string(serverPort), "--faults", path},
                               files.file("output.txt"), output);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 2);
    EXPECT_EQ(output, "tetherhost: " + path + ": rule 2: unknown field \"dely_ms\"\n");
}

TEST_F(SimulatorFaults, FaultsWithAReplayAloneAreRefusedForTheReplaySendsOnlyRecordedAnswers) {
    const std::string faults = files.file("faults.json");
    std::ofstream(faults) << R"({"rules": [{"command": 33, "close": true}]})";
    const std::string recording = files.file("session.jsonl");
    std::ofstream(recording) << R"({"dir": "send", "text": "raw\u0000"})" << '\n';
    std::string output;
    const int status = runTool(
        {simulatorAlias(files), "--port", std::to_string(serverPort), "--faults", faults, "--replay", recording},
        files.file("output.txt"), output);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 2);
    EXPECT_EQ(output, "tetherhost: --faults changes the model's answers: with --replay it needs --replay-then-model\n");
}

TEST_F(SimulatorFaults, AfterARecordingTheRulesChangeTheModelsAnswersCountingTheReplayedOnes) {
    // The recording holds the introduction. Of the rules, the first would
    // close the connection at its first answer, which the replay sends; the
    // second changes its third, the reply to the first command, which the
    // model sends.
    const std::string recording = files.file("session.jsonl");
    std::ofstream(recording) << R"({"dir": "send", "text": "board1\u0000"})" << '\n'
                             << R"({"dir": "recv", "text": "+\u0000"})" << '\n';
    const std::string path = files.file("faults.json");
    std::ofstream(path) << R"({"rules": [{"frame": 1, "close": true}, {"frame": 3, "reply_integer": 42}]})";
    simulator = TracedSimulator::start(serverPort, {"--replay", recording, "--replay-then-model", "--faults", path});
    ASSERT_NE(simulator, nullptr);
    trace = std::make_unique<TraceFollower>(simulator->trace());

    Host host("board1");
    ASSERT_TRUE(host.connect());    // the recorded answer, not closed
    EXPECT_EQ(host->Send(38), 42);  // answers 2 and 3: the command frame's, the reply
    EXPECT_EQ(host->GetClientStatus(), 0);
    EXPECT_EQ(host->Send(38), 0);
    EXPECT_EQ(host->Disconnect(), 0);
    ASSERT_TRUE(trace->waitFor("c1 board1 = 9999 event \"closed: client left\"")) << traceText();
    EXPECT_EQ(simulator->stop(), 0) << simulator->errors();
    EXPECT_EQ(traced("fault: rule 1"), 0) << traceText();
    EXPECT_EQ(traced("c1 board1 = 38 event \"fault: rule 2 replaces the integer reply\""), 1);
}

}  // namespace
}  // namespace tetherhost::test

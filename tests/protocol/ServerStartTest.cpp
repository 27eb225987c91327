// SPDX-License-Identifier: MIT
/* Client::Connect when nobody listens on 127.0.0.1:4001: detection with
 * pidof, the start of a stand-in "tetherhost" executable, the five-second
 * wait and the second attempt, and the descriptor 0 that a refused second
 * attempt leaves. Run for real, with real processes. */
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Client.h"
#include "MessageLog.h"
#include "ProtocolTesting.h"
#include "ScriptedPeer.h"

namespace {

using namespace tetherhost::test;
using Clock = std::chrono::steady_clock;

const std::string standInServer = TETHERHOST_STANDIN_SERVER;
const std::string connectProbe = TETHERHOST_CONNECT_PROBE;

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

/* Sets an environment variable for the processes started while it lives. */
class EnvironmentVariable {
public:
    EnvironmentVariable(const char* name, const std::string& value) : name(name) { setenv(name, value.c_str(), 1); }
    ~EnvironmentVariable() { unsetenv(name); }
    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

private:
    const char* name;
};

/* The value of the first "<key> <value>" line of a stand-in's record. */
std::string recorded(const std::string& record, const std::string& key) {
    for (const std::string& line : fileLines(record))
        if (line.rfind(key + " ", 0) == 0) return line.substr(key.size() + 1);
    return {};
}

int countLines(const std::string& path, const std::string& line) {
    const Lines lines = fileLines(path);
    return static_cast<int>(std::count(lines.begin(), lines.end(), line));
}

class ServerStart : public ::testing::Test {
protected:
    void SetUp() override {
        signal(SIGPIPE, SIG_DFL);
        ASSERT_FALSE(serverProcessRuns()) << "a process named tetherhost runs on this machine";
        log.attach(client);
    }

    /** A running process named "tetherhost" (a copy of sleep) for pidof to find. */
    void startProcessNamedTetherhost() {
        copyExecutable("/bin/sleep", directory.file("tetherhost"));
        sleeper = spawn(directory.file("tetherhost"), {directory.file("tetherhost"), "30"});
        ASSERT_GT(sleeper, 0);
        ASSERT_TRUE(serverProcessRuns());
    }
    void TearDown() override { endChild(sleeper); }

    const std::string name = "board1";
    std::vector<char> nameChars = nameBuffer(name);
    Client client{nameChars.data()};
    MessageLog log;
    TempDir directory;
    pid_t sleeper = -1;
};

TEST_F(ServerStart, WhenPidofFindsARunningServerTheSecondAttemptFollowsAtOnce) {
    startProcessNamedTetherhost();
    // Nobody listens, so the second attempt is refused as well: the name
    // then goes to descriptor 0 (here /dev/null, not a socket) and fails.
    StdinReplacement devNull;
    const auto start = Clock::now();
    const int result = client.Connect(nullptr, nullptr, directory.path().c_str());
    const double elapsed = secondsSince(start);
    EXPECT_EQ(result, -1001);
    EXPECT_LT(elapsed, 4.0) << "no start and no five-second wait";
    EXPECT_EQ(client.GetClientSocket(), 0);
    EXPECT_EQ(client.GetClientStatus(), -1001);
    Trace trace(name);
    trace.post("1089").post("1090").post("1091").post("1106").post("1085").post("1002");
    trace.post("1090").post("1091").texts("1006", name, name);
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(ServerStart, ARefusedSecondAttemptIntroducesTheClientOnDescriptorZero) {
    startProcessNamedTetherhost();
    // Whatever descriptor 0 is receives the name: here a socket of a peer.
    auto peer = ScriptedPeer::onSocketPair();
    introduce(*peer, name);
    peer->start();
    int result = 0;
    {
        StdinReplacement peerOnZero(peer->clientSocket());
        result = client.Connect(nullptr, nullptr, directory.path().c_str());
    }
    EXPECT_EQ(result, 0);
    EXPECT_EQ(client.GetClientSocket(), 0);
    EXPECT_TRUE(peer->finish()) << peer->failure();
    EXPECT_EQ(peer->received(), name + '\0');
}

TEST_F(ServerStart, DisconnectAfterAFailedConnectClosesDescriptorZero) {
    startProcessNamedTetherhost();
    StdinReplacement devNull;
    ASSERT_EQ(client.Connect(nullptr, nullptr, directory.path().c_str()), -1001);
    ASSERT_EQ(client.GetClientSocket(), 0);
    log.clear();
    EXPECT_EQ(client.Disconnect(), -1009);
    EXPECT_EQ(fcntl(0, F_GETFD), -1) << "descriptor 0 was closed";
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(client.GetClientStatus(), -1009);
    EXPECT_EQ(log.lines(), Trace(name).post("1098").twice("1009").post("1027").lines());
}

TEST_F(ServerStart,
       WithNoServerRunningTetherhostIsStartedFromTheGivenDirectoryAndTheSecondAttemptFollowsFiveSecondsLater) {
    copyExecutable(standInServer, directory.file("tetherhost"));
    const std::string record = directory.file("record");
    EnvironmentVariable recordPath("TETHERHOST_STANDIN_RECORD", record);

    // Another connection of the host, open while the server starts: the
    // server must not inherit it.
    auto other = ScriptedPeer::listening();
    introduce(*other, "other");
    other->start();
    std::vector<char> otherName = nameBuffer("other");
    Client otherClient(otherName.data());
    ASSERT_EQ(otherClient.Connect(nullptr, nullptr, nullptr), 0);
    ASSERT_TRUE(other->finish()) << other->failure();  // nobody listens on 4001 any more

    const auto start = Clock::now();
    const int result = client.Connect(nullptr, nullptr, directory.path().c_str());
    const double elapsed = secondsSince(start);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(client.GetClientStatus(), 0);
    EXPECT_GE(elapsed, 5.0);
    EXPECT_LT(elapsed, 9.0);
    Trace trace(name);
    trace.post("1089").post("1090").post("1091").post("1106").post("1085").post("1001").post("1108");
    trace.post("1090").post("1091");
    EXPECT_EQ(log.lines(), trace.lines());

    const std::string pid = recorded(record, "pid");
    ASSERT_FALSE(pid.empty());
    EXPECT_EQ(recorded(record, "pgid"), pid) << "a process group of its own";
    EXPECT_EQ(recorded(record, "argc"), "1");
    EXPECT_EQ(recorded(record, "argv0"), "tetherhost");
    EXPECT_EQ(recorded(record, "inherited_sockets"), "0");
    EXPECT_EQ(recorded(record, "name"), name);

    struct sigaction current {};
    sigaction(SIGCHLD, nullptr, &current);
    EXPECT_NE(current.sa_handler, SIG_DFL) << "the server reaper is installed";
    EXPECT_NE(current.sa_handler, SIG_IGN);

    // Closing the connection ends the stand-in; the server reaper, not this
    // test, collects it.
    close(static_cast<int>(client.GetClientSocket()));
    close(static_cast<int>(otherClient.GetClientSocket()));
    EXPECT_TRUE(waitForLine(record, "done", 5000));
    EXPECT_TRUE(waitGone(static_cast<pid_t>(std::stoi(pid)), 5000));
}

TEST_F(ServerStart, AnEmptyServerDirectoryStartsTheServerFromTheExecutablesOwnDirectory) {
    // A program of its own, copied with the stand-in into one directory,
    // connects with the empty directory text.
    copyExecutable(connectProbe, directory.file("probe"));
    copyExecutable(standInServer, directory.file("tetherhost"));
    const std::string record = directory.file("record");
    const std::string results = directory.file("results");
    EnvironmentVariable recordPath("TETHERHOST_STANDIN_RECORD", record);
    // The stand-in outlives the probe: it comes back to this process to be collected.
    ASSERT_EQ(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
    const pid_t probe = spawn(directory.file("probe"), {"probe", "probe-client", results});
    ASSERT_GT(probe, 0);
    ASSERT_TRUE(waitForLine(results, "result 0", 15000));
    EXPECT_EQ(recorded(record, "argv0"), "tetherhost");
    EXPECT_EQ(recorded(record, "name"), "probe-client");
    EXPECT_TRUE(waitForLine(record, "done", 5000));
    endChild(probe);
    const std::string pid = recorded(record, "pid");
    if (!pid.empty()) endChild(static_cast<pid_t>(std::stoi(pid)));
    prctl(PR_SET_CHILD_SUBREAPER, 0);
}

TEST_F(ServerStart, AnExecutableThatCannotBeStartedLeavesTheChildToConnectAsASecondClient) {
    // The directory holds no tetherhost. A stand-in under another name starts
    // listening during the five-second wait and serves both clients.
    const std::string record = directory.file("record");
    EnvironmentVariable recordPath("TETHERHOST_STANDIN_RECORD", record);
    EnvironmentVariable clients("TETHERHOST_STANDIN_CLIENTS", "2");
    EnvironmentVariable delay("TETHERHOST_STANDIN_LISTEN_DELAY_MS", "2500");
    const pid_t server = spawn(standInServer, {standInServer});
    ASSERT_GT(server, 0);

    int report[2];
    ASSERT_EQ(pipe(report), 0);
    const pid_t parent = getpid();
    const auto start = Clock::now();
    const int result = client.Connect(nullptr, nullptr, directory.path().c_str());
    if (getpid() != parent) {
        // The child whose exec failed: it went through the same second
        // attempt. Report and leave without running anything else.
        const int childResult[2] = {result, static_cast<int>(client.GetClientSocket())};
        if (write(report[1], childResult, sizeof childResult) != sizeof childResult) _exit(3);
        _exit(0);
    }
    const double elapsed = secondsSince(start);
    close(report[1]);
    EXPECT_EQ(result, 0);
    EXPECT_GE(elapsed, 5.0);

    pollfd readable{report[0], POLLIN, 0};
    ASSERT_EQ(poll(&readable, 1, 10000), 1);
    int childResult[2] = {-1, -1};
    EXPECT_EQ(read(report[0], childResult, sizeof childResult), static_cast<ssize_t>(sizeof childResult));
    close(report[0]);
    EXPECT_EQ(childResult[0], 0) << "the child connected as a client of its own";
    EXPECT_GT(childResult[1], 2);

    close(static_cast<int>(client.GetClientSocket()));
    EXPECT_TRUE(waitForLine(record, "done", 5000));
    EXPECT_EQ(countLines(record, "name " + name), 2);

    // The parent's messages up to the fork, then each process's second
    // attempt; nothing of the failed start itself.
    const Lines lines = log.lines();
    Trace before(name);
    before.post("1089").post("1090").post("1091").post("1106").post("1085").post("1001").post("1108");
    ASSERT_EQ(lines.size(), before.lines().size() + 4);
    EXPECT_EQ(Lines(lines.begin(), lines.begin() + 7), before.lines());
    Lines after(lines.begin() + 7, lines.end());
    std::sort(after.begin(), after.end());
    Lines expectedAfter = Trace(name).post("1090").post("1090").post("1091").post("1091").lines();
    std::sort(expectedAfter.begin(), expectedAfter.end());
    EXPECT_EQ(after, expectedAfter);
    endChild(server);
}

}  // namespace

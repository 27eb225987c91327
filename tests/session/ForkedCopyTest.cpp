// SPDX-License-Identifier: MIT
/* The forked copy that a failed server start leaves behind: Connect forks to
 * start the server, and when the program is missing the child comes back
 * from Connect as a copy of the host. A host built on Session must leave no
 * process running its own code: the host writes a marker line after the
 * start attempt, and only the host itself may have written it. The twin on
 * the bare Client shows that the copy is real and that the marker sees it.
 *
 * The test process becomes a subreaper, so that a copy that outlives the
 * host becomes its child: every process the host left is waited for (on
 * SIGCHLD, not by sleeping) before the marker is read. Runs in namespaces of
 * its own: nothing answers on 4001 and pidof finds no server. */
#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "TempDir.h"

namespace tetherhost::test {
namespace {

struct HostRun {
    pid_t host = -1;
    int hostStatus = -1;                      // its wait status
    std::map<pid_t, int> others;              // the wait status of every other process it left
    std::vector<std::pair<long, int>> marks;  // (pid, status) per marker line
    bool allEnded = false;
};

/* Runs the host to the end of every process it left (at most a minute). */
HostRun runHost(bool bare) {
    HostRun run;
    TempDir directory;
    const std::string serverDirectory = directory.file("no-server-here");
    const std::string marker = directory.file("marker");
    if (mkdir(serverDirectory.c_str(), 0755) != 0) return run;

    sigset_t childSignal;
    sigemptyset(&childSignal);
    sigaddset(&childSignal, SIGCHLD);
    sigset_t previous;
    sigprocmask(SIG_BLOCK, &childSignal, &previous);
    prctl(PR_SET_CHILD_SUBREAPER, 1);

    std::vector<std::string> words = {SESSION_FORKED_COPY_HOST, marker, serverDirectory};
    if (bare) words.emplace_back("--bare");
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    // Standard input is no socket, so the copy's send of its name on
    // descriptor 0 fails, as it does for a host started from a shell.
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    if (posix_spawn(&run.host, argv[0], &actions, nullptr, argv.data(), environ) == 0) {
        timespec deadline{};
        clock_gettime(CLOCK_MONOTONIC, &deadline);
        deadline.tv_sec += 60;
        for (;;) {
            int status = 0;
            const pid_t ended = waitpid(-1, &status, WNOHANG);
            if (ended > 0) {
                if (ended == run.host)
                    run.hostStatus = status;
                else
                    run.others[ended] = status;
                continue;
            }
            if (ended < 0 && errno == ECHILD) {
                run.allEnded = true;
                break;
            }
            timespec now{};
            clock_gettime(CLOCK_MONOTONIC, &now);
            if (now.tv_sec >= deadline.tv_sec) break;
            const timespec patience{deadline.tv_sec - now.tv_sec, 0};
            sigtimedwait(&childSignal, nullptr, &patience);
        }
    }
    posix_spawn_file_actions_destroy(&actions);
    prctl(PR_SET_CHILD_SUBREAPER, 0);
    sigprocmask(SIG_SETMASK, &previous, nullptr);

    std::ifstream lines(marker);
    long pid = 0;
    int status = 0;
    while (lines >> pid >> status) run.marks.emplace_back(pid, status);
    return run;
}

TEST(ForkedCopy, AFailedServerStartRunsTheHostsCodeOnlyInTheHost) {
    const HostRun run = runHost(false);
    ASSERT_GT(run.host, 0);
    ASSERT_TRUE(run.allEnded) << "processes of the host still ran after a minute";
    ASSERT_TRUE(WIFEXITED(run.hostStatus));
    EXPECT_EQ(WEXITSTATUS(run.hostStatus), 3);  // the Session threw
    ASSERT_EQ(run.marks.size(), 1U);
    EXPECT_EQ(run.marks[0].first, run.host);
    EXPECT_EQ(run.marks[0].second, -1001);
    // A copy that outlived the host came to this process; it ended with the
    // layer's status. (One that ended first was reaped by the host.)
    for (const auto& [pid, status] : run.others) {
        ASSERT_TRUE(WIFEXITED(status)) << "process " << pid;
        EXPECT_EQ(WEXITSTATUS(status), 127) << "process " << pid;
    }
}

TEST(ForkedCopy, OnTheBareClientTheCopyRunsTheHostsCodeASecondTime) {
    const HostRun run = runHost(true);
    ASSERT_GT(run.host, 0);
    ASSERT_TRUE(run.allEnded) << "processes of the host still ran after a minute";
    ASSERT_EQ(run.marks.size(), 2U);
    EXPECT_NE(run.marks[0].first, run.marks[1].first);
    EXPECT_TRUE(run.marks[0].first == run.host || run.marks[1].first == run.host);
    EXPECT_EQ(run.marks[0].second, -1001);
    EXPECT_EQ(run.marks[1].second, -1001);
}

}  // namespace
}  // namespace tetherhost::test

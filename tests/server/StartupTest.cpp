// SPDX-License-Identifier: MIT
/* The start-up path: with nothing listening on 127.0.0.1:4001 and no server
 * process running, Client::Connect starts "tetherhost" from the test
 * program's directory, waits its 5 seconds and connects to it. The test then
 * ends that server by its pid, found as the owner of the listening socket. */
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "Client.h"
#include "SimulatorHarness.h"
#include "tetherhost/version.h"

namespace tetherhost::test {
namespace {

constexpr int serverPort = 4001;

std::string executableDirectory() {
    char path[4096] = {};
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    const std::string self(path, length > 0 ? static_cast<std::size_t>(length) : 0);
    return self.substr(0, self.rfind('/'));
}

/* The library's detection looks for these names; with one of them running,
 * Connect would not start anything. */
bool serverProcessRunning() {
    return !processesNamed("tetherhost").empty() || !processesNamed("tetherhostmain").empty();
}

TEST(Startup, ConnectStartsTheSimulatorBesideTheProgramAndConnects) {
    for (int wait = 0; wait < 600 && (portListening(serverPort) || serverProcessRunning()); ++wait)
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    if (portListening(serverPort) || serverProcessRunning())
        GTEST_SKIP() << "port 4001 is in use or a tetherhost process is running: the start-up path cannot be taken";

    char name[] = "starter";
    Client client(name);
    const auto start = std::chrono::steady_clock::now();
    const int connected = client.Connect(nullptr, nullptr, nullptr);
    const auto waited = std::chrono::steady_clock::now() - start;
    const pid_t server = listeningOwner(serverPort);
    ASSERT_GT(server, 0) << "nothing listens on 4001 after Connect";
    EXPECT_EQ(connected, 0);
    EXPECT_GE(waited, std::chrono::seconds(5));

    char program[4096] = {};
    ASSERT_GT(readlink(("/proc/" + std::to_string(server) + "/exe").c_str(), program, sizeof program - 1), 0);
    EXPECT_EQ(std::string(program), executableDirectory() + "/tetherhost");

    EXPECT_EQ(client.Send(1), 0);
    const std::string report = client.Read();
    EXPECT_EQ(report.rfind("tetherhost simulator " TETHERHOST_VERSION_STRING ";clients=1;connections=1;", 0), 0U)
        << report;
    EXPECT_EQ(client.Disconnect(), 0);

    ASSERT_EQ(kill(server, SIGTERM), 0);
    EXPECT_TRUE(waitGone(server, 5000));
}

}  // namespace
}  // namespace tetherhost::test

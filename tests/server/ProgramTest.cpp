// SPDX-License-Identifier: MIT
/* The program around the server: its options, signals, idle exit, trace
 * file, chain file and start-up failures. */
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "SimulatorHarness.h"

namespace tetherhost::test {
namespace {

constexpr int port = TETHERHOST_TEST_PORT;

bool exitedWith(const std::optional<int>& status, int code) {
    return status && *status >= 0 && WIFEXITED(*status) && WEXITSTATUS(*status) == code;
}

std::vector<std::string> lines(const std::string& path) {
    std::ifstream file(path);
    std::vector<std::string> result;
    for (std::string line; std::getline(file, line);) result.push_back(line);
    return result;
}

/* The trace line without its leading time stamp. */
std::string untimed(const std::string& line) { return line.substr(line.find(' ') + 1); }

TEST(Program, ExitsWithStatusZeroOnSigtermAndRemovesItsPidFile) {
    const std::unique_ptr<Simulator> simulator = Simulator::start(port);
    ASSERT_NE(simulator, nullptr);
    RawClient client(port);
    ASSERT_TRUE(client.introduce("present"));
    EXPECT_TRUE(exitedWith(simulator->stop(SIGTERM), 0));
    EXPECT_TRUE(client.closedByServer());
    EXPECT_NE(access(simulator->file("simulator.pid").c_str(), F_OK), 0);
}

TEST(Program, ExitsWithStatusZeroOnSigint) {
    const std::unique_ptr<Simulator> simulator = Simulator::start(port);
    ASSERT_NE(simulator, nullptr);
    EXPECT_TRUE(exitedWith(simulator->stop(SIGINT), 0));
}

TEST(Program, IdleExitWaitsForTheLastClientToLeave) {
    const std::unique_ptr<Simulator> simulator = Simulator::start(port, {"--idle-exit", "1"});
    ASSERT_NE(simulator, nullptr);
    {
        RawClient client(port);
        ASSERT_TRUE(client.introduce("lingering"));
        EXPECT_FALSE(simulator->waitExit(2000).has_value());  // a client is connected
        EXPECT_EQ(client.exchange("38"), plus);
        EXPECT_EQ(client.reply(), 0);
    }
    EXPECT_TRUE(exitedWith(simulator->waitExit(3000), 0));
}

TEST(Program, IdleExitZeroKeepsRunningWithoutClients) {
    const std::unique_ptr<Simulator> simulator = Simulator::start(port, {"--idle-exit", "0"});
    ASSERT_NE(simulator, nullptr);
    EXPECT_FALSE(simulator->waitExit(2500).has_value());  // where --idle-exit 1 ends after 1 s
}

TEST(Program, TraceHasOneLinePerFrameInBothDirections) {
    ScratchDir scratch;
    const std::string trace = scratch.file("trace.txt");
    const std::unique_ptr<Simulator> simulator = Simulator::start(port, {"--trace", trace});
    ASSERT_NE(simulator, nullptr);
    {
        RawClient client(port);
        ASSERT_TRUE(client.introduce("tracer one"));
        ASSERT_EQ(client.exchange("44"), plus);
        ASSERT_EQ(client.exchange("69", 2), plus);
        ASSERT_EQ(client.exchange("3.000000", 2), plus);
        ASSERT_EQ(client.reply(), 0);
        ASSERT_EQ(client.exchange("42"), plus);
        for (const char* token : {"16", "0", "0"}) ASSERT_EQ(client.exchange(token, 2), plus);
        ASSERT_TRUE(client.send(wire("\x01\x02")));
        ASSERT_EQ(client.receive(1024), plus);
        ASSERT_EQ(client.reply(), 2);
    }
    // The close is traced once the server has read it.
    const auto closeTraced = [&] {
        const std::vector<std::string> traced = lines(trace);
        return !traced.empty() && traced.back().find("closed") != std::string::npos;
    };
    for (int wait = 0; wait < 500 && !closeTraced(); ++wait) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_TRUE(exitedWith(simulator->stop(SIGTERM), 0));
    std::vector<std::string> traced;
    for (const std::string& line : lines(trace)) traced.push_back(untimed(line));
    const std::vector<std::string> expected = {
        "c1 - = - event \"connected\"",
        "c1 - < - name \"tracer one\" 11",
        "c1 tracer\\x20one > - answer \"+\" 2",
        "c1 tracer\\x20one < 44 command \"44\" 3",
        "c1 tracer\\x20one > 44 answer \"+\" 2",
        "c1 tracer\\x20one < 44 sub-command \"69\" 3",
        "c1 tracer\\x20one > 44/69 ack \"+\" 2",
        "c1 tracer\\x20one < 44/69 fraction \"3.000000\" 9",
        "c1 tracer\\x20one > 44/69 ack \"+\" 2",
        "c1 tracer\\x20one < 44/69 request \"+\" 2",
        "c1 tracer\\x20one > 44/69 reply \"0\" 2",
        "c1 tracer\\x20one < 42 command \"42\" 3",
        "c1 tracer\\x20one > 42 answer \"+\" 2",
        "c1 tracer\\x20one < 42 bits \"16\" 3",
        "c1 tracer\\x20one > 42 ack \"+\" 2",
        "c1 tracer\\x20one < 42 mode \"0\" 2",
        "c1 tracer\\x20one > 42 ack \"+\" 2",
        "c1 tracer\\x20one < 42 read-back \"0\" 2",
        "c1 tracer\\x20one > 42 ack \"+\" 2",
        "c1 tracer\\x20one < 42 block 2",
        "c1 tracer\\x20one > 42 answer \"+\" 2",
        "c1 tracer\\x20one < 42 request \"+\" 2",
        "c1 tracer\\x20one > 42 reply \"2\" 2",
        "c1 tracer\\x20one = 42 event \"closed: client left\"",
    };
    EXPECT_EQ(traced, expected);
    for (const std::string& line : lines(trace)) EXPECT_EQ(line.find('.'), line.find(' ') - 7) << line;
}

TEST(Program, ChainFileReplacesTheBuiltInCable) {
    ScratchDir scratch;
    const std::string chain = scratch.file("chain.json");
    std::ofstream(chain)
        << R"({"devices": [{"name": "mcu", "irLength": 5, "idcode": "0x0BADC0DF", "idcodeInstruction": 1},
                                            {"name": "glue", "irLength": 2}]})";
    const std::unique_ptr<Simulator> simulator = Simulator::start(port, {"--chain", chain});
    ASSERT_NE(simulator, nullptr);
    RawClient client(port);
    ASSERT_TRUE(client.introduce("chained"));
    ASSERT_EQ(client.exchange("44"), plus);
    ASSERT_EQ(client.exchange("7", 2), plus);
    EXPECT_EQ(client.reply(), 2);
    EXPECT_EQ(client.replyText(), "mcu,5,0x0badc0df;glue,2,none;");
    JtagShift shift;
    shift.bitCount = 33;
    shift.withSecond = 1;
    shift.first = std::string(5, '\0');
    // The IDCODE-less device gives one BYPASS zero, then the IDCODE follows.
    EXPECT_EQ(client.jtagShift(shift).readBack, wire("\xBE\x81\x5B\x17\0"));
}

TEST(Program, ShippedChainIsFoundByItsName) {
    const std::unique_ptr<Simulator> simulator = Simulator::start(port, {"--chain", "stm32f4discovery"});
    ASSERT_NE(simulator, nullptr);
    RawClient client(port);
    ASSERT_TRUE(client.introduce("named chain"));
    ASSERT_EQ(client.exchange("44"), plus);
    ASSERT_EQ(client.exchange("7", 2), plus);
    EXPECT_EQ(client.reply(), 2);
    EXPECT_EQ(client.replyText(), "stm32f407.bs,5,0x06413041;stm32f407.cpu,4,0x4ba00477;");
}

TEST(Program, UnknownChainNameStopsTheStartWithStatusTwo) {
    ScratchDir scratch;
    const pid_t pid = spawnProgram(simulatorAlias(scratch),
                                   {"tetherhost", "--port", std::to_string(port), "--chain", "no-such-board"});
    EXPECT_TRUE(exitedWith(waitChild(pid, 5000), 2));
    EXPECT_FALSE(portListening(port));
}

TEST(Program, UnreadableChainFileStopsTheStartWithStatusTwo) {
    ScratchDir scratch;
    const std::string chain = scratch.file("chain.json");
    std::ofstream(chain) << R"({"devices": [{"irLength": 65}]})";
    const pid_t pid =
        spawnProgram(simulatorAlias(scratch), {"tetherhost", "--port", std::to_string(port), "--chain", chain});
    EXPECT_TRUE(exitedWith(waitChild(pid, 5000), 2));
    EXPECT_FALSE(portListening(port));
}

TEST(Program, PortInUseStopsTheStartWithStatusOne) {
    const std::unique_ptr<Simulator> first = Simulator::start(port);
    ASSERT_NE(first, nullptr);
    ScratchDir scratch;
    const pid_t second = spawnProgram(simulatorAlias(scratch), {"tetherhost", "--port", std::to_string(port)});
    EXPECT_TRUE(exitedWith(waitChild(second, 5000), 1));
    RawClient client(port);
    EXPECT_TRUE(client.introduce("first still serves"));
}

TEST(Program, DescriptorsOfTheStartingProgramAreNotKept) {
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);  // inheritable on purpose
    const std::unique_ptr<Simulator> simulator = Simulator::start(port);
    ASSERT_NE(simulator, nullptr);
    struct stat ours {};
    ASSERT_EQ(fstat(pair[1], &ours), 0);
    const std::string link = "socket:[" + std::to_string(ours.st_ino) + "]";
    const std::string fds = "/proc/" + std::to_string(simulator->pid()) + "/fd/";
    for (int descriptor = 0; descriptor < 64; ++descriptor) {
        char target[64] = {};
        const std::string path = fds + std::to_string(descriptor);
        if (readlink(path.c_str(), target, sizeof target - 1) > 0) {
            EXPECT_NE(link, target) << "descriptor " << descriptor;
        }
    }
    close(pair[0]);
    close(pair[1]);
}

}  // namespace
}  // namespace tetherhost::test

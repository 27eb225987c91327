// SPDX-License-Identifier: MIT
/* Bad input: the connection concerned is closed or answered, its locks are
 * released, the other clients go on being served and the server's heap does
 * not grow. */
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "SimulatorHarness.h"

namespace tetherhost::test {
namespace {

constexpr int port = TETHERHOST_TEST_PORT;
/* Heap the server may gain over a run and still count as not growing: room
 * for allocator bookkeeping, none for a leak per connection or command. */
constexpr long heapSlack = long{64} * 1024;

/* The issue asks for 64 clients for 60 s; ctest runs the soak for 10 s
 * unless TETHERHOST_SOAK_SECONDS says otherwise. */
int soakSeconds() {
    const char* configured = std::getenv("TETHERHOST_SOAK_SECONDS");
    return configured != nullptr ? std::atoi(configured) : 10;
}

class BadInput : public ::testing::Test {
protected:
    void SetUp() override {
        const std::string tracePath = scratch.file("trace");
        simulator = Simulator::start(port, {"--trace", tracePath});
        ASSERT_NE(simulator, nullptr) << "the simulator did not start on port " << port;
        trace = std::make_unique<TraceFollower>(tracePath);
    }

    /** Once the server has traced the close of the connection that held
     * them, a new client gets both locks. */
    bool locksFreeAfterTheClose() {
        if (!trace->waitFor("\"closed: ")) return false;
        RawClient client(port);
        return client.introduce("next") && client.takeLocks();
    }

    /** The simulator's open descriptors once every connection made so far
     * has been traced closed. */
    int settledDescriptors() {
        if (!trace->waitFor("\"closed: ", trace->count("\"connected\""))) return -1;
        return openDescriptors(simulator->pid());
    }

    static bool stillServing() {
        RawClient client(port);
        return client.introduce("check") && client.exchange("38") == plus && client.replyText() == "0";
    }

    ScratchDir scratch;
    std::unique_ptr<Simulator> simulator;
    std::unique_ptr<TraceFollower> trace;
};

TEST_F(BadInput, TokenWithoutNulWithin1024BytesClosesTheConnection) {
    RawClient client(port);
    ASSERT_TRUE(client.introduce("noisy"));
    ASSERT_TRUE(client.send(std::string(1500, 'A')));
    EXPECT_TRUE(client.closedByServer());
    EXPECT_TRUE(stillServing());
}

TEST_F(BadInput, FiveThousandByteNameClosesTheConnectionUnanswered) {
    RawClient client(port);
    ASSERT_TRUE(client.send(std::string(5000, 'n') + std::string(1, '\0')));
    EXPECT_TRUE(client.closedByServer());
    EXPECT_TRUE(stillServing());
}

TEST_F(BadInput, CommandThatIsNotANumberClosesTheConnection) {
    RawClient client(port);
    ASSERT_TRUE(client.introduce("typo"));
    ASSERT_TRUE(client.send(wire("forty-two\0")));
    EXPECT_TRUE(client.closedByServer());
    EXPECT_TRUE(stillServing());
}

TEST_F(BadInput, UnknownAndNegativeCommandsAreAnswered) {
    RawClient client(port);
    ASSERT_TRUE(client.introduce("explorer"));
    for (const char* command : {"57", "9998", "2147483647", "-2147483648", "-1", "-7"}) {
        EXPECT_EQ(client.exchange(command), plus) << command;
        const std::string expected = std::atoi(command) > 28 ? "0" : "-1";
        EXPECT_EQ(client.replyText(), expected) << command;
    }
    ASSERT_TRUE(client.send(wire("2147483648\0")));  // beyond 32 bits: not a command number
    EXPECT_TRUE(client.closedByServer());
}

TEST_F(BadInput, OneCallShiftWhoseByteCountWrapsClosesTheConnectionAndFreesItsLocks) {
    const auto frame = [](const std::string& text) {
        std::string bytes = text;
        bytes.resize(1024, '\0');
        return bytes;
    };
    {
        RawClient client(port);
        ASSERT_TRUE(client.introduce("wrapping"));
        ASSERT_TRUE(client.takeLocks());
        for (const char* token : {"44", "12", "0", "2147483647"}) {
            ASSERT_TRUE(client.send(frame(token)));
            ASSERT_EQ(client.receive(2), plus) << token;
        }
        EXPECT_TRUE(client.closedByServer());
    }
    EXPECT_TRUE(locksFreeAfterTheClose());
}

TEST_F(BadInput, ShortDataThenCloseReleasesTheLocks) {
    {
        RawClient client(port);
        ASSERT_TRUE(client.introduce("short"));
        ASSERT_TRUE(client.takeLocks());
        ASSERT_EQ(client.exchange("19"), plus);
        for (const char* token : {"0", "800", "100", "1"}) ASSERT_EQ(client.exchange(token, 2), plus);
        ASSERT_TRUE(client.send(std::string(50, 'x')));
    }
    EXPECT_TRUE(locksFreeAfterTheClose());
    EXPECT_TRUE(stillServing());
}

TEST_F(BadInput, ThousandConnectDisconnectCyclesLeaveTheHeapAsItWas) {
    const auto cycle = [] {
        RawClient client(port);
        return client.introduce("cycle") && client.leave() == 0;
    };
    for (int i = 0; i < 50; ++i) ASSERT_TRUE(cycle());
    const long before = settledHeap(port);
    ASSERT_GT(before, 0);
    int failed = 0;
    for (int i = 0; i < 1000; ++i) failed += cycle() ? 0 : 1;
    EXPECT_EQ(failed, 0);
    const long after = settledHeap(port);
    EXPECT_LE(after - before, heapSlack) << "heap before " << before << ", after " << after;
}

TEST_F(BadInput, SixtyFourClientsAtOnceAreAllServedCorrectly) {
    constexpr int clients = 64;
    // Warm-up: the same mix once, so the heap baseline includes what the
    // first use of each command allocates for good.
    {
        RawClient warm(port);
        ASSERT_TRUE(warm.introduce("warm"));
        ASSERT_EQ(warm.openSession(), wire("1\0"));
        warm.exchange("44");
        warm.exchange("7", 2);
        warm.reply();
        warm.replyText();
        warm.leave();
    }
    const long before = settledHeap(port);
    const int descriptorsBefore = settledDescriptors();
    const long residentBefore = residentKilobytes(simulator->pid());
    std::atomic<int> grants{0};
    std::atomic<int> wrong{0};
    std::atomic<long> commands{0};
    std::atomic<int> started{0};
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(soakSeconds());
    std::vector<std::thread> threads;
    threads.reserve(clients);
    for (int t = 0; t < clients; ++t) {
        threads.emplace_back([&, t] {
            RawClient client(port);
            if (!client.introduce("soak" + std::to_string(t))) {
                ++wrong;
                return;
            }
            // Everyone asks for the session lock while all are connected:
            // exactly one may get it.
            ++started;
            while (started < clients) std::this_thread::yield();
            const std::string answer = client.openSession();
            if (answer == wire("1\0"))
                ++grants;
            else if (answer != wire("0\0"))
                ++wrong;
            for (long n = 0; std::chrono::steady_clock::now() < until; ++n) {
                if (n % 8 == 0) {
                    const bool chain = client.exchange("44") == plus && client.exchange("7", 2) == plus &&
                                       client.reply() == 3 && client.replyText() == defaultChainText;
                    if (!chain) ++wrong;
                } else if (client.exchange("38") != plus || client.replyText() != "0") {
                    ++wrong;
                }
                ++commands;
            }
            if (client.leave() != 0) ++wrong;
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(grants, 1);
    EXPECT_GT(commands, clients);
    const long after = settledHeap(port);
    EXPECT_LE(after - before, heapSlack) << "heap before " << before << ", after " << after;
    // Every connection's descriptor is given back.
    const int descriptorsAfter = settledDescriptors();
    EXPECT_EQ(descriptorsAfter, descriptorsBefore);
    const long residentAfter = residentKilobytes(simulator->pid());
    std::printf("%d clients, %d s, %ld commands: descriptors %d then %d, resident %ld kB then %ld kB\n", clients,
                soakSeconds(), commands.load(), descriptorsBefore, descriptorsAfter, residentBefore, residentAfter);
    RecordProperty("resident_kB_before", std::to_string(residentBefore));
    RecordProperty("resident_kB_after", std::to_string(residentAfter));
    RecordProperty("commands", std::to_string(commands.load()));
    RecordProperty("seconds", std::to_string(soakSeconds()));
}

TEST_F(BadInput, StuckClientsDoNotDelayTheOthers) {
    RawClient midToken(port);
    ASSERT_TRUE(midToken.introduce("stuck1"));
    ASSERT_TRUE(midToken.send("4"));  // a token without its NUL, for ever
    RawClient midChunk(port);
    ASSERT_TRUE(midChunk.introduce("stuck2"));
    ASSERT_EQ(midChunk.exchange("42"), plus);
    for (const char* token : {"16384", "0", "0"}) ASSERT_EQ(midChunk.exchange(token, 2), plus);
    ASSERT_TRUE(midChunk.send(std::string(100, 'x')));

    RawClient client(port);
    ASSERT_TRUE(client.introduce("lively"));
    // Served while both others are stuck: a simulator that waited on either
    // would leave this loop hanging until the test's time-out.
    for (int i = 0; i < 500; ++i) {
        ASSERT_EQ(client.exchange("38"), plus);
        ASSERT_EQ(client.replyText(), "0");
    }
    // The stuck ones are still connected and can carry on.
    ASSERT_TRUE(midToken.send(wire("\0")));
    EXPECT_EQ(midToken.receive(1024), plus);
    ASSERT_TRUE(midChunk.send(std::string(924, 'x')));
    EXPECT_EQ(midChunk.receive(2), plus);
}

}  // namespace
}  // namespace tetherhost::test

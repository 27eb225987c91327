// SPDX-License-Identifier: MIT
/* The four Client::Read overloads: the request frame, the one receive of the
 * reply, what each makes of it, and the status they record. */
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Client.h"
#include "ConnectedClient.h"
#include "ProtocolTesting.h"

namespace {

using namespace tetherhost::test;
using Fields = std::vector<std::string>;

const std::string request = bytes("+\0");

class Readers : public ConnectedClient {};

TEST_F(Readers, IntegerRepliesReadAsTheirLeadingDecimalNumber) {
    const struct {
        std::string reply;
        int value;
    } cases[] = {{bytes("42\0"), 42}, {bytes("-3\0"), -3}, {bytes("7abc\0"), 7}, {bytes("abc\0"), 0}, {bytes("\0"), 0}};
    for (const auto& c : cases) peer->expect(request).reply(c.reply);
    connect();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.reply);
        int value = 99;
        EXPECT_EQ(client.Read(value), 0);
        EXPECT_EQ(value, c.value);
        trace.post("1096").post("1019", "").post("1021", c.reply.c_str());
    }
    EXPECT_TRUE(peerFinished()) << peer->failure();
    std::string requests;
    for (std::size_t i = 0; i < std::size(cases); ++i) requests += request;
    EXPECT_EQ(peer->received(), introduction() + requests);
    EXPECT_EQ(client.GetClientStatus(), 0);
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(Readers, ListRepliesAreSplitAtSemicolons) {
    const struct {
        std::string reply;
        Fields fields;
    } cases[] = {
        {bytes("a;b;c\0"), {"a", "b", "c"}},
        {bytes("a;;b\0"), {"a", "", "b"}},
        {bytes("a;b;\0"), {"a", "b"}},
        {bytes(";a\0"), {"", "a"}},
        {bytes("\0"), {}},
    };
    for (const auto& c : cases) peer->expect(request).reply(c.reply);
    connect();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.reply);
        Fields fields;
        EXPECT_EQ(client.Read(fields), 0);
        EXPECT_EQ(fields, c.fields);
        trace.post("1097").post("1023", "").post("1025", c.reply.c_str());
    }
    EXPECT_TRUE(peerFinished()) << peer->failure();
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(Readers, TheListReaderAccumulatesAcrossCalls) {
    peer->expect(request).reply(bytes("x\0")).expect(request).reply(bytes("y\0"));
    connect();
    Fields fields;
    EXPECT_EQ(client.Read(fields), 0);
    EXPECT_EQ(client.Read(fields), 0);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    EXPECT_EQ(fields, Fields({"x", "y"}));
}

TEST_F(Readers, ThePointerReadersHandOutTheClientsReplyBufferUntilTheNextTextRead) {
    const std::string full(1024, 'q');
    peer->expect(request).reply(bytes("first\0"));
    peer->expect(request).reply(bytes("second\0"));
    peer->expect(request).reply(bytes("7\0"));
    peer->expect(request).reply(full);
    connect();
    char* text = nullptr;
    EXPECT_EQ(client.Read(text), 0);
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "first");
    char* result = client.Read();
    EXPECT_EQ(result, text);
    EXPECT_STREQ(text, "second");
    int value = 0;
    EXPECT_EQ(client.Read(value), 0);
    EXPECT_STREQ(text, "second") << "the integer reader has a buffer of its own";
    char* last = nullptr;
    EXPECT_EQ(client.Read(last), 0);
    EXPECT_EQ(last, text);
    EXPECT_EQ(std::strlen(last), 1024u) << "a full reply without NUL is still a terminated text";
    EXPECT_EQ(std::string(last), full);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    trace.post("1094").post("1015", "").post("1017", "first");
    trace.post("1095").post("1015", "").post("1017", "second");
    trace.post("1096").post("1019", "").post("1021", "7");
    trace.post("1094").post("1015", "").post("1017", full);
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(Readers, AFull1024ByteReplyWithoutNulReadsAsOneNumberAndOneField) {
    const std::string digits(1024, '7');
    const std::string letters(1024, 'f');
    peer->expect(request).reply(digits).expect(request).reply(letters);
    connect();
    int value = 0;
    EXPECT_EQ(client.Read(value), 0);
    // strtol saturates at LONG_MAX, whose low 32 bits make -1.
    EXPECT_EQ(value, -1);
    Fields fields;
    EXPECT_EQ(client.Read(fields), 0);
    EXPECT_EQ(fields, Fields({letters}));
    EXPECT_TRUE(peerFinished()) << peer->failure();
}

TEST_F(Readers, AReplyLongerThan1024BytesIsCutThereAndItsRestAnswersTheNextRead) {
    const std::string reply = std::string(1024, 'q') + std::string(476, 'r');
    peer->expect(request).reply(reply).expect(request);
    connect();
    char* text = nullptr;
    EXPECT_EQ(client.Read(text), 0);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(std::string(text), std::string(1024, 'q'));
    EXPECT_EQ(client.Read(text), 0);
    EXPECT_EQ(std::string(text), std::string(476, 'r'));
    EXPECT_TRUE(peerFinished()) << peer->failure();
    EXPECT_EQ(peer->received(), introduction() + request + request);
    EXPECT_EQ(client.GetClientStatus(), 0);
    trace.post("1094").post("1015", "").post("1017", std::string(1024, 'q'));
    trace.post("1094").post("1015", "").post("1017", std::string(476, 'r'));
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(Readers, AnIntegerReplyBeyondTheRangeOfLongReadsAsMinus1AndOneBelowItAs0) {
    // strtol saturates at LONG_MAX and LONG_MIN; narrowed to int, their low
    // 32 bits make -1 and 0. Nothing marks the reply as out of range.
    peer->expect(request).reply(bytes("99999999999999999999\0"));
    peer->expect(request).reply(bytes("-99999999999999999999\0"));
    peer->expect(request).reply(bytes("4294967295\0"));
    connect();
    int value = 7;
    EXPECT_EQ(client.Read(value), 0);
    EXPECT_EQ(value, -1);
    EXPECT_EQ(client.Read(value), 0);
    EXPECT_EQ(value, 0);
    EXPECT_EQ(client.Read(value), 0);
    EXPECT_EQ(value, -1);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    EXPECT_EQ(client.GetClientStatus(), 0);
}

TEST_F(Readers, AServerThatClosesInsteadOfReplyingGivesMinus1002AndLeavesTheOutputUntouched) {
    // One connection per reader: the peer closes after each request and the
    // client connects again.
    for (int reader = 0; reader < 4; ++reader) {
        peer->expect(request).closeConnection();
        if (reader < 3) peer->acceptNext().expectFrame(name).ack();
    }
    connect();
    char sentinel[] = "untouched";
    char* text = sentinel;
    EXPECT_EQ(client.Read(text), -1002);
    EXPECT_EQ(text, sentinel);
    EXPECT_EQ(client.GetClientStatus(), -1002);
    ASSERT_EQ(client.Connect(nullptr, nullptr, nullptr), 0);
    EXPECT_STREQ(client.Read(), "");
    EXPECT_EQ(client.GetClientStatus(), -1002);
    ASSERT_EQ(client.Connect(nullptr, nullptr, nullptr), 0);
    int value = 77;
    EXPECT_EQ(client.Read(value), -1002);
    EXPECT_EQ(value, 77);
    EXPECT_EQ(client.GetClientStatus(), -1002);
    ASSERT_EQ(client.Connect(nullptr, nullptr, nullptr), 0);
    Fields fields{"keep"};
    EXPECT_EQ(client.Read(fields), -1002);
    EXPECT_EQ(fields, Fields({"keep"}));
    EXPECT_EQ(client.GetClientStatus(), -1002);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    trace.post("1094").post("1015", "").twice("1016");
    trace.post("1089").post("1090").post("1091").post("1095").post("1015", "").twice("1016");
    trace.post("1089").post("1090").post("1091").post("1096").post("1019", "").twice("1020");
    trace.post("1089").post("1090").post("1091").post("1097").post("1023", "").twice("1024");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(Readers, ARequestThatCannotBeSentGivesMinus1001) {
    connect();
    breakSending();
    char* text = nullptr;
    int value = 5;
    Fields fields;
    EXPECT_EQ(client.Read(text), -1001);
    EXPECT_EQ(text, nullptr);
    EXPECT_STREQ(client.Read(), "");
    EXPECT_EQ(client.Read(value), -1001);
    EXPECT_EQ(value, 5);
    EXPECT_EQ(client.Read(fields), -1001);
    EXPECT_TRUE(fields.empty());
    EXPECT_EQ(client.GetClientStatus(), -1001);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    trace.post("1094").twice("1014").post("1095").twice("1014").post("1096").twice("1018").post("1097").twice("1022");
    EXPECT_EQ(log.lines(), trace.lines());
}

void ignoreSignal(int) {}

TEST_F(Readers, ASuccessfulReadAfterAnEarlierFailureLeavesTheFailureRecorded) {
    // The first read's receive is interrupted by a signal that does not
    // restart it (recv fails with EINTR while the connection stays good);
    // the peer answers only the second request.
    peer->expect(request).expect(request).reply(bytes("5\0"));
    connect();
    struct sigaction interrupting {};
    interrupting.sa_handler = ignoreSignal;
    sigemptyset(&interrupting.sa_mask);
    interrupting.sa_flags = 0;
    struct sigaction previous {};
    ASSERT_EQ(sigaction(SIGUSR1, &interrupting, &previous), 0);
    std::atomic<bool> firstReadDone{false};
    const pthread_t reader = pthread_self();
    std::thread interrupter([&] {
        while (!firstReadDone) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            if (!firstReadDone) pthread_kill(reader, SIGUSR1);
        }
    });
    int value = 0;
    const int first = client.Read(value);
    firstReadDone = true;
    interrupter.join();
    sigaction(SIGUSR1, &previous, nullptr);
    EXPECT_EQ(first, -1002);
    EXPECT_EQ(client.GetClientStatus(), -1002);
    EXPECT_EQ(client.Read(value), 0);
    EXPECT_EQ(value, 5);
    EXPECT_EQ(client.GetClientStatus(), -1002);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    trace.post("1096").post("1019", "").twice("1020").post("1096").post("1019", "").post("1021", "5");
    EXPECT_EQ(log.lines(), trace.lines());
}

}  // namespace

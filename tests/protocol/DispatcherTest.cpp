// SPDX-License-Identifier: MIT
/* Client::Send: every command this library marshals itself (command frame,
 * arguments, integer reply), the lock gate with its "8888" poll, command 4,
 * the reconnect of commands 1 and 4, and the failures at each step. */
#include <unistd.h>

#include <cstdlib>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Client.h"
#include "ConnectedClient.h"
#include "ProtocolTesting.h"

namespace {

using namespace tetherhost::test;

const std::string request = bytes("+\0");

class Dispatcher : public ConnectedClient {};

/* How a command's arguments travel, as the command table gives it. */
enum class Arguments {
    None,            // nothing after the command frame
    Unknown,         // not a known command: "1013", nothing sent
    LenientTexts,    // sendstrargs
    Ints,            // sendintargs
    StrictTexts,     // sendcharstarargs
    HeaderTrailer,   // sendSetHeaderTrailerargs
    CommandLock,     // command 33: the lock negotiation, no integer reply
    ReleaseCommand,  // command 34
    ReleaseSession,  // command 35
    Farewell,        // command 9999
};

struct WiredCommand {
    int command;
    bool guarded;
    Arguments arguments;
    int count;
};

std::string label(const WiredCommand& row) {
    return row.command < 0 ? "CommandMinus" + std::to_string(-row.command) : "Command" + std::to_string(row.command);
}

void PrintTo(const WiredCommand& row, std::ostream* out) { *out << label(row); }

/* The argument tokens this test passes for a command. */
std::vector<std::string> tokensOf(const WiredCommand& row) {
    std::vector<std::string> tokens;
    switch (row.arguments) {
    case Arguments::Ints:
        for (int i = 0; i < row.count; ++i) tokens.push_back(std::to_string(row.command * 10 + i));
        break;
    case Arguments::LenientTexts:
    case Arguments::StrictTexts:
        for (int i = 0; i < row.count; ++i)
            tokens.push_back("t" + std::to_string(row.command) + "_" + std::to_string(i));
        break;
    case Arguments::HeaderTrailer: tokens = {"1", "head", "-2", "", "3", "trail", "4", "end"}; break;
    default: break;
    }
    return tokens;
}

/* Send(command, ...) with those tokens as the call's own arguments. */
int sendWithArguments(Client& client, const WiredCommand& row, const std::vector<std::string>& tokens) {
    auto number = [&](int i) { return std::atoi(tokens[static_cast<std::size_t>(i)].c_str()); };
    auto text = [&](int i) { return tokens[static_cast<std::size_t>(i)].c_str(); };
    switch (row.arguments) {
    case Arguments::Ints:
        return row.count == 1 ? client.Send(row.command, number(0)) : client.Send(row.command, number(0), number(1));
    case Arguments::LenientTexts:
    case Arguments::StrictTexts:
        return row.count == 1 ? client.Send(row.command, text(0)) : client.Send(row.command, text(0), text(1));
    case Arguments::HeaderTrailer:
        return client.Send(row.command, number(0), text(1), number(2), text(3), number(4), text(5), number(6), text(7));
    default: return client.Send(row.command);
    }
}

/* The messages of the marshalling step (after "1093"). */
void traceArguments(Trace& trace, const WiredCommand& row, const std::vector<std::string>& tokens) {
    auto sender = [&](const char* entry, const char* sent, const char* good, const char* completion) {
        trace.post(entry);
        for (const std::string& token : tokens) trace.post(sent, token).post(good, "+");
        trace.post(completion);
    };
    switch (row.arguments) {
    case Arguments::Unknown: trace.post("1013"); break;
    case Arguments::LenientTexts: sender("1077", "1057", "1059", "1078"); break;
    case Arguments::Ints: sender("1079", "1061", "1063", "1080"); break;
    case Arguments::StrictTexts: sender("1081", "1065", "1067", "1082"); break;
    case Arguments::HeaderTrailer:
        trace.post("1083");
        for (std::size_t i = 0; i < tokens.size(); ++i) trace.twice("1069").twice("1071");
        trace.post("1084");
        break;
    case Arguments::CommandLock: trace.post("1086").number("1075", 1); break;
    case Arguments::ReleaseCommand:
    case Arguments::ReleaseSession:
    case Arguments::Farewell: trace.number("1012", 0); break;
    case Arguments::None: break;
    }
}

class EveryWiredCommand : public Dispatcher, public ::testing::WithParamInterface<WiredCommand> {};

TEST_P(EveryWiredCommand, SendsItsFrameAndArgumentsAndReturnsTheIntegerReply) {
    const WiredCommand& row = GetParam();
    const std::vector<std::string> tokens = tokensOf(row);
    const bool lockOnly = row.arguments == Arguments::CommandLock;
    const int answer = 1000 + row.command;
    const std::string answerText = std::to_string(answer);

    // Guarded commands run holding both locks; the others without any, which
    // also shows that they pass the gate.
    if (row.guarded) grantBothLocks(*peer);
    peer->expectFrame(std::to_string(row.command)).ack();
    for (const std::string& token : tokens) peer->expectFrame(token).ack();
    if (lockOnly)
        peer->expect(request).reply("1");
    else
        peer->expect(request).reply(answerText + '\0');
    if (row.guarded)
        connectHoldingBothLocks();
    else
        connect();

    const int result = sendWithArguments(client, row, tokens);
    EXPECT_TRUE(peerFinished()) << peer->failure();

    std::string expected = introduction() + (row.guarded ? bothLocksBytes() : "") + std::to_string(row.command) + '\0';
    for (const std::string& token : tokens) expected += token + '\0';
    expected += request;
    EXPECT_EQ(peer->received(), expected);
    EXPECT_EQ(result, lockOnly ? 0 : answer);
    EXPECT_EQ(client.GetClientStatus(), 0);

    trace.number("1093", row.command);
    traceArguments(trace, row, tokens);
    if (!lockOnly) trace.post("1096").post("1019", "").post("1021", answerText);
    EXPECT_EQ(log.lines(), trace.lines());
}

const WiredCommand wiredCommands[] = {
    {0, true, Arguments::Unknown, 0},
    {1, false, Arguments::None, 0},
    {2, true, Arguments::LenientTexts, 1},
    {3, false, Arguments::LenientTexts, 2},
    {5, true, Arguments::Ints, 1},
    {6, true, Arguments::None, 0},
    {7, true, Arguments::Ints, 1},
    {8, true, Arguments::None, 0},
    {9, true, Arguments::Ints, 1},
    {10, true, Arguments::None, 0},
    {11, true, Arguments::None, 0},
    {12, true, Arguments::StrictTexts, 2},
    {13, true, Arguments::None, 0},
    {14, true, Arguments::None, 0},
    {15, true, Arguments::Ints, 1},
    {16, true, Arguments::Ints, 1},
    {17, true, Arguments::Ints, 1},
    {18, true, Arguments::Ints, 1},
    {20, true, Arguments::Ints, 2},
    {21, true, Arguments::HeaderTrailer, 8},
    {22, true, Arguments::None, 0},
    {23, true, Arguments::Ints, 1},
    {24, true, Arguments::None, 0},
    {25, true, Arguments::None, 0},
    {26, true, Arguments::None, 0},
    {27, true, Arguments::None, 0},
    {28, true, Arguments::None, 0},
    {29, false, Arguments::LenientTexts, 1},
    {30, false, Arguments::None, 0},
    {31, false, Arguments::None, 0},
    {32, false, Arguments::None, 0},
    {33, false, Arguments::CommandLock, 0},
    {34, false, Arguments::ReleaseCommand, 0},
    {35, false, Arguments::ReleaseSession, 0},
    {36, false, Arguments::Ints, 2},
    {37, false, Arguments::Ints, 1},
    {38, false, Arguments::None, 0},
    {39, false, Arguments::Ints, 1},
    {40, false, Arguments::Ints, 2},
    {43, false, Arguments::None, 0},
    {45, false, Arguments::Ints, 1},
    {49, false, Arguments::Ints, 1},
    {53, false, Arguments::Ints, 1},
    {54, false, Arguments::Ints, 1},
    {55, false, Arguments::Ints, 1},
    {56, false, Arguments::None, 0},
    {9999, false, Arguments::Farewell, 0},
    {57, false, Arguments::Unknown, 0},
    {1000, false, Arguments::Unknown, 0},
    {-7, true, Arguments::Unknown, 0},
};

INSTANTIATE_TEST_SUITE_P(Table, EveryWiredCommand, ::testing::ValuesIn(wiredCommands),
                         [](const ::testing::TestParamInfo<WiredCommand>& info) { return label(info.param); });

/* The options that command 4 sends after its two texts. */
std::string optionFrames(const std::vector<int>& options) {
    std::string frames;
    for (const int option : options) frames += std::to_string(option) + '\0';
    return frames;
}

void expectOptions(ScriptedPeer& peer, const std::vector<int>& options) {
    for (const int option : options) peer.expectFrame(std::to_string(option)).ack();
}

TEST_F(Dispatcher, WithoutLocksCommand5IsReplacedByThePoll8888) {
    peer->expect(bytes("8888\0")).reply("anything");
    connect();
    EXPECT_EQ(client.Send(5, 77), 1);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    EXPECT_EQ(client.GetClientStatus(), 1);
    EXPECT_EQ(peer->received(), introduction() + bytes("8888\0"));
    trace.twice("1008");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(Dispatcher, APollThatCannotBeSentGivesMinus1001) {
    connect();
    breakSending();
    EXPECT_EQ(client.Send(6), -1001);
    EXPECT_EQ(client.GetClientStatus(), -1001);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    trace.twice("1008").twice("1009");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(Dispatcher, APollWithoutAnswerGivesMinus1002) {
    peer->expect(bytes("8888\0")).closeConnection();
    connect();
    EXPECT_EQ(client.Send(-3), -1002);
    EXPECT_EQ(client.GetClientStatus(), -1002);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    trace.twice("1008").twice("1010");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(Dispatcher, Command4WithNZeroSendsTheTenDefaultOptionsAndReadsNoReply) {
    const std::vector<int> defaults = {0, 0, 0, 1, 0, 0, 0, 1, 0, 0};
    peer->expectFrame("4").ack().expectFrame("app").ack().expectFrame("user").ack();
    expectOptions(*peer, defaults);
    peer->expect(request).reply("1");
    connect();
    EXPECT_EQ(client.Send(4, "app", "user", 0), 0);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    EXPECT_EQ(peer->received(), introduction() + bytes("4\0app\0user\0") + optionFrames(defaults) + request);
    EXPECT_EQ(client.GetClientStatus(), 0);
    trace.number("1093", 4).post("1086").number("1075", 1);
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(Dispatcher, Command4WithThreeValuesFillsTheFirstThreeSlotsAndReturnsTheLockAnswer) {
    const std::vector<int> options = {5, 6, 7, 1, 0, 0, 0, 1, 0, 0};
    peer->expectFrame("4").ack().expectFrame("a").ack().expectFrame("b").ack();
    expectOptions(*peer, options);
    peer->expect(request).reply("7");
    // The answer 7 leaves the session lock at 0: the next guarded command polls.
    peer->expect(bytes("8888\0")).ack();
    connect();
    EXPECT_EQ(client.Send(4, "a", "b", 3, 5, 6, 7), 7);
    EXPECT_EQ(client.GetClientStatus(), 7);
    EXPECT_EQ(client.Send(10), 1);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    EXPECT_EQ(peer->received(),
              introduction() + bytes("4\0a\0b\0") + optionFrames(options) + request + bytes("8888\0"));
    trace.number("1093", 4).post("1086").post("1076").twice("1008");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(Dispatcher, Command4WithNOf25TakesAllValuesAndSendsTheFirstTen) {
    const std::vector<int> firstTen = {100, 101, 102, 103, 104, 105, 106, 107, 108, 109};
    peer->expectFrame("4").ack().expectFrame("a").ack().expectFrame("b").ack();
    expectOptions(*peer, firstTen);
    peer->expect(request).reply("1");
    connect();
    EXPECT_EQ(client.Send(4, "a", "b", 25, 100, 101, 102, 103, 104, 105, 106, 107, 108, 109, 110, 111, 112, 113, 114,
                          115, 116, 117, 118, 119, 120, 121, 122, 123, 124),
              0);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    EXPECT_EQ(peer->received(), introduction() + bytes("4\0a\0b\0") + optionFrames(firstTen) + request);
}

TEST_F(Dispatcher, Command4TextsOf2000BytesAreCutTo1023) {
    const std::string text(2000, 'w');
    const std::string cut(1023, 'w');
    const std::vector<int> defaults = {0, 0, 0, 1, 0, 0, 0, 1, 0, 0};
    peer->expectFrame("4").ack().expectFrame(cut).ack().expectFrame(cut).ack();
    expectOptions(*peer, defaults);
    peer->expect(request).reply("1");
    connect();
    EXPECT_EQ(client.Send(4, text.c_str(), text.c_str(), 0), 0);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    EXPECT_EQ(peer->received(),
              introduction() + bytes("4\0") + cut + '\0' + cut + '\0' + optionFrames(defaults) + request);
}

TEST_F(Dispatcher, Command4WhoseTextIsNotAnsweredGivesMinus1002WithoutReconnecting) {
    peer->expectFrame("4").ack().expectFrame("a").closeConnection();
    connect();
    EXPECT_EQ(client.Send(4, "a", "b", 0), -1002);
    EXPECT_EQ(client.GetClientStatus(), -1002);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    trace.number("1093", 4).twice("1010");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(Dispatcher, Command1WhoseFrameCannotBeSentReconnectsAndGivesMinus1001) {
    peer->acceptNext();
    introduce(*peer, name);
    connect();
    const int first = socket();
    breakSending();
    EXPECT_EQ(client.Send(1), -1001);
    EXPECT_EQ(client.GetClientStatus(), -1001);
    EXPECT_NE(socket(), first) << "the reconnect made a new connection";
    close(first);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    EXPECT_EQ(peer->received(), introduction() + introduction());
    trace.twice("1009").post("1089").post("1090").post("1091");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(Dispatcher, Command4WhoseFrameIsNotAnsweredReconnectsAndGivesMinus1002) {
    peer->expectFrame("4").acceptNext();
    introduce(*peer, name);
    connect();
    const int first = socket();
    EXPECT_EQ(client.Send(4, "a", "b", 0), -1002);
    EXPECT_EQ(client.GetClientStatus(), -1002);
    EXPECT_NE(socket(), first) << "the reconnect made a new connection";
    close(first);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    EXPECT_EQ(peer->received(), introduction() + bytes("4\0") + introduction());
    trace.twice("1010").post("1089").post("1090").post("1091");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(Dispatcher, OtherCommandsWhoseFrameCannotBeSentDoNotReconnect) {
    connect();
    breakSending();
    EXPECT_EQ(client.Send(38), -1001);
    EXPECT_EQ(client.GetClientStatus(), -1001);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    EXPECT_EQ(peer->received(), introduction());
    trace.twice("1009");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(Dispatcher, AServerThatClosesAfterTheCommandFrameGivesMinus1002) {
    peer->expectFrame("38").closeConnection();
    connect();
    EXPECT_EQ(client.Send(38), -1002);
    EXPECT_EQ(client.GetClientStatus(), -1002);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    trace.twice("1010");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(Dispatcher, AServerThatClosesMidArgumentsGivesTheSendersMinus1002AndReadsNoReply) {
    grantBothLocks(*peer);
    peer->expectFrame("20").ack().expectFrame("1").ack().expectFrame("2").closeConnection();
    connectHoldingBothLocks();
    EXPECT_EQ(client.Send(20, 1, 2), -1002);
    EXPECT_EQ(client.GetClientStatus(), -1002);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    trace.number("1093", 20).post("1079").post("1061", "1").post("1063", "+").post("1061", "2").twice("1062");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(Dispatcher, Command38WhoseIntegerReplyFailsReturnsTheAnswersByteCount) {
    peer->expectFrame("38").reply(bytes("ok\0")).expect(request).closeConnection();
    connect();
    EXPECT_EQ(client.Send(38), 3);
    EXPECT_EQ(client.GetClientStatus(), -1002);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    EXPECT_EQ(peer->received(), introduction() + bytes("38\0") + request);
    trace.number("1093", 38).post("1096").post("1019", "").twice("1020");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(Dispatcher, AFull1024ByteAnswerToTheCommandFrameIsTakenWhole) {
    peer->expectFrame("38").reply(std::string(1024, 'z')).expect(request).closeConnection();
    connect();
    EXPECT_EQ(client.Send(38), 1024);
    EXPECT_TRUE(peerFinished()) << peer->failure();
}

TEST_F(Dispatcher, AMarshallersZeroStaysTheResultWhenTheIntegerReplyFails) {
    peer->expectFrame("37").ack().expectFrame("9").ack().expect(request).closeConnection();
    connect();
    EXPECT_EQ(client.Send(37, 9), 0);
    EXPECT_EQ(client.GetClientStatus(), -1002);
    EXPECT_TRUE(peerFinished()) << peer->failure();
}

TEST_F(Dispatcher, ANullTextArgumentTravelsAsTheEmptyToken) {
    peer->expectFrame("29").ack().expect(bytes("\0")).ack().expect(request).reply(bytes("0\0"));
    connect();
    EXPECT_EQ(client.Send(29, static_cast<const char*>(nullptr)), 0);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    EXPECT_EQ(peer->received(), introduction() + bytes("29\0\0") + request);
}

TEST_F(Dispatcher, ATextArgumentOf2000BytesIsCutTo1023) {
    const std::string text(2000, 'v');
    const std::string cut(1023, 'v');
    peer->expectFrame("29").ack().expectFrame(cut).ack().expect(request).reply(bytes("0\0"));
    connect();
    EXPECT_EQ(client.Send(29, text.c_str()), 0);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    EXPECT_EQ(peer->received(), introduction() + bytes("29\0") + cut + '\0' + request);
}

TEST_F(Dispatcher, Command47MakesTheSecondI2CTransferEvenWhenTheFirstFailsAndOnlyTheSecondCounts) {
    // First transfer (read-back only): its first token is refused. Second
    // transfer (write and read-back): tokens 2, 0x50 reversed, 8 bits, 9,
    // the data byte 0x01 reversed, and one byte read back.
    peer->expectFrame("47").ack();
    peer->expectFrame("1").reply(bytes("-\0"));
    peer->expectFrame("2").ack().expectFrame("10").ack().expectFrame("8").ack().expectFrame("9").ack();
    peer->expect("\x80").reply("\x33");
    peer->expect(request).reply(bytes("47\0"));
    connect();
    char first[1] = {0x7f};
    char second[1] = {0x01};
    EXPECT_EQ(client.Send(47, 1, 0x0f, 8, first, 3, 2, 0x50, 8, second, 9), 47);
    EXPECT_EQ(client.GetClientStatus(), 0);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    EXPECT_EQ(peer->received(), introduction() +
                                    bytes("47\0"
                                          "1\0"
                                          "2\0"
                                          "10\0"
                                          "8\0"
                                          "9\0") +
                                    "\x80" + request);
    EXPECT_EQ(log.identifiers(), Lines({"1093", "1114", "1050", "1051", "1114", "1050", "1050", "1050", "1050", "1050",
                                        "1096", "1019", "1021"}));
}

TEST_F(Dispatcher, WithOnlyTheSessionLockAGuardedCommandStillPolls) {
    const std::vector<int> defaults = {0, 0, 0, 1, 0, 0, 0, 1, 0, 0};
    peer->expectFrame("4").ack().expectFrame("a").ack().expectFrame("b").ack();
    expectOptions(*peer, defaults);
    peer->expect(request).reply("1");
    peer->expectFrame("33").ack().expect(request).reply(bytes("0\0"));
    peer->expect(bytes("8888\0")).ack();
    connect();
    EXPECT_EQ(client.Send(4, "a", "b", 0), 0);
    EXPECT_EQ(client.Send(33), -1);
    EXPECT_EQ(client.GetClientStatus(), -1);
    EXPECT_EQ(client.Send(6), 1);
    EXPECT_TRUE(peerFinished()) << peer->failure();
}

TEST_F(Dispatcher, WithOnlyTheCommandLockAGuardedCommandStillPolls) {
    const std::vector<int> defaults = {0, 0, 0, 1, 0, 0, 0, 1, 0, 0};
    peer->expectFrame("4").ack().expectFrame("a").ack().expectFrame("b").ack();
    expectOptions(*peer, defaults);
    peer->expect(request).reply("0");
    peer->expectFrame("33").ack().expect(request).reply("1");
    peer->expect(bytes("8888\0")).ack();
    connect();
    EXPECT_EQ(client.Send(4, "a", "b", 0), -1);
    EXPECT_EQ(client.Send(33), 0);
    EXPECT_EQ(client.Send(6), 1);
    EXPECT_TRUE(peerFinished()) << peer->failure();
}

TEST_F(Dispatcher, Command34WhileHoldingTheSessionLockReportsItAndClearsOnlyTheCommandLock) {
    grantBothLocks(*peer);
    peer->expectFrame("34").ack().expect(request).reply(bytes("0\0"));
    peer->expect(bytes("8888\0")).ack();                                // Send(6): polls
    peer->expectFrame("33").ack().expect(request).reply("1");           // the command lock again
    peer->expectFrame("6").ack().expect(request).reply(bytes("60\0"));  // Send(6): goes through
    connectHoldingBothLocks();
    EXPECT_EQ(client.Send(34), 0);
    EXPECT_EQ(client.Send(6), 1);
    EXPECT_EQ(client.Send(33), 0);
    EXPECT_EQ(client.Send(6), 60);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    trace.number("1093", 34).number("1012", 1).post("1096").post("1019", "").post("1021", "0");
    trace.twice("1008");
    trace.number("1093", 33).post("1086").number("1075", 1);
    trace.number("1093", 6).post("1096").post("1019", "").post("1021", "60");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(Dispatcher, Command34WhoseReplyIsBeyondTheRangeOfLongReturnsMinus1AndRecordsNoFailure) {
    // The same -1 as a refusal: only the reply text in message 1021 tells
    // the two apart.
    peer->expectFrame("34").ack().expect(request).reply(bytes("99999999999999999999\0"));
    connect();
    EXPECT_EQ(client.Send(34), -1);
    EXPECT_EQ(client.GetClientStatus(), 0);
    EXPECT_TRUE(peerFinished()) << peer->failure();
    trace.number("1093", 34).number("1012", 0).post("1096").post("1019", "").post("1021", "99999999999999999999");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(Dispatcher, Command35ClearsOnlyTheSessionLock) {
    grantBothLocks(*peer);
    const std::vector<int> defaults = {0, 0, 0, 1, 0, 0, 0, 1, 0, 0};
    peer->expectFrame("35").ack().expect(request).reply(bytes("0\0"));
    peer->expect(bytes("8888\0")).ack();
    peer->expectFrame("4").ack().expectFrame("a").ack().expectFrame("b").ack();
    expectOptions(*peer, defaults);
    peer->expect(request).reply("1");
    peer->expectFrame("6").ack().expect(request).reply(bytes("60\0"));
    connectHoldingBothLocks();
    EXPECT_EQ(client.Send(35), 0);
    EXPECT_EQ(client.Send(6), 1);
    EXPECT_EQ(client.Send(4, "a", "b", 0), 0);
    EXPECT_EQ(client.Send(6), 60);
    EXPECT_TRUE(peerFinished()) << peer->failure();
}

TEST_F(Dispatcher, Command9999ClearsBothLocks) {
    grantBothLocks(*peer);
    const std::vector<int> defaults = {0, 0, 0, 1, 0, 0, 0, 1, 0, 0};
    peer->expectFrame("9999").ack().expect(request).reply(bytes("0\0"));
    peer->expectFrame("4").ack().expectFrame("a").ack().expectFrame("b").ack();
    expectOptions(*peer, defaults);
    peer->expect(request).reply("1");
    peer->expect(bytes("8888\0")).ack();
    connectHoldingBothLocks();
    EXPECT_EQ(client.Send(9999), 0);
    EXPECT_EQ(client.Send(4, "a", "b", 0), 0);
    EXPECT_EQ(client.Send(6), 1);
    EXPECT_TRUE(peerFinished()) << peer->failure();
}

}  // namespace

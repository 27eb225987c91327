// SPDX-License-Identifier: MIT
/* The four argument senders of ClientUtils on a socketpair: frames, acknowledgements,
 * results and the messages each one posts. */
#include <signal.h>
#include <sys/socket.h>

#include <functional>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "ClientUtils.h"
#include "MessageLog.h"
#include "ProtocolTesting.h"
#include "ScriptedPeer.h"
#include "SendWrap.h"
#include "VaList.h"

namespace {

using namespace tetherhost::test;

class ArgumentSenders : public ::testing::Test {
protected:
    void SetUp() override { signal(SIGPIPE, SIG_DFL); }

    int socket() const { return peer->clientSocket(); }

    template <typename... Args>
    int ints(int count, Args... args) {
        return withVaList([&](va_list list) { return utils->sendintargs(socket(), count, list); }, args...);
    }
    template <typename... Args>
    int strs(int count, Args... args) {
        return withVaList([&](va_list list) { return utils->sendstrargs(socket(), count, list); }, args...);
    }
    template <typename... Args>
    int charstars(int count, Args... args) {
        return withVaList([&](va_list list) { return utils->sendcharstarargs(socket(), count, list); }, args...);
    }
    template <typename... Args>
    int headerTrailer(Args... args) {
        return withVaList([&](va_list list) { return utils->sendSetHeaderTrailerargs(socket(), list); }, args...);
    }

    std::unique_ptr<ScriptedPeer> peer = ScriptedPeer::onSocketPair();
    MessageLog log;
    std::unique_ptr<ClientUtils> utils = log.utils("board1");
    Trace trace{"board1"};
};

const char* const noText = nullptr;

TEST_F(ArgumentSenders, CountZeroOrNegativeSendsNothingAndPostsEntryAndCompletion) {
    peer->start();
    EXPECT_EQ(strs(0), 0);
    EXPECT_EQ(ints(-3), 0);
    EXPECT_EQ(charstars(0), 0);
    EXPECT_EQ(strs(-1), 0);
    EXPECT_TRUE(peer->finish()) << peer->failure();
    EXPECT_EQ(peer->received(), "");
    trace.post("1077").post("1078").post("1079").post("1080").post("1081").post("1082").post("1077").post("1078");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(ArgumentSenders, IntegerMinusFiveTravelsAsThreeBytesAndZeroAsTwo) {
    peer->expect(bytes("-5\0")).ack().expect(bytes("0\0")).ack();
    peer->start();
    EXPECT_EQ(ints(2, -5, 0), 0);
    EXPECT_TRUE(peer->finish()) << peer->failure();
    EXPECT_EQ(peer->received(), bytes("-5\0"
                                      "0\0"));
    trace.post("1079").post("1061", "-5").post("1063", "+").post("1061", "0").post("1063", "+").post("1080");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(ArgumentSenders, NullOrEmptyTextTravelsAsOneNulByte) {
    peer->expect(bytes("\0")).ack().expect(bytes("\0")).ack().expect(bytes("\0")).ack();
    peer->start();
    EXPECT_EQ(strs(1, noText), 0);
    EXPECT_EQ(charstars(2, "", noText), 0);
    EXPECT_TRUE(peer->finish()) << peer->failure();
    EXPECT_EQ(peer->received(), bytes("\0\0\0"));
    trace.post("1077").post("1057", "").post("1059", "+").post("1078");
    trace.post("1081").post("1065", "").post("1067", "+").post("1065", "").post("1067", "+").post("1082");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(ArgumentSenders, HeaderTrailerSendsEightAlternatingFramesAndShowsNeitherTokensNorReplies) {
    const std::string frames = bytes(
        "1\0h1\0-2\0\0"
        "3\0\0"
        "44\0t\0");
    peer->expect(bytes("1\0")).ack().expect(bytes("h1\0")).ack().expect(bytes("-2\0")).ack();
    peer->expect(bytes("\0")).ack().expect(bytes("3\0")).ack().expect(bytes("\0")).ack();
    peer->expect(bytes("44\0")).ack().expect(bytes("t\0")).ack();
    peer->start();
    EXPECT_EQ(headerTrailer(1, "h1", -2, "", 3, noText, 44, "t"), 0);
    EXPECT_TRUE(peer->finish()) << peer->failure();
    EXPECT_EQ(peer->received(), frames);
    trace.post("1083");
    for (int frame = 0; frame < 8; ++frame) trace.twice("1069").twice("1071");
    trace.post("1084");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(ArgumentSenders, APlusAloneIsAcceptedByAllFour) {
    peer->expect(bytes("a\0")).reply("+");
    peer->expect(bytes("7\0")).reply("+");
    peer->expect(bytes("b\0")).reply("+");
    for (int frame = 0; frame < 8; ++frame) peer->expectAny(2).reply("+");
    peer->start();
    EXPECT_EQ(strs(1, "a"), 0);
    EXPECT_EQ(ints(1, 7), 0);
    EXPECT_EQ(charstars(1, "b"), 0);
    EXPECT_EQ(headerTrailer(1, "w", 2, "x", 3, "y", 4, "z"), 0);
    EXPECT_TRUE(peer->finish()) << peer->failure();
    EXPECT_EQ(peer->received(), bytes("a\0"
                                      "7\0"
                                      "b\0"
                                      "1\0w\0"
                                      "2\0x\0"
                                      "3\0y\0"
                                      "4\0z\0"));
    trace.post("1077").post("1057", "a").post("1059", "+").post("1078");
    trace.post("1079").post("1061", "7").post("1063", "+").post("1080");
    trace.post("1081").post("1065", "b").post("1067", "+").post("1082");
    trace.post("1083");
    for (int frame = 0; frame < 8; ++frame) trace.twice("1069").twice("1071");
    trace.post("1084");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(ArgumentSenders, MinusAndNulIsRefusedByTheStrictSendersAndAcceptedBySendstrargs) {
    const std::string refusal = bytes("-\0");
    peer->expect(bytes("5\0")).reply(refusal);
    peer->expect(bytes("t\0")).reply(refusal);
    peer->expect(bytes("9\0")).reply(refusal);
    peer->expect(bytes("s\0")).reply(refusal).expect(bytes("u\0")).reply(refusal);
    peer->start();
    EXPECT_EQ(ints(1, 5), -1002);
    EXPECT_EQ(charstars(1, "t"), -1002);
    EXPECT_EQ(headerTrailer(9, "h", 8, "i", 7, "j", 6, "k"), -1002);
    EXPECT_EQ(strs(2, "s", "u"), 0);
    EXPECT_TRUE(peer->finish()) << peer->failure();
    EXPECT_EQ(peer->received(), bytes("5\0"
                                      "t\0"
                                      "9\0"
                                      "s\0"
                                      "u\0"));
    trace.post("1079").post("1061", "5").twice("1062");
    trace.post("1081").post("1065", "t").twice("1066");
    trace.post("1083").twice("1069").twice("1070");
    trace.post("1077").post("1057", "s").post("1059", "-").post("1057", "u").post("1059", "-").post("1078");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(ArgumentSenders, PeerClosingBeforeTheAcknowledgementGivesMinus1002) {
    peer->expect(bytes("abc\0")).closeConnection();
    peer->start();
    EXPECT_EQ(strs(1, "abc"), -1002);
    EXPECT_TRUE(peer->finish()) << peer->failure();
    EXPECT_EQ(peer->received(), bytes("abc\0"));
    trace.post("1077").post("1057", "abc").twice("1058");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(ArgumentSenders, EachStrictSenderGivesMinus1002WhenThePeerClosesBeforeAcknowledging) {
    struct Case {
        const char* label;
        std::function<int()> call;
        std::string frame;
        const char* entry;
        const char* sent;
        const char* bad;
        bool showsToken;
    };
    const Case cases[] = {
        {"sendintargs", [this] { return ints(1, 12); }, "12", "1079", "1061", "1062", true},
        {"sendcharstarargs", [this] { return charstars(1, "tx"); }, "tx", "1081", "1065", "1066", true},
        {"sendSetHeaderTrailerargs", [this] { return headerTrailer(12, "a", 2, "b", 3, "c", 4, "d"); }, "12", "1083",
         "1069", "1070", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        peer = ScriptedPeer::onSocketPair();
        log.clear();
        peer->expectFrame(c.frame).closeConnection();
        peer->start();
        EXPECT_EQ(c.call(), -1002);
        EXPECT_TRUE(peer->finish()) << peer->failure();
        EXPECT_EQ(peer->received(), c.frame + '\0');
        Trace expected("board1");
        expected.post(c.entry);
        if (c.showsToken)
            expected.post(c.sent, c.frame);
        else
            expected.twice(c.sent);
        expected.twice(c.bad);
        EXPECT_EQ(log.lines(), expected.lines());
    }
}

TEST_F(ArgumentSenders, ASendOfOnlyPartOfTheFrameIsTakenAsSuccess) {
    peer->expect("123").ack();
    peer->start();
    sendwrap::watch(socket());
    sendwrap::limitNext(3);
    EXPECT_EQ(ints(1, 12345), 0);
    EXPECT_EQ(sendwrap::calls(), 1) << "nothing is re-sent";
    sendwrap::watch(-1);
    EXPECT_TRUE(peer->finish()) << peer->failure();
    EXPECT_EQ(peer->received(), "123");
    trace.post("1079").post("1061", "12345").post("1063", "+").post("1080");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(ArgumentSenders, ABadSecondAcknowledgementLeavesTheThirdIntegerInTheList) {
    peer->expect(bytes("1\0")).ack().expect(bytes("2\0")).reply("x");
    peer->start();
    int leftInList = 0;
    const int result = withVaList(
        [&](va_list list) {
            const int status = utils->sendintargs(socket(), 3, list);
            leftInList = va_arg(list, int);
            return status;
        },
        1, 2, 3);
    EXPECT_EQ(result, -1002);
    EXPECT_EQ(leftInList, 3);
    EXPECT_TRUE(peer->finish()) << peer->failure();
    EXPECT_EQ(peer->received(), bytes("1\0"
                                      "2\0"));
    trace.post("1079").post("1061", "1").post("1063", "+").post("1061", "2").twice("1062");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(ArgumentSenders, EachSenderLeavesTheListAfterItsOwnElements) {
    peer->expect(bytes("p\0")).ack().expect(bytes("q\0")).ack();
    for (int frame = 0; frame < 8; ++frame) peer->expectAny(2).ack();
    peer->start();
    const char* nextText = nullptr;
    int nextInt = 0;
    EXPECT_EQ(withVaList(
                  [&](va_list list) {
                      const int texts = utils->sendstrargs(socket(), 2, list);
                      nextText = va_arg(list, const char*);
                      const int headerTrailer = utils->sendSetHeaderTrailerargs(socket(), list);
                      nextInt = va_arg(list, int);
                      return texts + headerTrailer;
                  },
                  "p", "q", "rest", 1, "a", 2, "b", 3, "c", 4, "d", 99),
              0);
    EXPECT_TRUE(peer->finish()) << peer->failure();
    EXPECT_STREQ(nextText, "rest");
    EXPECT_EQ(nextInt, 99);
}

TEST_F(ArgumentSenders, AFailedSendGivesMinus1001AndNoSigpipe) {
    peer->start();
    ASSERT_TRUE(peer->finish()) << peer->failure();  // the peer's end is closed now
    sendwrap::watch(socket());
    EXPECT_EQ(ints(2, 1, 2), -1001);
    EXPECT_EQ(sendwrap::lastFlags() & MSG_NOSIGNAL, MSG_NOSIGNAL);
    sendwrap::watch(-1);
    EXPECT_EQ(strs(1, "a"), -1001);
    EXPECT_EQ(charstars(1, "b"), -1001);
    EXPECT_EQ(headerTrailer(1, "a", 2, "b", 3, "c", 4, "d"), -1001);
    trace.post("1079").twice("1060").post("1077").twice("1056").post("1081").twice("1064");
    trace.post("1083").twice("1068");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(ArgumentSenders, SendstrargsShowsTheReplyLaidOverTheTokenItSent) {
    peer->expect(bytes("abcdef\0")).reply("+");
    peer->start();
    EXPECT_EQ(strs(1, "abcdef"), 0);
    EXPECT_TRUE(peer->finish()) << peer->failure();
    trace.post("1077").post("1057", "abcdef").post("1059", "+bcdef").post("1078");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(ArgumentSenders, StrictSendersClearTheBufferBeforeTheAcknowledgement) {
    peer->expect(bytes("12345\0")).reply("+").expect(bytes("abcdef\0")).reply("+");
    peer->start();
    EXPECT_EQ(ints(1, 12345), 0);
    EXPECT_EQ(charstars(1, "abcdef"), 0);
    EXPECT_TRUE(peer->finish()) << peer->failure();
    trace.post("1079").post("1061", "12345").post("1063", "+").post("1080");
    trace.post("1081").post("1065", "abcdef").post("1067", "+").post("1082");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(ArgumentSenders, ATextArgumentOf2000BytesIsCutTo1023) {
    const std::string text(2000, 'x');
    const std::string cut(1023, 'x');
    peer->expect(cut + '\0').ack().expect(cut + '\0').ack();
    peer->start();
    EXPECT_EQ(strs(1, text.c_str()), 0);
    EXPECT_EQ(charstars(1, text.c_str()), 0);
    EXPECT_TRUE(peer->finish()) << peer->failure();
    EXPECT_EQ(peer->received(), cut + '\0' + cut + '\0');
    // The acknowledgement "+" and NUL lies over the token in sendstrargs.
    trace.post("1077").post("1057", cut).post("1059", "+").post("1078");
    trace.post("1081").post("1065", cut).post("1067", "+").post("1082");
    EXPECT_EQ(log.lines(), trace.lines());
}

TEST_F(ArgumentSenders, AnAcknowledgementOfAFull1024BytesWithoutNulIsShownWhole) {
    const std::string answer(1024, 'r');
    peer->expect(bytes("a\0")).reply(answer);
    peer->start();
    EXPECT_EQ(strs(1, "a"), 0);
    EXPECT_TRUE(peer->finish()) << peer->failure();
    trace.post("1077").post("1057", "a").post("1059", answer).post("1078");
    EXPECT_EQ(log.lines(), trace.lines());
}

}  // namespace

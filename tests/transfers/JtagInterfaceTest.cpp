// SPDX-License-Identifier: MIT
/* The JTAG-interface sub-commands of command 44 (JTAGInterfaceFunc): every
 * number with the arguments of its pattern, and the edge cases of the
 * decimal-fraction frames and the patterns that ignore failures. */
#include <array>
#include <sstream>

#include "TransferTesting.h"

namespace tetherhost::test {
namespace {

using JtagInterface = TransferTest;

enum class Kind {
    NoArgs,
    Unknown,
    OneInt,
    TwoInts,
    ThreeInts,
    FiveInts,
    OneText,
    TwoTexts,
    IntTextInt,
    IntThenEmptyText,
    FractionStrict,
    FractionFixed,
    JtagShift,
};

/* "3, 4, 7 to 10" as the numbers 3, 4, 7, 8, 9, 10. */
std::vector<int> expand(const std::string& list) {
    std::vector<int> numbers;
    std::istringstream in(list);
    for (std::string item; std::getline(in, item, ',');) {
        std::istringstream range(item);
        int first = 0, last = 0;
        std::string to;
        range >> first;
        if (range >> to >> last) {
            for (int n = first; n <= last; ++n) numbers.push_back(n);
        } else {
            numbers.push_back(first);
        }
    }
    return numbers;
}

/* The protocol's sub-command table, written out here independently
 * so that the library's vocabulary is checked against it. */
const std::vector<std::pair<Kind, std::string>> protocolPatterns = {
    {Kind::NoArgs,
     "3, 4, 7 to 10, 14 to 16, 27, 29, 37 to 44, 47, 48, 50, 52, 54, 56, 58, 59, 61, 62, 65 to 67, "
     "73 to 75, 79, 80, 82, 85, 87, 88, 94, 100, 101, 103, 105, 107 to 109, 111, 113, 118, 119, "
     "121, 123, 125 to 129, 131, 135 to 139"},
    {Kind::Unknown, "0, 72, 97 to 99, 130, 133"},
    {Kind::OneInt,
     "2, 11, 13, 17 to 26, 28, 34, 35, 45, 46, 49, 57, 63, 64, 68, 71, 77, 81, 92, 95, 104, 106, "
     "110, 117, 132, 134, 141 to 143"},
    {Kind::TwoInts, "5, 6, 76, 91, 96, 140"},
    {Kind::ThreeInts, "93"},
    {Kind::FiveInts, "89, 90"},
    {Kind::OneText, "1, 51, 53, 55, 60, 78, 84, 86, 102, 112, 114, 115, 122"},
    {Kind::TwoTexts, "83, 116, 124"},
    {Kind::IntTextInt, "30 to 33"},
    {Kind::IntThenEmptyText, "120"},
    {Kind::FractionStrict, "69, 70"},
    {Kind::FractionFixed, "36"},
    {Kind::JtagShift, "12"},
};

std::array<int, 144> protocolUseCount() {
    std::array<int, 144> uses{};
    for (const auto& [kind, list] : protocolPatterns)
        for (const int n : expand(list)) ++uses.at(static_cast<std::size_t>(n));
    return uses;
}

Kind protocolKind(int number) {
    for (const auto& [kind, list] : protocolPatterns)
        for (const int n : expand(list))
            if (n == number) return kind;
    return Kind::Unknown;
}

constexpr int sentinel = 4242;

TEST(JtagInterfaceTable, EveryNumberFrom0To143HasExactlyOnePattern) {
    const std::array<int, 144> uses = protocolUseCount();
    for (int n = 0; n < 144; ++n) EXPECT_EQ(uses[static_cast<std::size_t>(n)], 1) << n;
}

class JtagInterfaceEverySubCommand : public TransferTest {
protected:
    /** Calls the dispatcher with `number` and arguments of `kind`, followed
     * by the sentinel, which must be the next element left in the list. */
    int call(Kind kind, int number, int& next) {
        int s = socket();
        auto run = [&](va_list list) {
            const int result = client.JTAGInterfaceFunc(s, list);
            next = va_arg(list, int);
            return result;
        };
        switch (kind) {
        case Kind::NoArgs:
        case Kind::Unknown: return withVaList(run, number, sentinel);
        case Kind::OneInt:
        case Kind::IntThenEmptyText: return withVaList(run, number, 11, sentinel);
        case Kind::TwoInts: return withVaList(run, number, 11, 12, sentinel);
        case Kind::ThreeInts: return withVaList(run, number, 11, 12, 13, sentinel);
        case Kind::FiveInts: return withVaList(run, number, 11, 12, 13, 14, 15, sentinel);
        case Kind::OneText: return withVaList(run, number, "t1", sentinel);
        case Kind::TwoTexts: return withVaList(run, number, "t1", "t2", sentinel);
        case Kind::IntTextInt: return withVaList(run, number, 11, "t1", 12, sentinel);
        case Kind::FractionStrict:
        case Kind::FractionFixed: return withVaList(run, number, 3, sentinel);
        case Kind::JtagShift: return withVaList(run, number, 0, 8, 0, 0, "Z", sentinel);
        }
        return 0;
    }

    /** The frames the server sees after the number, its answers, the
     * result and the messages after "1061" and "1063". */
    static int script(Kind kind, ScriptedPeer& peer, Ids& messages) {
        const auto ints = [&](std::initializer_list<std::string> values) {
            messages.push_back("1079");
            for (const std::string& v : values) {
                peer.expectFrame(v).ack();
                messages.insert(messages.end(), {"1061", "1063"});
            }
            messages.push_back("1080");
        };
        const auto texts = [&](std::initializer_list<std::string> values) {
            messages.push_back("1081");
            for (const std::string& v : values) {
                peer.expectFrame(v).ack();
                messages.insert(messages.end(), {"1065", "1067"});
            }
            messages.push_back("1082");
        };
        switch (kind) {
        case Kind::NoArgs: return 2;
        case Kind::Unknown: messages.push_back("2000"); return 2;
        case Kind::OneInt: ints({"11"}); return 0;
        case Kind::TwoInts: ints({"11", "12"}); return 0;
        case Kind::ThreeInts: ints({"11", "12", "13"}); return 0;
        case Kind::FiveInts: ints({"11", "12", "13", "14", "15"}); return 0;
        case Kind::OneText: texts({"t1"}); return 0;
        case Kind::TwoTexts: texts({"t1", "t2"}); return 0;
        case Kind::IntTextInt:
            ints({"11"});
            texts({"t1"});
            ints({"12"});
            return 0;
        case Kind::IntThenEmptyText:
            ints({"11"});
            texts({});
            return 0;
        case Kind::FractionStrict: peer.expectFrame("3.000000").ack(); return 2;
        case Kind::FractionFixed: peer.expect(padded("3.000000")).reply("-"); return 1;
        case Kind::JtagShift:
            tokens(peer, {"0", "8", "0", "0"});
            peer.expect(bytes("Z\0")).reply("r").expect(goToken).reply(bytes("0\0"));
            messages.insert(messages.end(), {"1111", "1103", "1042"});
            return 0;
        }
        return 0;
    }
};

TEST_F(JtagInterfaceEverySubCommand, SendsTheNumberAndTheArgumentsOfItsPattern) {
    std::vector<int> numbers{-1, 144, 200};
    for (int n = 0; n < 144; ++n) numbers.push_back(n);
    for (const int number : numbers) {
        SCOPED_TRACE("sub-command " + std::to_string(number));
        const Kind kind = protocolKind(number);
        peer = ScriptedPeer::onSocketPair();
        log.clear();
        peer->expectFrame(std::to_string(number)).ack();
        Ids expected{"1061", "1063"};
        const int expectedResult = script(kind, *peer, expected);
        peer->start();
        int next = 0;
        EXPECT_EQ(call(kind, number, next), expectedResult);
        EXPECT_EQ(next, sentinel);
        EXPECT_TRUE(peerFinished());
        EXPECT_EQ(ids(), expected);
    }
}

TEST_F(JtagInterface, NoArgumentSubCommandReturnsTheAcknowledgementByteCount) {
    peer->expectFrame("9").reply("+");
    peer->start();
    EXPECT_EQ(jtagInterface(9), 1);
    EXPECT_TRUE(peerFinished());

    peer = ScriptedPeer::onSocketPair();
    peer->expectFrame("9").ack();
    peer->start();
    EXPECT_EQ(jtagInterface(9), 2);
    EXPECT_TRUE(peerFinished());
}

TEST_F(JtagInterface, NumberMessagesShowTheNumberAndTheAcknowledgement) {
    peer->expectFrame("200").reply("+!");
    peer->start();
    EXPECT_EQ(jtagInterface(200), 2);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(log.lines(), (Ids{"1061 xfer: sent integer argument '200'",
                                "1063 xfer: the server acknowledged the integer argument with '+!'",
                                "2000 unknown JTAG interface sub-command, its number was sent and "
                                "acknowledged and nothing more follows"}));
}

TEST_F(JtagInterface, MinusOneTravelsAsItsTextAndIsUnknown) {
    peer->expect(bytes("-1\0")).ack();
    peer->start();
    EXPECT_EQ(jtagInterface(-1), 2);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1061", "1063", "2000"}));
}

TEST_F(JtagInterface, SubCommand89SendsSixFrames) {
    peer->expectFrame("89").ack();
    tokens(*peer, {"1", "2", "3", "4", "5"});
    peer->start();
    EXPECT_EQ(jtagInterface(89, 1, 2, 3, 4, 5), 0);
    EXPECT_TRUE(peerFinished());
}

TEST_F(JtagInterface, SubCommand30GoesOnAfterARefusedFirstInteger) {
    peer->expectFrame("30").ack();
    peer->expectFrame("11").reply("-");
    peer->expectFrame("t").ack();
    peer->expectFrame("12").ack();
    peer->start();
    EXPECT_EQ(jtagInterface(30, 11, "t", 12), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1061", "1063", "1079", "1061", "1062", "1081", "1065", "1067", "1082", "1079", "1061",
                          "1063", "1080"}));
}

TEST_F(JtagInterface, SubCommand30ReturnsTheResultOfItsLastFrame) {
    peer->expectFrame("31").ack();
    peer->expectFrame("11").ack();
    peer->expectFrame("t").ack();
    peer->expectFrame("12").reply("-");
    peer->start();
    EXPECT_EQ(jtagInterface(31, 11, "t", 12), -1002);
    EXPECT_TRUE(peerFinished());
}

TEST_F(JtagInterface, SubCommand120SucceedsEvenWhenItsIntegerFrameFails) {
    peer->expectFrame("120").ack();
    peer->expectFrame("11").reply("-");
    peer->start();
    EXPECT_EQ(jtagInterface(120, 11), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1061", "1063", "1079", "1061", "1062", "1081", "1082"}));
}

TEST_F(JtagInterface, DecimalFractionFramesGoThroughSinglePrecision) {
    struct Case {
        int number;
        int value;
        const char* text;
    };
    for (const Case c : {Case{69, 3, "3.000000"}, Case{70, 5, "5.000000"}, Case{69, -5, "-5.000000"},
                         Case{70, 16777217, "16777216.000000"}}) {
        SCOPED_TRACE(c.value);
        peer = ScriptedPeer::onSocketPair();
        log.clear();
        peer->expectFrame(std::to_string(c.number)).ack();
        peer->expectFrame(c.text).reply("+");
        peer->start();
        EXPECT_EQ(jtagInterface(c.number, c.value), 1);
        EXPECT_TRUE(peerFinished());
        EXPECT_EQ(ids(), (Ids{"1061", "1063"}));
    }
}

TEST_F(JtagInterface, SubCommand69NeedsAPlusForItsFraction) {
    peer->expectFrame("69").ack();
    peer->expectFrame("3.000000").reply(bytes("-\0"));
    peer->start();
    EXPECT_EQ(jtagInterface(69, 3), -1002);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1061", "1063", "1055"}));
}

TEST_F(JtagInterface, SubCommand36SendsAFixedFrameAndAcceptsAnyReply) {
    peer->expectFrame("36").ack();
    peer->expect(padded("3.000000")).reply(bytes("-\0"));
    peer->start();
    EXPECT_EQ(jtagInterface(36, 3), 2);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1061", "1063"}));
}

TEST_F(JtagInterface, SubCommand36FailsWithoutAMessageWhenNoReplyComes) {
    peer->expectFrame("36").ack();
    peer->expect(padded("3.000000")).closeConnection();
    peer->start();
    EXPECT_EQ(jtagInterface(36, 3), -1002);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1061", "1063"}));
}

TEST_F(JtagInterface, FailedNumberSendGives1001After1060) {
    closePeer();
    EXPECT_EQ(jtagInterface(9), -1001);
    EXPECT_EQ(ids(), Ids{"1060"});
    EXPECT_EQ(client.GetClientStatus(), 0);
}

TEST_F(JtagInterface, NumberAcknowledgementWithoutPlusGives1002After1062) {
    peer->expectFrame("9").reply(bytes("-\0"));
    peer->start();
    EXPECT_EQ(jtagInterface(9), -1002);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1061", "1062"}));
}

TEST_F(JtagInterface, SubCommand12HandsTheRestOfTheListToTheJtagShift) {
    peer->expectFrame("12").ack();
    peer->start();
    EXPECT_EQ(jtagInterface(12, 0, 8, 0, 0, static_cast<const char*>(nullptr)), -1020);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1061", "1063", "1111"}));
}

}  // namespace
}  // namespace tetherhost::test

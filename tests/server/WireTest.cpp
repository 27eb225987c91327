// SPDX-License-Identifier: MIT
/* The simulator process over loopback, spoken to by a raw client that sends
 * and receives exactly what the library does: every command family, with
 * the exact bytes of every answer, acknowledgement and reply. */
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "SimulatorHarness.h"
#include "tetherhost/version.h"

namespace tetherhost::test {
namespace {

constexpr int port = TETHERHOST_TEST_PORT;
const std::string idcodes = littleEndian(idcode2) + littleEndian(idcode1) + littleEndian(idcode0);

class Wire : public ::testing::Test {
protected:
    void SetUp() override {
        simulator = Simulator::start(port);
        ASSERT_NE(simulator, nullptr) << "the simulator did not start on port " << port;
        client = std::make_unique<RawClient>(port);
        ASSERT_TRUE(client->connected());
        ASSERT_TRUE(client->introduce("wire"));
    }

    /** Puts every device in BYPASS with an instruction scan of all ones. */
    void bypassAll() {
        JtagShift shift;
        shift.flags = 1;
        shift.bitCount = 18;
        shift.first = wire("\xFF\xFF\x03");
        const JtagShiftReply reply = client->jtagShift(shift);
        ASSERT_TRUE(reply.framed);
        ASSERT_EQ(reply.status, wire("0\0"));
        ASSERT_EQ(client->reply(), 0);
    }

    /** Sends the four (or three) integer tokens of a transfer. */
    void tokens(std::initializer_list<int> values) {
        for (const int value : values) ASSERT_EQ(client->exchange(std::to_string(value), 2), plus) << value;
    }

    std::unique_ptr<Simulator> simulator;
    std::unique_ptr<RawClient> client;
};

TEST_F(Wire, IntroductionIsAnsweredWithPlusAndNul) {
    RawClient other(port);
    EXPECT_EQ(other.exchange(std::string(1023, 'n')), plus);
}

TEST_F(Wire, UnknownCommandIsAnsweredAndRepliesZero) {
    EXPECT_EQ(client->exchange("57"), plus);
    EXPECT_EQ(client->replyText(), "0");
    EXPECT_EQ(client->exchange("38"), plus);
    EXPECT_EQ(client->reply(), 0);
}

TEST_F(Wire, GuardedCommandsWithoutBothLocksFailWithMinusOne) {
    EXPECT_EQ(client->exchange("0"), plus);
    EXPECT_EQ(client->replyText(), "-1");
    EXPECT_EQ(client->exchange("-7"), plus);
    EXPECT_EQ(client->replyText(), "-1");
    // Arguments are still taken off the wire, frame by frame.
    EXPECT_EQ(client->exchange("5"), plus);
    EXPECT_EQ(client->exchange("42", 2), plus);
    EXPECT_EQ(client->replyText(), "-1");
    ASSERT_EQ(client->openSession(), wire("1\0"));
    EXPECT_EQ(client->exchange("5"), plus);
    EXPECT_EQ(client->exchange("42", 2), plus);
    EXPECT_EQ(client->replyText(), "-1");  // the session lock alone is not enough
    ASSERT_EQ(client->commandLock(), wire("1\0"));
    EXPECT_EQ(client->exchange("-7"), plus);
    EXPECT_EQ(client->replyText(), "0");
}

TEST_F(Wire, GuardedCommandsOfEveryArgumentPatternWithLocks) {
    ASSERT_TRUE(client->takeLocks());
    EXPECT_EQ(client->exchange("2"), plus);
    EXPECT_EQ(client->exchange("lenient text"), plus);
    EXPECT_EQ(client->reply(), 0);
    EXPECT_EQ(client->exchange("12"), plus);
    EXPECT_EQ(client->exchange("one", 2), plus);
    EXPECT_EQ(client->exchange("", 2), plus);
    EXPECT_EQ(client->reply(), 0);
    EXPECT_EQ(client->exchange("20"), plus);
    EXPECT_EQ(client->exchange("1", 2), plus);
    EXPECT_EQ(client->exchange("-2", 2), plus);
    EXPECT_EQ(client->reply(), 0);
    EXPECT_EQ(client->exchange("21"), plus);
    for (const char* token : {"1", "header", "2", "", "3", "trailer", "4", "x"})
        EXPECT_EQ(client->exchange(token, 2), plus);
    EXPECT_EQ(client->reply(), 0);
    EXPECT_EQ(client->exchange("3"), plus);
    EXPECT_EQ(client->exchange("a"), plus);
    EXPECT_EQ(client->exchange("b"), plus);
    EXPECT_EQ(client->reply(), 0);
}

TEST_F(Wire, PollIsAnsweredAndTheConversationGoesOn) {
    EXPECT_EQ(client->exchange("8888"), plus);
    EXPECT_EQ(client->exchange("8888"), plus);
    EXPECT_EQ(client->exchange("38"), plus);
    EXPECT_EQ(client->replyText(), "0");
}

TEST_F(Wire, ReplyRequestWithNothingLeftGetsOneNulByte) {
    EXPECT_EQ(client->exchange("38"), plus);
    EXPECT_EQ(client->reply(), 0);
    ASSERT_TRUE(client->send(plus));
    EXPECT_EQ(client->receive(1024), wire("\0"));
}

TEST_F(Wire, CommandFourAnswersEveryFrameThenGrantsTheSessionLock) {
    EXPECT_EQ(client->exchange("4"), plus);
    EXPECT_EQ(client->exchange("application"), plus);
    EXPECT_EQ(client->exchange("user"), plus);
    for (const char* option : {"5", "6", "7", "1", "0", "0", "0", "1", "0", "0"})
        EXPECT_EQ(client->exchange(option), plus);
    ASSERT_TRUE(client->send(plus));
    EXPECT_EQ(client->receive(2), wire("1\0"));
    EXPECT_EQ(client->exchange("38"), plus);  // no integer reply was due after 4
    EXPECT_EQ(client->reply(), 0);
}

TEST_F(Wire, LocksAreGrantedToOneClientAndReleasedBy34And35) {
    RawClient other(port);
    ASSERT_TRUE(other.introduce("other"));
    EXPECT_EQ(client->openSession(), wire("1\0"));
    EXPECT_EQ(client->openSession(), wire("1\0"));  // already held by the asker
    EXPECT_EQ(other.openSession(), wire("0\0"));
    EXPECT_EQ(client->commandLock(), wire("1\0"));
    EXPECT_EQ(other.commandLock(), wire("0\0"));
    EXPECT_EQ(client->exchange("34"), plus);
    EXPECT_EQ(client->reply(), 0);
    EXPECT_EQ(other.commandLock(), wire("1\0"));
    EXPECT_EQ(other.openSession(), wire("0\0"));
    EXPECT_EQ(client->exchange("35"), plus);
    EXPECT_EQ(client->reply(), 0);
    EXPECT_EQ(other.openSession(), wire("1\0"));
    EXPECT_EQ(client->commandLock(), wire("0\0"));
}

TEST_F(Wire, FarewellAndClosingReleaseBothLocks) {
    ASSERT_TRUE(client->takeLocks());
    RawClient other(port);
    ASSERT_TRUE(other.introduce("other"));
    EXPECT_EQ(client->leave(), 0);
    EXPECT_TRUE(other.takeLocks());
    other.close();
    RawClient third(port);
    ASSERT_TRUE(third.introduce("third"));
    // The server sees the close before it serves the next connection's
    // command only if it has read it; ask until it has.
    std::string answer;
    for (int attempt = 0; attempt < 200 && answer != wire("1\0"); ++attempt) answer = third.openSession();
    EXPECT_EQ(answer, wire("1\0"));
    EXPECT_EQ(third.commandLock(), wire("1\0"));
}

TEST_F(Wire, CommandOneRepliesZeroThenTheStatusReport) {
    EXPECT_EQ(client->exchange("1"), plus);
    EXPECT_EQ(client->reply(), 0);
    const std::string report = client->replyText();
    EXPECT_EQ(report.rfind("tetherhost simulator " TETHERHOST_VERSION_STRING ";clients=1;connections=1;heap=", 0), 0U)
        << report;
    EXPECT_GT(statusField(report, "heap"), 0);
    ASSERT_TRUE(client->send(plus));
    EXPECT_EQ(client->receive(1024), wire("\0"));
}

TEST_F(Wire, GenericShiftSingleBlockReadsBackRawTdo) {
    ASSERT_TRUE(client->takeLocks());
    EXPECT_EQ(client->exchange("19"), plus);
    tokens({0, 32, 4, 1});
    ASSERT_TRUE(client->send(std::string(4, '\0')));
    EXPECT_EQ(client->receive(1024), littleEndian(idcode2));
    EXPECT_EQ(client->reply(), 0);
}

TEST_F(Wire, GenericShiftWithoutReadBackIsAnswered) {
    ASSERT_TRUE(client->takeLocks());
    EXPECT_EQ(client->exchange("19"), plus);
    tokens({1, 18, 3, 0});
    ASSERT_TRUE(client->send(wire("\xFF\xFF\x03")));
    EXPECT_EQ(client->receive(1024), plus);
    EXPECT_EQ(client->reply(), 0);
}

TEST_F(Wire, GenericShiftChunkedReadsBackEveryByteInRawChunks) {
    ASSERT_TRUE(client->takeLocks());
    bypassAll();
    const std::string tdi = pattern(3000, 5);
    EXPECT_EQ(client->exchange("19"), plus);
    tokens({0, 24000, 3000, 1});
    for (std::size_t offset = 0; offset < tdi.size(); offset += 1024) {
        ASSERT_TRUE(client->send(tdi.substr(offset, 1024)));
        ASSERT_EQ(client->receive(2), plus);
    }
    std::string tdo;
    for (const std::size_t expected : {1024U, 1024U, 952U}) {
        const std::string chunk = client->receive(1024);
        EXPECT_EQ(chunk.size(), expected);
        tdo += chunk;
        ASSERT_TRUE(client->send(plus));
    }
    EXPECT_EQ(tdo, delayed(tdi, 24000, 3));
    EXPECT_EQ(client->reply(), 0);
}

TEST_F(Wire, GenericShiftChunkedWithoutReadBackEndsWithOneMoreAcknowledgement) {
    ASSERT_TRUE(client->takeLocks());
    EXPECT_EQ(client->exchange("19"), plus);
    tokens({0, 8193, 1025, 0});
    ASSERT_TRUE(client->send(std::string(1024, 'a')));
    EXPECT_EQ(client->receive(2), plus);
    ASSERT_TRUE(client->send("b"));
    EXPECT_EQ(client->receive(2), plus);
    EXPECT_EQ(client->receive(2), plus);
    EXPECT_EQ(client->reply(), 0);
}

TEST_F(Wire, RefusedGenericShiftKeepsTheFramingAndChangesNothing) {
    EXPECT_EQ(client->exchange("19"), plus);
    tokens({1, 18, 3, 1});
    ASSERT_TRUE(client->send(wire("\xFF\xFF\x03")));
    EXPECT_EQ(client->receive(1024), wire("\0\0\0"));
    EXPECT_EQ(client->replyText(), "-1");
    EXPECT_EQ(client->exchange("44"), plus);
    EXPECT_EQ(client->exchange("8", 2), plus);
    EXPECT_EQ(client->reply(), 0);
    EXPECT_EQ(client->replyText(), "Test-Logic-Reset");
}

TEST_F(Wire, SharedApplicationsAreKeptAndListedByCommand43) {
    EXPECT_EQ(client->exchange("41"), plus);
    std::string block = "alpha;beta;";
    block.resize(1024, '\0');
    ASSERT_TRUE(client->send(block));
    EXPECT_EQ(client->receive(2), plus);
    EXPECT_EQ(client->reply(), 2);
    EXPECT_EQ(client->exchange("43"), plus);
    EXPECT_EQ(client->reply(), 2);
    EXPECT_EQ(client->replyText(), "alpha;beta;");
}

TEST_F(Wire, PumpSingleBlockWithReadBackEchoesTheBlock) {
    const std::string block = pattern(100, 9);
    EXPECT_EQ(client->exchange("42"), plus);
    tokens({800, 0, 1});
    ASSERT_TRUE(client->send(block));
    EXPECT_EQ(client->receive(1024), block);
    EXPECT_EQ(client->reply(), 0);  // nothing left in the buffer
}

TEST_F(Wire, PumpChunkedStoresThenReadsBackInPlusFramedChunks) {
    const std::string block = pattern(3000, 10);
    EXPECT_EQ(client->exchange("42"), plus);
    tokens({24000, 0, 0});
    for (std::size_t offset = 0; offset < block.size(); offset += 1024) {
        ASSERT_TRUE(client->send(block.substr(offset, 1024)));
        ASSERT_EQ(client->receive(2), plus);
    }
    EXPECT_EQ(client->receive(2), plus);
    EXPECT_EQ(client->reply(), 3000);

    EXPECT_EQ(client->exchange("42"), plus);
    tokens({24000, 1, 1});
    for (std::size_t offset = 0; offset < block.size(); offset += 1024) {
        ASSERT_TRUE(client->send(std::string(std::min<std::size_t>(1024, block.size() - offset), 'x')));
        ASSERT_EQ(client->receive(2), plus);
    }
    std::string framed;
    for (const std::size_t expected : {1024U, 1024U, 955U}) {
        const std::string chunk = client->receive(1024);
        EXPECT_EQ(chunk.size(), expected);
        EXPECT_EQ(chunk.substr(0, 1), "+");
        framed += chunk;
        ASSERT_TRUE(client->send(plus));
    }
    EXPECT_EQ(unframe(framed), block);
    EXPECT_EQ(client->reply(), 0);
}

TEST_F(Wire, SubCommandsOfEveryPatternAreTakenAndAnswered) {
    struct Case {
        const char* number;
        std::vector<std::string> tokens;
    };
    const std::vector<Case> cases = {
        {"9", {}},
        {"0", {}},
        {"200", {}},
        {"-1", {}},
        {"2", {"7"}},
        {"5", {"1", "2"}},
        {"93", {"1", "2", "3"}},
        {"89", {"0", "2", "0", "4", "0"}},
        {"90", {"1", "2", "3", "4", "5"}},
        {"1", {"text"}},
        {"83", {"a", ""}},
        {"30", {"1", "mid", "2"}},
        {"120", {"5"}},
        {"69", {"3.000000"}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(client->exchange("44"), plus) << c.number;
        EXPECT_EQ(client->exchange(c.number, 2), plus) << c.number;
        for (const std::string& token : c.tokens) EXPECT_EQ(client->exchange(token, 2), plus) << c.number;
        EXPECT_EQ(client->replyText(), "0") << c.number;
    }
}

TEST_F(Wire, SubCommand36TakesOneFixed1024ByteFrame) {
    EXPECT_EQ(client->exchange("44"), plus);
    EXPECT_EQ(client->exchange("36", 2), plus);
    std::string frame = "3.000000";
    frame.resize(1024, '\0');
    ASSERT_TRUE(client->send(frame));
    EXPECT_EQ(client->receive(2), plus);
    EXPECT_EQ(client->reply(), 0);
    EXPECT_EQ(client->exchange("38"), plus);
    EXPECT_EQ(client->reply(), 0);
}

TEST_F(Wire, ChainAndStateQueriesAnswerWithTextReplies) {
    EXPECT_EQ(client->exchange("44"), plus);
    EXPECT_EQ(client->exchange("7", 2), plus);
    EXPECT_EQ(client->reply(), 3);
    EXPECT_EQ(client->replyText(), defaultChainText);
    EXPECT_EQ(client->exchange("44"), plus);
    EXPECT_EQ(client->exchange("4", 2), plus);
    EXPECT_EQ(client->reply(), 0);
    EXPECT_EQ(client->exchange("44"), plus);
    EXPECT_EQ(client->exchange("8", 2), plus);
    EXPECT_EQ(client->reply(), 1);
    EXPECT_EQ(client->replyText(), "Run-Test/Idle");
}

TEST_F(Wire, ADataScanSplitAtPauseDrReadsTheIdcodesAsOneScanDoes) {
    const auto subCommand = [&](const char* number, std::initializer_list<const char*> arguments) {
        EXPECT_EQ(client->exchange("44"), plus);
        EXPECT_EQ(client->exchange(number, 2), plus);
        for (const char* argument : arguments) EXPECT_EQ(client->exchange(argument, 2), plus);
        return client->reply();
    };
    const auto scan = [&](int bitCount) {
        JtagShift shift;
        shift.bitCount = bitCount;
        shift.withSecond = 1;
        shift.first = std::string(static_cast<std::size_t>(bitCount + 7) / 8, '\0');
        shift.second = shift.first;
        const JtagShiftReply reply = client->jtagShift(shift);
        EXPECT_TRUE(reply.framed);
        EXPECT_EQ(reply.status, wire("0\0"));
        EXPECT_EQ(client->reply(), 0);
        return reply.readBack;
    };
    EXPECT_EQ(subCommand("18", {"6"}), 0);  // data scans end in Pause-DR
    const std::string first = scan(40);
    EXPECT_EQ(subCommand("8", {}), 6);
    EXPECT_EQ(client->replyText(), "Pause-DR");
    EXPECT_EQ(subCommand("18", {"1"}), 0);  // and now in Run-Test/Idle
    const std::string second = scan(56);
    std::vector<bool> bits;
    for (std::size_t i = 0; i < 40; ++i) bits.push_back(bitOf(first, i));
    for (std::size_t i = 0; i < 56; ++i) bits.push_back(bitOf(second, i));
    EXPECT_EQ(bitString(bits), idcodes);
    // RUNTEST: 2^32 + 5 cycles at 1 MHz, on the virtual clock, after the
    // scans' 105 (to Capture-DR 3, to Shift 1, 40 bits, to Pause 1; to Exit2
    // and Shift 2, 56 bits, to Update and Run-Test/Idle 2).
    EXPECT_EQ(subCommand("89", {"1", "5", "0", "0", "0"}), 0);
    EXPECT_EQ(subCommand("9", {}), 0);
    EXPECT_EQ(client->replyText(), "tck_hz=1000000;cycles=4294967406;virtual_ns=4294967406000;trst=0;");
    EXPECT_EQ(subCommand("17", {"3"}), -2);  // Capture-DR is no end state
}

TEST_F(Wire, JtagShiftReadsTheIdcodesAfterReset) {
    EXPECT_EQ(client->exchange("44"), plus);
    EXPECT_EQ(client->exchange("3", 2), plus);
    EXPECT_EQ(client->reply(), 0);
    JtagShift shift;
    shift.bitCount = 96;
    shift.withSecond = 1;
    shift.first = std::string(12, '\0');
    const JtagShiftReply reply = client->jtagShift(shift);
    EXPECT_TRUE(reply.framed);
    EXPECT_EQ(reply.status, wire("0\0"));
    EXPECT_EQ(reply.readBack, idcodes);
    EXPECT_EQ(client->reply(), 0);
}

TEST_F(Wire, JtagShiftComparesWithTheExpectedValueUnderTheMask) {
    JtagShift shift;
    shift.bitCount = 32;
    shift.withSecond = 1;
    shift.withThird = 1;
    shift.first = std::string(4, '\0');
    shift.second = littleEndian(idcode2 ^ 0x00010100U);
    shift.third = wire("\xFF\xFF\xFF\xFF");
    const JtagShiftReply mismatching = client->jtagShift(shift);
    EXPECT_EQ(mismatching.status, wire("0\0"));
    EXPECT_EQ(mismatching.readBack, littleEndian(idcode2));
    EXPECT_EQ(client->reply(), 2);
    shift.third = wire("\xFF\0\0\xFF");  // the differing bits are masked out
    client->jtagShift(shift);
    EXPECT_EQ(client->reply(), 0);
}

TEST_F(Wire, JtagShiftWithoutReadBackSendsTheStatusOnly) {
    JtagShift shift;
    shift.bitCount = 32;
    shift.withSecond = 1;
    shift.flags = 2;
    shift.first = std::string(4, '\0');
    shift.second = std::string(4, '\0');
    EXPECT_EQ(client->jtagShift(shift).status, wire("0\0"));
    EXPECT_EQ(client->replyText(), "0");
    shift.flags = 0;
    shift.withSecond = 2;  // even: the second block goes, nothing comes back
    EXPECT_EQ(client->jtagShift(shift).status, wire("0\0"));
    EXPECT_EQ(client->replyText(), "0");
}

TEST_F(Wire, JtagShiftOfZeroBitsSendsOneByteBlocksAndOneReadBackByte) {
    JtagShift shift;
    shift.withSecond = 1;
    const JtagShiftReply reply = client->jtagShift(shift);
    EXPECT_TRUE(reply.framed);
    EXPECT_EQ(reply.status, wire("0\0"));
    EXPECT_EQ(reply.readBack, wire("\0"));
    EXPECT_EQ(client->reply(), 0);
}

TEST_F(Wire, JtagShiftChunkedReadsBackPlusFramedChunks) {
    bypassAll();
    JtagShift shift;
    shift.bitCount = 20000;
    shift.withSecond = 1;
    shift.withThird = 1;
    shift.first = pattern(2500, 21);
    shift.second = std::string(2500, '\0');
    shift.third = std::string(2500, '\0');
    const JtagShiftReply reply = client->jtagShift(shift);
    EXPECT_TRUE(reply.framed);
    EXPECT_EQ(reply.status, wire("0\0"));
    ASSERT_EQ(reply.readBack.size(), 3U + 2500U);  // three chunks of "+" and up to 1023 bytes
    EXPECT_EQ(reply.readBack[0], '+');
    EXPECT_EQ(reply.readBack[1024], '+');
    EXPECT_EQ(reply.readBack[2048], '+');
    EXPECT_EQ(unframe(reply.readBack), delayed(shift.first, 20000, 3));
    EXPECT_EQ(client->reply(), 0);
}

TEST_F(Wire, JtagShiftLongerThanTheModelReportsMinusFiveAndNoReadBack) {
    JtagShift shift;
    shift.bitCount = 32 * 1024 * 1024 + 8;
    shift.withSecond = 1;
    shift.second = "";
    const JtagShiftReply reply = client->jtagShift(shift);
    EXPECT_TRUE(reply.framed);
    EXPECT_EQ(reply.status, wire("-5\0"));
    EXPECT_EQ(reply.readBack, "");
    EXPECT_EQ(client->exchange("38"), plus);
    EXPECT_EQ(client->reply(), 0);
}

TEST_F(Wire, I2cWriteGoesToTheEepromAt0x50BitReversedOnTheWire) {
    // Command 46: word address 16, bus address 0x50 (sent reversed: 10), 16 bits.
    EXPECT_EQ(client->exchange("46"), plus);
    tokens({16, 10, 16, 0});
    ASSERT_TRUE(client->send(wire("\x80\x48")));  // 0x01 and 0x12, reversed
    EXPECT_EQ(client->receive(2), plus);
    EXPECT_EQ(client->reply(), 0);
    // Command 48 writes two more bytes and reads them back unreversed.
    EXPECT_EQ(client->exchange("48"), plus);
    tokens({18, 10, 16, 0});
    ASSERT_TRUE(client->send(wire("\x0A\xA5")));
    EXPECT_EQ(client->receive(1024), wire("\x50\xA5"));
    EXPECT_EQ(client->reply(), 0);
    // Command 47 reads four bytes, then writes one and reads it back.
    EXPECT_EQ(client->exchange("47"), plus);
    tokens({16, 10, 32, 0});
    EXPECT_EQ(client->receive(1024), wire("\x01\x12\x50\xA5"));
    tokens({20, 10, 8, 0});
    ASSERT_TRUE(client->send(wire("\x80")));
    EXPECT_EQ(client->receive(1024), wire("\x01"));
    EXPECT_EQ(client->reply(), 0);
}

TEST_F(Wire, I2cOtherBusAddressIsNotAcknowledged) {
    EXPECT_EQ(client->exchange("48"), plus);
    tokens({0, 0x8A, 8, 0});  // 0x51 reversed
    ASSERT_TRUE(client->send(wire("\x80")));
    EXPECT_EQ(client->receive(1024), wire("\xFF"));
    EXPECT_EQ(client->reply(), -3);
}

TEST_F(Wire, I2cChunkedReadBackIsPlusFramedAndWraps) {
    const auto readFramed = [&](std::initializer_list<std::size_t> sizes) {
        std::string framed;
        for (const std::size_t expected : sizes) {
            const std::string chunk = client->receive(1024);
            EXPECT_EQ(chunk.size(), expected);
            EXPECT_EQ(chunk.substr(0, 1), "+");
            framed += chunk;
            EXPECT_TRUE(client->send(plus));
        }
        return unframe(framed);
    };
    // A write longer than the 256-byte memory is refused; the read-back
    // still comes, two chunks of "+" and data, wrapping around the memory.
    EXPECT_EQ(client->exchange("48"), plus);
    tokens({0, 10, 8200, 0});
    const std::string data(1025, '\0');
    ASSERT_TRUE(client->send(data.substr(0, 1024)));
    EXPECT_EQ(client->receive(2), plus);
    ASSERT_TRUE(client->send(data.substr(1024)));
    EXPECT_EQ(client->receive(2), plus);
    EXPECT_EQ(readFramed({1024U, 3U}), std::string(1025, '\xFF'));
    EXPECT_EQ(client->reply(), -2);
    // Command 47: the read-only transfer, then a write and its read-back.
    EXPECT_EQ(client->exchange("47"), plus);
    tokens({0, 10, 8200, 0});
    EXPECT_EQ(readFramed({1024U, 3U}), std::string(1025, '\xFF'));
    tokens({0, 10, 8, 0});
    ASSERT_TRUE(client->send(wire("\x80")));
    EXPECT_EQ(client->receive(1024), wire("\x01"));
    EXPECT_EQ(client->reply(), 0);
}

TEST_F(Wire, SspiWriteReadAndBothInOneCommand) {
    EXPECT_EQ(client->exchange("50"), plus);
    tokens({256, 24, 0});
    ASSERT_TRUE(client->send(wire("\x11\x22\x33")));
    EXPECT_EQ(client->receive(2), plus);
    EXPECT_EQ(client->reply(), 0);
    EXPECT_EQ(client->exchange("52"), plus);
    tokens({259, 8, 0});
    ASSERT_TRUE(client->send(wire("\x44")));
    EXPECT_EQ(client->receive(1024), wire("\x44"));
    EXPECT_EQ(client->reply(), 0);
    EXPECT_EQ(client->exchange("51"), plus);
    tokens({256, 32, 0});
    EXPECT_EQ(client->receive(1024), wire("\x11\x22\x33\x44"));
    tokens({256, 8, 1});  // erase the sector first
    ASSERT_TRUE(client->send(wire("\x5A")));
    EXPECT_EQ(client->receive(1024), wire("\x5A"));
    EXPECT_EQ(client->reply(), 0);
    EXPECT_EQ(client->exchange("51"), plus);
    tokens({257, 8, 0});
    EXPECT_EQ(client->receive(1024), wire("\xFF"));
    tokens({65535, 16, 0});
    ASSERT_TRUE(client->send(wire("\x01\x02")));
    EXPECT_EQ(client->receive(1024), wire("\xFF\xFF"));
    EXPECT_EQ(client->reply(), -2);
}

TEST_F(Wire, SspiChunkedWriteAndRawChunkedReadBack) {
    const std::string data = pattern(3000, 31);
    EXPECT_EQ(client->exchange("52"), plus);
    tokens({4096, 24000, 0});
    for (std::size_t offset = 0; offset < data.size(); offset += 1024) {
        ASSERT_TRUE(client->send(data.substr(offset, 1024)));
        ASSERT_EQ(client->receive(2), plus);
    }
    std::string back;
    for (const std::size_t expected : {1024U, 1024U, 952U}) {
        const std::string chunk = client->receive(1024);
        EXPECT_EQ(chunk.size(), expected);
        back += chunk;
        ASSERT_TRUE(client->send(plus));
    }
    EXPECT_EQ(back, data);
    EXPECT_EQ(client->reply(), 0);
}

TEST_F(Wire, OneCallShiftWithFixedFramesLoadsBypass) {
    const auto frame = [](const std::string& text) {
        std::string bytes = text;
        bytes.resize(1024, '\0');
        return bytes;
    };
    for (const char* token : {"44", "12", "1", "18"}) {
        ASSERT_TRUE(client->send(frame(token)));
        ASSERT_EQ(client->receive(2), plus) << token;
    }
    ASSERT_TRUE(client->send(frame(wire("\xFF\xFF\x03"))));
    EXPECT_EQ(client->receive(2), plus);
    for (int slot = 0; slot < 2; ++slot) {
        ASSERT_TRUE(client->send(std::string(1024, '\0')));
        EXPECT_EQ(client->receive(2), plus);
    }
    JtagShift shift;
    shift.bitCount = 8;
    shift.withSecond = 1;
    shift.first = wire("\xFF");
    EXPECT_EQ(client->jtagShift(shift).readBack, wire("\xF8"));  // three BYPASS zeros, then ones
    EXPECT_EQ(client->reply(), 0);
}

TEST_F(Wire, OneCallLargeShiftWithOneTwoAndThreeSlotsKeepsTheConversation) {
    const auto frame = [](const std::string& text) {
        std::string bytes = text;
        bytes.resize(1024, '\0');
        return bytes;
    };
    const std::string first = pattern(2049, 41);  // 16392 bits: three chunks
    const std::vector<std::string> chunks = {first.substr(0, 1024), first.substr(1024, 1024), first.substr(2048)};
    for (int slotsWithData = 1; slotsWithData <= 3; ++slotsWithData) {
        for (const char* token : {"44", "12", "0", "16392"}) {
            ASSERT_TRUE(client->send(frame(token)));
            ASSERT_EQ(client->receive(2), plus) << token;
        }
        for (int slot = 0; slot < 3; ++slot) {
            if (slot < slotsWithData) {
                for (const std::string& chunk : chunks) {
                    ASSERT_TRUE(client->send(chunk));
                    ASSERT_EQ(client->receive(2), plus);
                }
            } else if (slot == slotsWithData || slotsWithData == 1) {
                ASSERT_TRUE(client->send(std::string(1024, '\0')));
                ASSERT_EQ(client->receive(2), plus);
            }
        }
        EXPECT_EQ(client->exchange("38"), plus) << slotsWithData << " slots";
        EXPECT_EQ(client->replyText(), "0") << slotsWithData << " slots";
    }
}

}  // namespace
}  // namespace tetherhost::test

// SPDX-License-Identifier: MIT
/* The session layer against the simulator on 127.0.0.1:4001, in namespaces
 * of its own (RunIsolated.sh): the locks a Session holds and gives back, each
 * typed call family with the values the built-in chain and peripherals give,
 * the checks of the runtime-typed calls, and what an Error carries. */
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdint>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <tetherhost/session.hpp>

#include "SimulatorHarness.h"
#include "TempDir.h"

namespace tetherhost::test {
namespace {

constexpr int serverPort = 4001;
namespace sub = vocabulary::sub;

Bytes bytesOf(const std::string& text) { return Bytes(text.begin(), text.end()); }

/* Command 4 from a Client of its own beside the session: 0 when the session
 * lock was free, -1 when a session holds it. It leaves at once. */
int sessionLockAnswer() {
    char name[] = "prober";
    Client other(name);
    EXPECT_EQ(other.Connect(nullptr, nullptr, nullptr), 0);
    char application[] = "probe";
    char version[] = "1";
    const int answer = other.Send(4, application, version, 0);
    other.Disconnect();
    return answer;
}

std::vector<std::string> fileLines(const std::string& path) {
    std::vector<std::string> lines;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

class SessionTest : public ::testing::Test {
protected:
    void SetUp() override {
        simulator = Simulator::start(serverPort);
        ASSERT_NE(simulator, nullptr) << "the simulator did not start on port 4001";
    }

    std::unique_ptr<Simulator> simulator;
};

TEST_F(SessionTest, HoldsBothLocksUntilDestroyed) {
    {
        Session session("holder");
        EXPECT_TRUE(session.isOpen());
        EXPECT_EQ(sessionLockAnswer(), -1);
    }
    EXPECT_EQ(sessionLockAnswer(), 0);
}

TEST_F(SessionTest, CloseGivesTheLocksBackAndLeavesTheSessionClosed) {
    Session session("closer");
    session.close();
    EXPECT_FALSE(session.isOpen());
    EXPECT_EQ(sessionLockAnswer(), 0);
    EXPECT_THROW(session.send<38>(), SessionClosed);
    session.close();
}

TEST_F(SessionTest, AMovedSessionKeepsItsConnectionAndLocks) {
    Session first("mover");
    Session second(std::move(first));
    // The moved-from state is what is checked here.
    EXPECT_FALSE(first.isOpen());  // NOLINT(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
    EXPECT_EQ(second.send<38>(), 0);
    EXPECT_EQ(sessionLockAnswer(), -1);
    first = std::move(second);
    EXPECT_FALSE(second.isOpen());  // NOLINT(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
    EXPECT_EQ(first.send<38>(), 0);
    EXPECT_EQ(sessionLockAnswer(), -1);
    first.close();
    EXPECT_EQ(sessionLockAnswer(), 0);
}

TEST_F(SessionTest, ASecondSessionIsRefusedWithTheLibrarysStatusAndLeaves) {
    Session first("first");
    TempDir directory;
    SessionOptions options;
    options.log = directory.file("second.log");
    try {
        Session second("second", options);
        FAIL() << "the second session opened";
    } catch (const Error& error) {
        EXPECT_EQ(error.status(), -1);
        EXPECT_FALSE(error.fromServer());
        EXPECT_EQ(error.text(), "the server refused the lock (or the log file could not be opened)");
        EXPECT_EQ(error.operation(), "opening the session (command 4)");
        // "1076": the server did not grant the lock. The disconnect that
        // followed posted more, which the error does not report.
        EXPECT_EQ(error.message(), "1076");
        EXPECT_STREQ(error.what(),
                     "opening the session (command 4): status -1: the server refused the lock (or the log file "
                     "could not be opened) (last message 1076)");
    }
    EXPECT_EQ(detail::recogniseMessage(fileLines(options.log).back()), "1028");  // disconnected
    EXPECT_EQ(first.send<1>(), 0);
    const std::string report = first.readText();
    EXPECT_NE(report.find(";clients=1;"), std::string::npos) << report;
}

TEST_F(SessionTest, CommandsByNumberReplyAsTheServerDoes) {
    Session session("numbers");
    EXPECT_EQ(session.send<38>(), 0);
    EXPECT_EQ(session.send<5>(7), 0);  // lock-guarded: sent, since the session holds both locks
    EXPECT_EQ(session.send<20>(1, std::int16_t{2}), 0);
    EXPECT_EQ(session.send<2>(std::string("a text")), 0);
    EXPECT_EQ(session.send<3>("one", "two"), 0);
    EXPECT_EQ(session.send<21>(1, "h1", 2, "t1", 3, "h2", 4, "t2"), 0);
    EXPECT_EQ(session.send<57>(), 0);  // unknown to the library: sent without arguments
}

TEST_F(SessionTest, ADataScanAfterResetReturnsTheThreeIdcodes) {
    Session session("idcodes");
    EXPECT_EQ(session.jtag<sub::resetTaps>(), 0);
    const Bytes tdo = session.scanDr(96, Bytes(12, 0));
    EXPECT_EQ(tdo, bytesOf(littleEndian(idcode2) + littleEndian(idcode1) + littleEndian(idcode0)));
}

TEST_F(SessionTest, AnInstructionScanCapturesAndBypassDelaysTheDataScan) {
    Session session("bypass");
    // Each device captures binary ...01 into its instruction register: 8,
    // 6 and 4 bits, the device nearest TDO first.
    std::vector<bool> captured;
    for (const std::size_t length : {8, 6, 4})
        for (std::size_t bit = 0; bit < length; ++bit) captured.push_back(bit == 0);
    EXPECT_EQ(session.scanIr(18, Bytes{0xFF, 0xFF, 0x03}), bytesOf(bitString(captured)));
    const std::string tdi = pattern(8, 7);
    EXPECT_EQ(session.scanDr(64, tdi), bytesOf(delayed(tdi, 64, 3)));
}

TEST_F(SessionTest, AChunkedScanReturnsItsTdoWithoutTheChunksFraming) {
    Session session("chunks");
    session.scanIr(18, Bytes{0xFF, 0xFF, 0x03});
    const std::string tdi = pattern(1125, 11);
    EXPECT_EQ(session.scanDr(9000, tdi), bytesOf(delayed(tdi, 9000, 3)));
    // Two chunks carry 2 x 1023 bytes: the last two bytes of a 2048-byte
    // scan do not come back.
    constexpr std::size_t longBytes = 2048;
    const std::string longer = pattern(longBytes, 12);
    const Bytes tdo = session.scanDr(static_cast<int>(longBytes * 8), longer);
    EXPECT_EQ(tdo, bytesOf(delayed(longer, longBytes * 8, 3).substr(0, 2046)));
}

TEST_F(SessionTest, ACompareScanCountsTheMismatchedBits) {
    Session session("compare");
    session.jtag<sub::resetTaps>();
    const Bytes idcode = bytesOf(littleEndian(idcode2));
    const Bytes mask(4, 0xFF);
    const Checked same = session.scanDr(32, Bytes(4, 0), idcode, mask);
    EXPECT_EQ(same.mismatchedBits, 0);
    EXPECT_TRUE(same.matched());
    EXPECT_EQ(same.tdo, idcode);
    Bytes wrong = idcode;
    wrong[0] ^= 0x07;
    const Checked differing = session.scanDr(32, Bytes(4, 0), wrong, mask);
    EXPECT_EQ(differing.mismatchedBits, 3);
    EXPECT_FALSE(differing.matched());
    EXPECT_EQ(differing.tdo, idcode);
}

TEST_F(SessionTest, TheChainIsDescribedDeviceByDevice) {
    Session session("chain");
    const std::vector<Device> devices = session.chain();
    ASSERT_EQ(devices.size(), 3U);
    const std::string names[] = {"tap0", "tap1", "tap2"};
    const int lengths[] = {4, 6, 8};
    const std::uint32_t idcodes[] = {idcode0, idcode1, idcode2};
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(devices[i].name, names[i]);
        EXPECT_EQ(devices[i].irLength, lengths[i]);
        EXPECT_EQ(devices[i].idcode, idcodes[i]);
    }
}

TEST_F(SessionTest, SspiProgramsAndReadsBackSingleBlocksAndChunks) {
    Session session("sspi");
    EXPECT_EQ(session.sspiWrite(0x100, Bytes{0x12, 0x34}), 0);
    EXPECT_EQ(session.sspiTransfer(0x100, Bytes{0xFF, 0xFF}), (Bytes{0x12, 0x34}));
    const Bytes data = bytesOf(pattern(2000, 3));
    EXPECT_EQ(session.sspiWrite(0x1000, data), 0);
    EXPECT_EQ(session.sspiTransfer(0x1000, Bytes(2000, 0xFF)), data);
}

TEST_F(SessionTest, I2cReadsBackWhatItWrote) {
    Session session("i2c");
    EXPECT_EQ(session.i2cWrite(0x50, 0x10, Bytes{0xA5, 0x01}), 0);
    EXPECT_EQ(session.i2cTransfer(0x50, 0x20, Bytes{0x01, 0x12, 0x50}), (Bytes{0x01, 0x12, 0x50}));
}

TEST_F(SessionTest, AServerRefusalIsAnErrorFromTheServer) {
    TempDir directory;
    SessionOptions options;
    options.log = directory.file("refusal.log");
    Session session("refused", options);
    try {
        session.i2cWrite(0x51, 0, Bytes{1});
        FAIL() << "no error";
    } catch (const Error& error) {
        EXPECT_EQ(error.status(), -3);
        EXPECT_TRUE(error.fromServer());
        EXPECT_EQ(error.text(), "no I2C device answers that bus address");
        EXPECT_EQ(error.operation(), "command 46");
        EXPECT_EQ(error.message(), "1021");  // the integer reply, received
    }
    EXPECT_EQ(session.send<38>(), 0);
}

TEST_F(SessionTest, PumpDataComesBackInOrder) {
    Session session("pump");
    EXPECT_EQ(session.pump(Bytes{1, 2, 3, 4}, 2), 4);
    EXPECT_EQ(session.pumpTransfer(Bytes(4, 0), 1), (Bytes{1, 2, 3, 4}));
    EXPECT_EQ(session.pump(Bytes{9}, 0), 1);
    EXPECT_THROW(session.pumpTransfer(Bytes(1025, 0), 1), std::length_error);
}

TEST_F(SessionTest, TheReadersTakeTextListAndReturnedData) {
    Session session("readers");
    EXPECT_EQ(session.send<1>(), 0);
    EXPECT_EQ(session.readText().rfind("tetherhost simulator 1.0.0;clients=1;", 0), 0U);
    EXPECT_EQ(session.send<41>("alpha", std::string("beta")), 2);
    EXPECT_EQ(session.send<43>(), 2);
    EXPECT_EQ(session.readList(), (std::vector<std::string>{"alpha", "beta"}));
    EXPECT_EQ(session.jtag<sub::tapState>(), 0);
    EXPECT_EQ(session.readText(), "Test-Logic-Reset");
    EXPECT_EQ(session.readInt(), 0);  // nothing left: an empty reply
    EXPECT_EQ(session.send<19>(0, 32, 1, Bytes(4, 0)), 0);
    EXPECT_EQ(session.readData(32), bytesOf(littleEndian(idcode2)));
    try {
        session.readData(32);
        FAIL() << "the data came twice";
    } catch (const Error& error) {
        EXPECT_EQ(error.status(), -1022);
        EXPECT_EQ(error.text(), "no scan return data to collect");
    }
}

TEST_F(SessionTest, RuntimeTypedCallsCheckTheirArgumentsBeforeSending) {
    Session session("runtime");
    EXPECT_EQ(session.send(38, {}), 0);
    EXPECT_EQ(session.send(44, {sub::describeChain}), 3);
    EXPECT_EQ(session.readList().size(), 3U);
    EXPECT_EQ(session.send(41, {std::string("a"), std::string("b"), std::string("c")}), 3);
    EXPECT_EQ(session.jtag(sub::drEndState, {1}), 0);
    try {
        session.send(5, {std::string("5")});
        FAIL() << "a text went as an int";
    } catch (const ArgumentError& error) {
        EXPECT_STREQ(error.what(), "command 5: argument 1 is an int, not a text");
    }
    try {
        session.jtag(89, {1, 2});
        FAIL() << "two ints went for five";
    } catch (const ArgumentError& error) {
        EXPECT_STREQ(error.what(),
                     "command 44, sub-command 89 takes an int, an int, an int, an int, an int, not 2 "
                     "arguments");
    }
    EXPECT_THROW(session.send(5, {}), ArgumentError);
    EXPECT_THROW(session.send(33, {}), ArgumentError);
    EXPECT_THROW(session.send(44, {std::string("7")}), ArgumentError);
    EXPECT_THROW(session.jtag(12, {}), ArgumentError);
    EXPECT_THROW(session.send(19, {0, 64, 1, Bytes(4)}), std::length_error);
    EXPECT_EQ(session.send(38, {}), 0);  // nothing went out of step
}

TEST_F(SessionTest, BadDataIsRefusedBeforeAnythingIsSent) {
    Session session("refusals");
    EXPECT_THROW(session.scanDr(33, Bytes(4)), std::length_error);
    EXPECT_THROW(session.scanDr(-1, Bytes(4)), std::invalid_argument);
    EXPECT_THROW(session.send<19>(0, 64, 1, Bytes(4)), std::length_error);
    EXPECT_THROW(session.send<2>(std::string(1024, 'a')), std::length_error);
    EXPECT_THROW(session.send<2>(std::string("a\0b", 3)), std::invalid_argument);
    EXPECT_THROW(session.send<41>(std::string(101, 'n')), std::length_error);
    EXPECT_THROW(session.sspiWrite(0, Bytes{}), std::invalid_argument);
    EXPECT_EQ(session.send<38>(), 0);
    EXPECT_THROW(Session(std::string(1024, 'n')), std::length_error);
}

TEST_F(SessionTest, AServerThatGoesAwayBreaksTheSession) {
    TempDir directory;
    SessionOptions options;
    options.log = directory.file("gone.log");
    std::size_t linesAtFailure = 0;
    {
        Session session("abandoned", options);
        ASSERT_EQ(simulator->stop(SIGTERM), 0);
        try {
            session.send<38>();
            FAIL() << "no error";
        } catch (const Error& error) {
            EXPECT_EQ(error.status(), -1002);
            EXPECT_FALSE(error.fromServer());
            EXPECT_EQ(error.text(), "no answer from the server, or its answer was not an acknowledgement");
            EXPECT_EQ(error.operation(), "command 38");
            EXPECT_EQ(error.message(), "1010");  // no answer to the command frame
        }
        try {
            session.send<38>();
            FAIL() << "a broken session sent again";
        } catch (const Error& error) {
            EXPECT_EQ(error.status(), -1002);
            EXPECT_EQ(error.operation(), "the connection failed earlier");
        }
        linesAtFailure = fileLines(options.log).size();
    }
    // Destroyed without another word to the server: nothing more was logged.
    EXPECT_EQ(fileLines(options.log).size(), linesAtFailure);
}

TEST(SessionTables, EveryStatusCodeHasItsText) {
    EXPECT_STREQ(describe(0), "success");
    EXPECT_STREQ(describe(-1022), "no scan return data to collect");
    EXPECT_STREQ(describe(4711), "not a status code of the tetherhost library");
    EXPECT_STREQ(describeReply(-3), "no I2C device answers that bus address");
    EXPECT_STREQ(describeReply(-99), "a negative reply the server gives no meaning to");
}

TEST(SessionTables, LogLinesAreRecognisedByTheirTemplates) {
    EXPECT_EQ(detail::recogniseMessage("board1: received integer reply '0'"), "1021");
    EXPECT_EQ(
        detail::recogniseMessage("board1: could not send the command frame to the tetherhost server for client board1"),
        "1009");
    EXPECT_EQ(detail::recogniseMessage("board1: lock released, the session lock flag is now 0"), "1012");
    EXPECT_EQ(detail::recogniseMessage("board1: command 44 sent and answered by the server"), "1093");
    EXPECT_EQ(detail::recogniseMessage("no message reads like this"), "");
    EXPECT_EQ(detail::recogniseMessage(""), "");
}

}  // namespace
}  // namespace tetherhost::test

// SPDX-License-Identifier: MIT
/* The remote_bitbang door of the simulator process: Debian's OpenOCD
 * initialising the built-in chain through it and reading what the library
 * reads, an SVF file played by OpenOCD with its TDO checks, and the rule
 * that an open door owns the chain (the library's chain operations are
 * answered -7 and clock nothing until it closes). Each test runs its own
 * simulator in a private network namespace and synchronises on its trace. */
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "SimulatorHarness.h"

namespace tetherhost::test {
namespace {

constexpr int port = TETHERHOST_TEST_PORT;
constexpr int doorPort = TETHERHOST_TEST_DOOR_PORT;
const std::string chainOwned = "-7";

class RemoteBitbangDoor : public ::testing::Test {
protected:
    void SetUp() override {
        const std::string tracePath = scratch.file("trace");
        simulator = Simulator::start(port, {"--trace", tracePath, "--remote-bitbang", std::to_string(doorPort)});
        ASSERT_NE(simulator, nullptr);
        trace = std::make_unique<TraceFollower>(tracePath);
    }

    /** Runs OpenOCD on the door with the built-in chain declared (the first
     * TAP declared is the one next to TDO) and `commands` after init; its
     * exit status, and what it printed in `log`. */
    int openocd(const std::vector<std::string>& commands, std::string& log) {
        std::vector<std::string> arguments = openOcdOnDoor(TETHERHOST_OPENOCD, doorPort);
        std::vector<std::string> all = {"jtag newtap tap2 tap -irlen 8 -expected-id 0x07b421ff",
                                        "jtag newtap tap1 tap -irlen 6 -expected-id 0x23e171ff",
                                        "jtag newtap tap0 tap -irlen 4 -expected-id 0x10a5c1ff", "init"};
        all.insert(all.end(), commands.begin(), commands.end());
        all.push_back("shutdown");
        for (const std::string& command : all) arguments.insert(arguments.end(), {"-c", command});
        return runTool(arguments, scratch.file("openocd.out"), log);
    }

    /** A library-side client of the simulator: introduced, both locks held. */
    std::unique_ptr<RawClient> libraryClient() {
        auto client = std::make_unique<RawClient>(port);
        EXPECT_TRUE(client->introduce("library"));
        EXPECT_TRUE(client->takeLocks());
        return client;
    }

    ScratchDir scratch;
    std::unique_ptr<Simulator> simulator;
    std::unique_ptr<TraceFollower> trace;
};

TEST_F(RemoteBitbangDoor, OpenOcdFindsEveryIdcodeOfTheBuiltInChain) {
    std::string log;
    ASSERT_EQ(openocd({"scan_chain"}, log), 0) << log;
    EXPECT_NE(log.find("tap2.tap tap/device found: 0x07b421ff"), std::string::npos) << log;
    EXPECT_NE(log.find("tap1.tap tap/device found: 0x23e171ff"), std::string::npos) << log;
    EXPECT_NE(log.find("tap0.tap tap/device found: 0x10a5c1ff"), std::string::npos) << log;
    EXPECT_NE(log.find(" 2 tap0.tap               Y     0x10a5c1ff 0x10a5c1ff     4 0x01  0x03"), std::string::npos)
        << log;
    EXPECT_EQ(log.find("Error"), std::string::npos) << log;
    EXPECT_TRUE(trace->waitFor("closed: quit"));
}

TEST_F(RemoteBitbangDoor, OpenOcdScansReadWhatTheLibraryReads) {
    std::string log;
    // tap1 selects IDCODE with 0x09; OpenOCD puts the other two in BYPASS.
    ASSERT_EQ(openocd({"irscan tap1.tap 0x09", "echo \"dr [drscan tap1.tap 32 0]\""}, log), 0) << log;
    EXPECT_NE(log.find("dr 23e171ff"), std::string::npos) << log;
    ASSERT_TRUE(trace->waitFor("closed: quit"));

    // The library's scan of the same register, on the chain as OpenOCD left it.
    auto client = libraryClient();
    JtagShift shift;
    shift.bitCount = 34;  // tap0's and tap2's BYPASS around tap1's IDCODE
    shift.withSecond = 1;
    shift.first = std::string(5, '\0');
    shift.second = std::string(5, '\0');
    const JtagShiftReply reply = client->jtagShift(shift);
    ASSERT_TRUE(reply.framed);
    ASSERT_EQ(reply.status, wire("0\0"));
    ASSERT_EQ(reply.readBack.size(), 5U);
    std::string idcode(4, '\0');
    for (std::size_t bit = 0; bit < 32; ++bit)
        if (bitOf(reply.readBack, bit + 1)) idcode[bit / 8] = static_cast<char>(idcode[bit / 8] | (1 << (bit % 8)));
    EXPECT_EQ(idcode, littleEndian(0x23E171FFU));
}

/* An SVF file that checks the three IDCODEs after reset (SVF writes the
 * first bit shifted rightmost), then BYPASS on every device. */
std::string idcodeSvf(const std::string& expectedIdcodes) {
    return "TRST OFF;\nENDIR IDLE;\nENDDR IDLE;\nSTATE RESET;\nSTATE IDLE;\n"
           "SDR 96 TDI (000000000000000000000000) TDO (" +
           expectedIdcodes +
           ") MASK (FFFFFFFFFFFFFFFFFFFFFFFF);\n"
           "SIR 18 TDI (3FFFF);\nSDR 3 TDI (7) TDO (0) MASK (7);\nRUNTEST 100 TCK;\n";
}

TEST_F(RemoteBitbangDoor, OpenOcdPlaysAnSvfFileWhoseTdoChecksPass) {
    const std::string svf = scratch.file("idcodes.svf");
    std::ofstream(svf) << idcodeSvf("10A5C1FF23E171FF07B421FF");
    std::string log;
    ASSERT_EQ(openocd({"svf " + svf}, log), 0) << log;
    EXPECT_NE(log.find("svf file programmed successfully for 9 commands with 0 errors"), std::string::npos) << log;
}

TEST_F(RemoteBitbangDoor, OpenOcdFailsTheSameSvfFileWithOneExpectedBitFlipped) {
    const std::string svf = scratch.file("flipped.svf");
    std::ofstream(svf) << idcodeSvf("10A5C1FF23E171FF07B421FE");
    std::string log;
    EXPECT_NE(openocd({"svf " + svf}, log), 0) << log;
    EXPECT_NE(log.find("READ = 0x10a5c1ff23e171ff07b421ff"), std::string::npos) << log;
    EXPECT_NE(log.find("WANT = 0x10a5c1ff23e171ff07b421fe"), std::string::npos) << log;
    EXPECT_NE(log.find("svf file programmed failed"), std::string::npos) << log;
}

TEST_F(RemoteBitbangDoor, AnOpenDoorOwnsTheChainAndTheLibraryIsAnsweredMinusSeven) {
    auto client = libraryClient();
    RawClient door(doorPort);
    ASSERT_TRUE(door.connected());
    ASSERT_TRUE(trace->waitFor("connected; the chain is this connection's"));

    // Reset and Run-Test/Idle clock nothing and answer -7.
    ASSERT_EQ(client->exchange("44"), plus);
    ASSERT_EQ(client->exchange("3", 2), plus);
    EXPECT_EQ(client->replyText(), chainOwned);
    // A scan takes its blocks off the wire, answers -7 as its status and
    // reply, and brings nothing back.
    JtagShift shift;
    shift.bitCount = 8;
    shift.withSecond = 1;
    shift.first = wire("\xA5");
    shift.second = wire("\0");
    const JtagShiftReply reply = client->jtagShift(shift);
    EXPECT_TRUE(reply.framed);
    EXPECT_EQ(reply.status, wire("-7\0"));
    EXPECT_EQ(reply.readBack, "");
    EXPECT_EQ(client->replyText(), chainOwned);

    // The door reads the chain in Test-Logic-Reset: nothing moved it.
    ASSERT_TRUE(door.send("R"));
    EXPECT_EQ(door.receive(1), "1");

    // A second door is refused while the first is open.
    RawClient second(doorPort);
    EXPECT_TRUE(second.closedByServer());
    EXPECT_TRUE(trace->waitFor("refused: the chain is owned by connection"));

    door.close();
    ASSERT_TRUE(trace->waitFor("closed: client left"));
    ASSERT_EQ(client->exchange("44"), plus);
    ASSERT_EQ(client->exchange("3", 2), plus);
    EXPECT_EQ(client->replyText(), "0");
}

TEST_F(RemoteBitbangDoor, AByteThatIsNoRequestClosesTheDoorAndTheChainIsFreeAgain) {
    RawClient door(doorPort);
    ASSERT_TRUE(door.send("0404x"));
    EXPECT_TRUE(door.closedByServer());
    EXPECT_TRUE(trace->waitFor("closed: not a remote_bitbang request: 0x78 (2 TCK cycles)"));
    auto client = libraryClient();
    ASSERT_EQ(client->exchange("44"), plus);
    ASSERT_EQ(client->exchange("8", 2), plus);
    // Two TMS-low edges from Test-Logic-Reset: Run-Test/Idle (state 1).
    EXPECT_EQ(client->replyText(), "1");
}

}  // namespace
}  // namespace tetherhost::test

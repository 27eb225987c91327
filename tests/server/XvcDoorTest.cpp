// SPDX-License-Identifier: MIT
/* The XVC door of the simulator process: the built-in chain's IDCODEs read
 * through it, commands cut between sends, the rule that an open door owns
 * the chain (the library's chain operations are answered -7, a second door
 * connection of either kind is refused), and the bytes that close it with
 * the chain left free and where they left it. Each test runs its own
 * simulator in a private network namespace and synchronises on its trace. */
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "SimulatorHarness.h"

namespace tetherhost::test {
namespace {

constexpr int port = TETHERHOST_TEST_PORT;
constexpr int bitbangPort = TETHERHOST_TEST_DOOR_PORT;
constexpr int xvcPort = TETHERHOST_TEST_XVC_PORT;
const std::string chainOwned = "-7";
const std::string getinfoAnswer = "xvcServer_v1.0:2048\n";

/* From any state to Shift-DR (five TMS-high cycles, then 0100), then 96
 * cycles through the three IDCODE registers, TMS high on the last. */
std::string readIdcodesShift() {
    std::vector<bool> tms = {true, true, true, true, true, false, true, false, false};
    tms.resize(tms.size() + 96);
    tms.back() = true;
    return "shift:" + littleEndian(105) + bitString(tms) + std::string(14, '\0');
}

/* What comes back: TDO pulled up for the nine cycles before Shift-DR, then
 * the IDCODEs, the device next to the cable's TDO first. */
std::string idcodesOut() {
    std::vector<bool> tdo(9, true);
    for (const unsigned idcode : {idcode2, idcode1, idcode0})
        for (int bit = 0; bit < 32; ++bit) tdo.push_back(((idcode >> bit) & 1U) != 0);
    return bitString(tdo);
}

const std::string readIdcodes = readIdcodesShift();
const std::string idcodes = idcodesOut();

std::string settck(unsigned nanoseconds) { return "settck:" + littleEndian(nanoseconds); }

/** Receives until `count` bytes came, the connection closed or a receive
 * timed out. */
std::string receiveExactly(RawClient& client, std::size_t count) {
    std::string received;
    while (received.size() < count) {
        const std::string more = client.receive(count - received.size());
        if (more.empty()) break;
        received += more;
    }
    return received;
}

class XvcDoor : public ::testing::Test {
protected:
    void SetUp() override {
        const std::string tracePath = scratch.file("trace");
        simulator = Simulator::start(port, {"--trace", tracePath, "--remote-bitbang", std::to_string(bitbangPort),
                                            "--xvc", std::to_string(xvcPort)});
        ASSERT_NE(simulator, nullptr);
        trace = std::make_unique<TraceFollower>(tracePath);
    }

    /** A library-side client of the simulator: introduced, both locks held. */
    std::unique_ptr<RawClient> libraryClient() {
        auto client = std::make_unique<RawClient>(port);
        EXPECT_TRUE(client->introduce("library"));
        EXPECT_TRUE(client->takeLocks());
        return client;
    }

    /** Sub-command `number` of command 44 with no arguments: its reply. */
    static std::string jtagInterface(RawClient& client, const std::string& number) {
        EXPECT_EQ(client.exchange("44"), plus);
        EXPECT_EQ(client.exchange(number, 2), plus);
        return client.replyText();
    }

    ScratchDir scratch;
    std::unique_ptr<Simulator> simulator;
    std::unique_ptr<TraceFollower> trace;
};

TEST_F(XvcDoor, OneShiftReadsTheThreeIdcodesOfTheBuiltInChain) {
    RawClient door(xvcPort);
    ASSERT_TRUE(door.send("getinfo:" + readIdcodes));
    EXPECT_EQ(receiveExactly(door, getinfoAnswer.size() + idcodes.size()), getinfoAnswer + idcodes);
    door.close();
    EXPECT_TRUE(trace->waitFor("c1 xvc = - event \"closed: client left (105 TCK cycles)\""));
}

TEST_F(XvcDoor, CommandsCutBetweenSendsAreAnsweredWhole) {
    RawClient door(xvcPort);
    // Each settck is traced once its receive has been carried out, so the
    // start of the shift after it has arrived before the rest is sent.
    ASSERT_TRUE(door.send(settck(1000) + readIdcodes.substr(0, 3)));
    ASSERT_TRUE(trace->waitFor("event \"TCK period 1000 ns\""));
    ASSERT_TRUE(door.send(readIdcodes.substr(3) + settck(2000) + readIdcodes.substr(0, 12)));
    ASSERT_TRUE(trace->waitFor("event \"TCK period 2000 ns\""));
    ASSERT_TRUE(door.send(readIdcodes.substr(12)));
    EXPECT_EQ(receiveExactly(door, 4 + 14 + 4 + 14), littleEndian(1000) + idcodes + littleEndian(2000) + idcodes);
    door.close();
    EXPECT_TRUE(trace->waitFor("closed: client left (210 TCK cycles)"));
}

TEST_F(XvcDoor, AnOpenDoorOwnsTheChainAgainstTheLibraryAndEveryOtherDoor) {
    auto client = libraryClient();  // connection 1
    RawClient door(xvcPort);        // connection 2
    ASSERT_TRUE(door.connected());
    ASSERT_TRUE(trace->waitFor("c2 xvc = - event \"connected; the chain is this connection's until it closes\""));

    // Reset clocks nothing and answers -7.
    EXPECT_EQ(jtagInterface(*client, "3"), chainOwned);

    // Neither a remote_bitbang connection nor a second XVC one gets in.
    RawClient bitbang(bitbangPort);
    EXPECT_TRUE(bitbang.closedByServer());
    EXPECT_TRUE(trace->waitFor("c3 remote_bitbang = - event \"refused: the chain is owned by connection 2\""));
    RawClient second(xvcPort);
    EXPECT_TRUE(second.closedByServer());
    EXPECT_TRUE(trace->waitFor("c4 xvc = - event \"refused: the chain is owned by connection 2\""));

    // The owner still drives the chain, from Test-Logic-Reset: nothing
    // else moved it.
    ASSERT_TRUE(door.send(readIdcodes));
    EXPECT_EQ(receiveExactly(door, idcodes.size()), idcodes);

    door.close();
    ASSERT_TRUE(trace->waitFor("c2 xvc = - event \"closed: client left"));
    EXPECT_EQ(jtagInterface(*client, "3"), "0");
}

TEST_F(XvcDoor, AnOpenRemoteBitbangDoorKeepsTheXvcDoorOut) {
    RawClient bitbang(bitbangPort);
    ASSERT_TRUE(trace->waitFor("c1 remote_bitbang = - event \"connected;"));
    RawClient door(xvcPort);
    EXPECT_TRUE(door.closedByServer());
    EXPECT_TRUE(trace->waitFor("c2 xvc = - event \"refused: the chain is owned by connection 1\""));
    bitbang.close();
    ASSERT_TRUE(trace->waitFor("c1 remote_bitbang = - event \"closed: client left"));
    RawClient after(xvcPort);
    ASSERT_TRUE(after.send("getinfo:"));
    EXPECT_EQ(receiveExactly(after, getinfoAnswer.size()), getinfoAnswer);
}

TEST_F(XvcDoor, AnUnknownCommandClosesTheDoorAfterWhatCameBefore) {
    RawClient door(xvcPort);
    // Two TMS-low cycles from Test-Logic-Reset: Run-Test/Idle.
    ASSERT_TRUE(door.send("shift:" + littleEndian(2) + wire("\0\0") + "hello:"));
    EXPECT_EQ(door.receive(1), wire("\x03"));
    EXPECT_TRUE(door.closedByServer());
    EXPECT_TRUE(trace->waitFor("closed: not an XVC command: 68 65 6C 6C (2 TCK cycles)\"")) << trace->lines(" xvc ");
    auto client = libraryClient();
    // The chain is free again, in the state the door left it (state 1).
    EXPECT_EQ(jtagInterface(*client, "8"), "1");
}

TEST_F(XvcDoor, AShiftOfNoBitsClosesTheDoor) {
    RawClient door(xvcPort);
    ASSERT_TRUE(door.send("shift:" + littleEndian(0)));
    EXPECT_TRUE(door.closedByServer());
    EXPECT_TRUE(trace->waitFor("closed: shift of 0 bits, not 1 to 16384 (0 TCK cycles)\""));
    auto client = libraryClient();
    EXPECT_EQ(jtagInterface(*client, "3"), "0");
}

TEST_F(XvcDoor, AShiftOverTheLimitClosesTheDoorBeforeItsVectorsAreTaken) {
    RawClient door(xvcPort);
    ASSERT_TRUE(door.send("shift:" + littleEndian(16385)));
    EXPECT_TRUE(door.closedByServer());
    EXPECT_TRUE(trace->waitFor("closed: shift of 16385 bits, not 1 to 16384 (0 TCK cycles)\""));
    auto client = libraryClient();
    EXPECT_EQ(jtagInterface(*client, "3"), "0");
}

}  // namespace
}  // namespace tetherhost::test

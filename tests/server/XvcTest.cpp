// SPDX-License-Identifier: MIT
/* The Xilinx Virtual Cable commands on the built-in chain, byte for byte:
 * getinfo, settck, the three IDCODEs read by one shift, commands cut at
 * every byte or several in one receive, the longest shift taken, and the
 * bytes that end a connection (unknown commands, shifts of no bits or over
 * the limit) after what came before them was carried out. */
#include "server/Xvc.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "SimulatorHarness.h"

namespace tetherhost::sim {
namespace {

using test::littleEndian;
using test::wire;

/* Five TMS-high cycles to Test-Logic-Reset, then Run-Test/Idle, Select-DR,
 * Capture-DR and Shift-DR, and 96 cycles through the three IDCODE
 * registers (TMS high on the last, to Exit1-DR); TDI low throughout. */
const std::string readIdcodes = wire("shift:") + littleEndian(105) +
                                wire("\x5F\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x01") +
                                std::string(14, '\0');
/* TDO high (pulled up) for the nine cycles outside Shift-DR, then the
 * IDCODEs, the device next to the cable's TDO first: 0x07B421FF,
 * 0x23E171FF, 0x10A5C1FF; the unused bits of the last byte are 0. */
const std::string idcodesOut = wire("\xFF\xFF\x43\x68\x0F\xFE\xE3\xC2\x47\xFE\x83\x4B\x21\x00");

std::string shift(std::uint32_t bitCount, const std::string& tms, const std::string& tdi) {
    return "shift:" + littleEndian(bitCount) + tms + tdi;
}

class XvcOnTheBuiltInChain : public ::testing::Test {
protected:
    JtagChain chain{defaultChain()};
    Xvc door{chain};
    std::string answers;
};

TEST_F(XvcOnTheBuiltInChain, GetinfoNamesTheVersionAndTheLongestVector) {
    ASSERT_EQ(door.feed("getinfo:", answers), Xvc::Outcome::More);
    EXPECT_EQ(answers, "xvcServer_v1.0:2048\n");
}

TEST_F(XvcOnTheBuiltInChain, SettckAnswersThePeriodItKeeps) {
    EXPECT_FALSE(door.tckPeriod());
    ASSERT_EQ(door.feed("settck:" + littleEndian(166), answers), Xvc::Outcome::More);
    EXPECT_EQ(answers, wire("\xA6\x00\x00\x00"));
    EXPECT_EQ(door.tckPeriod(), 166U);
    EXPECT_EQ(door.cycles(), 0U);
}

TEST_F(XvcOnTheBuiltInChain, OneShiftReadsTheThreeIdcodes) {
    ASSERT_EQ(door.feed(readIdcodes, answers), Xvc::Outcome::More);
    EXPECT_EQ(answers, idcodesOut);
    EXPECT_EQ(chain.state(), TapState::Exit1Dr);
    EXPECT_EQ(door.cycles(), 105U);
}

TEST_F(XvcOnTheBuiltInChain, TdiGoesInAtTheCablesTdiAndComesOutAfterTheIdcodes) {
    // Four cycles in Test-Logic-Reset, then on to Shift-DR; there 96 cycles
    // push the IDCODEs out (the three registers hold 96 bits) and the next
    // 8 bring back the first 8 bits of TDI.
    ASSERT_EQ(door.feed(shift(4, wire("\x0F"), wire("\0")) + shift(4, wire("\x02"), wire("\0")), answers),
              Xvc::Outcome::More);
    ASSERT_EQ(chain.state(), TapState::ShiftDr);
    EXPECT_EQ(answers, wire("\x0F\x0F"));
    answers.clear();
    const std::string tdi = wire("\xA5") + std::string(12, '\0');
    ASSERT_EQ(door.feed(shift(104, std::string(13, '\0'), tdi), answers), Xvc::Outcome::More);
    ASSERT_EQ(answers.size(), 13U);
    EXPECT_EQ(answers.substr(0, 12), littleEndian(0x07B421FFU) + littleEndian(0x23E171FFU) + littleEndian(0x10A5C1FFU));
    EXPECT_EQ(answers.substr(12), wire("\xA5"));
    EXPECT_EQ(chain.state(), TapState::ShiftDr);
}

TEST_F(XvcOnTheBuiltInChain, CommandsCutAtEveryByteAreAnsweredAsWholeOnes) {
    const std::string commands = "getinfo:" + wire("settck:\xE8\x03\x00\x00") + readIdcodes;
    for (const char byte : commands) ASSERT_EQ(door.feed(std::string(1, byte), answers), Xvc::Outcome::More);
    EXPECT_EQ(answers, "xvcServer_v1.0:2048\n" + wire("\xE8\x03\x00\x00") + idcodesOut);
    EXPECT_EQ(door.tckPeriod(), 1000U);
}

TEST_F(XvcOnTheBuiltInChain, SeveralCommandsInOneReceiveAreAnsweredInOrder) {
    ASSERT_EQ(door.feed(readIdcodes + "getinfo:" + readIdcodes.substr(0, 20), answers), Xvc::Outcome::More);
    EXPECT_EQ(answers, idcodesOut + "xvcServer_v1.0:2048\n");
    ASSERT_EQ(door.feed(readIdcodes.substr(20), answers), Xvc::Outcome::More);
    EXPECT_EQ(answers, idcodesOut + "xvcServer_v1.0:2048\n" + idcodesOut);
}

TEST_F(XvcOnTheBuiltInChain, TheLongestShiftIsTaken) {
    // TMS low throughout: the controllers go to Run-Test/Idle and stay
    // there, where TDO is pulled up, so every bit of the answer is 1.
    ASSERT_EQ(door.feed(shift(Xvc::maxShiftBits, std::string(2048, '\0'), std::string(2048, '\0')), answers),
              Xvc::Outcome::More);
    EXPECT_EQ(answers, std::string(2048, '\xFF'));
    EXPECT_EQ(door.cycles(), 16384U);
}

TEST_F(XvcOnTheBuiltInChain, AnUnknownCommandIsNamedAfterWhatCameBefore) {
    ASSERT_EQ(door.feed("getinfo:getinfx:", answers), Xvc::Outcome::Garbage);
    EXPECT_EQ(door.garbage(), "not an XVC command: 67 65 74 69");
    EXPECT_EQ(answers, "xvcServer_v1.0:2048\n");
}

TEST_F(XvcOnTheBuiltInChain, TheStartOfACommandWaitsAndAWrongByteEndsIt) {
    ASSERT_EQ(door.feed("sh", answers), Xvc::Outcome::More);
    ASSERT_EQ(door.feed("ot", answers), Xvc::Outcome::Garbage);
    EXPECT_EQ(door.garbage(), "not an XVC command: 73 68 6F 74");
    EXPECT_EQ(answers, "");
}

TEST_F(XvcOnTheBuiltInChain, AShiftOfNoBitsIsRefused) {
    ASSERT_EQ(door.feed("shift:" + littleEndian(0), answers), Xvc::Outcome::Garbage);
    EXPECT_EQ(door.garbage(), "shift of 0 bits, not 1 to 16384");
}

TEST_F(XvcOnTheBuiltInChain, AShiftOverTheLimitIsRefusedBeforeItsVectorsCome) {
    ASSERT_EQ(door.feed(readIdcodes + "shift:" + littleEndian(Xvc::maxShiftBits + 1), answers), Xvc::Outcome::Garbage);
    EXPECT_EQ(door.garbage(), "shift of 16385 bits, not 1 to 16384");
    // The shift before it was carried out, and the chain stays where it left it.
    EXPECT_EQ(answers, idcodesOut);
    EXPECT_EQ(chain.state(), TapState::Exit1Dr);
    EXPECT_EQ(door.cycles(), 105U);
}

}  // namespace
}  // namespace tetherhost::sim

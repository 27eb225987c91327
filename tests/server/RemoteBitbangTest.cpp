// SPDX-License-Identifier: MIT
/* OpenOCD's remote_bitbang requests on the built-in chain, byte for byte:
 * the IDCODEs read bit by bit as OpenOCD reads them (TDO sampled with TCK
 * low, the chain clocked on the rising edge), TRST, the LED, SWD's pins,
 * quit and bytes that are no request. */
#include "server/RemoteBitbang.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace tetherhost::sim {
namespace {

/* One TCK cycle as OpenOCD's bitbang driver makes it: TCK low with TMS and
 * TDI set, optionally a TDO read, then TCK high with the same TMS and TDI. */
std::string cycle(bool tms, bool tdi, bool read) {
    const char low = static_cast<char>('0' + (tms ? 2 : 0) + (tdi ? 1 : 0));
    std::string requests(1, low);
    if (read) requests += 'R';
    requests += static_cast<char>(low + 4);
    return requests;
}

std::string tmsPath(const std::string& bits) {
    std::string requests;
    for (const char bit : bits) requests += cycle(bit == '1', false, false);
    return requests;
}

std::uint32_t word(const std::string& answers, std::size_t first) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 32; ++i)
        if (answers.at(first + i) == '1') value |= std::uint32_t{1} << i;
    return value;
}

class RemoteBitbangOnTheBuiltInChain : public ::testing::Test {
protected:
    JtagChain chain{defaultChain()};
    RemoteBitbang door{chain};
    std::string answers;
};

TEST_F(RemoteBitbangOnTheBuiltInChain, ReadsTheThreeIdcodesBitByBit) {
    // Five TMS-high cycles to Test-Logic-Reset, then Run-Test/Idle,
    // Select-DR, Capture-DR and Shift-DR.
    std::string requests = tmsPath(
        "11111"
        "0100");
    for (int bit = 0; bit < 96; ++bit) requests += cycle(bit == 95, false, true);
    ASSERT_EQ(door.feed(requests, answers), RemoteBitbang::Outcome::More);
    ASSERT_EQ(answers.size(), 96U);
    // The device next to the cable's TDO comes out first.
    EXPECT_EQ(word(answers, 0), 0x07B421FFU);
    EXPECT_EQ(word(answers, 32), 0x23E171FFU);
    EXPECT_EQ(word(answers, 64), 0x10A5C1FFU);
    EXPECT_EQ(chain.state(), TapState::Exit1Dr);
    EXPECT_EQ(door.cycles(), 9U + 96U);
}

TEST_F(RemoteBitbangOnTheBuiltInChain, OnlyARisingEdgeClocksTheChain) {
    ASSERT_EQ(door.feed("0246666420", answers), RemoteBitbang::Outcome::More);
    // TCK rises once, at the '4' after the '2'; it stays high through the
    // '6's and the next '4', and falls at the '2'.
    EXPECT_EQ(door.cycles(), 1U);
    EXPECT_EQ(answers, "");
}

TEST_F(RemoteBitbangOnTheBuiltInChain, TrstHoldsTheControllersInTestLogicReset) {
    ASSERT_EQ(door.feed(tmsPath("0100"), answers), RemoteBitbang::Outcome::More);
    ASSERT_EQ(chain.state(), TapState::ShiftDr);
    ASSERT_EQ(door.feed("t" + tmsPath("0100"), answers), RemoteBitbang::Outcome::More);
    EXPECT_EQ(chain.state(), TapState::TestLogicReset);
    EXPECT_EQ(door.cycles(), 4U);
    ASSERT_EQ(door.feed("r" + tmsPath("01"), answers), RemoteBitbang::Outcome::More);
    EXPECT_EQ(chain.state(), TapState::SelectDrScan);
}

TEST_F(RemoteBitbangOnTheBuiltInChain, SystemResetAndTheLedAreKeptAndChangeNothingOnTheChain) {
    ASSERT_EQ(door.feed(tmsPath("01") + "sB", answers), RemoteBitbang::Outcome::More);
    EXPECT_TRUE(door.systemResetAsserted());
    EXPECT_TRUE(door.ledOn());
    EXPECT_EQ(chain.state(), TapState::SelectDrScan);
    ASSERT_EQ(door.feed("rb", answers), RemoteBitbang::Outcome::More);
    EXPECT_FALSE(door.systemResetAsserted());
    EXPECT_FALSE(door.ledOn());
}

TEST_F(RemoteBitbangOnTheBuiltInChain, TdoReadsHighOutsideTheShiftStates) {
    ASSERT_EQ(door.feed("RR", answers), RemoteBitbang::Outcome::More);
    EXPECT_EQ(answers, "11");
}

TEST_F(RemoteBitbangOnTheBuiltInChain, SwdPinsDriveTheSameEdgesAndSwdioReadsItsLevel) {
    // 'd' to 'g': SWCLK and SWDIO as two bits; SWDIO is TMS to the chain.
    ASSERT_EQ(door.feed("dfdf", answers), RemoteBitbang::Outcome::More);
    EXPECT_EQ(chain.state(), TapState::RunTestIdle);
    ASSERT_EQ(door.feed("ecOcdco", answers), RemoteBitbang::Outcome::More);
    // Undriven SWDIO reads high; driven, it reads the level last written.
    EXPECT_EQ(answers, "110");
    EXPECT_EQ(door.cycles(), 2U);
}

TEST_F(RemoteBitbangOnTheBuiltInChain, QuitEndsTheRequestsThatFollowUnread) {
    ASSERT_EQ(door.feed("RQR", answers), RemoteBitbang::Outcome::Quit);
    EXPECT_EQ(answers, "1");
}

TEST_F(RemoteBitbangOnTheBuiltInChain, AByteThatIsNoRequestIsNamedAfterWhatCameBefore) {
    ASSERT_EQ(door.feed("26Rx6", answers), RemoteBitbang::Outcome::Garbage);
    EXPECT_EQ(door.garbage(), 'x');
    EXPECT_EQ(answers, "1");
    EXPECT_EQ(door.cycles(), 1U);
}

}  // namespace
}  // namespace tetherhost::sim

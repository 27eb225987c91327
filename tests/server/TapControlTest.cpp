// SPDX-License-Identifier: MIT
/* Scans with a chosen end state, scans resumed from Pause without a new
 * Capture, moves along explicit paths, RUNTEST on the virtual clock, TRST and
 * the TCK frequency, on the built-in chain. */
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "SimulatorHarness.h"
#include "server/JtagChain.h"
#include "server/TapControl.h"

namespace tetherhost::test {
namespace {

using sim::JtagChain;
using sim::ScanKind;
using sim::TapControl;
using sim::TapState;

constexpr int outOfRange = -2;
std::string ones(std::size_t bits) { return bitString(std::vector<bool>(bits, true)); }
const std::string idcodes = littleEndian(idcode2) + littleEndian(idcode1) + littleEndian(idcode0);

class TapControlOnTheBuiltInChain : public ::testing::Test {
protected:
    JtagChain chain{sim::defaultChain()};
    TapControl tap{chain};
};

TEST_F(TapControlOnTheBuiltInChain, ADataScanSplitAtPauseDrReadsWhatOneWholeScanReads) {
    ASSERT_EQ(tap.setEndState(ScanKind::Data, static_cast<int>(TapState::PauseDr)), 0);
    const std::string first = chain.scan(ScanKind::Data, std::string(5, '\0'), 40, tap.endState(ScanKind::Data));
    EXPECT_EQ(chain.state(), TapState::PauseDr);
    ASSERT_EQ(tap.setEndState(ScanKind::Data, static_cast<int>(TapState::RunTestIdle)), 0);
    const std::string second = chain.scan(ScanKind::Data, std::string(7, '\0'), 56, tap.endState(ScanKind::Data));
    EXPECT_EQ(chain.state(), TapState::RunTestIdle);
    // 40 bits, then 56 more with no Capture between them: the 96 bits of
    // the three IDCODEs.
    std::vector<bool> bits;
    for (std::size_t i = 0; i < 40; ++i) bits.push_back(bitOf(first, i));
    for (std::size_t i = 0; i < 56; ++i) bits.push_back(bitOf(second, i));
    EXPECT_EQ(bitString(bits), idcodes);
}

TEST_F(TapControlOnTheBuiltInChain, AnInstructionScanEndingInPauseIrTakesEffectOnlyAtUpdate) {
    // All ones: BYPASS everywhere, once Update-IR is passed.
    chain.scan(ScanKind::Instruction, ones(18), 18, TapState::PauseIr);
    EXPECT_EQ(chain.state(), TapState::PauseIr);
    EXPECT_EQ(chain.instruction(0), 0xEU);
    // A data scan from Pause-IR goes through Update-IR first.
    EXPECT_EQ(chain.scan(ScanKind::Data, std::string(1, '\x07'), 3), std::string(1, '\0'));
    EXPECT_EQ(chain.instruction(0), 0xFU);
}

TEST_F(TapControlOnTheBuiltInChain, ScansMayEndInTestLogicReset) {
    chain.scan(ScanKind::Instruction, ones(18), 18, TapState::TestLogicReset);
    EXPECT_EQ(chain.state(), TapState::TestLogicReset);
    EXPECT_EQ(chain.instruction(0), 0xEU);  // reset selected IDCODE again
}

TEST_F(TapControlOnTheBuiltInChain, EndStatesMustBeStable) {
    EXPECT_EQ(tap.setEndState(ScanKind::Data, static_cast<int>(TapState::ShiftDr)), outOfRange);
    EXPECT_EQ(tap.setEndState(ScanKind::Instruction, 16), outOfRange);
    EXPECT_EQ(tap.setEndState(ScanKind::Instruction, -1), outOfRange);
    EXPECT_EQ(tap.endState(ScanKind::Data), TapState::RunTestIdle);
    EXPECT_EQ(tap.setEndState(ScanKind::Instruction, static_cast<int>(TapState::TestLogicReset)), 0);
    EXPECT_EQ(tap.endState(ScanKind::Instruction), TapState::TestLogicReset);
}

TEST_F(TapControlOnTheBuiltInChain, AnExplicitPathIsFollowedOneStateAtATime) {
    for (const TapState next :
         {TapState::RunTestIdle, TapState::SelectDrScan, TapState::CaptureDr, TapState::Exit1Dr, TapState::PauseDr})
        ASSERT_EQ(tap.stepTo(static_cast<int>(next)), 0) << sim::tapStateName(next);
    EXPECT_EQ(chain.state(), TapState::PauseDr);
    EXPECT_EQ(chain.cycles(), 5U);
    // Pause-DR is not followed by Run-Test/Idle: refused, nothing clocked.
    EXPECT_EQ(tap.stepTo(static_cast<int>(TapState::RunTestIdle)), outOfRange);
    EXPECT_EQ(chain.cycles(), 5U);
}

TEST_F(TapControlOnTheBuiltInChain, MovesGoToStableStatesOnly) {
    EXPECT_EQ(tap.moveTo(static_cast<int>(TapState::PauseIr)), 0);
    EXPECT_EQ(chain.state(), TapState::PauseIr);
    EXPECT_EQ(tap.moveTo(static_cast<int>(TapState::ShiftIr)), outOfRange);
    EXPECT_EQ(chain.state(), TapState::PauseIr);
}

TEST_F(TapControlOnTheBuiltInChain, AMoveFromPauseDrToItselfGoesRoundThroughUpdateAndCapture) {
    // A data scan left in Pause-DR with the first 8 IDCODE bits shifted out.
    ASSERT_EQ(tap.setEndState(ScanKind::Data, static_cast<int>(TapState::PauseDr)), 0);
    chain.scan(ScanKind::Data, std::string(1, '\0'), 8, tap.endState(ScanKind::Data));
    const std::uint64_t before = chain.cycles();
    EXPECT_EQ(tap.moveTo(static_cast<int>(TapState::PauseDr)), 0);
    EXPECT_EQ(chain.state(), TapState::PauseDr);
    // Exit2, Update, Select, Capture, Exit1, Pause: six cycles.
    EXPECT_EQ(chain.cycles() - before, 6U);
    // Captured anew: the next piece starts with tap2's IDCODE again.
    EXPECT_EQ(chain.scan(ScanKind::Data, std::string(4, '\0'), 32), littleEndian(idcode2));
}

TEST_F(TapControlOnTheBuiltInChain, AMoveToRunTestIdleFromItselfStandsStill) {
    ASSERT_EQ(tap.moveTo(static_cast<int>(TapState::RunTestIdle)), 0);
    const std::uint64_t before = chain.cycles();
    EXPECT_EQ(tap.moveTo(static_cast<int>(TapState::RunTestIdle)), 0);
    EXPECT_EQ(chain.cycles(), before);
}

TEST_F(TapControlOnTheBuiltInChain, RunTestCountsCyclesAndVirtualTimeWithoutSleeping) {
    ASSERT_EQ(tap.moveTo(static_cast<int>(TapState::RunTestIdle)), 0);  // 1 cycle at 1 MHz
    EXPECT_EQ(tap.report(), "tck_hz=1000000;cycles=1;virtual_ns=1000;trst=0;");
    // Five billion cycles: more than 32 bits of count, taken at once.
    ASSERT_EQ(tap.runTest(5000000000ULL, 0, false), 0);
    EXPECT_EQ(tap.report(), "tck_hz=1000000;cycles=5000000001;virtual_ns=5000000001000;trst=0;");
    EXPECT_EQ(chain.state(), TapState::RunTestIdle);
}

TEST_F(TapControlOnTheBuiltInChain, AMinimumTimeLongerThanTheCyclesTakeIsWhatPasses) {
    ASSERT_EQ(tap.setFrequency(10000000), 0);  // 100 ns a cycle
    ASSERT_EQ(tap.runTest(10, 1500, false), 0);
    EXPECT_EQ(tap.report(), "tck_hz=10000000;cycles=10;virtual_ns=1500;trst=0;");
    ASSERT_EQ(tap.runTest(10, 500, false), 0);  // the cycles take longer: 1000 ns
    EXPECT_EQ(tap.report(), "tck_hz=10000000;cycles=20;virtual_ns=2500;trst=0;");
}

TEST_F(TapControlOnTheBuiltInChain, SystemClockCyclesLetOnlyTimePass) {
    ASSERT_EQ(tap.runTest(1000, 2000000, true), 0);
    EXPECT_EQ(tap.report(), "tck_hz=1000000;cycles=0;virtual_ns=2000000;trst=0;");
}

TEST_F(TapControlOnTheBuiltInChain, RunTestNeedsAStableState) {
    ASSERT_EQ(tap.stepTo(static_cast<int>(TapState::RunTestIdle)), 0);
    ASSERT_EQ(tap.stepTo(static_cast<int>(TapState::SelectDrScan)), 0);
    EXPECT_EQ(tap.runTest(10, 0, false), outOfRange);
    EXPECT_EQ(chain.cycles(), 2U);
}

TEST_F(TapControlOnTheBuiltInChain, TrstHoldsTheChainInResetUntilReleased) {
    ASSERT_EQ(tap.moveTo(static_cast<int>(TapState::PauseDr)), 0);
    ASSERT_EQ(tap.setTrst(1), 0);
    EXPECT_EQ(chain.state(), TapState::TestLogicReset);
    EXPECT_EQ(chain.scan(ScanKind::Data, std::string(4, '\0'), 32), std::string(4, '\xFF'));
    EXPECT_EQ(chain.state(), TapState::TestLogicReset);
    EXPECT_EQ(tap.report().substr(tap.report().size() - 7), "trst=1;");
    ASSERT_EQ(tap.setTrst(0), 0);
    EXPECT_EQ(chain.scan(ScanKind::Data, std::string(4, '\0'), 32), littleEndian(idcode2));
    EXPECT_EQ(tap.setTrst(2), outOfRange);
}

TEST_F(TapControlOnTheBuiltInChain, AFrequencyIsAtLeastOneHertz) {
    EXPECT_EQ(tap.setFrequency(0), outOfRange);
    EXPECT_EQ(tap.setFrequency(-5), outOfRange);
    EXPECT_EQ(tap.setFrequency(25000000), 0);
    EXPECT_EQ(tap.report(), "tck_hz=25000000;cycles=0;virtual_ns=0;trst=0;");
}

}  // namespace
}  // namespace tetherhost::test

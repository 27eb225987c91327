/* The JTAG chain: the TAP controller's 16 states, reset, IDCODE, BYPASS and
 * instruction capture as chain-interrogation tools rely on them, and the
 * whole-scan shortcut agreeing with clock-by-clock shifting. */
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "server/JtagChain.h"
#include "SimulatorHarness.h"

namespace tetherhost::test {
namespace {

using sim::JtagChain;
using sim::ScanKind;
using sim::TapState;

std::string ones(std::size_t bits) { return bitString(std::vector<bool>(bits, true)); }

TEST(TapController, FollowsTheStandardStateDiagram) {
    struct Step {
        TapState from;
        TapState onZero;
        TapState onOne;
    };
    using S = TapState;
    const Step diagram[] = {
        {S::TestLogicReset, S::RunTestIdle, S::TestLogicReset},
        {S::RunTestIdle, S::RunTestIdle, S::SelectDrScan},
        {S::SelectDrScan, S::CaptureDr, S::SelectIrScan},
        {S::CaptureDr, S::ShiftDr, S::Exit1Dr},
        {S::ShiftDr, S::ShiftDr, S::Exit1Dr},
        {S::Exit1Dr, S::PauseDr, S::UpdateDr},
        {S::PauseDr, S::PauseDr, S::Exit2Dr},
        {S::Exit2Dr, S::ShiftDr, S::UpdateDr},
        {S::UpdateDr, S::RunTestIdle, S::SelectDrScan},
        {S::SelectIrScan, S::CaptureIr, S::TestLogicReset},
        {S::CaptureIr, S::ShiftIr, S::Exit1Ir},
        {S::ShiftIr, S::ShiftIr, S::Exit1Ir},
        {S::Exit1Ir, S::PauseIr, S::UpdateIr},
        {S::PauseIr, S::PauseIr, S::Exit2Ir},
        {S::Exit2Ir, S::ShiftIr, S::UpdateIr},
        {S::UpdateIr, S::RunTestIdle, S::SelectDrScan},
    };
    ASSERT_EQ(std::size(diagram), static_cast<std::size_t>(sim::tapStateCount));
    for (const Step& step : diagram) {
        EXPECT_EQ(sim::nextTapState(step.from, false), step.onZero) << sim::tapStateName(step.from);
        EXPECT_EQ(sim::nextTapState(step.from, true), step.onOne) << sim::tapStateName(step.from);
    }
}

TEST(TapController, FiveClocksWithTmsHighResetFromEveryState) {
    for (int start = 0; start < sim::tapStateCount; ++start) {
        JtagChain chain(sim::defaultChain());
        chain.moveTo(static_cast<TapState>(start));
        ASSERT_EQ(chain.state(), static_cast<TapState>(start));
        chain.reset();
        EXPECT_EQ(chain.state(), TapState::TestLogicReset)
            << "from " << sim::tapStateName(static_cast<TapState>(start));
    }
}

TEST(JtagChain, DefaultChainIsThreeDevicesWithWellFormedIdcodes) {
    const std::vector<sim::TapDevice> devices = sim::defaultChain();
    ASSERT_EQ(devices.size(), 3U);
    EXPECT_EQ(devices[0].irLength, 4);
    EXPECT_EQ(devices[1].irLength, 6);
    EXPECT_EQ(devices[2].irLength, 8);
    for (const sim::TapDevice& device : devices) {
        ASSERT_TRUE(device.idcode.has_value());
        EXPECT_EQ(*device.idcode & 1U, 1U) << device.name;
        // Manufacturer field: identity 0x7F (the JEP106 continuation code,
        // never assigned) after one continuation code.
        EXPECT_EQ((*device.idcode >> 1) & 0x7FFU, 0x0FFU) << device.name;
    }
    EXPECT_EQ(*devices[0].idcode, idcode0);
    EXPECT_EQ(*devices[1].idcode, idcode1);
    EXPECT_EQ(*devices[2].idcode, idcode2);
    EXPECT_EQ(sim::validateChain(devices), "");
}

TEST(JtagChain, DataScanAfterResetReadsEveryIdcodeNearestTdoFirst) {
    JtagChain chain(sim::defaultChain());
    chain.reset();
    const std::string tdo = chain.scan(ScanKind::Data, std::string(12, '\0'), 96);
    EXPECT_EQ(tdo, littleEndian(idcode2) + littleEndian(idcode1) + littleEndian(idcode0));
    EXPECT_EQ(chain.state(), TapState::RunTestIdle);
}

TEST(JtagChain, InstructionRegistersCaptureZeroOne) {
    JtagChain chain(sim::defaultChain());
    const std::string tdo = chain.scan(ScanKind::Instruction, ones(18), 18);
    // Last device (8 bits), then the 6-bit, then the 4-bit one: each ...01.
    std::vector<bool> expected(18, false);
    expected[0] = true;
    expected[8] = true;
    expected[14] = true;
    EXPECT_EQ(tdo, bitString(expected));
}

TEST(JtagChain, AllOnesInstructionSelectsBypassOneZeroBitPerDevice) {
    JtagChain chain(sim::defaultChain());
    chain.scan(ScanKind::Instruction, ones(18), 18);
    for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(chain.instruction(i), (1U << sim::defaultChain()[i].irLength) - 1);
    const std::string tdi = bitString({true, true, false, true, true, false, false, true});
    const std::string tdo = chain.scan(ScanKind::Data, tdi, 8);
    // Three captured zeros, then the first five TDI bits.
    EXPECT_EQ(tdo, bitString({false, false, false, true, true, false, true, true}));
}

TEST(JtagChain, BitsShiftedInComeOutAfterTheChainLength) {
    JtagChain chain(sim::defaultChain());
    chain.scan(ScanKind::Instruction, ones(18), 18);
    const std::string tdi = pattern(64, 7);
    const std::string tdo = chain.scan(ScanKind::Data, tdi, 512);
    for (std::size_t i = 0; i < 3; ++i) EXPECT_FALSE(bitOf(tdo, i));
    for (std::size_t i = 3; i < 512; ++i) ASSERT_EQ(bitOf(tdo, i), bitOf(tdi, i - 3)) << "bit " << i;
    // Capture-DR loads BYPASS with 0 again: the next scan starts with zeros.
    EXPECT_EQ(chain.scan(ScanKind::Data, wire("\x07"), 3), wire("\0"));
}

TEST(JtagChain, BitsWaitInTheRegistersThroughPauseDr) {
    JtagChain chain(sim::defaultChain());
    chain.scan(ScanKind::Instruction, ones(18), 18);
    chain.moveTo(TapState::ShiftDr);
    const std::vector<bool> in = {true, false, true, true, false, true};
    for (std::size_t i = 0; i < in.size(); ++i) chain.clock(i + 1 == in.size(), in[i]);
    chain.moveTo(TapState::PauseDr);
    chain.moveTo(TapState::ShiftDr);  // through Exit2-DR: no capture
    ASSERT_EQ(chain.state(), TapState::ShiftDr);
    std::vector<bool> out;
    out.reserve(3);
    for (int i = 0; i < 3; ++i) out.push_back(chain.clock(false, false));
    EXPECT_EQ(out, (std::vector<bool>{true, false, true}));  // the last three bits shifted in, oldest first
}

TEST(JtagChain, InstructionScanThroughTheChainAlsoDelaysByTheTotalIrLength) {
    JtagChain chain(sim::defaultChain());
    const std::string tdi = pattern(8, 3);
    const std::string tdo = chain.scan(ScanKind::Instruction, tdi, 64);
    for (std::size_t i = 18; i < 64; ++i) ASSERT_EQ(bitOf(tdo, i), bitOf(tdi, i - 18)) << "bit " << i;
}

TEST(JtagChain, WholeScanAgreesWithClockByClockShifting) {
    JtagChain whole(sim::defaultChain());
    JtagChain clocked(sim::defaultChain());
    const std::string instructions = pattern(3, 11);  // some devices in BYPASS, some not
    const std::string data = pattern(40, 12);
    whole.scan(ScanKind::Instruction, instructions, 18);
    const std::string wholeTdo = whole.scan(ScanKind::Data, data, 300);

    clocked.moveTo(TapState::ShiftIr);
    for (std::size_t i = 0; i < 18; ++i) clocked.clock(i == 17, bitOf(instructions, i));
    clocked.moveTo(TapState::RunTestIdle);
    clocked.moveTo(TapState::ShiftDr);
    std::vector<bool> bits;
    for (std::size_t i = 0; i < 300; ++i) bits.push_back(clocked.clock(i == 299, bitOf(data, i)));
    clocked.moveTo(TapState::RunTestIdle);

    EXPECT_EQ(wholeTdo, bitString(bits));
    for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(whole.instruction(i), clocked.instruction(i));
}

TEST(JtagChain, ResetSelectsIdcodeAgainAfterBypass) {
    JtagChain chain(sim::defaultChain());
    chain.scan(ScanKind::Instruction, ones(18), 18);
    chain.reset();
    EXPECT_EQ(chain.scan(ScanKind::Data, std::string(4, '\0'), 32), littleEndian(idcode2));
}

TEST(JtagChain, DeviceWithoutIdcodeSelectsBypassAfterReset) {
    std::vector<sim::TapDevice> devices = sim::defaultChain();
    devices[2].idcode.reset();
    JtagChain chain(devices);
    const std::string tdo = chain.scan(ScanKind::Data, std::string(9, '\0'), 65);
    // One BYPASS zero from the last device, then the other two IDCODEs.
    std::vector<bool> expected = {false};
    const std::string idcodes = littleEndian(idcode1) + littleEndian(idcode0);
    for (std::size_t i = 0; i < 64; ++i) expected.push_back(bitOf(idcodes, i));
    EXPECT_EQ(tdo, bitString(expected));
}

TEST(JtagChain, ZeroBitScanPassesCaptureAndUpdateAndShiftsNothing) {
    JtagChain chain(sim::defaultChain());
    EXPECT_EQ(chain.scan(ScanKind::Data, "", 0), "");
    EXPECT_EQ(chain.state(), TapState::RunTestIdle);
}

TEST(JtagChain, OutsideShiftStatesTdoReadsOne) {
    JtagChain chain(sim::defaultChain());
    EXPECT_TRUE(chain.clock(false, false));
    EXPECT_EQ(chain.state(), TapState::RunTestIdle);
}

TEST(JtagChain, ValidationNamesTheProblem) {
    std::vector<sim::TapDevice> devices = sim::defaultChain();
    devices[1].irLength = 1;
    EXPECT_EQ(sim::validateChain(devices), "device \"tap1\": irLength must be 2 to 32");
    devices = sim::defaultChain();
    devices[0].idcode = 0x10A5C1FE;
    EXPECT_EQ(sim::validateChain(devices), "device \"tap0\": IDCODE bit 0 must be 1");
    devices = sim::defaultChain();
    devices[0].idcodeInstruction = 0xF;
    EXPECT_EQ(sim::validateChain(devices),
              "device \"tap0\": idcodeInstruction must fit irLength and differ from BYPASS (all ones)");
    EXPECT_EQ(sim::validateChain({}), "the chain has no devices");
}

TEST(JtagChain, MismatchesCountOnlyMaskedBitsWithinTheBitCount) {
    const std::string bits = bitString({true, false, true, true});
    const std::string expected = bitString({false, false, false, true});
    EXPECT_EQ(sim::countMismatches(bits, expected, bitString({true, true, true, true}), 4), 2U);
    EXPECT_EQ(sim::countMismatches(bits, expected, bitString({false, true, true, true}), 4), 1U);
    EXPECT_EQ(sim::countMismatches(bits, expected, bitString({true, true, true, true}), 1), 1U);
}

}  // namespace
}  // namespace tetherhost::test

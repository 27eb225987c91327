// SPDX-License-Identifier: MIT
/* The JTAG chain: the TAP controller's 16 states, reset, IDCODE, BYPASS and
 * instruction capture as chain-interrogation tools rely on them, the
 * registers of listed instructions, instruction registers up to 64 bits, and
 * the whole-scan shortcut agreeing with clock-by-clock shifting. */
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
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
    EXPECT_EQ(sim::validateChain(devices), "device \"tap1\": key \"irLength\": must be 2 to 64");
    devices[1].irLength = 65;
    EXPECT_EQ(sim::validateChain(devices), "device \"tap1\": key \"irLength\": must be 2 to 64");
    devices = sim::defaultChain();
    devices[0].idcode = 0x10A5C1FE;
    EXPECT_EQ(sim::validateChain(devices), "device \"tap0\": key \"idcode\": bit 0 must be 1");
    devices = sim::defaultChain();
    devices[0].idcodeInstruction = 0xF;
    EXPECT_EQ(sim::validateChain(devices),
              "device \"tap0\": key \"idcodeInstruction\": must fit irLength and differ from BYPASS (all ones)");
    EXPECT_EQ(sim::validateChain({}), "the chain has no devices");
}

sim::TapDevice fpga() {
    sim::TapDevice device;
    device.name = "fpga";
    device.irLength = 6;
    device.idcode = 0x0362D093;
    device.idcodeInstruction = 0x09;
    device.instructions = {{"USERCODE", 0x08, 32, sim::RegisterBits{0xFFFFFFFF}}, {"CFG_IN", 0x05, 64, std::nullopt}};
    return device;
}

/** The bits of `value` from bit 0 up, `length` of them. */
std::vector<bool> bitsOf(std::uint64_t value, std::size_t length) {
    std::vector<bool> bits;
    for (std::size_t i = 0; i < length; ++i) bits.push_back(i < 64 && ((value >> i) & 1U) != 0);
    return bits;
}

std::string instructionScan(JtagChain& chain, std::uint64_t opcode, std::size_t irLength) {
    return chain.scan(ScanKind::Instruction, bitString(bitsOf(opcode, irLength)), irLength);
}

TEST(JtagChain, CaptureIrLoadsEachDevicesIrCapture) {
    std::vector<sim::TapDevice> devices = {fpga(), fpga()};
    devices[0].irCapture = 0x00;  // real TAPs exist that capture 0
    devices[1].irCapture = 0x11;
    JtagChain chain(devices);
    // Nearest TDO first: 0x11 in six bits, then six zeros, then the TDI bits.
    std::vector<bool> expected = bitsOf(0x11, 6);
    for (int i = 0; i < 6; ++i) expected.push_back(false);
    for (int i = 0; i < 4; ++i) expected.push_back(true);
    EXPECT_EQ(chain.scan(ScanKind::Instruction, ones(16), 16), bitString(expected));
}

TEST(JtagChain, CaptureIrClockByClockShowsTheCaptureBits) {
    sim::TapDevice device = fpga();
    device.irCapture = 0b101101;
    JtagChain chain({device});
    chain.moveTo(TapState::CaptureIr);
    chain.clock(false, false);  // the capture happens on this clock, then Shift-IR
    std::vector<bool> out;
    out.reserve(6);
    for (int i = 0; i < 6; ++i) out.push_back(chain.clock(i == 5, false));
    EXPECT_EQ(out, (std::vector<bool>{true, false, true, true, false, true}));
}

TEST(JtagChain, ListedInstructionSelectsItsRegisterWithItsLengthAndCapture) {
    JtagChain chain({fpga()});
    instructionScan(chain, 0x08, 6);
    EXPECT_EQ(chain.instruction(0), 0x08U);
    // USERCODE captures all ones; what is shifted in comes out after 32 bits.
    const std::string tdi = pattern(8, 5);
    const std::string tdo = chain.scan(ScanKind::Data, tdi, 64);
    for (std::size_t i = 0; i < 32; ++i) ASSERT_TRUE(bitOf(tdo, i)) << "bit " << i;
    for (std::size_t i = 32; i < 64; ++i) ASSERT_EQ(bitOf(tdo, i), bitOf(tdi, i - 32)) << "bit " << i;
    // The capture value comes back at every scan.
    EXPECT_EQ(chain.scan(ScanKind::Data, "", 32), littleEndian(0xFFFFFFFF));
}

TEST(JtagChain, RegisterWithoutCaptureKeepsWhatWasLastShiftedIn) {
    JtagChain chain({fpga()});
    instructionScan(chain, 0x05, 6);
    const std::string first = pattern(8, 9);
    EXPECT_EQ(chain.scan(ScanKind::Data, first, 64), std::string(8, '\0'));  // all zeros at first
    const std::string second = pattern(8, 10);
    EXPECT_EQ(chain.scan(ScanKind::Data, second, 64), first);
    // Selecting another register and coming back, or a reset, loses nothing.
    instructionScan(chain, 0x08, 6);
    chain.reset();
    instructionScan(chain, 0x05, 6);
    EXPECT_EQ(chain.scan(ScanKind::Data, "", 64), second);
}

TEST(JtagChain, UnlistedOpcodesAndAllOnesSelectBypass) {
    for (const std::uint64_t opcode : {0x00U, 0x01U, 0x07U, 0x2AU, 0x3EU, 0x3FU}) {
        JtagChain chain({fpga()});
        instructionScan(chain, opcode, 6);
        // One captured zero, then the TDI bits one clock late.
        EXPECT_EQ(chain.scan(ScanKind::Data, wire("\x0F"), 8), wire("\x1E")) << "opcode " << opcode;
    }
}

TEST(JtagChain, ResetSelectsIdcodeOnADeviceWithListedInstructions) {
    JtagChain chain({fpga()});
    instructionScan(chain, 0x08, 6);
    chain.reset();
    EXPECT_EQ(chain.instruction(0), 0x09U);
    EXPECT_EQ(chain.scan(ScanKind::Data, "", 32), littleEndian(0x0362D093));
    instructionScan(chain, 0x09, 6);
    EXPECT_EQ(chain.scan(ScanKind::Data, "", 32), littleEndian(0x0362D093));
}

TEST(JtagChain, InstructionRegistersOf38And64BitsWork) {
    sim::TapDevice dsp;
    dsp.name = "dsp";
    dsp.irLength = 38;
    dsp.idcode = 0x0B7B302F;
    dsp.idcodeInstruction = 0x04;
    dsp.irCapture = 0x2A00000001;
    dsp.instructions = {{"WIDE", 0x3000000001, 40, sim::RegisterBits{0xAB12345678}}};
    sim::TapDevice wide;
    wide.name = "wide";
    wide.irLength = 64;
    wide.idcode = 0x12345679;
    wide.idcodeInstruction = 0x8000000000000001;
    wide.irCapture = 0xC000000000000001;
    JtagChain chain({dsp, wide});

    // Capture-IR: the 64-bit device's capture (nearest TDO), then the 38-bit one's.
    std::vector<bool> expected = bitsOf(0xC000000000000001, 64);
    const std::vector<bool> dspCapture = bitsOf(0x2A00000001, 38);
    expected.insert(expected.end(), dspCapture.begin(), dspCapture.end());
    // The first bits shifted in travel furthest: wide's instruction, then dsp's.
    std::vector<bool> instructions(64, true);
    const std::vector<bool> dspInstruction = bitsOf(0x3000000001, 38);
    instructions.insert(instructions.end(), dspInstruction.begin(), dspInstruction.end());
    EXPECT_EQ(chain.scan(ScanKind::Instruction, bitString(instructions), 102), bitString(expected));
    EXPECT_EQ(chain.instruction(0), 0x3000000001U);
    EXPECT_EQ(chain.instruction(1), ~std::uint64_t{0});

    // wide in BYPASS (one zero), then dsp's 40-bit WIDE register.
    std::vector<bool> data = {false};
    const std::vector<bool> wideRegister = bitsOf(0xAB12345678, 40);
    data.insert(data.end(), wideRegister.begin(), wideRegister.end());
    EXPECT_EQ(chain.scan(ScanKind::Data, "", 41), bitString(data));

    chain.reset();
    EXPECT_EQ(chain.instruction(1), 0x8000000000000001U);
    EXPECT_EQ(chain.scan(ScanKind::Data, "", 64), littleEndian(0x12345679) + littleEndian(0x0B7B302F));
}

TEST(JtagChain, RegistersLongerThan64BitsCaptureAndShiftEveryBit) {
    sim::TapDevice device = fpga();
    device.instructions = {{"LONG", 0x02, 130, sim::RegisterBits{0x8000000000000001, 0x0123456789ABCDEF, 0x3}}};
    JtagChain whole({device});
    JtagChain clocked({device});
    instructionScan(whole, 0x02, 6);
    instructionScan(clocked, 0x02, 6);
    const std::string tdi = pattern(40, 21);
    const std::string wholeTdo = whole.scan(ScanKind::Data, tdi, 300);
    clocked.moveTo(TapState::ShiftDr);
    std::vector<bool> bits;
    for (std::size_t i = 0; i < 300; ++i) bits.push_back(clocked.clock(i == 299, bitOf(tdi, i)));
    clocked.moveTo(TapState::RunTestIdle);
    EXPECT_EQ(wholeTdo, bitString(bits));
    std::vector<bool> captured = bitsOf(0x8000000000000001, 64);
    const std::vector<bool> middle = bitsOf(0x0123456789ABCDEF, 64);
    captured.insert(captured.end(), middle.begin(), middle.end());
    captured.push_back(true);
    captured.push_back(true);
    for (std::size_t i = 0; i < 130; ++i) ASSERT_EQ(bitOf(wholeTdo, i), captured[i]) << "bit " << i;
    for (std::size_t i = 130; i < 300; ++i) ASSERT_EQ(bitOf(wholeTdo, i), bitOf(tdi, i - 130)) << "bit " << i;
}

TEST(JtagChain, ValidationNamesTheInstructionAndItsKey) {
    sim::TapDevice device = fpga();
    device.instructions[1].opcode = 0x3F;
    EXPECT_EQ(sim::validateChain({device}),
              "device \"fpga\": key \"instructions.CFG_IN.opcode\": 0x3F is all ones, which always selects BYPASS");
    device = fpga();
    device.instructions[0].capture = sim::RegisterBits{0, 1};
    EXPECT_EQ(sim::validateChain({device}),
              "device \"fpga\": key \"instructions.USERCODE.capture\": does not fit length 32");
    device = fpga();
    device.irCapture = 0x40;
    EXPECT_EQ(sim::validateChain({device}), "device \"fpga\": key \"irCapture\": 0x40 does not fit irLength 6");
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

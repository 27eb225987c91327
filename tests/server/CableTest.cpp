// SPDX-License-Identifier: MIT
/* The cable's targets and what the commands mean to them: the SSPI flash,
 * the I2C EEPROM at 0x50, the pump buffer, shared applications, the chain
 * description and shifts with an expected value and mask. */
#include <gtest/gtest.h>

#include <string>

#include "server/Cable.h"
#include "SimulatorHarness.h"

namespace tetherhost::test {
namespace {

using sim::Cable;
namespace reply = sim::reply;

TEST(SspiFlash, StartsErasedAndReadsBackWhatWasProgrammed) {
    Cable cable;
    EXPECT_EQ(cable.sspiRead(100, 4, 0, 4), std::string(4, '\xFF'));
    EXPECT_EQ(cable.sspiWrite(100, wire("\x12\x34\0\xAB"), 0), reply::done);
    EXPECT_EQ(cable.sspiRead(100, 4, 0, 4), wire("\x12\x34\0\xAB"));
    EXPECT_EQ(cable.sspiRead(100, 4, 2, 2), wire("\0\xAB"));
}

TEST(SspiFlash, ProgrammingOnlyClearsBitsUntilTheSectorIsErased) {
    Cable cable;
    ASSERT_EQ(cable.sspiWrite(4096 + 10, wire("\xF0"), 0), reply::done);
    ASSERT_EQ(cable.sspiWrite(4096 + 10, wire("\x3C"), 0), reply::done);
    EXPECT_EQ(cable.sspiRead(4096 + 10, 1, 0, 1), wire("\x30"));
    ASSERT_EQ(cable.sspiWrite(4096 + 11, wire("\x0F"), sim::sspiOption::eraseFirst), reply::done);
    // The erase set the whole sector back to 0xFF before the new byte went in.
    EXPECT_EQ(cable.sspiRead(4096 + 10, 2, 0, 2), wire("\xFF\x0F"));
    EXPECT_EQ(cable.sspiRead(4095, 1, 0, 1), wire("\xFF"));
}

TEST(SspiFlash, RangesLeavingTheMemoryAreRefusedAndReadAsIdle) {
    Cable cable;
    const auto size = static_cast<std::int64_t>(cable.sspi.size());
    EXPECT_EQ(cable.sspiWrite(size - 1, wire("\x01\x02"), 0), reply::outOfRange);
    EXPECT_EQ(cable.sspiWrite(-1, wire("\x01"), 0), reply::outOfRange);
    EXPECT_EQ(cable.sspiWrite(size - 2, wire("\x01\x02"), 0), reply::done);
    EXPECT_EQ(cable.sspiReadStatus(size - 1, 2), reply::outOfRange);
    EXPECT_EQ(cable.sspiRead(size - 1, 2, 0, 2), wire("\xFF\xFF"));
}

TEST(I2cEeprom, DeviceAt0x50StoresAndReadsBytes) {
    Cable cable;
    EXPECT_EQ(cable.eeprom.busAddress(), 0x50);
    EXPECT_EQ(cable.i2cWrite(0x50, 16, wire("\x01\x80\0")), reply::done);
    EXPECT_EQ(cable.i2cReadStatus(0x50, 16), reply::done);
    EXPECT_EQ(cable.i2cRead(0x50, 16, 0, 3), wire("\x01\x80\0"));
    EXPECT_EQ(cable.i2cRead(0x50, 16, 1, 2), wire("\x80\0"));
}

TEST(I2cEeprom, SequentialAccessWrapsAtTheEndOfTheMemory) {
    Cable cable;
    ASSERT_EQ(cable.i2cWrite(0x50, 254, wire("\x0A\x0B\x0C")), reply::done);
    EXPECT_EQ(cable.i2cRead(0x50, 0, 0, 1), wire("\x0C"));
    EXPECT_EQ(cable.i2cRead(0x50, 255, 0, 2), wire("\x0B\x0C"));
    EXPECT_EQ(cable.i2cRead(0x50, 254, 256, 1), wire("\x0A"));
}

TEST(I2cEeprom, OtherBusAddressesAreNotAcknowledged) {
    Cable cable;
    EXPECT_EQ(cable.i2cWrite(0x51, 0, wire("\x01")), reply::noAcknowledge);
    EXPECT_EQ(cable.i2cReadStatus(0x51, 0), reply::noAcknowledge);
    EXPECT_EQ(cable.i2cRead(0x51, 0, 0, 2), wire("\xFF\xFF"));
    EXPECT_EQ(cable.i2cRead(0x50, 0, 0, 1), wire("\xFF"));  // the failed write changed nothing
}

TEST(I2cEeprom, BadWordAddressesAndOverlongWritesAreOutOfRange) {
    Cable cable;
    EXPECT_EQ(cable.i2cWrite(0x50, 256, wire("\x01")), reply::outOfRange);
    EXPECT_EQ(cable.i2cWrite(0x50, -1, wire("\x01")), reply::outOfRange);
    EXPECT_EQ(cable.i2cWrite(0x50, 0, std::string(257, 'x')), reply::outOfRange);
    EXPECT_EQ(cable.i2cReadStatus(0x50, 256), reply::outOfRange);
}

TEST(PumpBuffer, AppendedBlocksComeBackFirstInFirstOut) {
    Cable cable;
    sim::PumpPlan plan = cable.planPump(0, 3);
    ASSERT_TRUE(plan.keep);
    cable.pump.append("abc");
    plan = cable.planPump(0, 2);
    cable.pump.append("de");
    EXPECT_EQ(cable.pumpReply(plan), 5);
    EXPECT_EQ(cable.pump.take(4), "abcd");
    EXPECT_EQ(cable.pump.take(4), "e");
    EXPECT_EQ(cable.pump.take(4), "");
}

TEST(PumpBuffer, ReadOnlyKeepsNothingAndReplaceEmptiesFirst) {
    Cable cable;
    cable.planPump(0, 3);
    cable.pump.append("abc");
    const sim::PumpPlan readOnly = cable.planPump(1, 100);
    EXPECT_FALSE(readOnly.keep);
    EXPECT_EQ(cable.pumpReply(readOnly), 3);
    const sim::PumpPlan replace = cable.planPump(2, 2);
    ASSERT_TRUE(replace.keep);
    cable.pump.append("xy");
    EXPECT_EQ(cable.pump.take(10), "xy");
}

TEST(PumpBuffer, FullBufferAndUnknownModeRefuseTheBlock) {
    sim::CableConfig config;
    config.pumpCapacity = 8;
    Cable cable(config);
    cable.planPump(0, 6);
    cable.pump.append("123456");
    const sim::PumpPlan full = cable.planPump(0, 3);
    EXPECT_FALSE(full.keep);
    EXPECT_EQ(cable.pumpReply(full), reply::bufferFull);
    EXPECT_EQ(cable.pumpReply(cable.planPump(7, 1)), reply::outOfRange);
    EXPECT_EQ(cable.pump.held(), 6U);
    EXPECT_TRUE(cable.planPump(2, 8).keep);  // a replacement may use the whole capacity
}

TEST(PumpBuffer, FourMebibytesGoInAndComeOutIntactInPieces) {
    Cable cable;
    const std::string block = pattern(std::size_t{4} * 1024 * 1024, 42);
    ASSERT_TRUE(cable.planPump(0, block.size()).keep);
    cable.pump.append(block);
    std::string back;
    while (cable.pump.held() > 0) back += cable.pump.take(1023);
    EXPECT_EQ(back, block);
}

TEST(SharedApps, NamesUpToTheFirstNulAreKeptAndCounted) {
    Cable cable;
    std::string block = "alpha;beta;;";
    block.resize(1024, '\0');
    EXPECT_EQ(cable.setSharedApps(block), 3);
    EXPECT_EQ(cable.sharedApps(), "alpha;beta;;");
    EXPECT_EQ(cable.setSharedApps(std::string(1024, '\0')), 0);
    EXPECT_EQ(cable.sharedApps(), "");
}

TEST(Cable, ChainDescriptionListsDevicesFromTdiToTdo) {
    Cable cable;
    std::string description;
    EXPECT_EQ(cable.describeChain(description), 3);
    EXPECT_EQ(description, defaultChainText);
}

TEST(Cable, DeviceRegistersAreListedByNameAfterReset) {
    Cable cable;
    std::string registers;
    EXPECT_EQ(cable.describeDevice(1, registers), 3);
    // Reset selects IDCODE (0x09); nothing has been captured or shifted yet.
    EXPECT_EQ(registers, "tap1;instruction=0x9;ir=0x00;fixed=0x0;");
}

TEST(Cable, DeviceRegistersShowWhatTheLastScansLeft) {
    Cable cable;
    // All ones into every instruction register: BYPASS everywhere; then
    // one data bit through each BYPASS register, the last one shifted a 1.
    cable.shift(sim::shiftFlag::instructionScan, 18, wire("\xFF\xFF\x03"), nullptr, nullptr);
    cable.shift(0, 3, wire("\x01"), nullptr, nullptr);
    std::string registers;
    EXPECT_EQ(cable.describeDevice(2, registers), 3);
    EXPECT_EQ(registers, "tap2;instruction=0xff;ir=0xff;fixed=0x1;");
    EXPECT_EQ(cable.describeDevice(0, registers), 3);
    EXPECT_EQ(registers, "tap0;instruction=0xf;ir=0xf;fixed=0x0;");
}

TEST(Cable, DeviceRegistersOfAnIndexOutsideTheChainAreOutOfRange) {
    Cable cable;
    std::string registers = "untouched";
    EXPECT_EQ(cable.describeDevice(3, registers), reply::outOfRange);
    EXPECT_EQ(cable.describeDevice(-1, registers), reply::outOfRange);
    EXPECT_EQ(registers, "untouched");
}

TEST(Cable, ShiftFlagSelectsInstructionOrDataScan) {
    Cable cable;
    const sim::ShiftResult data = cable.shift(0, 32, std::string(4, '\0'), nullptr, nullptr);
    EXPECT_EQ(data.status, reply::done);
    EXPECT_EQ(data.tdo, littleEndian(0x07B421FF));
    const sim::ShiftResult instruction =
        cable.shift(sim::shiftFlag::instructionScan, 8, wire("\xFF"), nullptr, nullptr);
    EXPECT_EQ(instruction.tdo, wire("\x01"));
}

TEST(Cable, MaskedComparisonCountsMismatchingBits) {
    Cable cable;
    const std::string expected = littleEndian(0x07B421FF);
    const std::string all = std::string(4, '\xFF');
    EXPECT_EQ(cable.shift(0, 32, std::string(4, '\0'), &expected, &all).mismatches, 0U);
    const std::string wrong = littleEndian(0x07B421FF ^ 0x80000003U);
    EXPECT_EQ(cable.shift(0, 32, std::string(4, '\0'), &wrong, &all).mismatches, 3U);
    const std::string lowByte = wire("\xFF\0\0\0");
    EXPECT_EQ(cable.shift(0, 32, std::string(4, '\0'), &wrong, &lowByte).mismatches, 2U);
    EXPECT_EQ(cable.shift(0, 32, std::string(4, '\0'), &wrong, nullptr).mismatches, 0U);
}

TEST(Cable, OverlongScanIsNotPerformed) {
    Cable cable;
    const sim::ShiftResult result = cable.shift(0, sim::maxScanBits + 1, "", nullptr, nullptr);
    EXPECT_EQ(result.status, reply::tooLong);
    EXPECT_EQ(result.tdo, "");
    EXPECT_EQ(cable.jtag.state(), sim::TapState::TestLogicReset);
}

}  // namespace
}  // namespace tetherhost::test

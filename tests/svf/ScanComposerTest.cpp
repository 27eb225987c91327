// SPDX-License-Identifier: MIT
/* Tests of the scan composer: what each kind keeps from one statement to
 * the next, headers and trailers around the scan, and what is compared. */
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "SvfTesting.h"

namespace tetherhost::svf {
namespace {

using testing::composeAll;
using testing::errorOf;
using testing::readAll;

TEST(ScanComposer, TdiIsKeptWhileTheLengthStays) {
    const std::vector<Scan> scans = composeAll("SDR 8 TDI (A5); SDR 8; SDR 8 TDO (00);");
    ASSERT_EQ(scans.size(), 3u);
    for (const Scan& scan : scans) {
        EXPECT_FALSE(scan.instruction);
        EXPECT_EQ(scan.tdi.hex(), "A5");
    }
    EXPECT_FALSE(scans[0].check);
    EXPECT_FALSE(scans[1].check);
    EXPECT_TRUE(scans[2].check);
}

TEST(ScanComposer, MaskIsKeptButTdoIsComparedOnlyWhereGiven) {
    const std::vector<Scan> scans =
        composeAll("SDR 8 TDI (00) TDO (F0) MASK (0F); SDR 8 TDI (00); SDR 8 TDI (11) TDO (AA);");
    ASSERT_EQ(scans.size(), 3u);
    EXPECT_TRUE(scans[0].check);
    EXPECT_EQ(scans[0].expected.hex(), "F0");
    EXPECT_EQ(scans[0].mask.hex(), "0F");
    EXPECT_FALSE(scans[1].check);
    EXPECT_EQ(scans[1].expected.length, 0u);
    EXPECT_EQ(scans[1].mask.length, 0u);
    EXPECT_TRUE(scans[2].check);
    EXPECT_EQ(scans[2].tdi.hex(), "11");
    EXPECT_EQ(scans[2].expected.hex(), "AA");
    EXPECT_EQ(scans[2].mask.hex(), "0F");
}

TEST(ScanComposer, MaskIsAllOnesAfterTheLengthChanges) {
    const std::vector<Scan> scans =
        composeAll("SDR 8 TDI (00) TDO (00) MASK (0F); SDR 12 TDI (000) TDO (123); SDR 12 TDI (000) TDO (456);");
    ASSERT_EQ(scans.size(), 3u);
    EXPECT_EQ(scans[1].mask.hex(), "FFF");
    EXPECT_EQ(scans[1].expected.hex(), "123");
    EXPECT_EQ(scans[2].mask.hex(), "FFF");
    EXPECT_EQ(composeAll("SIR 4 TDI (1) TDO (1);").front().mask.hex(), "F");
}

TEST(ScanComposer, ANewLengthWithoutTdiIsAnError) {
    EXPECT_EQ(errorOf("SDR 8 TDI (00);\n  SDR 16 TDO (0000);"),
              "t.svf:2:3: SDR changes the scan length from 8 to 16 bits without giving TDI");
    EXPECT_EQ(errorOf("SIR 4;"), "t.svf:1:1: SIR changes the scan length from 0 to 4 bits without giving TDI");
    EXPECT_EQ(errorOf("HDR 2 TDI (3);\nHDR 3 MASK (7);"),
              "t.svf:2:1: HDR changes the scan length from 2 to 3 bits without giving TDI");
}

TEST(ScanComposer, LengthZeroNeedsNoTdi) {
    const std::vector<Scan> scans = composeAll("HDR 8 TDI (FF); HDR 0; SDR 4 TDI (5); SDR 0;");
    ASSERT_EQ(scans.size(), 2u);
    EXPECT_EQ(scans[0].tdi, (Bits{4, {0x05}}));
    EXPECT_EQ(scans[1].tdi, Bits{});
}

TEST(ScanComposer, EachKindKeepsItsOwn) {
    const std::vector<Scan> scans = composeAll("SIR 4 TDI (1); SDR 8 TDI (22); SIR 4; SDR 8;");
    ASSERT_EQ(scans.size(), 4u);
    EXPECT_TRUE(scans[0].instruction);
    EXPECT_EQ(scans[2].tdi.hex(), "1");
    EXPECT_TRUE(scans[2].instruction);
    EXPECT_EQ(scans[3].tdi.hex(), "22");
    EXPECT_FALSE(scans[3].instruction);
}

TEST(ScanComposer, HeaderIsShiftedFirstAndTrailerLast) {
    // Header F in bits 0-3, the body 0x15 in bits 4-9, the trailer 3 in bits 10-11.
    const std::vector<Scan> scans = composeAll("HIR 4 TDI (F); TIR 2 TDI (3); SIR 6 TDI (15);");
    ASSERT_EQ(scans.size(), 1u);
    EXPECT_EQ(scans[0].tdi.length, 12u);
    EXPECT_EQ(scans[0].tdi.hex(), "D5F");
}

TEST(ScanComposer, PartsOfOddLengthsJoinBitByBit) {
    // 5 | 0x1AB << 3 | 1 << 12
    const std::vector<Scan> scans = composeAll("HDR 3 TDI (5); TDR 1 TDI (1); SDR 9 TDI (1AB);");
    ASSERT_EQ(scans.size(), 1u);
    EXPECT_EQ(scans[0].tdi, (Bits{13, {0x5D, 0x1D}}));
}

TEST(ScanComposer, HeadersOfOneKindLeaveTheOtherAlone) {
    const std::vector<Scan> scans = composeAll("HIR 4 TDI (F); TIR 4 TDI (F); SDR 4 TDI (1); SIR 2 TDI (0);");
    ASSERT_EQ(scans.size(), 2u);
    EXPECT_EQ(scans[0].tdi.hex(), "1");
    EXPECT_EQ(scans[1].tdi.hex(), "3CF");
}

TEST(ScanComposer, AHeaderWithoutTdoIsNotCompared) {
    const std::vector<Scan> scans = composeAll("HDR 2 TDI (3); SDR 4 TDI (0) TDO (A);");
    ASSERT_EQ(scans.size(), 1u);
    EXPECT_TRUE(scans[0].check);
    EXPECT_EQ(scans[0].tdi.hex(), "03");
    EXPECT_EQ(scans[0].expected.hex(), "28");
    EXPECT_EQ(scans[0].mask.hex(), "3C");
}

TEST(ScanComposer, AHeaderWithTdoIsComparedUnderItsMask) {
    // Expected 1 | A << 2 | 2 << 6; mask 3 (all ones) | C << 2 | 1 << 6.
    const std::vector<Scan> scans =
        composeAll("HDR 2 TDI (3) TDO (1); TDR 2 TDI (0) TDO (2) MASK (1); SDR 4 TDI (0) TDO (A) MASK (C);");
    ASSERT_EQ(scans.size(), 1u);
    EXPECT_EQ(scans[0].tdi.hex(), "03");
    EXPECT_EQ(scans[0].expected.hex(), "A9");
    EXPECT_EQ(scans[0].mask.hex(), "73");
}

TEST(ScanComposer, AHeaderWithTdoDoesNotMakeAScanCompared) {
    const std::vector<Scan> scans = composeAll("HIR 2 TDI (3) TDO (1); SIR 4 TDI (2);");
    ASSERT_EQ(scans.size(), 1u);
    EXPECT_FALSE(scans[0].check);
    EXPECT_EQ(scans[0].tdi.hex(), "0B");
}

TEST(ScanComposer, AHeaderLosesItsTdoWhenRestatedWithout) {
    const std::vector<Scan> scans = composeAll("HDR 2 TDI (3) TDO (1); HDR 2; SDR 2 TDI (0) TDO (2);");
    ASSERT_EQ(scans.size(), 1u);
    EXPECT_EQ(scans[0].tdi.hex(), "3");
    EXPECT_EQ(scans[0].expected.hex(), "8");
    EXPECT_EQ(scans[0].mask.hex(), "C");
}

TEST(ScanComposer, OtherStatementsMakeNoScan) {
    ScanComposer composer;
    for (const Statement& statement :
         readAll("ENDIR IDLE; ENDDR DRPAUSE; STATE RESET; RUNTEST 10 TCK; FREQUENCY; TRST OFF; HIR 0; TDR 0;")) {
        EXPECT_EQ(composer.take(statement, "t.svf"), std::nullopt) << statement.summary;
    }
}

TEST(ScanComposer, TrstAfterTrstAbsentIsAnError) {
    EXPECT_EQ(errorOf("TRST ABSENT;\nTRST ABSENT;\n TRST ON;"),
              "t.svf:3:2: TRST ON after TRST ABSENT on line 1: the file said the chain has no TRST");
    EXPECT_EQ(errorOf("TRST Z; TRST ABSENT; TRST Z;"),
              "t.svf:1:22: TRST Z after TRST ABSENT on line 1: the file said the chain has no TRST");
    EXPECT_EQ(errorOf("TRST ON; TRST OFF; TRST Z;"), "no error");
}

}  // namespace
}  // namespace tetherhost::svf

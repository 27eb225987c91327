// SPDX-License-Identifier: MIT
/* Tests of the reader on well-formed SVF: every statement and its fields,
 * comments, lines, case, CRLF and tabs, hex strings in all their vendor
 * forms, number forms, summaries, positions and progress. */
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "SvfTesting.h"
#include "svf/Lexer.h"

namespace tetherhost::svf {
namespace {

using testing::readAll;
using testing::readOne;

std::string hexOf(const std::optional<Bits>& bits) { return bits ? bits->hex() : "absent"; }

TEST(ReaderScan, GivesEveryFieldAsWritten) {
    const Statement sir = readOne("SIR 8 TDI (FE) TDO (01) MASK (03) SMASK (FF);");
    EXPECT_EQ(sir.kind, Kind::Sir);
    EXPECT_EQ(sir.scan.length, 8u);
    EXPECT_EQ(hexOf(sir.scan.tdi), "FE");
    EXPECT_EQ(hexOf(sir.scan.tdo), "01");
    EXPECT_EQ(hexOf(sir.scan.mask), "03");
    EXPECT_EQ(hexOf(sir.scan.smask), "FF");
    EXPECT_EQ(sir.summary, "SIR 8 TDI (FE) TDO (01) MASK (03) SMASK (FF);");
}

TEST(ReaderScan, TakesTheFieldsInAnyOrderAndLeavesOutWhatIsNotGiven) {
    const Statement sdr = readOne("SDR 16 SMASK(FFFF) MASK(00FF) TDO(1234) TDI(ABCD);");
    EXPECT_EQ(sdr.kind, Kind::Sdr);
    EXPECT_EQ(hexOf(sdr.scan.tdi), "ABCD");
    EXPECT_EQ(hexOf(sdr.scan.tdo), "1234");
    EXPECT_EQ(hexOf(sdr.scan.mask), "00FF");
    EXPECT_EQ(hexOf(sdr.scan.smask), "FFFF");

    const Statement bare = readOne("SDR 16 TDI(0001);");
    EXPECT_EQ(hexOf(bare.scan.tdi), "0001");
    EXPECT_EQ(hexOf(bare.scan.tdo), "absent");
    EXPECT_EQ(hexOf(bare.scan.mask), "absent");
    EXPECT_EQ(hexOf(bare.scan.smask), "absent");
}

TEST(ReaderScan, HeadersAndTrailersHaveTheScanSyntax) {
    const std::vector<Statement> statements =
        readAll("HIR 4 TDI(F) SMASK(F); HDR 1 TDI(0) TDO(1) MASK(1); TIR 6 TDI(3F); TDR 2 TDI(2);");
    ASSERT_EQ(statements.size(), 4u);
    EXPECT_EQ(statements[0].kind, Kind::Hir);
    EXPECT_EQ(hexOf(statements[0].scan.tdi), "F");
    EXPECT_EQ(hexOf(statements[0].scan.smask), "F");
    EXPECT_EQ(statements[1].kind, Kind::Hdr);
    EXPECT_EQ(hexOf(statements[1].scan.tdo), "1");
    EXPECT_EQ(statements[2].kind, Kind::Tir);
    EXPECT_EQ(statements[2].scan.length, 6u);
    EXPECT_EQ(hexOf(statements[2].scan.tdi), "3F");
    EXPECT_EQ(statements[3].kind, Kind::Tdr);
    EXPECT_EQ(hexOf(statements[3].scan.tdi), "2");
}

TEST(ReaderScan, ZeroLengthNeedsNoField) {
    const std::vector<Statement> statements = readAll("HIR 0; SDR 0 TDI (0);");
    ASSERT_EQ(statements.size(), 2u);
    EXPECT_EQ(statements[0].scan.length, 0u);
    EXPECT_EQ(hexOf(statements[0].scan.tdi), "absent");
    EXPECT_EQ(statements[1].scan.tdi, (Bits{0, {}}));
}

TEST(ReaderHex, TheLastDigitHoldsTheFirstBitsShifted) {
    const Statement sdr = readOne("SDR 32 TDI (DEADBEEF);");
    EXPECT_EQ(sdr.scan.tdi, (Bits{32, {0xEF, 0xBE, 0xAD, 0xDE}}));
    EXPECT_EQ(readOne("SDR 10 TDI (3FF);").scan.tdi, (Bits{10, {0xFF, 0x03}}));
    EXPECT_EQ(readOne("SDR 3 TDI (5);").scan.tdi, (Bits{3, {0x05}}));
}

TEST(ReaderHex, LowerCaseDigitsAreTheSame) {
    EXPECT_EQ(readOne("SDR 24 TDI (abcdef);").scan.tdi, (Bits{24, {0xEF, 0xCD, 0xAB}}));
}

TEST(ReaderHex, ExtraLeadingZeroDigitsAreDropped) {
    EXPECT_EQ(readOne("SIR 6 TDI (003F);").scan.tdi, (Bits{6, {0x3F}}));
    EXPECT_EQ(readOne("SDR 4 TDI (0000000A);").scan.tdi, (Bits{4, {0x0A}}));
    EXPECT_EQ(readOne("SDR 1 TDI (01);").scan.tdi, (Bits{1, {0x01}}));
}

TEST(ReaderHex, FewerDigitsThanTheLengthAreZeroFilled) {
    EXPECT_EQ(readOne("SDR 16 TDI (5);").scan.tdi, (Bits{16, {0x05, 0x00}}));
    EXPECT_EQ(readOne("SDR 16 TDI (5);").scan.tdi->hex(), "0005");
}

TEST(ReaderHex, WhitespaceAndLineEndsInsideAreIgnored) {
    const Statement sdr = readOne("SDR 64 TDI (0123\r\n\t4567 89AB\n  CDEF\r\n);");
    EXPECT_EQ(hexOf(sdr.scan.tdi), "0123456789ABCDEF");
    EXPECT_EQ(sdr.firstLine, 1);
    EXPECT_EQ(sdr.lastLine, 4);
}

TEST(ReaderHex, CommentsInsideAreIgnored) {
    const Statement sdr = readOne("SDR 16 TDI (12 ! high byte\n34 // low byte\n);");
    EXPECT_EQ(hexOf(sdr.scan.tdi), "1234");
    EXPECT_EQ(sdr.summary, "SDR 16 TDI (12 34 );");
}

TEST(ReaderText, CommentsRunToTheLineEndAndHideSemicolons) {
    const std::vector<Statement> statements = readAll(
        "! header; SIR 8 TDI (00);\n"
        "// SDR 8 TDI (00);\n"
        "SIR 4 TDI (1); // trailing; comment\n"
        "SDR 4 TDI (2); ! another\n");
    ASSERT_EQ(statements.size(), 2u);
    EXPECT_EQ(statements[0].kind, Kind::Sir);
    EXPECT_EQ(statements[0].firstLine, 3);
    EXPECT_EQ(statements[1].kind, Kind::Sdr);
    EXPECT_EQ(statements[1].firstLine, 4);
}

TEST(ReaderText, AStatementSpansAnyNumberOfLines) {
    const Statement sdr = readOne("\n\nSDR\n 16\n TDI\n (\n12\n34\n)\n;\n");
    EXPECT_EQ(sdr.firstLine, 3);
    EXPECT_EQ(sdr.firstColumn, 1);
    EXPECT_EQ(sdr.lastLine, 10);
    EXPECT_EQ(hexOf(sdr.scan.tdi), "1234");
    EXPECT_EQ(sdr.summary, "SDR 16 TDI ( 12 34 ) ;");
}

TEST(ReaderText, SeveralStatementsShareALine) {
    const std::vector<Statement> statements = readAll("ENDIR IDLE; ENDDR DRPAUSE;SIR 2 TDI(1);");
    ASSERT_EQ(statements.size(), 3u);
    EXPECT_EQ(statements[0].kind, Kind::EndIr);
    EXPECT_EQ(statements[0].firstColumn, 1);
    EXPECT_EQ(statements[1].kind, Kind::EndDr);
    EXPECT_EQ(statements[1].firstColumn, 13);
    EXPECT_EQ(statements[2].kind, Kind::Sir);
    EXPECT_EQ(statements[2].firstColumn, 27);
    for (const Statement& statement : statements) EXPECT_EQ(statement.lastLine, 1);
    EXPECT_EQ(statements[1].summary, "ENDDR DRPAUSE;");
}

TEST(ReaderText, KeywordsAndStatesTakeAnyCase) {
    const std::vector<Statement> statements = readAll(
        "sir 8 tdi (fe) tdo (0a) mask(ff); enddr drpause; Runtest Idle 10 tck endstate reset;"
        " trst off; frequency 1e6 hz; state reset idle; Hdr 0;");
    ASSERT_EQ(statements.size(), 7u);
    EXPECT_EQ(statements[0].kind, Kind::Sir);
    EXPECT_EQ(hexOf(statements[0].scan.tdo), "0A");
    EXPECT_EQ(statements[1].state, State::PauseDr);
    EXPECT_EQ(statements[2].runTest.runState, State::RunTestIdle);
    EXPECT_EQ(statements[2].runTest.count, 10u);
    EXPECT_EQ(statements[2].runTest.endState, State::TestLogicReset);
    EXPECT_EQ(statements[3].trst, TrstMode::Off);
    EXPECT_EQ(statements[4].hz, 1e6);
    EXPECT_EQ(statements[5].path, (std::vector<State>{State::TestLogicReset, State::RunTestIdle}));
    EXPECT_EQ(statements[6].kind, Kind::Hdr);
}

TEST(ReaderText, CrlfLineEndsAndTabsSeparateLikeSpaces) {
    const std::vector<Statement> statements =
        readAll("SIR\t8\tTDI\t(FE);\r\nSDR 8 TDI (00)\r\n\tTDO (FF);\r\n\tRUNTEST\t100\tTCK;\r\n");
    ASSERT_EQ(statements.size(), 3u);
    EXPECT_EQ(hexOf(statements[0].scan.tdi), "FE");
    EXPECT_EQ(statements[0].summary, "SIR 8 TDI (FE);");
    EXPECT_EQ(statements[1].firstLine, 2);
    EXPECT_EQ(statements[1].lastLine, 3);
    EXPECT_EQ(statements[1].summary, "SDR 8 TDI (00) TDO (FF);");
    EXPECT_EQ(statements[2].firstLine, 4);
    EXPECT_EQ(statements[2].firstColumn, 2);
    EXPECT_EQ(statements[2].runTest.count, 100u);
}

TEST(ReaderText, NothingButCommentsAndBlanksIsNoStatement) {
    EXPECT_TRUE(readAll("").empty());
    EXPECT_TRUE(readAll("\r\n\t ! only a comment\n// and another").empty());
}

TEST(ReaderText, TheSummaryStopsAtAHundredCharacters) {
    const std::string digits(128, 'A');
    const Statement sdr = readOne("SDR   512\n TDI (" + digits + ");");
    const std::string text = "SDR 512 TDI (" + digits + ");";
    EXPECT_EQ(sdr.summary, text.substr(0, 100) + "...");

    const std::string exact = "SDR 348 TDI (" + std::string(87, '0') + ");";  // 102 characters
    EXPECT_EQ(readOne(exact).summary, exact.substr(0, 100) + "...");
    const std::string fits = "SDR 340 TDI (" + std::string(85, '0') + ");";  // 100 characters
    EXPECT_EQ(readOne(fits).summary, fits);
}

TEST(ReaderText, BytesConsumedReachesEachStatementsSemicolon) {
    std::istringstream in("SIR 8 TDI(FE);\nSDR 8 TDI(00);\n! end\n");
    Reader reader(in, "t.svf");
    EXPECT_EQ(reader.bytesConsumed(), 0u);
    ASSERT_TRUE(reader.next());
    EXPECT_EQ(reader.bytesConsumed(), 14u);
    ASSERT_TRUE(reader.next());
    EXPECT_EQ(reader.bytesConsumed(), 29u);
    EXPECT_FALSE(reader.next());
    EXPECT_EQ(reader.bytesConsumed(), 36u);
    EXPECT_EQ(reader.fileName(), "t.svf");
}

TEST(ReaderText, TokensSplitAcrossReadPiecesReadTheSame) {
    // The statement starts a little before a piece boundary, at each offset in
    // turn, so that every token and the "//" of its comment is cut once.
    const std::string statement = "SDR 12 TDI (abc) // c\n TDO(ABC) MASK (FFF);";
    for (std::size_t before = 1; before <= statement.size(); ++before) {
        const std::string padding = "!" + std::string(Lexer::pieceSize - before - 2, '-') + "\n";
        const Statement sdr = readOne(padding + statement);
        EXPECT_EQ(hexOf(sdr.scan.tdi), "ABC") << before;
        EXPECT_EQ(hexOf(sdr.scan.tdo), "ABC") << before;
        EXPECT_EQ(hexOf(sdr.scan.mask), "FFF") << before;
        EXPECT_EQ(sdr.firstLine, 2) << before;
        EXPECT_EQ(sdr.lastLine, 3) << before;
        EXPECT_EQ(sdr.summary, "SDR 12 TDI (abc) TDO(ABC) MASK (FFF);") << before;
    }
}

TEST(ReaderEnd, EndIrAndEndDrTakeAStableState) {
    const std::vector<Statement> statements = readAll("ENDIR IRPAUSE; ENDDR RESET;");
    ASSERT_EQ(statements.size(), 2u);
    EXPECT_EQ(statements[0].kind, Kind::EndIr);
    EXPECT_EQ(statements[0].state, State::PauseIr);
    EXPECT_EQ(statements[1].kind, Kind::EndDr);
    EXPECT_EQ(statements[1].state, State::TestLogicReset);
}

TEST(ReaderState, AStableStateAloneIsAPathOfOne) {
    const Statement state = readOne("STATE IRPAUSE;");
    EXPECT_EQ(state.kind, Kind::StatePath);
    EXPECT_EQ(state.path, (std::vector<State>{State::PauseIr}));
}

TEST(ReaderState, AnExplicitPathNamesEveryStep) {
    const Statement state = readOne("STATE DRSELECT DRCAPTURE DREXIT1 DRPAUSE DREXIT2 DRUPDATE IDLE;");
    EXPECT_EQ(state.path, (std::vector<State>{State::SelectDrScan, State::CaptureDr, State::Exit1Dr, State::PauseDr,
                                              State::Exit2Dr, State::UpdateDr, State::RunTestIdle}));
    EXPECT_EQ(readOne("STATE IRSELECT RESET;").path, (std::vector<State>{State::SelectIrScan, State::TestLogicReset}));
}

TEST(ReaderRunTest, ACountOfClocks) {
    const RunTestFields run = readOne("RUNTEST 1000 TCK;").runTest;
    EXPECT_EQ(run.runState, std::nullopt);
    EXPECT_EQ(run.count, 1000u);
    EXPECT_EQ(run.clock, Clock::Tck);
    EXPECT_EQ(run.minSeconds, std::nullopt);
    EXPECT_EQ(run.maxSeconds, std::nullopt);
    EXPECT_EQ(run.endState, std::nullopt);
}

TEST(ReaderRunTest, RunStateCountAndEndState) {
    const RunTestFields run = readOne("RUNTEST IDLE 100 TCK ENDSTATE IDLE;").runTest;
    EXPECT_EQ(run.runState, State::RunTestIdle);
    EXPECT_EQ(run.count, 100u);
    EXPECT_EQ(run.endState, State::RunTestIdle);
    EXPECT_EQ(run.minSeconds, std::nullopt);
}

TEST(ReaderRunTest, EveryPartOfTheClockForm) {
    const RunTestFields run = readOne("RUNTEST DRPAUSE 20 SCK 1.5E-3 SEC MAXIMUM 2 SEC ENDSTATE IRPAUSE;").runTest;
    EXPECT_EQ(run.runState, State::PauseDr);
    EXPECT_EQ(run.count, 20u);
    EXPECT_EQ(run.clock, Clock::Sck);
    EXPECT_EQ(run.minSeconds, 1.5e-3);
    EXPECT_EQ(run.maxSeconds, 2.0);
    EXPECT_EQ(run.endState, State::PauseIr);
}

TEST(ReaderRunTest, ACountWithAMinimumTime) {
    const RunTestFields run = readOne("RUNTEST 12 TCK 1E-3 SEC;").runTest;
    EXPECT_EQ(run.count, 12u);
    EXPECT_EQ(run.minSeconds, 1e-3);
    EXPECT_EQ(run.maxSeconds, std::nullopt);
}

TEST(ReaderRunTest, ATimeAlone) {
    const RunTestFields run = readOne("RUNTEST 1.00E-02 SEC;").runTest;
    EXPECT_EQ(run.count, std::nullopt);
    EXPECT_EQ(run.minSeconds, 1.00e-02);
    EXPECT_EQ(run.runState, std::nullopt);
}

TEST(ReaderRunTest, EveryPartOfTheTimeForm) {
    const RunTestFields run = readOne("RUNTEST IDLE 50021E-6 SEC MAXIMUM 1E0 SEC ENDSTATE RESET;").runTest;
    EXPECT_EQ(run.runState, State::RunTestIdle);
    EXPECT_EQ(run.count, std::nullopt);
    EXPECT_EQ(run.minSeconds, 50021e-6);
    EXPECT_EQ(run.maxSeconds, 1.0);
    EXPECT_EQ(run.endState, State::TestLogicReset);
}

TEST(ReaderRunTest, ATimeAndAnEndState) {
    const RunTestFields run = readOne("RUNTEST 3 SEC ENDSTATE DRPAUSE;").runTest;
    EXPECT_EQ(run.minSeconds, 3.0);
    EXPECT_EQ(run.endState, State::PauseDr);
}

TEST(ReaderNumbers, CountsAndLengthsTakeExponentsWhenTheValueIsWhole) {
    EXPECT_EQ(readOne("RUNTEST 1E3 TCK;").runTest.count, 1000u);
    EXPECT_EQ(readOne("RUNTEST 2.5E+002 TCK;").runTest.count, 250u);
    EXPECT_EQ(readOne("RUNTEST 1200E-2 TCK;").runTest.count, 12u);
    EXPECT_EQ(readOne("RUNTEST 0 TCK;").runTest.count, 0u);
    EXPECT_EQ(readOne("RUNTEST 18446744073709551615 TCK;").runTest.count, 18446744073709551615u);
    EXPECT_EQ(readOne("SDR 8.0 TDI (AA);").scan.length, 8u);
    EXPECT_EQ(readOne("SDR 1.6e1 TDI (AAAA);").scan.length, 16u);
}

TEST(ReaderNumbers, TimesAndFrequenciesTakeEveryVendorForm) {
    EXPECT_EQ(readOne("FREQUENCY 9.00e+005 HZ;").hz, 9.00e+005);
    EXPECT_EQ(readOne("FREQUENCY 1E6 hz;").hz, 1e6);
    EXPECT_EQ(readOne("FREQUENCY 25000000 HZ;").hz, 25e6);
    EXPECT_EQ(readOne("RUNTEST 50021E-6 SEC;").runTest.minSeconds, 50021e-6);
    EXPECT_EQ(readOne("RUNTEST 1E0 SEC;").runTest.minSeconds, 1.0);
    EXPECT_EQ(readOne("RUNTEST .5 SEC;").runTest.minSeconds, 0.5);
    EXPECT_EQ(readOne("RUNTEST 2. SEC;").runTest.minSeconds, 2.0);
}

TEST(ReaderFrequency, BareMeansFullSpeed) {
    const Statement frequency = readOne("FREQUENCY;");
    EXPECT_EQ(frequency.kind, Kind::Frequency);
    EXPECT_EQ(frequency.hz, std::nullopt);
}

TEST(ReaderTrst, EveryMode) {
    const std::vector<Statement> statements = readAll("TRST ON; TRST OFF; TRST Z; TRST ABSENT;");
    ASSERT_EQ(statements.size(), 4u);
    EXPECT_EQ(statements[0].trst, TrstMode::On);
    EXPECT_EQ(statements[1].trst, TrstMode::Off);
    EXPECT_EQ(statements[2].trst, TrstMode::Z);
    EXPECT_EQ(statements[3].trst, TrstMode::Absent);
    for (const Statement& statement : statements) EXPECT_EQ(statement.kind, Kind::Trst);
}

TEST(ReaderText, AVendorFileReadsWhole) {
    // The shape iMPACT-style tools write: CRLF, a header block, exponents,
    // tabs, hex padded to whole bytes and broken over lines.
    const std::vector<Statement> statements = readAll(
        "// Created using Xilinx Cse Software [ISE - 14.7]\r\n"
        "// Date: Mon Jan 01 00:00:00 2024\r\n"
        "\r\n"
        "TRST OFF;\r\n"
        "ENDIR IDLE;\r\n"
        "ENDDR IDLE;\r\n"
        "STATE RESET;\r\n"
        "STATE IDLE;\r\n"
        "FREQUENCY 1E+06 HZ;\r\n"
        "//Operation: Program -p 0 \r\n"
        "TIR 0 ;\r\n"
        "HIR 0 ;\r\n"
        "TDR 0 ;\r\n"
        "HDR 0 ;\r\n"
        "SIR 6 TDI (09) SMASK (3f) ;\r\n"
        "SDR 32 TDI (00000000) SMASK (ffffffff) TDO (f6d4c093) MASK (0fffffff) ;\r\n"
        "RUNTEST\t1.00E-02 SEC;\r\n"
        "SDR 72 TDI (00\r\n\tffffffffffffffff) ;\r\n");
    ASSERT_EQ(statements.size(), 14u);
    EXPECT_EQ(statements[5].hz, 1e6);
    EXPECT_EQ(statements[10].kind, Kind::Sir);
    EXPECT_EQ(hexOf(statements[10].scan.tdi), "09");
    EXPECT_EQ(hexOf(statements[11].scan.tdo), "F6D4C093");
    EXPECT_EQ(hexOf(statements[11].scan.mask), "0FFFFFFF");
    EXPECT_EQ(statements[12].runTest.minSeconds, 1e-2);
    EXPECT_EQ(hexOf(statements[13].scan.tdi), "00FFFFFFFFFFFFFFFF");
    EXPECT_EQ(statements[13].firstLine, 18);
    EXPECT_EQ(statements[13].lastLine, 19);
}

}  // namespace
}  // namespace tetherhost::svf

// SPDX-License-Identifier: MIT
/* Tests of the reader's errors: each names the file, the line and column
 * where the trouble is, and what was expected there. */
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "SvfTesting.h"

namespace tetherhost::svf {
namespace {

using testing::errorOf;

TEST(ReaderError, CarriesFileLineColumnAndMessageApart) {
    std::istringstream in("SIR 8 TDI (00);\n\n   FOO 1;\n");
    Reader reader(in, "dir/board.svf");
    ASSERT_TRUE(reader.next());
    try {
        reader.next();
        FAIL() << "no error";
    } catch (const Error& error) {
        EXPECT_EQ(error.file, "dir/board.svf");
        EXPECT_EQ(error.line, 3);
        EXPECT_EQ(error.column, 4);
        EXPECT_EQ(error.message,
                  "expected a statement (ENDDR, ENDIR, FREQUENCY, HDR, HIR, RUNTEST, SDR, SIR, STATE, TDR, TIR or "
                  "TRST), found 'FOO'");
        EXPECT_EQ(std::string(error.what()), "dir/board.svf:3:4: " + error.message);
    }
}

TEST(ReaderError, PioAndPiomapAreRefusedWhereTheyStand) {
    EXPECT_EQ(errorOf("SIR 8 TDI(00);\n  PIO (HLX);"), "t.svf:2:3: PIO is not supported");
    EXPECT_EQ(errorOf("piomap (IN A1\n OUT A2);"), "t.svf:1:1: PIOMAP is not supported");
}

TEST(ReaderError, AStatementCannotBeEmptyOrStartWithHex) {
    EXPECT_EQ(errorOf("SIR 8 TDI(00);;"),
              "t.svf:1:15: expected a statement (ENDDR, ENDIR, FREQUENCY, HDR, HIR, RUNTEST, SDR, SIR, STATE, TDR, "
              "TIR or TRST), found ';'");
    EXPECT_EQ(errorOf("(00);"),
              "t.svf:1:1: expected a statement (ENDDR, ENDIR, FREQUENCY, HDR, HIR, RUNTEST, SDR, SIR, STATE, TDR, "
              "TIR or TRST), found a hex string");
}

TEST(ReaderError, CharactersThatStartNoToken) {
    EXPECT_EQ(errorOf("SIR 8 TDI (00) = ;"), "t.svf:1:16: unexpected '='");
    EXPECT_EQ(errorOf("SIR 8 TDI 00);"), "t.svf:1:11: expected '(' and the hex digits of TDI, found '00'");
    EXPECT_EQ(errorOf("SIR 8 TDI (00));"), "t.svf:1:15: unexpected ')' without a '(' before it");
    EXPECT_EQ(errorOf("SIR 8 / comment\n;"), "t.svf:1:7: unexpected '/': a comment begins with \"//\" or '!'");
    EXPECT_EQ(errorOf("SIR 8\xC3\xA9;"), "t.svf:1:6: unexpected byte 0xC3");
}

TEST(ReaderError, TheFileEndsInsideAStatement) {
    EXPECT_EQ(errorOf("SIR 8 TDI (00)"),
              "t.svf:1:15: expected TDI, TDO, MASK, SMASK or ';' in SIR, found the end of the file");
    EXPECT_EQ(errorOf("SDR 8 TDI (00\r\n"),
              "t.svf:2:1: the file ends in the hex string begun at line 1 column 11: expected a hex digit or ')'");
    EXPECT_EQ(errorOf("STATE\nIDLE\n"),
              "t.svf:3:1: the file ends in the STATE statement begun at line 1: expected ';'");
    EXPECT_EQ(errorOf("SDR"),
              "t.svf:1:4: expected the scan length (a whole number of bits) after SDR, found the end of the file");
}

TEST(ReaderError, ScanLength) {
    EXPECT_EQ(errorOf("SDR TDI(00);"),
              "t.svf:1:5: expected the scan length (a whole number of bits) after SDR, found 'TDI'");
    EXPECT_EQ(errorOf("hir 8.5 TDI(00);"),
              "t.svf:1:5: expected the scan length (a whole number of bits) after HIR, found '8.5'");
    EXPECT_EQ(errorOf("SDR -8 TDI(00);"),
              "t.svf:1:5: expected the scan length (a whole number of bits) after SDR, found '-8'");
    EXPECT_EQ(errorOf("SDR 4294967296 TDI(0);"),
              "t.svf:1:5: a scan of 4294967296 bits: more than the 2147483648 bits a scan may have");
}

TEST(ReaderError, ScanParameters) {
    EXPECT_EQ(errorOf("SDR 8 TDX(00);"), "t.svf:1:7: expected TDI, TDO, MASK, SMASK or ';' in SDR, found 'TDX'");
    EXPECT_EQ(errorOf("SDR 8 (00);"), "t.svf:1:7: expected TDI, TDO, MASK, SMASK or ';' in SDR, found a hex string");
    EXPECT_EQ(errorOf("SDR 8 TDI(00) tdi(01);"), "t.svf:1:15: TDI is given twice in one SDR");
    EXPECT_EQ(errorOf("TIR 8 TDI;"), "t.svf:1:10: expected '(' and the hex digits of TDI, found ';'");
    EXPECT_EQ(errorOf("SDR 8 MASK TDI(00);"), "t.svf:1:12: expected '(' and the hex digits of MASK, found 'TDI'");
}

TEST(ReaderError, HexDigits) {
    EXPECT_EQ(errorOf("SDR 8 TDI (0G);"),
              "t.svf:1:13: unexpected 'G' in the hex string begun at line 1 column 11: expected a hex digit or ')'");
    EXPECT_EQ(errorOf("SDR 8 TDI (00\n  0x0);"),
              "t.svf:2:4: unexpected 'x' in the hex string begun at line 1 column 11: expected a hex digit or ')'");
    EXPECT_EQ(errorOf("SDR 8 TDI ( );"), "t.svf:1:11: TDI has no hex digits between its parentheses");
}

TEST(ReaderError, AOneBeyondTheScanLength) {
    EXPECT_EQ(errorOf("SIR 6 TDI (7F);"), "t.svf:1:11: TDI has a 1 beyond its 6 bits");
    EXPECT_EQ(errorOf("SDR 4 TDO (1A);"), "t.svf:1:11: TDO has a 1 beyond its 4 bits");
    EXPECT_EQ(errorOf("SDR 8 TDI (00) MASK (100);"), "t.svf:1:21: MASK has a 1 beyond its 8 bits");
    EXPECT_EQ(errorOf("SDR 0 TDI (1);"), "t.svf:1:11: TDI has a 1 beyond its 0 bits");
    EXPECT_EQ(errorOf("SDR 5 TDI (3F);"), "t.svf:1:11: TDI has a 1 beyond its 5 bits");
    EXPECT_EQ(errorOf("SDR 5 TDI (1F);"), "no error");
}

TEST(ReaderError, NonStableEndStates) {
    EXPECT_EQ(errorOf("ENDIR DRSHIFT;"),
              "t.svf:1:7: ENDIR's end state must be a stable state (RESET, IDLE, DRPAUSE or IRPAUSE), not DRSHIFT");
    EXPECT_EQ(errorOf("ENDDR PAUSE;"),
              "t.svf:1:7: expected ENDDR's end state (RESET, IDLE, DRPAUSE or IRPAUSE), found 'PAUSE'");
    EXPECT_EQ(errorOf("ENDDR;"), "t.svf:1:6: expected ENDDR's end state (RESET, IDLE, DRPAUSE or IRPAUSE), found ';'");
    EXPECT_EQ(errorOf("ENDDR IDLE IDLE;"), "t.svf:1:12: expected ';' after ENDDR IDLE, found 'IDLE'");
    EXPECT_EQ(errorOf("ENDIR (0);"), "t.svf:1:7: a hex string has no place in ENDIR");
}

TEST(ReaderError, StatePaths) {
    EXPECT_EQ(errorOf("STATE IDLE DRSHIFT DREXIT1 DRPAUSE;"),
              "t.svf:1:12: STATE path: DRSHIFT does not follow IDLE in one TCK");
    EXPECT_EQ(errorOf("STATE\n  DRSELECT\n  DRCAPTURE;"),
              "t.svf:3:3: STATE's last state must be a stable state (RESET, IDLE, DRPAUSE or IRPAUSE), not DRCAPTURE");
    EXPECT_EQ(errorOf("STATE DRSHIFT;"),
              "t.svf:1:7: STATE's last state must be a stable state (RESET, IDLE, DRPAUSE or IRPAUSE), not DRSHIFT");
    EXPECT_EQ(errorOf("STATE IDLE RUN;"), "t.svf:1:12: expected a state name in STATE, found 'RUN'");
    EXPECT_EQ(errorOf("STATE;"), "t.svf:1:6: expected a state after STATE, found ';'");
}

TEST(ReaderError, RunTestForms) {
    EXPECT_EQ(errorOf("RUNTEST;"), "t.svf:1:8: expected a run count or a time after RUNTEST, found ';'");
    EXPECT_EQ(errorOf("RUNTEST 100;"), "t.svf:1:12: expected TCK, SCK or SEC after '100', found ';'");
    EXPECT_EQ(errorOf("RUNTEST 100 XCK;"), "t.svf:1:13: expected TCK, SCK or SEC after '100', found 'XCK'");
    EXPECT_EQ(errorOf("RUNTEST WAIT 100 TCK;"),
              "t.svf:1:9: expected a run state, a run count or a time in RUNTEST, found 'WAIT'");
    EXPECT_EQ(errorOf("RUNTEST DRSHIFT 100 TCK;"),
              "t.svf:1:9: RUNTEST's run state must be a stable state (RESET, IDLE, DRPAUSE or IRPAUSE), not DRSHIFT");
    EXPECT_EQ(errorOf("RUNTEST 1.5 TCK;"), "t.svf:1:9: expected a whole run count before TCK, found '1.5'");
    EXPECT_EQ(errorOf("RUNTEST 10 TCK ENDSTATE DREXIT1;"),
              "t.svf:1:25: RUNTEST's end state must be a stable state (RESET, IDLE, DRPAUSE or IRPAUSE), not DREXIT1");
    EXPECT_EQ(errorOf("RUNTEST 10 TCK ENDSTATE;"),
              "t.svf:1:24: expected RUNTEST's end state (RESET, IDLE, DRPAUSE or IRPAUSE), found ';'");
    EXPECT_EQ(errorOf("RUNTEST 1E-3 SEC MAXIMUM 2;"), "t.svf:1:27: expected SEC after the maximum time, found ';'");
    EXPECT_EQ(errorOf("RUNTEST 1E-3 SEC MAXIMUM SEC;"),
              "t.svf:1:26: expected a time in seconds after MAXIMUM, found 'SEC'");
    EXPECT_EQ(errorOf("RUNTEST 10 TCK 1 HOUR;"), "t.svf:1:18: expected SEC after the time, found 'HOUR'");
    EXPECT_EQ(errorOf("RUNTEST 10 TCK junk;"),
              "t.svf:1:16: expected a time in seconds, ENDSTATE or ';' in RUNTEST, found 'junk'");
    EXPECT_EQ(errorOf("RUNTEST 1 SEC junk;"), "t.svf:1:15: expected MAXIMUM, ENDSTATE or ';' in RUNTEST, found 'junk'");
    EXPECT_EQ(errorOf("RUNTEST 10 TCK MAXIMUM 1 SEC;"),
              "t.svf:1:16: expected a time in seconds, ENDSTATE or ';' in RUNTEST, found 'MAXIMUM'");
    EXPECT_EQ(errorOf("RUNTEST 1 SEC ENDSTATE IDLE 5;"), "t.svf:1:29: expected ';' after the end state, found '5'");
    EXPECT_EQ(errorOf("RUNTEST 1 SEC MAXIMUM 2 SEC 5;"), "t.svf:1:29: expected ENDSTATE or ';' in RUNTEST, found '5'");
    EXPECT_EQ(errorOf("RUNTEST 1E SEC;"), "t.svf:1:9: expected a time in seconds before SEC, found '1E'");
}

TEST(ReaderError, FrequencyAndTrst) {
    EXPECT_EQ(errorOf("FREQUENCY 1E6;"), "t.svf:1:14: expected HZ after the frequency, found ';'");
    EXPECT_EQ(errorOf("FREQUENCY 1E6 HZ 2;"), "t.svf:1:18: expected ';' after HZ, found '2'");
    EXPECT_EQ(errorOf("FREQUENCY fast HZ;"),
              "t.svf:1:11: expected a frequency in HZ or ';' after FREQUENCY, found 'fast'");
    EXPECT_EQ(errorOf("FREQUENCY 0 HZ;"), "t.svf:1:11: the frequency must be above 0 HZ, found '0'");
    EXPECT_EQ(errorOf("TRST MAYBE;"), "t.svf:1:6: expected ON, OFF, Z or ABSENT after TRST, found 'MAYBE'");
    EXPECT_EQ(errorOf("TRST;"), "t.svf:1:5: expected ON, OFF, Z or ABSENT after TRST, found ';'");
    EXPECT_EQ(errorOf("TRST ON OFF;"), "t.svf:1:9: expected ';' after TRST ON, found 'OFF'");
}

TEST(ReaderError, AWordHasALimit) {
    EXPECT_EQ(errorOf("SDR " + std::string(300, '1') + " TDI (0);"), "t.svf:1:5: a word longer than 256 characters");
}

TEST(ReaderError, ColumnsCountBytesAfterCrlfAndTabs) {
    EXPECT_EQ(errorOf("SIR 8 TDI (00);\r\n\tENDIR\tXYZ;\r\n"),
              "t.svf:2:8: expected ENDIR's end state (RESET, IDLE, DRPAUSE or IRPAUSE), found 'XYZ'");
}

}  // namespace
}  // namespace tetherhost::svf

// SPDX-License-Identifier: MIT
/* What the player asks of the cable for each SVF statement, on a port that
 * records every operation and answers as a test tells it: end states, the
 * RUNTEST run and end states that carry over, STATE with and without a
 * path, TRST and FREQUENCY, the scans with their checks, the mismatch
 * report (and its unreturned tail), keep-going, a failed operation, and
 * a stop request. */
#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <sstream>
#include <string>
#include <vector>

#include "svf/JtagPort.h"
#include "svf/Player.h"

namespace tetherhost::svf {
namespace {

class RecordingPort : public JtagPort {
public:
    ScanResult scan(const Scan& scan) override {
        std::string entry = std::string(scan.instruction ? "SIR " : "SDR ") + std::to_string(scan.tdi.length) +
                            " tdi " + scan.tdi.hex();
        if (scan.check) entry += " expect " + scan.expected.hex() + " mask " + scan.mask.hex();
        operations.push_back(entry);
        if (scanResults.empty()) return {};
        ScanResult result = scanResults.front();
        scanResults.pop_front();
        return result;
    }
    int setEndState(bool instruction, State state) override {
        return record(std::string(instruction ? "end IR " : "end DR ") + std::string(svfName(state)));
    }
    int moveTo(State state) override { return record("move " + std::string(svfName(state))); }
    int stepTo(State state) override { return record("step " + std::string(svfName(state))); }
    int runTest(std::uint64_t count, std::uint64_t minimumNs, Clock clock) override {
        return record("run " + std::to_string(count) + (clock == Clock::Sck ? " SCK " : " TCK ") +
                      std::to_string(minimumNs) + " ns");
    }
    int setTrst(bool asserted) override { return record(asserted ? "trst on" : "trst off"); }
    int setFrequency(int hz) override { return record("frequency " + std::to_string(hz)); }

    std::vector<std::string> operations;
    std::deque<ScanResult> scanResults;
    int answer = 0;

private:
    int record(const std::string& entry) {
        operations.push_back(entry);
        return answer;
    }
};

Report playText(RecordingPort& port, const std::string& text, const Options& options = Options()) {
    std::istringstream in(text);
    return playStream(port, in, "test.svf", options);
}

using Operations = std::vector<std::string>;

TEST(SvfPlayer, EndStatesAreSentAndScansAreUncheckedWithoutTdo) {
    RecordingPort port;
    const Report report = playText(port, "ENDIR IRPAUSE; ENDDR DRPAUSE;\nSIR 4 TDI (A);\nSDR 8 TDI (5C);\n");
    EXPECT_EQ(port.operations, (Operations{"end IR IRPAUSE", "end DR DRPAUSE", "SIR 4 tdi A", "SDR 8 tdi 5C"}));
    EXPECT_EQ(report.outcome, Outcome::Passed);
    EXPECT_EQ(report.statements, 4U);
    EXPECT_EQ(report.scans, 2U);
    EXPECT_EQ(report.bitsShifted, 12U);
    EXPECT_EQ(report.tdoChecks, 0U);
}

TEST(SvfPlayer, ACheckedScanCarriesExpectedAndMask) {
    RecordingPort port;
    const Report report = playText(port, "SDR 8 TDI (00) TDO (A5) MASK (F0);\n");
    EXPECT_EQ(port.operations, (Operations{"SDR 8 tdi 00 expect A5 mask F0"}));
    EXPECT_EQ(report.tdoChecks, 1U);
    EXPECT_EQ(report.outcome, Outcome::Passed);
}

TEST(SvfPlayer, RunTestMovesToItsRunStateAndOnToItsEndState) {
    RecordingPort port;
    playText(port, "RUNTEST DRPAUSE 100 TCK ENDSTATE IDLE;\nRUNTEST 5 TCK;\n");
    // The second RUNTEST keeps DRPAUSE as its run state and IDLE as its end.
    EXPECT_EQ(port.operations, (Operations{"move DRPAUSE", "run 100 TCK 0 ns", "move IDLE", "move DRPAUSE",
                                           "run 5 TCK 0 ns", "move IDLE"}));
}

TEST(SvfPlayer, ARunStateGivenBecomesTheEndStateToo) {
    RecordingPort port;
    playText(port, "RUNTEST IRPAUSE 3 TCK;\nRUNTEST 1 TCK;\n");
    // Already in IRPAUSE: no moves after the first.
    EXPECT_EQ(port.operations, (Operations{"move IRPAUSE", "run 3 TCK 0 ns", "run 1 TCK 0 ns"}));
}

TEST(SvfPlayer, RunTestTimesAreWholeNanosecondsRoundedUp) {
    RecordingPort port;
    playText(port, "RUNTEST 1000 SCK 1.5E-3 SEC MAXIMUM 2 SEC;\nRUNTEST 50021E-6 SEC;\n");
    EXPECT_EQ(port.operations, (Operations{"move IDLE", "run 1000 SCK 1500000 ns", "run 0 TCK 50021000 ns"}));
}

TEST(SvfPlayer, StateWithoutAPathIsSentEvenWhereTheChainIs) {
    RecordingPort port;
    // The second goes round from DRPAUSE to DRPAUSE.
    playText(port, "STATE DRPAUSE;\nSTATE DRPAUSE;\n");
    EXPECT_EQ(port.operations, (Operations{"move DRPAUSE", "move DRPAUSE"}));
}

TEST(SvfPlayer, StateWithAPathStepsThroughEveryState) {
    RecordingPort port;
    playText(
        port,
        "STATE IDLE;\nSTATE DRSELECT DRCAPTURE DREXIT1 DRPAUSE;\nSTATE DREXIT2 DRUPDATE DRSELECT IRSELECT RESET;\n");
    EXPECT_EQ(port.operations,
              (Operations{"move IDLE", "step DRSELECT", "step DRCAPTURE", "step DREXIT1", "step DRPAUSE",
                          "step DREXIT2", "step DRUPDATE", "step DRSELECT", "step IRSELECT", "step RESET"}));
}

TEST(SvfPlayer, APathThatDoesNotStartNextToTheTapsStateIsABadFile) {
    RecordingPort port;
    const Report report = playText(port, "STATE IDLE;\nSTATE RESET IDLE;\n");
    EXPECT_EQ(report.outcome, Outcome::BadFile);
    EXPECT_EQ(report.errorLine, 2);
    EXPECT_EQ(report.error, "test.svf:2:1: STATE: RESET is not one TCK from IDLE");
    EXPECT_EQ(port.operations, (Operations{"move IDLE"}));
}

TEST(SvfPlayer, AStepTheCableRefusesIsABadFile) {
    RecordingPort port;
    port.answer = -2;
    const Report report = playText(port, "STATE DRSELECT DRCAPTURE DREXIT1 DRPAUSE;\n");
    EXPECT_EQ(report.outcome, Outcome::BadFile);
    EXPECT_EQ(report.error, "test.svf:1:1: STATE: DRSELECT is not one TCK from the TAP's state");
}

TEST(SvfPlayer, TrstOnOffAndZAreSentAndAbsentIsNot) {
    RecordingPort port;
    playText(port, "TRST ON;\nTRST OFF;\nTRST Z;\n");
    EXPECT_EQ(port.operations, (Operations{"trst on", "trst off", "trst off"}));
    RecordingPort absent;
    playText(absent, "TRST ABSENT;\n");
    EXPECT_TRUE(absent.operations.empty());
}

TEST(SvfPlayer, FrequencyIsRoundedToWholeHertzAndABareOneKeepsTheClock) {
    RecordingPort port;
    playText(port, "FREQUENCY 9.00e+005 HZ;\nFREQUENCY;\nFREQUENCY 0.2 HZ;\n");
    EXPECT_EQ(port.operations, (Operations{"frequency 900000", "frequency 1"}));
}

TEST(SvfPlayer, AMismatchStopsPlayAndIsReportedWithItsLines) {
    RecordingPort port;
    ScanResult differing;
    differing.status = 2;
    differing.tdo = Bits::zeros(8);
    differing.tdo.bytes[0] = 0x3C;
    differing.returned = 8;
    port.scanResults.push_back(differing);
    const Report report = playText(port, "SDR 8 TDI (00)\n  TDO (3F)\n  MASK (FF);\nSDR 8 TDI (01);\n");
    EXPECT_EQ(report.outcome, Outcome::Mismatched);
    EXPECT_EQ(port.operations.size(), 1U);
    ASSERT_EQ(report.mismatches.size(), 1U);
    const Mismatch& mismatch = report.mismatches.front();
    EXPECT_EQ(mismatch.firstLine, 1);
    EXPECT_EQ(mismatch.lastLine, 3);
    EXPECT_EQ(mismatch.expected, "3F");
    EXPECT_EQ(mismatch.actual, "3C");
    EXPECT_EQ(mismatch.mask, "FF");
    EXPECT_EQ(mismatch.differingBits, 2U);
}

TEST(SvfPlayer, KeepGoingPlaysOnAndCountsEveryMismatch) {
    RecordingPort port;
    ScanResult differing;
    differing.status = 1;
    differing.tdo = Bits::zeros(4);
    differing.returned = 4;
    port.scanResults = {differing, ScanResult{}, differing};
    Options options;
    options.keepGoing = true;
    const Report report =
        playText(port, "SIR 4 TDI (0) TDO (1);\nSIR 4 TDI (0) TDO (0);\nSIR 4 TDI (0) TDO (1);\n", options);
    EXPECT_EQ(report.outcome, Outcome::Mismatched);
    ASSERT_EQ(report.mismatches.size(), 2U);
    EXPECT_EQ(report.mismatches[0].lastLine, 1);
    EXPECT_EQ(report.mismatches[1].lastLine, 3);
    EXPECT_EQ(report.tdoChecks, 3U);
}

TEST(SvfPlayer, DigitsOfTdoThatDidNotComeBackAreMarked) {
    RecordingPort port;
    ScanResult differing;
    differing.status = 1;
    differing.tdo = Bits::zeros(16);
    differing.tdo.bytes[0] = 0xAB;
    differing.returned = 8;  // the high byte stayed with the server
    port.scanResults.push_back(differing);
    const Report report = playText(port, "SDR 16 TDI (0000) TDO (00AA);\n");
    ASSERT_EQ(report.mismatches.size(), 1U);
    EXPECT_EQ(report.mismatches.front().actual, "xxAB");
}

TEST(SvfPlayer, AFailedOperationStopsPlayNamingTheStatementAndStatus) {
    RecordingPort port;
    port.answer = -7;
    const Report report = playText(port, "SIR 4 TDI (1);\nSTATE DRPAUSE;\nSIR 4 TDI (2);\n");
    EXPECT_EQ(report.outcome, Outcome::CableFailed);
    EXPECT_EQ(report.errorLine, 2);
    EXPECT_EQ(report.error, "line 2: a move failed with status -7 (STATE DRPAUSE;)");
    EXPECT_EQ(port.operations, (Operations{"SIR 4 tdi 1", "move DRPAUSE"}));
}

TEST(SvfPlayer, ABadStatementEndsPlayAfterWhatCameBefore) {
    RecordingPort port;
    const Report report = playText(port, "SIR 4 TDI (1);\nSIR 4 TDI (Q);\n");
    EXPECT_EQ(report.outcome, Outcome::BadFile);
    EXPECT_EQ(report.errorLine, 2);
    EXPECT_EQ(port.operations, (Operations{"SIR 4 tdi 1"}));
}

TEST(SvfPlayer, AStopRequestEndsPlayBeforeTheNextStatement) {
    RecordingPort port;
    std::atomic<bool> stop{false};
    Options options;
    options.stop = &stop;
    options.progress = [&](const Progress& progress) {
        if (progress.scans == 1) stop = true;
    };
    const Report report = playText(port, "SIR 4 TDI (1);\nSIR 4 TDI (2);\n", options);
    EXPECT_EQ(report.outcome, Outcome::Stopped);
    EXPECT_EQ(port.operations, (Operations{"SIR 4 tdi 1"}));
}

}  // namespace
}  // namespace tetherhost::svf

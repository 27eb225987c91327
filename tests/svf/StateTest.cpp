// SPDX-License-Identifier: MIT
/* Tests of the TAP states: names, stability, the one-TCK steps, keywords. */
#include <gtest/gtest.h>

#include <cctype>
#include <string>

#include "svf/Statement.h"

namespace tetherhost::svf {
namespace {

TEST(State, EveryNameReadsBackInAnyCase) {
    for (int number = 0; number < 16; ++number) {
        const auto state = static_cast<State>(number);
        const std::string name(svfName(state));
        std::string lower = name;
        for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        EXPECT_EQ(stateNamed(name), state) << name;
        EXPECT_EQ(stateNamed(lower), state) << lower;
    }
    EXPECT_EQ(svfName(State::PauseDr), "DRPAUSE");
    EXPECT_EQ(stateNamed("IrUpdate"), State::UpdateIr);
    EXPECT_EQ(stateNamed("RUN"), std::nullopt);
    EXPECT_EQ(stateNamed("IDLEX"), std::nullopt);
    EXPECT_EQ(stateNamed(""), std::nullopt);
}

TEST(State, OnlyResetIdleAndThePausesAreStable) {
    int stable = 0;
    for (int number = 0; number < 16; ++number) stable += isStableState(static_cast<State>(number)) ? 1 : 0;
    EXPECT_EQ(stable, 4);
    EXPECT_TRUE(isStableState(State::TestLogicReset));
    EXPECT_TRUE(isStableState(State::RunTestIdle));
    EXPECT_TRUE(isStableState(State::PauseDr));
    EXPECT_TRUE(isStableState(State::PauseIr));
}

TEST(State, StepsFollowTheTapDiagram) {
    EXPECT_EQ(nextTapState(State::TestLogicReset, false), State::RunTestIdle);
    EXPECT_EQ(nextTapState(State::RunTestIdle, true), State::SelectDrScan);
    EXPECT_EQ(nextTapState(State::SelectDrScan, true), State::SelectIrScan);
    EXPECT_EQ(nextTapState(State::SelectIrScan, true), State::TestLogicReset);
    EXPECT_EQ(nextTapState(State::Exit1Dr, false), State::PauseDr);
    EXPECT_EQ(nextTapState(State::Exit2Dr, false), State::ShiftDr);
    EXPECT_EQ(nextTapState(State::UpdateIr, false), State::RunTestIdle);
    EXPECT_EQ(nextTapState(State::CaptureIr, true), State::Exit1Ir);
    EXPECT_TRUE(follows(State::RunTestIdle, State::RunTestIdle));
    EXPECT_TRUE(follows(State::TestLogicReset, State::TestLogicReset));
    EXPECT_TRUE(follows(State::PauseDr, State::Exit2Dr));
    EXPECT_FALSE(follows(State::RunTestIdle, State::ShiftDr));
    EXPECT_FALSE(follows(State::PauseDr, State::ShiftDr));
    EXPECT_FALSE(follows(State::ShiftIr, State::PauseIr));
}

TEST(State, FiveTicksWithTmsHighResetFromEveryState) {
    for (int number = 0; number < 16; ++number) {
        State state = static_cast<State>(number);
        for (int tick = 0; tick < 5; ++tick) state = nextTapState(state, true);
        EXPECT_EQ(state, State::TestLogicReset) << svfName(static_cast<State>(number));
    }
}

TEST(Kind, KeywordsAreTheSvfCommands) {
    EXPECT_EQ(svfKeyword(Kind::Sir), "SIR");
    EXPECT_EQ(svfKeyword(Kind::Tdr), "TDR");
    EXPECT_EQ(svfKeyword(Kind::StatePath), "STATE");
    EXPECT_EQ(svfKeyword(Kind::RunTest), "RUNTEST");
    EXPECT_EQ(svfKeyword(Kind::Trst), "TRST");
}

}  // namespace
}  // namespace tetherhost::svf

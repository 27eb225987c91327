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
    EXPECT_EQ(svfName(State::DrPause), "DRPAUSE");
    EXPECT_EQ(stateNamed("IrUpdate"), State::IrUpdate);
    EXPECT_EQ(stateNamed("RUN"), std::nullopt);
    EXPECT_EQ(stateNamed("IDLEX"), std::nullopt);
    EXPECT_EQ(stateNamed(""), std::nullopt);
}

TEST(State, OnlyResetIdleAndThePausesAreStable) {
    int stable = 0;
    for (int number = 0; number < 16; ++number) stable += isStable(static_cast<State>(number)) ? 1 : 0;
    EXPECT_EQ(stable, 4);
    EXPECT_TRUE(isStable(State::Reset));
    EXPECT_TRUE(isStable(State::Idle));
    EXPECT_TRUE(isStable(State::DrPause));
    EXPECT_TRUE(isStable(State::IrPause));
}

TEST(State, StepsFollowTheTapDiagram) {
    EXPECT_EQ(nextState(State::Reset, false), State::Idle);
    EXPECT_EQ(nextState(State::Idle, true), State::DrSelect);
    EXPECT_EQ(nextState(State::DrSelect, true), State::IrSelect);
    EXPECT_EQ(nextState(State::IrSelect, true), State::Reset);
    EXPECT_EQ(nextState(State::DrExit1, false), State::DrPause);
    EXPECT_EQ(nextState(State::DrExit2, false), State::DrShift);
    EXPECT_EQ(nextState(State::IrUpdate, false), State::Idle);
    EXPECT_EQ(nextState(State::IrCapture, true), State::IrExit1);
    EXPECT_TRUE(follows(State::Idle, State::Idle));
    EXPECT_TRUE(follows(State::Reset, State::Reset));
    EXPECT_TRUE(follows(State::DrPause, State::DrExit2));
    EXPECT_FALSE(follows(State::Idle, State::DrShift));
    EXPECT_FALSE(follows(State::DrPause, State::DrShift));
    EXPECT_FALSE(follows(State::IrShift, State::IrPause));
}

TEST(State, FiveTicksWithTmsHighResetFromEveryState) {
    for (int number = 0; number < 16; ++number) {
        State state = static_cast<State>(number);
        for (int tick = 0; tick < 5; ++tick) state = nextState(state, true);
        EXPECT_EQ(state, State::Reset) << svfName(static_cast<State>(number));
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

// SPDX-License-Identifier: MIT
/* The --faults rules on their own: the file read strictly (every problem
 * named by its rule and field), which answers a rule selects, and how
 * `after`, `count` and a seeded `probability` decide when it fires. */
#include "server/Faults.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace tetherhost::sim {
namespace {

Faults rulesOf(const std::string& json) { return Faults(json, "faults.json"); }

/* An answer of client "board1" to command `command` (sub-command `sub` when
 * not negative), its `frame`th on the connection and `frameInCommand`th of
 * its command. */
Answer answerTo(int command, int sub, AnswerKind kind, std::uint64_t frame = 5, std::uint64_t frameInCommand = 2) {
    Answer answer;
    answer.client = "board1";
    answer.command = command;
    if (sub >= 0) answer.sub = sub;
    answer.frame = frame;
    answer.frameInCommand = frameInCommand;
    answer.kind = kind;
    return answer;
}

/* Which of `answers` the rules fire at (the number of the rule, 0 for
 * none), one after another. */
std::vector<std::size_t> firings(Faults& faults, const std::vector<Answer>& answers) {
    std::vector<std::size_t> fired;
    for (const Answer& answer : answers) {
        const Faults::Firing firing = faults.fire(answer);
        fired.push_back(firing.rule == nullptr ? 0 : firing.rule->number);
    }
    return fired;
}

std::string problemWith(const std::string& json) {
    try {
        rulesOf(json);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "no problem";
}

TEST(FaultRules, EveryFieldOfARuleIsRead) {
    const Faults faults = rulesOf(R"({"seed": 7, "note": "a comment", "rules": [
        {"name": "slow scans", "command": 44, "sub": 12, "client": "board1", "frame": 9, "frame_in_command": 3,
         "answer": "ack", "after": 2, "count": 4, "probability": 0.25, "delay_ms": 150},
        {"hold_lock": "both"}, {"hold_lock": "command"}, {"reply_integer": -9223372036854775807},
        {"reply_text": "a;b"}, {"ack": "-"}, {"split": 3}, {"close": true}, {"reset": true}, {"stall": true},
        {"refuse_lock": true}]})");
    EXPECT_EQ(faults.seed(), 7U);
    ASSERT_EQ(faults.rules().size(), 11U);
    const FaultRule& first = faults.rules()[0];
    EXPECT_EQ(first.label(), R"(rule 1 ("slow scans"))");
    EXPECT_EQ(first.command, 44);
    EXPECT_EQ(first.sub, 12);
    EXPECT_EQ(first.client, "board1");
    EXPECT_EQ(first.frame, 9U);
    EXPECT_EQ(first.frameInCommand, 3U);
    EXPECT_EQ(first.answer, AnswerKind::Ack);
    EXPECT_EQ(first.after, 2U);
    EXPECT_EQ(first.count, 4U);
    EXPECT_EQ(first.probability, 0.25);
    EXPECT_EQ(first.action, FaultAction::Delay);
    EXPECT_EQ(first.amount, 150);
    const std::vector<FaultRule>& rules = faults.rules();
    EXPECT_TRUE(rules[1].sessionLock && rules[1].commandLock);
    EXPECT_TRUE(!rules[2].sessionLock && rules[2].commandLock);
    EXPECT_EQ(rules[3].action, FaultAction::ReplyInteger);
    EXPECT_EQ(rules[3].amount, -9223372036854775807LL);
    EXPECT_EQ(rules[4].text, "a;b");
    EXPECT_EQ(rules[5].action, FaultAction::Ack);
    EXPECT_EQ(rules[5].text, "-");
    EXPECT_EQ(rules[6].amount, 3);
    EXPECT_EQ(rules[7].action, FaultAction::Close);
    EXPECT_EQ(rules[8].action, FaultAction::Reset);
    EXPECT_EQ(rules[9].action, FaultAction::Stall);
    EXPECT_EQ(rules[10].action, FaultAction::RefuseLock);
    EXPECT_EQ(rules[10].label(), "rule 11");
}

TEST(FaultRules, ABadFileIsRefusedNamingTheRuleAndTheField) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {R"([{"close": true}])", R"(faults.json: expected an object with "rules" (and "seed"))"},
        {R"({"rule": []})", R"(faults.json: unknown field "rule")"},
        {R"({"seed": -1, "rules": []})", R"(faults.json: "seed" is a whole number, 0 or more)"},
        {R"({"rules": {}})", R"(faults.json: "rules" is a list of rules)"},
        {R"({"rules": [{"close": true}, 3]})", "faults.json: rule 2: expected an object"},
        {R"({"rules": [{"comand": 33, "close": true}]})", R"(faults.json: rule 1: unknown field "comand")"},
        {R"({"rules": [{"command": 33}]})",
         R"(faults.json: rule 1: no action: one of "close", "reset", "stall", "delay_ms", "reply_integer", )"
         R"("reply_text", "ack", "split", "refuse_lock", "hold_lock")"},
        {R"({"rules": [{"name": "twice", "close": true, "stall": true}]})",
         R"(faults.json: rule 1 ("twice"): two actions, "close" and "stall": a rule has one)"},
        {R"({"rules": [{"close": false}]})", R"(faults.json: rule 1: "close" is true or left out)"},
        {R"({"rules": [{"delay_ms": -4}]})",
         R"(faults.json: rule 1: "delay_ms" is a whole number of milliseconds from 0 to 3600000)"},
        {R"({"rules": [{"delay_ms": 1.5}]})",
         R"(faults.json: rule 1: "delay_ms" is a whole number of milliseconds from 0 to 3600000)"},
        {R"({"rules": [{"command": "33", "close": true}]})", R"(faults.json: rule 1: "command" is a command number)"},
        {R"({"rules": [{"frame": 0, "close": true}]})",
         R"(faults.json: rule 1: "frame" is an answer's number in the connection, from 1)"},
        {R"({"rules": [{"frame_in_command": -2, "close": true}]})",
         R"(faults.json: rule 1: "frame_in_command" is an answer's number in its command, from 1)"},
        {R"({"rules": [{"count": 0, "close": true}]})",
         R"(faults.json: rule 1: "count" is how many times the rule fires, 1 or more)"},
        {R"({"rules": [{"after": -1, "close": true}]})",
         R"(faults.json: rule 1: "after" is how many selected answers to leave alone first, 0 or more)"},
        {R"({"rules": [{"probability": 1.5, "close": true}]})",
         R"(faults.json: rule 1: "probability" is a number from 0 to 1)"},
        {R"({"rules": [{"answer": "farewell", "close": true}]})",
         R"(faults.json: rule 1: "answer" is one of "introduction", "command", "ack", "lock", "reply", "text", )"
         R"("status", "read-back"; not "farewell")"},
        {R"({"rules": [{"answer": "status", "refuse_lock": true}]})",
         R"(faults.json: rule 1: "answer" is "status", but "refuse_lock" changes only "lock" answers)"},
        {R"({"rules": [{"answer": "reply", "ack": "-"}]})",
         R"(faults.json: rule 1: "answer" is "reply", but "ack" changes only "introduction", "command" or "ack" )"
         R"(answers)"},
        {R"({"rules": [{"command": 33, "sub": 3, "close": true}]})",
         R"(faults.json: rule 1: "sub" is a sub-command of command 44, and "command" is 33)"},
        {R"({"rules": [{"ack": "+"}]})",
         R"(faults.json: rule 1: "ack" is an acknowledgement other than the usual one)"},
        {R"({"rules": [{"split": 1}]})",
         R"(faults.json: rule 1: "split" is how many sends the answer goes in, from 2 to 1024)"},
        {R"({"rules": [{"hold_lock": "all"}]})",
         R"(faults.json: rule 1: "hold_lock" is "session", "command" or "both"; not "all")"},
        {R"({"rules": [{"reply_text": 7}]})", R"(faults.json: rule 1: "reply_text" is a text)"},
        {R"({"rules": [{"reply_integer": 9223372036854775808}]})",
         R"(faults.json: rule 1: "reply_integer" is a whole number)"},
        {R"({"rules": [{"reply_text": ")" + std::string(1024, 'x') + R"("}]})",
         R"(faults.json: rule 1: "reply_text" is at most 1023 bytes)"},
    };
    for (const auto& [json, problem] : cases) EXPECT_EQ(problemWith(json), problem) << json;
    EXPECT_EQ(problemWith("{\"rules\": [}").rfind("faults.json: not valid JSON: ", 0), 0U);
    EXPECT_EQ(problemWith(R"({"rules": []})"), "no problem");
}

TEST(FaultRules, AFileThatCannotBeReadIsNamed) {
    try {
        Faults::load("/nonexistent/faults.json");
        FAIL() << "a missing file was read";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "/nonexistent/faults.json: cannot be read");
    }
}

TEST(FaultRules, ARuleSelectsOnlyTheAnswersAllItsFieldsAgreeWith) {
    const FaultRule rule = rulesOf(R"({"rules": [{"command": 44, "sub": 12, "client": "board1", "frame": 5,
                                       "frame_in_command": 2, "answer": "ack", "close": true}]})")
                               .rules()[0];
    EXPECT_TRUE(rule.selects(answerTo(44, 12, AnswerKind::Ack)));
    EXPECT_FALSE(rule.selects(answerTo(33, -1, AnswerKind::Ack)));
    EXPECT_FALSE(rule.selects(answerTo(44, -1, AnswerKind::Ack)));  // before the sub-command came
    EXPECT_FALSE(rule.selects(answerTo(44, 7, AnswerKind::Ack)));
    EXPECT_FALSE(rule.selects(answerTo(44, 12, AnswerKind::Ack, 6)));
    EXPECT_FALSE(rule.selects(answerTo(44, 12, AnswerKind::Ack, 5, 3)));
    EXPECT_FALSE(rule.selects(answerTo(44, 12, AnswerKind::Status)));
    Answer other = answerTo(44, 12, AnswerKind::Ack);
    other.client = "board2";
    EXPECT_FALSE(rule.selects(other));
    Answer introduction;
    introduction.client = "board1";
    introduction.frame = 1;
    introduction.kind = AnswerKind::Introduction;
    EXPECT_FALSE(rule.selects(introduction));  // no command yet
    EXPECT_TRUE(rulesOf(R"({"rules": [{"frame": 1, "close": true}]})").rules()[0].selects(introduction));
}

TEST(FaultRules, AnActionThatChangesAKindOfAnswerSelectsOnlyThatKind) {
    const Faults faults = rulesOf(
        R"({"rules": [{"ack": "-"}, {"reply_integer": 5}, {"reply_text": "t"}, {"refuse_lock": true}, {"split": 2}]})");
    const auto selected = [&](AnswerKind kind) {
        std::string which;
        for (const FaultRule& rule : faults.rules())
            which += rule.selects(answerTo(33, -1, kind)) ? std::to_string(rule.number) : "";
        return which;
    };
    EXPECT_EQ(selected(AnswerKind::Introduction), "15");
    EXPECT_EQ(selected(AnswerKind::Command), "15");
    EXPECT_EQ(selected(AnswerKind::Ack), "15");
    EXPECT_EQ(selected(AnswerKind::Reply), "25");
    EXPECT_EQ(selected(AnswerKind::Text), "35");
    EXPECT_EQ(selected(AnswerKind::Lock), "45");
    EXPECT_EQ(selected(AnswerKind::Status), "5");
    EXPECT_EQ(selected(AnswerKind::ReadBack), "5");
}

TEST(FaultRules, AfterLeavesTheFirstSelectedAnswersAloneAndCountEndsTheFirings) {
    Faults faults = rulesOf(R"({"rules": [{"command": 38, "after": 2, "count": 3, "close": true}]})");
    const Answer selected = answerTo(38, -1, AnswerKind::Reply);
    const Answer other = answerTo(39, -1, AnswerKind::Reply);
    EXPECT_EQ(firings(faults, {selected, other, selected, selected, other, selected, selected, selected}),
              (std::vector<std::size_t>{0, 0, 0, 1, 0, 1, 1, 0}));
    EXPECT_TRUE(faults.usedUp(faults.rules()[0]));
}

TEST(FaultRules, WithoutACountARuleFiresEveryTimeAndIsNeverUsedUp) {
    Faults faults = rulesOf(R"({"rules": [{"command": 38, "close": true}]})");
    const Answer selected = answerTo(38, -1, AnswerKind::Reply);
    EXPECT_EQ(firings(faults, std::vector<Answer>(5, selected)), std::vector<std::size_t>(5, 1));
    EXPECT_FALSE(faults.usedUp(faults.rules()[0]));
}

TEST(FaultRules, DelaysAddUpAndGoWithTheFirstOtherRuleThatFires) {
    Faults faults = rulesOf(R"({"rules": [{"delay_ms": 100}, {"command": 38, "delay_ms": 20},
                                          {"command": 38, "split": 2}, {"command": 38, "close": true},
                                          {"delay_ms": 5}]})");
    const Faults::Firing at38 = faults.fire(answerTo(38, -1, AnswerKind::Reply));
    ASSERT_EQ(at38.delays.size(), 2U);
    EXPECT_EQ(at38.delay(), std::chrono::milliseconds(120));
    ASSERT_NE(at38.rule, nullptr);
    EXPECT_EQ(at38.rule->number, 3U);  // the split; the close and the last delay are not tried
    const Faults::Firing at39 = faults.fire(answerTo(39, -1, AnswerKind::Reply));
    EXPECT_EQ(at39.delay(), std::chrono::milliseconds(105));
    EXPECT_EQ(at39.rule, nullptr);
}

TEST(FaultRules, ARuleNotTriedIsNotCounted) {
    // The first rule fires once; the second is tried only at the answers
    // the first lets through, so its `after` counts only those.
    Faults faults = rulesOf(R"({"rules": [{"command": 38, "count": 1, "close": true},
                                          {"command": 38, "after": 1, "count": 1, "reset": true}]})");
    const Answer selected = answerTo(38, -1, AnswerKind::Reply);
    EXPECT_EQ(firings(faults, std::vector<Answer>(4, selected)), (std::vector<std::size_t>{1, 0, 2, 0}));
}

/* The firings of a rule of probability `probability` over `answers`
 * answers, with seed `seed`. */
std::vector<std::size_t> drawn(std::uint64_t seed, double probability, std::size_t answers) {
    Faults faults = rulesOf(R"({"seed": )" + std::to_string(seed) + R"(, "rules": [{"command": 38, "probability": )" +
                            std::to_string(probability) + R"(, "close": true}]})");
    return firings(faults, std::vector<Answer>(answers, answerTo(38, -1, AnswerKind::Reply)));
}

TEST(FaultRules, ASeededProbabilityFiresTheSameSequenceEveryRun) {
    const std::vector<std::size_t> first = drawn(42, 0.3, 1000);
    EXPECT_EQ(drawn(42, 0.3, 1000), first);
    EXPECT_NE(drawn(43, 0.3, 1000), first);
    const auto fired = static_cast<long>(std::count(first.begin(), first.end(), 1));
    EXPECT_GT(fired, 250);
    EXPECT_LT(fired, 350);
    EXPECT_EQ(drawn(42, 0.0, 100), std::vector<std::size_t>(100, 0));
    EXPECT_EQ(drawn(42, 1.0, 100), std::vector<std::size_t>(100, 1));
}

TEST(FaultRules, EachRuleDrawsItsOwnSequence) {
    // A rule's firings do not depend on how often another rule was drawn.
    Faults alone = rulesOf(R"({"seed": 9, "rules": [{"command": 39, "probability": 0.1, "delay_ms": 0},
                                                     {"command": 38, "probability": 0.5, "delay_ms": 0}]})");
    Faults mixed = rulesOf(R"({"seed": 9, "rules": [{"command": 39, "probability": 0.1, "delay_ms": 0},
                                                     {"command": 38, "probability": 0.5, "delay_ms": 0}]})");
    const auto delaysAt38 = [](Faults& faults, bool with39) {
        std::vector<std::size_t> fired;
        for (int i = 0; i < 200; ++i) {
            if (with39) faults.fire(answerTo(39, -1, AnswerKind::Reply));
            fired.push_back(faults.fire(answerTo(38, -1, AnswerKind::Reply)).delays.size());
        }
        return fired;
    };
    EXPECT_EQ(delaysAt38(alone, false), delaysAt38(mixed, true));
}

}  // namespace
}  // namespace tetherhost::sim

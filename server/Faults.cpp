// SPDX-License-Identifier: MIT
/* Faults: the --faults file read strictly (every problem names its rule
 * and field), and the rules tried at each answer. */
#include "server/Faults.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "protocol/Commands.h"
#include "protocol/Frames.h"

namespace tetherhost::sim {
namespace {

using nlohmann::json;

constexpr std::int64_t longestDelayMs = std::int64_t{3600} * 1000;  // an hour: longer is surely a slip

/* The answer kinds by the names the files use, in AnswerKind's order. */
constexpr std::array<std::pair<AnswerKind, std::string_view>, 8> answerNames = {{
    {AnswerKind::Introduction, "introduction"},
    {AnswerKind::Command, "command"},
    {AnswerKind::Ack, "ack"},
    {AnswerKind::Lock, "lock"},
    {AnswerKind::Reply, "reply"},
    {AnswerKind::Text, "text"},
    {AnswerKind::Status, "status"},
    {AnswerKind::ReadBack, "read-back"},
}};

/* The actions by their fields, in FaultAction's order. */
constexpr std::array<std::pair<FaultAction, const char*>, 10> actionFields = {{
    {FaultAction::Close, "close"},
    {FaultAction::Reset, "reset"},
    {FaultAction::Stall, "stall"},
    {FaultAction::Delay, "delay_ms"},
    {FaultAction::ReplyInteger, "reply_integer"},
    {FaultAction::ReplyText, "reply_text"},
    {FaultAction::Ack, "ack"},
    {FaultAction::Split, "split"},
    {FaultAction::RefuseLock, "refuse_lock"},
    {FaultAction::HoldLock, "hold_lock"},
}};

constexpr const char* matchFields[] = {
    "name", "note", "command", "sub", "client", "frame", "frame_in_command", "answer", "after", "count", "probability"};

/* The answers an action can change: an acknowledgement is replaced only
 * where the model acknowledges, a reply only where it replies, a lock answer
 * only where it answers a lock request. The other actions take any answer. */
bool changes(FaultAction action, AnswerKind kind) {
    switch (action) {
    case FaultAction::Ack:
        return kind == AnswerKind::Introduction || kind == AnswerKind::Command || kind == AnswerKind::Ack;
    case FaultAction::ReplyInteger: return kind == AnswerKind::Reply;
    case FaultAction::ReplyText: return kind == AnswerKind::Text;
    case FaultAction::RefuseLock: return kind == AnswerKind::Lock;
    default: return true;
    }
}

/* The answers `changes` allows, in words, for a complaint. */
const char* changeable(FaultAction action) {
    switch (action) {
    case FaultAction::Ack: return "\"introduction\", \"command\" or \"ack\"";
    case FaultAction::ReplyInteger: return "\"reply\"";
    case FaultAction::ReplyText: return "\"text\"";
    default: return "\"lock\"";
    }
}

/* Reads the fields of one rule, each complaint naming the rule and the
 * field. */
class RuleReader {
public:
    RuleReader(const json& object, FaultRule& rule) : object(object), rule(rule) {}

    void read() {
        if (!object.is_object()) fail("expected an object");
        for (const auto& item : object.items())
            if (!known(item.key())) fail("unknown field \"" + item.key() + "\"");
        if (has("name")) rule.name = text("name", "a text");
        readMatch();
        readAction();
        checkTogether();
    }

private:
    [[noreturn]] void fail(const std::string& what) const { throw std::runtime_error(rule.label() + ": " + what); }

    bool has(const char* field) const { return object.contains(field); }

    static bool known(const std::string& key) {
        const auto isKey = [&](const char* field) { return key == field; };
        return std::any_of(std::begin(matchFields), std::end(matchFields), isKey) ||
               std::any_of(actionFields.begin(), actionFields.end(),
                           [&](const auto& action) { return key == action.second; });
    }

    std::string text(const char* field, const char* what) const {
        const json& value = object.at(field);
        if (!value.is_string()) fail("\"" + std::string(field) + "\" is " + what);
        return value.get<std::string>();
    }

    std::int64_t integer(const char* field, std::int64_t low, std::int64_t high, const std::string& what) const {
        const json& value = object.at(field);
        const bool fits =
            (value.is_number_integer() && !value.is_number_unsigned()) ||
            (value.is_number_unsigned() &&
             value.get<std::uint64_t>() <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()));
        if (!fits || value.get<std::int64_t>() < low || value.get<std::int64_t>() > high)
            fail("\"" + std::string(field) + "\" is " + what);
        return value.get<std::int64_t>();
    }

    std::uint64_t positive(const char* field, std::uint64_t low, const std::string& what) const {
        const json& value = object.at(field);
        if (!value.is_number_unsigned() || value.get<std::uint64_t>() < low)
            fail("\"" + std::string(field) + "\" is " + what);
        return value.get<std::uint64_t>();
    }

    void flag(const char* field) const {
        const json& value = object.at(field);
        if (!value.is_boolean() || !value.get<bool>()) fail("\"" + std::string(field) + "\" is true or left out");
    }

    void readMatch() {
        constexpr auto intLow = std::numeric_limits<int>::min();
        constexpr auto intHigh = std::numeric_limits<int>::max();
        if (has("command")) rule.command = static_cast<int>(integer("command", intLow, intHigh, "a command number"));
        if (has("sub")) rule.sub = static_cast<int>(integer("sub", intLow, intHigh, "a sub-command number"));
        if (has("client")) rule.client = text("client", "a client's name");
        if (has("frame")) rule.frame = positive("frame", 1, "an answer's number in the connection, from 1");
        if (has("frame_in_command"))
            rule.frameInCommand = positive("frame_in_command", 1, "an answer's number in its command, from 1");
        if (has("answer")) {
            const std::string name = text("answer", "the name of a kind of answer");
            const auto found = std::find_if(answerNames.begin(), answerNames.end(),
                                            [&](const auto& entry) { return entry.second == name; });
            if (found == answerNames.end())
                fail(
                    "\"answer\" is one of \"introduction\", \"command\", \"ack\", \"lock\", \"reply\", \"text\", "
                    "\"status\", \"read-back\"; not \"" +
                    name + "\"");
            rule.answer = found->first;
        }
        if (has("after"))
            rule.after = positive("after", 0, "how many selected answers to leave alone first, 0 or more");
        if (has("count")) rule.count = positive("count", 1, "how many times the rule fires, 1 or more");
        if (has("probability")) {
            const json& value = object.at("probability");
            if (!value.is_number() || value.get<double>() < 0 || value.get<double>() > 1)
                fail("\"probability\" is a number from 0 to 1");
            rule.probability = value.get<double>();
        }
    }

    void readAction() {
        const char* chosen = nullptr;
        for (const auto& [action, field] : actionFields) {
            if (!has(field)) continue;
            if (chosen != nullptr)
                fail(std::string("two actions, \"") + chosen + "\" and \"" + field + "\": a rule has one");
            chosen = field;
            rule.action = action;
        }
        if (chosen == nullptr)
            fail(
                "no action: one of \"close\", \"reset\", \"stall\", \"delay_ms\", \"reply_integer\", "
                "\"reply_text\", \"ack\", \"split\", \"refuse_lock\", \"hold_lock\"");
        const std::string tooLong = "at most " + std::to_string(protocol::maxTokenLength) + " bytes";
        switch (rule.action) {
        case FaultAction::Close:
        case FaultAction::Reset:
        case FaultAction::Stall:
        case FaultAction::RefuseLock: flag(chosen); break;
        case FaultAction::Delay:
            rule.amount = integer(chosen, 0, longestDelayMs,
                                  "a whole number of milliseconds from 0 to " + std::to_string(longestDelayMs));
            break;
        case FaultAction::ReplyInteger:
            rule.amount = integer(chosen, std::numeric_limits<std::int64_t>::min(),
                                  std::numeric_limits<std::int64_t>::max(), "a whole number");
            break;
        case FaultAction::ReplyText:
            rule.text = text(chosen, "a text");
            if (rule.text.size() > protocol::maxTokenLength) fail("\"reply_text\" is " + tooLong);
            break;
        case FaultAction::Ack:
            rule.text = text(chosen, "a text");
            if (rule.text.size() > protocol::maxTokenLength) fail("\"ack\" is " + tooLong);
            if (rule.text == protocol::plusText) fail("\"ack\" is an acknowledgement other than the usual one");
            break;
        case FaultAction::Split:
            rule.amount =
                integer(chosen, 2, static_cast<std::int64_t>(protocol::frameSize),
                        "how many sends the answer goes in, from 2 to " + std::to_string(protocol::frameSize));
            break;
        case FaultAction::HoldLock: {
            const std::string which = text(chosen, "\"session\", \"command\" or \"both\"");
            if (which != "session" && which != "command" && which != "both")
                fail("\"hold_lock\" is \"session\", \"command\" or \"both\"; not \"" + which + "\"");
            rule.sessionLock = which != "command";
            rule.commandLock = which != "session";
            break;
        }
        }
    }

    void checkTogether() const {
        if (rule.sub && rule.command && *rule.command != protocol::command::jtagInterface)
            fail("\"sub\" is a sub-command of command " + std::to_string(protocol::command::jtagInterface) +
                 ", and \"command\" is " + std::to_string(*rule.command));
        if (rule.answer && !changes(rule.action, *rule.answer))
            fail("\"answer\" is \"" + std::string(answerKindName(*rule.answer)) + "\", but \"" +
                 actionFields[static_cast<std::size_t>(rule.action)].second + "\" changes only " +
                 changeable(rule.action) + " answers");
    }

    const json& object;
    FaultRule& rule;
};

/* Spreads the rules' draws apart, so that each rule draws its own
 * sequence from the one seed. */
constexpr std::uint64_t seedSpread = 0x9E3779B97F4A7C15ULL;

}  // namespace

std::string_view answerKindName(AnswerKind kind) { return answerNames[static_cast<std::size_t>(kind)].second; }

std::string FaultRule::label() const {
    std::string text = "rule " + std::to_string(number);
    if (!name.empty()) text += " (\"" + name + "\")";
    return text;
}

bool FaultRule::selects(const Answer& at) const {
    if (command && at.command != command) return false;
    if (sub && (at.command != protocol::command::jtagInterface || at.sub != sub)) return false;
    if (client && at.client != *client) return false;
    if (frame && at.frame != *frame) return false;
    if (frameInCommand && at.frameInCommand != *frameInCommand) return false;
    if (answer && at.kind != *answer) return false;
    return changes(action, at.kind);
}

std::chrono::milliseconds Faults::Firing::delay() const {
    std::chrono::milliseconds total{0};
    for (const FaultRule* rule : delays) total += std::chrono::milliseconds(rule->amount);
    return total;
}

Faults::Faults(std::string_view text, const std::string& origin) {
    json document;
    try {
        document = json::parse(text);
    } catch (const json::parse_error& error) {
        throw std::runtime_error(origin + ": not valid JSON: " + error.what());
    }
    const auto fail = [&](const std::string& what) { throw std::runtime_error(origin + ": " + what); };
    if (!document.is_object()) fail("expected an object with \"rules\" (and \"seed\")");
    for (const auto& item : document.items())
        if (item.key() != "rules" && item.key() != "seed" && item.key() != "note")
            fail("unknown field \"" + item.key() + "\"");
    if (document.contains("seed")) {
        if (!document.at("seed").is_number_unsigned()) fail("\"seed\" is a whole number, 0 or more");
        seedValue = document.at("seed").get<std::uint64_t>();
    }
    if (!document.contains("rules") || !document.at("rules").is_array()) fail("\"rules\" is a list of rules");
    const json& rules = document.at("rules");
    all.reserve(rules.size());
    for (std::size_t i = 0; i < rules.size(); ++i) {
        FaultRule rule;
        rule.number = i + 1;
        try {
            RuleReader(rules[i], rule).read();
        } catch (const std::runtime_error& error) {
            fail(error.what());
        }
        all.push_back(std::move(rule));
        progress.push_back({0, 0, std::mt19937_64(seedValue ^ (seedSpread * (i + 1)))});
    }
}

Faults Faults::load(const std::string& path) {
    std::ifstream file(path);
    if (!file) throw std::runtime_error(path + ": cannot be read");
    std::ostringstream text;
    text << file.rdbuf();
    return Faults(text.str(), path);
}

bool Faults::tryRule(std::size_t index, const Answer& answer) {
    const FaultRule& rule = all[index];
    Progress& state = progress[index];
    if (!rule.selects(answer)) return false;
    if (++state.selected <= rule.after) return false;
    if (rule.count && state.fired >= *rule.count) return false;
    if (rule.probability) {
        // 53 random bits make a double in [0, 1), the same on every machine.
        const double draw = static_cast<double>(state.draws() >> 11) * 0x1.0p-53;
        if (draw >= *rule.probability) return false;
    }
    ++state.fired;
    return true;
}

Faults::Firing Faults::fire(const Answer& answer) {
    Firing firing;
    for (std::size_t i = 0; i < all.size() && firing.rule == nullptr; ++i) {
        if (!tryRule(i, answer)) continue;
        if (all[i].action == FaultAction::Delay)
            firing.delays.push_back(&all[i]);
        else
            firing.rule = &all[i];
    }
    return firing;
}

bool Faults::usedUp(const FaultRule& rule) const {
    return rule.count && progress[rule.number - 1].fired >= *rule.count;
}

}  // namespace tetherhost::sim

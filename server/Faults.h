// SPDX-License-Identifier: MIT
/* Faults: `tetherhost --faults FILE`, the rules by which the simulator
 * misbehaves on purpose, so that a host application's error paths can be
 * run: a server that closes or resets the connection, stalls, answers late,
 * answers another integer or text, a bad acknowledgement, a reply in
 * pieces, a lock refused or held by another client. This file owns the
 * rules (read and checked from JSON) and the choice of which fire at each
 * answer the model is about to send, with their counts and seeded draws; it
 * knows nothing of sockets. The conversation applies what fires, at the one
 * place every answer goes out (SessionWire). See docs/faults.md. */
#ifndef TETHERHOST_SERVER_FAULTS_H
#define TETHERHOST_SERVER_FAULTS_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace tetherhost::sim {

/** What an answer of the model is, as a rule's "answer" names it. */
enum class AnswerKind : unsigned char {
    Introduction,  // "introduction": the answer to the client's name
    Command,       // "command": the answer to a command frame
    Ack,           // "ack": the acknowledgement of an argument, a block or a chunk
    Lock,          // "lock": a lock answer (commands 4 and 33)
    Reply,         // "reply": the integer reply (a command's first reply request)
    Text,          // "text": a text reply (the later reply requests)
    Status,        // "status": a JTAG shift's status text
    ReadBack,      // "read-back": returned data
};

/** One answer the model is about to send, and where the conversation
 * stands. */
struct Answer {
    std::string_view client;           // the client's name
    std::optional<int> command;        // the command being served; none before the first
    std::optional<int> sub;            // command 44's sub-command, once it has come
    std::uint64_t frame = 0;           // the connection's answers, from 1 (the introduction's)
    std::uint64_t frameInCommand = 0;  // the command's answers, from 1 (its command frame's); 0 before the first
    AnswerKind kind = AnswerKind::Ack;
};

enum class FaultAction : unsigned char {
    Close,         // "close": the connection is closed instead of the answer
    Reset,         // "reset": the connection is reset (RST) instead of the answer
    Stall,         // "stall": no answer, ever; the connection stays open
    Delay,         // "delay_ms": the answer goes out that much later
    ReplyInteger,  // "reply_integer": the integer reply is this number
    ReplyText,     // "reply_text": the text reply is this text
    Ack,           // "ack": the acknowledgement is this text instead of "+"
    Split,         // "split": the answer goes in this many sends
    RefuseLock,    // "refuse_lock": the lock answer is 0, the lock not granted
    HoldLock,      // "hold_lock": another client takes the lock(s)
};

struct FaultRule {
    std::size_t number = 0;  // its place in the file, from 1
    std::string name;        // for the trace; may be empty

    // The answers it selects: every field given must agree.
    std::optional<int> command;
    std::optional<int> sub;
    std::optional<std::string> client;
    std::optional<std::uint64_t> frame;
    std::optional<std::uint64_t> frameInCommand;
    std::optional<AnswerKind> answer;

    // How often it fires at them.
    std::uint64_t after = 0;             // the first `after` selected answers are left alone
    std::optional<std::uint64_t> count;  // then it fires this many times; none: every time
    std::optional<double> probability;   // each time with this probability (seeded)

    FaultAction action = FaultAction::Close;
    std::int64_t amount = 0;   // delay_ms, reply_integer, split's pieces
    std::string text;          // reply_text, ack
    bool sessionLock = false;  // hold_lock: the locks another client takes
    bool commandLock = false;

    /** How the trace names it: `rule 2` or `rule 2 ("slow scans")`. */
    std::string label() const;
    /** Whether it selects `answer` (its match fields and the answers its
     * action can change), before counts and draws. */
    bool selects(const Answer& answer) const;
};

/** The rules of one run, and how often each has been selected and has
 * fired. The model serves every connection on one thread, so one instance
 * serves them all. */
class Faults {
public:
    /** Reads and checks the rules in `json`; throws std::runtime_error
     * ("origin: rule 2: \"delay_ms\" is ...") naming the rule and the field
     * at the first problem. */
    Faults(std::string_view json, const std::string& origin);
    /** The rules of the file at `path` (the same errors, and "path: cannot
     * be read"). */
    static Faults load(const std::string& path);

    /** What fires at one answer: every delay rule that fires (their times
     * add up), and the first rule of any other action that fires. */
    struct Firing {
        std::vector<const FaultRule*> delays;
        const FaultRule* rule = nullptr;
        std::chrono::milliseconds delay() const;
    };

    /** The rules that fire at `answer`, each counted. Rules are tried in
     * the file's order; once a rule other than a delay has fired, the rest
     * are not tried (nor counted). */
    Firing fire(const Answer& answer);
    /** True once `rule` has fired as many times as its count. */
    bool usedUp(const FaultRule& rule) const;

    const std::vector<FaultRule>& rules() const { return all; }
    std::uint64_t seed() const { return seedValue; }

private:
    struct Progress {
        std::uint64_t selected = 0;
        std::uint64_t fired = 0;
        std::mt19937_64 draws;
    };
    bool tryRule(std::size_t index, const Answer& answer);

    std::uint64_t seedValue = 0;
    std::vector<FaultRule> all;
    std::vector<Progress> progress;
};

/** The word a rule's "answer" field uses for `kind`. */
std::string_view answerKindName(AnswerKind kind);

}  // namespace tetherhost::sim

#endif

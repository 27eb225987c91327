// SPDX-License-Identifier: MIT
/* SessionFaults: the rules of --faults applied to the model's answers
 * (docs/faults.md). Every answer is offered to the rules as it goes out;
 * what fires delays it, changes its bytes, sends it in pieces, refuses a
 * lock or gives one to another client, or ends the connection in its place.
 * Each firing is a trace event, so a test can wait for it. */
#include <algorithm>
#include <asio/socket_base.hpp>
#include <asio/steady_timer.hpp>
#include <asio/this_coro.hpp>
#include <asio/use_awaitable.hpp>
#include <chrono>

#include "server/Conversation.h"

namespace tetherhost::sim {

using asio::use_awaitable;

namespace {

/* The bytes a rule answers in place of the model's own, for the actions
 * that change an answer's bytes in one send. */
std::string replacement(const FaultRule& rule) {
    if (rule.action == FaultAction::ReplyInteger) return std::to_string(rule.amount) + '\0';
    return rule.text + '\0';  // reply_text, ack
}

/* What the trace says a rule does. */
std::string doing(const FaultRule& rule) {
    switch (rule.action) {
    case FaultAction::ReplyInteger: return "replaces the integer reply";
    case FaultAction::ReplyText: return "replaces the text reply";
    case FaultAction::Ack: return "replaces the acknowledgement";
    case FaultAction::RefuseLock: return "refuses the lock";
    default: break;
    }
    if (rule.sessionLock && rule.commandLock) return "gives both locks to another client";
    return rule.sessionLock ? "gives the session lock to another client" : "gives the command lock to another client";
}

}  // namespace

Lock Conversation::answeredLock() const {
    return commandNumber == protocol::command::openSession ? Lock::Session : Lock::Command;
}

asio::awaitable<void> Conversation::sendFaulted(std::string_view frame, std::string_view item, bool isText,
                                                AnswerKind kind) {
    const Faults::Firing firing =
        state.faults->fire({clientName, commandNumber, subNumber, answers, commandAnswers, kind});
    for (const FaultRule* rule : firing.delays)
        state.trace.event(where(),
                          "fault: " + rule->label() + " delays the answer by " + std::to_string(rule->amount) + " ms");
    const std::chrono::milliseconds delay = firing.delay();
    if (delay.count() > 0) {
        // The client is waiting for us, which is no stall of its own.
        watch.relax();
        asio::steady_timer late(co_await asio::this_coro::executor, delay);
        co_await late.async_wait(use_awaitable);
    }
    if (firing.rule == nullptr) {
        co_await put(frame, item, isText);
        co_return;
    }
    co_await applyFault(*firing.rule, frame, item, isText, kind);
}

asio::awaitable<void> Conversation::applyFault(const FaultRule& rule, std::string_view frame, std::string_view item,
                                               bool isText, AnswerKind kind) {
    const std::string fault = "fault: " + rule.label() + " ";
    if (rule.action == FaultAction::Close) {
        state.trace.event(where(), fault + "closes the connection instead of the answer");
        throw FaultEnd(fault + "closed the connection");
    }
    if (rule.action == FaultAction::Reset) {
        state.trace.event(where(), fault + "resets the connection instead of the answer");
        // With a linger time of zero the close sends RST at once: the client
        // sees its connection reset, not ended.
        std::error_code ignored;
        socket.set_option(asio::socket_base::linger(true, 0), ignored);
        socket.close(ignored);
        throw FaultEnd(fault + "reset the connection");
    }
    if (rule.action == FaultAction::Stall) {
        state.trace.event(where(), fault + "stalls: no answer from here on");
        co_await stallUntilTheClientLeaves();
        throw FaultEnd(fault + "stalled the connection until the client left");
    }
    if (rule.action == FaultAction::Split) {
        const std::size_t pieces = std::min(static_cast<std::size_t>(rule.amount), frame.size());
        state.trace.event(where(), fault + "splits the answer into " + std::to_string(pieces) + " sends");
        std::size_t offset = 0;
        for (std::size_t i = 0; i < pieces; ++i) {
            // Each piece is taken by the client before the next goes, as
            // the model keeps two sends apart (ClientDrain).
            if (i > 0) co_await waitClientDrained();
            const std::size_t length = frame.size() / pieces + (i < frame.size() % pieces ? 1 : 0);
            co_await put(frame.substr(offset, length), item, isText);
            offset += length;
        }
        co_return;
    }
    if (rule.action == FaultAction::HoldLock) {
        const ConnectionId other = standInFor(id);
        if (rule.sessionLock) state.locks.seize(Lock::Session, other);
        if (rule.commandLock) state.locks.seize(Lock::Command, other);
        state.trace.event(where(), fault + doing(rule));
        const bool refused = kind == AnswerKind::Lock && state.locks.holder(answeredLock()) == other;
        const std::string_view answer = refused ? lockRefusedFrame : frame;
        co_await put(answer, item, isText);
        if (state.faults->usedUp(rule)) {
            // Its last firing: the other client is done with them.
            if (rule.sessionLock) state.locks.release(Lock::Session, other);
            if (rule.commandLock) state.locks.release(Lock::Command, other);
            state.trace.event(where(), fault + "used up: the other client gives the lock back");
        }
        co_return;
    }
    if (rule.action == FaultAction::RefuseLock) {
        state.locks.release(answeredLock(), id);
        state.trace.event(where(), fault + doing(rule));
        co_await put(lockRefusedFrame, item, isText);
        co_return;
    }
    state.trace.event(where(), fault + doing(rule));
    const std::string changed = replacement(rule);
    co_await put(changed, item, isText);
}

/* A stalled connection is never answered again; what the client sends is
 * taken off the wire (and traced) until it leaves. */
asio::awaitable<void> Conversation::stallUntilTheClientLeaves() {
    watch.relax();
    for (;;) {
        co_await socket.async_wait(asio::socket_base::wait_read, use_awaitable);
        std::error_code error;
        const std::size_t received = socket.read_some(asio::buffer(state.received), error);
        if (error == asio::error::would_block) continue;
        if (error) co_return;
        state.trace.data(where(), '<', "unanswered", received);
    }
}

}  // namespace tetherhost::sim

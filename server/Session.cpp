// SPDX-License-Identifier: MIT
/* Session: a connection's conversation from its introduction to its close,
 * and the dispatch of each command to the part that serves it. */
#include "server/Conversation.h"

#include <asio/use_awaitable.hpp>
#include <exception>

#include "support/HeapInUse.h"
#include "tetherhost/version.h"

namespace tetherhost::sim {

asio::awaitable<void> Conversation::run(const Handover* handover) {
    if (handover != nullptr) {
        clientName = handover->clientName;
        answers = handover->answers;
        reader.feed(handover->received.data(), handover->received.size());
        state.trace.event(where(), "the model goes on after the recording");
    } else {
        state.trace.event(where(), "connected");
    }
    std::string reason = "client left";
    std::exception_ptr unexpected;
    try {
        // Receives are made when the socket is readable, into the buffer
        // all connections share.
        socket.non_blocking(true);
        if (handover == nullptr) {
            clientName = co_await token("name");
            co_await send(plusFrame, "answer", true, AnswerKind::Introduction);
        }
        for (;;) co_await next();
    } catch (const ProtocolError& error) {
        reason = error.what();
    } catch (const FaultEnd& error) {
        reason = error.what();
    } catch (const std::system_error& error) {
        if (watch.stalled())
            reason = "stalled for " + std::to_string(watch.limit().count()) + " s with a frame half sent";
        else if (error.code() != asio::error::eof)
            reason = error.code().message();
    } catch (const std::exception& error) {
        // A fault of ours: the locks are released all the same, and the
        // exception goes on to whoever runs the session.
        reason = std::string("internal error: ") + error.what();
        unexpected = std::current_exception();
    }
    // Locks freed and socket closed before the event is traced: whoever
    // reads the trace may rely on both.
    state.locks.releaseAll(id);
    state.locks.releaseAll(standInFor(id));
    std::error_code ignored;
    socket.shutdown(asio::socket_base::shutdown_both, ignored);
    socket.close(ignored);
    state.trace.event(where(), "closed: " + reason);
    if (unexpected) std::rethrow_exception(unexpected);
}

asio::awaitable<void> Conversation::next() {
    betweenCommands = true;
    const std::string frame = co_await rawToken();
    betweenCommands = false;
    if (frame == protocol::plusText) {
        // A reply request: the current command's next reply, or an empty
        // text when it has none left.
        state.trace.text(where(), '<', "request", plusFrame);
        std::string reply = replies.empty() ? std::string() : std::move(replies.front());
        if (!replies.empty()) replies.pop_front();
        reply.push_back('\0');
        ++requests;
        const bool integerReply = requests == 1 && commandNumber && protocol::readsIntegerReply(*commandNumber);
        co_await send(reply, "reply", true, integerReply ? AnswerKind::Reply : AnswerKind::Text);
        co_return;
    }
    label = frame;
    state.trace.text(where(), '<', "command", std::string_view(frame.data(), frame.size() + 1));
    const std::optional<int> number = parseInt(frame);
    if (!number) throw ProtocolError("not a command number: " + shortened(frame));
    commandToken = frame;
    commandNumber = *number;
    subNumber.reset();
    commandAnswers = 0;
    requests = 0;
    replies.clear();
    textReply.reset();
    co_await acknowledge("answer", AnswerKind::Command);
    overBudget = false;
    const int value = co_await perform(*number);
    held.clear();
    if (!protocol::readsIntegerReply(*number)) co_return;
    replies.push_back(std::to_string(value));
    if (textReply) replies.push_back(*textReply);
}

asio::awaitable<int> Conversation::perform(int number) {
    using protocol::Marshal;
    const protocol::Command shape = protocol::shapeOf(number);
    // A lock-guarded command without both locks is taken off the wire as
    // usual, changes nothing, and fails.
    const bool refused = protocol::isLockGuarded(number) && !state.locks.holdsBoth(id);
    int value = reply::done;
    switch (shape.marshal) {
    case Marshal::Nothing: value = refused ? reply::done : plain(number); break;
    case Marshal::Unknown: break;
    case Marshal::TextsLenient:
    case Marshal::TextsStrict:
        for (int i = 0; i < shape.count; ++i) co_await text("text");
        break;
    case Marshal::Ints:
        for (int i = 0; i < shape.count; ++i) co_await integer("arg");
        break;
    case Marshal::HeaderTrailer:
        for (int i = 0; i < shape.count; i += 2) {
            co_await integer("arg");
            co_await text("text");
        }
        break;
    case Marshal::OpenSession: co_await openSession(); break;
    case Marshal::CommandLock: co_await lockRequest(Lock::Command); break;
    case Marshal::ReleaseCommandLock: state.locks.release(Lock::Command, id); break;
    case Marshal::ReleaseSessionLock: state.locks.release(Lock::Session, id); break;
    case Marshal::Farewell: state.locks.releaseAll(id); break;
    case Marshal::GenericShift: value = co_await genericShift(refused); break;
    case Marshal::SharedApps: value = co_await sharedApps(); break;
    case Marshal::PumpData: value = co_await pumpData(); break;
    case Marshal::JtagInterface: value = co_await jtagInterface(); break;
    case Marshal::I2C: value = co_await transfers(shape, &Conversation::i2cTransfer); break;
    case Marshal::SSPI: value = co_await transfers(shape, &Conversation::sspiTransfer); break;
    }
    if (refused) {
        textReply.reset();
        co_return reply::locksNotHeld;
    }
    co_return overBudget ? reply::busy : value;
}

int Conversation::plain(int number) {
    switch (number) {
    case protocol::command::statusReport: textReply = statusReport(state); return reply::done;
    case protocol::command::sharedAppList: textReply = cable.sharedApps(); return cable.sharedAppCount();
    default: return reply::done;
    }
}

asio::awaitable<int> Conversation::sharedApps() {
    const std::string list = co_await bytes(frameSize, "block");
    co_await acknowledge("ack");
    co_return cable.setSharedApps(list);
}

asio::awaitable<void> serveConnection(asio::ip::tcp::socket& socket, ServerState& state, ConnectionId id) {
    Conversation conversation(socket, state, id);
    co_await conversation.run();
}

asio::awaitable<void> serveConnection(asio::ip::tcp::socket& socket, ServerState& state, ConnectionId id,
                                      Handover handover) {
    Conversation conversation(socket, state, id);
    co_await conversation.run(&handover);
}

std::string statusReport(const ServerState& state) {
    return std::string("tetherhost simulator " TETHERHOST_VERSION_STRING) +
           ";clients=" + std::to_string(state.connected) + ";connections=" + std::to_string(state.connections) +
           ";heap=" + std::to_string(heapInUse()) + ";";
}

}  // namespace tetherhost::sim

// SPDX-License-Identifier: MIT
/* SessionWire: the conversation's frames in and out: receiving tokens,
 * bytes, blocks and chunks through the frame reader, sending answers and
 * read-backs, and keeping the status text and the read-back of a JTAG shift
 * apart as well as a server can. */
#include "server/Conversation.h"

#include <algorithm>
#include <asio/use_awaitable.hpp>
#include <asio/write.hpp>

#include "server/ClientDrain.h"

namespace tetherhost::sim {

using asio::use_awaitable;

/* Between commands, with nothing half received, the wait for the client
 * has no end: a host may hold its session open for hours. Anywhere else the
 * client owes the rest of what it has begun, and the stall watch ends the
 * connection if it stalls, so a half-sent frame cannot hold a connection
 * (or keep a server with an idle exit running) for ever. */
asio::awaitable<void> Conversation::receiveMore() {
    for (;;) {
        if (betweenCommands && reader.buffered() == 0) {
            watch.relax();
        } else {
            watch.expect();
        }
        co_await socket.async_wait(asio::socket_base::wait_read, use_awaitable);
        std::error_code error;
        const std::size_t received = socket.read_some(asio::buffer(state.received), error);
        if (error == asio::error::would_block) continue;
        if (error) throw std::system_error(error);
        watch.progress();
        reader.feed(state.received.data(), received);
        co_return;
    }
}

asio::awaitable<std::string> Conversation::rawToken() {
    std::string result;
    for (;;) {
        switch (reader.token(result)) {
        case FrameReader::Result::Ready: co_return result;
        case FrameReader::Result::Overlong:
            throw ProtocolError("no NUL within " + std::to_string(protocol::frameSize) + " bytes");
        case FrameReader::Result::NeedMore: co_await receiveMore(); break;
        }
    }
}

asio::awaitable<std::string> Conversation::token(std::string_view item) {
    std::string result = co_await rawToken();
    state.trace.text(where(), '<', item, std::string_view(result.data(), result.size() + 1));
    co_return result;
}

asio::awaitable<std::string> Conversation::bytes(std::size_t count, std::string_view item) {
    std::string result;
    while (reader.take(count, result) == FrameReader::Result::NeedMore) co_await receiveMore();
    state.trace.data(where(), '<', item, count);
    co_return result;
}

asio::awaitable<int> Conversation::integer(std::string_view item) {
    const std::string frame = co_await token(item);
    const std::optional<int> value = parseInt(frame);
    if (!value) throw ProtocolError("not an integer argument: " + shortened(frame));
    co_await acknowledge("ack");
    co_return *value;
}

asio::awaitable<void> Conversation::text(std::string_view item) {
    co_await token(item);
    co_await acknowledge("ack");
}

asio::awaitable<void> Conversation::goToken() {
    const std::string frame = co_await token("go");
    if (frame != protocol::plusText) throw ProtocolError("expected the go token");
}

asio::awaitable<std::string> Conversation::chunkedBlock(std::int64_t byteCount, bool padded, std::int64_t keep) {
    if (keep > ownAllowance && !held.add(static_cast<std::size_t>(keep - ownAllowance))) {
        overBudget = true;
        keep = ownAllowance;
    }
    std::string kept;
    for (std::int64_t offset = 0; offset < byteCount; offset += static_cast<std::int64_t>(frameSize)) {
        const auto length = static_cast<std::size_t>(std::min<std::int64_t>(frameSize, byteCount - offset));
        const std::size_t sent = padded ? frameSize : length;
        const std::string chunk = co_await bytes(sent, "chunk");
        co_await acknowledge("ack");
        if (offset < keep)
            kept.append(chunk, 0, static_cast<std::size_t>(std::min<std::int64_t>(length, keep - offset)));
    }
    co_return kept;
}

asio::awaitable<std::string> Conversation::block(const BlockShape& shape, std::int64_t keep) {
    if (!shape.single) co_return co_await chunkedBlock(shape.byteCount, false, keep);
    co_return co_await bytes(static_cast<std::size_t>(shape.byteCount), "block");
}

/* Not a coroutine of its own: it counts the answer and hands back the
 * coroutine that sends it, so that without --faults an answer costs what it
 * always did. */
asio::awaitable<void> Conversation::send(std::string_view frame, std::string_view item, bool isText, AnswerKind kind) {
    ++answers;
    if (commandNumber) ++commandAnswers;
    if (state.faults != nullptr) return sendFaulted(frame, item, isText, kind);
    return put(frame, item, isText);
}

asio::awaitable<void> Conversation::put(std::string_view frame, std::string_view item, bool isText) {
    if (isText) {
        state.trace.text(where(), '>', item, frame);
    } else {
        state.trace.data(where(), '>', item, frame.size());
    }
    // A client that does not take what it asked for stalls like one that
    // does not send.
    watch.expect();
    co_await asio::async_write(socket, asio::buffer(frame.data(), frame.size()), use_awaitable);
    watch.progress();
}

asio::awaitable<void> Conversation::acknowledge(std::string_view item, AnswerKind kind) {
    co_await send(plusFrame, item, true, kind);
}

/* Waits until the client has read everything sent so far (ClientDrain). */
asio::awaitable<void> Conversation::waitClientDrained() { co_await sim::waitClientDrained(socket); }

/* Read-back data: a single block is one send of exactly byteCount bytes,
 * of which the library keeps byteCount (with nothing to return, one byte
 * still has to arrive to end its receive). Chunks are one send each,
 * answered by a go token: "+" and up to 1023 bytes when `framed`,
 * otherwise up to 1024 raw bytes. */
asio::awaitable<void> Conversation::readBack(const BlockShape& shape, bool framed, const Producer& produce) {
    if (shape.single) {
        std::string data = produce(0, static_cast<std::size_t>(std::max(shape.byteCount, 0)));
        if (data.empty()) data.assign(1, '\0');
        co_await send(data, "read-back", false, AnswerKind::ReadBack);
        co_return;
    }
    const std::size_t payload = framed ? protocol::framedPayload : frameSize;
    const auto total = static_cast<std::size_t>(shape.byteCount);
    for (std::int64_t i = 0; i < shape.chunkCount; ++i) {
        const std::size_t offset = static_cast<std::size_t>(i) * payload;
        const std::size_t length = offset < total ? std::min(payload, total - offset) : 0;
        const std::string chunk =
            std::string(framed ? protocol::plusText : std::string_view()) + produce(offset, length);
        co_await send(chunk, "read-back", false, AnswerKind::ReadBack);
        co_await goToken();
    }
}

/* The end of a pump or generic shift: the read-back, or the answer to the
 * single block, or the extra acknowledgement after the last chunk. */
asio::awaitable<void> Conversation::finishTransfer(const BlockShape& shape, bool withReadBack, bool framed,
                                                   const Producer& produce) {
    if (withReadBack) {
        co_await readBack(shape, framed, produce);
    } else {
        co_await acknowledge(shape.single ? "answer" : "ack");
    }
}

}  // namespace tetherhost::sim

// SPDX-License-Identifier: MIT
/* Conversation: one connection's conversation, from the server's side,
 * shared by the files that each serve one part of it: the wire (frames in
 * and out, SessionWire.cpp), the dispatch (Session.cpp), the locks
 * (SessionLocks.cpp), the scan and bus transfers (SessionTransfers.cpp), the
 * JTAG interface (SessionJtag.cpp) and the one-call shift
 * (SessionOneCall.cpp). Every exchange mirrors a step of the library: where
 * the library sends a frame and receives an answer, the conversation
 * receives the frame and sends the answer; where the library receives twice
 * in a row, it makes sure its first send has been taken before the second
 * goes out.
 *
 * Every co_await stands in a statement of its own (`x = co_await f(named);`),
 * never inside a condition, a ?: or beside a temporary that lives across it:
 * GCC 12 miscompiles some of those forms (a co_await in an if-condition
 * comparing its std::string result spun for ever in the frame's teardown). */
#ifndef TETHERHOST_SERVER_CONVERSATION_H
#define TETHERHOST_SERVER_CONVERSATION_H

#include <asio/awaitable.hpp>
#include <array>
#include <asio/ip/tcp.hpp>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "protocol/Commands.h"
#include "protocol/FrameReader.h"
#include "protocol/Frames.h"
#include "protocol/Status.h"
#include "server/Cable.h"
#include "server/Faults.h"
#include "server/Locks.h"
#include "server/Session.h"
#include "server/StallWatch.h"
#include "server/Trace.h"
#include "server/TransferMemory.h"

namespace tetherhost::sim {

namespace protocol = tetherhost::protocol;
using protocol::allZero;
using protocol::BlockShape;
using protocol::FrameReader;
using protocol::frameSize;
using protocol::parseInt;
using protocol::plusFrame;
using protocol::sessionOptionCount;

/* Of each chunked block a connection keeps this much outside the shared
 * transfer memory: the one-call shift needs it to follow the wire, and
 * it is bounded per connection like its receive buffer. */
inline constexpr std::int64_t ownAllowance = std::int64_t{2} * protocol::frameBytes;
/* The answers to a lock request: granted and refused. */
inline constexpr std::string_view lockGrantedFrame{"1\0", 2};
inline constexpr std::string_view lockRefusedFrame{"0\0", 2};

/* A client that broke the protocol: its connection is closed, with the
 * error's text as the reason in the trace. */
class ProtocolError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/* A fault rule ended the connection (closed, reset, or stalled until the
 * client left): the error's text is the reason in the trace. */
class FaultEnd : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/* `length` bytes of `bytes` from `offset`, zeros where it has none. */
std::string slice(const std::string& bytes, std::size_t offset, std::size_t length);
/* The first characters of a client's text, printable, for an error. */
std::string shortened(std::string_view text);

class Conversation {
public:
    Conversation(asio::ip::tcp::socket& socket, ServerState& state, ConnectionId id)
        : socket(socket), state(state), cable(state.cable), id(id), watch(socket, state.limits.stallTimeout) {}

    /** Serves the connection to its end: from the introduction, or from
     * where `handover` (when given) leaves it. */
    asio::awaitable<void> run(const Handover* handover = nullptr);

private:
    /* Bytes [offset, offset + length) of the data a read-back returns. */
    using Producer = std::function<std::string(std::size_t offset, std::size_t length)>;
    using Transfer = asio::awaitable<int> (Conversation::*)(int withWrite, int withReadBack);

    Trace::Where where() const { return {id, clientName, label}; }

    // Receiving.
    asio::awaitable<void> receiveMore();
    asio::awaitable<std::string> rawToken();
    asio::awaitable<std::string> token(std::string_view item);
    asio::awaitable<std::string> bytes(std::size_t count, std::string_view item);
    asio::awaitable<int> integer(std::string_view item);
    asio::awaitable<void> text(std::string_view item);
    asio::awaitable<void> goToken();
    asio::awaitable<std::string> chunkedBlock(std::int64_t byteCount, bool padded, std::int64_t keep);
    asio::awaitable<std::string> block(const BlockShape& shape, std::int64_t keep);

    // Sending. Every answer goes through send, which counts it and, under
    // --faults, hands it to the fault rules; put sends it as it is.
    asio::awaitable<void> send(std::string_view frame, std::string_view item, bool isText, AnswerKind kind);
    asio::awaitable<void> put(std::string_view frame, std::string_view item, bool isText);
    asio::awaitable<void> acknowledge(std::string_view item, AnswerKind kind = AnswerKind::Ack);
    asio::awaitable<void> waitClientDrained();
    asio::awaitable<void> readBack(const BlockShape& shape, bool framed, const Producer& produce);
    asio::awaitable<void> finishTransfer(const BlockShape& shape, bool withReadBack, bool framed,
                                         const Producer& produce);

    // Faults (SessionFaults.cpp).
    asio::awaitable<void> sendFaulted(std::string_view frame, std::string_view item, bool isText, AnswerKind kind);
    asio::awaitable<void> applyFault(const FaultRule& rule, std::string_view frame, std::string_view item, bool isText,
                                     AnswerKind kind);
    asio::awaitable<void> stallUntilTheClientLeaves();
    /* The lock that a lock answer of the command being served answers. */
    Lock answeredLock() const;

    // Commands.
    asio::awaitable<void> next();
    asio::awaitable<int> perform(int number);
    int plain(int number);
    asio::awaitable<void> openSession();
    asio::awaitable<void> lockRequest(Lock lock);
    asio::awaitable<int> sharedApps();
    asio::awaitable<int> genericShift(bool refused);
    asio::awaitable<int> pumpData();
    asio::awaitable<int> transfers(const protocol::Command& shape, Transfer transfer);
    asio::awaitable<int> sspiTransfer(int withWrite, int withReadBack);
    asio::awaitable<int> i2cTransfer(int withWrite, int withReadBack);
    asio::awaitable<int> jtagInterface();
    asio::awaitable<int> jtagOperation();
    int plainSubCommand(int number);
    /** The TAP control sub-commands that take integers (docs/simulator.md). */
    int tapSubCommand(int number, const std::array<int, 5>& values);
    /** A door connection (remote_bitbang, XVC) owns the chain: nothing may
     * clock it. */
    bool chainOwned() const { return state.chainOwner != 0; }
    asio::awaitable<int> jtagShift();
    asio::awaitable<void> oneCallShift();
    asio::awaitable<void> oneCallLaterSlots(const std::string& head, std::int64_t byteCount);
    asio::awaitable<std::string> fixedFrameText(std::string_view item);

    asio::ip::tcp::socket& socket;
    ServerState& state;
    Cable& cable;
    ConnectionId id;
    FrameReader reader;
    StallWatch watch;
    bool betweenCommands = false;                     // waiting for a command: may wait for ever
    TransferMemory::Hold held{state.transferMemory};  // for the command being served
    bool overBudget = false;                          // a block of it did not fit and was not kept
    std::string clientName;
    std::string label;         // the command being served, for the trace
    std::string commandToken;  // its frame's text
    std::deque<std::string> replies;
    std::optional<std::string> textReply;

    // Where the conversation stands, as the fault rules select answers.
    std::uint64_t answers = 0;         // sent on the connection
    std::uint64_t commandAnswers = 0;  // sent for the command being served
    int requests = 0;                  // reply requests of the command being served
    std::optional<int> commandNumber;  // the command being served
    std::optional<int> subNumber;      // its sub-command (command 44)
};

}  // namespace tetherhost::sim

#endif

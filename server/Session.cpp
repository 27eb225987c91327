/* Session: one connection's conversation, from the server's side. Every
 * exchange mirrors a step of the library: where the library sends a frame
 * and receives an answer, the session receives the frame and sends the
 * answer; where the library receives twice in a row, the session makes sure
 * its first send has been taken before the second goes out.
 *
 * Every co_await stands in a statement of its own (`x = co_await f(named);`),
 * never inside a condition, a ?: or beside a temporary that lives across it:
 * GCC 12 miscompiles some of those forms (a co_await in an if-condition
 * comparing its std::string result spun for ever in the frame's teardown). */
#include "Session.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <asio/steady_timer.hpp>
#include <asio/use_awaitable.hpp>
#include <asio/write.hpp>
#include <charconv>
#include <chrono>
#include <deque>
#include <exception>
#include <functional>
#include <optional>
#include <stdexcept>

#include "FrameReader.h"
#include "HeapInUse.h"
#include "ReceiveQueue.h"
#include "StallWatch.h"
#include "Vocabulary.h"

namespace tetherhost::sim {
namespace {

namespace vocab = tetherhost::vocabulary;
using asio::use_awaitable;

constexpr std::size_t blockSize = vocab::frameSize;
/* Every acknowledgement, answer and go token is these two bytes. */
constexpr std::string_view plusFrame("+\0", 2);
/* Command 4 always sends this many option frames. */
constexpr int sessionOptionCount = 10;
/* Pump, SSPI and I2C blocks of more bits than this travel in chunks. */
constexpr int singleBlockBits = 8192;
/* The one-call JTAG shift sends its first block in chunks above this. */
constexpr int oneCallSingleFrameBits = 16384;
/* A read-back chunk that begins with "+" carries this many data bytes. */
constexpr std::size_t framedPayload = blockSize - 1;
/* Of each chunked block a connection keeps this much outside the shared
 * transfer memory: the one-call shift needs it to follow the wire, and
 * it is bounded per connection like its receive buffer. */
constexpr std::int64_t ownAllowance = std::int64_t{2} * blockSize;

class ProtocolError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

std::optional<int> parseInt(std::string_view text) {
    int value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc{} || stop != end) return std::nullopt;
    return value;
}

/* (bitCount + 7) / 8 in 32-bit arithmetic that wraps, as the library
 * computes it. */
std::int64_t byteCountOf(int bitCount) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(bitCount) + 7U) / 8;
}

std::int64_t chunkCountOf(std::int64_t byteCount) {
    return (byteCount + static_cast<std::int64_t>(blockSize) - 1) / static_cast<std::int64_t>(blockSize);
}

unsigned char reversedBits(unsigned char byte) {
    unsigned char result = 0;
    for (int i = 0; i < 8; ++i) result = static_cast<unsigned char>(result | (((byte >> i) & 1U) << (7 - i)));
    return result;
}

bool allZero(std::string_view bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](char c) { return c == '\0'; });
}

/* `length` bytes of `bytes` from `offset`, zeros where it has none. */
std::string slice(const std::string& bytes, std::size_t offset, std::size_t length) {
    std::string part = offset < bytes.size() ? bytes.substr(offset, length) : std::string();
    part.resize(length, '\0');
    return part;
}

std::string shortened(std::string_view text) {
    constexpr std::size_t shown = 32;
    std::string result(text.substr(0, shown));
    for (char& c : result)
        if (static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) >= 0x7F) c = '?';
    return text.size() > shown ? result + "..." : result;
}

class Conversation {
public:
    Conversation(asio::ip::tcp::socket& socket, ServerState& state, ConnectionId id)
        : socket(socket), state(state), cable(state.cable), id(id), watch(socket, state.limits.stallTimeout) {}

    asio::awaitable<void> run();

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
    asio::awaitable<std::string> block(std::int64_t byteCount, bool single, std::int64_t keep);

    // Sending.
    asio::awaitable<void> send(std::string_view frame, std::string_view item, bool isText);
    asio::awaitable<void> acknowledge(std::string_view item);
    asio::awaitable<void> waitClientDrained();
    asio::awaitable<void> readBack(std::int64_t byteCount, bool single, bool framed, const Producer& produce);
    asio::awaitable<void> finishTransfer(std::int64_t byteCount, bool single, bool withReadBack, bool framed,
                                         const Producer& produce);

    // Commands.
    asio::awaitable<void> next();
    asio::awaitable<int> perform(int number);
    int plain(int number);
    asio::awaitable<void> openSession();
    asio::awaitable<void> lockRequest(Lock lock);
    asio::awaitable<int> sharedApps();
    asio::awaitable<int> genericShift(bool refused);
    asio::awaitable<int> pumpData();
    asio::awaitable<int> transfers(const vocab::Command& shape, Transfer transfer);
    asio::awaitable<int> sspiTransfer(int withWrite, int withReadBack);
    asio::awaitable<int> i2cTransfer(int withWrite, int withReadBack);
    asio::awaitable<int> jtagInterface();
    int plainSubCommand(int number);
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
    bool betweenCommands = false;  // waiting for a command: may wait for ever
    TransferMemory::Hold held{state.transferMemory};  // for the command being served
    bool overBudget = false;       // a block of it did not fit and was not kept
    std::string clientName;
    std::string label;         // the command being served, for the trace
    std::string commandToken;  // its frame's text
    std::deque<std::string> replies;
    std::optional<std::string> textReply;
};

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
        case FrameReader::Result::Overlong: throw ProtocolError("no NUL within 1024 bytes");
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
    if (frame != "+") throw ProtocolError("expected the go token");
}

asio::awaitable<std::string> Conversation::chunkedBlock(std::int64_t byteCount, bool padded, std::int64_t keep) {
    if (keep > ownAllowance && !held.add(static_cast<std::size_t>(keep - ownAllowance))) {
        overBudget = true;
        keep = ownAllowance;
    }
    std::string kept;
    for (std::int64_t offset = 0; offset < byteCount; offset += static_cast<std::int64_t>(blockSize)) {
        const auto length = static_cast<std::size_t>(std::min<std::int64_t>(blockSize, byteCount - offset));
        const std::size_t sent = padded ? blockSize : length;
        const std::string chunk = co_await bytes(sent, "chunk");
        co_await acknowledge("ack");
        if (offset < keep) kept.append(chunk, 0, static_cast<std::size_t>(std::min<std::int64_t>(length, keep - offset)));
    }
    co_return kept;
}

asio::awaitable<std::string> Conversation::block(std::int64_t byteCount, bool single, std::int64_t keep) {
    if (!single) co_return co_await chunkedBlock(byteCount, false, keep);
    co_return co_await bytes(static_cast<std::size_t>(byteCount), "block");
}

asio::awaitable<void> Conversation::send(std::string_view frame, std::string_view item, bool isText) {
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

asio::awaitable<void> Conversation::acknowledge(std::string_view item) {
    co_await send(plusFrame, item, true);
}

/* Waits until the client has read everything sent so far: our unsent queue
 * is empty and the client's socket holds no unread bytes. Polled with a
 * timer, so the other connections go on being served meanwhile. */
asio::awaitable<void> Conversation::waitClientDrained() {
    using namespace std::chrono;
    constexpr auto patience = seconds(10);
    constexpr auto longestPause = microseconds(1000);
    const int descriptor = socket.native_handle();
    const auto deadline = steady_clock::now() + patience;
    asio::steady_timer timer(socket.get_executor());
    microseconds pause(0);
    for (;;) {
        int unsent = 0;
        const long unread = peerUnreadBytes(descriptor);
        if (ioctl(descriptor, SIOCOUTQNSD, &unsent) != 0) unsent = 0;
        if (unread == 0 && unsent == 0) co_return;
        if (steady_clock::now() >= deadline) co_return;  // a client that stopped reading gets it anyway
        // When the kernel cannot tell (-1), one pause of the longest length
        // stands in for the answer.
        pause = unread < 0 ? longestPause : std::min(pause == microseconds(0) ? microseconds(10) : pause * 2, longestPause);
        timer.expires_after(pause);
        co_await timer.async_wait(use_awaitable);
        if (unread < 0) co_return;
    }
}

/* Read-back data: a single block is one send of exactly byteCount bytes,
 * of which the library keeps byteCount (with nothing to return, one byte
 * still has to arrive to end its receive). Chunks are one send each,
 * answered by a go token: "+" and up to 1023 bytes when `framed`,
 * otherwise up to 1024 raw bytes. */
asio::awaitable<void> Conversation::readBack(std::int64_t byteCount, bool single, bool framed,
                                             const Producer& produce) {
    if (single) {
        std::string data = produce(0, static_cast<std::size_t>(std::max<std::int64_t>(byteCount, 0)));
        if (data.empty()) data.assign(1, '\0');
        co_await send(data, "read-back", false);
        co_return;
    }
    const std::int64_t chunks = chunkCountOf(byteCount);
    const std::size_t payload = framed ? framedPayload : blockSize;
    const auto total = static_cast<std::size_t>(byteCount);
    for (std::int64_t i = 0; i < chunks; ++i) {
        const std::size_t offset = static_cast<std::size_t>(i) * payload;
        const std::size_t length = offset < total ? std::min(payload, total - offset) : 0;
        const std::string chunk = (framed ? "+" : "") + produce(offset, length);
        co_await send(chunk, "read-back", false);
        co_await goToken();
    }
}

/* The end of a pump or generic shift: the read-back, or the answer to the
 * single block, or the extra acknowledgement after the last chunk. */
asio::awaitable<void> Conversation::finishTransfer(std::int64_t byteCount, bool single, bool withReadBack,
                                                   bool framed, const Producer& produce) {
    if (withReadBack) {
        co_await readBack(byteCount, single, framed, produce);
    } else {
        co_await acknowledge(single ? "answer" : "ack");
    }
}

asio::awaitable<void> Conversation::run() {
    state.trace.event(where(), "connected");
    std::string reason = "client left";
    std::exception_ptr unexpected;
    try {
        // Receives are made when the socket is readable, into the buffer
        // all connections share.
        socket.non_blocking(true);
        clientName = co_await token("name");
        co_await send(plusFrame, "answer", true);
        for (;;) co_await next();
    } catch (const ProtocolError& error) {
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
    if (frame == "+") {
        // A reply request: the current command's next reply, or an empty
        // text when it has none left.
        state.trace.text(where(), '<', "request", plusFrame);
        std::string reply = replies.empty() ? std::string() : std::move(replies.front());
        if (!replies.empty()) replies.pop_front();
        reply.push_back('\0');
        co_await send(reply, "reply", true);
        co_return;
    }
    label = frame;
    state.trace.text(where(), '<', "command", std::string_view(frame.data(), frame.size() + 1));
    const std::optional<int> number = parseInt(frame);
    if (!number) throw ProtocolError("not a command number: " + shortened(frame));
    commandToken = frame;
    replies.clear();
    textReply.reset();
    co_await acknowledge("answer");
    overBudget = false;
    const int value = co_await perform(*number);
    held.clear();
    if (!vocab::readsIntegerReply(*number)) co_return;
    replies.push_back(std::to_string(value));
    if (textReply) replies.push_back(*textReply);
}

asio::awaitable<int> Conversation::perform(int number) {
    using vocab::Marshal;
    const vocab::Command shape = vocab::command(number);
    // A lock-guarded command without both locks is taken off the wire as
    // usual, changes nothing, and fails.
    const bool refused = vocab::isLockGuarded(number) && !state.locks.holdsBoth(id);
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
    case 1:
        textReply = statusReport(state);
        return reply::done;
    case 43:
        textReply = cable.sharedApps();
        return cable.sharedAppCount();
    default: return reply::done;
    }
}

asio::awaitable<void> Conversation::openSession() {
    co_await text("text");
    co_await text("text");
    for (int i = 0; i < sessionOptionCount; ++i) co_await integer("option");
    co_await lockRequest(Lock::Session);
}

asio::awaitable<void> Conversation::lockRequest(Lock lock) {
    const std::string request = co_await token("lock");
    if (request != "+") throw ProtocolError("expected the lock request");
    const std::string_view answer = state.locks.acquire(lock, id) ? std::string_view("1\0", 2) : std::string_view("0\0", 2);
    co_await send(answer, "lock", true);
}

asio::awaitable<int> Conversation::sharedApps() {
    const std::string list = co_await bytes(blockSize, "block");
    co_await acknowledge("ack");
    co_return cable.setSharedApps(list);
}

asio::awaitable<int> Conversation::genericShift(bool refused) {
    const int flags = co_await integer("flags");
    const int bitCount = co_await integer("bits");
    const int sentByteCount = co_await integer("bytes");
    const int withReadBack = co_await integer("read-back");
    const std::int64_t byteCount = byteCountOf(bitCount);
    if (sentByteCount != byteCount) throw ProtocolError("byte count does not match the bit count");
    if (byteCount <= 0) co_return reply::done;  // the library cannot send an empty block and stops

    const bool single = byteCount <= static_cast<std::int64_t>(blockSize);
    const std::int64_t keep = bitCount <= maxScanBits ? byteCount : 0;
    const std::string tdi = co_await block(byteCount, single, keep);
    ShiftResult shifted;
    if (!refused && !overBudget) shifted = cable.shift(flags, bitCount, tdi, nullptr, nullptr);
    const std::string& tdo = shifted.tdo;  // empty (zeros go out) when not performed

    const Producer produce = [&](std::size_t offset, std::size_t length) { return slice(tdo, offset, length); };
    co_await finishTransfer(byteCount, single, withReadBack != 0, false, produce);
    co_return shifted.status;
}

asio::awaitable<int> Conversation::pumpData() {
    const int bitCount = co_await integer("bits");
    const int mode = co_await integer("mode");
    const int withReadBack = co_await integer("read-back");
    const std::int64_t byteCount = byteCountOf(bitCount);
    const bool single = bitCount <= singleBlockBits;
    if (single && byteCount <= 0) co_return reply::done;  // the library cannot send an empty block and stops

    // The block is gathered first and stored whole, so transfers of several
    // clients never interleave in the buffer.
    const auto size = static_cast<std::size_t>(byteCount);
    const std::int64_t keep = size <= cable.pump.capacity() ? byteCount : 0;
    const std::string data = co_await block(byteCount, single, keep);
    const PumpPlan plan = overBudget ? PumpPlan{reply::busy, false} : cable.planPump(mode, size);
    if (plan.keep) cable.pump.append(data);
    // The single block's read-back is padded with zeros when the buffer
    // holds less; a chunk carries what is left, down to its "+" alone.
    const Producer produce = [&](std::size_t, std::size_t length) {
        return single ? slice(cable.pump.take(length), 0, length) : cable.pump.take(length);
    };
    co_await finishTransfer(byteCount, single, withReadBack != 0, true, produce);
    co_return cable.pumpReply(plan);
}

asio::awaitable<int> Conversation::transfers(const vocab::Command& shape, Transfer transfer) {
    // Commands 47 and 51 read first and then write and read; the first
    // failure is the one reported.
    int first = reply::done;
    if (shape.readOnlyFirst) first = co_await (this->*transfer)(0, 1);
    const int second = co_await (this->*transfer)(shape.withWrite, shape.withReadBack);
    co_return first != reply::done ? first : second;
}

asio::awaitable<int> Conversation::sspiTransfer(int withWrite, int withReadBack) {
    const int address = co_await integer("address");
    const int bitCount = co_await integer("bits");
    const int options = co_await integer("options");
    const std::int64_t byteCount = byteCountOf(bitCount);
    const bool single = bitCount <= singleBlockBits;
    int status = reply::done;
    if (withWrite != 0) {
        if (single && byteCount <= 0) co_return reply::done;  // the library cannot send an empty block and stops
        const std::int64_t keep = byteCount <= static_cast<std::int64_t>(cable.sspi.size()) ? byteCount : 0;
        const std::string data = co_await block(byteCount, single, keep);
        if (overBudget) status = reply::busy;
        else status = keep == byteCount ? cable.sspiWrite(address, data, options) : reply::outOfRange;
    }
    if (withReadBack == 0) {
        co_await acknowledge("ack");
        co_return status;
    }
    const auto count = static_cast<std::size_t>(std::max<std::int64_t>(byteCount, 0));
    if (status == reply::done) status = cable.sspiReadStatus(address, count);
    const Producer produce = [&](std::size_t offset, std::size_t length) {
        return cable.sspiRead(address, count, offset, length);
    };
    co_await readBack(byteCount, single, false, produce);
    co_return status;
}

asio::awaitable<int> Conversation::i2cTransfer(int withWrite, int withReadBack) {
    const int wordAddress = co_await integer("address");
    const int device = co_await integer("device");
    const int bitCount = co_await integer("bits");
    co_await integer("last");
    // The library sends the device's bus address bit-reversed.
    const int busAddress = device >= 0 && device <= 0xFF ? reversedBits(static_cast<unsigned char>(device)) : -1;
    const std::int64_t byteCount = byteCountOf(bitCount);
    const bool single = bitCount <= singleBlockBits;
    int status = reply::done;
    if (withWrite != 0) {
        if (single && byteCount <= 0) co_return reply::done;  // the library cannot send an empty block and stops
        const std::int64_t keep = byteCount <= static_cast<std::int64_t>(cable.eeprom.size()) ? byteCount : 0;
        std::string data = co_await block(byteCount, single, keep);
        for (char& byte : data) byte = static_cast<char>(reversedBits(static_cast<unsigned char>(byte)));
        status = keep == byteCount ? cable.i2cWrite(busAddress, wordAddress, data) : reply::outOfRange;
    }
    if (withReadBack == 0) {
        co_await acknowledge("ack");
        co_return status;
    }
    if (status == reply::done) status = cable.i2cReadStatus(busAddress, wordAddress);
    const Producer produce = [&](std::size_t offset, std::size_t length) {
        return cable.i2cRead(busAddress, wordAddress, offset, length);
    };
    co_await readBack(byteCount, single, true, produce);
    co_return status;
}

asio::awaitable<int> Conversation::jtagInterface() {
    const std::string frame = co_await token("sub-command");
    if (frame.empty()) {
        // The zero filler of a fixed 1024-byte "44" frame: the one-call
        // JTAG shift, which pads every token frame to 1024 bytes.
        co_await oneCallShift();
        co_return reply::done;
    }
    const std::optional<int> number = parseInt(frame);
    if (!number) throw ProtocolError("not a sub-command number: " + shortened(frame));
    label = commandToken + "/" + frame;
    co_await acknowledge("ack");
    using vocab::SubPattern;
    const vocab::SubCommand shape = vocab::subCommand(*number);
    switch (shape.pattern) {
    case SubPattern::Unknown: break;
    case SubPattern::NoArgs: co_return plainSubCommand(*number);
    case SubPattern::Ints:
        for (int i = 0; i < shape.count; ++i) co_await integer("arg");
        break;
    case SubPattern::Texts:
        for (int i = 0; i < shape.count; ++i) co_await text("text");
        break;
    case SubPattern::IntTextInt:
        co_await integer("arg");
        co_await text("text");
        co_await integer("arg");
        break;
    case SubPattern::IntThenEmptyText: co_await integer("arg"); break;
    case SubPattern::FractionStrict: co_await text("fraction"); break;
    case SubPattern::FractionFixed:
        co_await fixedFrameText("fraction");
        co_await acknowledge("ack");
        break;
    case SubPattern::JtagShift: co_return co_await jtagShift();
    }
    co_return reply::done;
}

int Conversation::plainSubCommand(int number) {
    switch (number) {
    case 3:  // TAP reset
        cable.jtag.reset();
        return reply::done;
    case 4:  // to Run-Test/Idle
        cable.jtag.moveTo(TapState::RunTestIdle);
        return reply::done;
    case 7: {  // the chain
        std::string description;
        const int devices = cable.describeChain(description);
        textReply = description;
        return devices;
    }
    case 8:  // the controllers' state
        textReply = tapStateName(cable.jtag.state());
        return static_cast<int>(cable.jtag.state());
    default: return reply::done;
    }
}

asio::awaitable<int> Conversation::jtagShift() {
    const int flags = co_await integer("flags");
    const int bitCount = co_await integer("bits");
    const int withSecond = co_await integer("second");
    const int withThird = co_await integer("third");
    const std::int64_t byteCount = byteCountOf(bitCount);
    const bool single = byteCount <= static_cast<std::int64_t>(blockSize);
    if (single && byteCount < 0) co_return reply::done;  // the library's block send of byteCount + 1 bytes fails

    // Block 1 is TDI; block 2 the expected TDO and block 3 its mask.
    static constexpr std::array<const char*, 3> names = {"tdi", "expected", "mask"};
    const std::array<bool, 3> present = {true, withSecond != 0, withThird != 0};
    std::array<std::string, 3> blocks;
    const std::int64_t keep = bitCount <= maxScanBits ? byteCount : 0;
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        if (!present[i]) continue;
        if (single) {
            // Each block is followed by one zero byte and answered.
            blocks[i] = co_await bytes(static_cast<std::size_t>(byteCount) + 1, names[i]);
            blocks[i].pop_back();
            co_await acknowledge("answer");
        } else {
            blocks[i] = co_await chunkedBlock(byteCount, true, keep);
        }
    }
    co_await goToken();
    ShiftResult shifted{reply::busy, {}, 0};
    if (!overBudget)
        shifted = cable.shift(flags, bitCount, blocks[0], present[1] ? &blocks[1] : nullptr,
                              present[2] ? &blocks[2] : nullptr);
    const std::string status = std::to_string(shifted.status) + '\0';
    co_await send(status, "status", true);

    const bool returnsTdo = (withSecond & 1) != 0 && shifted.status >= 0 && (flags & shiftFlag::noReadBack) == 0;
    if (returnsTdo) {
        // The library receives the status and the read-back without
        // sending in between: the status must be taken before the data go.
        co_await waitClientDrained();
        const Producer produce = [&](std::size_t offset, std::size_t length) { return slice(shifted.tdo, offset, length); };
        co_await readBack(byteCount, single, true, produce);
    }
    co_return static_cast<int>(std::min<std::size_t>(shifted.mismatches, 0x7FFFFFFF));
}

asio::awaitable<std::string> Conversation::fixedFrameText(std::string_view item) {
    const std::string frame = co_await bytes(blockSize, item);
    co_return frame.substr(0, frame.find('\0'));
}

/* The one-call JTAG shift: every token frame is 1024 bytes, acknowledged;
 * the data slots follow, and nothing is read back. */
asio::awaitable<void> Conversation::oneCallShift() {
    co_await bytes(blockSize - commandToken.size() - 2, "filler");
    label = commandToken + "/-";
    const std::string sub = co_await fixedFrameText("sub-command");
    co_await acknowledge("ack");
    if (sub != std::to_string(vocab::jtagShiftSubCommand)) throw ProtocolError("one-call frame is not a shift: " + shortened(sub));
    label = commandToken + "/" + sub;
    const std::string flagsFrame = co_await fixedFrameText("flags");
    co_await acknowledge("ack");
    const std::string bitsFrame = co_await fixedFrameText("bits");
    co_await acknowledge("ack");
    const std::optional<int> flags = parseInt(flagsFrame);
    const std::optional<int> bitCount = parseInt(bitsFrame);
    if (!flags || !bitCount) throw ProtocolError("one-call shift with a malformed integer frame");

    std::string tdi;
    if (*bitCount <= oneCallSingleFrameBits) {
        // Three 1024-byte frames: the first block's first 1024 bytes and two
        // zero frames.
        tdi = co_await bytes(blockSize, "tdi");
        co_await acknowledge("ack");
        for (const char* item : {"slot", "slot"}) {
            co_await bytes(blockSize, item);
            co_await acknowledge("ack");
        }
    } else {
        const std::int64_t byteCount = byteCountOf(*bitCount);
        // Within 7 of INT_MAX the library's byte count wraps: no such shift exists.
        if (byteCount <= std::int64_t{2} * static_cast<std::int64_t>(blockSize))
            throw ProtocolError("one-call shift bit count out of range");
        // The first 2048 bytes are always kept: the later slots are told
        // apart by comparing them with it.
        const std::int64_t keep = *bitCount <= maxScanBits ? byteCount : std::int64_t{2} * blockSize;
        tdi = co_await chunkedBlock(byteCount, false, keep);
        const std::string head = tdi.substr(0, 2 * blockSize);
        co_await oneCallLaterSlots(head, byteCount);
    }
    if (!overBudget) cable.shift(*flags, *bitCount, tdi, nullptr, nullptr);
}

/* After its first slot, a large one-call shift sends two more slots, each a
 * copy of the first slot (in the same chunks) or a 1024-byte zero frame,
 * and never a copy after a zero frame. The two are told apart by content:
 * a copy begins with the first slot's first chunk. When that chunk is all
 * zero the second chunk decides for the second slot, and the third slot is
 * taken to be a zero frame. */
asio::awaitable<void> Conversation::oneCallLaterSlots(const std::string& head, std::int64_t byteCount) {
    const std::string firstChunk = head.substr(0, blockSize);
    const std::string secondChunk = head.substr(blockSize, blockSize);
    for (int slot = 2; slot <= 3; ++slot) {
        const std::string frame = co_await bytes(blockSize, "slot");
        co_await acknowledge("ack");
        if (!allZero(firstChunk)) {
            if (frame == firstChunk) {
                co_await chunkedBlock(byteCount - static_cast<std::int64_t>(blockSize), false, 0);
                continue;
            }
            if (!allZero(frame)) throw ProtocolError("one-call slot is neither a copy nor a zero frame");
            if (slot == 2) {
                co_await bytes(blockSize, "slot");  // the third slot's zero frame
                co_await acknowledge("ack");
            }
            co_return;
        }
        if (slot == 3) co_return;
        const std::string second = co_await bytes(blockSize, "slot");
        co_await acknowledge("ack");
        if (!allZero(secondChunk) && second == secondChunk) {
            co_await chunkedBlock(byteCount - std::int64_t{2} * static_cast<std::int64_t>(blockSize), false, 0);
            continue;
        }
        if (!allZero(second)) throw ProtocolError("one-call slot is neither a copy nor a zero frame");
        co_return;
    }
}

}  // namespace

asio::awaitable<void> serveConnection(asio::ip::tcp::socket& socket, ServerState& state, ConnectionId id) {
    Conversation conversation(socket, state, id);
    co_await conversation.run();
}

std::string statusReport(const ServerState& state) {
    return std::string("tetherhost simulator " TETHERHOST_VERSION) + ";clients=" + std::to_string(state.connected) +
           ";connections=" + std::to_string(state.connections) + ";heap=" + std::to_string(heapInUse()) + ";";
}

}  // namespace tetherhost::sim

// SPDX-License-Identifier: MIT
/* SessionOneCall: the one-call JTAG shift, whose frames are all 1024 bytes
 * and whose later data slots are told apart by content. */
#include "server/Conversation.h"

#include <asio/use_awaitable.hpp>

namespace tetherhost::sim {

asio::awaitable<std::string> Conversation::fixedFrameText(std::string_view item) {
    const std::string frame = co_await bytes(frameSize, item);
    co_return frame.substr(0, frame.find('\0'));
}

/* The one-call JTAG shift: every token frame is 1024 bytes, acknowledged;
 * the data slots follow, and nothing is read back. */
asio::awaitable<void> Conversation::oneCallShift() {
    co_await bytes(frameSize - commandToken.size() - 2, "filler");
    label = commandToken + "/-";
    const std::string sub = co_await fixedFrameText("sub-command");
    co_await acknowledge("ack");
    if (sub != std::to_string(protocol::sub::jtagShift))
        throw ProtocolError("one-call frame is not a shift: " + shortened(sub));
    label = commandToken + "/" + sub;
    subNumber = parseInt(sub);
    const std::string flagsFrame = co_await fixedFrameText("flags");
    co_await acknowledge("ack");
    const std::string bitsFrame = co_await fixedFrameText("bits");
    co_await acknowledge("ack");
    const std::optional<int> flags = parseInt(flagsFrame);
    const std::optional<int> bitCount = parseInt(bitsFrame);
    if (!flags || !bitCount) throw ProtocolError("one-call shift with a malformed integer frame");

    std::string tdi;
    if (*bitCount <= protocol::oneCallSingleFrameBits) {
        // Three 1024-byte frames: the first block's first 1024 bytes and two
        // zero frames.
        tdi = co_await bytes(frameSize, "tdi");
        co_await acknowledge("ack");
        for (const char* item : {"slot", "slot"}) {
            co_await bytes(frameSize, item);
            co_await acknowledge("ack");
        }
    } else {
        const std::int64_t byteCount = protocol::byteCountOf(*bitCount);
        // Within 7 of INT_MAX the library's byte count wraps: no such shift exists.
        if (byteCount <= std::int64_t{2} * static_cast<std::int64_t>(frameSize))
            throw ProtocolError("one-call shift bit count out of range");
        // The first 2048 bytes are always kept: the later slots are told
        // apart by comparing them with it.
        const std::int64_t keep = *bitCount <= maxScanBits ? byteCount : std::int64_t{2} * frameSize;
        tdi = co_await chunkedBlock(byteCount, false, keep);
        const std::string head = tdi.substr(0, 2 * frameSize);
        co_await oneCallLaterSlots(head, byteCount);
    }
    if (!overBudget && !chainOwned()) cable.shift(*flags, *bitCount, tdi, nullptr, nullptr);
}

/* After its first slot, a large one-call shift sends two more slots, each a
 * copy of the first slot (in the same chunks) or a 1024-byte zero frame,
 * and never a copy after a zero frame. The two are told apart by content:
 * a copy begins with the first slot's first chunk. When that chunk is all
 * zero the second chunk decides for the second slot, and the third slot is
 * taken to be a zero frame. */
asio::awaitable<void> Conversation::oneCallLaterSlots(const std::string& head, std::int64_t byteCount) {
    const std::string firstChunk = head.substr(0, frameSize);
    const std::string secondChunk = head.substr(frameSize, frameSize);
    for (int slot = 2; slot <= 3; ++slot) {
        const std::string frame = co_await bytes(frameSize, "slot");
        co_await acknowledge("ack");
        if (!allZero(firstChunk)) {
            if (frame == firstChunk) {
                co_await chunkedBlock(byteCount - static_cast<std::int64_t>(frameSize), false, 0);
                continue;
            }
            if (!allZero(frame)) throw ProtocolError("one-call slot is neither a copy nor a zero frame");
            if (slot == 2) {
                co_await bytes(frameSize, "slot");  // the third slot's zero frame
                co_await acknowledge("ack");
            }
            co_return;
        }
        if (slot == 3) co_return;
        const std::string second = co_await bytes(frameSize, "slot");
        co_await acknowledge("ack");
        if (!allZero(secondChunk) && second == secondChunk) {
            co_await chunkedBlock(byteCount - std::int64_t{2} * static_cast<std::int64_t>(frameSize), false, 0);
            continue;
        }
        if (!allZero(second)) throw ProtocolError("one-call slot is neither a copy nor a zero frame");
        co_return;
    }
}

}  // namespace tetherhost::sim

// SPDX-License-Identifier: MIT
/* SessionTransfers: the data transfers of the generic shift (19), pump data
 * (42), SSPI (50 to 52) and I2C (46 to 48): their blocks in, their
 * read-backs or answers out. */
#include "server/Conversation.h"

#include <algorithm>
#include <asio/use_awaitable.hpp>

namespace tetherhost::sim {

asio::awaitable<int> Conversation::genericShift(bool refused) {
    const int flags = co_await integer("flags");
    const int bitCount = co_await integer("bits");
    const int sentByteCount = co_await integer("bytes");
    const int withReadBack = co_await integer("read-back");
    const BlockShape shape = BlockShape::ofShift(bitCount);
    if (sentByteCount != shape.byteCount) throw ProtocolError("byte count does not match the bit count");
    if (shape.byteCount <= 0) co_return reply::done;  // the library cannot send an empty block and stops

    const std::int64_t keep = bitCount <= maxScanBits ? shape.byteCount : 0;
    const std::string tdi = co_await block(shape, keep);
    ShiftResult shifted;
    if (chainOwned())
        shifted.status = reply::chainOwned;
    else if (!refused && !overBudget)
        shifted = cable.shift(flags, bitCount, tdi, nullptr, nullptr);
    const std::string& tdo = shifted.tdo;  // empty (zeros go out) when not performed

    const Producer produce = [&](std::size_t offset, std::size_t length) { return slice(tdo, offset, length); };
    co_await finishTransfer(shape, withReadBack != 0, false, produce);
    co_return shifted.status;
}

asio::awaitable<int> Conversation::pumpData() {
    const int bitCount = co_await integer("bits");
    const int mode = co_await integer("mode");
    const int withReadBack = co_await integer("read-back");
    const BlockShape shape = BlockShape::ofTransfer(bitCount);
    if (shape.single && shape.byteCount <= 0)
        co_return reply::done;  // the library cannot send an empty block and stops

    // The block is gathered first and stored whole, so transfers of several
    // clients never interleave in the buffer.
    const auto size = static_cast<std::size_t>(shape.byteCount);
    const std::int64_t keep = size <= cable.pump.capacity() ? shape.byteCount : 0;
    const std::string data = co_await block(shape, keep);
    const PumpPlan plan = overBudget ? PumpPlan{reply::busy, false} : cable.planPump(mode, size);
    if (plan.keep) cable.pump.append(data);
    // The single block's read-back is padded with zeros when the buffer
    // holds less; a chunk carries what is left, down to its "+" alone.
    const Producer produce = [&](std::size_t, std::size_t length) {
        return shape.single ? slice(cable.pump.take(length), 0, length) : cable.pump.take(length);
    };
    co_await finishTransfer(shape, withReadBack != 0, true, produce);
    co_return cable.pumpReply(plan);
}

asio::awaitable<int> Conversation::transfers(const protocol::Command& shape, Transfer transfer) {
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
    const BlockShape shape = BlockShape::ofTransfer(bitCount);
    int status = reply::done;
    if (withWrite != 0) {
        if (shape.single && shape.byteCount <= 0)
            co_return reply::done;  // the library cannot send an empty block and stops
        const std::int64_t keep = shape.byteCount <= static_cast<std::int64_t>(cable.sspi.size()) ? shape.byteCount : 0;
        const std::string data = co_await block(shape, keep);
        if (overBudget)
            status = reply::busy;
        else
            status = keep == shape.byteCount ? cable.sspiWrite(address, data, options) : reply::outOfRange;
    }
    if (withReadBack == 0) {
        co_await acknowledge("ack");
        co_return status;
    }
    const auto count = static_cast<std::size_t>(std::max(shape.byteCount, 0));
    if (status == reply::done) status = cable.sspiReadStatus(address, count);
    const Producer produce = [&](std::size_t offset, std::size_t length) {
        return cable.sspiRead(address, count, offset, length);
    };
    co_await readBack(shape, false, produce);
    co_return status;
}

asio::awaitable<int> Conversation::i2cTransfer(int withWrite, int withReadBack) {
    const int wordAddress = co_await integer("address");
    const int device = co_await integer("device");
    const int bitCount = co_await integer("bits");
    co_await integer("last");
    // The library sends the device's bus address bit-reversed.
    const int busAddress =
        device >= 0 && device <= 0xFF ? protocol::reverseBits(static_cast<unsigned char>(device)) : -1;
    const BlockShape shape = BlockShape::ofTransfer(bitCount);
    int status = reply::done;
    if (withWrite != 0) {
        if (shape.single && shape.byteCount <= 0)
            co_return reply::done;  // the library cannot send an empty block and stops
        const std::int64_t keep =
            shape.byteCount <= static_cast<std::int64_t>(cable.eeprom.size()) ? shape.byteCount : 0;
        std::string data = co_await block(shape, keep);
        for (char& byte : data) byte = static_cast<char>(protocol::reverseBits(static_cast<unsigned char>(byte)));
        status = keep == shape.byteCount ? cable.i2cWrite(busAddress, wordAddress, data) : reply::outOfRange;
    }
    if (withReadBack == 0) {
        co_await acknowledge("ack");
        co_return status;
    }
    if (status == reply::done) status = cable.i2cReadStatus(busAddress, wordAddress);
    const Producer produce = [&](std::size_t offset, std::size_t length) {
        return cable.i2cRead(busAddress, wordAddress, offset, length);
    };
    co_await readBack(shape, true, produce);
    co_return status;
}

}  // namespace tetherhost::sim

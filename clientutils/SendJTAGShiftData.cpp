// SPDX-License-Identifier: MIT
/* SendJTAGShiftData: one whole JTAG shift (command 44, sub-command 12) on an
 * open socket, without a Client. Every token goes out as a fixed 1024-byte
 * frame; only large shifts check their acknowledgements for "+". */
#include <algorithm>
#include <vector>

#include "ClientUtils.h"
#include "protocol/Commands.h"
#include "protocol/Frames.h"
#include "wire/TransferWire.h"

namespace {

namespace protocol = tetherhost::protocol;
namespace wire = tetherhost::wire;
using namespace tetherhost::transfer;

/* Posts nothing; chunks go out at their true length, each acknowledged with "+". */
constexpr Marshaller oneCallShift{};

/* The buffer's first `size` bytes, read one by one. */
std::vector<unsigned char> readAll(LByteBuffer& buffer, int size) {
    std::vector<unsigned char> bytes(static_cast<std::size_t>(std::max(size, 0)));
    for (int i = 0; i < size; ++i) bytes[static_cast<std::size_t>(i)] = buffer.ReadData(i);
    return bytes;
}

/* The whole 1024-byte frame in one send, then an acknowledgement whose
 * content is not examined. */
int sendFrame(const Channel& channel, wire::FrameBuffer& frame) {
    if (const int sent = channel.send(frame.data(), protocol::frameBytes); sent < 0) return sent;
    const int received = channel.receive(frame, 2);
    return received < 0 ? received : 0;
}

int sendZeroFrame(const Channel& channel, wire::FrameBuffer& frame) {
    frame.clear();
    return sendFrame(channel, frame);
}

}  // namespace

int SendJTAGShiftData(int& socket, int flags, int bitCount, int blockCount, LByteBuffer firstBuffer,
                      LByteBuffer secondBuffer, LByteBuffer thirdBuffer) {
    const Channel channel(socket, MessageSink{}, nullptr, oneCallShift);
    wire::FrameBuffer frame;
    const int firstSize = firstBuffer.GetTotalSize();
    for (const int token : {protocol::command::jtagInterface, protocol::sub::jtagShift, flags, bitCount}) {
        frame.clear();
        frame.setNumber(token);
        if (const int result = sendFrame(channel, frame); result < 0) return result;
    }
    const std::vector<unsigned char> first = readAll(firstBuffer, firstSize);
    const long held = static_cast<long>(first.size());

    // Up to this limit the shift fits one frame per slot; it is not the
    // single-block limit of the Client's shift.
    if (bitCount <= protocol::oneCallSingleFrameBits) {
        // The first slot carries the first buffer's bytes (at most one frame's
        // worth); the other two go out as zeros, though the buffers that
        // blockCount names are still read in full.
        channel.fill(frame, first.data(), held, 0, static_cast<int>(std::min<long>(held, protocol::frameBytes)));
        if (const int result = sendFrame(channel, frame); result < 0) return result;
        if (blockCount >= 2) readAll(secondBuffer, secondBuffer.GetTotalSize());
        if (const int result = sendZeroFrame(channel, frame); result < 0) return result;
        if (blockCount >= 3) readAll(thirdBuffer, thirdBuffer.GetTotalSize());
        return sendZeroFrame(channel, frame);
    }

    // Large shifts send the first buffer's data in every slot that blockCount
    // names, and zero frames in the rest.
    const protocol::BlockShape shape = protocol::BlockShape::ofShift(bitCount);
    for (int slot = 1; slot <= 3; ++slot) {
        const int result = slot <= std::max(blockCount, 1)
                               ? channel.sendChunks(first.data(), held, shape.byteCount, shape.chunkCount, false)
                               : sendZeroFrame(channel, frame);
        if (result < 0) return result;
    }
    return 0;
}

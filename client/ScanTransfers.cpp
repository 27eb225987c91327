// SPDX-License-Identifier: MIT
/* Scan transfers of the Client: the JTAG shift and the collection of its
 * return data (GetTDO), the generic shift (command 19) and pump data
 * (command 42). */
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "Client.h"
#include "client/ClientSink.h"
#include "platform/MessageIds.h"
#include "protocol/Commands.h"
#include "protocol/Frames.h"
#include "protocol/Status.h"
#include "wire/TransferWire.h"

namespace {

namespace wire = tetherhost::wire;
using namespace tetherhost::transfer;
namespace protocol = tetherhost::protocol;
namespace status = tetherhost::protocol::status;
namespace message = tetherhost::message;

/* The JTAG shift pads every chunk to 1024 bytes, announces the chunks of its
 * first block and demands a "+" at the start of each read-back chunk. */
constexpr Marshaller jtagShift{.sendFailedId = message::jtagShiftSendFailed,
                               .receiveFailedId = message::jtagShiftReceiveFailed,
                               .chunkNoteId = message::sendingDataBlock,
                               .padChunks = true,
                               .readBackNeedsPlus = protocol::readBackChunksFramed(protocol::Marshal::JtagInterface)};
/* The generic shift sends chunks at their true length, silently, and keeps
 * read-back chunks whatever their first byte. */
constexpr Marshaller genericShift{.sendFailedId = message::genericShiftSendFailed,
                                  .receiveFailedId = message::genericShiftReceiveFailed};
/* Pump data shows every token after its send and announces every data send. */
constexpr Marshaller pumpData{.sendFailedId = message::pumpDataSendFailed,
                              .receiveFailedId = message::pumpDataReceiveFailed,
                              .tokenNote = TokenNote::TokenText,
                              .tokenNoteId = message::pumpDataFrameSent,
                              .chunkNoteId = message::sendingDataBlock,
                              .readBackNeedsPlus = protocol::readBackChunksFramed(protocol::Marshal::PumpData)};

const unsigned char* takeBlock(va_list args) { return va_arg(args, const unsigned char*); }

const char* asText(const unsigned char* bytes) { return reinterpret_cast<const char*>(bytes); }

}  // namespace

int Client::sendJTAGShiftargs(int socket, va_list args) {
    const char* name = clientName.c_str();
    const int flags = va_arg(args, int);
    const int bitCount = va_arg(args, int);
    const int withSecond = va_arg(args, int);
    const int withThird = va_arg(args, int);
    const unsigned char* firstData = takeBlock(args);
    const protocol::BlockShape shape = protocol::BlockShape::ofShift(bitCount);
    PrintMessage(message::startingShift, name, asText(firstData));
    if (firstData == nullptr) return status::firstBlockMissing;
    PrintMessage(message::sendingJtagShiftArguments, name);

    const Channel channel(socket, clientSink(*this), name, jtagShift);
    wire::FrameBuffer reply;
    const int tokens[] = {flags, bitCount, withSecond, withThird};
    if (const int sent = channel.sendTokens(reply, tokens, 4); sent < 0) return sent;

    // The further blocks follow the first in the list only when announced.
    auto nextBlock = [&](int announced, const unsigned char*& block) {
        if (announced == 0) return false;
        block = takeBlock(args);
        return true;
    };
    const unsigned char* block = nullptr;

    if (shape.single) {
        tdoData.clear();
        reply.clear();
        wire::FrameBuffer sendBuffer;
        // A single block goes out with one zero byte after its data; the
        // buffer's always-zero last byte carries it for a full block.
        auto sendBlock = [&](const unsigned char* data) {
            channel.fill(sendBuffer, data, shape.byteCount, 0, shape.byteCount);
            return channel.send(sendBuffer.data(), shape.byteCount + 1);
        };
        if (const int sent = sendBlock(firstData); sent < 0) return sent;
        PrintMessage(message::jtagShiftBlockSent, name, reply.text());
        if (const int received = channel.receive(reply, protocol::frameBytes); received < 0) return received;
        if (nextBlock(withSecond, block)) {
            if (block == nullptr) return status::laterBlockMissing;
            if (const int sent = sendBlock(block); sent < 0) return sent;
            if (const int received = channel.receive(reply, protocol::frameBytes); received < 0) return received;
        }
        if (nextBlock(withThird, block)) {
            if (block == nullptr) return status::laterBlockMissing;
            if (const int sent = sendBlock(block); sent < 0) return sent;
            PrintMessage(message::jtagShiftBlockSent, name, reply.text());
            if (const int received = channel.receive(reply, protocol::frameBytes); received < 0) return received;
        }
    } else {
        if (const int sent = channel.sendChunks(firstData, shape.byteCount, shape.byteCount, shape.chunkCount, true);
            sent < 0)
            return sent;
        for (const int announced : {withSecond, withThird}) {
            if (!nextBlock(announced, block)) continue;
            if (block == nullptr) return status::laterBlockMissing;
            if (const int sent = channel.sendChunks(block, shape.byteCount, shape.byteCount, shape.chunkCount, false);
                sent < 0)
                return sent;
        }
    }

    reply.clear();
    if (const int sent = channel.sendGoToken(); sent < 0) return sent;
    const int statusReceived = channel.receive(reply, protocol::frameBytes);
    if (statusReceived < 0) return statusReceived;
    const int status = static_cast<int>(std::strtol(reply.text(), nullptr, 10));
    // Only the lowest bit of withSecond asks for the data back, and the
    // flag of value 2 suppresses it; whatever else the status receive
    // brought is then ignored.
    if ((withSecond & 1) == 0 || status < 0 || (flags & 2) != 0) return status;

    // A stream socket may deliver the read-back in the status receive, behind
    // the status text's NUL. Those bytes are the read-back's first bytes: the
    // library must not wait for them again, or it waits for ever.
    const int carried = static_cast<int>(reply.carryAfterText(statusReceived));
    if (!shape.single) return channel.readBackChunks(reply, shape.chunkCount, tdoData, carried);
    // The single block's data lands over the status text, which shows behind
    // a short reply; this read has no message of its own.
    tdoData.clear();
    long received = 0;
    if (carried < std::max(shape.byteCount, 1)) {
        received = reply.receiveBehind(socket, carried);
        if (wire::failed(received)) return status::receiveFailed;
    }
    appendLeading(tdoData, reply, shape.byteCount);
    return carried + static_cast<int>(received);
}

int Client::GetTDO(char* dest, int bitCount) {
    PrintMessage(message::collectingScanData, clientName.c_str());
    if (tdoData.empty()) {
        PrintMessage(message::noScanData, clientName.c_str());
        return status::noScanData;
    }
    if (dest == nullptr) return status::noDestination;
    const int wanted = protocol::byteCountOf(bitCount);
    if (wanted > 0) std::memcpy(dest, tdoData.data(), std::min(static_cast<std::size_t>(wanted), tdoData.size()));
    tdoData.clear();
    return 0;
}

int Client::GetTDO(unsigned char*& dest, int bitCount) {
    static unsigned char emptyText[1] = {0};
    const int result = GetTDO(reinterpret_cast<char*>(dest), bitCount);
    if (result == status::noScanData) dest = emptyText;
    return result;
}

int Client::sendShiftargs(int socket, va_list args) {
    const char* name = clientName.c_str();
    const int flags = va_arg(args, int);
    const int bitCount = va_arg(args, int);
    const int withReadBack = va_arg(args, int);
    const unsigned char* firstData = takeBlock(args);
    const protocol::BlockShape shape = protocol::BlockShape::ofShift(bitCount);
    PrintMessage(message::startingShift, name, asText(firstData));
    if (firstData == nullptr) return status::firstBlockMissing;
    PrintMessage(message::sendingGenericShiftArguments, name);

    const Channel channel(socket, clientSink(*this), name, genericShift);
    wire::FrameBuffer reply;
    // The byte count travels as a token of its own here.
    const int tokens[] = {flags, bitCount, shape.byteCount, withReadBack};
    if (const int sent = channel.sendTokens(reply, tokens, 4); sent < 0) return sent;

    if (!shape.single) {
        const int sent = channel.sendChunks(firstData, shape.byteCount, shape.byteCount, shape.chunkCount, false);
        return sent < 0 ? sent : channel.finishChunked(reply, withReadBack, shape.chunkCount, tdoData);
    }
    tdoData.clear();
    reply.clear();
    wire::FrameBuffer sendBuffer;
    channel.fill(sendBuffer, firstData, shape.byteCount, 0, shape.byteCount);
    if (const int sent = channel.send(sendBuffer.data(), shape.byteCount); sent < 0) return sent;
    PrintMessage(message::genericShiftBlockSent, name, reply.text());
    if (const int received = channel.receive(reply, protocol::frameBytes); received < 0) return received;
    if (withReadBack != 0) appendLeading(tdoData, reply, shape.byteCount);
    return 0;
}

int Client::sendPumpData(int& socket, va_list args) {
    const char* name = clientName.c_str();
    PrintMessage(message::sendingPumpData, name);
    const unsigned char* firstData = takeBlock(args);
    const int bitCount = va_arg(args, int);
    const int pumpMode = va_arg(args, int);
    const int withReadBack = va_arg(args, int);
    const protocol::BlockShape shape = protocol::BlockShape::ofTransfer(bitCount);
    // No data to pump: refused before anything crosses the connection.
    if (firstData == nullptr && shape.byteCount > 0) return status::firstBlockMissing;

    const Channel channel(socket, clientSink(*this), name, pumpData);
    wire::FrameBuffer tokenBuffer;
    const int tokens[] = {bitCount, pumpMode, withReadBack};
    if (const int sent = channel.sendTokens(tokenBuffer, tokens, 3); sent < 0) return sent;

    wire::FrameBuffer reply;
    // Pump data states the single-block limit in bits, the shifts in bytes.
    if (!shape.single) {
        const int sent = channel.sendChunks(firstData, shape.byteCount, shape.byteCount, shape.chunkCount, true);
        return sent < 0 ? sent : channel.finishChunked(reply, withReadBack, shape.chunkCount, tdoData);
    }
    tdoData.clear();
    reply.clear();
    wire::FrameBuffer sendBuffer;
    channel.fill(sendBuffer, firstData, shape.byteCount, 0, shape.byteCount);
    PrintMessage(message::sendingDataBlock, name, sendBuffer.text());
    if (const int sent = channel.send(sendBuffer.data(), shape.byteCount); sent < 0) return sent;
    // Shows the token buffer, which still holds the last token's acknowledgement.
    PrintMessage(message::pumpDataFrameSent, name, tokenBuffer.text());
    if (const int received = channel.receive(reply, protocol::frameBytes); received < 0) return received;
    if (withReadBack != 0) appendLeading(tdoData, reply, shape.byteCount);
    return 0;
}

// SPDX-License-Identifier: MIT
/* Bus transfers of the Client: SSPI (commands 50 to 52), I2C (commands 46
 * to 48) and the list of shared applications (command 41). */
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
namespace message = tetherhost::message;

/* SSPI shows each token and each data block in its messages and keeps
 * read-back chunks whatever their first byte. */
constexpr Marshaller sspi{.sendFailedId = message::sspiSendFailed,
                          .receiveFailedId = message::sspiReceiveFailed,
                          .tokenNote = TokenNote::TokenText,
                          .tokenNoteId = message::sspiFrameSent,
                          .chunkNoteId = message::sendingDataBlock};
/* I2C names only the client in its messages, announces no data, sends its
 * data bit-reversed and demands a "+" at the start of each read-back chunk. */
constexpr Marshaller i2c{.sendFailedId = message::i2cSendFailed,
                         .receiveFailedId = message::i2cReceiveFailed,
                         .tokenNote = TokenNote::ClientName,
                         .tokenNoteId = message::i2cFrameSent,
                         .reverseBits = true,
                         .readBackNeedsPlus = protocol::readBackChunksFramed(protocol::Marshal::I2C)};
/* The shared applications list is one fixed block, neither chunked nor read back. */
constexpr Marshaller sharedApps{.sendFailedId = message::sharedAppsSendFailed,
                                .receiveFailedId = message::sharedAppsUnanswered};

/* Shared applications: the joined text keeps the block's last byte zero. */
constexpr std::size_t appListLimit = protocol::maxTokenLength;

/* One SSPI or I2C transfer once its elements are taken: the integer tokens,
 * the data block when `withWrite` is set, then either the read-back into
 * `tdoData` or a final acknowledgement. */
int busTransfer(const Channel& channel, const int* tokens, int tokenCount, const char* data, int bitCount,
                int withWrite, int withReadBack, std::string& tdoData) {
    wire::FrameBuffer tokenBuffer;
    if (const int sent = channel.sendTokens(tokenBuffer, tokens, tokenCount); sent < 0) return sent;

    const protocol::BlockShape shape = protocol::BlockShape::ofTransfer(bitCount);
    const auto* bytes = reinterpret_cast<const unsigned char*>(data);
    // Cleared here so that a read-back without a written block (command 51's
    // first transfer) finds zeros behind a short reply, as after a write.
    wire::FrameBuffer reply;

    if (withWrite != 0) {
        if (!shape.single) {
            const int sent = channel.sendChunks(bytes, shape.byteCount, shape.byteCount, shape.chunkCount, true);
            if (sent < 0) return sent;
        } else {
            wire::FrameBuffer dataBuffer;
            channel.fill(dataBuffer, bytes, shape.byteCount, 0, shape.byteCount);
            channel.note(channel.description().chunkNoteId, dataBuffer.text());
            if (const int sent = channel.send(dataBuffer.data(), shape.byteCount); sent < 0) return sent;
            // The block's send is reported like a token's, with the name twice.
            channel.note(channel.description().tokenNoteId, channel.name());
        }
    }

    if (!shape.single) return channel.finishChunked(reply, withReadBack, shape.chunkCount, tdoData);
    if (withReadBack == 0) {
        const int acknowledged = channel.receiveAcknowledgement(reply);
        return acknowledged < 0 ? acknowledged : 0;
    }
    tdoData.clear();
    if (const int received = channel.receive(reply, protocol::frameBytes); received < 0) return received;
    appendLeading(tdoData, reply, shape.byteCount);
    return 0;
}

}  // namespace

int Client::sendSSPIShiftargs(int& socket, int withWrite, int withReadBack, va_list args) {
    const char* name = clientName.c_str();
    PrintMessage(message::sendingSspiTransfer, name);
    const int firstValue = va_arg(args, int);
    const int bitCount = va_arg(args, int);
    const char* data = va_arg(args, const char*);
    const int lastValue = va_arg(args, int);
    const int tokens[] = {firstValue, bitCount, lastValue};
    return busTransfer(Channel(socket, clientSink(*this), name, sspi), tokens, 3, data, bitCount, withWrite,
                       withReadBack, tdoData);
}

int Client::sendI2CShiftargs(int& socket, int withWrite, int withReadBack, va_list args) {
    const char* name = clientName.c_str();
    PrintMessage(message::sendingI2cTransfer, name);
    const int firstValue = va_arg(args, int);
    const int byteValue = va_arg(args, int);
    const int bitCount = va_arg(args, int);
    const char* data = va_arg(args, const char*);
    const int lastValue = va_arg(args, int);
    const int tokens[] = {firstValue, protocol::reverseBits(static_cast<unsigned char>(byteValue & 0xFF)), bitCount,
                          lastValue};
    return busTransfer(Channel(socket, clientSink(*this), name, i2c), tokens, 4, data, bitCount, withWrite,
                       withReadBack, tdoData);
}

int Client::sendSharedApps(int& socket, va_list args) {
    const char* name = clientName.c_str();
    PrintMessage(message::sendingSharedApps, name);
    wire::FrameBuffer list;
    char* out = list.data();
    std::size_t length = 0;
    bool full = false;
    const int count = va_arg(args, int);
    for (int i = 0; i < count; ++i) {
        // Every name is taken from the list, also those that no longer fit.
        const char* app = va_arg(args, const char*);
        const std::size_t nameLength = app != nullptr ? strnlen(app, protocol::sharedAppNameLimit) : 0;
        full = full || length + nameLength + 1 > appListLimit;
        if (full) continue;
        if (nameLength > 0) std::memcpy(out + length, app, nameLength);
        out[length + nameLength] = ';';
        length += nameLength + 1;
    }
    PrintMessage(message::sharedAppsList, name, list.text());

    const Channel channel(socket, clientSink(*this), name, sharedApps);
    if (const int sent = channel.send(list.data(), protocol::frameBytes); sent < 0) return sent;
    list.clear();
    // Any answer will do, as long as one arrives.
    const int received = channel.receive(list, 2);
    return received < 0 ? received : 0;
}

// SPDX-License-Identifier: MIT
/* TransferWire: the token exchange, the chunk loop and the read-back loop
 * shared by the scan and bus marshallers. */
#include "wire/TransferWire.h"

#include <algorithm>

#include "protocol/Frames.h"
#include "protocol/Status.h"

namespace tetherhost::transfer {

Channel::Channel(const int& socket, MessageSink messages, const char* clientName, const Marshaller& marshaller)
    : socket(socket), messages(messages), clientName(clientName), marshaller(marshaller) {}

void Channel::note(const char* id, const char* text) const {
    if (id != nullptr) messages.post(id, clientName, text);
}

int Channel::failSend() const {
    note(marshaller.sendFailedId, clientName);
    return protocol::status::sendFailed;
}

int Channel::failReceive() const {
    note(marshaller.receiveFailedId, clientName);
    return protocol::status::receiveFailed;
}

int Channel::send(const char* bytes, int length) const {
    const long sent = wire::sendBytes(socket, bytes, length);
    return wire::failed(sent) ? failSend() : static_cast<int>(sent);
}

int Channel::receive(wire::FrameBuffer& buffer, int capacity) const {
    const long received = buffer.receive(socket, capacity);
    return wire::failed(received) ? failReceive() : static_cast<int>(received);
}

int Channel::receiveAcknowledgement(wire::FrameBuffer& buffer) const {
    buffer.clear();
    const int received = receive(buffer, 2);
    if (received < 0) return received;
    return buffer.text()[0] == protocol::plus ? received : failReceive();
}

int Channel::sendGoToken() const { return send(protocol::plusToken, sizeof protocol::plusToken); }

int Channel::sendToken(wire::FrameBuffer& tokenBuffer, int value) const {
    tokenBuffer.clear();
    tokenBuffer.setNumber(value);
    const int sent = send(tokenBuffer.text(), static_cast<int>(tokenBuffer.textLength()) + 1);
    if (sent < 0) return sent;
    switch (marshaller.tokenNote) {
    case TokenNote::None: break;
    case TokenNote::TokenText: note(marshaller.tokenNoteId, tokenBuffer.text()); break;
    case TokenNote::ClientName: note(marshaller.tokenNoteId, clientName); break;
    }
    return receiveAcknowledgement(tokenBuffer);
}

int Channel::sendTokens(wire::FrameBuffer& tokenBuffer, const int* values, int count) const {
    for (int i = 0; i < count; ++i)
        if (const int result = sendToken(tokenBuffer, values[i]); result < 0) return result;
    return 0;
}

void Channel::fill(wire::FrameBuffer& buffer, const unsigned char* data, long available, long offset, int count) const {
    buffer.clear();
    if (data == nullptr || count <= 0) return;
    const long held = std::min<long>(count, available - offset);
    unsigned char* out = reinterpret_cast<unsigned char*>(buffer.data());
    for (long i = 0; i < held; ++i) {
        const unsigned char byte = data[offset + i];
        out[i] = marshaller.reverseBits ? protocol::reverseBits(byte) : byte;
    }
}

int Channel::sendChunks(const unsigned char* data, long available, int byteCount, int chunkCount, bool announce) const {
    wire::FrameBuffer chunk;
    wire::FrameBuffer reply;
    for (int i = 0; i < chunkCount; ++i) {
        const long offset = static_cast<long>(i) * protocol::frameBytes;
        const int length = static_cast<int>(std::min<long>(byteCount - offset, protocol::frameBytes));
        fill(chunk, data, available, offset, length);
        if (announce) note(marshaller.chunkNoteId, chunk.text());
        const int sent = send(chunk.data(), marshaller.padChunks ? protocol::frameBytes : length);
        if (sent < 0) return sent;
        if (const int acknowledged = receiveAcknowledgement(reply); acknowledged < 0) return acknowledged;
    }
    return 0;
}

int Channel::readBackChunks(wire::FrameBuffer& reply, int chunkCount, std::string& tdoData, int carried) const {
    tdoData.clear();
    int lastGo = 0;
    for (int i = 0; i < chunkCount; ++i) {
        int received = 0;
        if (i == 0 && carried > 0) {
            // The first chunk began in the status receive: a wrong first
            // byte fails before waiting for more, and one receive completes
            // the chunk, never one of 0 bytes.
            if (marshaller.readBackNeedsPlus && reply.text()[0] != protocol::plus) return failReceive();
            received = carried;
            if (carried < protocol::frameBytes) {
                const long more = reply.receiveBehind(socket, carried);
                if (wire::failed(more)) return failReceive();
                received += static_cast<int>(more);
            }
        } else {
            reply.clear();
            received = receive(reply, protocol::frameBytes);
            if (received < 0) return received;
        }
        if (marshaller.readBackNeedsPlus && reply.text()[0] != protocol::plus) return failReceive();
        tdoData.append(reply.text(), static_cast<std::size_t>(received));
        lastGo = sendGoToken();
        if (lastGo < 0) return lastGo;
    }
    return lastGo;
}

int Channel::finishChunked(wire::FrameBuffer& reply, int withReadBack, int chunkCount, std::string& tdoData) const {
    const int result = withReadBack != 0 ? readBackChunks(reply, chunkCount, tdoData) : receiveAcknowledgement(reply);
    return result < 0 ? result : 0;
}

void appendLeading(std::string& tdoData, const wire::FrameBuffer& reply, int byteCount) {
    if (byteCount > 0)
        tdoData.append(reply.text(), static_cast<std::size_t>(std::min(byteCount, protocol::frameBytes)));
}

}  // namespace tetherhost::transfer

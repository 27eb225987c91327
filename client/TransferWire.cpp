/* TransferWire: the token exchange, the chunk loop, the read-back loop and
 * the byte and chunk counts shared by the scan and bus marshallers. */
#include "TransferWire.h"

#include <algorithm>
#include <cstdint>

#include "Client.h"

namespace tetherhost::transfer {

namespace {
constexpr char goToken[] = {'+', '\0'};
}

int byteCountOf(int bitCount) {
    // The sum wraps round modulo 2^32 like the protocol's signed arithmetic;
    // the conversion back to int is modular, so INT_MAX is no overflow.
    const auto sum = static_cast<std::int32_t>(static_cast<std::uint32_t>(bitCount) + 7u);
    return sum / 8;
}

int chunkCountOf(int byteCount) {
    return static_cast<int>((static_cast<std::int64_t>(byteCount) + (blockSize - 1)) / blockSize);
}

unsigned char reverseBits(unsigned char byte) {
    unsigned char reversed = 0;
    for (int bit = 0; bit < 8; ++bit) {
        reversed = static_cast<unsigned char>((reversed << 1) | (byte & 1));
        byte = static_cast<unsigned char>(byte >> 1);
    }
    return reversed;
}

Channel::Channel(const int& socket, Client* client, const char* clientName,
                 const Marshaller& marshaller)
    : socket(socket), client(client), clientName(clientName), marshaller(marshaller) {}

void Channel::note(const char* id, const char* text) const {
    if (client != nullptr && id != nullptr) client->PrintMessage(id, clientName, text);
}

int Channel::failSend() const {
    note(marshaller.sendFailedId, clientName);
    return sendFailure;
}

int Channel::failReceive() const {
    note(marshaller.receiveFailedId, clientName);
    return receiveFailure;
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
    return buffer.text()[0] == '+' ? received : failReceive();
}

int Channel::sendGoToken() const { return send(goToken, sizeof goToken); }

int Channel::sendToken(wire::FrameBuffer& tokenBuffer, int value) const {
    tokenBuffer.clear();
    tokenBuffer.setNumber(value);
    const int sent = send(tokenBuffer.text(), static_cast<int>(tokenBuffer.textLength()) + 1);
    if (sent < 0) return sent;
    switch (marshaller.tokenNote) {
    case TokenNote::None:
        break;
    case TokenNote::TokenText:
        note(marshaller.tokenNoteId, tokenBuffer.text());
        break;
    case TokenNote::ClientName:
        note(marshaller.tokenNoteId, clientName);
        break;
    }
    return receiveAcknowledgement(tokenBuffer);
}

int Channel::sendTokens(wire::FrameBuffer& tokenBuffer, const int* values, int count) const {
    for (int i = 0; i < count; ++i)
        if (const int result = sendToken(tokenBuffer, values[i]); result < 0) return result;
    return 0;
}

void Channel::fill(wire::FrameBuffer& buffer, const unsigned char* data, long available,
                   long offset, int count) const {
    buffer.clear();
    if (data == nullptr || count <= 0) return;
    const long held = std::min<long>(count, available - offset);
    unsigned char* out = reinterpret_cast<unsigned char*>(buffer.data());
    for (long i = 0; i < held; ++i) {
        const unsigned char byte = data[offset + i];
        out[i] = marshaller.reverseBits ? reverseBits(byte) : byte;
    }
}

int Channel::sendChunks(const unsigned char* data, long available, int byteCount, int chunkCount,
                        bool announce) const {
    wire::FrameBuffer chunk;
    wire::FrameBuffer reply;
    for (int i = 0; i < chunkCount; ++i) {
        const long offset = static_cast<long>(i) * blockSize;
        const int length = static_cast<int>(std::min<long>(byteCount - offset, blockSize));
        fill(chunk, data, available, offset, length);
        if (announce) note(marshaller.chunkNoteId, chunk.text());
        const int sent = send(chunk.data(), marshaller.padChunks ? blockSize : length);
        if (sent < 0) return sent;
        if (const int acknowledged = receiveAcknowledgement(reply); acknowledged < 0)
            return acknowledged;
    }
    return 0;
}

int Channel::readBackChunks(wire::FrameBuffer& reply, int chunkCount, std::string& tdoData,
                            int carried) const {
    tdoData.clear();
    int lastGo = 0;
    for (int i = 0; i < chunkCount; ++i) {
        int received = 0;
        if (i == 0 && carried > 0) {
            // The first chunk began in the status receive: a wrong first
            // byte fails before waiting for more, and one receive completes
            // the chunk, never one of 0 bytes.
            if (marshaller.readBackNeedsPlus && reply.text()[0] != '+') return failReceive();
            received = carried;
            if (carried < blockSize) {
                const long more = reply.receiveBehind(socket, carried);
                if (wire::failed(more)) return failReceive();
                received += static_cast<int>(more);
            }
        } else {
            reply.clear();
            received = receive(reply, blockSize);
            if (received < 0) return received;
        }
        if (marshaller.readBackNeedsPlus && reply.text()[0] != '+') return failReceive();
        tdoData.append(reply.text(), static_cast<std::size_t>(received));
        lastGo = sendGoToken();
        if (lastGo < 0) return lastGo;
    }
    return lastGo;
}

int Channel::finishChunked(wire::FrameBuffer& reply, int withReadBack, int chunkCount,
                           std::string& tdoData) const {
    const int result = withReadBack != 0 ? readBackChunks(reply, chunkCount, tdoData)
                                         : receiveAcknowledgement(reply);
    return result < 0 ? result : 0;
}

void appendLeading(std::string& tdoData, const wire::FrameBuffer& reply, int byteCount) {
    if (byteCount > 0)
        tdoData.append(reply.text(), static_cast<std::size_t>(std::min(byteCount, blockSize)));
}

}  // namespace tetherhost::transfer

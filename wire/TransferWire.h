// SPDX-License-Identifier: MIT
/* TransferWire: what the scan and bus marshallers have in common on the wire.
 * Every marshaller sends integer tokens, cuts large blocks into 1024-byte
 * chunks acknowledged with "+", and may read the server's data back chunk by
 * chunk; they differ in small, deliberate ways. Each marshaller states those
 * ways once, in a Marshaller description, and a Channel carries out the
 * shared exchanges on that description. */
#ifndef TETHERHOST_WIRE_TRANSFERWIRE_H
#define TETHERHOST_WIRE_TRANSFERWIRE_H

#include <string>

#include "wire/MessageSink.h"
#include "wire/Wire.h"

namespace tetherhost::transfer {

/* What an integer token's send is followed by in the messages. */
enum class TokenNote : unsigned char {
    None,        // nothing
    TokenText,   // (clientName, the token text)
    ClientName,  // (clientName, clientName)
};

/* The deliberate differences between the marshallers, one description each.
 * The defaults are the plainest marshaller: it posts nothing, sends chunks
 * at their true length and as they are, and takes read-back chunks whatever
 * their first byte; a description names only where it departs from that. */
struct Marshaller {
    const char* sendFailedId = nullptr;     // posted with the name twice when a send fails
    const char* receiveFailedId = nullptr;  // ... when a receive fails or an acknowledgement is wrong
    TokenNote tokenNote = TokenNote::None;  // message after each integer token's send
    const char* tokenNoteId = nullptr;
    const char* chunkNoteId = nullptr;  // posted with the chunk as text before a chunk's send; null: none
    bool padChunks = false;             // every chunk goes out as 1024 bytes, the last one zero padded
    bool reverseBits = false;           // data bytes go out bit-reversed
    bool readBackNeedsPlus = false;     // each read-back chunk must begin with "+"
};

/* One marshaller's conversation on one socket, posting its messages to a
 * sink (the one-call JTAG shift runs without a Client: an empty sink). */
class Channel {
public:
    Channel(const int& socket, MessageSink messages, const char* clientName, const Marshaller& marshaller);

    const Marshaller& description() const { return marshaller; }
    const char* name() const { return clientName; }

    /** Posts `id` with (clientName, text) to the sink. */
    void note(const char* id, const char* text) const;
    /** Posts the send-failed message and gives -1001. */
    int failSend() const;
    /** Posts the receive-failed message and gives -1002. */
    int failReceive() const;

    /** One send of `length` bytes: the count sent, or -1001 after the
     * send-failed message. A length of 0 or less is a failed send. */
    int send(const char* bytes, int length) const;
    /** One receive of at most `capacity` bytes into the start of `buffer`
     * (which is not cleared): the count received, or -1002. */
    int receive(wire::FrameBuffer& buffer, int capacity) const;
    /** Clears `buffer`, receives at most 2 bytes into it and requires a "+":
     * the count received, or -1002. */
    int receiveAcknowledgement(wire::FrameBuffer& buffer) const;
    /** The go token, "+" and a zero byte in one send: 2, or -1001. */
    int sendGoToken() const;

    /** One integer argument frame in `tokenBuffer`: "%d" text and its zero
     * byte, the marshaller's token note, then a strict acknowledgement
     * received into the same buffer. The acknowledgement's byte count, or
     * -1001 / -1002. */
    int sendToken(wire::FrameBuffer& tokenBuffer, int value) const;
    /** The tokens in order; 0, or the first failure. */
    int sendTokens(wire::FrameBuffer& tokenBuffer, const int* values, int count) const;

    /** Clears `buffer` and copies `count` bytes of `data` from `offset` into
     * it, bit-reversed when the marshaller says so; only the first
     * `available` bytes of `data` are read, and none at all for a count of 0
     * or less. */
    void fill(wire::FrameBuffer& buffer, const unsigned char* data, long available, long offset, int count) const;

    /** Sends `chunkCount` chunks of `byteCount` bytes, each acknowledged with
     * "+", reading at most `available` bytes of `data` (missing bytes go out
     * as zeros). `announce` posts the marshaller's chunk note before each
     * chunk. 0, -1001 or -1002. */
    int sendChunks(const unsigned char* data, long available, int byteCount, int chunkCount, bool announce) const;

    /** Empties `tdoData`, then `chunkCount` times: clears `reply`, receives up
     * to 1024 bytes, appends all of them to `tdoData` and sends the go token.
     * Gives the count of the last go token's send (0 when there were no
     * chunks), or -1001 / -1002; chunks received before a failure stay in
     * `tdoData`. `carried` bytes already at the start of `reply` (brought by
     * the receive before, behind a status text) begin the first chunk, and
     * one receive behind them completes it. */
    int readBackChunks(wire::FrameBuffer& reply, int chunkCount, std::string& tdoData, int carried = 0) const;

    /** After a chunked write: the server's data read back into `tdoData` when
     * `withReadBack` is non-zero, otherwise one more acknowledgement. 0,
     * -1001 or -1002. */
    int finishChunked(wire::FrameBuffer& reply, int withReadBack, int chunkCount, std::string& tdoData) const;

private:
    const int& socket;
    MessageSink messages;
    const char* clientName;
    const Marshaller& marshaller;
};

/** Appends the first `byteCount` bytes of `reply` to `tdoData` (none when
 * `byteCount` is 0 or less; never more than the buffer holds). */
void appendLeading(std::string& tdoData, const wire::FrameBuffer& reply, int byteCount);

}  // namespace tetherhost::transfer

#endif

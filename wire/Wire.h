// SPDX-License-Identifier: MIT
/* Wire: the socket helpers every transfer of the library shares, and the
 * frame buffer in which frames are built and acknowledgements received.
 *
 * - failed(): a send or recv has failed when it returned 0 or -1; any other
 *   count, a short one included, is a success and nothing is re-sent.
 * - sendBytes(): one send with MSG_NOSIGNAL, so that a server that has gone
 *   away gives the caller a failed send (status -1001) instead of killing the
 *   host application with SIGPIPE.
 * - receiveBytes(): one recv with flags 0.
 * - Both hand each call to the Recorder while any socket is recorded
 *   (TETHERHOST_RECORD).
 * - FrameBuffer: 1024 bytes for a frame or a reply, followed by one byte that
 *   is always zero. Receives never write past the 1024 bytes and text tokens
 *   are cut to 1023 bytes, so whatever a buffer holds is a terminated text,
 *   even a reply of the full 1024 bytes without a NUL of its own. */
#ifndef TETHERHOST_WIRE_WIRE_H
#define TETHERHOST_WIRE_WIRE_H

#include <sys/socket.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdio>
#include <cstring>

#include "protocol/Frames.h"
#include "wire/Recorder.h"

namespace tetherhost::wire {

/* The failure test of every send and recv: 0 (peer closed, nothing sent) or
 * -1. The sum is taken as unsigned so that both collapse onto 0 and 1. */
inline bool failed(long result) { return static_cast<std::size_t>(result + 1) <= 1; }

/* Sends `length` bytes in one call. A negative length is refused with -1
 * without calling send, which would otherwise read that many bytes (taken
 * as unsigned) past the caller's buffer. */
inline long sendBytes(int socket, const void* data, long length) {
    if (length < 0) return -1;
    const long sent = ::send(socket, data, static_cast<std::size_t>(length), MSG_NOSIGNAL);
    if (recordedSockets.load(std::memory_order_relaxed) != 0) recordCall(socket, Direction::Send, data, sent);
    return sent;
}

/* Receives at most `capacity` bytes in one call; a negative capacity is
 * refused with -1 like a negative send length. */
inline long receiveBytes(int socket, void* data, long capacity) {
    if (capacity < 0) return -1;
    const long received = ::recv(socket, data, static_cast<std::size_t>(capacity), 0);
    if (recordedSockets.load(std::memory_order_relaxed) != 0) recordCall(socket, Direction::Receive, data, received);
    return received;
}

class FrameBuffer {
public:
    /* All 1024 bytes zero. */
    void clear() { std::memset(bytes, 0, protocol::frameSize); }

    char* data() { return bytes; }
    const char* text() const { return bytes; }
    long textLength() const { return static_cast<long>(std::strlen(bytes)); }

    /* The integer token: "%d" over the start of the buffer (the rest keeps
     * what it held). */
    void setNumber(int value) { std::snprintf(bytes, protocol::frameSize, "%d", value); }

    /* The text token: `text` (not null) copied over the start of the buffer,
     * cut to its first 1023 bytes, and its NUL; the rest keeps what it held,
     * as with strcpy. */
    void setText(const char* text) {
        const std::size_t length = strnlen(text, protocol::maxTokenLength);
        std::memcpy(bytes, text, length);
        bytes[length] = '\0';
    }

    /* One argument frame: the text in the buffer and its NUL, in one send. */
    long sendFrame(int socket) const { return sendBytes(socket, bytes, textLength() + 1); }

    /* One receive of at most `capacity` bytes (never more than 1024) into
     * the start of the buffer. */
    long receive(int socket, long capacity) {
        return receiveBytes(
            socket, bytes,
            capacity < static_cast<long>(protocol::frameSize) ? capacity : static_cast<long>(protocol::frameSize));
    }

    /* After a receive of `received` bytes that began with a text: moves the
     * bytes it brought behind the text's NUL to the start of the buffer and
     * zeroes the rest. Their count, 0 when the receive held nothing more (the
     * buffer is then left as it was). */
    long carryAfterText(long received) {
        const long carried = received - (textLength() + 1);
        if (carried <= 0) return 0;
        std::memmove(bytes, bytes + (received - carried), static_cast<std::size_t>(carried));
        std::memset(bytes + carried, 0, protocol::frameSize - static_cast<std::size_t>(carried));
        return carried;
    }

    /* One receive behind the first `held` bytes, filling the frame at most. */
    long receiveBehind(int socket, long held) {
        return receiveBytes(socket, bytes + held, static_cast<long>(protocol::frameSize) - held);
    }

private:
    char bytes[protocol::frameSize + 1]{};
};

}  // namespace tetherhost::wire

#endif

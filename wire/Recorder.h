// SPDX-License-Identifier: MIT
/* Recorder: when the environment variable TETHERHOST_RECORD names a file as
 * a Client connects, every send and receive on that connection is appended
 * to the file as one line of JSON (the conversation format of
 * docs/conversations.md): the connection, the client's name, the direction,
 * the bytes, the call's result and a monotonic time. Each line goes out in
 * one write to a file opened with O_APPEND, so several processes may record
 * into one file without cutting each other's lines. Nothing else changes:
 * the same bytes, results, statuses and messages. A file that cannot be
 * opened leaves the connection unrecorded and posts nothing. With the
 * variable unset, the cost is the one look at it per Connect and, per
 * socket call, one load of the count of recorded sockets. */
#ifndef TETHERHOST_WIRE_RECORDER_H
#define TETHERHOST_WIRE_RECORDER_H

#include <atomic>

namespace tetherhost::wire {

/** How many sockets are being recorded now; 0 lets the socket calls skip
 * the recorder at once. */
extern std::atomic<int> recordedSockets;

/** Starts recording `socket` for the client `clientName` when
 * TETHERHOST_RECORD names a file that can be opened for appending. */
void startRecording(int socket, const char* clientName);
/** Stops recording `socket`; to be called before it is closed, so that a
 * later socket with the same number is not taken for it. */
void stopRecording(int socket);

enum class Direction { Send, Receive };

/** Appends one call on `socket` (when it is recorded): the bytes handed to
 * send or received (as many as `result` says), and `result` itself. */
void recordCall(int socket, Direction direction, const void* bytes, long result);

}  // namespace tetherhost::wire

#endif

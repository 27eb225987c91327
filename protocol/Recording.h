// SPDX-License-Identifier: MIT
/* Recording: a conversation kept as JSON Lines (docs/conversations.md), one
 * object per socket call as the client sees it, read strictly:
 *
 *   {"dir": "send", "text": "44\u0000"}   the client sends these bytes
 *   {"dir": "recv", "hex": "2b00"}        the client receives these bytes
 *   {"dir": "send", "any": 3}             the client sends 3 bytes, any value
 *   {"close": true}                       the server closes the connection
 *   {"accept": true}                      a listening server takes the next one
 *   {"note": "..."}                       a comment
 *
 * A line may also carry what the library's recorder writes ("conn",
 * "client", "ret", "t"). Of those the reader keeps "conn", which names the
 * connection, so that a file holding several connections (of one process
 * or of several, interleaved) can be split into them; the rest is ignored.
 * Any other key, or a line that is not one of these forms, is an error
 * naming the file and line: a conversation is played as written or not at
 * all.
 *
 * The tests' scripted servers and the simulator's --replay read files with
 * this one reader. It is a target of its own (tetherhost_recording), apart
 * from tetherhost_protocol, because it needs a JSON parser that the client
 * library must not depend on. */
#ifndef TETHERHOST_PROTOCOL_RECORDING_H
#define TETHERHOST_PROTOCOL_RECORDING_H

#include <cstddef>
#include <string>
#include <vector>

namespace tetherhost::protocol {

struct RecordedStep {
    enum class Kind { ClientSends, ClientSendsAny, ClientReceives, Close, Accept };
    Kind kind;
    std::string bytes;         // ClientSends, ClientReceives
    std::size_t count = 0;     // ClientSendsAny
    std::string connection{};  // the line's "conn"; empty when it has none
    int line = 0;              // the step's line in its file, from 1
};

using RecordedSteps = std::vector<RecordedStep>;

/** The steps in `text`, notes left out; throws std::runtime_error
 * "origin:line: what" at the first line it cannot take. */
RecordedSteps parseRecording(const std::string& text, const std::string& origin);

/** The steps of the file at `path` (the same errors, and "path: cannot be
 * read" for a file that cannot be read). */
RecordedSteps readRecording(const std::string& path);

/** Every byte the client sends in `steps`, in order (any-value sends
 * excluded). */
std::string clientBytes(const RecordedSteps& steps);

/** One connection's steps, in the order they were recorded. */
struct RecordedConnection {
    std::string name;  // its "conn" value; empty for lines without one
    RecordedSteps steps;
};

/** `steps` split into connections, in the order of each connection's first
 * line: lines with the same "conn" (lines without one alike) make one
 * connection. An "accept" step ends its connection with a close, and the
 * lines of that "conn" after it make the next connection. */
std::vector<RecordedConnection> splitConnections(const RecordedSteps& steps);

}  // namespace tetherhost::protocol

#endif

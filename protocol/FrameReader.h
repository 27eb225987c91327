// SPDX-License-Identifier: MIT
/* FrameReader: a receiving end's view of the byte stream the other end
 * sends (the simulator reads its clients with it). The network layer feeds it whatever a receive brought; the conversation pulls
 * complete items out of it: a NUL-terminated token, or an exact number of raw
 * bytes (data blocks, chunks, fixed 1024-byte frames). It never touches a
 * socket, so it can be fed in pieces of any size and tested without one. */
#ifndef TETHERHOST_PROTOCOL_FRAMEREADER_H
#define TETHERHOST_PROTOCOL_FRAMEREADER_H

#include <cstddef>
#include <string>

#include "protocol/Frames.h"

namespace tetherhost::protocol {

class FrameReader {
public:
    enum class Result {
        Ready,     // the item was taken out
        NeedMore,  // not enough bytes yet: feed more and ask again
        Overlong,  // no NUL within a frame's bytes: not a token
    };

    void feed(const char* data, std::size_t size);

    /** The next token, without its NUL. */
    Result token(std::string& text);
    /** Exactly `count` bytes. */
    Result take(std::size_t count, std::string& bytes);

    /** Bytes received and not yet taken. */
    std::size_t buffered() const { return buffer.size() - start; }

private:
    void consume(std::size_t count);

    std::string buffer;
    std::size_t start = 0;
};

}  // namespace tetherhost::protocol

#endif

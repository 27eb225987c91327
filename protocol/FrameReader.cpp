// SPDX-License-Identifier: MIT
/* FrameReader: token and raw-byte extraction from the fed stream. */
#include "protocol/FrameReader.h"

#include <algorithm>
#include <cstring>

namespace tetherhost::protocol {

void FrameReader::feed(const char* data, std::size_t size) {
    // Taken bytes are dropped only when they are the larger part, so a long
    // conversation neither grows the buffer nor moves bytes on every item.
    if (start > 0 && start >= buffer.size() / 2) {
        buffer.erase(0, start);
        start = 0;
    }
    buffer.append(data, size);
}

FrameReader::Result FrameReader::token(std::string& text) {
    const std::size_t window = std::min(buffered(), frameSize);
    const char* first = buffer.data() + start;
    const void* nul = std::memchr(first, '\0', window);
    if (nul == nullptr) return window == frameSize ? Result::Overlong : Result::NeedMore;
    const auto length = static_cast<std::size_t>(static_cast<const char*>(nul) - first);
    text.assign(first, length);
    consume(length + 1);
    return Result::Ready;
}

FrameReader::Result FrameReader::take(std::size_t count, std::string& bytes) {
    if (buffered() < count) return Result::NeedMore;
    bytes.assign(buffer, start, count);
    consume(count);
    return Result::Ready;
}

void FrameReader::consume(std::size_t count) {
    start += count;
    if (start == buffer.size()) {
        buffer.clear();
        start = 0;
    }
}

}  // namespace tetherhost::protocol

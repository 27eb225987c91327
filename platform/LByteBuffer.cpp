// SPDX-License-Identifier: MIT
/* LByteBuffer: a copyable byte container read one byte at a time. */
#include "LByteBuffer.h"

LByteBuffer::LByteBuffer() = default;

LByteBuffer::LByteBuffer(const unsigned char* data, int length) {
    if (data != nullptr && length > 0) bytes.assign(data, data + length);
}

LByteBuffer::LByteBuffer(const std::vector<unsigned char>& source) : bytes(source) {}

int LByteBuffer::GetTotalSize() { return static_cast<int>(bytes.size()); }

unsigned char LByteBuffer::ReadData(int index) {
    if (index < 0 || static_cast<std::size_t>(index) >= bytes.size()) return 0;
    return bytes[static_cast<std::size_t>(index)];
}

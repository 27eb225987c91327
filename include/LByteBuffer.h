// SPDX-License-Identifier: MIT
/* LByteBuffer: the byte container that SendJTAGShiftData takes by value.
 * A plain copyable sequence of bytes with the two read operations that the
 * one-call JTAG shift needs. */
#ifndef TETHERHOST_LBYTEBUFFER_H
#define TETHERHOST_LBYTEBUFFER_H

#include <vector>

#include "TetherhostExport.h"

class TETHERHOST_API LByteBuffer {
public:
    /** An empty buffer. */
    LByteBuffer();
    /** A copy of `length` bytes from `data` (nothing when `data` is null or `length` <= 0). */
    LByteBuffer(const unsigned char* data, int length);
    /** A copy of `bytes`. */
    explicit LByteBuffer(const std::vector<unsigned char>& bytes);

    /** Number of bytes held. */
    int GetTotalSize();
    /** The byte at `index` (0-based); 0 for an index outside the held bytes. */
    unsigned char ReadData(int index);

private:
    std::vector<unsigned char> bytes;
};

#endif

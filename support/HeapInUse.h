// SPDX-License-Identifier: MIT
/* heapInUse: bytes of heap the process has allocated and not freed, from the
 * allocator that is linked in (AddressSanitizer's under it, glibc's
 * otherwise). The simulator's status report shows it, so that a client can
 * watch the server's memory over a long run; the tests and benchmarks use it
 * to show that repeated operations leave the heap where it was. */
#ifndef TETHERHOST_SUPPORT_HEAPINUSE_H
#define TETHERHOST_SUPPORT_HEAPINUSE_H

#include <cstddef>

#if defined(__SANITIZE_ADDRESS__)
// The sanitizer runtime's own count. GCC ships no header declaring it.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#else
#include <malloc.h>
#endif

namespace tetherhost {

inline std::size_t heapInUse() {
#if defined(__SANITIZE_ADDRESS__)
    return __sanitizer_get_current_allocated_bytes();
#else
    const struct mallinfo2 usage = mallinfo2();
    return usage.uordblks + usage.hblkhd;  // arena chunks and mmap-ed blocks
#endif
}

}  // namespace tetherhost

#endif

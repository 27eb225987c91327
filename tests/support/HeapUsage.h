/* Bytes of heap in use by the process, from the allocator that is actually
 * linked: AddressSanitizer's when the tests run under it, glibc's otherwise. */
#ifndef TETHERHOST_TESTS_HEAPUSAGE_H
#define TETHERHOST_TESTS_HEAPUSAGE_H

#include <cstddef>

#if defined(__SANITIZE_ADDRESS__)
// The sanitizer runtime's own count; GCC ships no header that declares it.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#else
#include <malloc.h>
#endif

namespace tetherhost::test {

inline std::size_t heapInUse() {
#if defined(__SANITIZE_ADDRESS__)
    return __sanitizer_get_current_allocated_bytes();
#else
    return mallinfo2().uordblks;
#endif
}

}  // namespace tetherhost::test

#endif

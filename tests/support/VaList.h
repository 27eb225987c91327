// SPDX-License-Identifier: MIT
/* Calls a member that takes a va_list with an argument list made here, the
 * way Send hands its own list to the marshallers. */
#ifndef TETHERHOST_TESTS_VALIST_H
#define TETHERHOST_TESTS_VALIST_H

#include <cstdarg>

namespace tetherhost::test {

/** withVaList(f, a, b, c) calls f(list) with a va_list holding a, b, c. */
template <typename F>
int withVaList(F f, ...) {
    va_list args;
    va_start(args, f);
    const int result = f(args);
    va_end(args);
    return result;
}

}  // namespace tetherhost::test

#endif

// SPDX-License-Identifier: MIT
/* itoa: the integer-to-text conversion that message templates use for "$$d". */
#ifndef TETHERHOST_PLATFORM_ITOA_H
#define TETHERHOST_PLATFORM_ITOA_H

/** Writes `value` in `radix` (2 to 36) into `buffer`, NUL-terminated, and
 * returns `buffer`. Negative values get a minus sign in radix 10 only; in
 * other radixes they are written as their unsigned 32-bit pattern. An
 * unsupported radix writes the empty text. `buffer` must hold 34 bytes. */
char* itoa(int value, char* buffer, int radix);

#endif

// SPDX-License-Identifier: MIT
/* itoa: integer to text in a given radix, without undefined behaviour for
 * INT_MIN (the magnitude is taken in unsigned arithmetic). */
#include "platform/itoa.h"

char* itoa(int value, char* buffer, int radix) {
    if (radix < 2 || radix > 36) {
        buffer[0] = '\0';
        return buffer;
    }
    const bool negative = value < 0 && radix == 10;
    unsigned int magnitude = static_cast<unsigned int>(value);
    if (negative) magnitude = 0u - magnitude;
    char digits[33];
    int count = 0;
    do {
        const unsigned int digit = magnitude % static_cast<unsigned int>(radix);
        digits[count++] = static_cast<char>(digit < 10 ? '0' + digit : 'a' + (digit - 10));
        magnitude /= static_cast<unsigned int>(radix);
    } while (magnitude != 0);
    char* out = buffer;
    if (negative) *out++ = '-';
    while (count > 0) *out++ = digits[--count];
    *out = '\0';
    return buffer;
}

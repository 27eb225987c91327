// SPDX-License-Identifier: MIT
/* Wire constants written out, each of which the check must report; the
 * comment's 1024 and "+" and the message identifier "1001" are not. */
constexpr int frame = 1024;
constexpr int alsoFrame = 0x400;
constexpr int shifted = 1 << 10;
constexpr int failed = -1002;
constexpr double scaled = 1024.0;
const char* token = "+";
constexpr char ack = '+';
const char* message = "1001";

// SPDX-License-Identifier: MIT
/* `tetherctl send`: any command number with arguments whose types are given
 * on the command line (i:5, s:text, x:C0FFEE). Client::Send is variadic, so
 * the runtime list has to become a real call in which every argument has the
 * type the library reads for it; this file does that with a bounded template
 * recursion over runs of same-kind arguments. */
#ifndef TETHERCTL_TYPEDSEND_H
#define TETHERCTL_TYPEDSEND_H

#include <string>
#include <vector>

#include "tools/Hex.h"

class Client;

namespace tetherctl {

enum class ArgumentKind { Integer, Text, Bytes };

struct TypedArgument {
    ArgumentKind kind = ArgumentKind::Integer;
    int integer = 0;
    std::string text;
    Bytes bytes;
};

/** Longest text accepted: the library copies a text argument into a frame of
 * 1024 bytes together with its NUL. */
inline constexpr std::size_t maxTextLength = 1023;

/** "i:NUMBER" (decimal or 0x hex, within int), "s:TEXT" or "x:HEX" (bytes in
 * wire order). Throws UsageError for anything else. */
TypedArgument parseTypedArgument(const std::string& given);

/* The shapes a call may have. A run is a stretch of consecutive arguments of
 * one C type: integers, or pointers (texts and byte blocks alike). Up to 8
 * arguments may come in any order; 9 or 10 in at most 5 runs; 11 to 13 in at
 * most 2 runs. This covers every shape of the command table (command 21's
 * eight alternating arguments, the two I2C transfers of command 47, command
 * 4 with ten options) while keeping the number of instantiated call shapes
 * near 1400 instead of the 16383 that every mix of 13 arguments would take. */
inline constexpr int maxSendArguments = 13;

constexpr int maxRunsFor(int argumentCount) {
    if (argumentCount <= 8) return 8;
    if (argumentCount <= 10) return 5;
    return 2;
}

constexpr bool shapeAllowed(int argumentCount, int runCount) {
    return argumentCount <= maxSendArguments && runCount <= maxRunsFor(argumentCount);
}

/** Number of runs in `arguments`. */
int countRuns(const std::vector<TypedArgument>& arguments);

/** Throws UsageError when `arguments` has a shape outside the limits above. */
void checkArgumentShape(const std::vector<TypedArgument>& arguments);

/** Calls client.Send(command, ...) with each integer passed as an int and
 * each text or byte block as a pointer to its bytes ("x:" alone: a null
 * pointer). Byte blocks shorter than the largest integer argument, read as a
 * bit count, are padded with zero bytes first (up to 16 MiB), so the library
 * never reads past the end of a block. Throws UsageError when the shape is
 * outside the limits. */
int sendTyped(Client& client, int command, std::vector<TypedArgument> arguments);

}  // namespace tetherctl

#endif

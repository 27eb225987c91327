// SPDX-License-Identifier: MIT
/* Failure lines from the tables of status codes and server replies. */
#include "tools/StatusCodes.h"

namespace tetherctl {

namespace {

const char* lookUp(std::span<const StatusCode> table, int code) {
    for (const StatusCode& entry : table)
        if (entry.number == code) return entry.meaning;
    return nullptr;
}

}  // namespace

std::string describeStatus(int code) {
    const char* meaning = lookUp(statusCodes(), code);
    return meaning ? meaning : "a status code unknown to this version of tetherctl";
}

std::string describeServerReply(int code) {
    const char* meaning = lookUp(serverReplies(), code);
    return meaning ? meaning : "a reply unknown to this version of tetherctl";
}

std::string statusLine(int code) { return std::to_string(code) + ": " + describeStatus(code); }

std::string serverReplyLine(int code) { return std::to_string(code) + ": " + describeServerReply(code); }

std::string lockAnswerLine(int code) {
    // The library receives two characters of a lock answer: 0 gives -1, 1
    // grants the lock, and any other number is handed back as it reads.
    const char* const twoCharacters = "the library reads only the first two characters of a lock answer";
    if (code == -1)
        return "-1: the server refused the lock (it answered 0), or its answer began with -1 (" +
               std::string(twoCharacters) + ")";
    return std::to_string(code) + ": the server answered neither 1 (granted) nor 0 (refused); " + twoCharacters;
}

}  // namespace tetherctl

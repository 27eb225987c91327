// SPDX-License-Identifier: MIT
/* MessageLog: a temporary log file through which a test sees the numbered
 * messages an operation posted. The tests run with NLSPATH pointing at the
 * test catalogue, whose templates begin with their identifier, so the first
 * word of every log line names the message. */
#ifndef TETHERHOST_TESTS_MESSAGELOG_H
#define TETHERHOST_TESTS_MESSAGELOG_H

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "TempDir.h"

class Client;
class ClientUtils;

namespace tetherhost::test {

class MessageLog {
public:
    /** A fresh path in a private temporary directory; the file does not exist yet. */
    MessageLog();

    MessageLog(const MessageLog&) = delete;
    MessageLog& operator=(const MessageLog&) = delete;

    const std::string& path() const;

    /** Turns file logging on for `client` (its Set_Log_File starts the file empty). */
    void attach(Client& client) const;
    /** A ClientUtils named `clientName` that logs to this file, debug off. */
    std::unique_ptr<ClientUtils> utils(const std::string& clientName) const;

    /** The lines of the file (without their newlines); none when it is missing. */
    std::vector<std::string> lines() const;
    /** The first word of every line: the identifiers posted, in order. */
    std::vector<std::string> identifiers() const;
    /** Empties the file (keeps logging on). */
    void clear() const;

private:
    TempDir directory;
    std::string file;
};

/** A non-null log stream marker for building a ClientUtils that logs: the
 * stream is never written through (every line reopens the file by name). */
FILE* logMarker();

}  // namespace tetherhost::test

#endif

// SPDX-License-Identifier: MIT
/* Helpers of the protocol tests: the expected message lines (filled from the
 * catalogue the tests run with), scripts for the connection introduction and
 * the two locks, descriptor 0 stand-ins, temporary directories and child
 * processes. */
#ifndef TETHERHOST_TESTS_PROTOCOLTESTING_H
#define TETHERHOST_TESTS_PROTOCOLTESTING_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "ScriptedPeer.h"

class Client;

#include "TempDir.h"

namespace tetherhost::test {

using Lines = std::vector<std::string>;

/** The log line that message `id` gives with these arguments (char* for
 * "$$s", int for "$$d"), from the catalogue that NLSPATH names. */
std::string messageLine(const char* id, ...);

/** The expected lines of a conversation, built message by message. */
class Trace {
public:
    explicit Trace(std::string clientName);
    /** `id` with (clientName). */
    Trace& post(const char* id);
    /** `id` with (clientName, text). */
    Trace& post(const char* id, const std::string& text);
    /** `id` with (clientName, clientName). */
    Trace& twice(const char* id);
    /** `id` with (clientName, value). */
    Trace& number(const char* id, int value);
    /** `id` with (first, second). */
    Trace& texts(const char* id, const std::string& first, const std::string& second);
    const Lines& lines() const { return expected; }

private:
    std::string name;
    Lines expected;
};

/** A mutable copy of a name for the Client(char*) constructor. */
std::vector<char> nameBuffer(const std::string& name);

/** Script: the client's name frame, acknowledged. */
ScriptedPeer& introduce(ScriptedPeer& peer, const std::string& name);
/** Script: Send(4, "app", "user", 0) and Send(33), both locks granted, as
 * tests/data/conversations/both-locks.jsonl holds them. */
ScriptedPeer& grantBothLocks(ScriptedPeer& peer);
/** Takes both locks as grantBothLocks scripts them; true when both were granted. */
bool takeBothLocks(Client& client);
/** The bytes that grantBothLocks expects. */
std::string bothLocksBytes();

/** Puts `descriptor` (by default /dev/null) on descriptor 0 while it lives
 * and gives the process its own descriptor 0 back afterwards. */
class StdinReplacement {
public:
    StdinReplacement();
    explicit StdinReplacement(int descriptor);
    ~StdinReplacement();
    StdinReplacement(const StdinReplacement&) = delete;
    StdinReplacement& operator=(const StdinReplacement&) = delete;

private:
    int saved;
};

/** Copies `from` to `to` as an executable file. */
void copyExecutable(const std::string& from, const std::string& to);
/** Starts `path` with `arguments` (argument zero included); the child's pid. */
pid_t spawn(const std::string& path, const std::vector<std::string>& arguments);
/** Ends a child started by spawn and waits (at most 5 s) until it is gone,
 * whether this process or the server reaper collects it. */
void endChild(pid_t pid);
/** Waits at most `timeoutMs` until process `pid` no longer exists, without
 * collecting it: a child of this process is gone only once it was reaped. */
bool waitGone(pid_t pid, int timeoutMs);
/** True when a process named "tetherhost" or "tetherhostmain" runs. */
bool serverProcessRuns();
/** The lines of a text file; none when it is missing. */
Lines fileLines(const std::string& path);
/** Waits at most `timeoutMs` until `path` holds a line equal to `line`. */
bool waitForLine(const std::string& path, const std::string& line, int timeoutMs);

}  // namespace tetherhost::test

#endif

// SPDX-License-Identifier: MIT
/* msgManager: the message-catalogue service of the library. A handle names a
 * module ("tetherhostclient"); it looks message templates up by identifier
 * and posts filled messages to standard error.
 *
 * The catalogue itself is process-wide: opened once with catopen and shared
 * by every handle, so that a handle costs nothing to make. Handles carry no
 * state of their own, which is what lets them live in one static slot: the
 * library builds a handle for every command and, by design, never frees the
 * ones its short-lived helpers make, so handles must not come from the heap. */
#ifndef TETHERHOST_PLATFORM_MSGMANAGER_H
#define TETHERHOST_PLATFORM_MSGMANAGER_H

#include <cstdarg>
#include <string>
#include <vector>

class msgManager {
public:
    static void* operator new(unsigned long size);
    static void operator delete(void* handle);

    explicit msgManager(const char* module);
    ~msgManager() = default;

    /** Sets `text` to the template of message `id`: the text of the catalogue
     * found through NLSPATH, or the built-in text; empty for an unknown id. */
    int queryMsgString(const char* id, std::string& text);
    /** Fills the template of `id` from a copy of `args` (the caller's list is
     * left where it was) and writes "<module> <id>: <text>" to standard error. */
    int postMsgVaList(const char* id, va_list args, std::vector<std::string>& out, unsigned int flags);
    /** Ends the catalogue's own output for this handle (flushes it). */
    int finishMsgLogFile(unsigned int logFileId);

    /** How many times finishMsgLogFile has been called in this process. */
    static unsigned long finishedLogCount();
};

#endif

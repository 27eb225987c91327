// SPDX-License-Identifier: MIT
/* ClientUtils: the short-lived helper that a Client operation builds on its
 * stack. It carries the argument-frame senders, server detection, the lock
 * negotiation and its own message output. Also declares SendJTAGShiftData,
 * the one-call JTAG shift on an open socket. */
#ifndef TETHERHOST_CLIENTUTILS_H
#define TETHERHOST_CLIENTUTILS_H

#include <cstdarg>
#include <cstdio>
#include <string>

#include "LByteBuffer.h"
#include "TetherhostExport.h"

class msgManager;

class TETHERHOST_API ClientUtils {
public:
    ClientUtils();
    ClientUtils(int debugFlag, FILE* logFile, std::string clientName, std::string logFileName);
    /** Leaves the catalogue handle alive and the log stream open: neither is owned here. */
    ~ClientUtils();

    ClientUtils(const ClientUtils&) = delete;
    ClientUtils& operator=(const ClientUtils&) = delete;

    /** Sends `count` texts; accepts any acknowledgement that arrives. */
    int sendstrargs(int socket, int count, va_list args);
    /** Sends `count` ints as decimal text; each acknowledgement must begin with "+". */
    int sendintargs(int socket, int count, va_list args);
    /** Sends `count` texts; each acknowledgement must begin with "+". */
    int sendcharstarargs(int socket, int count, va_list args);
    /** Sends int, text, int, text, int, text, int, text; strict acknowledgements. */
    int sendSetHeaderTrailerargs(int socket, va_list args);

    /** 1 when a tetherhost server process is running, 0 otherwise. */
    int DetectServer();
    /** Asks the server for a lock and records the verdict in `lockFlag`. */
    int DetermineMutex(int& socket, int& lockFlag);

    /** Posts the numbered message `id` with its arguments. */
    void PrintMessage(std::string id, ...);

private:
    msgManager* messages;
    std::string clientName;
    std::string logFileName;
    int debugFlag;
    FILE* logFile;
};

/** One whole JTAG shift (command 44, sub-command 12) on an open socket,
 * without a Client. Returns 0, -1001 or -1002. */
TETHERHOST_API int SendJTAGShiftData(int& socket, int flags, int bitCount, int blockCount, LByteBuffer firstBuffer,
                                     LByteBuffer secondBuffer, LByteBuffer thirdBuffer);

#endif

// SPDX-License-Identifier: MIT
/* Client: one host application's connection to the tetherhost server.
 * Construct it with a client name, Connect, obtain the two locks, issue
 * numbered commands with Send, collect replies with Read and scan data with
 * GetTDO, and end with Disconnect. Every operation reports a status code and
 * posts numbered messages (to the catalogue when debugging is on, to the log
 * file when one is set). */
#ifndef TETHERHOST_CLIENT_H
#define TETHERHOST_CLIENT_H

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "TetherhostExport.h"

class msgManager;

class TETHERHOST_API Client {
public:
    /** A client with an empty name; not connected. */
    Client();
    /** A client named by the NUL-terminated text `name` (must not be null). */
    Client(char* name);
    /** Ends the message log; sends nothing and closes neither socket nor log stream. */
    ~Client();

    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    /** 1 when the client has a name, 0 otherwise. */
    int ValidClient();
    /** The connection's descriptor (-1 before the first Connect). */
    long GetClientSocket();
    /** Status code of the last operation. */
    int GetClientStatus();
    void SetClientStatus(int status);

    /** Connects to 127.0.0.1:4001, starting the server when none answers, and
     * introduces the client by name. `connectText` is ignored. */
    int Connect(char* connectText, const char* requestedLogFile, const char* serverDirectory);
    /** Sends command 9999, shuts the socket down and closes it. */
    int Disconnect();

    /** Sends one numbered command with its arguments and, for most commands,
     * returns the server's integer reply. */
    int Send(int command, ...);

    /** Reads a text reply; `text` points into a buffer of this Client, valid
     * until its next read. */
    int Read(char*& text);
    /** Reads a text reply; an empty text on failure. */
    char* Read();
    /** Reads an integer reply. */
    int Read(int& value);
    /** Reads a ";"-separated reply and appends its fields. */
    int Read(std::vector<std::string>& fields);

    int JTAGInterfaceFunc(int& socket, va_list args);
    int sendShiftargs(int socket, va_list args);
    int sendJTAGShiftargs(int socket, va_list args);
    /** Copies the scan return data of the last shift with read-back to `dest`
     * and empties it. */
    int GetTDO(unsigned char*& dest, int bitCount);
    int GetTDO(char* dest, int bitCount);
    int sendPumpData(int& socket, va_list args);
    int sendSSPIShiftargs(int& socket, int withWrite, int withReadBack, va_list args);
    int sendI2CShiftargs(int& socket, int withWrite, int withReadBack, va_list args);
    int sendSharedApps(int& socket, va_list args);

    /** Posts the numbered message `id` with its arguments. */
    void PrintMessage(std::string id, ...);

    /** Names the log file and starts it empty. */
    int Set_Log_File(const char* name);
    /** Posts the log file settings as a message. */
    int Get_Log_file();
    int Set_Debug_On();
    int Set_Debug_Off();

private:
    int sessionMutex;
    int commandMutex;
    std::string tdoData;
    msgManager* messages;
    std::string clientName;
    std::string reservedB;
    std::string reservedC;
    int clientSocket;
    std::string connectText;
    int clientStatus;
    int debugFlag;
    std::string logFileName;
    std::string logFileDetail;
    FILE* logFile;
    unsigned int msgLogFileId;
    /* Reply text handed out by Read(char*&) and Read(): 1024 bytes and a
     * terminating zero byte that is never overwritten. */
    char replyText[1025];
};

#endif

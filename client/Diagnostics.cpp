// SPDX-License-Identifier: MIT
/* Client diagnostics: posting numbered messages, the log file and the debug
 * switch. */
#include <cstdio>

#include "Client.h"
#include "platform/MessageIds.h"
#include "platform/MessageTemplate.h"
#include "platform/msgManager.h"

namespace {
namespace message = tetherhost::message;
}

void Client::PrintMessage(std::string id, ...) {
    if (logFile == nullptr && debugFlag != 1) return;
    va_list args;
    va_start(args, id);
    tetherhost::postMessage(*messages, debugFlag, logFile, logFileName, id, args,
                            tetherhost::WhenBothOn::CatalogueAndLog);
    va_end(args);
}

int Client::Set_Debug_On() {
    PrintMessage(message::switchingDebugOn, clientName.c_str());
    if (debugFlag == 1) PrintMessage(message::debugAlreadyOn, clientName.c_str());
    debugFlag = 1;
    return 0;
}

int Client::Set_Debug_Off() {
    PrintMessage(message::switchingDebugOff, clientName.c_str());
    if (debugFlag == 0) PrintMessage(message::debugAlreadyOff, clientName.c_str());
    debugFlag = 0;
    return 0;
}

int Client::Set_Log_File(const char* name) {
    PrintMessage(message::settingLogFile, clientName.c_str());
    if (name[0] == '\0') {
        PrintMessage(message::noLogFileNameGiven, clientName.c_str());
        SetClientStatus(-1016);
        return -1016;
    }
    logFileName = name;
    logFile = std::fopen(name, "w");
    if (logFile == nullptr) return -1;
    // The closed stream's value stays as the marker that a log file is set;
    // every message reopens the file by name.
    std::fclose(logFile);
    return 0;
}

int Client::Get_Log_file() {
    if (logFileName.empty()) {
        PrintMessage(message::noLogFileSet, clientName.c_str());
        SetClientStatus(-1016);
        return -1016;
    }
    if (logFileDetail.empty()) {
        PrintMessage(message::logFileDetailEmpty, clientName.c_str());
        SetClientStatus(-1017);
        return -1017;
    }
    PrintMessage(message::logFileAndDetail, clientName.c_str(), logFileName.c_str(), clientName.c_str(),
                 logFileDetail.c_str());
    return 0;
}

// SPDX-License-Identifier: MIT
/* Template filling and the log line shared by both message-posting forms. */
#include "platform/MessageTemplate.h"

#include <cstring>
#include <vector>

#include "platform/itoa.h"
#include "platform/msgManager.h"

namespace tetherhost {

void fillTemplate(const std::string& messageTemplate, va_list args, std::string& line) {
    const std::size_t length = messageTemplate.size();
    std::size_t i = 0;
    while (i < length) {
        // c_str() keeps a NUL after the last character, so the look-ahead may
        // run onto it and simply fail the comparison.
        const char* at = messageTemplate.c_str() + i;
        if (at[0] == '$' && at[1] == '$' && at[2] == 's') {
            const char* text = va_arg(args, const char*);
            line.append(text != nullptr ? text : "");
            i += 3;
        } else if (at[0] == '$' && at[1] == '$' && at[2] == 'd') {
            char number[512];
            std::memset(number, 0, sizeof number);
            itoa(va_arg(args, int), number, 10);
            line.append(number);
            i += 3;
        } else {
            line.push_back(at[0]);
            i += 1;
        }
    }
}

void appendLogLine(msgManager& messages, FILE*& logFile, const std::string& logFileName, const std::string& id,
                   va_list args) {
    logFile = std::fopen(logFileName.c_str(), "a");
    if (logFile == nullptr) return;
    std::string messageTemplate;
    std::string line;
    messages.queryMsgString(id.c_str(), messageTemplate);
    fillTemplate(messageTemplate, args, line);
    std::fprintf(logFile, "%s\n", line.c_str());
    std::fclose(logFile);
}

void postMessage(msgManager& messages, int debugFlag, FILE*& logFile, const std::string& logFileName,
                 const std::string& id, va_list args, WhenBothOn whenBothOn) {
    if (debugFlag == 1) {
        std::vector<std::string> out;
        messages.postMsgVaList(id.c_str(), args, out, 0);
        if (whenBothOn == WhenBothOn::CatalogueOnly) return;
    }
    if (logFile != nullptr) appendLogLine(messages, logFile, logFileName, id, args);
}

}  // namespace tetherhost

// SPDX-License-Identifier: MIT
/* MessageLog: a temporary log file read back line by line. */
#include "MessageLog.h"

#include <fstream>
#include <sstream>

#include "Client.h"
#include "ClientUtils.h"

namespace tetherhost::test {

MessageLog::MessageLog() : file(directory.file("client.log")) {}

const std::string& MessageLog::path() const { return file; }

void MessageLog::attach(Client& client) const { client.Set_Log_File(file.c_str()); }

std::unique_ptr<ClientUtils> MessageLog::utils(const std::string& clientName) const {
    return std::make_unique<ClientUtils>(0, logMarker(), clientName, file);
}

std::vector<std::string> MessageLog::lines() const {
    std::vector<std::string> result;
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);) result.push_back(line);
    return result;
}

std::vector<std::string> MessageLog::identifiers() const {
    std::vector<std::string> result;
    for (const std::string& line : lines()) {
        std::istringstream words(line);
        std::string first;
        words >> first;
        result.push_back(first);
    }
    return result;
}

void MessageLog::clear() const { std::ofstream(file, std::ios::trunc); }

FILE* logMarker() {
    // Any non-null value marks "a log file is set"; stdout is never written
    // through, because every line reopens the log file by name.
    return stdout;
}

}  // namespace tetherhost::test

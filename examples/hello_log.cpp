// SPDX-License-Identifier: MIT
/* hello_log: the smallest host application. It builds a Client, turns on a
 * log file, lets the client post a few messages and shows the lines they
 * wrote. No server is needed. */
#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>

#include "Client.h"

int main() {
    const std::string logPath = "hello_log.log";
    Client client(const_cast<char*>("hello"));
    if (client.Set_Log_File(logPath.c_str()) != 0) {
        std::cerr << "cannot write " << logPath << "\n";
        return 1;
    }
    client.ValidClient();
    client.Set_Debug_Off();
    client.Get_Log_file();
    std::cout << "Log lines written by client 'hello' to " << logPath << ":\n";
    std::ifstream log(logPath);
    for (std::string line; std::getline(log, line);) std::cout << "  " << line << "\n";
    std::cout << "status of the last operation: " << client.GetClientStatus() << "\n";
    return 0;
}

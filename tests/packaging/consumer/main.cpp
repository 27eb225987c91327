// SPDX-License-Identifier: MIT
/* A tiny host application: builds a Client, logs one message, prints it,
 * then the version of the headers it was built against. */
#include <tetherhost/version.h>

#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>

#include "Client.h"

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    Client client(const_cast<char*>("consumer"));
    if (client.Set_Log_File(argv[1]) != 0) return 3;
    if (client.ValidClient() != 1) return 4;
    std::ifstream log(argv[1]);
    std::string line;
    std::getline(log, line);
    std::cout << line << "\n";
    std::cout << "built against tetherhost " << TETHERHOST_VERSION_STRING << "\n";
    return line.find("consumer") == std::string::npos ? 5 : 0;
}

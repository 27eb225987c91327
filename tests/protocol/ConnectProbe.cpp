// SPDX-License-Identifier: MIT
/* Connects from its own directory: Connect with an empty server directory,
 * for the test that the server is started beside the running executable.
 * Usage: <probe> <client name> <result file>. Writes "result <n>" to the
 * result file and closes the connection. */
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "Client.h"

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    std::vector<char> name(argv[1], argv[1] + std::string(argv[1]).size() + 1);
    Client client(name.data());
    const int result = client.Connect(nullptr, nullptr, "");
    FILE* out = std::fopen(argv[2], "a");
    if (out == nullptr) return 2;
    std::fprintf(out, "result %d\n", result);
    std::fclose(out);
    if (result == 0) close(static_cast<int>(client.GetClientSocket()));
    return 0;
}

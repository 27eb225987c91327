// SPDX-License-Identifier: MIT
/* list_replies: reading replies made of ";"-separated fields with
 * Read(std::vector<std::string>&). Send reads each command's integer reply
 * itself; a command that also has a text reply leaves it for the application
 * to read next. Three of them here: the server's status (command 1), the
 * chain's description (command 44, sub-command 7), and the list of shared
 * applications (set with command 41, read back with command 43). None of
 * them needs the locks.
 *
 * Usage: list_replies [SERVER_DIRECTORY] */
#include <cstdio>
#include <string>
#include <vector>

#include "Client.h"

namespace {

/* Reads the text reply that follows the integer one and prints its fields. */
bool printFields(Client& client, const char* title, int integerReply) {
    std::vector<std::string> fields;
    const int status = client.Read(fields);
    if (status != 0) {
        std::fprintf(stderr, "list_replies: reading the %s failed with status %d\n", title, status);
        return false;
    }
    std::printf("%s: integer reply %d, %zu fields\n", title, integerReply, fields.size());
    for (const std::string& field : fields) std::printf("  %s\n", field.c_str());
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    Client client(const_cast<char*>("list_replies"));
    char connectText[] = "127.0.0.1";
    const int status = client.Connect(connectText, nullptr, argc > 1 ? argv[1] : nullptr);
    if (status != 0) {
        std::fprintf(stderr, "list_replies: Connect failed with status %d\n", status);
        return 1;
    }
    bool ok = printFields(client, "server status (command 1)", client.Send(1));
    ok = ok && printFields(client, "chain (command 44, sub-command 7)", client.Send(44, 7));
    // Command 41 takes a count and that many names.
    const int stored = client.Send(41, 2, "alpha", "beta");
    ok = ok && stored == 2 && printFields(client, "shared applications (command 43)", client.Send(43));
    client.Disconnect();
    return ok ? 0 : 1;
}

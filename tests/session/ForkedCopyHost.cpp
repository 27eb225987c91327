// SPDX-License-Identifier: MIT
/* A host application whose server start fails: SERVER_DIR holds no
 * tetherhost program. It opens a Session there (with --bare, it connects a
 * Client of its own instead), and then its own code appends one line,
 * "<pid> <status>", to MARKER. The forked-copy test counts who wrote it.
 *
 * Usage: session_forked_copy_host MARKER SERVER_DIR [--bare] */
#include <fcntl.h>
#include <unistd.h>

#include <string>

#include <tetherhost/session.hpp>

namespace {

/* One write with O_APPEND, so that two processes' lines never mix. */
bool mark(const char* marker, int status) {
    const std::string line = std::to_string(getpid()) + " " + std::to_string(status) + "\n";
    const int file = open(marker, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (file < 0) return false;
    const bool written = write(file, line.data(), line.size()) == static_cast<ssize_t>(line.size());
    return close(file) == 0 && written;
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc < 3) return 2;
    const std::string serverDirectory = argv[2];
    int status = 0;
    if (argc > 3 && std::string(argv[3]) == "--bare") {
        char name[] = "bare-host";
        Client client(name);
        status = client.Connect(nullptr, nullptr, serverDirectory.c_str());
    } else {
        try {
            tetherhost::SessionOptions options;
            options.serverDirectory = serverDirectory;
            tetherhost::Session session("session-host", options);
        } catch (const tetherhost::Error& error) {
            status = error.status();
        }
    }
    if (!mark(argv[1], status)) return 4;
    return status == 0 ? 0 : 3;
} catch (const std::exception&) {
    return 5;
}

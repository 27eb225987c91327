// SPDX-License-Identifier: MIT
/* The Client's life in one tetherctl run. */
#include "tools/ServerSession.h"

#include <unistd.h>

#include <cstdio>
#include <vector>

#include "Client.h"
#include "protocol/Commands.h"
#include "protocol/Frames.h"
#include "protocol/Status.h"
#include "tetherhost/version.h"
#include "tools/Failure.h"

namespace tetherctl {

namespace {

/* Command 4's two texts: who opens the session, and its version. */
constexpr const char* sessionApplication = "tetherctl";
constexpr const char* sessionVersion = TETHERHOST_VERSION_STRING;

namespace command = tetherhost::protocol::command;
namespace status = tetherhost::protocol::status;

bool isTransportFailure(int code) { return code == status::sendFailed || code == status::receiveFailed; }

}  // namespace

Reading failedSendReading(int number, int code) {
    const bool lockCommand = number == command::openSession || number == command::commandLock;
    return lockCommand && !isTransportFailure(code) ? Reading::LockAnswer : Reading::LibraryStatus;
}

ServerSession::ServerSession(const CommonOptions& options)
    : serverDirectory(options.serverDirectory), launcher(getpid()) {
    // The library copies the name into a 1024-byte frame with its NUL.
    if (options.name.size() > tetherhost::protocol::maxTokenLength) throw UsageError("--name: at most 1023 bytes");
    std::vector<char> name(options.name.begin(), options.name.end());
    name.push_back('\0');
    owned = std::make_unique<Client>(name.data());
    if (options.debug) owned->Set_Debug_On();
    if (!options.logFile.empty() && owned->Set_Log_File(options.logFile.c_str()) != 0)
        throw Failure("opening the log file " + options.logFile, -1);
}

ServerSession::~ServerSession() {
    // After a failed send or receive the conversation may be out of step, and
    // the server may still wait for the rest of a command: nothing more is
    // sent. The socket closes when tetherctl ends, and the server frees the
    // connection's locks then.
    if (isTransportFailure(owned->GetClientStatus())) return;
    if (locked) {
        owned->Send(command::releaseCommandLock);
        owned->Send(command::releaseSessionLock);
    }
    if (connected) owned->Disconnect();
}

void ServerSession::connect() {
    char connectText[] = "127.0.0.1";
    // Connect's server detection runs pidof, which prints the process ids it
    // finds on standard output. They go to standard error instead, so that
    // standard output carries tetherctl's result alone (--json relies on it).
    std::fflush(stdout);
    const int savedOutput = dup(STDOUT_FILENO);
    dup2(STDERR_FILENO, STDOUT_FILENO);
    const int result =
        owned->Connect(connectText, nullptr, serverDirectory.empty() ? nullptr : serverDirectory.c_str());
    std::fflush(stdout);
    dup2(savedOutput, STDOUT_FILENO);
    close(savedOutput);
    if (getpid() != launcher) {
        // Connect forks to start the server; when the server cannot be
        // executed, the forked copy of this program comes back here. It must
        // not go on to run the command a second time.
        const std::string where = serverDirectory.empty() ? "tetherctl's own directory" : serverDirectory;
        std::fprintf(stderr, "tetherctl: the tetherhost server could not be started from %s\n", where.c_str());
        _exit(exitNoServerStart);
    }
    if (result != 0) throw Failure("connecting to the server", result);
    connected = true;
}

void ServerSession::lock() {
    int result = owned->Send(command::openSession, sessionApplication, sessionVersion, 0);
    if (result != 0)
        throw Failure("opening the session (command 4)", result, failedSendReading(command::openSession, result));
    locked = true;
    result = owned->Send(command::commandLock);
    if (result != 0)
        throw Failure("taking the command lock (command 33)", result, failedSendReading(command::commandLock, result));
}

void ServerSession::unlock() {
    locked = false;
    check(owned->Send(command::releaseCommandLock), "releasing the command lock (command 34)");
    check(owned->Send(command::releaseSessionLock), "releasing the session lock (command 35)");
}

void ServerSession::disconnect() {
    connected = false;
    const int result = owned->Disconnect();
    if (result != 0) throw Failure("disconnecting", result);
}

void ServerSession::begin() {
    connect();
    lock();
}

void ServerSession::end() {
    unlock();
    disconnect();
}

void ServerSession::check(int result, const std::string& action) {
    const int status = owned->GetClientStatus();
    if (status < 0 || status == 1) throw Failure(action, status);
    if (result < 0) throw Failure(action, result, Reading::ServerReply);
}

}  // namespace tetherctl

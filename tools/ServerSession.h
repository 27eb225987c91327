// SPDX-License-Identifier: MIT
/* ServerSession: one tetherctl run's Client and its conversation with the
 * server: the diagnostics switches, Connect (which starts the server when
 * none answers), the session and command locks, the release of both locks
 * and Disconnect. Each step that fails throws a Failure naming the step and
 * the status code. */
#ifndef TETHERCTL_SERVERSESSION_H
#define TETHERCTL_SERVERSESSION_H

#include <sys/types.h>

#include <memory>
#include <string>

#include "tools/Failure.h"

class Client;

namespace tetherctl {

/** How the failure code of Send(command) reads: for command 4 or 33 any
 * code but the library's -1001 and -1002 is the server's lock answer;
 * otherwise it is the library's status. */
Reading failedSendReading(int command, int code);

/** The options every subcommand shares. */
struct CommonOptions {
    std::string name = "tetherctl";
    std::string serverDirectory;
    std::string logFile;
    bool debug = false;
    bool json = false;
};

class ServerSession {
public:
    /** Builds the Client and applies --debug and --log (before Connect, so
     * that the connection's own messages are shown and logged too). */
    explicit ServerSession(const CommonOptions& options);
    /** Releases the locks and disconnects when a command ended early, so a
     * failed or interrupted run never leaves the server's locks held. */
    ~ServerSession();

    ServerSession(const ServerSession&) = delete;
    ServerSession& operator=(const ServerSession&) = delete;

    /** Connect, starting the server from --server-dir (or tetherctl's own
     * directory) when none answers. */
    void connect();
    /** Opens the session with command 4 and takes the command lock with 33. */
    void lock();
    /** Gives both locks back: command 34, then 35. */
    void unlock();
    void disconnect();

    /** connect() and lock(). */
    void begin();
    /** unlock() and disconnect(). */
    void end();

    Client& client() { return *owned; }

    /** Throws a Failure for `action` when the last Send failed: a negative
     * status recorded by the library, status 1 (the command was withheld for
     * want of the locks), or a negative integer reply from the server. */
    void check(int result, const std::string& action);

private:
    std::unique_ptr<Client> owned;
    std::string serverDirectory;
    pid_t launcher;
    bool connected = false;
    bool locked = false;
};

}  // namespace tetherctl

#endif

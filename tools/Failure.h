// SPDX-License-Identifier: MIT
/* How tetherctl's commands end early: a library operation that reported a
 * failure status, or a command line that cannot be carried out. main()
 * turns each into one line on standard error and an exit code. */
#ifndef TETHERCTL_FAILURE_H
#define TETHERCTL_FAILURE_H

#include <stdexcept>
#include <string>

namespace tetherctl {

enum ExitCode : int {
    exitSuccess = 0,
    exitFailure = 1,          // a library operation failed: the line names its status code
    exitUsage = 2,            // the command line cannot be carried out
    exitMismatch = 3,         // read-back data differ from what was sent
    exitNoServerStart = 127,  // the copy of tetherctl left behind by a failed server start
    exitInterrupted = 130,    // Ctrl-C
};

/** What a failure's code is, and so how it is explained. */
enum class Reading : unsigned char {
    LibraryStatus,  // a status the library returned or recorded
    ServerReply,    // the negative integer reply to a command the server carried out
    LockAnswer,     // the result of command 4 or 33 when the lock was not granted
};

/** A library operation that returned or recorded a failure status, a
 * command that the server carried out and answered with a negative integer,
 * or a lock the server did not grant. `what()` names the step that failed. */
struct Failure : std::runtime_error {
    Failure(const std::string& action, int status, Reading reading = Reading::LibraryStatus)
        : std::runtime_error(action), status(status), reading(reading) {}
    int status;
    Reading reading;
};

/** Read-back data that differ from what was sent: exit code 3. */
struct Mismatch : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/** An SVF file's TDO differed from what it expected: exit code 1, as
 * other SVF players end. */
struct TdoMismatch : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/** The user pressed Ctrl-C (or the run was terminated): exit code 130,
 * after the locks have been released. */
struct Interrupted : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/** An argument that cannot be used: reported with exit code 2. */
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace tetherctl

#endif

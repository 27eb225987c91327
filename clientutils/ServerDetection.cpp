// SPDX-License-Identifier: MIT
/* Server detection: whether a tetherhost server process is running, asked of
 * pidof by process name. Connect uses it after its first connection attempt
 * was refused, to decide between waiting for a server that runs and starting
 * one. */
#include <cstdlib>

#include "ClientUtils.h"
#include "platform/MessageIds.h"

namespace {

namespace message = tetherhost::message;

/* The server runs as "tetherhost" or, in some installations, as
 * "tetherhostmain"; pidof may live in /sbin or only on the PATH. */
constexpr const char* detectionCommands[] = {
    "/sbin/pidof -x tetherhost 2> /dev/null",
    "/sbin/pidof -x tetherhostmain 2> /dev/null",
    "pidof -x tetherhost 2> /dev/null",
    "pidof -x tetherhostmain 2> /dev/null",
};

}  // namespace

int ClientUtils::DetectServer() {
    PrintMessage(message::lookingForServer, clientName.c_str());
    // All four always run, in order, even once one has found a process.
    bool found = false;
    for (const char* command : detectionCommands)
        if (std::system(command) == 0) found = true;
    return found ? 1 : 0;
}

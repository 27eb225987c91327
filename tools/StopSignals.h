// SPDX-License-Identifier: MIT
/* Ctrl-C and SIGTERM for the commands that run long (pump, svf): the signal
 * only sets a flag, which the command reads between two steps, so the step
 * under way completes, the conversation with the server stays in step and
 * the locks are given back before tetherctl ends. */
#ifndef TETHERCTL_STOPSIGNALS_H
#define TETHERCTL_STOPSIGNALS_H

#include <atomic>

namespace tetherctl {

/** Set once SIGINT or SIGTERM arrives after catchStopSignals. */
extern std::atomic<bool> stopRequested;

/** Clears the flag and installs the handlers. SA_RESTART keeps the socket
 * call that a signal interrupts going. */
void catchStopSignals();

}  // namespace tetherctl

#endif

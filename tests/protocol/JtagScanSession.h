// SPDX-License-Identifier: MIT
/* The host session of tests/data/conversations/jtag-scan-session.jsonl:
 * introduction, both locks, a 6-bit data-register scan with read-back, both
 * locks given back and the farewell, made through the library against a
 * peer that plays the file, each call's result checked. Shared by the test
 * that plays the file and the tests that record it. */
#ifndef TETHERHOST_TESTS_JTAGSCANSESSION_H
#define TETHERHOST_TESTS_JTAGSCANSESSION_H

#include <memory>

#include "MessageLog.h"
#include "ScriptedPeer.h"

namespace tetherhost::test {

/** Makes the session; the peer, finished, for what it received. The
 * messages posted go to `log` when one is given. */
std::unique_ptr<ScriptedPeer> playJtagScanSession(const MessageLog* log = nullptr);

}  // namespace tetherhost::test

#endif

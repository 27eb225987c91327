// SPDX-License-Identifier: MIT
/* A host's whole session played from a conversation file: the library's
 * calls against tests/data/conversations/jtag-scan-session.jsonl, byte for
 * byte, with the values each call returns and the scan data it brings back. */
#include <gtest/gtest.h>

#include "Conversation.h"
#include "JtagScanSession.h"

namespace {

using namespace tetherhost::test;

TEST(RecordedSession, AJtagScanSessionSendsExactlyTheRecordedBytes) {
    const auto peer = playJtagScanSession();
    EXPECT_EQ(peer->received(), clientBytes(conversationNamed("jtag-scan-session")));
}

}  // namespace

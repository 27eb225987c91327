// SPDX-License-Identifier: MIT
/* The tests' own conversation files, found by name. */
#include "Conversation.h"

namespace tetherhost::test {

Conversation conversationNamed(const std::string& name) {
    return readConversation(std::string(TETHERHOST_CONVERSATIONS) + "/" + name + ".jsonl");
}

}  // namespace tetherhost::test

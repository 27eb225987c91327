// SPDX-License-Identifier: MIT
/* Conversation: what a scripted peer plays, kept as a data file of JSON Lines
 * (docs/conversations.md), one object per socket call as the client sees it.
 * The files are read by protocol/Recording, the reader the simulator's
 * --replay uses as well; the tests call its steps a conversation, and find
 * their own files under tests/data/conversations by name. */
#ifndef TETHERHOST_TESTS_CONVERSATION_H
#define TETHERHOST_TESTS_CONVERSATION_H

#include <string>

#include "protocol/Recording.h"

namespace tetherhost::test {

using ConversationStep = protocol::RecordedStep;
using Conversation = protocol::RecordedSteps;

/** The conversation in `text`; throws std::runtime_error "origin:line: what"
 * at the first line it cannot take. */
inline Conversation parseConversation(const std::string& text, const std::string& origin) {
    return protocol::parseRecording(text, origin);
}

/** The conversation in the file at `path` (the same errors, and one for a
 * file that cannot be read). */
inline Conversation readConversation(const std::string& path) { return protocol::readRecording(path); }

/** The conversation kept as tests/data/conversations/`name`.jsonl. */
Conversation conversationNamed(const std::string& name);

/* clientBytes(conversation): every byte the client sends, in order
 * (any-value sends excluded). */
using protocol::clientBytes;

}  // namespace tetherhost::test

#endif

/* Conversation: what a scripted peer plays, kept as a data file of JSON Lines
 * (docs/conversations.md), one object per socket call as the client sees it:
 *
 *   {"dir": "send", "text": "44\u0000"}   the client sends these bytes
 *   {"dir": "recv", "hex": "2b00"}        the client receives these bytes
 *   {"dir": "send", "any": 3}             the client sends 3 bytes, any value
 *   {"close": true}                       the peer closes the connection
 *   {"accept": true}                      a listening peer takes the next one
 *   {"note": "..."}                       a comment
 *
 * A line may also carry what a recording of a real session holds ("conn",
 * "client", "ret", "t"), which a script ignores, so a recording plays as it
 * stands. Any other key, or a line that is not one of these forms, is an
 * error naming the file and line. */
#ifndef TETHERHOST_TESTS_CONVERSATION_H
#define TETHERHOST_TESTS_CONVERSATION_H

#include <cstddef>
#include <string>
#include <vector>

namespace tetherhost::test {

struct ConversationStep {
    enum class Kind { ClientSends, ClientSendsAny, ClientReceives, Close, Accept };
    Kind kind;
    std::string bytes;      // ClientSends, ClientReceives
    std::size_t count = 0;  // ClientSendsAny
};

using Conversation = std::vector<ConversationStep>;

/** The conversation in `text`; throws std::runtime_error "origin:line: what"
 * at the first line it cannot take. */
Conversation parseConversation(const std::string& text, const std::string& origin);

/** The conversation in the file at `path` (the same errors, and one for a
 * file that cannot be read). */
Conversation readConversation(const std::string& path);

/** The conversation kept as tests/data/conversations/`name`.jsonl. */
Conversation conversationNamed(const std::string& name);

/** Every byte the client sends in `conversation`, in order (any-value sends
 * excluded). */
std::string clientBytes(const Conversation& conversation);

}  // namespace tetherhost::test

#endif

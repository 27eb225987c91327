// SPDX-License-Identifier: MIT
/* Reading conversations from JSON Lines: each form of line, the keys a
 * recording adds, the errors with their file and line, and a conversation
 * played by the scripted peer on a socketpair. */
#include "Conversation.h"
#include "PeerTestHelpers.h"
#include "ScriptedPeer.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace tetherhost::test {
namespace {

using namespace std::string_literals;
using Kind = ConversationStep::Kind;

Conversation parsed(const std::string& text) { return parseConversation(text, "talk.jsonl"); }

std::string errorOf(const std::string& text) {
    try {
        parsed(text);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "no error";
}

TEST(Conversation, EachFormOfLineIsAStepAndNotesAreNone) {
    const Conversation steps = parsed(R"({"note": "the introduction"})"
                                      "\n"
                                      R"({"dir": "send", "text": "board1\u0000"})"
                                      "\n"
                                      R"({"dir": "recv", "hex": "2B00"})"
                                      "\n"
                                      R"({"dir": "send", "any": 3})"
                                      "\n\n"
                                      R"({"close": true})"
                                      "\n"
                                      R"({"accept": true})"
                                      "\n");
    ASSERT_EQ(steps.size(), 5U);
    EXPECT_EQ(steps[0].kind, Kind::ClientSends);
    EXPECT_EQ(steps[0].bytes, "board1\0"s);
    EXPECT_EQ(steps[1].kind, Kind::ClientReceives);
    EXPECT_EQ(steps[1].bytes, "+\0"s);
    EXPECT_EQ(steps[2].kind, Kind::ClientSendsAny);
    EXPECT_EQ(steps[2].count, 3U);
    EXPECT_EQ(steps[3].kind, Kind::Close);
    EXPECT_EQ(steps[4].kind, Kind::Accept);
}

TEST(Conversation, ARecordingsOwnKeysAreIgnored) {
    const Conversation steps =
        parsed(R"({"conn": "4711-1", "client": "board1", "dir": "send", "text": "38\u0000", "ret": 3, "t": 0.25})");
    ASSERT_EQ(steps.size(), 1U);
    EXPECT_EQ(steps[0].bytes, "38\0"s);
}

TEST(Conversation, ClientBytesAreTheSendsInOrder) {
    const Conversation steps = parsed(R"({"dir": "send", "text": "a"})"
                                      "\n"
                                      R"({"dir": "recv", "text": "x"})"
                                      "\n"
                                      R"({"dir": "send", "any": 2})"
                                      "\n"
                                      R"({"dir": "send", "hex": "6200"})");
    EXPECT_EQ(clientBytes(steps), "ab\0"s);
}

TEST(Conversation, ErrorsNameTheFileAndTheLine) {
    EXPECT_EQ(errorOf("{\"note\": \"ok\"}\n{\"dir\": \"sideways\", \"text\": \"a\"}"),
              "talk.jsonl:2: \"dir\" is \"send\" or \"recv\"");
    EXPECT_EQ(errorOf(R"({"dir": "send", "txt": "a"})"), "talk.jsonl:1: unknown key \"txt\"");
    EXPECT_EQ(errorOf(R"({"dir": "send"})"), "talk.jsonl:1: a \"dir\" line needs one of \"text\" and \"hex\"");
    EXPECT_EQ(errorOf(R"({"dir": "send", "text": "a", "hex": "61"})"),
              "talk.jsonl:1: a \"dir\" line needs one of \"text\" and \"hex\"");
    EXPECT_EQ(errorOf(R"({"dir": "recv", "hex": "6"})"), "talk.jsonl:1: \"hex\" needs two digits per byte");
    EXPECT_EQ(errorOf(R"({"dir": "recv", "hex": "zz"})"),
              "talk.jsonl:1: \"hex\" holds a character that is not a hex digit");
    EXPECT_EQ(errorOf(R"({"dir": "recv", "any": 2})"), "talk.jsonl:1: \"any\" is for what the client sends");
    EXPECT_EQ(errorOf(R"({"dir": "send", "any": 0})"), "talk.jsonl:1: \"any\" is a positive byte count");
    EXPECT_EQ(errorOf(R"({"close": false})"), "talk.jsonl:1: \"close\" must be true");
    EXPECT_EQ(errorOf(R"({"close": true, "note": "x"})"),
              "talk.jsonl:1: a line holds exactly one of \"dir\", \"close\", \"accept\", \"note\"");
    EXPECT_EQ(errorOf("[1, 2]"), "talk.jsonl:1: a line must be one JSON object");
    EXPECT_NE(errorOf("{\"dir\": "), "no error");
    EXPECT_EQ(errorOf("{\"dir\": ").rfind("talk.jsonl:1: ", 0), 0U);
}

TEST(Conversation, AFileThatCannotBeReadIsNamed) {
    EXPECT_THROW(readConversation("/nonexistent/talk.jsonl"), std::runtime_error);
    try {
        readConversation("/nonexistent/talk.jsonl");
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "/nonexistent/talk.jsonl: cannot be read");
    }
}

TEST(Conversation, ThePeerPlaysItOnASocketPair) {
    auto peer = ScriptedPeer::onSocketPair();
    peer->play(parsed(R"({"dir": "send", "text": "38\u0000"})"
                      "\n"
                      R"({"dir": "recv", "text": "+\u0000"})"
                      "\n"
                      R"({"dir": "send", "any": 2})"
                      "\n"
                      R"({"dir": "recv", "text": "0\u0000"})"));
    peer->start();
    const int client = peer->clientSocket();
    ASSERT_TRUE(sendBytes(client, "38\0"s));
    EXPECT_EQ(receiveOnce(client), "+\0"s);
    ASSERT_TRUE(sendBytes(client, "+\0"s));
    EXPECT_EQ(receiveOnce(client), "0\0"s);
    EXPECT_TRUE(peer->finish()) << peer->failure();
    EXPECT_EQ(peer->received(), "38\0+\0"s);
}

TEST(Conversation, ThePeerFailsOnBytesTheConversationDoesNotHold) {
    auto peer = ScriptedPeer::onSocketPair();
    peer->play(parsed(R"({"dir": "send", "text": "38\u0000"})"));
    peer->start();
    ASSERT_TRUE(sendBytes(peer->clientSocket(), "39\0"s));
    EXPECT_FALSE(peer->finish());
    EXPECT_EQ(peer->failure(), R"(step 1 of 1 (expect "38\0"): received "39\0")");
}

}  // namespace
}  // namespace tetherhost::test

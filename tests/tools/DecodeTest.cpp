// SPDX-License-Identifier: MIT
/* How tetherctl decode names a conversation: each client item by its
 * command, sub-command and argument, each server answer by what it answers
 * (acknowledgement, lock verdict, status, read-back, reply), protocol errors
 * noted; and a simulator trace read back into the same lines. */
#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "protocol/DecodedConversation.h"
#include "protocol/Recording.h"
#include "tools/TraceLines.h"

namespace {

using tetherhost::protocol::decodeConnection;
using tetherhost::protocol::DecodedLine;
using tetherhost::protocol::parseRecording;
using tetherhost::protocol::splitConnections;
using Side = DecodedLine::Side;

/* Each line as "<side> <command> <item> <length> (<note>)". */
std::vector<std::string> shown(const std::vector<DecodedLine>& lines) {
    std::vector<std::string> result;
    for (const DecodedLine& line : lines) {
        const char side = line.side == Side::Client ? '<' : line.side == Side::Server ? '>' : '=';
        std::string text =
            std::string(1, side) + " " + line.command + " " + line.item + " " + std::to_string(line.length);
        if (!line.note.empty()) text += " (" + line.note + ")";
        result.push_back(text);
    }
    return result;
}

std::vector<DecodedLine> decoded(const std::string& recording) {
    const auto connections = splitConnections(parseRecording(recording, "test"));
    EXPECT_EQ(connections.size(), 1u);
    return connections.empty() ? std::vector<DecodedLine>{} : decodeConnection(connections.front());
}

/* A client's introduction and a JTAG shift of `bits` bits with an expected
 * block, every frame acknowledged, up to its go token: the recording lines
 * (`tdi` in hex, with the zero byte that follows a whole block). */
std::string shiftUpToItsGo(const std::string& name, int bits, const std::string& tdi) {
    const auto line = [](const std::string& dir, const std::string& kind, const std::string& value) {
        return "{\"dir\":\"" + dir + "\",\"" + kind + "\":\"" + value + "\"}\n";
    };
    const std::string nul = "\\u0000";
    std::string recording;
    const auto acknowledgedSend = [&](const std::string& kind, const std::string& value) {
        recording += line("send", kind, value);
        recording += line("recv", "text", "+" + nul);
    };
    for (const std::string& frame : {name, std::string("44"), std::string("12"), std::string("0"), std::to_string(bits),
                                     std::string("1"), std::string("0")})
        acknowledgedSend("text", frame + nul);
    for (const std::string& block : {tdi, std::string("0000")}) acknowledgedSend("hex", block);
    return recording + line("send", "text", "+" + nul);
}

TEST(Decode, AJtagShiftIsToldItemByItemWithItsStatusAndTdo) {
    const std::vector<DecodedLine> lines =
        decoded(shiftUpToItsGo("board1", 6, "3f00") + R"({"dir":"recv","text":"0\u0000"}
{"dir":"recv","hex":"38"}
{"dir":"send","text":"+\u0000"}
{"dir":"recv","text":"0\u0000"}
)");
    EXPECT_EQ(shown(lines), (std::vector<std::string>{
                                "< - name 7",
                                "> - answer 2",
                                "< 44 command 3 (JTAG interface)",
                                "> 44 answer 2",
                                "< 44 sub-command 3 (JTAG shift)",
                                "> 44/12 ack 2",
                                "< 44/12 flags 2",
                                "> 44/12 ack 2",
                                "< 44/12 bits 2",
                                "> 44/12 ack 2",
                                "< 44/12 second 2",
                                "> 44/12 ack 2",
                                "< 44/12 third 2",
                                "> 44/12 ack 2",
                                "< 44/12 tdi 2",
                                "> 44/12 answer 2",
                                "< 44/12 expected 2",
                                "> 44/12 answer 2",
                                "< 44/12 go 2",
                                "> 44/12 status 2 (done)",
                                "> 44/12 read-back 1 (TDO)",
                                "< 44/12 request 2",
                                "> 44/12 reply 2 (done)",
                            }));
    EXPECT_TRUE(lines[14].bytes == std::string("\x3f\0", 2) && !lines[14].token);
    EXPECT_EQ(lines[20].bytes, "\x38");
}

TEST(Decode, AStatusThatBringsTheReadBackInItsReceiveIsSplitInTwo) {
    const std::vector<DecodedLine> lines = decoded(shiftUpToItsGo("n", 8, "a500") + R"({"dir":"recv","hex":"2d350081"}
)");
    ASSERT_EQ(lines.size(), 21u);
    EXPECT_EQ(lines[19].item, "status");
    EXPECT_EQ(lines[19].bytes, std::string("-5\0", 3));
    EXPECT_EQ(lines[19].note, "tooLong");
    EXPECT_EQ(lines[20].item, "read-back");
    EXPECT_EQ(lines[20].bytes, "\x81");
    EXPECT_EQ(lines[20].note, "TDO");
}

TEST(Decode, ARefusedLockAndAnAnswerThatIsNoAcknowledgementAreNamed) {
    const std::vector<DecodedLine> lines = decoded(R"({"dir":"send","text":"n\u0000"}
{"dir":"recv","text":"+\u0000"}
{"dir":"send","text":"33\u0000"}
{"dir":"recv","text":"+\u0000"}
{"dir":"send","text":"+\u0000"}
{"dir":"recv","text":"0\u0000"}
{"dir":"send","text":"5\u0000"}
{"dir":"recv","text":"+\u0000"}
{"dir":"send","text":"7\u0000"}
{"dir":"recv","text":"-\u0000"}
{"close":true}
)");
    EXPECT_EQ(shown(lines), (std::vector<std::string>{
                                "< - name 2",
                                "> - answer 2",
                                "< 33 command 3 (command lock)",
                                "> 33 answer 2",
                                "< 33 lock 2",
                                "> 33 lock 2 (refused)",
                                "< 5 command 2",
                                "> 5 answer 2",
                                "< 5 arg 2",
                                "> 5 ack 2 (not an acknowledgement)",
                                "= 5 closed 32",
                            }));
}

TEST(Decode, AChunkedTransferNamesEachChunkItsAcknowledgementsAndTheGoTokens) {
    // An SSPI write and read of 1025 bytes: two chunks, read back in two.
    std::string recording = R"({"dir":"send","text":"n\u0000"}
{"dir":"recv","text":"+\u0000"}
{"dir":"send","text":"52\u0000"}
{"dir":"recv","text":"+\u0000"}
{"dir":"send","text":"0\u0000"}
{"dir":"recv","text":"+\u0000"}
{"dir":"send","text":"8200\u0000"}
{"dir":"recv","text":"+\u0000"}
{"dir":"send","text":"0\u0000"}
{"dir":"recv","text":"+\u0000"}
)";
    const std::string fullChunk = "{\"dir\":\"send\",\"hex\":\"" + std::string(2048, 'a') + "\"}\n";
    recording += fullChunk + "{\"dir\":\"recv\",\"text\":\"+\\u0000\"}\n";
    recording += "{\"dir\":\"send\",\"hex\":\"bb\"}\n{\"dir\":\"recv\",\"text\":\"+\\u0000\"}\n";
    recording += "{\"dir\":\"recv\",\"hex\":\"" + std::string(2048, 'c') + "\"}\n";
    recording += "{\"dir\":\"send\",\"text\":\"+\\u0000\"}\n{\"dir\":\"recv\",\"hex\":\"dd\"}\n";
    recording += "{\"dir\":\"send\",\"text\":\"+\\u0000\"}\n";
    recording += "{\"dir\":\"send\",\"text\":\"+\\u0000\"}\n{\"dir\":\"recv\",\"text\":\"0\\u0000\"}\n";
    const std::vector<DecodedLine> lines = decoded(recording);
    const std::vector<std::string> all = shown(lines);
    EXPECT_EQ(std::vector<std::string>(all.begin() + 10, all.end()), (std::vector<std::string>{
                                                                         "< 52 data chunk 1 1024",
                                                                         "> 52 ack 2",
                                                                         "< 52 data chunk 2 1",
                                                                         "> 52 ack 2",
                                                                         "> 52 read-back 1024",
                                                                         "< 52 go 2",
                                                                         "> 52 read-back 1",
                                                                         "< 52 go 2",
                                                                         "< 52 request 2",
                                                                         "> 52 reply 2 (done)",
                                                                     }));
}

TEST(Trace, ItsLinesBecomeTheSameNamedLinesPerConnection) {
    std::istringstream trace(R"(0.000100 c1 - = - event "connected"
0.000200 c1 - < - name "board\x201" 8
0.000300 c1 board\x201 > - answer "+" 2
0.000400 c1 board\x201 < 33 command "33" 3
0.000500 c2 - < - name "other" 6
0.000600 c1 board\x201 > 33 lock "0" 2
0.000700 c1 board\x201 < 44/12 tdi 2
)");
    const std::vector<tetherctl::DecodedConnection> connections = tetherctl::readTrace(trace, "trace");
    ASSERT_EQ(connections.size(), 2u);
    EXPECT_EQ(connections[0].name, "c1");
    EXPECT_EQ(connections[0].client, "board 1");
    EXPECT_EQ(shown(connections[0].lines), (std::vector<std::string>{
                                               "= - event 9",
                                               "< - name 8",
                                               "> - answer 2",
                                               "< 33 command 3 (command lock)",
                                               "> 33 lock 2 (refused)",
                                               "< 44/12 tdi 2",
                                           }));
    EXPECT_EQ(connections[0].lines[1].bytes, std::string("board 1\0", 8));
    EXPECT_EQ(connections[0].lines[1].line, 2);
    EXPECT_EQ(connections[1].client, "other");
}

TEST(Trace, ALineThatIsNoTraceLineIsRefusedWithItsNumber) {
    std::istringstream trace("0.1 c1 - < - name \"a\" 2\nnot a trace line\n");
    try {
        tetherctl::readTrace(trace, "t.txt");
        ADD_FAILURE() << "accepted";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "t.txt:2: not a line of a tetherhost trace");
    }
}

}  // namespace

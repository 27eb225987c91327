// SPDX-License-Identifier: MIT
/* What a replay reads from a recording before any client comes: the
 * connections of a file in order of their first line (interleaved ones
 * apart, "accept" ending one), each step's line; which command each client
 * byte belongs to; and how a report shows bytes. */
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "protocol/Recording.h"
#include "protocol/RecordedCommands.h"
#include "server/Replay.h"

namespace tetherhost::sim {
namespace {

using namespace std::string_literals;
using protocol::ClientItem;
using protocol::RecordedCommands;
using protocol::RecordedStep;
using Kind = RecordedStep::Kind;
using Role = ClientItem::Role;

/* The item that holds the first byte of `needle` in `bytes`. */
ClientItem itemAt(const RecordedCommands& commands, const std::string& bytes, const std::string& needle,
                  std::size_t from = 0) {
    const std::size_t at = bytes.find(needle, from);
    EXPECT_NE(at, std::string::npos) << needle;
    return commands.at(at);
}

TEST(RecordedConnections, InterleavedConnectionsAreSplitInTheOrderOfTheirFirstLine) {
    const protocol::RecordedSteps steps =
        protocol::parseRecording(R"({"conn": "b-1", "dir": "send", "text": "one\u0000"})"
                                 "\n"
                                 R"({"note": "a comment"})"
                                 "\n"
                                 R"({"conn": "a-1", "dir": "send", "text": "two\u0000"})"
                                 "\n"
                                 R"({"conn": "b-1", "dir": "recv", "text": "+\u0000"})"
                                 "\n"
                                 R"({"conn": "a-1", "close": true, "ret": 0, "t": 1.5})"
                                 "\n",
                                 "mixed.jsonl");
    ASSERT_EQ(steps.size(), 4U);
    EXPECT_EQ(steps[0].connection, "b-1");
    EXPECT_EQ(steps[0].line, 1);
    EXPECT_EQ(steps[1].line, 3);
    const auto connections = protocol::splitConnections(steps);
    ASSERT_EQ(connections.size(), 2U);
    EXPECT_EQ(connections[0].name, "b-1");
    ASSERT_EQ(connections[0].steps.size(), 2U);
    EXPECT_EQ(connections[0].steps[1].bytes, "+\0"s);
    EXPECT_EQ(connections[0].steps[1].line, 4);
    EXPECT_EQ(connections[1].name, "a-1");
    ASSERT_EQ(connections[1].steps.size(), 2U);
    EXPECT_EQ(connections[1].steps[1].kind, Kind::Close);
}

TEST(RecordedConnections, AnAcceptEndsItsConnectionWithACloseAndStartsTheNext) {
    const auto connections = protocol::splitConnections(protocol::parseRecording(R"({"dir": "send", "text": "1\u0000"})"
                                                                                 "\n"
                                                                                 R"({"accept": true})"
                                                                                 "\n"
                                                                                 R"({"dir": "send", "text": "2\u0000"})"
                                                                                 "\n",
                                                                                 "script.jsonl"));
    ASSERT_EQ(connections.size(), 2U);
    ASSERT_EQ(connections[0].steps.size(), 2U);
    EXPECT_EQ(connections[0].steps[1].kind, Kind::Close);
    ASSERT_EQ(connections[1].steps.size(), 1U);
    EXPECT_EQ(connections[1].steps[0].bytes, "2\0"s);
    EXPECT_EQ(connections[1].steps[0].line, 3);
}

TEST(RecordedConnections, AConnectionNameThatIsNoTextIsAnErrorOfItsLine) {
    try {
        protocol::parseRecording(
            "\n"
            R"({"conn": 7, "dir": "send", "text": "x"})",
            "bad.jsonl");
        FAIL() << "no error";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(std::string(error.what()), R"(bad.jsonl:2: "conn" must be a string)");
    }
}

TEST(RecordedCommands, EachByteOfARecordedSessionBelongsToItsCommand) {
    const std::string bytes =
        protocol::clientBytes(protocol::readRecording(TETHERHOST_CONVERSATIONS "/jtag-scan-session.jsonl"));
    const RecordedCommands commands(bytes);
    EXPECT_EQ(commands.clientName(), "board1");
    EXPECT_EQ(commands.at(0).role, Role::Introduction);

    const ClientItem lock = itemAt(commands, bytes, "+\0"s);
    EXPECT_EQ(lock.role, Role::LockRequest);
    EXPECT_EQ(lock.command, 4);

    const std::size_t scan = bytes.find("44\0"s);
    const ClientItem frame = commands.at(scan);
    EXPECT_EQ(frame.role, Role::CommandFrame);
    EXPECT_EQ(frame.describe(), "command 44 (JTAG interface), its command frame");
    const ClientItem bits = itemAt(commands, bytes, "6\0"s, scan);
    EXPECT_EQ(bits.label(), "44/12");
    EXPECT_EQ(bits.item, "bits");
    EXPECT_EQ(bits.describe(), "command 44 (JTAG interface), sub-command 12 (JTAG shift), bits");
    const ClientItem tdi = itemAt(commands, bytes, "\x3f\0"s, scan);
    EXPECT_EQ(tdi.item, "tdi");
    EXPECT_EQ(tdi.length, 2U);
    const ClientItem go = commands.at(tdi.begin + 4);
    EXPECT_EQ(go.item, "go");
    EXPECT_EQ(commands.at(go.begin + 2).item, "request");
    EXPECT_EQ(commands.at(go.begin + 2).label(), "44/12");

    const ClientItem farewell = itemAt(commands, bytes, "9999\0"s);
    EXPECT_EQ(farewell.describe(), "command 9999 (farewell), its command frame");
    // The items cover every byte, in order.
    std::size_t next = 0;
    for (const ClientItem& item : commands.items()) {
        EXPECT_EQ(item.begin, next);
        next += item.length;
    }
    EXPECT_EQ(next, bytes.size());
    EXPECT_EQ(commands.at(bytes.size()).item, "beyond the recording");
}

TEST(RecordedCommands, ChunksAreNamedByTheirBlockAndNumber) {
    // A 10000-bit JTAG shift travels in two 1024-byte chunks per block.
    const std::string chunks(std::size_t{2} * 1024, '\x5a');
    const std::string bytes =
        "host\0"
        "44\0"
        "12\0"
        "0\0"
        "10000\0"
        "1\0"
        "0\0"s +
        chunks + chunks + "+\0+\0"s + "38\0"s;
    const RecordedCommands commands(bytes);
    const std::size_t firstBlock = bytes.find(chunks);
    EXPECT_EQ(commands.at(firstBlock + 1500).item, "tdi chunk 2");
    EXPECT_EQ(commands.at(firstBlock + 2048 + 10).item, "expected chunk 1");
    const ClientItem next = commands.at(bytes.size() - 3);
    EXPECT_EQ(next.role, Role::CommandFrame);
    EXPECT_EQ(next.label(), "38");
}

TEST(RecordedCommands, BytesThatAreNoCommandAreUnexplained) {
    const std::string bytes =
        "host\0"
        "hello\0"
        "44\0"s;
    const RecordedCommands commands(bytes);
    EXPECT_EQ(commands.at(6).role, Role::Unexplained);
    EXPECT_EQ(commands.at(bytes.size() - 1).role, Role::Unexplained);
    EXPECT_EQ(commands.at(6).describe(), "bytes the protocol does not account for");
}

TEST(ReplayReport, BytesAreShownPrintableWithNulAsBackslashZero) {
    EXPECT_EQ(shownBytes("8\0"s), R"("8\0")");
    EXPECT_EQ(shownBytes("a\"b\\\x01\xff"s), R"("a\"b\\\x01\xff")");
    EXPECT_EQ(comparedBytes("96\0"s, "64\0"s, 0), R"(expected "96\0", received "64\0")");
    EXPECT_EQ(comparedBytes("96\0"s, "", 0), R"(expected "96\0", received nothing)");
}

TEST(ReplayReport, LongBytesAreShownAroundTheirFirstDifference) {
    const std::string expected(100, 'a');
    std::string received = expected;
    received[50] = 'b';
    EXPECT_EQ(comparedBytes(expected, received, 50), "at byte 50 of 100: expected ...\"" + std::string(32, 'a') +
                                                         "\"..., received ...\"" + std::string(8, 'a') + "b" +
                                                         std::string(23, 'a') + "\"...");
}

}  // namespace
}  // namespace tetherhost::sim

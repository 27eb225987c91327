// SPDX-License-Identifier: MIT
/* DecodedConversation: one recorded connection told as the conversation it
 * was. Every item the client sent is named by its command, sub-command and
 * argument (RecordedCommands); every answer the server gave is named by what
 * the client had just asked for: the answer to an introduction or a command
 * frame, an acknowledgement, a lock verdict, a JTAG shift's status, read-back
 * data, a reply. tetherctl decode prints it; the same lines come from a
 * simulator trace, whose frames the simulator has named already. */
#ifndef TETHERHOST_PROTOCOL_DECODEDCONVERSATION_H
#define TETHERHOST_PROTOCOL_DECODEDCONVERSATION_H

#include <cstddef>
#include <string>
#include <vector>

#include "protocol/Recording.h"

namespace tetherhost::protocol {

struct DecodedLine {
    enum class Side { Client, Server, Event };
    Side side = Side::Event;
    std::string command;  // "44/12", "4", "-" before the first command
    std::string item;   // "name", "command", "bits", "tdi chunk 2", "ack", "lock", "status", "read-back", "reply", ...
    std::string bytes;  // what travelled: a token with its NUL, data as they were; for an event, its text
    std::size_t length = 0;  // how many bytes travelled (a trace gives data by their length only)
    bool token = false;      // `bytes` is one text and its NUL (shown as text), otherwise data (shown as hex)
    std::string note;        // what it means: a command's name, "granted", a reply's meaning, a protocol error
    int line = 0;            // its line in the recording or trace, from 1
};

/** The lines of `connection`, in the order its steps were recorded. */
std::vector<DecodedLine> decodeConnection(const RecordedConnection& connection);

/** What `item` (a command frame, a sub-command, a lock answer, a reply or a
 * status, with its token text `text`) means, or "" when there is nothing
 * to add; shared by recordings and traces so that both read alike. */
std::string noteFor(DecodedLine::Side side, const std::string& item, const std::string& text,
                    const std::string& command);

}  // namespace tetherhost::protocol

#endif

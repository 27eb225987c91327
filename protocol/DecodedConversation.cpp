// SPDX-License-Identifier: MIT
/* DecodedConversation: the client's bytes are named by RecordedCommands;
 * the server's receives take their names from the client item they answer,
 * because the server's bytes alone do not say what they are (a "0" may be a
 * lock refusal, a status or a reply). */
#include "protocol/DecodedConversation.h"

#include <algorithm>
#include <optional>

#include "protocol/Commands.h"
#include "protocol/Frames.h"
#include "protocol/RecordedCommands.h"
#include "protocol/Status.h"

namespace tetherhost::protocol {
namespace {

using Role = ClientItem::Role;
using Side = DecodedLine::Side;

/* One text and its NUL, as a token travels. */
bool isToken(const std::string& bytes) {
    if (bytes.empty() || bytes.back() != '\0') return false;
    return std::all_of(bytes.begin(), bytes.end() - 1, [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return (byte >= 0x20 && byte < 0x7F) || c == '\t' || c == '\n' || c == '\r';
    });
}

std::string tokenText(const std::string& bytes) { return bytes.substr(0, bytes.find('\0')); }

bool isChunk(const ClientItem& item) { return item.item.find("chunk") != std::string::npos; }

/* What a server receive is, from the client item it answers, whether the
 * client sent anything since the last receive, and whether the command's
 * status (the answer to a JTAG shift's first go token) has come. The names
 * are the ones the simulator's trace gives the same frames. */
std::string serverItem(const std::optional<ClientItem>& asked, bool sentSince, bool statusCame,
                       const std::string& bytes) {
    if (!asked) return "answer";
    const bool acknowledgement = bytes == std::string_view(plusFrame);
    // Two receives in a row: read-back after a status or a block, or the
    // extra acknowledgement that ends a chunked block without read-back.
    if (!sentSince) return acknowledgement && isChunk(*asked) ? "ack" : "read-back";
    switch (asked->role) {
    case Role::Introduction:
    case Role::CommandFrame:
    case Role::Unexplained: return "answer";
    case Role::LockRequest: return "lock";
    case Role::Request:
        if (asked->item == "go") return statusCame || !asked->hasSub ? "read-back" : "status";
        return isToken(bytes) ? "reply" : "read-back";
    case Role::Argument: break;
    }
    if (!isToken(bytes)) return "read-back";
    // Blocks are answered, chunks and argument frames acknowledged.
    return asked->raw && !isChunk(*asked) ? "answer" : "ack";
}

class Decoder {
public:
    explicit Decoder(const RecordedConnection& connection)
        : connection(connection), sent(clientBytes(connection.steps)), commands(sent) {}

    std::vector<DecodedLine> run() {
        for (const RecordedStep& step : connection.steps) {
            switch (step.kind) {
            case RecordedStep::Kind::ClientSends: clientSends(step); break;
            case RecordedStep::Kind::ClientSendsAny:
                add({.side = Side::Client,
                     .command = label(),
                     .item = "any",
                     .bytes = {},
                     .length = step.count,
                     .note = std::to_string(step.count) + " bytes of any value",
                     .line = step.line});
                sentSince = true;
                break;
            case RecordedStep::Kind::ClientReceives: serverSends(step); break;
            case RecordedStep::Kind::Close: event("closed", "the server closed the connection", step.line); break;
            case RecordedStep::Kind::Accept: event("accept", "the server took the next connection", step.line); break;
            }
        }
        return std::move(lines);
    }

private:
    void add(DecodedLine line) { lines.push_back(std::move(line)); }

    void event(const char* item, const char* text, int line) {
        DecodedLine decoded;
        decoded.side = Side::Event;
        decoded.command = label();
        decoded.item = item;
        decoded.bytes = text;
        decoded.length = decoded.bytes.size();
        decoded.line = line;
        add(std::move(decoded));
    }

    std::string label() const { return asked ? asked->label() : "-"; }

    /* Each client item that starts in this send is one line; an item that
     * runs on into the next send is shown where it starts. */
    void clientSends(const RecordedStep& step) {
        const std::size_t end = offset + step.bytes.size();
        for (const ClientItem& item : commands.items()) {
            if (item.begin < offset || item.begin >= end) continue;
            const std::string bytes = sent.substr(item.begin, item.length);
            const bool token = !item.raw && isToken(bytes);
            if (item.role == Role::CommandFrame) statusCame = false;
            // The sub-command's frame belongs to its command until it has
            // been read, as the simulator's trace shows it.
            const std::string command = item.item == "sub-command" ? std::to_string(item.command) : item.label();
            add({.side = Side::Client,
                 .command = command,
                 .item = item.role == Role::Unexplained ? "unexplained" : item.item,
                 .bytes = bytes,
                 .length = bytes.size(),
                 .token = token,
                 .note = token ? noteFor(Side::Client, item.item, tokenText(bytes), command) : std::string(),
                 .line = step.line});
        }
        offset = end;
        if (offset > 0) asked = commands.at(offset - 1);
        sentSince = true;
    }

    void serverSends(const RecordedStep& step) {
        const std::string item = serverItem(asked, sentSince, statusCame, step.bytes);
        sentSince = false;
        if (item == "status") statusCame = true;
        std::string bytes = step.bytes;
        std::string carried;
        // The status of a JTAG shift may bring the read-back behind its NUL
        // in the same receive.
        if (item == "status") {
            if (const std::size_t nul = bytes.find('\0'); nul != std::string::npos && nul + 1 < bytes.size()) {
                carried = bytes.substr(nul + 1);
                bytes.resize(nul + 1);
            }
        }
        const bool token = item != "read-back" && isToken(bytes);
        add({.side = Side::Server,
             .command = label(),
             .item = item,
             .bytes = bytes,
             .length = bytes.size(),
             .token = token,
             .note = item == "read-back" ? readBackNote()
                                         : noteFor(Side::Server, item, token ? tokenText(bytes) : bytes, label()),
             .line = step.line});
        if (!carried.empty())
            add({.side = Side::Server,
                 .command = label(),
                 .item = "read-back",
                 .bytes = carried,
                 .length = carried.size(),
                 .note = readBackNote(),
                 .line = step.line});
    }

    std::string readBackNote() const {
        return asked && asked->hasSub && asked->sub == sub::jtagShift ? "TDO" : std::string();
    }

    const RecordedConnection& connection;
    std::string sent;
    RecordedCommands commands;
    std::vector<DecodedLine> lines;
    std::size_t offset = 0;           // client bytes decoded so far
    std::optional<ClientItem> asked;  // the client item the server answers next
    bool sentSince = true;            // the client sent something since the last receive
    bool statusCame = false;          // the command's JTAG shift status has been received
};

std::string replyMeaning(int value) {
    if (value == reply::done) return "done";
    for (const Code& code : serverReplies)
        if (code.number == value) return code.name;
    return {};
}

}  // namespace

std::vector<DecodedLine> decodeConnection(const RecordedConnection& connection) { return Decoder(connection).run(); }

std::string noteFor(Side side, const std::string& item, const std::string& text, const std::string& command) {
    const std::optional<int> number = parseInt(text);
    if (side == Side::Client && item == "command") {
        const char* name = number ? commandName(*number) : nullptr;
        return name ? name : "";
    }
    if (side == Side::Client && item == "sub-command") {
        const char* name = number ? subCommandName(*number) : nullptr;
        return name ? name : "";
    }
    if (side != Side::Server) return {};
    if (item == "lock") {
        if (text == "1") return "granted";
        if (text == "0") return "refused";
        return "neither granted nor refused";
    }
    if (item == "ack") return !text.empty() && text[0] == plus ? "" : "not an acknowledgement";
    if ((item == "reply" || item == "status") && number) return replyMeaning(*number);
    if (item == "reply" && command == std::to_string(command::statusReport)) return "the server's status report";
    return {};
}

}  // namespace tetherhost::protocol

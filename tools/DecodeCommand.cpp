// SPDX-License-Identifier: MIT
/* tetherctl decode: a recording (TETHERHOST_RECORD) or a simulator trace
 * printed as the conversation it holds, connection by connection: who sent
 * what, named by command, sub-command and argument, with the server's
 * answers, lock verdicts, statuses, replies and TDO. It needs no server. */
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "protocol/DecodedConversation.h"
#include "protocol/Recording.h"
#include "tools/Commands.h"
#include "tools/Failure.h"
#include "tools/TraceLines.h"

namespace tetherctl {
namespace {

namespace protocol = tetherhost::protocol;
using protocol::DecodedLine;
using Side = DecodedLine::Side;

/* Data are shown by their first bytes. */
constexpr std::size_t shownDataBytes = 16;

std::string readWhole(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw UsageError(path + ": cannot be read");
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

/* A recording is JSON Lines; a trace line starts with its time. */
bool isRecording(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    return first != std::string::npos && text[first] == '{';
}

std::vector<DecodedConnection> fromRecording(const std::string& text, const std::string& origin) {
    std::vector<DecodedConnection> connections;
    for (const protocol::RecordedConnection& recorded :
         protocol::splitConnections(protocol::parseRecording(text, origin))) {
        DecodedConnection connection{
            .name = recorded.name, .client = {}, .lines = protocol::decodeConnection(recorded)};
        for (const DecodedLine& line : connection.lines)
            if (line.side == Side::Client && line.item == "name") {
                connection.client = line.bytes.substr(0, line.bytes.find('\0'));
                break;
            }
        connections.push_back(std::move(connection));
    }
    return connections;
}

const char* sideName(Side side) {
    switch (side) {
    case Side::Client: return "client";
    case Side::Server: return "server";
    case Side::Event: return "event";
    }
    return "";
}

char direction(Side side) {
    switch (side) {
    case Side::Client: return '<';
    case Side::Server: return '>';
    case Side::Event: return '=';
    }
    return ' ';
}

/* A text as a line shows it: quoted, escaped so that it stays on one line. */
std::string quoted(const std::string& text) {
    std::string shown = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            shown += '\\';
            shown += c;
        } else if (byte < 0x20 || byte >= 0x7F) {
            static constexpr char digits[] = "0123456789abcdef";
            shown += "\\x";
            shown += digits[byte >> 4];
            shown += digits[byte & 0xF];
        } else {
            shown += c;
        }
    }
    return shown + "\"";
}

std::string hexOf(const std::string& bytes, std::size_t limit) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string hex;
    for (std::size_t i = 0; i < bytes.size() && i < limit; ++i) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        hex += digits[byte >> 4];
        hex += digits[byte & 0xF];
    }
    return hex;
}

/* The value column: a token's text, the first bytes of data, an event's
 * text; a trace gives data by their length only, shown as "-". */
std::string valueOf(const DecodedLine& line) {
    if (line.side == Side::Event) return quoted(line.bytes);
    if (line.token) return quoted(line.bytes.substr(0, line.bytes.size() - 1));
    if (line.bytes.empty()) return "-";
    return hexOf(line.bytes, shownDataBytes) + (line.bytes.size() > shownDataBytes ? "..." : "");
}

std::string padded(std::string text, std::size_t width) {
    if (text.size() < width) text.resize(width, ' ');
    return text;
}

std::string textLine(const DecodedLine& line) {
    std::string text = padded(std::to_string(line.line), 6) + direction(line.side) + ' ' + padded(line.command, 8) +
                       padded(line.item, 16) + padded(valueOf(line), 28);
    if (line.side != Side::Event) text += ' ' + std::to_string(line.length) + (line.length == 1 ? " byte" : " bytes");
    if (!line.note.empty()) text += "  (" + line.note + ")";
    while (!text.empty() && text.back() == ' ') text.pop_back();
    return text;
}

Json jsonLine(const DecodedLine& line) {
    Json json;
    json["line"] = line.line;
    json["side"] = sideName(line.side);
    json["command"] = line.command;
    json["item"] = line.item;
    if (line.side == Side::Event || line.token)
        json["text"] = line.token ? line.bytes.substr(0, line.bytes.size() - 1) : line.bytes;
    else if (!line.bytes.empty())
        json["hex"] = hexOf(line.bytes, line.bytes.size());
    if (line.side != Side::Event) json["length"] = line.length;
    if (!line.note.empty()) json["note"] = line.note;
    return json;
}

}  // namespace

void runDecode(const DecodeOptions& options, Output& out) {
    const std::string text = readWhole(options.file);
    std::vector<DecodedConnection> connections;
    try {
        if (isRecording(text)) {
            connections = fromRecording(text, options.file);
        } else {
            std::istringstream in(text);
            connections = readTrace(in, options.file);
        }
    } catch (const std::runtime_error& error) {
        throw UsageError(error.what());
    }
    Json& list = out.data()["connections"];
    list = Json::Array{};
    for (std::size_t i = 0; i < connections.size(); ++i) {
        const DecodedConnection& connection = connections[i];
        if (i > 0) out.line("");
        out.line("connection " + std::to_string(i + 1) + " " + quoted(connection.name) + ", client " +
                 (connection.client.empty() ? std::string("-") : quoted(connection.client)));
        Json json;
        json["connection"] = connection.name;
        json["client"] = connection.client;
        Json& lines = json["lines"];
        lines = Json::Array{};
        for (const DecodedLine& line : connection.lines) {
            out.line(textLine(line));
            lines.push(jsonLine(line));
        }
        list.push(std::move(json));
    }
}

}  // namespace tetherctl

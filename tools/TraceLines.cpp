// SPDX-License-Identifier: MIT
/* TraceLines: the trace's line is
 *   <seconds> c<connection> <client> <direction> <command> <item> <rest>
 * where rest is "<text>" <length> for a text frame, <length> for data, and
 * "<text>" for an event. */
#include "tools/TraceLines.h"

#include <cctype>
#include <map>
#include <sstream>
#include <stdexcept>

namespace tetherctl {
namespace {

using tetherhost::protocol::DecodedLine;
using Side = DecodedLine::Side;

/* A C-escaped text as the trace writes it (\\, \", \xNN), unescaped. */
std::string unescaped(const std::string& text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 >= text.size()) {
            result += text[i];
            continue;
        }
        const char next = text[++i];
        if (next == 'x' && i + 2 < text.size() && std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
            std::isxdigit(static_cast<unsigned char>(text[i + 2]))) {
            result += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            result += next;
        }
    }
    return result;
}

/* The quoted text at the start of `rest` (its quotes left out) and what
 * follows it; false when `rest` does not start with a closed quote. */
bool splitQuoted(const std::string& rest, std::string& text, std::string& after) {
    if (rest.empty() || rest[0] != '"') return false;
    for (std::size_t i = 1; i < rest.size(); ++i) {
        if (rest[i] == '\\') {
            ++i;
            continue;
        }
        if (rest[i] == '"') {
            text = rest.substr(1, i - 1);
            after = i + 1 < rest.size() ? rest.substr(i + 1) : std::string();
            return true;
        }
    }
    return false;
}

std::size_t lengthOf(const std::string& text) {
    std::size_t used = 0;
    const unsigned long value = std::stoul(text, &used);
    if (used != text.size()) throw std::invalid_argument(text);
    return value;
}

Side sideOf(const std::string& direction) {
    if (direction == "<") return Side::Client;
    if (direction == ">") return Side::Server;
    if (direction == "=") return Side::Event;
    throw std::invalid_argument(direction);
}

}  // namespace

std::vector<DecodedConnection> readTrace(std::istream& in, const std::string& origin) {
    std::vector<DecodedConnection> connections;
    std::map<std::string, std::size_t> byName;
    std::string text;
    for (int number = 1; std::getline(in, text); ++number) {
        if (text.empty()) continue;
        std::istringstream fields(text);
        std::string seconds, connection, client, direction, command, item;
        fields >> seconds >> connection >> client >> direction >> command >> item;
        std::string rest;
        std::getline(fields >> std::ws, rest);
        DecodedLine line;
        line.command = command;
        line.item = item;
        line.line = number;
        try {
            if (item.empty() || connection.size() < 2 || connection[0] != 'c') throw std::invalid_argument(text);
            line.side = sideOf(direction);
            std::string quoted, after;
            if (splitQuoted(rest, quoted, after)) {
                line.bytes = unescaped(quoted);
                if (line.side == Side::Event) {
                    line.length = line.bytes.size();
                } else {
                    line.token = true;
                    line.length = lengthOf(after.empty() ? after : after.substr(1));
                    line.bytes += '\0';
                    line.note = tetherhost::protocol::noteFor(line.side, item, unescaped(quoted), command);
                }
            } else {
                line.length = lengthOf(rest);
            }
        } catch (const std::logic_error&) {
            throw std::runtime_error(origin + ":" + std::to_string(number) + ": not a line of a tetherhost trace");
        }
        auto [at, added] = byName.try_emplace(connection, connections.size());
        if (added) connections.push_back({.name = connection, .client = {}, .lines = {}});
        DecodedConnection& owner = connections[at->second];
        // The name line itself still shows "-" as its client.
        if (owner.client.empty() && client != "-") owner.client = unescaped(client);
        if (owner.client.empty() && line.side == Side::Client && item == "name" && line.token)
            owner.client = line.bytes.substr(0, line.bytes.size() - 1);
        owner.lines.push_back(std::move(line));
    }
    return connections;
}

}  // namespace tetherctl

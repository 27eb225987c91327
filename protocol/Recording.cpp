// SPDX-License-Identifier: MIT
/* Reading recordings from JSON Lines, strictly: a file that does not say
 * exactly one thing per line is refused rather than half played. */
#include "protocol/Recording.h"

#include <nlohmann/json.hpp>

#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>

namespace tetherhost::protocol {
namespace {

using json = nlohmann::json;
using Kind = RecordedStep::Kind;

/* What a recording line holds beyond the bytes: "conn" is kept, the others
 * are ignored. */
const std::set<std::string> recordingKeys = {"conn", "client", "ret", "t"};
const std::set<std::string> scriptKeys = {"dir", "text", "hex", "any", "close", "accept", "note"};

int hexDigit(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    return -1;
}

std::string fromHex(const std::string& hex) {
    if (hex.size() % 2 != 0) throw std::runtime_error("\"hex\" needs two digits per byte");
    std::string bytes;
    for (std::size_t i = 0; i < hex.size(); i += 2) {
        const int high = hexDigit(hex[i]);
        const int low = hexDigit(hex[i + 1]);
        if (high < 0 || low < 0) throw std::runtime_error("\"hex\" holds a character that is not a hex digit");
        bytes.push_back(static_cast<char>(high * 16 + low));
    }
    return bytes;
}

void requireTrue(const json& line, const char* key) {
    const json& value = line.at(key);
    if (!value.is_boolean() || !value.get<bool>())
        throw std::runtime_error(std::string("\"") + key + "\" must be true");
}

/* The bytes of a "send" or "recv" line: its "text" or its "hex". */
std::string bytesOf(const json& line) {
    const bool text = line.contains("text");
    if (text == line.contains("hex")) throw std::runtime_error("a \"dir\" line needs one of \"text\" and \"hex\"");
    const json& value = line.at(text ? "text" : "hex");
    if (!value.is_string()) throw std::runtime_error(std::string(text ? "\"text\"" : "\"hex\"") + " must be a string");
    return text ? value.get<std::string>() : fromHex(value.get<std::string>());
}

/* One line as a step (its kind, bytes and count); false for a note, which
 * adds none. */
bool stepOf(const json& line, RecordedStep& step) {
    if (!line.is_object()) throw std::runtime_error("a line must be one JSON object");
    std::size_t saying = 0;
    for (const auto& [key, value] : line.items()) {
        if (recordingKeys.count(key) != 0) continue;
        if (scriptKeys.count(key) == 0) throw std::runtime_error("unknown key \"" + key + "\"");
        if (key == "dir" || key == "close" || key == "accept" || key == "note") ++saying;
    }
    if (saying != 1) throw std::runtime_error("a line holds exactly one of \"dir\", \"close\", \"accept\", \"note\"");
    if (line.contains("conn")) {
        if (!line.at("conn").is_string()) throw std::runtime_error("\"conn\" must be a string");
        step.connection = line.at("conn").get<std::string>();
    }
    if (line.contains("note")) return false;
    if (line.contains("close")) {
        requireTrue(line, "close");
        step.kind = Kind::Close;
        return true;
    }
    if (line.contains("accept")) {
        requireTrue(line, "accept");
        step.kind = Kind::Accept;
        return true;
    }
    const json& dir = line.at("dir");
    if (dir == "recv") {
        if (line.contains("any")) throw std::runtime_error("\"any\" is for what the client sends");
        step.kind = Kind::ClientReceives;
        step.bytes = bytesOf(line);
        return true;
    }
    if (dir != "send") throw std::runtime_error("\"dir\" is \"send\" or \"recv\"");
    if (!line.contains("any")) {
        step.kind = Kind::ClientSends;
        step.bytes = bytesOf(line);
        return true;
    }
    if (line.contains("text") || line.contains("hex")) throw std::runtime_error("\"any\" takes no bytes");
    const json& count = line.at("any");
    if (!count.is_number_unsigned() || count.get<std::size_t>() == 0)
        throw std::runtime_error("\"any\" is a positive byte count");
    step.kind = Kind::ClientSendsAny;
    step.count = count.get<std::size_t>();
    return true;
}

}  // namespace

RecordedSteps parseRecording(const std::string& text, const std::string& origin) {
    RecordedSteps steps;
    std::istringstream lines(text);
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
        try {
            RecordedStep step{Kind::Close, {}, 0, {}, number};
            if (stepOf(json::parse(line), step)) steps.push_back(std::move(step));
        } catch (const std::exception& problem) {
            throw std::runtime_error(origin + ":" + std::to_string(number) + ": " + problem.what());
        }
    }
    return steps;
}

RecordedSteps readRecording(const std::string& path) {
    std::ifstream file(path);
    if (!file) throw std::runtime_error(path + ": cannot be read");
    std::ostringstream text;
    text << file.rdbuf();
    return parseRecording(text.str(), path);
}

std::string clientBytes(const RecordedSteps& steps) {
    std::string bytes;
    for (const RecordedStep& step : steps)
        if (step.kind == Kind::ClientSends) bytes += step.bytes;
    return bytes;
}

std::vector<RecordedConnection> splitConnections(const RecordedSteps& steps) {
    std::vector<RecordedConnection> connections;
    // Each name's connection still taking lines, by its index.
    std::map<std::string, std::size_t> open;
    for (const RecordedStep& step : steps) {
        auto [entry, added] = open.try_emplace(step.connection, connections.size());
        if (added) connections.push_back({step.connection, {}});
        RecordedSteps& into = connections[entry->second].steps;
        if (step.kind != Kind::Accept) {
            into.push_back(step);
            continue;
        }
        RecordedStep close = step;
        close.kind = Kind::Close;
        into.push_back(std::move(close));
        open.erase(entry);
    }
    return connections;
}

}  // namespace tetherhost::protocol

// SPDX-License-Identifier: MIT
/* Trace: line formatting and output. */
#include "server/Trace.h"

namespace tetherhost::sim {
namespace {

constexpr std::size_t shownCharacters = 64;

/* The text up to its first NUL, C-escaped and cut after `shown`
 * characters; blanks are escaped too when the result stands unquoted in a
 * line (a client's name). */
std::string escaped(std::string_view frame, bool blanks, std::size_t shown = shownCharacters) {
    const std::string_view text = frame.substr(0, frame.find('\0'));
    std::string result;
    for (std::size_t i = 0; i < text.size() && i < shown; ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c == '"' || c == '\\') {
            result += '\\';
            result += static_cast<char>(c);
        } else if (c < 0x20 || c >= 0x7F || (blanks && c == ' ')) {
            char escape[5];
            std::snprintf(escape, sizeof escape, "\\x%02x", c);
            result += escape;
        } else {
            result += static_cast<char>(c);
        }
    }
    if (text.size() > shown) result += "...";
    return result;
}

std::string quoted(std::string_view frame) { return "\"" + escaped(frame, false) + "\""; }

}  // namespace

Trace::~Trace() {
    if (ownsFile) std::fclose(out);
}

bool Trace::open(const std::string& path) {
    if (path == "-") {
        out = stderr;
        return true;
    }
    out = std::fopen(path.c_str(), "w");
    if (out == nullptr) return false;
    ownsFile = true;
    std::setvbuf(out, nullptr, _IOLBF, 0);
    return true;
}

void Trace::text(const Where& where, char direction, std::string_view item, std::string_view frame) {
    if (out != nullptr) write(where, direction, item, quoted(frame) + " " + std::to_string(frame.size()));
}

void Trace::data(const Where& where, char direction, std::string_view item, std::size_t length) {
    if (out != nullptr) write(where, direction, item, std::to_string(length));
}

void Trace::event(const Where& where, std::string_view what) {
    if (out != nullptr) write(where, '=', "event", quoted(what));
}

void Trace::divergence(const Where& where, std::string_view report) {
    if (out != nullptr) write(where, '=', "diverged", "\"" + escaped(report, false, report.size()) + "\"");
}

void Trace::write(const Where& where, char direction, std::string_view item, const std::string& rest) {
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    // Both come from the client's own bytes: escaped, so that no client
    // can break a line of the trace or forge one.
    const std::string client = where.client.empty() ? std::string("-") : escaped(where.client, true);
    const std::string command = where.command.empty() ? std::string("-") : escaped(where.command, true);
    std::fprintf(out, "%.6f c%llu %.*s %c %.*s %.*s %s\n", seconds, static_cast<unsigned long long>(where.connection),
                 static_cast<int>(client.size()), client.c_str(), direction, static_cast<int>(command.size()),
                 command.c_str(), static_cast<int>(item.size()), item.data(), rest.c_str());
}

}  // namespace tetherhost::sim

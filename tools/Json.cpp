// SPDX-License-Identifier: MIT
/* Writing Json values as compact JSON text. */
#include "tools/Json.h"

#include <cmath>
#include <cstdio>

namespace tetherctl {

namespace {

void appendEscaped(std::string& out, const std::string& text) {
    out += '"';
    for (unsigned char c : text) {
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
            if (c < 0x20 || c >= 0x7f) {
                // Bytes outside printable ASCII are written as \u00XX, so the
                // output stays valid JSON whatever a server reply holds.
                char escape[8];
                std::snprintf(escape, sizeof escape, "\\u%04x", c);
                out += escape;
            } else {
                out += static_cast<char>(c);
            }
        }
    }
    out += '"';
}

}  // namespace

Json& Json::operator[](const std::string& key) {
    if (std::holds_alternative<std::nullptr_t>(value)) value = Object{};
    Object& members = std::get<Object>(value);
    for (auto& member : members)
        if (member.first == key) return member.second;
    members.emplace_back(key, Json());
    return members.back().second;
}

void Json::push(Json element) {
    if (std::holds_alternative<std::nullptr_t>(value)) value = Array{};
    std::get<Array>(value).push_back(std::move(element));
}

std::string Json::dump() const {
    std::string out;
    if (std::holds_alternative<std::nullptr_t>(value)) {
        out = "null";
    } else if (const bool* flag = std::get_if<bool>(&value)) {
        out = *flag ? "true" : "false";
    } else if (const std::int64_t* number = std::get_if<std::int64_t>(&value)) {
        out = std::to_string(*number);
    } else if (const double* real = std::get_if<double>(&value)) {
        if (!std::isfinite(*real)) return "null";
        char text[32];
        std::snprintf(text, sizeof text, "%.6g", *real);
        out = text;
    } else if (const std::string* text = std::get_if<std::string>(&value)) {
        appendEscaped(out, *text);
    } else if (const Array* elements = std::get_if<Array>(&value)) {
        out += '[';
        for (std::size_t i = 0; i < elements->size(); ++i) {
            if (i) out += ',';
            out += (*elements)[i].dump();
        }
        out += ']';
    } else {
        const Object& members = std::get<Object>(value);
        out += '{';
        for (std::size_t i = 0; i < members.size(); ++i) {
            if (i) out += ',';
            appendEscaped(out, members[i].first);
            out += ':';
            out += members[i].second.dump();
        }
        out += '}';
    }
    return out;
}

}  // namespace tetherctl

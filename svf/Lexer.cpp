// SPDX-License-Identifier: MIT
/* Lexer: tokens from the stream, refilled a piece at a time. */
#include "svf/Lexer.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "support/ByteUnits.h"
#include "svf/Error.h"

namespace tetherhost::svf {

namespace {

// What each byte is to the lexer. Hex digits are their own values, so the
// hex loop stores the class as it is.
enum : std::uint8_t {
    classSpace = 16,  // space, tab, CR, VT, FF
    classNewline,
    classWord,  // a word character that is no hex digit
    classOpen,
    classClose,
    classSemicolon,
    classBang,
    classSlash,
    classOther,
};

constexpr std::array<std::uint8_t, 256> makeClasses() {
    std::array<std::uint8_t, 256> table{};
    for (auto& entry : table) entry = classOther;
    for (int c = 'A'; c <= 'Z'; ++c) table[c] = table[c + ('a' - 'A')] = classWord;
    for (int c = 0; c < 10; ++c) table['0' + c] = static_cast<std::uint8_t>(c);
    for (int c = 0; c < 6; ++c) table['A' + c] = table['a' + c] = static_cast<std::uint8_t>(10 + c);
    table['.'] = table['+'] = table['-'] = table['_'] = classWord;
    table[' '] = table['\t'] = table['\r'] = table['\v'] = table['\f'] = classSpace;
    table['\n'] = classNewline;
    table['('] = classOpen;
    table[')'] = classClose;
    table[';'] = classSemicolon;
    table['!'] = classBang;
    table['/'] = classSlash;
    return table;
}

constexpr std::array<std::uint8_t, 256> classes = makeClasses();

std::uint8_t classOf(char c) { return classes[static_cast<unsigned char>(c)]; }
bool isWordClass(std::uint8_t c) { return c < 16 || c == classWord; }

std::string shown(char c) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte > ' ' && byte < 0x7F) return std::string("'") + c + "'";
    static constexpr char digits[] = "0123456789ABCDEF";
    return std::string("byte 0x") + digits[byte >> 4] + digits[byte & 0xF];
}

}  // namespace

// Large enough that a read costs nothing next to the bytes it brings, small
// enough to be nothing next to one long scan.
const std::size_t Lexer::pieceSize = 64 * units::kibi;

Lexer::Lexer(std::istream& in, std::string fileName)
    : in(in), file(std::move(fileName)), buffer(std::make_unique<char[]>(pieceSize)) {
    wordText.reserve(maxWord);
    summary.reserve(summaryLimit + 3);
}

void Lexer::fail(long line, long column, const std::string& message) const { throw Error(file, line, column, message); }

void Lexer::unexpected(long line, long column, char c, const std::string& context) const {
    fail(line, column, "unexpected " + shown(c) + context);
}

bool Lexer::refill() {
    base += end;
    pos = end = 0;
    if (!in) return false;
    // Wait for one byte, then take whatever else has arrived without
    // waiting for a whole piece, so that a statement coming down a pipe is
    // played as soon as its ';' is there.
    if (in.peek() == std::char_traits<char>::eof()) {
        if (in.bad()) fail(currentLine, column(), "cannot read the file");
        return false;
    }
    std::streamsize got = in.readsome(buffer.get(), static_cast<std::streamsize>(pieceSize));
    if (got == 0) {
        // A stream that cannot tell what it holds: one byte at a time.
        buffer[0] = static_cast<char>(in.get());
        got = 1;
    }
    end = static_cast<std::size_t>(got);
    if (in.bad()) fail(currentLine, column(), "cannot read the file");
    return true;
}

void Lexer::newline() {
    ++currentLine;
    lineStart = offset() + 1;
}

void Lexer::skipComment() {
    // Up to the line end, which the caller takes as whitespace.
    for (;;) {
        if (pos == end && !refill()) return;
        const void* found = std::memchr(buffer.get() + pos, '\n', end - pos);
        if (found != nullptr) {
            pos = static_cast<std::size_t>(static_cast<const char*>(found) - buffer.get());
            return;
        }
        pos = end;
    }
}

void Lexer::skipSlashes(long line, long column) {
    ++pos;  // the first '/'
    if ((pos == end && !refill()) || buffer[pos] != '/') {
        fail(line, column, "unexpected '/': a comment begins with \"//\" or '!'");
    }
    skipComment();
    noteSpace();
}

void Lexer::note(const char* first, const char* last) {
    if (summaryCut || first == last) return;
    if (pendingSpace) {
        pendingSpace = false;
        if (!summary.empty()) {
            if (summary.size() == summaryLimit) {
                summaryCut = true;
                return;
            }
            summary.push_back(' ');
        }
    }
    const auto room = summaryLimit - summary.size();
    const auto size = static_cast<std::size_t>(last - first);
    summary.append(first, std::min(room, size));
    summaryCut = size > room;
}

void Lexer::beginSummary() {
    summary.clear();
    pendingSpace = false;
    summaryCut = false;
}

std::string Lexer::takeSummary() {
    std::string taken = summary;
    if (summaryCut) taken += "...";
    return taken;
}

Lexer::Token Lexer::next() {
    for (;;) {
        if (pos == end && !refill()) return Token{Type::End, currentLine, column()};
        const char c = buffer[pos];
        const std::uint8_t type = classOf(c);
        const long column = this->column();
        switch (type) {
        case classSpace:
            ++pos;
            noteSpace();
            break;
        case classNewline:
            newline();
            ++pos;
            noteSpace();
            break;
        case classBang:
            skipComment();
            noteSpace();
            break;
        case classSlash: skipSlashes(currentLine, column); break;
        case classSemicolon:
            note(&buffer[pos], &buffer[pos] + 1);
            ++pos;
            return Token{Type::Semicolon, currentLine, column};
        case classOpen: return readHex(currentLine, column);
        case classClose: unexpected(currentLine, column, c, " without a '(' before it");
        case classOther: unexpected(currentLine, column, c, "");
        default: return readWord(currentLine, column);
        }
    }
}

Lexer::Token Lexer::readWord(long line, long column) {
    wordText.clear();
    for (;;) {
        if (pos == end && !refill()) break;
        const std::size_t first = pos;
        while (pos < end && isWordClass(classOf(buffer[pos]))) ++pos;
        const std::size_t taken = pos - first;
        if (wordText.size() + taken > maxWord) {
            fail(line, column, "a word longer than " + std::to_string(maxWord) + " characters");
        }
        wordText.append(&buffer[first], taken);
        note(&buffer[first], &buffer[pos]);
        if (pos < end) break;
    }
    return Token{Type::Word, line, column};
}

Lexer::Token Lexer::readHex(long line, long column) {
    note(&buffer[pos], &buffer[pos] + 1);
    ++pos;  // '('
    digitsUsed = 0;
    for (;;) {
        if (pos == end && !refill()) {
            fail(currentLine, this->column(),
                 "the file ends in the hex string begun at line " + std::to_string(line) + " column " +
                     std::to_string(column) + ": expected a hex digit or ')'");
        }
        // At most every byte left in the piece is a digit: make room once,
        // so the loop stores without checking.
        if (digitValues.size() < digitsUsed + (end - pos)) {
            digitValues.resize(std::max(digitValues.size() * 2, digitsUsed + (end - pos)));
        }
        const char* const first = &buffer[pos];
        const char* p = first;
        const char* const last = buffer.get() + end;
        std::uint8_t* out = digitValues.data() + digitsUsed;
        std::uint8_t type = classOther;
        while (p != last) {
            type = classOf(*p);
            if (type < 16) {
                *out++ = type;
            } else if (type == classNewline) {
                ++currentLine;
                lineStart = base + static_cast<std::uint64_t>(p - buffer.get()) + 1;
            } else if (type != classSpace) {
                break;
            }
            ++p;
        }
        digitsUsed = static_cast<std::size_t>(out - digitValues.data());
        if (!summaryCut) {
            // Whitespace runs and line ends collapse to one space, as elsewhere.
            for (const char* q = first; q != p && !summaryCut; ++q) {
                const std::uint8_t kind = classOf(*q);
                if (kind == classSpace || kind == classNewline) {
                    noteSpace();
                } else {
                    note(q, q + 1);
                }
            }
        }
        pos = static_cast<std::size_t>(p - buffer.get());
        if (p == last) continue;
        switch (type) {
        case classClose:
            note(p, p + 1);
            ++pos;
            return Token{Type::Hex, line, column};
        case classBang:
            skipComment();
            noteSpace();
            break;
        case classSlash: skipSlashes(currentLine, this->column()); break;
        default:
            unexpected(currentLine, this->column(), *p,
                       " in the hex string begun at line " + std::to_string(line) + " column " +
                           std::to_string(column) + ": expected a hex digit or ')'");
        }
    }
}

}  // namespace tetherhost::svf

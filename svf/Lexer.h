// SPDX-License-Identifier: MIT
/* Lexer: an SVF file cut into words, hex strings and semicolons, pulled from
 * a std::istream in pieces of at most a fixed size (what has arrived, so a
 * pipe's statements are read as they come), so that its memory is the piece
 * plus the longest hex string, whatever the file's size. Comments ('!' and
 * "//" to the end of the line) and whitespace separate tokens and are dropped,
 * inside hex strings too. A hex string's digits are kept as their values,
 * most significant first, for the reader to turn into bits once it knows the
 * scan length; the inner loop over them is a table lookup per byte. The lexer
 * also keeps the current statement's first characters for its summary. */
#ifndef TETHERHOST_SVF_LEXER_H
#define TETHERHOST_SVF_LEXER_H

#include <cstddef>
#include <cstdint>
#include <istream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tetherhost::svf {

class Lexer {
public:
    enum class Type {
        Word,       // letters, digits, '.', '+', '-', '_': a keyword, a state, a number
        Hex,        // "(...)": hex digits, whitespace and comments between the parentheses
        Semicolon,  // the end of a statement
        End,        // the end of the input
    };
    struct Token {
        Type type = Type::End;
        long line = 0, column = 0;  // where it begins, 1-based
    };

    /** The most the input is read in at once. */
    static const std::size_t pieceSize;
    /** The longest word taken; longer runs are an error rather than a growing string. */
    static constexpr std::size_t maxWord = 256;
    /** The summary keeps this many characters and marks a cut with "...". */
    static constexpr std::size_t summaryLimit = 100;

    Lexer(std::istream& in, std::string fileName);

    /** The next token; throws Error on a character that cannot start one or a broken hex string. */
    Token next();
    /** The last Word's text, as written. */
    std::string_view word() const { return wordText; }
    /** The last Hex token's digit values (0 to 15), most significant first. */
    const std::uint8_t* digits() const { return digitValues.data(); }
    std::size_t digitCount() const { return digitsUsed; }

    /** Starts a statement's summary: what follows is collected, whitespace before it is not. */
    void beginSummary();
    /** The summary collected since beginSummary(). */
    std::string takeSummary();

    /** Bytes of the input taken so far. */
    std::uint64_t offset() const { return base + pos; }
    long line() const { return currentLine; }
    long column() const { return static_cast<long>(offset() - lineStart) + 1; }
    const std::string& fileName() const { return file; }

    [[noreturn]] void fail(long line, long column, const std::string& message) const;

private:
    bool refill();
    void newline();
    void skipComment();
    void skipSlashes(long line, long column);
    Token readWord(long line, long column);
    Token readHex(long line, long column);
    void note(const char* first, const char* last);
    void noteSpace() { pendingSpace = true; }
    [[noreturn]] void unexpected(long line, long column, char c, const std::string& context) const;

    std::istream& in;
    std::string file;
    std::unique_ptr<char[]> buffer;
    std::size_t pos = 0, end = 0;  // the unread bytes are buffer[pos, end)
    std::uint64_t base = 0;        // input offset of buffer[0]
    long currentLine = 1;
    std::uint64_t lineStart = 0;  // input offset of the current line's first byte

    std::string wordText;
    std::vector<std::uint8_t> digitValues;  // its size is the capacity; digitsUsed are taken
    std::size_t digitsUsed = 0;

    std::string summary;
    bool pendingSpace = false;
    bool summaryCut = false;
};

}  // namespace tetherhost::svf

#endif

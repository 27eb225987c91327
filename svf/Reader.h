// SPDX-License-Identifier: MIT
/* Reader: an SVF file, pulled from a stream, as a sequence of checked
 * statements. Each statement is read whole and then handed out, so memory is
 * bounded by the largest statement, not by the file. It covers SVF as its
 * revision E definition and vendor tools write it: comments, statements over
 * any number of lines or several on one line, keywords in any case, CRLF line
 * ends and tabs, hex strings over several lines and with more digits than the
 * scan length (the extra ones must be 0), numbers with exponents. PIO and
 * PIOMAP are refused. Every error is an Error naming file, line and column. */
#ifndef TETHERHOST_SVF_READER_H
#define TETHERHOST_SVF_READER_H

#include <cstdint>
#include <istream>
#include <optional>
#include <string>
#include <vector>

#include "svf/Lexer.h"
#include "svf/Statement.h"

namespace tetherhost::svf {

class Reader {
public:
    Reader(std::istream& in, std::string fileName);

    /** The next statement; nullopt at the end of the input. Throws Error; after one, the reader is done. */
    std::optional<Statement> next();
    /** Bytes of the input read so far: up to the ';' of the statement last returned. */
    std::uint64_t bytesConsumed() const { return lexer.offset(); }
    const std::string& fileName() const { return lexer.fileName(); }

private:
    struct Word {
        std::string text;
        long line = 0, column = 0;
    };

    void readScan(Statement& statement, const std::string& keyword);
    Bits bitsOf(const Lexer::Token& open, std::uint64_t length, const std::string& name);
    void readWords(Statement& statement, const std::string& keyword);
    void readEnd(Statement& statement, const std::string& keyword);
    void readStatePath(Statement& statement);
    void readRunTest(Statement& statement);
    void readFrequency(Statement& statement);
    void readTrst(Statement& statement);

    std::string describe(const Lexer::Token& token) const;
    // The statement's words by index; an index past the last is its ';'.
    const Word& at(std::size_t index) const;
    std::string found(std::size_t index) const;
    std::string upper(std::size_t index) const;
    [[noreturn]] void failAt(std::size_t index, const std::string& message) const;
    void expectEnd(std::size_t index, const std::string& expected) const;
    State stableState(std::size_t index, const std::string& role) const;

    Lexer lexer;
    // The words of the statement being read (every kind but the scans, whose
    // hex strings stay in the lexer) and its ';'.
    std::vector<Word> words;
    Word semicolon;
};

}  // namespace tetherhost::svf

#endif

// SPDX-License-Identifier: MIT
/* Reader: the grammar of each statement, its numbers and its hex strings. */
#include "svf/Reader.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <limits>
#include <utility>

#include "svf/Error.h"

namespace tetherhost::svf {

namespace {

// A scan longer than this is refused before its bits are made: 256 MiB a
// field is far beyond any part's register, and a typo must not take the heap.
constexpr std::uint64_t maxScanLength = std::uint64_t{1} << 31;

constexpr std::string_view stableStates = "RESET, IDLE, DRPAUSE or IRPAUSE";

std::string upperCase(std::string_view text) {
    std::string result(text);
    for (char& c : result) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return result;
}

/* A number as SVF files write them: digits with an optional fraction and
 * an optional exponent ("32", "1.00E-02", "9.00e+005", "50021E-6", "1E0").
 * No sign: no SVF quantity is negative. */
struct Number {
    std::string_view whole, fraction;
    long exponent = 0;
};

std::optional<Number> splitNumber(std::string_view text) {
    Number number;
    std::size_t i = 0;
    const auto digits = [&] {
        const std::size_t first = i;
        while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]))) ++i;
        return text.substr(first, i - first);
    };
    number.whole = digits();
    if (i < text.size() && text[i] == '.') {
        ++i;
        number.fraction = digits();
    }
    if (number.whole.empty() && number.fraction.empty()) return std::nullopt;
    if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
        ++i;
        bool negative = false;
        if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
        const std::string_view exponent = digits();
        if (exponent.empty()) return std::nullopt;
        // Beyond a million the value is out of any range anyway.
        constexpr long cap = 1000000;
        long value = 0;
        for (const char c : exponent) value = std::min(cap, value * 10 + (c - '0'));
        number.exponent = negative ? -value : value;
    }
    if (i != text.size()) return std::nullopt;
    return number;
}

/* The value of a count or a length: exact (no rounding through a double), so
 * "1E3" is 1000 and "1.5" is not a whole number. */
std::optional<std::uint64_t> wholeNumber(std::string_view text) {
    const std::optional<Number> number = splitNumber(text);
    if (!number) return std::nullopt;
    std::string digits(number->whole);
    digits += number->fraction;
    long exponent = number->exponent - static_cast<long>(number->fraction.size());
    // Trailing zeros dropped by a negative exponent change nothing; any other
    // digit dropped would be a fraction.
    while (exponent < 0 && !digits.empty()) {
        if (digits.back() != '0') return std::nullopt;
        digits.pop_back();
        ++exponent;
    }
    constexpr std::uint64_t limit = std::numeric_limits<std::uint64_t>::max();
    std::uint64_t value = 0;
    for (const char c : digits) {
        const auto digit = static_cast<std::uint64_t>(c - '0');
        if (value > (limit - digit) / 10) return std::nullopt;
        value = value * 10 + digit;
    }
    for (; value != 0 && exponent > 0; --exponent) {
        if (value > limit / 10) return std::nullopt;
        value *= 10;
    }
    return value;
}

std::optional<double> realNumber(std::string_view text) {
    if (!splitNumber(text)) return std::nullopt;
    double value = 0;
    const auto [end, status] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (status != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return value;
}

constexpr std::string_view statementNames =
    "ENDDR, ENDIR, FREQUENCY, HDR, HIR, RUNTEST, SDR, SIR, STATE, TDR, TIR or TRST";

}  // namespace

Reader::Reader(std::istream& in, std::string fileName) : lexer(in, std::move(fileName)) {}

std::optional<Statement> Reader::next() {
    lexer.beginSummary();
    const Lexer::Token first = lexer.next();
    if (first.type == Lexer::Type::End) return std::nullopt;
    if (first.type != Lexer::Type::Word) {
        lexer.fail(first.line, first.column,
                   std::string("expected a statement (") + std::string(statementNames) + "), found " +
                       (first.type == Lexer::Type::Semicolon ? "';'" : "a hex string"));
    }
    const std::string keyword = upperCase(lexer.word());
    if (keyword == "PIO" || keyword == "PIOMAP") lexer.fail(first.line, first.column, keyword + " is not supported");
    std::optional<Kind> kind;
    for (int k = 0; k <= static_cast<int>(Kind::Trst) && !kind; ++k) {
        if (svfKeyword(static_cast<Kind>(k)) == keyword) kind = static_cast<Kind>(k);
    }
    if (!kind) {
        lexer.fail(
            first.line, first.column,
            "expected a statement (" + std::string(statementNames) + "), found '" + std::string(lexer.word()) + "'");
    }

    Statement statement;
    statement.kind = *kind;
    statement.firstLine = first.line;
    statement.firstColumn = first.column;
    switch (statement.kind) {
    case Kind::Sir:
    case Kind::Sdr:
    case Kind::Hir:
    case Kind::Hdr:
    case Kind::Tir:
    case Kind::Tdr: readScan(statement, keyword); break;
    default:
        readWords(statement, keyword);
        switch (statement.kind) {
        case Kind::EndIr:
        case Kind::EndDr: readEnd(statement, keyword); break;
        case Kind::StatePath: readStatePath(statement); break;
        case Kind::RunTest: readRunTest(statement); break;
        case Kind::Frequency: readFrequency(statement); break;
        default: readTrst(statement); break;
        }
    }
    statement.summary = lexer.takeSummary();
    return statement;
}

std::string Reader::describe(const Lexer::Token& token) const {
    switch (token.type) {
    case Lexer::Type::Word: return "'" + std::string(lexer.word()) + "'";
    case Lexer::Type::Hex: return "a hex string";
    case Lexer::Type::Semicolon: return "';'";
    case Lexer::Type::End: break;
    }
    return "the end of the file";
}

void Reader::readScan(Statement& statement, const std::string& keyword) {
    Lexer::Token token = lexer.next();
    const std::optional<std::uint64_t> length =
        token.type == Lexer::Type::Word ? wholeNumber(lexer.word()) : std::nullopt;
    if (!length) {
        lexer.fail(token.line, token.column,
                   "expected the scan length (a whole number of bits) after " + keyword + ", found " + describe(token));
    }
    if (*length > maxScanLength) {
        lexer.fail(token.line, token.column,
                   "a scan of " + std::to_string(*length) + " bits: more than the " + std::to_string(maxScanLength) +
                       " bits a scan may have");
    }
    ScanFields& scan = statement.scan;
    scan.length = *length;
    for (;;) {
        token = lexer.next();
        if (token.type == Lexer::Type::Semicolon) break;
        std::optional<Bits>* field = nullptr;
        std::string name;
        if (token.type == Lexer::Type::Word) {
            name = upperCase(lexer.word());
            if (name == "TDI") field = &scan.tdi;
            if (name == "TDO") field = &scan.tdo;
            if (name == "MASK") field = &scan.mask;
            if (name == "SMASK") field = &scan.smask;
        }
        if (field == nullptr) {
            lexer.fail(token.line, token.column,
                       "expected TDI, TDO, MASK, SMASK or ';' in " + keyword + ", found " + describe(token));
        }
        if (field->has_value()) {
            lexer.fail(token.line, token.column, name.append(" is given twice in one ").append(keyword));
        }
        const Lexer::Token open = lexer.next();
        if (open.type != Lexer::Type::Hex) {
            lexer.fail(open.line, open.column,
                       "expected '(' and the hex digits of " + name + ", found " + describe(open));
        }
        *field = bitsOf(open, scan.length, name);
    }
    statement.lastLine = token.line;
}

Bits Reader::bitsOf(const Lexer::Token& open, std::uint64_t length, const std::string& name) {
    const std::uint8_t* const digits = lexer.digits();
    const std::size_t count = lexer.digitCount();
    if (count == 0) lexer.fail(open.line, open.column, name + " has no hex digits between its parentheses");

    // Digits beyond the scan length may be written, as long as they are 0:
    // vendor tools pad to whole bytes.
    const auto needed = static_cast<std::size_t>((length + 3) / 4);
    const std::size_t extra = count > needed ? count - needed : 0;
    std::uint8_t beyond = 0;
    for (std::size_t i = 0; i < extra; ++i) beyond |= digits[i];
    const auto topBits = static_cast<unsigned>(length % 4);
    if (topBits != 0 && count >= needed) beyond |= digits[extra] >> topBits;
    if (beyond != 0) {
        lexer.fail(open.line, open.column, name + " has a 1 beyond its " + std::to_string(length) + " bits");
    }

    Bits bits;
    bits.length = length;
    bits.bytes.resize(static_cast<std::size_t>((length + 7) / 8));
    // Two digits a byte, from the least significant (the last written); the
    // checks above leave the bits beyond `length` 0.
    const std::uint8_t* digit = digits + count;
    const std::size_t pairs = std::min(bits.bytes.size(), count / 2);
    std::uint8_t* out = bits.bytes.data();
    for (std::size_t i = 0; i < pairs; ++i, digit -= 2) {
        *out++ = static_cast<std::uint8_t>(digit[-1] | (digit[-2] << 4));
    }
    if (pairs < bits.bytes.size() && count % 2 != 0) *out = digit[-1];
    return bits;
}

void Reader::readWords(Statement& statement, const std::string& keyword) {
    words.clear();
    for (;;) {
        const Lexer::Token token = lexer.next();
        switch (token.type) {
        case Lexer::Type::Word: words.push_back(Word{std::string(lexer.word()), token.line, token.column}); break;
        case Lexer::Type::Semicolon:
            semicolon = Word{";", token.line, token.column};
            statement.lastLine = token.line;
            return;
        case Lexer::Type::Hex: lexer.fail(token.line, token.column, "a hex string has no place in " + keyword);
        case Lexer::Type::End:
            lexer.fail(token.line, token.column,
                       "the file ends in the " + keyword + " statement begun at line " +
                           std::to_string(statement.firstLine) + ": expected ';'");
        }
    }
}

const Reader::Word& Reader::at(std::size_t index) const { return index < words.size() ? words[index] : semicolon; }

std::string Reader::found(std::size_t index) const { return "'" + at(index).text + "'"; }

std::string Reader::upper(std::size_t index) const { return index < words.size() ? upperCase(words[index].text) : ";"; }

void Reader::failAt(std::size_t index, const std::string& message) const {
    lexer.fail(at(index).line, at(index).column, message);
}

void Reader::expectEnd(std::size_t index, const std::string& expected) const {
    if (index < words.size()) failAt(index, "expected " + expected + ", found " + found(index));
}

State Reader::stableState(std::size_t index, const std::string& role) const {
    const std::optional<State> state = index < words.size() ? stateNamed(words[index].text) : std::nullopt;
    if (!state) failAt(index, "expected " + role + " (" + std::string(stableStates) + "), found " + found(index));
    if (!isStableState(*state)) {
        failAt(index, role + " must be a stable state (" + std::string(stableStates) + "), not " +
                          std::string(svfName(*state)));
    }
    return *state;
}

void Reader::readEnd(Statement& statement, const std::string& keyword) {
    statement.state = stableState(0, keyword + "'s end state");
    expectEnd(1, "';' after " + keyword + " " + std::string(svfName(statement.state)));
}

void Reader::readStatePath(Statement& statement) {
    if (words.empty()) failAt(0, "expected a state after STATE, found ';'");
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::optional<State> state = stateNamed(words[i].text);
        if (!state) failAt(i, "expected a state name in STATE, found " + found(i));
        if (i > 0 && !follows(statement.path.back(), *state)) {
            failAt(i, "STATE path: " + std::string(svfName(*state)) + " does not follow " +
                          std::string(svfName(statement.path.back())) + " in one TCK");
        }
        statement.path.push_back(*state);
    }
    if (!isStableState(statement.path.back())) {
        failAt(words.size() - 1, "STATE's last state must be a stable state (" + std::string(stableStates) + "), not " +
                                     std::string(svfName(statement.path.back())));
    }
}

void Reader::readRunTest(Statement& statement) {
    RunTestFields& run = statement.runTest;
    std::size_t i = 0;
    if (i < words.size() && stateNamed(words[i].text)) run.runState = stableState(i++, "RUNTEST's run state");
    if (i >= words.size()) failAt(i, "expected a run count or a time after RUNTEST, found ';'");
    const std::string unit = upper(i + 1);
    if (unit == "TCK" || unit == "SCK") {
        run.count = wholeNumber(words[i].text);
        if (!run.count) failAt(i, "expected a whole run count before " + unit + ", found " + found(i));
        run.clock = unit == "TCK" ? Clock::Tck : Clock::Sck;
        i += 2;
        // A time may follow the count.
        if (i < words.size() && upper(i) != "ENDSTATE") {
            run.minSeconds = realNumber(words[i].text);
            if (!run.minSeconds) failAt(i, "expected a time in seconds, ENDSTATE or ';' in RUNTEST, found " + found(i));
            if (upper(i + 1) != "SEC") failAt(i + 1, "expected SEC after the time, found " + found(i + 1));
            i += 2;
        }
    } else if (unit == "SEC") {
        run.minSeconds = realNumber(words[i].text);
        if (!run.minSeconds) failAt(i, "expected a time in seconds before SEC, found " + found(i));
        i += 2;
    } else if (wholeNumber(words[i].text) || realNumber(words[i].text)) {
        failAt(i + 1, "expected TCK, SCK or SEC after " + found(i) + ", found " + found(i + 1));
    } else {
        failAt(i, "expected a run state, a run count or a time in RUNTEST, found " + found(i));
    }
    if (run.minSeconds && upper(i) == "MAXIMUM") {
        run.maxSeconds = realNumber(at(i + 1).text);
        if (!run.maxSeconds) failAt(i + 1, "expected a time in seconds after MAXIMUM, found " + found(i + 1));
        if (upper(i + 2) != "SEC") failAt(i + 2, "expected SEC after the maximum time, found " + found(i + 2));
        i += 3;
    }
    if (upper(i) == "ENDSTATE") {
        run.endState = stableState(i + 1, "RUNTEST's end state");
        i += 2;
    }
    expectEnd(i, run.minSeconds && !run.maxSeconds && !run.endState ? "MAXIMUM, ENDSTATE or ';' in RUNTEST"
                 : run.endState                                     ? "';' after the end state"
                                                                    : "ENDSTATE or ';' in RUNTEST");
}

void Reader::readFrequency(Statement& statement) {
    if (words.empty()) return;  // full speed
    statement.hz = realNumber(words[0].text);
    if (!statement.hz) failAt(0, "expected a frequency in HZ or ';' after FREQUENCY, found " + found(0));
    if (upper(1) != "HZ") failAt(1, "expected HZ after the frequency, found " + found(1));
    if (!(*statement.hz > 0)) failAt(0, "the frequency must be above 0 HZ, found " + found(0));
    expectEnd(2, "';' after HZ");
}

void Reader::readTrst(Statement& statement) {
    const std::string mode = upper(0);
    if (mode == "ON") {
        statement.trst = TrstMode::On;
    } else if (mode == "OFF") {
        statement.trst = TrstMode::Off;
    } else if (mode == "Z") {
        statement.trst = TrstMode::Z;
    } else if (mode == "ABSENT") {
        statement.trst = TrstMode::Absent;
    } else {
        failAt(0, "expected ON, OFF, Z or ABSENT after TRST, found " + found(0));
    }
    expectEnd(1, "';' after TRST " + mode);
}

}  // namespace tetherhost::svf

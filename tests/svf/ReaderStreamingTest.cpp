// SPDX-License-Identifier: MIT
/* The reader on a long input: a stream generated as it is read (no file,
 * no copy of the text in memory) of 50 MB of 4-Mibit SDRs. The reader must
 * hand out every statement exactly while the heap stays bounded by a few
 * statements' worth, far below the input's size. */
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <istream>
#include <streambuf>
#include <string>

#include "support/ByteUnits.h"
#include "support/HeapInUse.h"
#include "svf/Reader.h"
#include "svf/ScanComposer.h"

namespace tetherhost::svf {
namespace {

constexpr std::uint64_t scanBits = 4 * units::mebi;
constexpr std::size_t digitsPerLine = 64;
constexpr char hexDigits[] = "0123456789ABCDEF";

/* Statement i is "SDR 4194304 TDI (...) TDO (...) ;" with every TDI digit
 * hexDigits[i % 16] and every TDO digit hexDigits[15 - i % 16], the hex in
 * lines of 64 digits with CRLF ends, as vendor tools write them. */
class GeneratedSvf : public std::streambuf {
public:
    explicit GeneratedSvf(int statements) : remaining(statements) {}

    std::uint64_t produced = 0;

protected:
    int_type underflow() override {
        if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
        if (!fill()) return traits_type::eof();
        setg(piece.data(), piece.data(), piece.data() + piece.size());
        produced += piece.size();
        return traits_type::to_int_type(*gptr());
    }

private:
    // The next piece of text: the head, a block of hex lines, or the tail of a field.
    bool fill() {
        piece.clear();
        switch (step) {
        case Step::Head:
            if (remaining == 0) return false;
            piece = "SDR " + std::to_string(scanBits) + " TDI (\r\n";
            startField(hexDigits[index % 16]);
            return true;
        case Step::Digits: {
            const std::size_t lines = std::min<std::size_t>(linesLeft, 256);
            const std::string line = std::string(digitsPerLine, digit) + "\r\n";
            for (std::size_t i = 0; i < lines; ++i) piece += line;
            linesLeft -= lines;
            if (linesLeft == 0) step = field == 0 ? Step::Middle : Step::Tail;
            return true;
        }
        case Step::Middle:
            piece = ")\r\n  TDO (\r\n";
            field = 1;
            startField(hexDigits[15 - index % 16]);
            return true;
        case Step::Tail:
            piece = ") ;\r\n";
            ++index;
            --remaining;
            field = 0;
            step = Step::Head;
            return true;
        }
        return false;
    }

    void startField(char fieldDigit) {
        digit = fieldDigit;
        linesLeft = scanBits / 4 / digitsPerLine;
        step = Step::Digits;
    }

    enum class Step { Head, Digits, Middle, Tail };
    Step step = Step::Head;
    int remaining;
    int index = 0;
    int field = 0;
    char digit = '0';
    std::size_t linesLeft = 0;
    std::string piece;
};

bool everyByteIs(const Bits& bits, std::uint8_t value) {
    return std::all_of(bits.bytes.begin(), bits.bytes.end(), [&](std::uint8_t byte) { return byte == value; });
}

TEST(ReaderStreaming, FiftyMegabytesOfLongScansInBoundedMemory) {
    constexpr int statements = 25;  // 2.1 MB of text each
    GeneratedSvf source(statements);
    std::istream in(&source);
    const std::size_t before = heapInUse();
    std::size_t peak = before;
    Reader reader(in, "generated.svf");
    ScanComposer composer;
    int count = 0;
    while (std::optional<Statement> statement = reader.next()) {
        const std::optional<Scan> scan = composer.take(*statement, reader.fileName());
        peak = std::max(peak, heapInUse());
        const auto tdi = static_cast<std::uint8_t>(0x11 * (count % 16));
        const auto tdo = static_cast<std::uint8_t>(0x11 * (15 - count % 16));
        ASSERT_TRUE(scan);
        EXPECT_EQ(statement->scan.length, scanBits);
        EXPECT_EQ(statement->summary.size(), 103u);
        EXPECT_EQ(scan->tdi.length, scanBits);
        EXPECT_TRUE(everyByteIs(scan->tdi, tdi)) << count;
        EXPECT_TRUE(scan->check);
        EXPECT_TRUE(everyByteIs(scan->expected, tdo)) << count;
        EXPECT_TRUE(everyByteIs(scan->mask, 0xFF)) << count;
        ++count;
    }
    EXPECT_EQ(count, statements);
    EXPECT_GT(source.produced, 50 * units::mebi);
    EXPECT_EQ(reader.bytesConsumed(), source.produced);
    // One statement's fields (TDI, TDO and the kept copies) and the hex
    // scratch come to about 5 MiB; the input is ten times that.
    EXPECT_LT(peak - before, 8 * units::mebi) << "heap grew from " << before << " to " << peak;
}

}  // namespace
}  // namespace tetherhost::svf

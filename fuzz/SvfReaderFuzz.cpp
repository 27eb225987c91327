// SPDX-License-Identifier: MIT
/* Fuzz target "svf_reader": an SVF file, as hostile as it comes, read by
 * the SVF reader and composed into scans.
 *
 * Input layout: one byte chooses the piece size (1 to 17 bytes) in which a
 * second stream hands the text out; the rest is the file. The file is read
 * once from a stream that has it all and once from the piece-by-piece one
 * (a pipe, as the reader sees it): both must give the same statements,
 * scans and error, whatever the piece boundaries cut. A difference aborts,
 * which the fuzzer reports like a crash. Scans longer than 64 Kibit are
 * read but not composed, so that no input spends its time filling
 * megabytes of zeros. */
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <streambuf>
#include <string>

#include "svf/Error.h"
#include "svf/Reader.h"
#include "svf/ScanComposer.h"

namespace {

using namespace tetherhost::svf;

constexpr std::uint64_t longestComposed = std::uint64_t{64} * 1024;

/* Hands out `text` `piece` bytes at a time and says only that much is
 * ready, as a pipe does. */
class PieceBuffer : public std::streambuf {
public:
    PieceBuffer(std::string text, std::size_t piece) : text(std::move(text)), piece(piece) {}

protected:
    int_type underflow() override {
        if (offset >= text.size()) return traits_type::eof();
        char* begin = text.data() + offset;
        const std::size_t length = std::min(piece, text.size() - offset);
        offset += length;
        setg(begin, begin, begin + length);
        return traits_type::to_int_type(*begin);
    }

private:
    std::string text;
    std::size_t piece;
    std::size_t offset = 0;
};

/* Everything the reader and composer make of `in`, as text. */
std::string readAll(std::istream& in) {
    std::string made;
    Reader reader(in, "fuzz.svf");
    ScanComposer composer;
    try {
        while (const std::optional<Statement> statement = reader.next()) {
            made += std::to_string(statement->firstLine) + "-" + std::to_string(statement->lastLine) + " " +
                    statement->summary + "\n";
            if (statement->scan.length > longestComposed) continue;
            if (const std::optional<Scan> scan = composer.take(*statement, "fuzz.svf"))
                made += scan->tdi.hex() + "/" + scan->expected.hex() + "/" + scan->mask.hex() + "\n";
        }
    } catch (const Error& error) {
        // Where reading stopped after an error depends on the pieces; the
        // error itself must not.
        return made + error.what();
    }
    return made + "@" + std::to_string(reader.bytesConsumed());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::size_t piece = 1 + data[0] % 17;
    const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    std::istringstream whole(text);
    PieceBuffer pieces(text, piece);
    std::istream piecewise(&pieces);
    if (readAll(whole) != readAll(piecewise)) std::abort();
    return 0;
}

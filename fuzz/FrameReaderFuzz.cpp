// SPDX-License-Identifier: MIT
/* Fuzz target "frame_reader": the simulator's frame reader fed a hostile
 * client's bytes in pieces of any size.
 *
 * Input layout: a count byte, then that many (request, piece size) byte
 * pairs; the rest is the stream. A request asks for a token (even byte) or
 * for request / 2 raw bytes (odd byte: 1 to 127 bytes; 255 asks for 1024).
 * The same requests are put to one reader fed the whole stream at once and
 * to another fed piece by piece (feeding the next piece whenever it answers
 * NeedMore): both must hand out the same items, the piece-fed one must say
 * NeedMore only when the stream has run out, and both must stop at the same
 * point. A difference aborts, which the fuzzer reports like a crash. */
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "protocol/FrameReader.h"
#include "FuzzInput.h"

namespace {

using tetherhost::fuzz::FuzzInput;
using tetherhost::protocol::FrameReader;
using Result = FrameReader::Result;

struct Request {
    bool token;
    std::size_t count;
};

Request requestFrom(std::uint8_t byte) {
    if (byte % 2 == 0) return {true, 0};
    return {false, byte == 0xFF ? tetherhost::protocol::frameSize : static_cast<std::size_t>(byte / 2 + 1)};
}

Result ask(FrameReader& reader, const Request& request, std::string& item) {
    return request.token ? reader.token(item) : reader.take(request.count, item);
}

[[noreturn]] void differ(const char* what, std::size_t request) {
    std::fprintf(stderr, "request %zu: %s\n", request, what);
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    std::vector<Request> requests;
    std::vector<std::size_t> pieces;
    const std::size_t count = input.byte();
    for (std::size_t i = 0; i < count; ++i) {
        requests.push_back(requestFrom(input.byte()));
        pieces.push_back(1 + input.byte() % 64);
    }
    const std::string stream = input.rest();

    FrameReader whole;
    whole.feed(stream.data(), stream.size());
    FrameReader pieceFed;
    std::size_t fed = 0;
    std::size_t nextPiece = 0;

    for (std::size_t i = 0; i < requests.size(); ++i) {
        std::string expected;
        const Result wholeResult = ask(whole, requests[i], expected);
        std::string got;
        Result pieceResult = ask(pieceFed, requests[i], got);
        while (pieceResult == Result::NeedMore && fed < stream.size()) {
            const std::size_t piece = std::min(pieces[nextPiece++ % pieces.size()], stream.size() - fed);
            pieceFed.feed(stream.data() + fed, piece);
            fed += piece;
            pieceResult = ask(pieceFed, requests[i], got);
        }
        if (pieceResult != wholeResult) differ("the readers disagree", i);
        if (wholeResult != Result::Ready) {
            // Both stopped: NeedMore only once the stream has run out.
            if (wholeResult == Result::NeedMore && fed != stream.size()) differ("NeedMore before the end", i);
            break;
        }
        if (got != expected) differ("different items", i);
        if (requests[i].token ? got.size() >= tetherhost::protocol::frameSize || got.find('\0') != std::string::npos
                              : got.size() != requests[i].count)
            differ("item of the wrong length or with a NUL inside", i);
        if (whole.buffered() != pieceFed.buffered() + (stream.size() - fed)) differ("different bytes left", i);
    }
    return 0;
}

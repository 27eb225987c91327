// SPDX-License-Identifier: MIT
/* Frames: the shapes of what travels on a connection, as both ends see them.
 *
 * - Every frame, data block and chunk is at most 1024 bytes (frameSize); a
 *   text token is a text and its NUL, so it holds at most 1023 bytes.
 * - The token "+" (plusToken, two bytes with its NUL) is the acknowledgement
 *   the server answers each frame with, the go token the client answers each
 *   read-back chunk with, the reply request and the lock request. A check
 *   of an acknowledgement looks at its first byte only.
 * - Blocks of up to 8192 bits (one frame) travel whole; longer ones in
 *   chunks of 1024 bytes. A read-back chunk that begins with "+" carries
 *   1023 data bytes behind it.
 * - Bit and byte counts follow the 32-bit signed arithmetic of the library:
 *   byteCountOf and chunkCountOf state it once for both ends. */
#ifndef TETHERHOST_PROTOCOL_FRAMES_H
#define TETHERHOST_PROTOCOL_FRAMES_H

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tetherhost::protocol {

/* Where the server listens, on the loopback interface. */
inline constexpr int serverPort = 4001;

/* Bytes of a frame buffer, a fixed frame, a data block and a chunk. */
inline constexpr std::size_t frameSize = 1024;
/* The same, for the library's int arithmetic. */
inline constexpr int frameBytes = static_cast<int>(frameSize);
/* The longest text token: it still fits in a frame with its NUL. */
inline constexpr std::size_t maxTokenLength = frameSize - 1;

/* The acknowledgement's character, and the token as it is sent. */
inline constexpr char plus = '+';
inline constexpr char plusToken[] = {plus, '\0'};
inline constexpr std::string_view plusFrame{plusToken, sizeof plusToken};
/* The token as a reader hands it over, without its NUL. */
inline constexpr std::string_view plusText{plusToken, 1};

/* A read-back chunk that begins with "+" carries this many data bytes. */
inline constexpr std::size_t framedPayload = frameSize - 1;

/* Command 41's block carries each shared application name cut after this
 * many characters, each followed by ";". */
inline constexpr std::size_t sharedAppNameLimit = 100;

/* Pump, SSPI, I2C and JTAG-shift blocks of more bits than this travel in
 * chunks. */
inline constexpr int singleBlockBits = 8 * frameBytes;
/* The one-call JTAG shift sends its first block as one frame up to twice
 * that, in chunks above. */
inline constexpr int oneCallSingleFrameBits = 2 * singleBlockBits;

/** (bitCount + 7) / 8 with the wrap-around of 32-bit signed arithmetic: bit
 * counts within 7 of INT_MAX give a negative byte count (and so no data at
 * all), computed without overflowing. */
constexpr int byteCountOf(int bitCount) {
    // The sum wraps round modulo 2^32; the conversion back is modular, so
    // INT_MAX is no overflow.
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(bitCount) + 7U) / 8;
}

/** (byteCount + 1023) / 1024, truncating toward zero: 0 or less for byte
 * counts of 0 or less. */
constexpr std::int64_t chunkCountOf(std::int64_t byteCount) { return (byteCount + (frameBytes - 1)) / frameBytes; }

/** The shape of one data block on the wire: its byte and chunk counts, and
 * whether it travels whole or in 1024-byte chunks. The JTAG and generic
 * shifts decide by the byte count (whole up to 1024 bytes, so a byte count
 * that wrapped negative is "whole"); pump, SSPI and I2C decide by the bit
 * count (whole up to 8192 bits). The two agree except within 7 of INT_MAX,
 * where the library itself tells them apart. */
struct BlockShape {
    int bitCount = 0;
    int byteCount = 0;
    int chunkCount = 0;
    bool single = true;

    static constexpr BlockShape ofShift(int bitCount) {
        const int bytes = byteCountOf(bitCount);
        return {bitCount, bytes, static_cast<int>(chunkCountOf(bytes)), bytes <= frameBytes};
    }
    static constexpr BlockShape ofTransfer(int bitCount) {
        const int bytes = byteCountOf(bitCount);
        return {bitCount, bytes, static_cast<int>(chunkCountOf(bytes)), bitCount <= singleBlockBits};
    }
};

/** The byte with its bit order reversed (bit 0 becomes bit 7): pump, SSPI
 * and I2C data travel that way. */
constexpr unsigned char reverseBits(unsigned char byte) {
    unsigned char reversed = 0;
    for (int bit = 0; bit < 8; ++bit) {
        reversed = static_cast<unsigned char>((reversed << 1) | (byte & 1));
        byte = static_cast<unsigned char>(byte >> 1);
    }
    return reversed;
}

/** An integer token as a receiving end reads it: decimal digits with an
 * optional "-", nothing else; none when the text is not such a number or
 * does not fit an int. */
inline std::optional<int> parseInt(std::string_view text) {
    int value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc{} || stop != end) return std::nullopt;
    return value;
}

/** Bytes that are all zero: the filler of a fixed frame, or an empty data
 * slot. */
inline bool allZero(std::string_view bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](char c) { return c == '\0'; });
}

}  // namespace tetherhost::protocol

#endif

// SPDX-License-Identifier: MIT
/* FuzzInput: takes typed values off the front of a fuzz input. Every read
 * succeeds: an exhausted input gives zeros and empty texts, so a harness
 * never has to check for the end and every input, however short, runs. */
#ifndef TETHERHOST_FUZZ_FUZZINPUT_H
#define TETHERHOST_FUZZ_FUZZINPUT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace tetherhost::fuzz {

class FuzzInput {
public:
    FuzzInput(const std::uint8_t* data, std::size_t size) : data(data), size(size) {}

    std::size_t remaining() const { return size - position; }

    std::uint8_t byte() { return remaining() > 0 ? data[position++] : 0; }

    std::uint16_t u16() {
        const std::uint16_t low = byte();
        return static_cast<std::uint16_t>(low | (byte() << 8));
    }

    /* Four bytes, little-endian, as a signed 32-bit value. */
    int integer() {
        std::uint32_t value = 0;
        for (int shift = 0; shift < 32; shift += 8) value |= static_cast<std::uint32_t>(byte()) << shift;
        int result;
        std::memcpy(&result, &value, sizeof result);
        return result;
    }

    /* `count` bytes (fewer when the input ends first). */
    std::string bytes(std::size_t count) {
        const std::size_t taken = std::min(count, remaining());
        std::string result(reinterpret_cast<const char*>(data + position), taken);
        position += taken;
        return result;
    }

    /* A length byte (taken modulo `maxLength` + 1), then that many bytes,
     * cut at the first NUL: a C text of at most `maxLength` characters. */
    std::string text(std::size_t maxLength) {
        std::string result = bytes(byte() % (maxLength + 1));
        result.resize(std::strlen(result.c_str()));
        return result;
    }

    /* Everything not taken yet. */
    std::string rest() { return bytes(remaining()); }

private:
    const std::uint8_t* data;
    std::size_t size;
    std::size_t position = 0;
};

}  // namespace tetherhost::fuzz

#endif

// SPDX-License-Identifier: MIT
/* The cable's other targets: a small flash-like memory on the SSPI port, an
 * EEPROM-like device on the I2C bus, and the pump buffer. Plain data models,
 * independent of the connection that drives them. */
#ifndef TETHERHOST_SERVER_PERIPHERALS_H
#define TETHERHOST_SERVER_PERIPHERALS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tetherhost::sim {

/** Flash-like memory: starts erased (all bytes 0xFF); programming can only
 * clear bits (each byte becomes old AND new); erasing sets whole 4 KiB
 * sectors back to 0xFF. */
class SspiFlash {
public:
    static constexpr std::size_t sectorSize = 4096;

    explicit SspiFlash(std::size_t size);

    std::size_t size() const { return memory.size(); }
    /** True when [address, address + count) lies inside the memory. */
    bool contains(std::int64_t address, std::size_t count) const;
    /** Programs `data` at `address`, erasing the sectors it touches first
     * when `eraseFirst` is set. The range must be contained. */
    void program(std::int64_t address, std::string_view data, bool eraseFirst);
    /** `count` bytes from `address`; the range must be contained. */
    std::string read(std::int64_t address, std::size_t count) const;

private:
    std::string memory;
};

/** EEPROM-like I2C device: answers one 7-bit bus address, holds bytes that
 * are written as they are; a transfer's word address wraps at the end of the
 * memory, as sequential EEPROM access does. Starts with all bytes 0xFF. */
class I2cEeprom {
public:
    I2cEeprom(int busAddress, std::size_t size);

    int busAddress() const { return address; }
    std::size_t size() const { return memory.size(); }
    bool validWordAddress(std::int64_t wordAddress) const;
    void write(std::int64_t wordAddress, std::string_view data);
    std::string read(std::int64_t wordAddress, std::size_t count) const;

private:
    int address;
    std::string memory;
};

/** How a pump transfer treats the pump buffer. */
enum class PumpMode {
    Append = 0,    // the block is added behind what the buffer holds
    ReadOnly = 1,  // the block only sets how much may be read back; it is not kept
    Replace = 2,   // the buffer is emptied, then the block is added
};

std::optional<PumpMode> pumpModeFrom(int value);

/** First in, first out byte store with a fixed capacity. */
class PumpBuffer {
public:
    explicit PumpBuffer(std::size_t capacity);

    std::size_t held() const { return bytes.size() - start; }
    std::size_t capacity() const { return limit; }
    /** Whether a block of `size` bytes may be stored in `mode`. */
    bool accepts(PumpMode mode, std::size_t size) const;
    /** Empties the buffer for Replace; does nothing otherwise. */
    void prepare(PumpMode mode);
    /** Adds bytes at the back; the caller checked accepts(). */
    void append(std::string_view data);
    /** Takes up to `count` bytes from the front. */
    std::string take(std::size_t count);

private:
    std::size_t limit;
    std::string bytes;
    std::size_t start = 0;
};

}  // namespace tetherhost::sim

#endif

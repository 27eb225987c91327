// SPDX-License-Identifier: MIT
/* The SSPI flash, the I2C EEPROM and the pump buffer. */
#include "server/Peripherals.h"

#include <algorithm>

namespace tetherhost::sim {

SspiFlash::SspiFlash(std::size_t size) : memory(size, '\xFF') {}

bool SspiFlash::contains(std::int64_t address, std::size_t count) const {
    return address >= 0 && static_cast<std::uint64_t>(address) <= memory.size() &&
           count <= memory.size() - static_cast<std::size_t>(address);
}

void SspiFlash::program(std::int64_t address, std::string_view data, bool eraseFirst) {
    const auto first = static_cast<std::size_t>(address);
    if (eraseFirst && !data.empty()) {
        const std::size_t sectorStart = first / sectorSize * sectorSize;
        const std::size_t sectorEnd =
            std::min(memory.size(), (first + data.size() + sectorSize - 1) / sectorSize * sectorSize);
        std::fill(memory.begin() + static_cast<std::ptrdiff_t>(sectorStart),
                  memory.begin() + static_cast<std::ptrdiff_t>(sectorEnd), '\xFF');
    }
    for (std::size_t i = 0; i < data.size(); ++i) memory[first + i] = static_cast<char>(memory[first + i] & data[i]);
}

std::string SspiFlash::read(std::int64_t address, std::size_t count) const {
    return memory.substr(static_cast<std::size_t>(address), count);
}

I2cEeprom::I2cEeprom(int busAddress, std::size_t size) : address(busAddress), memory(size, '\xFF') {}

bool I2cEeprom::validWordAddress(std::int64_t wordAddress) const {
    return wordAddress >= 0 && static_cast<std::uint64_t>(wordAddress) < memory.size();
}

void I2cEeprom::write(std::int64_t wordAddress, std::string_view data) {
    auto position = static_cast<std::size_t>(wordAddress);
    for (const char byte : data) {
        memory[position] = byte;
        position = (position + 1) % memory.size();
    }
}

std::string I2cEeprom::read(std::int64_t wordAddress, std::size_t count) const {
    std::string data(count, '\0');
    auto position = static_cast<std::size_t>(wordAddress);
    for (char& byte : data) {
        byte = memory[position];
        position = (position + 1) % memory.size();
    }
    return data;
}

std::optional<PumpMode> pumpModeFrom(int value) {
    switch (value) {
    case 0: return PumpMode::Append;
    case 1: return PumpMode::ReadOnly;
    case 2: return PumpMode::Replace;
    default: return std::nullopt;
    }
}

PumpBuffer::PumpBuffer(std::size_t capacity) : limit(capacity) {}

bool PumpBuffer::accepts(PumpMode mode, std::size_t size) const {
    switch (mode) {
    case PumpMode::Append: return size <= limit - held();
    case PumpMode::ReadOnly: return true;
    case PumpMode::Replace: return size <= limit;
    }
    return false;
}

void PumpBuffer::prepare(PumpMode mode) {
    if (mode != PumpMode::Replace) return;
    bytes.clear();
    start = 0;
}

void PumpBuffer::append(std::string_view data) {
    if (start > 0 && start >= bytes.size() / 2) {
        bytes.erase(0, start);
        start = 0;
    }
    bytes.append(data);
}

std::string PumpBuffer::take(std::size_t count) {
    const std::size_t taken = std::min(count, held());
    std::string front = bytes.substr(start, taken);
    start += taken;
    if (start == bytes.size()) {
        bytes.clear();
        bytes.shrink_to_fit();
        start = 0;
    }
    return front;
}

}  // namespace tetherhost::sim

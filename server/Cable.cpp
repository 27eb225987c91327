// SPDX-License-Identifier: MIT
/* Cable: the commands' meaning for the simulated targets. */
#include "server/Cable.h"

#include <algorithm>
#include <cstdio>
#include <limits>

namespace tetherhost::sim {

Cable::Cable(const CableConfig& config)
    : jtag(config.chain), sspi(config.sspiSize), eeprom(config.i2cAddress, config.i2cSize), pump(config.pumpCapacity) {
    tap.setRealTime(config.realTime);
}

ShiftResult Cable::shift(int flags, std::int64_t bitCount, const std::string& tdi, const std::string* expected,
                         const std::string* mask) {
    ShiftResult result;
    if (bitCount > maxScanBits) {
        result.status = reply::tooLong;
        return result;
    }
    const auto bits = static_cast<std::size_t>(std::max<std::int64_t>(bitCount, 0));
    const ScanKind kind = (flags & shiftFlag::instructionScan) != 0 ? ScanKind::Instruction : ScanKind::Data;
    result.tdo = jtag.scan(kind, tdi, bits, tap.endState(kind));
    if (mask != nullptr) {
        static const std::string none;
        result.mismatches = countMismatches(result.tdo, expected != nullptr ? *expected : none, *mask, bits);
    }
    return result;
}

int Cable::describeChain(std::string& description) const {
    description.clear();
    for (const TapDevice& device : jtag.devices()) {
        char idcode[16] = "none";
        if (device.idcode) std::snprintf(idcode, sizeof idcode, "0x%08x", *device.idcode);
        description += device.name + "," + std::to_string(device.irLength) + "," + idcode + ";";
    }
    return static_cast<int>(jtag.devices().size());
}

namespace {

std::string registerText(const ShiftRegister& bits) {
    std::string text;
    char digits[24];
    if (bits.length() > longestRegisterShown) {
        std::uint64_t digest = 0xcbf29ce484222325ULL;
        for (std::size_t i = 0; i < bits.length(); ++i) digest = (digest ^ (bits.bit(i) ? 1U : 0U)) * 0x100000001b3ULL;
        std::snprintf(digits, sizeof digits, "0x%016llx", static_cast<unsigned long long>(digest));
        return std::to_string(bits.length()) + " bits fnv1a " + digits;
    }
    // Most significant digit first, as hex values are read.
    for (std::size_t digit = (bits.length() + 3) / 4; digit-- > 0;) {
        unsigned value = 0;
        for (std::size_t b = 0; b < 4; ++b) {
            const std::size_t index = digit * 4 + b;
            if (index < bits.length() && bits.bit(index)) value |= 1U << b;
        }
        text += "0123456789abcdef"[value];
    }
    return "0x" + text;
}

}  // namespace

int Cable::describeDevice(int index, std::string& registers) const {
    const std::vector<TapDevice>& devices = jtag.devices();
    if (index < 0 || static_cast<std::size_t>(index) >= devices.size()) return reply::outOfRange;
    const auto position = static_cast<std::size_t>(index);
    const TapDevice& device = devices[position];
    const std::vector<ShiftRegister>& held = jtag.registersOf(position);
    char instruction[24];
    std::snprintf(instruction, sizeof instruction, "0x%llx",
                  static_cast<unsigned long long>(jtag.instruction(position)));
    registers = device.name + ";instruction=" + instruction +
                ";ir=" + registerText(held[JtagChain::instructionRegister]) +
                ";fixed=" + registerText(held[JtagChain::fixedRegister]) + ";";
    for (std::size_t i = 0; i < device.instructions.size(); ++i)
        registers += device.instructions[i].name + "=" + registerText(held[JtagChain::firstListedRegister + i]) + ";";
    return static_cast<int>(devices.size());
}

int Cable::sspiWrite(std::int64_t address, std::string_view data, int options) {
    if (!sspi.contains(address, data.size())) return reply::outOfRange;
    sspi.program(address, data, (options & sspiOption::eraseFirst) != 0);
    return reply::done;
}

int Cable::sspiReadStatus(std::int64_t address, std::size_t count) const {
    return sspi.contains(address, count) ? reply::done : reply::outOfRange;
}

std::string Cable::sspiRead(std::int64_t address, std::size_t count, std::size_t offset, std::size_t length) const {
    if (sspiReadStatus(address, count) != reply::done) return std::string(length, '\xFF');
    return sspi.read(address + static_cast<std::int64_t>(offset), length);
}

int Cable::i2cWrite(int busAddress, std::int64_t wordAddress, std::string_view data) {
    const int status = i2cReadStatus(busAddress, wordAddress);
    if (status != reply::done) return status;
    if (data.size() > eeprom.size()) return reply::outOfRange;
    eeprom.write(wordAddress, data);
    return reply::done;
}

int Cable::i2cReadStatus(int busAddress, std::int64_t wordAddress) const {
    if (busAddress != eeprom.busAddress()) return reply::noAcknowledge;
    return eeprom.validWordAddress(wordAddress) ? reply::done : reply::outOfRange;
}

std::string Cable::i2cRead(int busAddress, std::int64_t wordAddress, std::size_t offset, std::size_t length) const {
    if (i2cReadStatus(busAddress, wordAddress) != reply::done) return std::string(length, '\xFF');
    const auto start = static_cast<std::size_t>(wordAddress) + offset % eeprom.size();
    return eeprom.read(static_cast<std::int64_t>(start % eeprom.size()), length);
}

PumpPlan Cable::planPump(int modeValue, std::size_t size) {
    const std::optional<PumpMode> mode = pumpModeFrom(modeValue);
    if (!mode) return {reply::outOfRange, false};
    if (*mode == PumpMode::ReadOnly) return {reply::done, false};
    if (!pump.accepts(*mode, size)) return {reply::bufferFull, false};
    pump.prepare(*mode);
    return {reply::done, true};
}

int Cable::pumpReply(const PumpPlan& plan) const {
    if (plan.code != reply::done) return plan.code;
    return static_cast<int>(std::min<std::size_t>(pump.held(), std::numeric_limits<int>::max()));
}

int Cable::setSharedApps(std::string_view block) {
    sharedList.assign(block.substr(0, block.find('\0')));
    return sharedAppCount();
}

int Cable::sharedAppCount() const { return static_cast<int>(std::count(sharedList.begin(), sharedList.end(), ';')); }

}  // namespace tetherhost::sim

// SPDX-License-Identifier: MIT
/* JtagChain: the TAP controllers, their registers and the chain's scans. */
#include "server/JtagChain.h"

#include <algorithm>
#include <array>
#include <deque>
#include <sstream>
#include <stdexcept>

namespace tetherhost::sim {
namespace {

bool bitAt(const std::string& bits, std::size_t index) {
    const std::size_t byte = index / 8;
    return byte < bits.size() && ((static_cast<unsigned char>(bits[byte]) >> (index % 8)) & 1U) != 0;
}

void setBit(std::string& bits, std::size_t index) {
    bits[index / 8] = static_cast<char>(static_cast<unsigned char>(bits[index / 8]) | (1U << (index % 8)));
}

constexpr std::size_t wordBits = 64;
constexpr std::size_t idcodeLength = 32;

std::uint64_t lowBits(std::size_t length) {
    return length >= wordBits ? ~std::uint64_t{0} : (std::uint64_t{1} << length) - 1;
}

std::string hex(std::uint64_t value) {
    std::ostringstream text;
    text << "0x" << std::uppercase << std::hex << value;
    return text.str();
}

bool fitsIn(const RegisterBits& value, std::size_t length) {
    for (std::size_t word = 0; word < value.size(); ++word) {
        const std::size_t first = word * wordBits;
        if (first >= length ? value[word] != 0 : (value[word] & ~lowBits(length - first)) != 0) return false;
    }
    return true;
}

std::string keyed(const std::string& key, const std::string& problem) { return "key \"" + key + "\": " + problem; }

/** What is wrong with one device's description, its key named; empty when nothing. */
std::string deviceProblem(const TapDevice& device) {
    if (device.irLength < 2 || device.irLength > maxIrLength) return keyed("irLength", "must be 2 to 64");
    const std::string fitsNot = " does not fit irLength " + std::to_string(device.irLength);
    const std::uint64_t bypass = lowBits(static_cast<std::size_t>(device.irLength));
    if (device.irCapture > bypass) return keyed("irCapture", hex(device.irCapture) + fitsNot);
    if (device.idcode && (*device.idcode & 1U) == 0) return keyed("idcode", "bit 0 must be 1");
    if (device.idcode && device.idcodeInstruction >= bypass)
        return keyed("idcodeInstruction", "must fit irLength and differ from BYPASS (all ones)");
    for (auto instruction = device.instructions.begin(); instruction != device.instructions.end(); ++instruction) {
        const std::string key = "instructions." + instruction->name;
        const std::string opcode = hex(instruction->opcode);
        if (instruction->opcode > bypass) return keyed(key + ".opcode", opcode + fitsNot);
        if (instruction->opcode == bypass)
            return keyed(key + ".opcode", opcode + " is all ones, which always selects BYPASS");
        if (device.idcode && instruction->opcode == device.idcodeInstruction)
            return keyed(key + ".opcode", opcode + " is idcodeInstruction, which selects IDCODE");
        const auto same = std::find_if(device.instructions.begin(), instruction, [&](const TapInstruction& other) {
            return other.opcode == instruction->opcode;
        });
        if (same != instruction) return keyed(key + ".opcode", opcode + " is also the opcode of " + same->name);
        if (instruction->length < 1 || instruction->length > maxRegisterLength)
            return keyed(key + ".length", "must be 1 to " + std::to_string(maxRegisterLength));
        if (instruction->capture && !fitsIn(*instruction->capture, instruction->length))
            return keyed(key + ".capture", "does not fit length " + std::to_string(instruction->length));
    }
    return {};
}

constexpr std::uint32_t makeIdcode(std::uint32_t version, std::uint32_t part) {
    // Manufacturer field 0x0FF: identity code 0x7F after one continuation
    // code. 0x7F is the JEP106 continuation code itself and is never
    // assigned to a maker, so these IDCODEs cannot name a real part.
    constexpr std::uint32_t manufacturer = 0x0FF;
    return (version << 28) | (part << 12) | (manufacturer << 1) | 1U;
}

}  // namespace

std::vector<TapDevice> defaultChain() {
    constexpr std::uint64_t irCapture = 0b01;
    return {
        {"tap0", 4, makeIdcode(1, 0x0A5C), 0x0E, irCapture, {}},
        {"tap1", 6, makeIdcode(2, 0x3E17), 0x09, irCapture, {}},
        {"tap2", 8, makeIdcode(0, 0x7B42), 0x05, irCapture, {}},
    };
}

std::string validateChain(const std::vector<TapDevice>& devices) {
    constexpr std::size_t maxDevices = 32;
    if (devices.empty()) return "the chain has no devices";
    if (devices.size() > maxDevices) return "the chain has more than 32 devices";
    for (const TapDevice& device : devices) {
        const std::string problem = deviceProblem(device);
        if (!problem.empty()) return "device \"" + device.name + "\": " + problem;
    }
    return {};
}

void ShiftRegister::resize(std::size_t length) {
    bitCount = length;
    words.assign(std::max<std::size_t>(1, (length + wordBits - 1) / wordBits), 0);
}

void ShiftRegister::load(std::span<const std::uint64_t> value) {
    for (std::size_t word = 0; word < words.size(); ++word) words[word] = word < value.size() ? value[word] : 0;
    words.back() &= lowBits(bitCount - (words.size() - 1) * wordBits);
}

void ShiftRegister::assign(std::size_t index, bool value) {
    const std::uint64_t mask = std::uint64_t{1} << (index % wordBits);
    std::uint64_t& word = words[index / wordBits];
    word = value ? word | mask : word & ~mask;
}

bool ShiftRegister::shift(bool in) {
    const bool out = (words.front() & 1U) != 0;
    for (std::size_t word = 0; word + 1 < words.size(); ++word)
        words[word] = (words[word] >> 1) | (words[word + 1] << (wordBits - 1));
    words.back() >>= 1;
    assign(bitCount - 1, in);
    return out;
}

std::size_t countMismatches(const std::string& bits, const std::string& expected, const std::string& mask,
                            std::size_t bitCount) {
    std::size_t differing = 0;
    for (std::size_t i = 0; i < bitCount; ++i)
        if (bitAt(mask, i) && bitAt(bits, i) != bitAt(expected, i)) ++differing;
    return differing;
}

JtagChain::JtagChain(std::vector<TapDevice> devices) : descriptions(std::move(devices)) {
    const std::string problem = validateChain(descriptions);
    if (!problem.empty()) throw std::invalid_argument(problem);
    taps.resize(descriptions.size());
    for (std::size_t i = 0; i < taps.size(); ++i) {
        Tap& tap = taps[i];
        tap.instruction = resetInstruction(i);
        tap.registers.emplace_back(static_cast<std::size_t>(descriptions[i].irLength));
        tap.registers.emplace_back(1);
        for (const TapInstruction& instruction : descriptions[i].instructions)
            tap.registers.emplace_back(instruction.length);
    }
}

std::uint64_t JtagChain::resetInstruction(std::size_t index) const {
    const TapDevice& device = descriptions[index];
    return device.idcode ? device.idcodeInstruction : lowBits(static_cast<std::size_t>(device.irLength));
}

void JtagChain::capture(ScanKind kind) {
    for (std::size_t i = 0; i < taps.size(); ++i) {
        Tap& tap = taps[i];
        const TapDevice& device = descriptions[i];
        if (kind == ScanKind::Instruction) {
            tap.shifting = instructionRegister;
            tap.active().load({&device.irCapture, 1});
            continue;
        }
        const auto listed =
            std::find_if(device.instructions.begin(), device.instructions.end(),
                         [&](const TapInstruction& instruction) { return instruction.opcode == tap.instruction; });
        if (listed != device.instructions.end()) {
            tap.shifting = firstListedRegister + static_cast<std::size_t>(listed - device.instructions.begin());
            if (listed->capture) tap.active().load(*listed->capture);
            continue;
        }
        tap.shifting = fixedRegister;
        if (device.idcode && tap.instruction == device.idcodeInstruction) {
            const std::uint64_t idcode = *device.idcode;
            tap.active().resize(idcodeLength);
            tap.active().load({&idcode, 1});
        } else {
            tap.active().resize(1);  // BYPASS, which captures 0
        }
    }
}

void JtagChain::enter(TapState state) {
    current = state;
    if (state == TapState::UpdateIr) {
        for (Tap& tap : taps) tap.instruction = tap.registers[instructionRegister].low();
    } else if (state == TapState::TestLogicReset) {
        for (std::size_t i = 0; i < taps.size(); ++i) taps[i].instruction = resetInstruction(i);
    }
}

bool JtagChain::clock(bool tms, bool tdi) {
    if (trstAsserted) return true;
    ++clocked;
    bool tdo = true;
    switch (current) {
    case TapState::CaptureDr: capture(ScanKind::Data); break;
    case TapState::CaptureIr: capture(ScanKind::Instruction); break;
    case TapState::ShiftDr:
    case TapState::ShiftIr: {
        bool in = tdi;
        for (Tap& tap : taps) in = tap.active().shift(in);
        tdo = in;
        break;
    }
    default: break;
    }
    enter(nextTapState(current, tms));
    return tdo;
}

bool JtagChain::tdo() const {
    const bool shifting = current == TapState::ShiftDr || current == TapState::ShiftIr;
    return !shifting || taps.empty() || taps.back().active().bit(0);
}

void JtagChain::reset() {
    for (int i = 0; i < 5; ++i) clock(true, false);
}

void JtagChain::testReset() { enter(TapState::TestLogicReset); }

void JtagChain::setTrst(bool asserted) {
    if (asserted) testReset();
    trstAsserted = asserted;
}

bool JtagChain::stepTo(TapState next) {
    for (const bool tms : {false, true}) {
        if (nextTapState(current, tms) != next) continue;
        clock(tms, false);
        return true;
    }
    return false;
}

void JtagChain::idle(std::uint64_t count) {
    if (!trstAsserted) clocked += count;
}

void JtagChain::moveTo(TapState target) {
    // Breadth-first search over the 16 states; each state has two exits.
    std::array<int, tapStateCount> from{};
    std::array<bool, tapStateCount> viaTms{};
    from.fill(-1);
    const auto start = static_cast<int>(current);
    from[static_cast<std::size_t>(start)] = start;
    std::deque<int> pending{start};
    while (!pending.empty()) {
        const int state = pending.front();
        pending.pop_front();
        for (const bool tms : {false, true}) {
            const auto next = static_cast<int>(nextTapState(static_cast<TapState>(state), tms));
            if (from[static_cast<std::size_t>(next)] >= 0) continue;
            from[static_cast<std::size_t>(next)] = state;
            viaTms[static_cast<std::size_t>(next)] = tms;
            pending.push_back(next);
        }
    }
    std::vector<bool> path;
    for (auto state = static_cast<int>(target); state != start; state = from[static_cast<std::size_t>(state)])
        path.insert(path.begin(), viaTms[static_cast<std::size_t>(state)]);
    for (const bool tms : path) clock(tms, false);
}

std::string JtagChain::shiftThrough(const std::string& tdi, std::size_t bitCount) {
    // The whole chain is one shift register. Seen from the cable's TDO, its
    // bits are the last device's register (bit 0 first), then the one before
    // it, and so on; shifting appends TDI behind them. After bitCount shifts
    // the first bitCount bits of that stream have come out and the next ones
    // fill the registers.
    std::vector<bool> chain;
    for (auto tap = taps.rbegin(); tap != taps.rend(); ++tap) {
        const ShiftRegister& bits = tap->active();
        for (std::size_t i = 0; i < bits.length(); ++i) chain.push_back(bits.bit(i));
    }
    const auto stream = [&](std::size_t index) {
        return index < chain.size() ? static_cast<bool>(chain[index]) : bitAt(tdi, index - chain.size());
    };
    std::string tdo((bitCount + 7) / 8, '\0');
    for (std::size_t i = 0; i < bitCount; ++i)
        if (stream(i)) setBit(tdo, i);
    std::size_t position = bitCount;
    for (auto tap = taps.rbegin(); tap != taps.rend(); ++tap) {
        ShiftRegister& bits = tap->active();
        for (std::size_t i = 0; i < bits.length(); ++i, ++position) bits.assign(i, stream(position));
    }
    clocked += bitCount;
    current = nextTapState(current, true);
    return tdo;
}

std::string JtagChain::scan(ScanKind kind, const std::string& tdi, std::size_t bitCount, TapState end) {
    if (trstAsserted) return std::string((bitCount + 7) / 8, '\xFF');
    const bool instruction = kind == ScanKind::Instruction;
    const TapState pause = instruction ? TapState::PauseIr : TapState::PauseDr;
    std::string tdo;
    if (current == pause && bitCount > 0) {
        clock(true, false);   // Pause to Exit2
        clock(false, false);  // Exit2 to Shift: the register keeps what it holds
        tdo = shiftThrough(tdi, bitCount);
    } else if (current != pause) {
        moveTo(instruction ? TapState::CaptureIr : TapState::CaptureDr);
        if (bitCount == 0) {
            clock(true, false);  // capture, then straight to Exit1
        } else {
            clock(false, false);  // capture, then Shift
            tdo = shiftThrough(tdi, bitCount);
        }
    }
    if (current == pause) {
        // An empty scan resumed from Pause: nothing shifted; on to `end`.
    } else if (end == pause) {
        clock(false, false);  // Exit1 to Pause, before Update
        return tdo;
    } else {
        clock(true, false);  // Exit1 to Update: the instruction takes effect
    }
    moveTo(end);
    return tdo;
}

}  // namespace tetherhost::sim

// SPDX-License-Identifier: MIT
/* Xvc: the Xilinx Virtual Cable commands taken off a byte stream that may
 * cut them anywhere, and carried out on the virtual chain. */
#include "server/Xvc.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace tetherhost::sim {

namespace {

constexpr std::string_view getinfo = "getinfo:";
constexpr std::string_view settck = "settck:";
constexpr std::string_view shiftCommand = "shift:";
constexpr std::array<std::string_view, 3> commandNames = {getinfo, settck, shiftCommand};
constexpr std::size_t numberBytes = 4;
// Bytes of an unknown command shown in the reason for the close (the trace
// shows 64 characters of an event).
constexpr std::size_t shownBytes = 4;

std::uint32_t littleEndian(std::string_view bytes) {
    std::uint32_t value = 0;
    for (std::size_t i = numberBytes; i-- > 0;) value = (value << 8) | static_cast<unsigned char>(bytes[i]);
    return value;
}

bool bitOf(std::string_view vector, std::size_t index) {
    return ((static_cast<unsigned char>(vector[index / 8]) >> (index % 8)) & 1U) != 0;
}

/** True while `bytes`, which hold no whole command name, may still become a
 * command: they are the beginning of a command's name. */
bool beginsACommand(std::string_view bytes) {
    return std::any_of(commandNames.begin(), commandNames.end(),
                       [bytes](std::string_view name) { return name.starts_with(bytes.substr(0, name.size())); });
}

std::string hexBytes(std::string_view bytes) {
    std::string text;
    for (std::size_t i = 0; i < bytes.size() && i < shownBytes; ++i) {
        char byte[4];
        std::snprintf(byte, sizeof byte, " %02X", static_cast<unsigned char>(bytes[i]));
        text += byte;
    }
    return text;
}

}  // namespace

Xvc::Outcome Xvc::feed(std::string_view bytes, std::string& answers) {
    pending.append(bytes);
    const std::string_view unread(pending);
    std::size_t done = 0;
    while (const std::size_t taken = carryOut(unread.substr(done), answers)) done += taken;
    pending.erase(0, done);
    return rejection.empty() ? Outcome::More : Outcome::Garbage;
}

std::size_t Xvc::carryOut(std::string_view command, std::string& answers) {
    if (command.starts_with(getinfo)) {
        answers += "xvcServer_v1.0:" + std::to_string(maxVectorBytes) + "\n";
        return getinfo.size();
    }
    if (command.starts_with(settck)) {
        if (command.size() < settck.size() + numberBytes) return 0;
        const std::string_view asked = command.substr(settck.size(), numberBytes);
        period = littleEndian(asked);
        answers += asked;
        return settck.size() + numberBytes;
    }
    if (command.starts_with(shiftCommand)) {
        if (command.size() < shiftCommand.size() + numberBytes) return 0;
        const std::uint32_t bitCount = littleEndian(command.substr(shiftCommand.size()));
        // The count is checked before the vectors arrive, so a client
        // cannot make the server wait for, or keep, more than the limit.
        if (bitCount == 0 || bitCount > maxShiftBits) {
            rejection = "shift of " + std::to_string(bitCount) + " bits, not 1 to " + std::to_string(maxShiftBits);
            return 0;
        }
        const std::size_t vectorBytes = (bitCount + 7) / 8;
        const std::size_t whole = shiftCommand.size() + numberBytes + 2 * vectorBytes;
        if (command.size() < whole) return 0;
        const std::string_view vectors = command.substr(shiftCommand.size() + numberBytes);
        shift(bitCount, vectors.substr(0, vectorBytes), vectors.substr(vectorBytes, vectorBytes), answers);
        return whole;
    }
    if (!beginsACommand(command)) rejection = "not an XVC command:" + hexBytes(command);
    return 0;
}

void Xvc::shift(std::uint32_t bitCount, std::string_view tms, std::string_view tdi, std::string& answers) {
    const std::size_t first = answers.size();
    answers.append(tms.size(), '\0');
    for (std::size_t bit = 0; bit < bitCount; ++bit)
        if (chain.clock(bitOf(tms, bit), bitOf(tdi, bit)))
            answers[first + bit / 8] |= static_cast<char>(1 << (bit % 8));
    clocked += bitCount;
}

}  // namespace tetherhost::sim

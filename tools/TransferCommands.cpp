// SPDX-License-Identifier: MIT
/* `tetherctl shift`, `sspi` and `i2c`: one transfer each, with the data that
 * come back printed as hex. */
#include <cstdio>
#include <string>

#include "Client.h"
#include "tools/Commands.h"
#include "tools/Failure.h"

namespace tetherctl {

namespace {

/* The SSPI option bit that erases the touched sectors before programming. */
constexpr int sspiEraseFirst = 1;

Bytes dataArgument(const std::string& text, std::size_t limit, const std::string& what) {
    auto bytes = parseHexBytes(text);
    if (!bytes || bytes->empty()) throw UsageError(what + ": DATA must be pairs of hex digits, at least one byte");
    if (bytes->size() > limit) throw UsageError(what + ": at most " + std::to_string(limit) + " bytes in one transfer");
    return *bytes;
}

int intArgument(long value, const std::string& what) {
    if (value < 0 || value > 0x7FFFFFFF) throw UsageError(what + " must be between 0 and 0x7FFFFFFF");
    return static_cast<int>(value);
}

std::string hexNumber(long value) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%lX", value);
    return text;
}

}  // namespace

Bytes collectReturnedData(Client& client, std::size_t byteCount) {
    Bytes data(byteCount, 0);
    unsigned char* destination = data.data();
    const int status = client.GetTDO(destination, static_cast<int>(byteCount * 8));
    if (status != 0) throw Failure("collecting the returned data (GetTDO)", status);
    return data;
}

void runShift(const CommonOptions& common, const ShiftOptions& options, Output& out) {
    if (options.bits < 1 || options.bits > maxShiftBits)
        throw UsageError("shift: BITS must be between 1 and " + std::to_string(maxShiftBits));
    const auto tdi = parseScanValue(options.value, options.bits);
    if (!tdi)
        throw UsageError("shift: VALUE must be a hex number of at most " + std::to_string(options.bits) + " bits");
    const bool instruction = options.registerName == "ir";
    // The read-back needs a second block, the TDO expected; without a mask
    // nothing is compared, so zeros will do.
    const Bytes expected(tdi->size(), 0);

    ServerSession session(common);
    session.begin();
    Client& client = session.client();
    const int mismatches =
        client.Send(command::jtagInterface, sub::jtagShift, instruction ? shiftFlag::instructionScan : 0, options.bits,
                    1, 0, tdi->data(), expected.data());
    session.check(mismatches, "shifting (command 44, sub-command 12)");
    const Bytes tdo = collectReturnedData(client, tdi->size());
    session.end();

    const std::string tdoText = "0x" + formatScanValue(tdo, options.bits);
    Json& data = out.data();
    data["command"] = "shift";
    data["register"] = options.registerName;
    data["bits"] = options.bits;
    data["tdi"] = "0x" + formatScanValue(*tdi, options.bits);
    data["tdo"] = tdoText;
    out.line("TDO " + tdoText);
}

void runSspi(const CommonOptions& common, const SspiOptions& options, Output& out) {
    const int address = intArgument(options.address, "sspi: ADDRESS");
    const bool reading = options.data.empty();
    if (reading == (options.readCount == 0)) throw UsageError("sspi: give either DATA to program or --read COUNT");
    if (reading && (options.readCount < 0 || static_cast<std::size_t>(options.readCount) > maxSspiBytes))
        throw UsageError("sspi: --read takes 1 to " + std::to_string(maxSspiBytes) + " bytes");
    if (reading && (options.writeOnly || options.erase))
        throw UsageError("sspi: --read cannot be combined with --write-only or --erase");
    // Programming can only clear bits, so writing 0xFF bytes leaves the
    // memory as it is: that is how a transfer reads without changing it.
    const Bytes written = reading ? Bytes(static_cast<std::size_t>(options.readCount), 0xFF)
                                  : dataArgument(options.data, maxSspiBytes, "sspi");
    const int bits = static_cast<int>(written.size() * 8);

    ServerSession session(common);
    session.begin();
    Client& client = session.client();
    const int result = client.Send(options.writeOnly ? command::sspiWrite : command::sspiWriteReadBack, address, bits,
                                   reinterpret_cast<const char*>(written.data()), options.erase ? sspiEraseFirst : 0);
    session.check(result, "transferring on SSPI (command " +
                              std::to_string(options.writeOnly ? command::sspiWrite : command::sspiWriteReadBack) +
                              ")");
    Bytes returned;
    if (!options.writeOnly) returned = collectReturnedData(client, written.size());
    session.end();

    Json& data = out.data();
    data["command"] = "sspi";
    data["address"] = address;
    data["written"] = reading ? Json() : Json(formatHexBytes(written));
    if (!reading) out.line("programmed " + std::to_string(written.size()) + " bytes at " + hexNumber(address));
    data["data"] = options.writeOnly ? Json() : Json(formatHexBytes(returned));
    if (!options.writeOnly) out.line("data at " + hexNumber(address) + ": " + formatHexBytes(returned));
}

void runI2c(const CommonOptions& common, const I2cOptions& options, Output& out) {
    const int wordAddress = intArgument(options.wordAddress, "i2c: ADDRESS");
    if (options.device < 0 || options.device > 0x7F) throw UsageError("i2c: --device takes a 7-bit bus address");
    const Bytes written = dataArgument(options.data, maxI2cBytes, "i2c");
    const int bits = static_cast<int>(written.size() * 8);
    const int transfer = options.writeOnly ? command::i2cWrite : command::i2cWriteReadBack;

    ServerSession session(common);
    session.begin();
    Client& client = session.client();
    // The fifth element, the transfer's last value, has no meaning for the
    // simulator's EEPROM.
    const int result =
        client.Send(transfer, wordAddress, options.device, bits, reinterpret_cast<const char*>(written.data()), 0);
    session.check(result, "transferring on I2C (command " + std::to_string(transfer) + ")");
    Bytes returned;
    if (!options.writeOnly) returned = collectReturnedData(client, written.size());
    session.end();

    Json& data = out.data();
    data["command"] = "i2c";
    data["device"] = options.device;
    data["address"] = wordAddress;
    data["written"] = formatHexBytes(written);
    out.line("wrote " + std::to_string(written.size()) + " bytes at " + hexNumber(wordAddress) + " of device " +
             hexNumber(options.device));
    data["data"] = options.writeOnly ? Json() : Json(formatHexBytes(returned));
    if (!options.writeOnly) out.line("data at " + hexNumber(wordAddress) + ": " + formatHexBytes(returned));
}

}  // namespace tetherctl

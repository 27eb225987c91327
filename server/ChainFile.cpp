// SPDX-License-Identifier: MIT
/* ChainFile: the --chain JSON format, and the look-up of a shipped chain by
 * its name. Numbers may be JSON integers or texts in decimal or 0x-prefixed
 * hexadecimal (IDCODEs read better in hex). */
#include "server/ChainFile.h"

#include <filesystem>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include "support/ByteUnits.h"

namespace tetherhost::sim {
namespace {

using nlohmann::json;

std::uint64_t number(const json& value, const std::string& what, std::uint64_t max) {
    std::uint64_t result = 0;
    if (value.is_number_unsigned()) {
        result = value.get<std::uint64_t>();
    } else if (value.is_string()) {
        const std::string text = value.get<std::string>();
        std::size_t used = 0;
        try {
            result = std::stoull(text, &used, 0);
        } catch (const std::exception&) {
            used = 0;
        }
        if (used == 0 || used != text.size() || text.front() == '-')
            throw std::runtime_error(what + ": \"" + text + "\" is not a number");
    } else {
        throw std::runtime_error(what + ": expected a non-negative number");
    }
    if (result > max) throw std::runtime_error(what + ": " + std::to_string(result) + " is too large");
    return result;
}

/** The first key of `object` that is not `known`; empty when there is none. */
std::string unknownKey(const json& object, std::initializer_list<const char*> known) {
    for (const auto& item : object.items()) {
        bool found = false;
        for (const char* key : known) found = found || item.key() == key;
        if (!found) return item.key();
    }
    return {};
}

void checkKeys(const json& object, const std::string& what, std::initializer_list<const char*> known) {
    if (!object.is_object()) throw std::runtime_error(what + ": expected an object");
    const std::string unknown = unknownKey(object, known);
    if (!unknown.empty()) throw std::runtime_error(what + ": unknown key \"" + unknown + "\"");
}

/** Names a key of one device in complaints: device "fpga": key "irCapture". */
class DeviceKeys {
public:
    explicit DeviceKeys(const std::string& device) : prefix("device \"" + device + "\": key \"") {}
    std::string operator()(const std::string& key) const { return prefix + key + "\""; }
    /** Refuses a value that is not an object, and keys of it that are not `known`. */
    void check(const json& object, const std::string& key, std::initializer_list<const char*> known) const {
        if (!object.is_object()) throw std::runtime_error((*this)(key) + ": expected an object");
        const std::string unknown = unknownKey(object, known);
        const std::string path = key.empty() ? unknown : key + "." + unknown;
        if (!unknown.empty()) throw std::runtime_error((*this)(path) + ": unknown");
    }

private:
    std::string prefix;
};

constexpr auto anyWord = std::numeric_limits<std::uint64_t>::max();

/** A register value: a JSON integer, a decimal text of up to 64 bits, or a
 * 0x-prefixed hexadecimal text of any length (registers may be longer than
 * 64 bits). */
RegisterBits registerValue(const json& value, const std::string& what) {
    const bool isHex = value.is_string() && value.get<std::string>().rfind("0x", 0) == 0;
    if (!isHex) return {number(value, what, anyWord)};
    const std::string text = value.get<std::string>();
    const std::string digits = text.substr(2);
    if (digits.empty() || digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        throw std::runtime_error(what + ": \"" + text + "\" is not a number");
    constexpr std::size_t digitsPerWord = 16;
    RegisterBits result((digits.size() + digitsPerWord - 1) / digitsPerWord, 0);
    for (std::size_t i = 0; i < digits.size(); ++i) {
        const std::size_t fromEnd = digits.size() - 1 - i;
        const char character = digits[i];
        const auto digit =
            static_cast<std::uint64_t>(character <= '9' ? character - '0' : (character | 0x20) - 'a' + 10);
        result[fromEnd / digitsPerWord] |= digit << (4 * (fromEnd % digitsPerWord));
    }
    return result;
}

std::string text(const json& value, const std::string& what) {
    if (!value.is_string()) throw std::runtime_error(what + ": expected a text");
    return value.get<std::string>();
}

TapInstruction instruction(const std::string& name, const json& entry, const DeviceKeys& key) {
    const std::string path = "instructions." + name;
    key.check(entry, path, {"opcode", "length", "capture"});
    TapInstruction result;
    result.name = name;
    for (const char* required : {"opcode", "length"})
        if (!entry.contains(required)) throw std::runtime_error(key(path + "." + required) + ": missing");
    result.opcode = number(entry.at("opcode"), key(path + ".opcode"), anyWord);
    result.length = number(entry.at("length"), key(path + ".length"), maxRegisterLength);
    if (entry.contains("capture")) result.capture = registerValue(entry.at("capture"), key(path + ".capture"));
    return result;
}

TapDevice device(const json& entry, std::size_t index) {
    const std::string position = "devices[" + std::to_string(index) + "]";
    if (!entry.is_object()) throw std::runtime_error(position + ": expected an object");
    TapDevice result;
    result.name =
        entry.contains("name") ? text(entry.at("name"), position + ": key \"name\"") : "tap" + std::to_string(index);
    const DeviceKeys key(result.name);
    key.check(entry, "", {"name", "irLength", "idcode", "idcodeInstruction", "irCapture", "instructions", "source"});
    if (!entry.contains("irLength")) throw std::runtime_error(key("irLength") + ": missing");
    result.irLength = static_cast<int>(number(entry.at("irLength"), key("irLength"), maxIrLength));
    if (entry.contains("idcode") && !entry.at("idcode").is_null()) {
        constexpr auto idcodeWord = std::numeric_limits<std::uint32_t>::max();
        result.idcode = static_cast<std::uint32_t>(number(entry.at("idcode"), key("idcode"), idcodeWord));
        if (!entry.contains("idcodeInstruction"))
            throw std::runtime_error(key("idcodeInstruction") + ": needed by a device with an idcode");
        result.idcodeInstruction = number(entry.at("idcodeInstruction"), key("idcodeInstruction"), anyWord);
    }
    if (entry.contains("irCapture")) result.irCapture = number(entry.at("irCapture"), key("irCapture"), anyWord);
    if (entry.contains("instructions")) {
        const json& instructions = entry.at("instructions");
        if (!instructions.is_object()) throw std::runtime_error(key("instructions") + ": expected an object");
        for (const auto& item : instructions.items())
            result.instructions.push_back(instruction(item.key(), item.value(), key));
    }
    if (entry.contains("source")) text(entry.at("source"), key("source"));  // for people; the model ignores it
    return result;
}

}  // namespace

CableConfig parseCableConfig(const std::string& text) {
    json document;
    try {
        document = json::parse(text);
    } catch (const json::parse_error& error) {
        throw std::runtime_error(std::string("not valid JSON: ") + error.what());
    }
    checkKeys(document, "chain file", {"devices", "sspi", "i2c", "pump"});
    CableConfig config;
    try {
        if (!document.contains("devices") || !document.at("devices").is_array())
            throw std::runtime_error("devices: expected an array of devices");
        config.chain.clear();
        const json& devices = document.at("devices");
        for (std::size_t i = 0; i < devices.size(); ++i) config.chain.push_back(device(devices[i], i));
        const std::string problem = validateChain(config.chain);
        if (!problem.empty()) throw std::runtime_error(problem);

        constexpr std::uint64_t maxMemory = 64 * units::mebi;
        if (document.contains("sspi")) {
            const json& sspi = document.at("sspi");
            checkKeys(sspi, "sspi", {"size"});
            if (sspi.contains("size")) config.sspiSize = number(sspi.at("size"), "sspi.size", maxMemory);
        }
        if (document.contains("i2c")) {
            const json& i2c = document.at("i2c");
            checkKeys(i2c, "i2c", {"address", "size"});
            if (i2c.contains("address"))
                config.i2cAddress = static_cast<int>(number(i2c.at("address"), "i2c.address", 0x7F));
            if (i2c.contains("size")) config.i2cSize = number(i2c.at("size"), "i2c.size", maxMemory);
            if (config.i2cSize == 0) throw std::runtime_error("i2c.size: must be at least 1");
        }
        if (document.contains("pump")) {
            const json& pump = document.at("pump");
            checkKeys(pump, "pump", {"capacity"});
            if (pump.contains("capacity"))
                config.pumpCapacity = number(pump.at("capacity"), "pump.capacity", 256 * units::mebi);
        }
    } catch (const json::exception& error) {
        throw std::runtime_error(error.what());
    }
    return config;
}

CableConfig loadCableConfig(const std::string& path) {
    std::ifstream file(path);
    if (!file) throw std::runtime_error("cannot read " + path);
    std::ostringstream text;
    text << file.rdbuf();
    return parseCableConfig(text.str());
}

std::vector<std::string> shippedChainFolders() {
    // An installed program finds the chains beside its bin folder; one run
    // from the build tree (or from a link to it elsewhere) finds none there
    // and takes them from the source tree it was built from.
    std::vector<std::string> folders;
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error) folders.push_back((program.parent_path() / TETHERHOST_CHAINS_FROM_BIN).lexically_normal().string());
    folders.emplace_back(TETHERHOST_SOURCE_CHAINS);
    return folders;
}

std::string chainFilePath(const std::string& argument, const std::vector<std::string>& folders) {
    if (argument.find('/') != std::string::npos || std::filesystem::path(argument).extension() == ".json")
        return argument;
    std::string looked;
    for (const std::string& folder : folders) {
        std::string candidate = folder;
        candidate.append("/").append(argument).append(".json");
        if (std::filesystem::is_regular_file(candidate)) return candidate;
        looked.append(looked.empty() ? "" : ", ").append(folder);
    }
    throw std::runtime_error("no shipped chain named \"" + argument + "\" in " + looked);
}

}  // namespace tetherhost::sim

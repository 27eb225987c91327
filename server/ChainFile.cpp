/* ChainFile: the --chain JSON format. Numbers may be JSON integers or texts
 * in decimal or 0x-prefixed hexadecimal (IDCODEs read better in hex). */
#include "server/ChainFile.h"

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

void checkKeys(const json& object, const std::string& what, std::initializer_list<const char*> known) {
    if (!object.is_object()) throw std::runtime_error(what + ": expected an object");
    for (const auto& item : object.items()) {
        bool found = false;
        for (const char* key : known) found = found || item.key() == key;
        if (!found) throw std::runtime_error(what + ": unknown key \"" + item.key() + "\"");
    }
}

TapDevice device(const json& entry, std::size_t index) {
    const std::string what = "devices[" + std::to_string(index) + "]";
    checkKeys(entry, what, {"name", "irLength", "idcode", "idcodeInstruction"});
    TapDevice result;
    result.name = entry.contains("name") ? entry.at("name").get<std::string>() : "tap" + std::to_string(index);
    if (!entry.contains("irLength")) throw std::runtime_error(what + ": irLength is missing");
    result.irLength = static_cast<int>(number(entry.at("irLength"), what + ".irLength", maxIrLength));
    if (entry.contains("idcode") && !entry.at("idcode").is_null()) {
        constexpr auto word = std::numeric_limits<std::uint32_t>::max();
        result.idcode = static_cast<std::uint32_t>(number(entry.at("idcode"), what + ".idcode", word));
        if (!entry.contains("idcodeInstruction"))
            throw std::runtime_error(what + ": a device with an idcode needs idcodeInstruction");
        result.idcodeInstruction =
            static_cast<std::uint32_t>(number(entry.at("idcodeInstruction"), what + ".idcodeInstruction", word));
    }
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

}  // namespace tetherhost::sim

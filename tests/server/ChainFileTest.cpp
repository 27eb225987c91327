/* The --chain JSON format: what it sets, its defaults and its refusals. */
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "server/ChainFile.h"

namespace tetherhost::test {
namespace {

using sim::parseCableConfig;

std::string problemWith(const std::string& text) {
    try {
        parseCableConfig(text);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

TEST(ChainFile, DevicesAndTargetsAreRead) {
    const sim::CableConfig config = parseCableConfig(R"({
        "devices": [
            {"name": "cpu", "irLength": 4, "idcode": "0x4BA00477", "idcodeInstruction": "0xE"},
            {"name": "cpld", "irLength": 10}
        ],
        "sspi": {"size": 1024},
        "i2c": {"address": "0x51", "size": 512},
        "pump": {"capacity": 4096}
    })");
    ASSERT_EQ(config.chain.size(), 2U);
    EXPECT_EQ(config.chain[0].name, "cpu");
    EXPECT_EQ(config.chain[0].irLength, 4);
    EXPECT_EQ(config.chain[0].idcode, 0x4BA00477U);
    EXPECT_EQ(config.chain[0].idcodeInstruction, 0xEU);
    EXPECT_EQ(config.chain[1].name, "cpld");
    EXPECT_EQ(config.chain[1].irLength, 10);
    EXPECT_FALSE(config.chain[1].idcode.has_value());
    EXPECT_EQ(config.sspiSize, 1024U);
    EXPECT_EQ(config.i2cAddress, 0x51);
    EXPECT_EQ(config.i2cSize, 512U);
    EXPECT_EQ(config.pumpCapacity, 4096U);
}

TEST(ChainFile, TargetsKeepTheirDefaultsWhenLeftOut) {
    const sim::CableConfig config = parseCableConfig(R"({"devices": [{"irLength": 5}]})");
    ASSERT_EQ(config.chain.size(), 1U);
    EXPECT_EQ(config.chain[0].name, "tap0");
    EXPECT_EQ(config.sspiSize, 64U * 1024U);
    EXPECT_EQ(config.i2cAddress, 0x50);
    EXPECT_EQ(config.i2cSize, 256U);
}

TEST(ChainFile, MistakesAreNamed) {
    EXPECT_EQ(problemWith(R"({"devices": []})"), "the chain has no devices");
    EXPECT_EQ(problemWith(R"({"devices": [{"name": "a"}]})"), "devices[0]: irLength is missing");
    EXPECT_EQ(problemWith(R"({"devices": [{"irLength": 4, "idcode": 3}]})"),
              "devices[0]: a device with an idcode needs idcodeInstruction");
    EXPECT_EQ(problemWith(R"({"devices": [{"irLength": 4, "idcode": 2, "idcodeInstruction": 1}]})"),
              "device \"tap0\": IDCODE bit 0 must be 1");
    EXPECT_EQ(problemWith(R"({"devices": [{"irLength": 4, "colour": "red"}]})"), "devices[0]: unknown key \"colour\"");
    EXPECT_EQ(problemWith(R"({"devices": [{"irLength": "four"}]})"), "devices[0].irLength: \"four\" is not a number");
    EXPECT_EQ(problemWith(R"({"devices": [{"irLength": -4}]})"), "devices[0].irLength: expected a non-negative number");
    EXPECT_EQ(problemWith(R"({"devices": [{"irLength": 4}], "i2c": {"address": 128}})"),
              "i2c.address: 128 is too large");
    EXPECT_EQ(problemWith(R"({"chain": []})"), "chain file: unknown key \"chain\"");
    EXPECT_EQ(problemWith("{").rfind("not valid JSON: ", 0), 0U);
}

}  // namespace
}  // namespace tetherhost::test

// SPDX-License-Identifier: MIT
/* The --chain JSON format: what it sets, its defaults and its refusals; the
 * shipped chains; and how --chain finds a shipped chain by its name. */
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "server/ChainFile.h"
#include "server/JtagChain.h"
#include "SimulatorHarness.h"

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
    EXPECT_EQ(problemWith(R"({"devices": [{"name": "a"}]})"), "device \"a\": key \"irLength\": missing");
    EXPECT_EQ(problemWith(R"({"devices": [{"irLength": 4, "idcode": 3}]})"),
              "device \"tap0\": key \"idcodeInstruction\": needed by a device with an idcode");
    EXPECT_EQ(problemWith(R"({"devices": [{"irLength": 4, "idcode": 2, "idcodeInstruction": 1}]})"),
              "device \"tap0\": key \"idcode\": bit 0 must be 1");
    EXPECT_EQ(problemWith(R"({"devices": [{"irLength": 4, "colour": "red"}]})"),
              "device \"tap0\": key \"colour\": unknown");
    EXPECT_EQ(problemWith(R"({"devices": [{"irLength": "four"}]})"),
              "device \"tap0\": key \"irLength\": \"four\" is not a number");
    EXPECT_EQ(problemWith(R"({"devices": [{"irLength": -4}]})"),
              "device \"tap0\": key \"irLength\": expected a non-negative number");
    EXPECT_EQ(problemWith(R"({"devices": [{"irLength": 65}]})"), "device \"tap0\": key \"irLength\": 65 is too large");
    EXPECT_EQ(problemWith(R"({"devices": [{"irLength": 4}], "i2c": {"address": 128}})"),
              "i2c.address: 128 is too large");
    EXPECT_EQ(problemWith(R"({"chain": []})"), "chain file: unknown key \"chain\"");
    EXPECT_EQ(problemWith("{").rfind("not valid JSON: ", 0), 0U);
}

TEST(ChainFile, InstructionsIrCaptureAndSourceAreRead) {
    const sim::CableConfig config = parseCableConfig(R"({"devices": [
        {"name": "fpga", "irLength": 6, "idcode": "0x0362D093", "idcodeInstruction": "0x09", "irCapture": "0x11",
         "source": "numbers from somewhere",
         "instructions": {
           "USERCODE": {"opcode": "0x08", "length": 32, "capture": "0xFFFFFFFF"},
           "CFG_IN":   {"opcode": "0x05", "length": 64},
           "WIDE":     {"opcode": 3, "length": 72, "capture": "0xAB0123456789ABCDEF"}
         }}]})");
    ASSERT_EQ(config.chain.size(), 1U);
    const sim::TapDevice& fpga = config.chain[0];
    EXPECT_EQ(fpga.irCapture, 0x11U);
    EXPECT_EQ(fpga.idcodeInstruction, 0x09U);
    ASSERT_EQ(fpga.instructions.size(), 3U);
    // JSON objects come out in key order.
    EXPECT_EQ(fpga.instructions[0].name, "CFG_IN");
    EXPECT_EQ(fpga.instructions[0].opcode, 0x05U);
    EXPECT_EQ(fpga.instructions[0].length, 64U);
    EXPECT_FALSE(fpga.instructions[0].capture.has_value());
    EXPECT_EQ(fpga.instructions[1].name, "USERCODE");
    EXPECT_EQ(fpga.instructions[1].capture, (sim::RegisterBits{0xFFFFFFFFU}));
    EXPECT_EQ(fpga.instructions[2].name, "WIDE");
    EXPECT_EQ(fpga.instructions[2].opcode, 3U);
    EXPECT_EQ(fpga.instructions[2].capture, (sim::RegisterBits{0x0123456789ABCDEFU, 0xABU}));
}

TEST(ChainFile, IrCaptureDefaultsToZeroOneAndAcceptsAnyValueThatFits) {
    EXPECT_EQ(parseCableConfig(R"({"devices": [{"irLength": 4}]})").chain[0].irCapture, 0b01U);
    EXPECT_EQ(parseCableConfig(R"({"devices": [{"irLength": 4, "irCapture": 0}]})").chain[0].irCapture, 0U);
    EXPECT_EQ(parseCableConfig(R"({"devices": [{"irLength": 4, "irCapture": "0xE"}]})").chain[0].irCapture, 0xEU);
    EXPECT_EQ(
        parseCableConfig(R"({"devices": [{"irLength": 64, "irCapture": "0xFFFFFFFFFFFFFFFF"}]})").chain[0].irCapture,
        ~std::uint64_t{0});
}

TEST(ChainFile, InstructionMistakesNameTheDeviceAndTheKey) {
    const auto with = [](const std::string& device) {
        return problemWith(R"({"devices": [{"name": "fpga", "irLength": 6, "idcode": "0x0362D093",
                                            "idcodeInstruction": "0x09", )" +
                           device + "}]}");
    };
    EXPECT_EQ(with(R"("instructions": {"BYPASS": {"opcode": "0x3F", "length": 1}})"),
              "device \"fpga\": key \"instructions.BYPASS.opcode\": 0x3F is all ones, which always selects BYPASS");
    EXPECT_EQ(with(R"("instructions": {"IDCODE": {"opcode": "0x09", "length": 32}})"),
              "device \"fpga\": key \"instructions.IDCODE.opcode\": 0x9 is idcodeInstruction, which selects IDCODE");
    EXPECT_EQ(with(R"("instructions": {"A": {"opcode": 5, "length": 8}, "B": {"opcode": 5, "length": 8}})"),
              "device \"fpga\": key \"instructions.B.opcode\": 0x5 is also the opcode of A");
    EXPECT_EQ(with(R"("instructions": {"BIG": {"opcode": "0x40", "length": 8}})"),
              "device \"fpga\": key \"instructions.BIG.opcode\": 0x40 does not fit irLength 6");
    EXPECT_EQ(with(R"("instructions": {"NONE": {"opcode": 1, "length": 0}})"),
              "device \"fpga\": key \"instructions.NONE.length\": must be 1 to 1048576");
    EXPECT_EQ(with(R"("instructions": {"HUGE": {"opcode": 1, "length": 1048577}})"),
              "device \"fpga\": key \"instructions.HUGE.length\": 1048577 is too large");
    EXPECT_EQ(with(R"("instructions": {"UC": {"opcode": 8, "length": 32, "capture": "0x1FFFFFFFF"}})"),
              "device \"fpga\": key \"instructions.UC.capture\": does not fit length 32");
    EXPECT_EQ(with(R"("instructions": {"UC": {"opcode": 8, "length": 32, "capture": "0xFFFFFFFG"}})"),
              "device \"fpga\": key \"instructions.UC.capture\": \"0xFFFFFFFG\" is not a number");
    EXPECT_EQ(with(R"("instructions": {"UC": {"length": 32}})"),
              "device \"fpga\": key \"instructions.UC.opcode\": missing");
    EXPECT_EQ(with(R"("instructions": {"UC": {"opcode": 8}})"),
              "device \"fpga\": key \"instructions.UC.length\": missing");
    EXPECT_EQ(with(R"("instructions": {"UC": {"opcode": 8, "length": 32, "reset": 0}})"),
              "device \"fpga\": key \"instructions.UC.reset\": unknown");
    EXPECT_EQ(with(R"("instructions": {"UC": 8})"), "device \"fpga\": key \"instructions.UC\": expected an object");
    EXPECT_EQ(with(R"("instructions": [])"), "device \"fpga\": key \"instructions\": expected an object");
    EXPECT_EQ(with(R"("irCapture": "0x40")"), "device \"fpga\": key \"irCapture\": 0x40 does not fit irLength 6");
    EXPECT_EQ(with(R"("source": 7)"), "device \"fpga\": key \"source\": expected a text");
}

TEST(ChainFile, ADeviceWithoutIdcodeMayListAnyOpcodeButAllOnes) {
    const sim::CableConfig config =
        parseCableConfig(R"({"devices": [{"irLength": 4, "instructions": {"USER": {"opcode": 0, "length": 3}}}]})");
    EXPECT_EQ(config.chain[0].instructions.at(0).opcode, 0U);
    EXPECT_EQ(problemWith(R"({"devices": [{"irLength": 4, "instructions": {"ALL": {"opcode": 15, "length": 3}}}]})"),
              "device \"tap0\": key \"instructions.ALL.opcode\": 0xF is all ones, which always selects BYPASS");
}

std::vector<std::filesystem::path> shippedChains() {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(TETHERHOST_SHIPPED_CHAINS))
        if (entry.path().extension() == ".json") files.push_back(entry.path());
    return files;
}

// Every shipped chain loads, passes validation, cites its numbers, and reads
// back its IDCODEs (nearest TDO first, one BYPASS zero for a device without
// one) in a data scan after reset, as a chain-interrogation tool sees it.
TEST(ShippedChains, EveryFileLoadsAndReadsBackItsIdcodes) {
    const std::vector<std::filesystem::path> files = shippedChains();
    ASSERT_GE(files.size(), 12U);
    std::set<std::uint32_t> parts;
    for (const std::filesystem::path& file : files) {
        SCOPED_TRACE(file.string());
        sim::CableConfig config;
        ASSERT_NO_THROW(config = sim::loadCableConfig(file.string()));
        EXPECT_EQ(sim::validateChain(config.chain), "");
        std::vector<bool> expected;
        for (auto device = config.chain.rbegin(); device != config.chain.rend(); ++device) {
            if (!device->idcode) {
                expected.push_back(false);
                continue;
            }
            parts.insert(*device->idcode);
            for (int bit = 0; bit < 32; ++bit) expected.push_back(((*device->idcode >> bit) & 1U) != 0);
        }
        sim::JtagChain chain(config.chain);
        chain.reset();
        EXPECT_EQ(chain.scan(sim::ScanKind::Data, "", expected.size()), bitString(expected));
    }
    EXPECT_GE(parts.size(), 12U);
}

TEST(ShippedChains, EveryDeviceNamesItsSources) {
    for (const std::filesystem::path& file : shippedChains()) {
        std::ifstream in(file);
        const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        const sim::CableConfig config = parseCableConfig(text);
        std::size_t sources = 0;
        for (std::size_t at = text.find("\"source\""); at != std::string::npos; at = text.find("\"source\"", at + 1))
            ++sources;
        EXPECT_EQ(sources, config.chain.size()) << file;
    }
}

TEST(ShippedChains, DefaultFileIsTheBuiltInChain) {
    const sim::CableConfig config = sim::loadCableConfig(std::string(TETHERHOST_SHIPPED_CHAINS) + "/default.json");
    const std::vector<sim::TapDevice> builtIn = sim::defaultChain();
    ASSERT_EQ(config.chain.size(), builtIn.size());
    for (std::size_t i = 0; i < builtIn.size(); ++i) {
        EXPECT_EQ(config.chain[i].name, builtIn[i].name);
        EXPECT_EQ(config.chain[i].irLength, builtIn[i].irLength);
        EXPECT_EQ(config.chain[i].idcode, builtIn[i].idcode);
        EXPECT_EQ(config.chain[i].idcodeInstruction, builtIn[i].idcodeInstruction);
        EXPECT_EQ(config.chain[i].irCapture, builtIn[i].irCapture);
        EXPECT_TRUE(config.chain[i].instructions.empty());
    }
}

TEST(ChainName, AShippedNameIsFoundInTheShippedFolders) {
    const std::string path = sim::chainFilePath("arty-a7", sim::shippedChainFolders());
    EXPECT_EQ(std::filesystem::canonical(path),
              std::filesystem::canonical(std::string(TETHERHOST_SHIPPED_CHAINS) + "/arty-a7.json"));
}

TEST(ChainName, PathsAreTakenAsTheyAre) {
    const std::vector<std::string> none;
    EXPECT_EQ(sim::chainFilePath("./arty-a7", none), "./arty-a7");
    EXPECT_EQ(sim::chainFilePath("/tmp/board", none), "/tmp/board");
    EXPECT_EQ(sim::chainFilePath("arty-a7.json", none), "arty-a7.json");
}

TEST(ChainName, TheFirstFolderHoldingTheNameWins) {
    ScratchDir first;
    ScratchDir second;
    std::ofstream(second.file("board.json")) << "{}";
    const std::vector<std::string> folders = {first.file(""), second.file("")};
    EXPECT_EQ(sim::chainFilePath("board", folders), second.file("") + "/board.json");
    std::ofstream(first.file("board.json")) << "{}";
    EXPECT_EQ(sim::chainFilePath("board", folders), first.file("") + "/board.json");
}

TEST(ChainName, AnUnknownNameSaysWhereItWasLookedFor) {
    try {
        sim::chainFilePath("no-such-board", {"/nowhere/a", "/nowhere/b"});
        ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "no shipped chain named \"no-such-board\" in /nowhere/a, /nowhere/b");
    }
}

}  // namespace
}  // namespace tetherhost::test

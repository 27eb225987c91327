// SPDX-License-Identifier: MIT
/* Debian's OpenOCD against every shipped chain, through the remote_bitbang
 * door: with every TAP declared from the chain file it initialises cleanly
 * and finds every IDCODE; with none declared, its own guess of each IR
 * length agrees with the file wherever its probe can tell (every device
 * captures exactly ...01 and no IR is longer than 60 bits). Each chain runs
 * as its own test, in a private network namespace. */
#include <gtest/gtest.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "OpenOcdTaps.h"
#include "SimulatorHarness.h"
#include "server/ChainFile.h"

namespace tetherhost::test {
namespace {

constexpr int port = TETHERHOST_TEST_PORT;
constexpr int doorPort = TETHERHOST_TEST_DOOR_PORT;
// OpenOCD's probe finds an IR's length by shifting ones through it; it gives
// up beyond this many bits.
constexpr int longestProbedIr = 60;

std::vector<std::string> shippedChains() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(TETHERHOST_SHIPPED_CHAINS))
        if (entry.path().extension() == ".json") names.push_back(entry.path().stem().string());
    std::sort(names.begin(), names.end());
    return names;
}

class OpenOcdOnAShippedChain : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override {
        const std::string path = std::string(TETHERHOST_SHIPPED_CHAINS) + "/" + GetParam() + ".json";
        devices = sim::loadCableConfig(path).chain;
        simulator = Simulator::start(port, {"--chain", path, "--remote-bitbang", std::to_string(doorPort)});
        ASSERT_NE(simulator, nullptr);
    }

    /** OpenOCD with `setup` before init, then scan_chain; its exit status,
     * and what it printed in `log`. */
    int openocd(std::vector<std::string> setup, std::string& log) {
        std::vector<std::string> arguments = openOcdOnDoor(TETHERHOST_OPENOCD, doorPort);
        setup.insert(setup.end(), {"init", "scan_chain", "shutdown"});
        for (const std::string& command : setup) arguments.insert(arguments.end(), {"-c", command});
        return runTool(arguments, scratch.file("openocd.out"), log);
    }

    ScratchDir scratch;
    std::vector<sim::TapDevice> devices;
    std::unique_ptr<Simulator> simulator;
};

TEST_P(OpenOcdOnAShippedChain, WithEveryTapDeclaredItFindsEveryIdcode) {
    const std::vector<std::string> declarations = openOcdTapDeclarations(devices);
    std::string log;
    ASSERT_EQ(openocd(declarations, log), 0) << log;
    for (std::size_t k = 0; k < devices.size(); ++k) {
        const sim::TapDevice& device = devices[k];
        if (!device.idcode) continue;
        char found[64];
        std::snprintf(found, sizeof found, "d%zu.tap tap/device found: 0x%08" PRIx32, k, *device.idcode);
        EXPECT_NE(log.find(found), std::string::npos) << device.name << "\n" << log;
    }
    EXPECT_EQ(log.find("Error"), std::string::npos) << log;
    EXPECT_EQ(log.find("UNEXPECTED"), std::string::npos) << log;
}

TEST_P(OpenOcdOnAShippedChain, UndeclaredItsGuessOfEachIrLengthAgreesWithTheFile) {
    for (const sim::TapDevice& device : devices)
        if (device.irCapture != 0b01 || device.irLength > longestProbedIr)
            GTEST_SKIP() << device.name << " captures " << openOcdHex(device.irCapture) << " in " << device.irLength
                         << " bits: OpenOCD's probe cannot tell its length";
    std::string log;
    ASSERT_EQ(openocd({}, log), 0) << log;
    std::vector<int> guessed;
    const std::regex suggestion(R"re(AUTO auto\d+\.tap - use "jtag newtap auto\d+ tap -irlen (\d+))re");
    for (std::sregex_iterator it(log.begin(), log.end(), suggestion), end; it != end; ++it)
        guessed.push_back(std::stoi((*it)[1].str()));
    std::vector<int> described;
    for (auto device = devices.rbegin(); device != devices.rend(); ++device) described.push_back(device->irLength);
    EXPECT_EQ(guessed, described) << log;
}

INSTANTIATE_TEST_SUITE_P(Chains, OpenOcdOnAShippedChain, ::testing::ValuesIn(shippedChains()), chainTestName);

}  // namespace
}  // namespace tetherhost::test

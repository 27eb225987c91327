// SPDX-License-Identifier: MIT
/* Debian's openFPGALoader (0.10) against the shipped chains it knows,
 * through the XVC door: `--detect` reads every IDCODE and names each part
 * (manufacturer, family, model, IR length) in chain order. On a chain that
 * holds a part it does not know it stops at that part's IDCODE; the
 * built-in chain shows it. Each chain runs as its own test, in a private
 * network namespace. */
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "SimulatorHarness.h"
#include "server/ChainFile.h"

namespace tetherhost::test {
namespace {

constexpr int port = TETHERHOST_TEST_PORT;
constexpr int xvcPort = TETHERHOST_TEST_XVC_PORT;

/** How openFPGALoader names a part. */
struct PartName {
    const char* manufacturer;
    const char* family;
    const char* model;
};

/* openFPGALoader's names for the parts of the shipped chains it knows, by
 * IDCODE as the chain files give it. */
const std::map<std::uint32_t, PartName> knownParts = {
    {0x0362D093, {"xilinx", "artix a7 35t", "xc7a35"}}, {0x04001093, {"xilinx", "spartan6", "xc6slx9"}},
    {0x06E1C093, {"xilinx", "xc2c", "xc2c32a"}},        {0x41111043, {"lattice", "ECP5", "LFE5UM-25"}},
    {0x031050DD, {"altera", "MAX 10", "10M50DAF484"}},  {0x1100481B, {"Gowin", "GW1N", "GW1N(R)-9C"}},
};

class OpenFpgaLoaderThroughTheXvcDoor : public ::testing::Test {
protected:
    /** Starts the simulator on `chainPath` (empty: the built-in chain). */
    void startSimulator(const std::string& chainPath) {
        std::vector<std::string> options = {"--trace", scratch.file("trace"), "--xvc", std::to_string(xvcPort)};
        if (!chainPath.empty()) options.insert(options.end(), {"--chain", chainPath});
        simulator = Simulator::start(port, options);
        ASSERT_NE(simulator, nullptr);
        trace = std::make_unique<TraceFollower>(scratch.file("trace"));
    }

    /** `openFPGALoader -c xvc-client --ip 127.0.0.1 --port N --detect`: its
     * wait status, and its standard output and error in `output`. */
    int detect(std::string& output) {
        return runTool({TETHERHOST_OPENFPGALOADER, "-c", "xvc-client", "--ip", "127.0.0.1", "--port",
                        std::to_string(xvcPort), "--detect"},
                       scratch.file("openFPGALoader.out"), output);
    }

    ScratchDir scratch;
    std::unique_ptr<Simulator> simulator;
    std::unique_ptr<TraceFollower> trace;
};

class OpenFpgaLoaderOnAShippedChain : public OpenFpgaLoaderThroughTheXvcDoor,
                                      public ::testing::WithParamInterface<std::string> {};

TEST_P(OpenFpgaLoaderOnAShippedChain, NamesEveryPart) {
    const std::string path = std::string(TETHERHOST_SHIPPED_CHAINS) + "/" + GetParam() + ".json";
    const std::vector<sim::TapDevice> devices = sim::loadCableConfig(path).chain;
    ASSERT_NO_FATAL_FAILURE(startSimulator(path));
    std::string output;
    ASSERT_EQ(detect(output), 0) << output;
    // It lists the parts from the cable's TDI, as the chain file does, and
    // shows each IDCODE without its version field.
    for (std::size_t i = 0; i < devices.size(); ++i) {
        ASSERT_TRUE(devices[i].idcode) << devices[i].name;
        const auto part = knownParts.find(*devices[i].idcode);
        ASSERT_NE(part, knownParts.end()) << devices[i].name;
        char expected[256];
        std::snprintf(expected, sizeof expected,
                      "index %zu:\n\tidcode 0x%x\n\tmanufacturer %s\n\tfamily %s\n\tmodel  %s\n\tirlength %d\n", i,
                      *devices[i].idcode & 0x0FFFFFFFU, part->second.manufacturer, part->second.family,
                      part->second.model, devices[i].irLength);
        EXPECT_NE(output.find(expected), std::string::npos) << expected << "\n---\n" << output;
    }
    EXPECT_EQ(output.find("index " + std::to_string(devices.size()) + ":"), std::string::npos) << output;
    // It sets a TCK period before it shifts, and closes the door itself.
    EXPECT_TRUE(trace->waitFor("xvc = - event \"closed: client left ("));
    EXPECT_EQ(trace->count("xvc = - event \"TCK period "), 1) << trace->lines(" xvc ");
}

INSTANTIATE_TEST_SUITE_P(Chains, OpenFpgaLoaderOnAShippedChain,
                         ::testing::Values("xc7a35t", "arty-a7", "xc6slx9", "xc2c32a", "dp-busblaster-v3", "lfe5u-25f",
                                           "ulx3s", "10m50", "gw1nr-9", "fpga-trio"),
                         [](const ::testing::TestParamInfo<std::string>& info) {
                             std::string name;
                             for (const char c : info.param) name += c == '-' ? '_' : c;
                             return name;
                         });

TEST_F(OpenFpgaLoaderThroughTheXvcDoor, StopsAtThePartNextToTdoOnTheBuiltInChain) {
    ASSERT_NO_FATAL_FAILURE(startSimulator(""));
    std::string output;
    const int status = detect(output);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) != 0) << output;
    EXPECT_NE(output.find("Unknown device with IDCODE: 0x07b421ff"), std::string::npos) << output;
    EXPECT_TRUE(trace->waitFor("xvc = - event \"closed: client left ("));
}

}  // namespace
}  // namespace tetherhost::test

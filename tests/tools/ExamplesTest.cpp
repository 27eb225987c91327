// SPDX-License-Identifier: MIT
/* The example host applications, built against an installed tree by
 * InstallExamples.cmake, run against the simulator. */
#include <gtest/gtest.h>

#include <memory>
#include <regex>
#include <string>

#include "ProgramRunner.h"

namespace tetherhost::test {
namespace {

class ExamplesTest : public ::testing::Test {
protected:
    void SetUp() override {
        simulator = startSimulator();
        ASSERT_EQ(simulator->failure(), "");
    }

    Finished example(const std::string& name) {
        return runProgram({std::string(EXAMPLES_BUILD_DIR) + "/" + name, noServer.path()});
    }

    TempDir noServer;
    std::unique_ptr<Simulator> simulator;
};

TEST_F(ExamplesTest, MinimalHostReadsTheIdcodeOfTheDeviceNextToTdo) {
    for (const char* build : {"minimal_host", "minimal_host_pkgconfig"}) {
        const Finished run = example(build);
        EXPECT_EQ(run.exitCode, 0) << build << ": " << run.err;
        EXPECT_EQ(run.out, "IDCODE of the device next to TDO: 0x07B421FF (server's compare result 0)\ndisconnected\n")
            << build;
    }
    const std::string trace = simulator->trace();
    EXPECT_NE(trace.find("minimal_host < 34 command \"34\""), std::string::npos);
    EXPECT_NE(trace.find("minimal_host < 35 command \"35\""), std::string::npos);
}

TEST_F(ExamplesTest, ListRepliesPrintsTheFieldsOfThreeReplies) {
    const Finished run = example("list_replies");
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_TRUE(
        std::regex_match(run.out, std::regex("server status \\(command 1\\): integer reply 0, 4 fields\n"
                                             "  tetherhost simulator " TETHERHOST_VERSION_TEXT "\n"
                                             "  clients=1\n"
                                             "  connections=1\n"
                                             "  heap=[0-9]+\n"
                                             "chain \\(command 44, sub-command 7\\): integer reply 3, 3 fields\n"
                                             "  tap0,4,0x10a5c1ff\n"
                                             "  tap1,6,0x23e171ff\n"
                                             "  tap2,8,0x07b421ff\n"
                                             "shared applications \\(command 43\\): integer reply 2, 2 fields\n"
                                             "  alpha\n"
                                             "  beta\n")))
        << run.out;
}

TEST_F(ExamplesTest, FirstSessionListsTheChainAndScansTheIdcodeNextToTdo) {
    for (const char* build : {"first_session", "first_session_pkgconfig"}) {
        const Finished run = example(build);
        EXPECT_EQ(run.exitCode, 0) << build << ": " << run.err;
        EXPECT_EQ(run.out,
                  "tap0: IR 4 bits, IDCODE 0x10A5C1FF\n"
                  "tap1: IR 6 bits, IDCODE 0x23E171FF\n"
                  "tap2: IR 8 bits, IDCODE 0x07B421FF\n"
                  "TDO: FF 21 B4 07\n")
            << build;
    }
    // The Session gave both locks back and said farewell.
    const std::string trace = simulator->trace();
    EXPECT_NE(trace.find("first_session < 34 command \"34\""), std::string::npos);
    EXPECT_NE(trace.find("first_session < 35 command \"35\""), std::string::npos);
    EXPECT_NE(trace.find("first_session < 9999 command \"9999\""), std::string::npos);
}

}  // namespace
}  // namespace tetherhost::test

// SPDX-License-Identifier: MIT
/* The real library against the real simulator on 127.0.0.1:4001: every
 * command family through Client::Send, with and without read-back, single
 * blocks and chunks, GetTDO, the locks and their gate, and the one-call
 * JTAG shift. */
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Client.h"
#include "ClientUtils.h"
#include "LByteBuffer.h"
#include "SimulatorHarness.h"
#include "tetherhost/version.h"

namespace tetherhost::test {
namespace {

constexpr int serverPort = 4001;

using Bytes = std::vector<unsigned char>;

Bytes bytesOf(const std::string& text) { return Bytes(text.begin(), text.end()); }
std::string textOf(const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }

/* `count` bytes of scan data collected with GetTDO. */
std::string collect(Client& client, std::size_t count, int* result = nullptr) {
    Bytes data(count, 0xEE);
    const int status = client.GetTDO(reinterpret_cast<char*>(data.data()), static_cast<int>(count * 8));
    if (result != nullptr) *result = status;
    return textOf(data);
}

class Library : public ::testing::Test {
protected:
    void SetUp() override {
        simulator = Simulator::start(serverPort);
        ASSERT_NE(simulator, nullptr) << "the simulator did not start on port 4001";
    }

    static std::unique_ptr<Client> connect(const std::string& name) {
        std::vector<char> buffer(name.begin(), name.end());
        buffer.push_back('\0');
        auto client = std::make_unique<Client>(buffer.data());
        EXPECT_EQ(client->Connect(nullptr, nullptr, nullptr), 0);
        return client;
    }

    static void takeLocks(Client& client) {
        char application[] = "library-test";
        char user[] = "tester";
        ASSERT_EQ(client.Send(4, application, user, 0), 0);
        ASSERT_EQ(client.Send(33), 0);
    }

    static void bypassAll(Client& client) {
        Bytes ones = {0xFF, 0xFF, 0x03};
        ASSERT_EQ(client.Send(44, 12, 1, 18, 0, 0, ones.data()), 0);
    }

    std::unique_ptr<Simulator> simulator;
};

TEST_F(Library, LockGatePollsUntilBothLocksAreHeld) {
    const auto client = connect("gate");
    EXPECT_EQ(client->Send(5, 7), 1);
    EXPECT_EQ(client->GetClientStatus(), 1);
    EXPECT_EQ(client->Send(38), 0);  // the poll kept the conversation in step
    takeLocks(*client);
    EXPECT_EQ(client->Send(5, 7), 0);
    EXPECT_EQ(client->Send(0), 0);
    EXPECT_EQ(client->Send(-7), 0);
    EXPECT_EQ(client->Send(35), 0);
    EXPECT_EQ(client->Send(5, 7), 1);
    EXPECT_EQ(client->Disconnect(), 0);
}

TEST_F(Library, SecondClientGetsTheLocksOnlyAfterTheFirstLeaves) {
    const auto first = connect("first");
    const auto second = connect("second");
    takeLocks(*first);
    char application[] = "app";
    char user[] = "user";
    EXPECT_EQ(second->Send(4, application, user, 2, 5, 6), -1);
    EXPECT_EQ(second->Send(33), -1);
    EXPECT_EQ(first->Disconnect(), 0);
    EXPECT_EQ(second->Send(4, application, user, 0), 0);
    EXPECT_EQ(second->Send(33), 0);
    EXPECT_EQ(second->Send(34), 0);
    EXPECT_EQ(second->Send(5, 1), 1);
}

TEST_F(Library, JtagShiftReadsTheIdcodesAfterReset) {
    const auto client = connect("idcodes");
    EXPECT_EQ(client->Send(44, 3), 0);
    Bytes tdi(12, 0), placeholder(12, 0);
    EXPECT_EQ(client->Send(44, 12, 0, 96, 1, 0, tdi.data(), placeholder.data()), 0);
    EXPECT_EQ(collect(*client, 12), littleEndian(idcode2) + littleEndian(idcode1) + littleEndian(idcode0));
    int again = 0;
    collect(*client, 12, &again);
    EXPECT_EQ(again, -1022);
}

TEST_F(Library, BypassGivesOneBitPerDevice) {
    const auto client = connect("bypass");
    bypassAll(*client);
    const std::string tdi = pattern(2, 3);
    Bytes in = bytesOf(tdi), placeholder(2, 0);
    EXPECT_EQ(client->Send(44, 12, 0, 16, 1, 0, in.data(), placeholder.data()), 0);
    EXPECT_EQ(collect(*client, 2), delayed(tdi, 16, 3));
}

TEST_F(Library, InstructionScanCapturesZeroOnePerDevice) {
    const auto client = connect("capture");
    Bytes ones = {0xFF, 0xFF, 0x03}, placeholder(3, 0);
    EXPECT_EQ(client->Send(44, 12, 1, 18, 1, 0, ones.data(), placeholder.data()), 0);
    EXPECT_EQ(collect(*client, 3), wire("\x01\x41\0"));  // bits 0, 8 and 14
}

TEST_F(Library, ChunkedJtagShiftReadsBackPlusFramedChunks) {
    const auto client = connect("chunks");
    bypassAll(*client);
    const std::string tdi = pattern(2500, 8);
    Bytes in = bytesOf(tdi), placeholder(2500, 0);
    EXPECT_EQ(client->Send(44, 12, 0, 20000, 1, 0, in.data(), placeholder.data()), 0);
    const std::string framed = collect(*client, 2503);
    EXPECT_EQ(framed[0], '+');
    EXPECT_EQ(framed[1024], '+');
    EXPECT_EQ(framed[2048], '+');
    EXPECT_EQ(unframe(framed), delayed(tdi, 20000, 3));
}

TEST_F(Library, MaskedComparisonIsTheIntegerReply) {
    const auto client = connect("compare");
    Bytes tdi(4, 0), expected = bytesOf(littleEndian(idcode2 ^ 0x00000101U)), mask(4, 0xFF);
    EXPECT_EQ(client->Send(44, 12, 0, 32, 1, 1, tdi.data(), expected.data(), mask.data()), 2);
    EXPECT_EQ(collect(*client, 4), littleEndian(idcode2));
}

TEST_F(Library, ShiftWithReadBackSuppressedLeavesNoData) {
    const auto client = connect("quiet");
    Bytes tdi(4, 0), placeholder(4, 0);
    EXPECT_EQ(client->Send(44, 12, 2, 32, 1, 0, tdi.data(), placeholder.data()), 0);
    int result = 0;
    collect(*client, 4, &result);
    EXPECT_EQ(result, -1022);
    EXPECT_EQ(client->Send(44, 12, 0, 32, 2, 0, tdi.data(), placeholder.data()), 0);
    collect(*client, 4, &result);
    EXPECT_EQ(result, -1022);
}

TEST_F(Library, GenericShiftSingleAndChunkedWithAndWithoutReadBack) {
    const auto client = connect("generic");
    takeLocks(*client);
    Bytes zeros(4, 0);
    EXPECT_EQ(client->Send(19, 0, 32, 1, zeros.data()), 0);
    EXPECT_EQ(collect(*client, 4), littleEndian(idcode2));
    Bytes ones = {0xFF, 0xFF, 0x03};
    EXPECT_EQ(client->Send(19, 1, 18, 0, ones.data()), 0);
    const std::string tdi = pattern(3000, 12);
    Bytes in = bytesOf(tdi);
    EXPECT_EQ(client->Send(19, 0, 24000, 1, in.data()), 0);
    EXPECT_EQ(collect(*client, 3000), delayed(tdi, 24000, 3));
    EXPECT_EQ(client->Send(19, 0, 24000, 0, in.data()), 0);
}

TEST_F(Library, PumpEchoesASingleBlock) {
    const auto client = connect("pump");
    const std::string data = pattern(100, 13);
    Bytes block = bytesOf(data);
    EXPECT_EQ(client->Send(42, block.data(), 800, 0, 1), 0);
    EXPECT_EQ(collect(*client, 100), data);
}

TEST_F(Library, PumpFourMebibytesAndGetThemBackIntact) {
    const auto client = connect("pump4m");
    const std::string data = pattern(std::size_t{4} * 1024 * 1024, 14);
    Bytes block = bytesOf(data);
    EXPECT_EQ(client->Send(42, block.data(), static_cast<int>(data.size() * 8), 0, 0), 4 * 1024 * 1024);
    std::string back;
    Bytes dummy(1024, 0);
    for (int held = static_cast<int>(data.size()); held > 0;) {
        held = client->Send(42, dummy.data(), 8192, 1, 1);
        ASSERT_GE(held, 0);
        back += collect(*client, 1024);
    }
    EXPECT_EQ(back.size(), data.size());
    EXPECT_TRUE(back == data) << "the pumped data came back changed";
}

TEST_F(Library, PumpChunkedReadBackComesInPlusFramedChunks) {
    const auto client = connect("pumpchunks");
    const std::string data = pattern(3000, 15);
    Bytes block = bytesOf(data);
    EXPECT_EQ(client->Send(42, block.data(), 24000, 0, 1), 0);
    const std::string framed = collect(*client, 3003);
    EXPECT_EQ(framed[0], '+');
    EXPECT_EQ(framed[2048], '+');
    EXPECT_EQ(unframe(framed), data);
}

TEST_F(Library, SspiWriteReadBackAndBoth) {
    const auto client = connect("sspi");
    Bytes written = {0x11, 0x22, 0x33};
    EXPECT_EQ(client->Send(50, 256, 24, written.data(), 0), 0);
    Bytes one = {0x44};
    EXPECT_EQ(client->Send(52, 259, 8, one.data(), 0), 0);
    EXPECT_EQ(collect(*client, 1), wire("\x44"));
    Bytes erased = {0x5A};
    EXPECT_EQ(client->Send(51, 256, 32, nullptr, 0, 256, 8, erased.data(), 1), 0);
    EXPECT_EQ(collect(*client, 1), wire("\x5A"));  // only the second read-back remains
    const std::string data = pattern(3000, 16);
    Bytes big = bytesOf(data);
    EXPECT_EQ(client->Send(52, 8192, 24000, big.data(), 0), 0);
    EXPECT_EQ(collect(*client, 3000), data);
    EXPECT_EQ(client->Send(50, 65535, 16, written.data(), 0), -2);
}

TEST_F(Library, I2cEepromAt0x50WritesAndReadsBack) {
    const auto client = connect("i2c");
    Bytes data = {0x01, 0x12, 0xA5};
    EXPECT_EQ(client->Send(46, 16, 0x50, 24, data.data(), 0), 0);
    Bytes more = {0x80};
    EXPECT_EQ(client->Send(48, 19, 0x50, 8, more.data(), 0), 0);
    EXPECT_EQ(collect(*client, 1), wire("\x80"));
    EXPECT_EQ(client->Send(47, 16, 0x50, 32, nullptr, 0, 20, 0x50, 8, more.data(), 0), 0);
    EXPECT_EQ(collect(*client, 1), wire("\x80"));
    EXPECT_EQ(client->Send(48, 0, 0x51, 8, more.data(), 0), -3);
    EXPECT_EQ(collect(*client, 1), wire("\xFF"));
}

TEST_F(Library, I2cChunkedReadBackIsPlusFramedAndWraps) {
    const auto client = connect("i2cchunks");
    Bytes first = {0x5C};
    EXPECT_EQ(client->Send(46, 0, 0x50, 8, first.data(), 0), 0);
    // Longer than the 256-byte memory: the write is refused, the read-back
    // wraps around the memory.
    Bytes tooLong(1025, 0x01);
    EXPECT_EQ(client->Send(48, 0, 0x50, 8200, tooLong.data(), 0), -2);
    std::string expected(1025, '\xFF');
    for (std::size_t i = 0; i < expected.size(); i += 256) expected[i] = '\x5C';
    EXPECT_EQ(unframe(collect(*client, 1027)), expected);
}

TEST_F(Library, SharedApplicationsAreListedBack) {
    const auto client = connect("apps");
    char alpha[] = "alpha";
    char beta[] = "beta";
    EXPECT_EQ(client->Send(41, 2, alpha, beta), 2);
    EXPECT_EQ(client->Send(43), 2);
    std::vector<std::string> fields;
    EXPECT_EQ(client->Read(fields), 0);
    EXPECT_EQ(fields, (std::vector<std::string>{"alpha", "beta"}));
}

TEST_F(Library, SubCommandsOfEveryPatternKeepTheConversationInStep) {
    const auto client = connect("patterns");
    char text[] = "text";
    char empty[] = "";
    EXPECT_EQ(client->Send(44, 9), 0);
    EXPECT_EQ(client->Send(44, 0), 0);
    EXPECT_EQ(client->Send(44, 200), 0);
    EXPECT_EQ(client->Send(44, -1), 0);
    EXPECT_EQ(client->Send(44, 2, 7), 0);
    EXPECT_EQ(client->Send(44, 5, 1, 2), 0);
    EXPECT_EQ(client->Send(44, 93, 1, 2, 3), 0);
    EXPECT_EQ(client->Send(44, 90, 1, 2, 3, 4, 5), 0);
    EXPECT_EQ(client->Send(44, 1, text), 0);
    EXPECT_EQ(client->Send(44, 83, text, empty), 0);
    EXPECT_EQ(client->Send(44, 30, 1, text, 2), 0);
    EXPECT_EQ(client->Send(44, 120, 5), 0);
    EXPECT_EQ(client->Send(44, 69, 3), 0);
    EXPECT_EQ(client->Send(44, 36, 3), 0);
    EXPECT_EQ(client->Send(44, 7), 3);
    char* reply = nullptr;
    EXPECT_EQ(client->Read(reply), 0);
    EXPECT_EQ(std::string(reply), defaultChainText);
}

TEST_F(Library, DeviceRegistersAreTheTextReplyOfSubCommand23) {
    const auto client = connect("registers");
    EXPECT_EQ(client->Send(44, 3), 0);
    EXPECT_EQ(client->Send(44, 23, 0), 3);
    EXPECT_EQ(std::string(client->Read()), "tap0;instruction=0xe;ir=0x0;fixed=0x0;");
    EXPECT_EQ(client->Send(44, 23, 3), -2);
}

TEST(RealTimeLibrary, RunTestWaitsOutItsMinimumTimeBeforeTheReply) {
    const auto simulator = Simulator::start(serverPort, {"--real-time"});
    ASSERT_NE(simulator, nullptr);
    char name[] = "real-time";
    Client client(name);
    ASSERT_EQ(client.Connect(nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(client.Send(44, 4), 0);
    const auto started = std::chrono::steady_clock::now();
    // No cycles, at least 300 ms: count 0, time 0:300000000 ns, TCK.
    EXPECT_EQ(client.Send(44, 89, 0, 0, 0, 300000000, 0), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(300));
}

TEST_F(Library, StatusReportIsTheTextReplyOfCommandOne) {
    const auto client = connect("status");
    EXPECT_EQ(client->Send(1), 0);
    const std::string report = client->Read();
    EXPECT_EQ(report.rfind("tetherhost simulator " TETHERHOST_VERSION_STRING ";clients=1;", 0), 0U) << report;
    EXPECT_EQ(std::string(client->Read()), "");
}

TEST_F(Library, OneCallShiftLoadsBypassOnTheClientsConnection) {
    const auto client = connect("onecall");
    int socket = static_cast<int>(client->GetClientSocket());
    const Bytes ones = {0xFF, 0xFF, 0x03};
    EXPECT_EQ(SendJTAGShiftData(socket, 1, 18, 1, LByteBuffer(ones), LByteBuffer(), LByteBuffer()), 0);
    const Bytes big(4000, 0x3C);
    for (const int blocks : {1, 2, 3})
        EXPECT_EQ(SendJTAGShiftData(socket, 0, 32000, blocks, LByteBuffer(big), LByteBuffer(big), LByteBuffer(big)), 0)
            << blocks << " blocks";
    Bytes tdi = {0xFF}, placeholder = {0};
    EXPECT_EQ(client->Send(44, 12, 0, 8, 1, 0, tdi.data(), placeholder.data()), 0);
    EXPECT_EQ(collect(*client, 1), wire("\xF8"));
    EXPECT_EQ(client->Disconnect(), 0);
}

}  // namespace
}  // namespace tetherhost::test

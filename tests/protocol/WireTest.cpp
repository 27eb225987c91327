// SPDX-License-Identifier: MIT
/* The frame-level helpers shared by every transfer: the failure test, the
 * send that refuses a negative length and never raises SIGPIPE, and the
 * frame buffer whose last byte is always zero. */
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "SendWrap.h"
#include "wire/Wire.h"

namespace {

namespace wire = tetherhost::wire;
namespace sendwrap = tetherhost::test::sendwrap;

class SocketPair : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0); }
    void TearDown() override {
        sendwrap::watch(-1);
        close(ends[0]);
        close(ends[1]);
    }
    int ends[2] = {-1, -1};
};

TEST(WireFailure, ZeroAndMinusOneFailEveryOtherCountSucceeds) {
    EXPECT_TRUE(wire::failed(0));
    EXPECT_TRUE(wire::failed(-1));
    EXPECT_FALSE(wire::failed(1));
    EXPECT_FALSE(wire::failed(2));
    EXPECT_FALSE(wire::failed(1024));
    EXPECT_FALSE(wire::failed(-2));
}

TEST_F(SocketPair, ANegativeSendLengthIsRefusedWithoutCallingSend) {
    const char data[4] = "abc";
    sendwrap::watch(ends[0]);
    EXPECT_EQ(wire::sendBytes(ends[0], data, -5), -1);
    EXPECT_EQ(sendwrap::calls(), 0);
    EXPECT_EQ(wire::sendBytes(ends[0], data, 4), 4);
    EXPECT_EQ(sendwrap::calls(), 1);
    char got[8] = {};
    EXPECT_EQ(recv(ends[1], got, sizeof got, MSG_DONTWAIT), 4);
    EXPECT_STREQ(got, "abc");
}

TEST_F(SocketPair, ANegativeReceiveCapacityIsRefused) {
    char data[4] = {};
    EXPECT_EQ(wire::receiveBytes(ends[0], data, -1), -1);
}

TEST_F(SocketPair, SendingToAClosedPeerFailsWithoutSigpipe) {
    signal(SIGPIPE, SIG_DFL);
    close(ends[1]);
    ends[1] = -1;
    sendwrap::watch(ends[0]);
    EXPECT_EQ(wire::sendBytes(ends[0], "x", 1), -1);
    EXPECT_EQ(sendwrap::lastFlags(), MSG_NOSIGNAL);
}

TEST(FrameBuffer, StartsZeroAndTakesTextsCutTo1023Bytes) {
    wire::FrameBuffer frame;
    EXPECT_EQ(frame.textLength(), 0);
    const std::string longText(1500, 'y');
    frame.setText(longText.c_str());
    EXPECT_EQ(frame.textLength(), 1023);
    EXPECT_EQ(std::string(frame.text()), longText.substr(0, 1023));
}

TEST(FrameBuffer, AFull1024ByteReceiveStaysATerminatedText) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const std::string full(1024, 'z');
    ASSERT_EQ(send(ends[1], full.data(), full.size(), MSG_NOSIGNAL), 1024);
    wire::FrameBuffer frame;
    EXPECT_EQ(frame.receive(ends[0], 4096), 1024);
    EXPECT_EQ(std::string(frame.text()), full);
    close(ends[0]);
    close(ends[1]);
}

TEST(FrameBuffer, ATextIsLaidOverTheBufferLikeStrcpy) {
    wire::FrameBuffer frame;
    frame.setText("abcdef");
    frame.setText("xy");
    EXPECT_STREQ(frame.text(), "xy");
    EXPECT_EQ(std::memcmp(frame.text(), "xy\0def", 7), 0);
    frame.setNumber(-42);
    EXPECT_STREQ(frame.text(), "-42");
    frame.clear();
    EXPECT_EQ(std::memcmp(frame.text(), "\0\0\0\0\0\0\0", 7), 0);
}

}  // namespace

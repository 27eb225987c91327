// SPDX-License-Identifier: MIT
/* The exact bytes that `tetherctl send` puts on the wire, seen by a scripted
 * server on 127.0.0.1:4001: every typed argument reaches the library as the
 * type it reads, in order, with byte blocks padded to their bit count. */
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ProgramRunner.h"
#include "ScriptedPeer.h"

namespace tetherhost::test {
namespace {

/* The server's side of a connection from the client "wire": the name and
 * its answer. */
std::unique_ptr<ScriptedPeer> peerFor() {
    auto peer = ScriptedPeer::listening(4001);
    peer->expectFrame("wire").ack();
    return peer;
}

/* The server's side of the integer reply and of Disconnect. */
void replyAndFarewell(ScriptedPeer& peer, const std::string& reply) {
    peer.expect(bytes("+\0")).reply(reply + std::string(1, '\0'));
    peer.expectFrame("9999").ack().expect(bytes("+\0")).reply(bytes("0\0"));
}

Finished send(const std::vector<std::string>& arguments) {
    TempDir noServer;
    std::vector<std::string> argv = {TETHERCTL_PATH, "--name", "wire", "--server-dir", noServer.path(), "send"};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    return runProgram(argv, {}, 20000);
}

class TetherctlWireTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(waitForPort4001()) << "127.0.0.1:4001 stays taken by another program"; }
};

TEST_F(TetherctlWireTest, IntegersAndTextsTravelInTheirOrder) {
    // Sub-command 30 takes an int, a text and an int.
    auto peer = peerFor();
    peer->expectFrame("44").ack().expectFrame("30").ack();
    peer->expectFrame("5").ack().expectFrame("hello").ack().expectFrame("-7").ack();
    replyAndFarewell(*peer, "12");
    peer->start();
    const Finished run = send({"44", "i:30", "i:5", "s:hello", "i:-7"});
    EXPECT_TRUE(peer->finish()) << peer->failure();
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "command 44: result 12\n");
}

TEST_F(TetherctlWireTest, SessionCommandTakesThirteenArguments) {
    // Two texts, n = 10, then ten options: the ten option frames carry them.
    auto peer = peerFor();
    peer->expectFrame("4").ack().expectFrame("app").ack().expectFrame("1.0").ack();
    for (int option = 11; option <= 20; ++option) peer->expectFrame(std::to_string(option)).ack();
    peer->expect(bytes("+\0")).reply(bytes("1\0"));
    peer->expectFrame("9999").ack().expect(bytes("+\0")).reply(bytes("0\0"));
    peer->start();
    std::vector<std::string> arguments = {"4", "s:app", "s:1.0", "i:10"};
    for (int option = 11; option <= 20; ++option) arguments.push_back("i:" + std::to_string(option));
    const Finished run = send(arguments);
    EXPECT_TRUE(peer->finish()) << peer->failure();
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "command 4: result 0\n");
}

TEST_F(TetherctlWireTest, ByteBlockIsPaddedToTheBitCount) {
    // An SSPI write of 16 bits given one byte: the second byte goes as zero.
    auto peer = peerFor();
    peer->expectFrame("50").ack();
    peer->expectFrame("256").ack().expectFrame("16").ack().expectFrame("0").ack();
    peer->expect(bytes("\xBE\0")).ack();
    replyAndFarewell(*peer, "0");
    peer->start();
    const Finished run = send({"50", "i:256", "i:16", "x:BE", "i:0"});
    EXPECT_TRUE(peer->finish()) << peer->failure();
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "command 50: result 0\n");
}

TEST_F(TetherctlWireTest, AnEmptyBlockArgumentIsANullPointer) {
    // A JTAG shift whose first block is null: the library refuses it after
    // the sub-command number, before any shift argument goes out.
    auto peer = peerFor();
    peer->expectFrame("44").ack().expectFrame("12").ack();
    peer->expectFrame("9999").ack().expect(bytes("+\0")).reply(bytes("0\0"));
    peer->start();
    const Finished run = send({"44", "i:12", "i:0", "i:8", "i:1", "i:0", "x:", "x:00"});
    EXPECT_TRUE(peer->finish()) << peer->failure();
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.err, "tetherctl: command 44 failed: -1020: the shift has no data: its first data block is missing\n");
}

TEST_F(TetherctlWireTest, HeaderTrailerAlternatesEightArguments) {
    // Command 21 is guarded: --session opens the session and takes the lock.
    auto peer = peerFor();
    peer->expectFrame("4").ack().expectFrame("tetherctl").ack().expectFrame(TETHERHOST_VERSION_TEXT).ack();
    for (const char* option : {"0", "0", "0", "1", "0", "0", "0", "1", "0", "0"}) peer->expectFrame(option).ack();
    peer->expect(bytes("+\0")).reply(bytes("1\0"));
    peer->expectFrame("33").ack().expect(bytes("+\0")).reply(bytes("1\0"));
    peer->expectFrame("21").ack();
    for (const char* token : {"1", "a", "2", "b", "3", "c", "4", "d"}) peer->expectFrame(token).ack();
    peer->expect(bytes("+\0")).reply(bytes("0\0"));
    for (const char* release : {"34", "35"}) peer->expectFrame(release).ack().expect(bytes("+\0")).reply(bytes("0\0"));
    peer->expectFrame("9999").ack().expect(bytes("+\0")).reply(bytes("0\0"));
    peer->start();
    const Finished run = send({"--session", "21", "i:1", "s:a", "i:2", "s:b", "i:3", "s:c", "i:4", "s:d"});
    EXPECT_TRUE(peer->finish()) << peer->failure();
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "command 21: result 0\n");
}

TEST_F(TetherctlWireTest, AMinusOneReplyIsExplainedBothAsARefusalAndAsAReplyOutOfRange) {
    // The library reads this reply to the release of the command lock as -1.
    auto peer = peerFor();
    peer->expectFrame("34").ack();
    replyAndFarewell(*peer, "99999999999999999999");
    peer->start();
    const Finished run = send({"34"});
    EXPECT_TRUE(peer->finish()) << peer->failure();
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out,
              "command 34: result -1 (the command needs both locks, and this connection does not hold them; or the "
              "reply was not an integer in range: the library reads 9223372036854775807 and every larger number as "
              "-1)\n");
}

TEST_F(TetherctlWireTest, ARefusedCommandLockNamesWhatTheServerMayHaveAnswered) {
    auto peer = peerFor();
    peer->expectFrame("33").ack().expect(bytes("+\0")).reply(bytes("0\0"));
    peer->expectFrame("9999").ack().expect(bytes("+\0")).reply(bytes("0\0"));
    peer->start();
    const Finished run = send({"33"});
    EXPECT_TRUE(peer->finish()) << peer->failure();
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err,
              "tetherctl: command 33: the lock was not granted: -1: the server refused the lock (it answered 0), or "
              "its answer began with -1 (the library reads only the first two characters of a lock answer)\n");
}

}  // namespace
}  // namespace tetherhost::test

// SPDX-License-Identifier: MIT
/* The shared applications list of command 41 (sendSharedApps). */
#include "TransferTesting.h"

namespace tetherhost::test {
namespace {

using SharedApps = TransferTest;

std::string listLine(const std::string& shown) { return "1116 xfer: shared applications list is '" + shown + "'"; }

TEST_F(SharedApps, CountZeroSends1024ZeroBytesAndAcceptsAnyOneByteReply) {
    peer->expect(std::string(1024, '\0')).reply("x");
    peer->start();
    EXPECT_EQ(sharedApps(0), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1115", "1116"}));
    EXPECT_EQ(linesOf("1116"), Ids{listLine("")});
    EXPECT_EQ(client.GetClientStatus(), 0);
}

TEST_F(SharedApps, NegativeCountSendsAnEmptyList) {
    peer->expect(std::string(1024, '\0')).reply("+");
    peer->start();
    EXPECT_EQ(sharedApps(-3), 0);
    EXPECT_TRUE(peerFinished());
}

TEST_F(SharedApps, NamesAreJoinedWithASemicolonAfterEach) {
    peer->expect(padded("alpha;beta;")).ack();
    peer->start();
    EXPECT_EQ(sharedApps(2, "alpha", "beta"), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(linesOf("1116"), Ids{listLine("alpha;beta;")});
}

TEST_F(SharedApps, NameOf150CharactersIsCutAfterItsHundredth) {
    const std::string name = pattern(150);
    peer->expect(padded(name.substr(0, 100) + ";")).ack();
    peer->start();
    EXPECT_EQ(sharedApps(1, name.c_str()), 0);
    EXPECT_TRUE(peerFinished());
}

TEST_F(SharedApps, EmptyNameContributesOnlyItsSemicolon) {
    peer->expect(padded(";b;")).ack();
    peer->start();
    EXPECT_EQ(sharedApps(2, "", "b"), 0);
    EXPECT_TRUE(peerFinished());
}

TEST_F(SharedApps, ReplyOfMinusIsAccepted) {
    peer->expect(padded("a;")).reply(bytes("-\0"));
    peer->start();
    EXPECT_EQ(sharedApps(1, "a"), 0);
    EXPECT_TRUE(peerFinished());
}

TEST_F(SharedApps, PeerClosingInsteadOfAnsweringGives1002After1053) {
    peer->expect(padded("a;")).closeConnection();
    peer->start();
    EXPECT_EQ(sharedApps(1, "a"), -1002);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(ids(), (Ids{"1115", "1116", "1053"}));
    EXPECT_EQ(client.GetClientStatus(), 0);
}

TEST_F(SharedApps, FailedSendGives1001After1052) {
    closePeer();
    EXPECT_EQ(sharedApps(1, "a"), -1001);
    EXPECT_EQ(ids(), (Ids{"1115", "1116", "1052"}));
}

/* Ten names of 100 characters: 1010 bytes with their separators. */
std::vector<std::string> tenFullNames(std::string& joined) {
    std::vector<std::string> names;
    for (char seed = 'A'; seed < 'A' + 10; ++seed) {
        names.push_back(pattern(100, seed));
        joined += names.back() + ";";
    }
    return names;
}

TEST_F(SharedApps, TenNamesOfFullLengthFit) {
    std::string joined;
    const std::vector<std::string> n = tenFullNames(joined);
    ASSERT_EQ(joined.size(), 1010u);
    peer->expect(padded(joined)).ack();
    peer->start();
    EXPECT_EQ(sharedApps(10, n[0].c_str(), n[1].c_str(), n[2].c_str(), n[3].c_str(), n[4].c_str(), n[5].c_str(),
                         n[6].c_str(), n[7].c_str(), n[8].c_str(), n[9].c_str()),
              0);
    EXPECT_TRUE(peerFinished());
}

TEST_F(SharedApps, ANameThatFillsTheTextTo1023BytesStillFits) {
    std::string joined;
    const std::vector<std::string> n = tenFullNames(joined);
    const std::string last = pattern(12, 'Z');
    joined += last + ";";
    ASSERT_EQ(joined.size(), 1023u);
    peer->expect(padded(joined)).ack();
    peer->start();
    EXPECT_EQ(sharedApps(11, n[0].c_str(), n[1].c_str(), n[2].c_str(), n[3].c_str(), n[4].c_str(), n[5].c_str(),
                         n[6].c_str(), n[7].c_str(), n[8].c_str(), n[9].c_str(), last.c_str()),
              0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(linesOf("1116"), Ids{listLine(joined)});
}

TEST_F(SharedApps, ANameThatWouldNotFitIsLeftOutWithAllAfterItButAllAreTaken) {
    std::string joined;
    const std::vector<std::string> n = tenFullNames(joined);
    const std::string tooLong = pattern(13, 'Z');  // 1010 + 14 > 1023
    peer->expect(padded(joined)).ack();
    peer->start();
    int s = socket();
    int result = 0, after = 0;
    withVaList(
        [&](va_list list) {
            result = client.sendSharedApps(s, list);
            after = va_arg(list, int);
            return 0;
        },
        12, n[0].c_str(), n[1].c_str(), n[2].c_str(), n[3].c_str(), n[4].c_str(), n[5].c_str(), n[6].c_str(),
        n[7].c_str(), n[8].c_str(), n[9].c_str(), tooLong.c_str(), "y", 4242);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(after, 4242);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(linesOf("1116"), Ids{listLine(joined)});
}

TEST_F(SharedApps, LeavesTheScanDataAlone) {
    holdTdo("keep");
    peer->expect(padded("a;")).ack();
    peer->start();
    EXPECT_EQ(sharedApps(1, "a"), 0);
    EXPECT_TRUE(peerFinished());
    EXPECT_EQ(takeTdo(32, 4), std::make_pair(0, std::string("keep")));
}

}  // namespace
}  // namespace tetherhost::test

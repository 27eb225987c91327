// SPDX-License-Identifier: MIT
/* A Client without a connection: Disconnect on descriptor -1, and Connect
 * when no socket can be created. */
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Client.h"
#include "MessageLog.h"
#include "ProtocolTesting.h"
#include "StderrCapture.h"

namespace {

using namespace tetherhost::test;

TEST(UnconnectedClient, DisconnectOnANeverConnectedClientGivesMinus1009) {
    MessageLog log;
    std::vector<char> name = nameBuffer("board1");
    Client client(name.data());
    log.attach(client);
    EXPECT_EQ(client.Disconnect(), -1009);
    EXPECT_EQ(client.GetClientStatus(), -1009);
    EXPECT_EQ(client.GetClientSocket(), -1);
    EXPECT_EQ(log.lines(), Trace("board1").post("1098").twice("1009").post("1027").lines());
}

/* Uses up every descriptor the process may open while it lives. */
class DescriptorsExhausted {
public:
    DescriptorsExhausted() {
        getrlimit(RLIMIT_NOFILE, &saved);
        rlimit lowered = saved;
        lowered.rlim_cur = 64;
        setrlimit(RLIMIT_NOFILE, &lowered);
        for (int fd; (fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) fillers.push_back(fd);
    }
    ~DescriptorsExhausted() {
        for (const int fd : fillers) close(fd);
        setrlimit(RLIMIT_NOFILE, &saved);
    }
    DescriptorsExhausted(const DescriptorsExhausted&) = delete;
    DescriptorsExhausted& operator=(const DescriptorsExhausted&) = delete;

private:
    rlimit saved{};
    std::vector<int> fillers;
};

TEST(UnconnectedClient, ConnectWithoutASocketGivesMinus1004AndDescriptorZero) {
    std::vector<char> name = nameBuffer("board1");
    Client client(name.data());
    client.Set_Debug_On();
    client.SetClientStatus(77);
    int result = 0;
    std::string posted;
    {
        // The log file would need a descriptor too: the catalogue's output
        // on standard error shows the messages instead.
        StderrCapture catalogue;
        {
            DescriptorsExhausted exhausted;
            const int probe = ::socket(AF_INET, SOCK_STREAM, 0);
            ASSERT_EQ(probe, -1) << "the descriptor limit did not take";
            ASSERT_EQ(errno, EMFILE);
            result = client.Connect(nullptr, nullptr, nullptr);
        }
        posted = catalogue.text();
    }
    EXPECT_EQ(result, -1004);
    EXPECT_EQ(client.GetClientSocket(), 0);
    EXPECT_EQ(client.GetClientStatus(), 77) << "left as it was";
    EXPECT_EQ(posted, "tetherhostclient 1089: " + messageLine("1089", "board1") + "\n");
}

}  // namespace

// SPDX-License-Identifier: MIT
/* A network of the test program's own. The session sweeps listen on
 * 127.0.0.1:4001, the one address Connect knows; in a network namespace of
 * their own they meet neither a tetherhost server nor another test run that
 * holds the port on the same machine. Where namespaces cannot be made (no
 * privilege, user namespaces switched off) the program stays in the
 * machine's network and ctest's resource lock is the only guard. */
#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

bool writeFile(const char* path, const std::string& text) {
    const int fd = open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0) return false;
    const bool written = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(fd);
    return written;
}

/* A new network namespace; without the privilege for one, a user namespace
 * in which this process is root, and the network namespace inside it. */
bool unshareNetwork() {
    if (unshare(CLONE_NEWNET) == 0) return true;
    const uid_t uid = getuid();
    const gid_t gid = getgid();
    if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) return false;
    return writeFile("/proc/self/setgroups", "deny") &&
           writeFile("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1") &&
           writeFile("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1");
}

/* A new namespace has its loopback interface down. */
bool bringLoopbackUp() {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    ifreq request{};
    std::strncpy(request.ifr_name, "lo", IFNAMSIZ - 1);
    bool up = ioctl(fd, SIOCGIFFLAGS, &request) == 0;
    request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP);
    up = up && ioctl(fd, SIOCSIFFLAGS, &request) == 0;
    close(fd);
    return up;
}

class PrivateNetwork : public ::testing::Environment {
public:
    void SetUp() override {
        // Runs before any test starts a thread, as unshare requires.
        if (unshareNetwork() && bringLoopbackUp()) {
            std::printf("running in a network namespace of its own\n");
        } else {
            std::printf("no network namespace of its own (%s): using the machine's 127.0.0.1:4001\n",
                        std::strerror(errno));
        }
    }
};

[[maybe_unused]] ::testing::Environment* const privateNetwork = ::testing::AddGlobalTestEnvironment(new PrivateNetwork);

}  // namespace

// SPDX-License-Identifier: MIT
/* ReceiveQueue: asks the kernel's socket diagnostics how many bytes the peer
 * of a connected socket has not read yet. One NETLINK_SOCK_DIAG socket per
 * thread is opened on first use and kept, so a TCP query costs one netlink
 * exchange (a send and a receive) besides getsockname and getpeername; a Unix
 * one takes two exchanges, for the peer's inode and then its queue. */
#include "support/ReceiveQueue.h"

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/unix_diag.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <optional>
#include <thread>

namespace tetherhost {
namespace {

/* The calling thread's diagnostics socket; closed when the thread ends. */
class DiagSocket {
public:
    DiagSocket() = default;
    DiagSocket(const DiagSocket&) = delete;
    DiagSocket& operator=(const DiagSocket&) = delete;
    ~DiagSocket() {
        if (fd >= 0) close(fd);
    }

    /* Sends one request (a netlink header followed by `request`) and returns
     * the payload of the kernel's answer, or nullptr when the kernel answered
     * with an error (no such socket, for one) or the exchange failed. The
     * payload stays valid until the next exchange on this thread. */
    template <typename Request>
    const nlmsghdr* exchange(const Request& request) {
        if (!ready()) return nullptr;
        struct {
            nlmsghdr header;
            Request body;
        } message{};
        message.header.nlmsg_len = sizeof message;
        message.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
        message.header.nlmsg_flags = NLM_F_REQUEST;
        message.header.nlmsg_seq = ++sequence;
        message.body = request;
        if (send(fd, &message, sizeof message, MSG_NOSIGNAL) != static_cast<ssize_t>(sizeof message)) {
            return nullptr;
        }
        return answer(message.header.nlmsg_seq);
    }

private:
    bool ready() {
        if (fd >= 0) return true;
        fd = socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG);
        if (fd < 0) return false;
        // The kernel answers a diagnostics request before send() returns;
        // the time-out only guards against a lost answer.
        const timeval guard{1, 0};
        sockaddr_nl kernel{};
        kernel.nl_family = AF_NETLINK;
        if (setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &guard, sizeof guard) != 0 ||
            connect(fd, reinterpret_cast<const sockaddr*>(&kernel), sizeof kernel) != 0) {
            close(fd);
            fd = -1;
            return false;
        }
        return true;
    }

    /* Reads until the answer to request `seq` arrives, skipping answers to
     * earlier requests that an interrupted exchange left behind. */
    const nlmsghdr* answer(std::uint32_t seq) {
        for (;;) {
            const ssize_t received = recv(fd, buffer, sizeof buffer, 0);
            if (received <= 0) return nullptr;
            int length = static_cast<int>(received);
            // NLMSG_OK compares the header's unsigned length with the one
            // given; a length gone negative past an unaligned last message
            // ends the walk before the cast could make it large.
            for (auto* header = reinterpret_cast<const nlmsghdr*>(buffer);
                 length >= 0 && NLMSG_OK(header, static_cast<std::uint32_t>(length));
                 header = NLMSG_NEXT(header, length)) {
                if (header->nlmsg_seq != seq) continue;
                return header->nlmsg_type == SOCK_DIAG_BY_FAMILY ? header : nullptr;
            }
        }
    }

    int fd = -1;
    std::uint32_t sequence = 0;
    alignas(nlmsghdr) char buffer[8192]{};
};

DiagSocket& diagSocket() {
    thread_local DiagSocket socket;
    return socket;
}

/* The Unix socket `inode` of the calling process's namespace, with the
 * attributes that `show` asks for; nullptr when it does not exist. */
const nlmsghdr* describeUnixSocket(std::uint32_t inode, std::uint32_t show) {
    unix_diag_req request{};
    request.sdiag_family = AF_UNIX;
    request.udiag_states = ~0U;
    request.udiag_ino = inode;
    request.udiag_show = show;
    request.udiag_cookie[0] = INET_DIAG_NOCOOKIE;
    request.udiag_cookie[1] = INET_DIAG_NOCOOKIE;
    return diagSocket().exchange(request);
}

/* The payload of attribute `type` in a Unix socket description. */
template <typename Value>
std::optional<Value> unixAttribute(const nlmsghdr* description, unsigned short type) {
    int length = static_cast<int>(description->nlmsg_len) - NLMSG_LENGTH(sizeof(unix_diag_msg));
    const auto* attribute = reinterpret_cast<const rtattr*>(static_cast<const char*>(NLMSG_DATA(description)) +
                                                            NLMSG_ALIGN(sizeof(unix_diag_msg)));
    for (; RTA_OK(attribute, length); attribute = RTA_NEXT(attribute, length)) {
        if (attribute->rta_type == type && RTA_PAYLOAD(attribute) >= sizeof(Value)) {
            Value value;
            std::memcpy(&value, RTA_DATA(attribute), sizeof value);
            return value;
        }
    }
    return std::nullopt;
}

/* A Unix stream socket's own send-queue count (SIOCOUTQ) is the kernel memory
 * holding the data, several hundred bytes per message, so the peer socket is
 * found instead and its receive queue, which counts bytes, is read. */
long unixPeerUnread(int socket) {
    struct stat own {};
    if (fstat(socket, &own) != 0) return -1;
    const nlmsghdr* ours = describeUnixSocket(static_cast<std::uint32_t>(own.st_ino), UDIAG_SHOW_PEER);
    if (ours == nullptr) return -1;
    const auto peerInode = unixAttribute<std::uint32_t>(ours, UNIX_DIAG_PEER);
    if (!peerInode || *peerInode == 0) return -1;
    const nlmsghdr* peer = describeUnixSocket(*peerInode, UDIAG_SHOW_RQLEN);
    if (peer == nullptr) return -1;
    const auto queues = unixAttribute<unix_diag_rqlen>(peer, UNIX_DIAG_RQLEN);
    return queues ? static_cast<long>(queues->udiag_rqueue) : -1;
}

/* Whether the described TCP socket can still be read from. A socket its owner
 * has closed lingers without an inode (FIN_WAIT, TIME_WAIT); in the other
 * states (closed, listening, half-open) the receive-queue figure does not
 * count unread bytes. */
bool canStillRead(const inet_diag_msg& socket) {
    const unsigned char state = socket.idiag_state;
    return socket.idiag_inode != 0 &&
           (state == TCP_ESTABLISHED || state == TCP_FIN_WAIT1 || state == TCP_FIN_WAIT2 || state == TCP_CLOSE_WAIT);
}

/* The peer socket is looked up by the connection's four-tuple seen from its
 * side: its source is our peer address, its destination our own address. */
long tcpPeerUnread(int socket, const sockaddr_storage& ownAddress) {
    sockaddr_in own{};
    std::memcpy(&own, &ownAddress, sizeof own);
    sockaddr_in peer{};
    socklen_t peerLength = sizeof peer;
    if (getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &peerLength) != 0 || peer.sin_family != AF_INET) {
        return -1;
    }
    inet_diag_req_v2 request{};
    request.sdiag_family = AF_INET;
    request.sdiag_protocol = IPPROTO_TCP;
    request.idiag_states = ~0U;
    request.id.idiag_sport = peer.sin_port;
    request.id.idiag_dport = own.sin_port;
    request.id.idiag_src[0] = peer.sin_addr.s_addr;
    request.id.idiag_dst[0] = own.sin_addr.s_addr;
    request.id.idiag_cookie[0] = INET_DIAG_NOCOOKIE;
    request.id.idiag_cookie[1] = INET_DIAG_NOCOOKIE;
    const nlmsghdr* answer = diagSocket().exchange(request);
    if (answer == nullptr || answer->nlmsg_len < NLMSG_LENGTH(sizeof(inet_diag_msg))) return -1;
    const auto* description = static_cast<const inet_diag_msg*>(NLMSG_DATA(answer));
    return canStillRead(*description) ? static_cast<long>(description->idiag_rqueue) : -1;
}

}  // namespace

long peerUnreadBytes(int socket) {
    sockaddr_storage own{};
    socklen_t ownLength = sizeof own;
    if (getsockname(socket, reinterpret_cast<sockaddr*>(&own), &ownLength) != 0) return -1;
    if (own.ss_family == AF_UNIX) return unixPeerUnread(socket);
    if (own.ss_family == AF_INET) return tcpPeerUnread(socket, own);
    return -1;
}

bool waitPeerDrained(int socket, int timeoutMs) {
    using namespace std::chrono;
    const auto deadline = steady_clock::now() + milliseconds(timeoutMs);
    // A peer that is reading right now usually drains within a yield; one
    // that is busy elsewhere is polled less and less often, up to 1 ms.
    microseconds pause{0};
    for (;;) {
        const long unread = peerUnreadBytes(socket);
        if (unread == 0) return true;
        if (unread < 0 || steady_clock::now() >= deadline) return false;
        if (pause.count() == 0) {
            sched_yield();
            pause = microseconds(20);
        } else {
            std::this_thread::sleep_for(pause);
            pause = std::min(pause * 2, duration_cast<microseconds>(milliseconds(1)));
        }
    }
}

}  // namespace tetherhost

// SPDX-License-Identifier: MIT
/* SvfFloor: the player's scans as raw frames on one socket. */
#include "SvfFloor.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "BenchPeer.h"
#include "protocol/Commands.h"

namespace tetherhost::bench {

namespace {

long sendBytes(int socket, const void* data, long length) {
    return ::send(socket, data, static_cast<std::size_t>(length), MSG_NOSIGNAL);
}

long receiveBytes(int socket, void* data, long capacity) {
    return ::recv(socket, data, static_cast<std::size_t>(capacity), 0);
}

}  // namespace

SvfFloorClient::SvfFloorClient(const char* name)
    : socket(connectFloorClient(name)), outgoing(protocol::frameSize + 1) {}

SvfFloorClient::~SvfFloorClient() { ::close(socket); }

bool SvfFloorClient::token(int value, long capacity, bool acknowledged) {
    char text[16];
    const int length = std::snprintf(text, sizeof text, "%d", value);
    if (sendBytes(socket, text, length + 1) <= 0) return false;
    const long received = receiveBytes(socket, reply, capacity);
    return received > 0 && (!acknowledged || reply[0] == protocol::plus);
}

bool SvfFloorClient::sendGo() {
    return sendBytes(socket, protocol::plusToken, sizeof protocol::plusToken) == sizeof protocol::plusToken;
}

bool SvfFloorClient::sendBlocks(const WireScan& scan, const protocol::BlockShape& shape) {
    const long byteCount = shape.byteCount;
    for (const std::vector<unsigned char>* block : {&scan.tdi, &scan.expected, &scan.mask}) {
        if (shape.single) {
            // The block and one zero byte in one send; the answer is not examined.
            std::memcpy(outgoing.data(), block->data(), static_cast<std::size_t>(byteCount));
            outgoing[static_cast<std::size_t>(byteCount)] = 0;
            if (sendBytes(socket, outgoing.data(), byteCount + 1) <= 0 ||
                receiveBytes(socket, reply, protocol::frameBytes) <= 0)
                return false;
            continue;
        }
        // Chunks of 1024 bytes, the last one zero padded, each acknowledged.
        for (long offset = 0; offset < byteCount; offset += protocol::frameBytes) {
            const long length = std::min<long>(protocol::frameBytes, byteCount - offset);
            std::memcpy(outgoing.data(), block->data() + offset, static_cast<std::size_t>(length));
            std::memset(outgoing.data() + length, 0, static_cast<std::size_t>(protocol::frameBytes - length));
            if (sendBytes(socket, outgoing.data(), protocol::frameBytes) <= 0 || receiveBytes(socket, reply, 2) <= 0 ||
                reply[0] != protocol::plus)
                return false;
        }
    }
    return true;
}

bool SvfFloorClient::readBack(const protocol::BlockShape& shape, long carried) {
    if (shape.single) {
        // The bytes behind the status text begin the read-back; one receive
        // completes it when they are not all of it.
        std::memmove(reply, reply + (std::strlen(reply) + 1), static_cast<std::size_t>(carried));
        if (carried < std::max(shape.byteCount, 1) &&
            receiveBytes(socket, reply + carried, protocol::frameBytes - carried) <= 0)
            return false;
        tdo.assign(reply, reply + shape.byteCount);
        return true;
    }
    tdo.resize(static_cast<std::size_t>(shape.chunkCount) * protocol::frameSize);
    for (long chunk = 0; chunk < shape.chunkCount; ++chunk) {
        char* const into = reinterpret_cast<char*>(tdo.data()) + chunk * protocol::frameBytes;
        long received = 0;
        if (chunk == 0 && carried > 0) {
            std::memcpy(into, reply + (std::strlen(reply) + 1), static_cast<std::size_t>(carried));
            if (into[0] != protocol::plus) return false;
            received = carried;
            if (carried < protocol::frameBytes) {
                const long more = receiveBytes(socket, into + carried, protocol::frameBytes - carried);
                if (more <= 0) return false;
                received += more;
            }
        } else {
            received = receiveBytes(socket, into, protocol::frameBytes);
        }
        if (received <= 0 || into[0] != protocol::plus || !sendGo()) return false;
    }
    return true;
}

int SvfFloorClient::scan(const WireScan& scan) {
    const protocol::BlockShape shape = protocol::BlockShape::ofShift(scan.bits);
    // The command frame's answer is not examined; the arguments' are.
    if (!token(protocol::command::jtagInterface, protocol::frameBytes, false) ||
        !token(protocol::sub::jtagShift, 2, true) ||
        !token(scan.instruction ? protocol::shiftFlag::instructionScan : 0, 2, true) || !token(scan.bits, 2, true) ||
        !token(1, 2, true) || !token(1, 2, true) || !sendBlocks(scan, shape))
        return -1;
    std::memset(reply, 0, protocol::frameSize);
    if (!sendGo()) return -1;
    const long statusReceived = receiveBytes(socket, reply, protocol::frameBytes);
    if (statusReceived <= 0) return -1;
    const int status = static_cast<int>(std::strtol(reply, nullptr, 10));
    if (status < 0) return status;
    const long carried = std::max(0L, statusReceived - static_cast<long>(std::strlen(reply) + 1));
    if (!readBack(shape, carried)) return -1;
    // The integer reply: the count of differing bits.
    std::memset(reply, 0, protocol::frameSize);
    if (!sendGo() || receiveBytes(socket, reply, protocol::frameBytes) <= 0) return -1;
    return static_cast<int>(std::strtol(reply, nullptr, 10));
}

}  // namespace tetherhost::bench

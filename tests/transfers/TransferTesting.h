// SPDX-License-Identifier: MIT
/* Shared set-up of the transfer tests: a Client named "xfer" that logs its
 * messages, a scripted peer on a socketpair playing the server, calls of the
 * marshallers with an argument list built in place, and byte helpers for the
 * blocks and chunks the peer expects. */
#ifndef TETHERHOST_TESTS_TRANSFERS_TRANSFERTESTING_H
#define TETHERHOST_TESTS_TRANSFERS_TRANSFERTESTING_H

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <cstdarg>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "Client.h"
#include "MessageLog.h"
#include "ScriptedPeer.h"
#include "VaList.h"

namespace tetherhost::test {

/** `count` bytes of recognisable data without zero bytes, starting at `seed`. */
inline std::string pattern(std::size_t count, char seed = 'A') {
    std::string data(count, '\0');
    for (std::size_t i = 0; i < count; ++i)
        data[i] = static_cast<char>('A' + (static_cast<std::size_t>(seed - 'A') + i) % 26);
    return data;
}

/** `bytes` followed by zero bytes up to `size`. */
inline std::string padded(const std::string& bytes, std::size_t size = 1024) {
    std::string result = bytes;
    result.resize(size, '\0');
    return result;
}

/** The token's argument frame followed by the standard acknowledgement, for each token. */
inline void tokens(ScriptedPeer& peer, std::initializer_list<std::string> texts) {
    for (const std::string& text : texts) peer.expectFrame(text).ack();
}

/** `data` cut into 1024-byte chunks (the last one short or padded), each
 * acknowledged with "+". */
inline void chunks(ScriptedPeer& peer, const std::string& data, bool padLast) {
    for (std::size_t at = 0; at < data.size(); at += 1024) {
        const std::string chunk = data.substr(at, 1024);
        peer.expect(padLast ? padded(chunk) : chunk).ack();
    }
}

inline const std::string goToken = bytes("+\0");

/** A test-name suffix for a bit count: "Bits8193", "BitsMinus15". */
inline std::string bitsName(int bitCount) {
    return bitCount < 0 ? "BitsMinus" + std::to_string(-static_cast<long>(bitCount))
                        : "Bits" + std::to_string(bitCount);
}

/* A socketpair whose far end the test reads itself, to see that nothing was sent. */
class QuietPeer {
public:
    QuietPeer() {
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) ends[0] = ends[1] = -1;
    }
    ~QuietPeer() {
        for (const int end : ends)
            if (end >= 0) close(end);
    }
    QuietPeer(const QuietPeer&) = delete;
    QuietPeer& operator=(const QuietPeer&) = delete;

    int clientSocket() const { return ends[1]; }
    /** Every byte the client sent so far, without waiting. */
    std::string pending() const {
        std::string got;
        char chunk[4096];
        for (ssize_t count; (count = recv(ends[0], chunk, sizeof chunk, MSG_DONTWAIT)) > 0;)
            got.append(chunk, static_cast<std::size_t>(count));
        return got;
    }

private:
    int ends[2];
};

class TransferTest : public ::testing::Test {
protected:
    TransferTest() : client(const_cast<char*>("xfer")), peer(ScriptedPeer::onSocketPair()) {
        log.attach(client);
        log.clear();
    }

    /** The socket the marshallers are called on: the scripted peer's, unless
     * a test hands them another. */
    int socket() const { return socketOverride >= 0 ? socketOverride : peer->clientSocket(); }

    /** Runs the script and checks that every step went as scripted. */
    ::testing::AssertionResult peerFinished() {
        if (peer->finish()) return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << peer->failure();
    }

    /** Starts the peer with an empty script and waits until it has closed its end. */
    void closePeer() {
        peer->closeConnection();
        peer->start();
        ASSERT_TRUE(peerFinished());
    }

    std::vector<std::string> ids() const { return log.identifiers(); }

    /** The logged lines of message `id`, in order. */
    std::vector<std::string> linesOf(const std::string& id) const {
        std::vector<std::string> result;
        for (const std::string& line : log.lines())
            if (line.compare(0, id.size() + 1, id + " ") == 0) result.push_back(line);
        return result;
    }

    /** GetTDO(char*, bitCount) into `size` bytes preset to '?': the result
     * code and the destination afterwards. */
    std::pair<int, std::string> takeTdo(int bitCount, std::size_t size) {
        std::string dest(size, '?');
        const int result = client.GetTDO(dest.data(), bitCount);
        return {result, dest};
    }

    template <typename... Args>
    int jtagShift(Args... args) {
        const int s = socket();
        return withVaList([this, s](va_list list) { return client.sendJTAGShiftargs(s, list); }, args...);
    }
    template <typename... Args>
    int genericShift(Args... args) {
        const int s = socket();
        return withVaList([this, s](va_list list) { return client.sendShiftargs(s, list); }, args...);
    }
    template <typename... Args>
    int pumpData(Args... args) {
        int s = socket();
        return withVaList([this, &s](va_list list) { return client.sendPumpData(s, list); }, args...);
    }
    template <typename... Args>
    int sspi(int withWrite, int withReadBack, Args... args) {
        int s = socket();
        return withVaList([&](va_list list) { return client.sendSSPIShiftargs(s, withWrite, withReadBack, list); },
                          args...);
    }
    template <typename... Args>
    int i2c(int withWrite, int withReadBack, Args... args) {
        int s = socket();
        return withVaList([&](va_list list) { return client.sendI2CShiftargs(s, withWrite, withReadBack, list); },
                          args...);
    }
    template <typename... Args>
    int sharedApps(Args... args) {
        int s = socket();
        return withVaList([this, &s](va_list list) { return client.sendSharedApps(s, list); }, args...);
    }
    template <typename... Args>
    int jtagInterface(Args... args) {
        int s = socket();
        return withVaList([this, &s](va_list list) { return client.JTAGInterfaceFunc(s, list); }, args...);
    }

    /** Fills the client's scan return data with `data` through a generic
     * single-block shift with read-back, then forgets its messages. */
    void holdTdo(const std::string& data) {
        auto filler = ScriptedPeer::onSocketPair();
        const std::string bits = std::to_string(8 * data.size());
        tokens(*filler, {"0", bits, std::to_string(data.size()), "1"});
        filler->expect(data).reply(data);
        filler->start();
        const int s = filler->clientSocket();
        const int result = withVaList([this, s](va_list list) { return client.sendShiftargs(s, list); }, 0,
                                      static_cast<int>(8 * data.size()), 1, data.c_str());
        ASSERT_EQ(result, 0);
        ASSERT_TRUE(filler->finish()) << filler->failure();
        log.clear();
    }

    MessageLog log;
    Client client;
    std::unique_ptr<ScriptedPeer> peer;
    int socketOverride = -1;
};

using Ids = std::vector<std::string>;

}  // namespace tetherhost::test

#endif

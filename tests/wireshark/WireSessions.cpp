// SPDX-License-Identifier: MIT
/* WireSessions: the host application whose connections the dissector's tests
 * capture. Each session named on the command line is one connection (the
 * client name is the session's name) that goes through one command family
 * with the library's exported calls only. What it sent, what Send returned,
 * the texts it read and the scan data GetTDO handed out are printed as one
 * JSON line per session, so that the tests hold the dissector's decoding
 * against what the application did.
 *
 * Usage: wireshark_sessions SESSION... (see `sessions` below). */
#include <algorithm>
#include <cstdio>
#include <exception>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Client.h"
#include "ClientUtils.h"
#include "LByteBuffer.h"

namespace {

using nlohmann::json;
using Bytes = std::vector<unsigned char>;

std::string hex(const unsigned char* data, std::size_t size) {
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        text += digits[data[i] >> 4];
        text += digits[data[i] & 0xF];
    }
    return text;
}

std::string hex(const Bytes& bytes) { return hex(bytes.data(), bytes.size()); }

/* `count` bytes of a pattern that differs from byte to byte and chunk to
 * chunk, so that a chunk decoded in the wrong place cannot pass. */
Bytes pattern(std::size_t count, unsigned seed) {
    Bytes bytes(count);
    for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<unsigned char>((i * 7 + i / 251 + seed) & 0xFF);
    return bytes;
}

std::size_t bytesOf(int bits) { return static_cast<std::size_t>((bits + 7) / 8); }

class Session {
public:
    explicit Session(const std::string& name) : name(name), client(const_cast<char*>(name.c_str())) {}

    bool connect() {
        char connectText[] = "127.0.0.1";
        const int status = client.Connect(connectText, nullptr, nullptr);
        steps.push_back({{"call", "connect"}, {"result", status}});
        return status == 0;
    }

    /* One Send as the step `step` describes it, with its result. */
    int sent(json step, int result) {
        step["call"] = "send";
        step["result"] = result;
        step["status"] = client.GetClientStatus();
        steps.push_back(step);
        return result;
    }

    /* The scan data of the last transfer. */
    void tdo(int bits) {
        Bytes data(bytesOf(bits));
        char* destination = reinterpret_cast<char*>(data.data());
        const int status = client.GetTDO(destination, bits);
        steps.back()["tdo"] = status == 0 ? json(hex(data)) : json(nullptr);
    }

    void readText() {
        char* text = nullptr;
        const int status = client.Read(text);
        steps.push_back({{"call", "read-text"}, {"result", status}, {"text", status == 0 ? text : ""}});
    }

    void readList() {
        std::vector<std::string> fields;
        const int status = client.Read(fields);
        steps.push_back({{"call", "read-list"}, {"result", status}, {"fields", fields}});
    }

    void openSession() {
        sent({{"command", 4}}, client.Send(4, "wire", "1.0", 2, 11, 12));
        sent({{"command", 33}}, client.Send(33));
    }

    void closeSession() {
        sent({{"command", 34}}, client.Send(34));
        sent({{"command", 35}}, client.Send(35));
    }

    void disconnect() {
        const int status = client.Disconnect();
        steps.push_back({{"call", "disconnect"}, {"result", status}});
    }

    /* Command 44, sub-command 12: one JTAG shift with up to three blocks. */
    void jtagShift(int flags, int bits, int second, int third, unsigned seed) {
        // A shift of no bits still needs blocks to point at.
        const std::size_t count = bytesOf(bits);
        const Bytes tdi = pattern(std::max<std::size_t>(count, 1), seed);
        const Bytes expected = pattern(std::max<std::size_t>(count, 1), seed + 1);
        const Bytes mask = pattern(std::max<std::size_t>(count, 1), seed + 2);
        json step = {{"command", 44},
                     {"sub", 12},
                     {"flags", flags},
                     {"bits", bits},
                     {"second", second},
                     {"third", third},
                     {"tdi", hex(tdi.data(), count)}};
        if (second != 0) step["expected"] = hex(expected.data(), count);
        if (third != 0) step["mask"] = hex(mask.data(), count);
        sent(step, client.Send(44, 12, flags, bits, second, third, tdi.data(), expected.data(), mask.data()));
        if ((second & 1) != 0 && (flags & 2) == 0) tdo(bits);
    }

    void print() const { std::printf("%s\n", json({{"session", name}, {"steps", steps}}).dump().c_str()); }

    std::string name;
    Client client;
    json steps = json::array();
};

void locks(Session& s) {
    // Without the locks the guarded command goes out as the poll.
    s.sent({{"command", 5}, {"args", {7}}}, s.client.Send(5, 7));
    s.openSession();
    s.sent({{"command", 5}, {"args", {7}}}, s.client.Send(5, 7));
    s.closeSession();
}

void patterns(Session& s) {
    s.openSession();
    s.sent({{"command", 2}, {"texts", {"alpha"}}}, s.client.Send(2, "alpha"));
    s.sent({{"command", 3}, {"texts", {"one", "two"}}}, s.client.Send(3, "one", "two"));
    s.sent({{"command", 12}, {"texts", {"x", "y"}}}, s.client.Send(12, "x", "y"));
    s.sent({{"command", 20}, {"args", {1, -2}}}, s.client.Send(20, 1, -2));
    s.sent({{"command", 21}, {"args", {1, 2, 3, 4}}, {"texts", {"h1", "h2", "t1", "t2"}}},
           s.client.Send(21, 1, "h1", 2, "h2", 3, "t1", 4, "t2"));
    s.sent({{"command", 29}, {"texts", {"log"}}}, s.client.Send(29, "log"));
    s.sent({{"command", 36}, {"args", {5, 6}}}, s.client.Send(36, 5, 6));
    s.sent({{"command", 57}}, s.client.Send(57));
    s.sent({{"command", 0}}, s.client.Send(0));
    s.sent({{"command", 44}, {"sub", 5}, {"args", {1, 2}}}, s.client.Send(44, 5, 1, 2));
    s.sent({{"command", 44}, {"sub", 93}, {"args", {1, 2, 3}}}, s.client.Send(44, 93, 1, 2, 3));
    s.sent({{"command", 44}, {"sub", 89}, {"args", {0, 5, 0, 1000, 0}}}, s.client.Send(44, 89, 0, 5, 0, 1000, 0));
    s.sent({{"command", 44}, {"sub", 1}, {"texts", {"txt"}}}, s.client.Send(44, 1, "txt"));
    s.sent({{"command", 44}, {"sub", 83}, {"texts", {"a", "b"}}}, s.client.Send(44, 83, "a", "b"));
    s.sent({{"command", 44}, {"sub", 30}, {"args", {1, 2}}, {"texts", {"t"}}}, s.client.Send(44, 30, 1, "t", 2));
    s.sent({{"command", 44}, {"sub", 120}, {"args", {4}}}, s.client.Send(44, 120, 4));
    s.sent({{"command", 44}, {"sub", 69}, {"fraction", "3.000000"}}, s.client.Send(44, 69, 3));
    s.sent({{"command", 44}, {"sub", 36}, {"fraction", "3.000000"}}, s.client.Send(44, 36, 3));
    s.sent({{"command", 44}, {"sub", 22}, {"args", {1000000}}}, s.client.Send(44, 22, 1000000));
    s.sent({{"command", 44}, {"sub", 0}}, s.client.Send(44, 0));
    s.sent({{"command", 44}, {"sub", 200}}, s.client.Send(44, 200));
    s.closeSession();
}

void jtag(Session& s) {
    s.openSession();
    s.sent({{"command", 44}, {"sub", 3}}, s.client.Send(44, 3));
    s.jtagShift(0, 96, 1, 0, 0x10);    // a data scan with read-back
    s.jtagShift(1, 18, 1, 1, 0x20);    // an instruction scan compared under a mask
    s.jtagShift(2, 32, 1, 0, 0x30);    // the read-back left out by the flag
    s.jtagShift(0, 8, 2, 0, 0x40);     // an even second: the block goes, nothing comes back
    s.jtagShift(0, 0, 1, 0, 0x50);     // no bits: the zero bytes alone
    s.jtagShift(0, 9000, 1, 0, 0x60);  // two chunks each way
    s.closeSession();
}

void oneCall(Session& s) {
    int socket = static_cast<int>(s.client.GetClientSocket());
    const Bytes small = pattern(8, 0x70);
    const LByteBuffer none;
    const int single = SendJTAGShiftData(socket, 0, 64, 1, LByteBuffer(small), none, none);
    s.steps.push_back(
        {{"call", "one-call"}, {"flags", 0}, {"bits", 64}, {"blocks", 1}, {"tdi", hex(small)}, {"result", single}});
    const Bytes large = pattern(bytesOf(20000), 0x71);
    const int copied = SendJTAGShiftData(socket, 1, 20000, 3, LByteBuffer(large), none, none);
    s.steps.push_back({{"call", "one-call"}, {"flags", 1}, {"bits", 20000}, {"blocks", 3}, {"result", copied}});
    // A first chunk of zeros: the server tells a copy from a zero frame by
    // the second chunk.
    Bytes zeroHead = pattern(bytesOf(20000), 0x72);
    std::fill(zeroHead.begin(), zeroHead.begin() + 1024, 0);
    const int zeroHeaded = SendJTAGShiftData(socket, 0, 20000, 2, LByteBuffer(zeroHead), none, none);
    s.steps.push_back({{"call", "one-call"},
                       {"flags", 0},
                       {"bits", 20000},
                       {"blocks", 2},
                       {"zeroHead", true},
                       {"result", zeroHeaded}});
    s.sent({{"command", 44}, {"sub", 3}}, s.client.Send(44, 3));
}

void pump(Session& s) {
    for (const auto& [bits, readBack] : {std::pair{100, 1}, std::pair{9000, 0}, std::pair{16400, 1}}) {
        const Bytes data = pattern(bytesOf(bits), static_cast<unsigned>(bits));
        s.sent({{"command", 42}, {"bits", bits}, {"mode", 2}, {"readBack", readBack}, {"data", hex(data)}},
               s.client.Send(42, data.data(), bits, 2, readBack));
        if (readBack != 0) s.tdo(bits);
    }
}

void sspi(Session& s) {
    const Bytes data = pattern(4, 0x80);
    const char* bytes = reinterpret_cast<const char*>(data.data());
    s.sent({{"command", 50}, {"address", 256}, {"bits", 32}, {"data", hex(data)}},
           s.client.Send(50, 256, 32, bytes, 1));
    s.sent({{"command", 52}, {"address", 256}, {"bits", 32}, {"data", hex(data)}},
           s.client.Send(52, 256, 32, bytes, 0));
    s.tdo(32);
    s.sent({{"command", 51}, {"address", 256}, {"bits", 32}, {"data", hex(data)}},
           s.client.Send(51, 256, 32, nullptr, 0, 256, 32, bytes, 0));
    s.tdo(32);
    const Bytes wide = pattern(bytesOf(9000), 0x81);
    s.sent({{"command", 52}, {"address", 4096}, {"bits", 9000}, {"data", hex(wide)}},
           s.client.Send(52, 4096, 9000, reinterpret_cast<const char*>(wide.data()), 1));
    s.tdo(9000);
}

void i2c(Session& s) {
    const Bytes data = {0x01, 0x12, 0x50};
    const char* bytes = reinterpret_cast<const char*>(data.data());
    s.sent({{"command", 46}, {"address", 16}, {"device", 0x50}, {"bits", 24}, {"data", hex(data)}},
           s.client.Send(46, 16, 0x50, 24, bytes, 0));
    s.sent({{"command", 48}, {"address", 16}, {"device", 0x50}, {"bits", 24}, {"data", hex(data)}},
           s.client.Send(48, 16, 0x50, 24, bytes, 0));
    s.tdo(24);
    s.sent({{"command", 47}, {"address", 16}, {"device", 0x50}, {"bits", 24}, {"data", hex(data)}},
           s.client.Send(47, 16, 0x50, 24, nullptr, 0, 16, 0x50, 24, bytes, 0));
    s.tdo(24);
}

void readers(Session& s) {
    s.sent({{"command", 1}}, s.client.Send(1));
    s.readList();
    s.sent({{"command", 44}, {"sub", 7}}, s.client.Send(44, 7));
    s.readText();
    s.sent({{"command", 44}, {"sub", 9}}, s.client.Send(44, 9));
    s.readText();
    s.readText();  // nothing is left: the empty reply
}

void apps(Session& s) {
    s.sent({{"command", 41}, {"names", {"alpha", "beta"}}}, s.client.Send(41, 2, "alpha", "beta"));
    s.sent({{"command", 43}}, s.client.Send(43));
    s.readList();
}

void generic(Session& s) {
    s.openSession();
    for (const auto& [bits, readBack] : {std::pair{16, 1}, std::pair{9000, 0}, std::pair{9000, 1}}) {
        const Bytes data = pattern(bytesOf(bits), static_cast<unsigned>(bits) + 1);
        s.sent({{"command", 19}, {"flags", 0}, {"bits", bits}, {"readBack", readBack}, {"data", hex(data)}},
               s.client.Send(19, 0, bits, readBack, data.data()));
        if (readBack != 0) s.tdo(bits);
    }
    s.closeSession();
}

/* A 1 MiB JTAG shift with its expected block and the read-back: 1024 chunks
 * each way for each block. */
void large(Session& s) {
    s.openSession();
    s.sent({{"command", 44}, {"sub", 3}}, s.client.Send(44, 3));
    constexpr int bits = 8 * 1024 * 1024;
    const Bytes tdi = pattern(bytesOf(bits), 0x90);
    const Bytes expected = pattern(bytesOf(bits), 0x91);
    s.sent({{"command", 44}, {"sub", 12}, {"flags", 0}, {"bits", bits}, {"second", 1}, {"third", 0}},
           s.client.Send(44, 12, 0, bits, 1, 0, tdi.data(), expected.data()));
    s.steps.back()["tdiHead"] = hex(tdi.data(), 64);
    s.closeSession();
}

const std::map<std::string, std::function<void(Session&)>> sessions = {
    {"locks", locks}, {"patterns", patterns}, {"jtag", jtag}, {"onecall", oneCall}, {"pump", pump},   {"sspi", sspi},
    {"i2c", i2c},     {"readers", readers},   {"apps", apps}, {"generic", generic}, {"large", large},
};

}  // namespace

// A failure of the program itself (no memory, a JSON fault) ends it with one
// line saying why, which the test reports.
int main(int argc, char** argv) try {
    for (int i = 1; i < argc; ++i) {
        const auto found = sessions.find(argv[i]);
        if (found == sessions.end()) {
            std::fprintf(stderr, "wireshark_sessions: no session %s\n", argv[i]);
            return 2;
        }
        Session session(argv[i]);
        if (session.connect()) {
            found->second(session);
            session.disconnect();
        }
        session.print();
    }
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "wireshark_sessions: %s\n", error.what());
    return 1;
}

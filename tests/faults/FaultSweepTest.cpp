// SPDX-License-Identifier: MIT
/* Fault sweeps: one whole session of every command family (connect with the
 * introduction, session open and locks, the plain commands, the readers,
 * every transfer, disconnect) is run once without faults, which numbers its
 * sends and receives; then once per call N with the Nth call failing (-1 or
 * 0), once per send with a short count and once per receive that comes
 * short. Each run must end with the status its step gives, make no call
 * after a failure that ends its operation, and leave open exactly the
 * descriptors the library leaves open on purpose: the connection after a
 * failed operation (and the old one after a reconnection), none after
 * Disconnect. The one-call JTAG shift is swept the same way on a
 * socketpair. */
#include <gtest/gtest.h>

#include <dirent.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "Client.h"
#include "ClientUtils.h"
#include "LByteBuffer.h"
#include "SessionServer.h"
#include "SocketFaults.h"

namespace tetherhost::test {
namespace {

constexpr int serverPort = 4001;
constexpr int sendFailed = -1001;
constexpr int receiveFailed = -1002;
const std::string ack("+\0", 2);

std::string frame(const std::string& token) { return token + '\0'; }

/* The exchange of one operation on the wire, in order. */
class Wire {
public:
    Wire& expect(const std::string& bytes) { return add(true, bytes); }
    Wire& reply(const std::string& bytes) { return add(false, bytes); }
    /* One argument frame and its acknowledgement. */
    Wire& argument(const std::string& token) { return expect(frame(token)).reply(ack); }
    /* The integer reply that ends most commands: the request, then the number. */
    Wire& integerReply(const std::string& number) { return expect(ack).reply(frame(number)); }
    Conversation steps;

private:
    Wire& add(bool fromClient, const std::string& bytes) {
        steps.push_back(
            {fromClient ? ConversationStep::Kind::ClientSends : ConversationStep::Kind::ClientReceives, bytes});
        return *this;
    }
};

enum class Kind {
    Connect,       // returns -1001 on a failed receive too, with status -1002
    Command,       // Send
    Reconnecting,  // Send of command 1 or 4: reconnects when its command frame fails
    Reader,        // Read
    Disconnect,    // goes on to shut down and close whatever Send returned
};

struct Operation {
    std::string name;
    Kind kind;
    std::function<int(Client&)> run;
    int result;                      // without faults
    bool endsWithReply;              // Send reads the integer reply last
    int beforeReply;                 // what Send returns when only that reply fails
    std::size_t discardedFrom = 0;   // calls, counted from the operation's first, whose
    std::size_t discardedCount = 0;  // failure the operation discards by design
    Wire wire;
};

std::string bytesOf(std::initializer_list<int> values) {
    std::string result;
    for (const int value : values) result.push_back(static_cast<char>(value));
    return result;
}

std::string patternBytes(std::size_t count, int step) {
    std::string result(count, '\0');
    for (std::size_t i = 0; i < count; ++i)
        result[i] = static_cast<char>(1 + (i * static_cast<std::size_t>(step)) % 250);
    return result;
}

unsigned char reversed(unsigned char byte) {
    unsigned char result = 0;
    for (int bit = 0; bit < 8; ++bit)
        if ((byte >> bit & 1) != 0) result = static_cast<unsigned char>(result | 1 << (7 - bit));
    return result;
}

std::string reversedBytes(const std::string& data) {
    std::string result = data;
    for (char& byte : result) byte = static_cast<char>(reversed(static_cast<unsigned char>(byte)));
    return result;
}

const char* bytePointer(const std::string& data) { return data.data(); }

/* The data blocks the transfers carry. */
const std::string shiftBlock = bytesOf({0x0F, 0xF0});
const std::string jtagFirst = bytesOf({0x01, 0x02});
const std::string jtagSecond = bytesOf({0x03, 0x04});
const std::string pumpBlock = patternBytes(1025, 3);
const std::string i2cByte = bytesOf({0x01});
const std::string i2cBlock = patternBytes(1025, 7);
const std::string i2cSecondByte = bytesOf({0x0F});
const std::string readBackChunk = "+" + patternBytes(1023, 5);

// The operations are a table, one call and its conversation per entry.
// clang-format off
std::vector<Operation> session() {
    std::vector<Operation> ops;
    auto add = [&](std::string name, Kind kind, std::function<int(Client&)> run, int result, Wire wire,
                   bool endsWithReply = false, int beforeReply = 0) {
        ops.push_back({std::move(name), kind, std::move(run), result, endsWithReply, beforeReply, 0, 0, std::move(wire)});
    };

    add("Connect", Kind::Connect, [](Client& c) { return c.Connect(nullptr, nullptr, nullptr); }, 0,
        Wire().expect(frame("faulty")).reply(ack));
    {
        Wire w;
        w.argument("4").argument("alpha").argument("beta");
        for (const char* option : {"11", "12", "0", "1", "0", "0", "0", "1", "0", "0"}) w.argument(option);
        w.expect(ack).reply(frame("1"));
        add("Send(4) session", Kind::Reconnecting, [](Client& c) { return c.Send(4, "alpha", "beta", 2, 11, 12); }, 0, w);
    }
    add("Send(33) lock", Kind::Command, [](Client& c) { return c.Send(33); }, 0,
        Wire().argument("33").expect(ack).reply(frame("1")));
    add("Send(1)", Kind::Reconnecting, [](Client& c) { return c.Send(1); }, 3,
        Wire().argument("1").integerReply("3"), true, 2);
    add("Read(list)", Kind::Reader,
        [](Client& c) {
            std::vector<std::string> fields;
            return c.Read(fields);
        },
        0, Wire().expect(ack).reply(frame("a;b")));
    add("Read(text)", Kind::Reader,
        [](Client& c) {
            char* text = nullptr;
            return c.Read(text);
        },
        0, Wire().expect(ack).reply(frame("hello")));
    add("Send(19) generic shift", Kind::Command,
        [](Client& c) { return c.Send(19, 0, 16, 1, bytePointer(shiftBlock)); }, 7,
        Wire().argument("19").argument("0").argument("16").argument("2").argument("1")
            .expect(shiftBlock).reply(bytesOf({0xA5, 0x5A})).integerReply("7"), true, 0);
    add("Send(44/12) JTAG shift", Kind::Command,
        [](Client& c) { return c.Send(44, 12, 0, 12, 1, 0, bytePointer(jtagFirst), bytePointer(jtagSecond)); }, 0,
        Wire().argument("44").argument("12").argument("0").argument("12").argument("1").argument("0")
            .expect(jtagFirst + '\0').reply(ack).expect(jtagSecond + '\0').reply(ack)
            .expect(ack).reply(frame("0")).reply(bytesOf({0x12, 0x34})).integerReply("0"), true, 2);
    add("Send(42) pump", Kind::Command, [](Client& c) { return c.Send(42, bytePointer(pumpBlock), 8200, 3, 1); }, 0,
        Wire().argument("42").argument("8200").argument("3").argument("1")
            .expect(pumpBlock.substr(0, 1024)).reply(ack).expect(pumpBlock.substr(1024)).reply(ack)
            .reply(readBackChunk).expect(ack).reply("+" + bytesOf({0x44})).expect(ack).integerReply("0"), true, 0);
    add("Send(46) I2C write", Kind::Command,
        [](Client& c) { return c.Send(46, 5, 0x01, 8, bytePointer(i2cByte), 9); }, 0,
        Wire().argument("46").argument("5").argument("128").argument("8").argument("9")
            .expect(reversedBytes(i2cByte)).reply(ack).integerReply("0"), true, 0);
    add("Send(48) I2C chunks", Kind::Command,
        [](Client& c) { return c.Send(48, 5, 0x50, 8200, bytePointer(i2cBlock), 9); }, 0,
        Wire().argument("48").argument("5").argument("10").argument("8200").argument("9")
            .expect(reversedBytes(i2cBlock.substr(0, 1024))).reply(ack)
            .expect(reversedBytes(i2cBlock.substr(1024))).reply(ack)
            .reply(readBackChunk).expect(ack).reply("+" + bytesOf({0x01})).expect(ack).integerReply("0"), true, 0);
    add("Send(47) I2C read, then write", Kind::Command,
        [](Client& c) {
            return c.Send(47, 1, 0x01, 8, static_cast<const char*>(nullptr), 2, 3, 0x02, 8, bytePointer(i2cSecondByte), 4);
        },
        0,
        Wire().argument("47").argument("1").argument("128").argument("8").argument("2").reply(bytesOf({0x11}))
            .argument("3").argument("64").argument("8").argument("4")
            .expect(reversedBytes(i2cSecondByte)).reply(bytesOf({0x22})).integerReply("0"), true, 0);
    // Its first transfer (four tokens and the read-back) may fail: the second goes on.
    ops.back().discardedFrom = 2;
    ops.back().discardedCount = 9;
    add("Send(50) SSPI write", Kind::Command, [](Client& c) { return c.Send(50, 1, 16, bytePointer(shiftBlock), 2); }, 0,
        Wire().argument("50").argument("1").argument("16").argument("2").expect(shiftBlock).reply(ack).integerReply("0"),
        true, 0);
    add("Send(52) SSPI write and read", Kind::Command,
        [](Client& c) { return c.Send(52, 1, 16, bytePointer(shiftBlock), 2); }, 0,
        Wire().argument("52").argument("1").argument("16").argument("2").expect(shiftBlock)
            .reply(bytesOf({0x31, 0x32})).integerReply("0"), true, 0);
    add("Send(51) SSPI read, then write", Kind::Command,
        [](Client& c) {
            return c.Send(51, 1, 16, static_cast<const char*>(nullptr), 2, 3, 16, bytePointer(shiftBlock), 4);
        },
        0,
        Wire().argument("51").argument("1").argument("16").argument("2").reply(bytesOf({0x41, 0x42}))
            .argument("3").argument("16").argument("4").expect(shiftBlock).reply(bytesOf({0x43, 0x44}))
            .integerReply("0"), true, 0);
    ops.back().discardedFrom = 2;
    ops.back().discardedCount = 7;
    {
        std::string list = "alpha;beta;";
        list.resize(1024, '\0');
        add("Send(41) shared apps", Kind::Command, [](Client& c) { return c.Send(41, 2, "alpha", "beta"); }, 0,
            Wire().argument("41").expect(list).reply(ack).integerReply("0"), true, 0);
    }
    add("Send(44/9) sub-command", Kind::Command, [](Client& c) { return c.Send(44, 9); }, 0,
        Wire().argument("44").argument("9").integerReply("0"), true, 2);
    add("Send(5) int argument", Kind::Command, [](Client& c) { return c.Send(5, 77); }, 0,
        Wire().argument("5").argument("77").integerReply("0"), true, 0);
    add("Send(3) text arguments", Kind::Command, [](Client& c) { return c.Send(3, "x", "y"); }, 0,
        Wire().argument("3").expect(frame("x")).reply(frame("ok")).expect(frame("y")).reply(frame("ok"))
            .integerReply("0"), true, 0);
    add("Send(21) header and trailer", Kind::Command,
        [](Client& c) { return c.Send(21, 1, "h", 2, "e", 3, "a", 4, "d"); }, 0,
        Wire().argument("21").argument("1").argument("h").argument("2").argument("e").argument("3").argument("a")
            .argument("4").argument("d").integerReply("0"), true, 0);
    add("Send(38)", Kind::Command, [](Client& c) { return c.Send(38); }, 5, Wire().argument("38").integerReply("5"),
        true, 2);
    add("Disconnect", Kind::Disconnect, [](Client& c) { return c.Disconnect(); }, 0,
        Wire().argument("9999").integerReply("0"));
    return ops;
}
// clang-format on

Conversation scriptOf(const std::vector<Operation>& ops) {
    Conversation script;
    for (const Operation& op : ops) script.insert(script.end(), op.wire.steps.begin(), op.wire.steps.end());
    return script;
}

std::set<int> openDescriptors() {
    std::set<int> open;
    DIR* listing = opendir("/proc/self/fd");
    if (listing == nullptr) return open;
    while (const dirent* entry = readdir(listing)) {
        if (entry->d_name[0] == '.') continue;
        const int fd = std::stoi(entry->d_name);
        if (fd != dirfd(listing)) open.insert(fd);
    }
    closedir(listing);
    return open;
}

/* A connection of the library's: an IPv4 TCP socket. (Its peer cannot be
 * asked for: a connection the server has reset no longer names it.) */
bool isClientConnection(int fd) {
    int domain = 0;
    int protocol = 0;
    socklen_t length = sizeof domain;
    if (getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &length) != 0) return false;
    length = sizeof protocol;
    return getsockopt(fd, SOL_SOCKET, SO_PROTOCOL, &protocol, &length) == 0 && domain == AF_INET &&
           protocol == IPPROTO_TCP;
}

struct Outcome {
    int result;
    int status;
    bool operator==(const Outcome& other) const { return result == other.result && status == other.status; }
};

std::string describe(const Outcome& outcome) {
    return "result " + std::to_string(outcome.result) + ", status " + std::to_string(outcome.status);
}

bool failedTransfer(int status) { return status == sendFailed || status == receiveFailed; }

/* One session against a fresh server, stopped after the first operation that
 * leaves a failed send or receive in the status. */
struct SessionRun {
    std::vector<Outcome> outcomes;
    std::vector<std::size_t> callsAfter;  // calls made when each operation returned
    std::vector<SocketCall> calls;
    std::string server;  // empty: the server's script ran to its end
    int reconnections = 0;
    std::vector<int> leftOpen;  // descriptors open now that were not before
    int clientSocket = -1;
    bool disconnected = false;  // the run reached and ran Disconnect
};

SessionRun runSession(const std::vector<Operation>& ops, Fault fault, std::size_t target) {
    SessionRun run;
    const std::set<int> before = openDescriptors();
    {
        const auto server = SessionServer::listening(serverPort, scriptOf(ops), ack);
        if (!server->startError().empty()) {
            ADD_FAILURE() << server->startError();
            return run;
        }
        static char name[] = "faulty";
        Client client(name);
        {
            const FaultPlan plan(fault, target);
            for (const Operation& op : ops) {
                const int result = op.run(client);
                run.outcomes.push_back({result, client.GetClientStatus()});
                run.callsAfter.push_back(plan.calls().size());
                run.disconnected = op.kind == Kind::Disconnect;
                if (failedTransfer(client.GetClientStatus())) break;
            }
            run.calls = plan.calls();
        }
        run.clientSocket = static_cast<int>(client.GetClientSocket());
        run.server = server->stop();
        run.reconnections = server->reconnections();
    }
    for (const int fd : openDescriptors())
        if (before.count(fd) == 0) run.leftOpen.push_back(fd);
    return run;
}

/* Checks that the descriptors left open are the connections the library
 * leaves open on purpose (the current one unless Disconnect closed it, and
 * one per reconnection), then closes them as the application would. */
void checkAndCloseLeftOpen(const SessionRun& run, const std::string& where) {
    const std::size_t expected = (run.disconnected ? 0 : 1) + static_cast<std::size_t>(run.reconnections);
    EXPECT_EQ(run.leftOpen.size(), expected) << where << ": descriptors left open";
    for (const int fd : run.leftOpen) {
        EXPECT_TRUE(isClientConnection(fd)) << where << ": descriptor " << fd << " is not a TCP connection";
        close(fd);
    }
    if (!run.disconnected && !run.leftOpen.empty()) {
        EXPECT_NE(std::find(run.leftOpen.begin(), run.leftOpen.end(), run.clientSocket), run.leftOpen.end())
            << where << ": the client's own connection was closed";
    }
}

/* The fault-free run: every operation gives its result with status 0 and
 * the server's script runs to its end. */
SessionRun baseline(const std::vector<Operation>& ops) {
    SessionRun run = runSession(ops, Fault::None, 0);
    EXPECT_EQ(run.server, "") << "fault-free session";
    EXPECT_EQ(run.outcomes.size(), ops.size()) << "fault-free session";
    for (std::size_t i = 0; i < run.outcomes.size() && i < ops.size(); ++i)
        EXPECT_EQ(run.outcomes[i], (Outcome{ops[i].result, 0})) << ops[i].name << ": " << describe(run.outcomes[i]);
    checkAndCloseLeftOpen(run, "fault-free session");
    return run;
}

/* Which operation made call `n` of the fault-free run, and its place in it. */
struct Place {
    std::size_t op;
    std::size_t offset;
    std::size_t callsInOp;
};

Place placeOf(const SessionRun& clean, std::size_t n) {
    std::size_t first = 0;
    for (std::size_t op = 0; op < clean.callsAfter.size(); ++op) {
        if (n < clean.callsAfter[op]) return {op, n - first, clean.callsAfter[op] - first};
        first = clean.callsAfter[op];
    }
    return {clean.callsAfter.size(), 0, 0};
}

bool isDiscarded(const Operation& op, const Place& place) {
    return place.offset >= op.discardedFrom && place.offset < op.discardedFrom + op.discardedCount;
}

/* What the operation gives when call `call` of it fails with 0 or -1. */
Outcome hardFaultOutcome(const Operation& op, const Place& place, const SocketCall& call) {
    const int code = call.isSend ? sendFailed : receiveFailed;
    switch (op.kind) {
    case Kind::Connect: return {sendFailed, code};
    case Kind::Disconnect: return {0, code};
    case Kind::Reader: return {code, code};
    case Kind::Command:
    case Kind::Reconnecting: break;
    }
    // The last two calls of a Send that ends with the integer reply are that
    // reply's request and answer.
    if (op.endsWithReply && place.offset + 2 >= place.callsInOp) return {op.beforeReply, code};
    return {code, code};
}

/* A run in which the faulted call need not end the session at once (a
 * receive that came short, or a failure an operation discards): it may run
 * to its end, or end at a later call whose own result explains the failure.
 * True when it ran to its end. */
bool checkLaterFailure(const SessionRun& run, std::size_t n, const std::string& where) {
    bool completed = true;
    for (std::size_t i = 0; i < run.outcomes.size(); ++i) {
        const int status = run.outcomes[i].status;
        if (!failedTransfer(status)) continue;
        completed = false;
        EXPECT_EQ(i + 1, run.outcomes.size()) << where << ": the session went on after a failure";
        if (run.callsAfter[i] == 0) {
            ADD_FAILURE() << where << ": a failure without any socket call";
            continue;
        }
        const std::size_t lastIndex = run.callsAfter[i] - 1;
        const SocketCall& last = run.calls[lastIndex];
        EXPECT_GT(lastIndex, n) << where << ": status " << status << " at the faulted call itself";
        if (status == sendFailed) {
            EXPECT_TRUE(last.isSend && last.result <= 0) << where << ": -1001 without a failed send";
        } else {
            EXPECT_TRUE(!last.isSend && (last.result <= 0 || last.firstByte != '+'))
                << where << ": -1002 without a failed or refused receive";
        }
    }
    checkAndCloseLeftOpen(run, where);
    return completed;
}

std::string runName(Fault fault, std::size_t n, const Operation& op, const SocketCall& call) {
    return "fault " + toString(fault) + " on call " + std::to_string(n) + " (" + (call.isSend ? "send" : "recv") +
           " of " + op.name + ")";
}

TEST(FaultSweep, SessionRunsAsWrittenWithoutFaults) {
    const std::vector<Operation> ops = session();
    const SessionRun clean = baseline(ops);
    for (const SocketCall& call : clean.calls) EXPECT_GT(call.result, 0);
    std::printf("fault-free session: %zu operations, %zu socket calls\n", ops.size(), clean.calls.size());
}

TEST(FaultSweep, FailedSendOrReceiveEndsTheOperationWithTheStatusOfItsStep) {
    const std::vector<Operation> ops = session();
    const SessionRun clean = baseline(ops);
    std::size_t runs = 0;
    std::size_t discarded = 0;
    for (const Fault fault : {Fault::Error, Fault::Zero}) {
        for (std::size_t n = 0; n < clean.calls.size(); ++n) {
            const Place place = placeOf(clean, n);
            ASSERT_LT(place.op, ops.size());
            const Operation& op = ops[place.op];
            const std::string where = runName(fault, n, op, clean.calls[n]);
            const SessionRun run = runSession(ops, fault, n);
            ++runs;
            if (isDiscarded(op, place)) {
                checkLaterFailure(run, n, where);
                ++discarded;
                continue;
            }
            // Every operation before the faulted one ran as without faults.
            ASSERT_EQ(run.outcomes.size(), place.op + 1) << where;
            for (std::size_t i = 0; i < place.op; ++i) EXPECT_EQ(run.outcomes[i], clean.outcomes[i]) << where;
            const Outcome expected = hardFaultOutcome(op, place, clean.calls[n]);
            EXPECT_EQ(run.outcomes.back(), expected)
                << where << ": got " << describe(run.outcomes.back()) << ", expected " << describe(expected);
            // Nothing is sent or received after the failure, except the
            // reconnection's introduction (name and answer).
            const bool reconnects = op.kind == Kind::Reconnecting && place.offset < 2;
            EXPECT_EQ(run.calls.size(), n + 1 + (reconnects ? 2 : 0)) << where << ": calls after the failure";
            EXPECT_EQ(run.reconnections, reconnects ? 1 : 0) << where;
            checkAndCloseLeftOpen(run, where);
        }
    }
    std::printf("failed send or receive: %zu runs over %zu calls (%zu in a transfer whose failure is discarded)\n",
                runs, clean.calls.size(), discarded);
}

TEST(FaultSweep, ShortSendIsASuccessAndNothingIsSentAgain) {
    const std::vector<Operation> ops = session();
    const SessionRun clean = baseline(ops);
    std::size_t runs = 0;
    for (std::size_t n = 0; n < clean.calls.size(); ++n) {
        if (!clean.calls[n].isSend || clean.calls[n].length < 2) continue;
        const std::string where = runName(Fault::Short, n, ops[placeOf(clean, n).op], clean.calls[n]);
        const SessionRun run = runSession(ops, Fault::Short, n);
        ++runs;
        // The server saw exactly the bytes of the fault-free session.
        EXPECT_EQ(run.server, "") << where;
        EXPECT_EQ(run.outcomes, clean.outcomes) << where;
        EXPECT_EQ(run.calls.size(), clean.calls.size()) << where;
        checkAndCloseLeftOpen(run, where);
    }
    std::printf("short send: %zu runs\n", runs);
}

TEST(FaultSweep, ShortReceiveCompletesOrFailsAtALaterStep) {
    const std::vector<Operation> ops = session();
    const SessionRun clean = baseline(ops);
    std::size_t runs = 0;
    std::size_t completed = 0;
    for (std::size_t n = 0; n < clean.calls.size(); ++n) {
        if (clean.calls[n].isSend || clean.calls[n].result < 2) continue;
        const std::string where = runName(Fault::Short, n, ops[placeOf(clean, n).op], clean.calls[n]);
        const SessionRun run = runSession(ops, Fault::Short, n);
        ++runs;
        if (checkLaterFailure(run, n, where)) ++completed;
    }
    std::printf("short receive: %zu runs, %zu ran to the end, %zu failed at a later call\n", runs, completed,
                runs - completed);
}

/* The one-call JTAG shift on a socketpair: 100 bits in three single frames,
 * and 16392 bits (2049 bytes) in chunks with the first buffer sent twice. */
struct OneCallShift {
    std::string name;
    int bitCount;
    int blockCount;
    std::string firstBuffer;
    Conversation script;
};

std::vector<OneCallShift> oneCallShifts() {
    auto padded = [](const std::string& bytes) {
        std::string result = bytes;
        result.resize(1024, '\0');
        return result;
    };
    auto tokens = [&](Wire& w, int bits) {
        for (const std::string& token : {std::string("44"), std::string("12"), std::string("0"), std::to_string(bits)})
            w.expect(padded(token)).reply(ack);
    };
    std::vector<OneCallShift> shifts;
    {
        const std::string data = patternBytes(13, 11);
        Wire w;
        tokens(w, 100);
        w.expect(padded(data)).reply(ack).expect(padded("")).reply(ack).expect(padded("")).reply(ack);
        shifts.push_back({"single frames", 100, 3, data, w.steps});
    }
    {
        const std::string data = patternBytes(2049, 13);
        Wire w;
        tokens(w, 16392);
        for (int slot = 0; slot < 2; ++slot)
            for (std::size_t at = 0; at < data.size(); at += 1024) w.expect(data.substr(at, 1024)).reply(ack);
        w.expect(padded("")).reply(ack);
        shifts.push_back({"chunks", 16392, 2, data, w.steps});
    }
    return shifts;
}

struct OneCallRun {
    int result = 0;
    std::vector<SocketCall> calls;
    std::string server;
    std::size_t leftOpen = 0;
};

OneCallRun runOneCallShift(const OneCallShift& shift, Fault fault, std::size_t target) {
    OneCallRun run;
    const std::set<int> before = openDescriptors();
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        ADD_FAILURE() << "socketpair failed";
        return run;
    }
    {
        const auto server = SessionServer::onSocket(ends[1], shift.script);
        const auto* first = reinterpret_cast<const unsigned char*>(shift.firstBuffer.data());
        const LByteBuffer firstBuffer(first, static_cast<int>(shift.firstBuffer.size()));
        const LByteBuffer other(first, 5);
        {
            const FaultPlan plan(fault, target);
            run.result = SendJTAGShiftData(ends[0], 0, shift.bitCount, shift.blockCount, firstBuffer, other, other);
            run.calls = plan.calls();
        }
        run.server = server->stop();
    }
    close(ends[0]);
    for (const int fd : openDescriptors())
        if (before.count(fd) == 0) ++run.leftOpen;
    return run;
}

TEST(FaultSweep, OneCallJtagShiftEndsWithTheStatusOfItsStep) {
    std::size_t runs = 0;
    for (const OneCallShift& shift : oneCallShifts()) {
        const OneCallRun clean = runOneCallShift(shift, Fault::None, 0);
        ASSERT_EQ(clean.result, 0) << shift.name;
        ASSERT_EQ(clean.server, "") << shift.name;
        for (std::size_t n = 0; n < clean.calls.size(); ++n) {
            const SocketCall& call = clean.calls[n];
            for (const Fault fault : {Fault::Error, Fault::Zero, Fault::Short}) {
                if (fault == Fault::Short && (call.isSend ? call.length < 2 : call.result < 2)) continue;
                const std::string where = shift.name + ": fault " + toString(fault) + " on call " + std::to_string(n) +
                                          (call.isSend ? " (send)" : " (recv)");
                const OneCallRun run = runOneCallShift(shift, fault, n);
                ++runs;
                EXPECT_EQ(run.leftOpen, 0U) << where << ": descriptors left open";
                if (fault != Fault::Short) {
                    EXPECT_EQ(run.result, call.isSend ? sendFailed : receiveFailed) << where;
                    EXPECT_EQ(run.calls.size(), n + 1) << where << ": calls after the failure";
                } else if (call.isSend) {
                    EXPECT_EQ(run.result, 0) << where;
                    EXPECT_EQ(run.server, "") << where << ": the server saw other bytes";
                } else if (run.result != 0) {
                    // A piece of an acknowledgement left behind: it may end
                    // the shift later, at a receive that failed or (for a
                    // chunk) did not begin with "+".
                    const SocketCall& last = run.calls.back();
                    EXPECT_GT(run.calls.size(), n + 1) << where;
                    EXPECT_EQ(run.result, last.isSend ? sendFailed : receiveFailed) << where;
                    EXPECT_TRUE(last.isSend ? last.result <= 0 : last.result <= 0 || last.firstByte != '+') << where;
                }
            }
        }
    }
    std::printf("one-call JTAG shift: %zu runs\n", runs);
}

}  // namespace
}  // namespace tetherhost::test

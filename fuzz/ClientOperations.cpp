// SPDX-License-Identifier: MIT
/* The operations of the client fuzz targets and the run of one input. */
#include "ClientOperations.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "Client.h"
#include "ClientUtils.h"
#include "LByteBuffer.h"
#include "ScratchFile.h"
#include "VaList.h"
#include "protocol/Commands.h"
#include "protocol/Frames.h"

namespace tetherhost::fuzz {

namespace {

namespace protocol = tetherhost::protocol;
using tetherhost::test::withVaList;

constexpr std::size_t maxOperations = 8;
constexpr int maxDataBits = 40960;
constexpr std::size_t maxText = 48;

const std::string& logPath() {
    static const ScratchFile log("client.log");
    return log.path;
}

/* A bit count: small, near the 1024-byte and one-call limits, up to a few
 * chunks, or an extreme whose byte count is 0 or negative. */
int bitCount(FuzzInput& input) {
    static constexpr std::array<int, 6> extremes = {INT_MIN, INT_MIN + 1, -9, -1, INT_MAX - 6, INT_MAX};
    switch (input.byte() % 5) {
    case 0: return static_cast<int>(input.byte()) - 16;
    case 1: return 8192 + static_cast<std::int8_t>(input.byte());
    case 2: return 16384 + static_cast<std::int8_t>(input.byte());
    case 3: return input.u16() % (maxDataBits + 1);
    default: return extremes[input.byte() % extremes.size()];
    }
}

/* Everything the operations of one input share. */
struct Session {
    Client& client;
    bool logging;
    std::deque<std::vector<unsigned char>> blocks;

    int socket() const { return static_cast<int>(client.GetClientSocket()); }

    /* A data block of `bits` bits (never a null pointer), filled with a
     * pattern; it lives until the input has run. */
    const char* block(int bits, std::uint8_t seed) {
        std::vector<unsigned char>& bytes =
            blocks.emplace_back(static_cast<std::size_t>(std::max(protocol::byteCountOf(bits), 0)) + 1);
        for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(seed + i * 7);
        return reinterpret_cast<const char*>(bytes.data());
    }
};

using Operation = std::function<void(Session&)>;

/* The argument lists of the transfers, taken from the input when the
 * operation is read: apply(session, invoke) calls invoke with them, in the
 * order the transfer's member takes them, so that one decoding serves Send
 * and a direct call of the member alike. */
struct GenericShift {
    int flags, bits, readBack;
    std::uint8_t seed;
    bool nullData;
    static GenericShift from(FuzzInput& in) {
        const int flags = in.integer();
        const int bits = bitCount(in);
        const std::uint8_t options = in.byte();
        return {flags, bits, options & 1, in.byte(), (options & 2) != 0};
    }
    template <typename Invoke>
    int apply(Session& s, const Invoke& invoke) const {
        return invoke(flags, bits, readBack, nullData ? nullptr : s.block(bits, seed));
    }
};

struct JtagShift {
    int flags, bits, withSecond, withThird;
    std::uint8_t seed, nulls;
    static JtagShift from(FuzzInput& in) {
        const int flags = in.integer();
        const int bits = bitCount(in);
        const std::uint8_t announce = in.byte();
        // Mostly 0 or 1, sometimes any value: only the lowest bit of
        // withSecond asks for read-back.
        const int second = (announce & 0x80) != 0 ? in.integer() : announce & 1;
        const int third = (announce & 0x40) != 0 ? in.integer() : (announce >> 1) & 1;
        return {flags, bits, second, third, in.byte(), in.byte()};
    }
    template <typename Invoke>
    int apply(Session& s, const Invoke& invoke) const {
        auto data = [&](int which) -> const char* {
            const bool isNull = (nulls & 0x80) != 0 && (nulls >> which & 1) != 0;
            return isNull ? nullptr : s.block(bits, static_cast<std::uint8_t>(seed + which));
        };
        const char* first = data(0);
        // The second and third blocks follow the first only when announced.
        const char* next = withSecond != 0 ? data(1) : withThird != 0 ? data(2) : nullptr;
        const char* last = withSecond != 0 && withThird != 0 ? data(2) : nullptr;
        return invoke(flags, bits, withSecond, withThird, first, next, last);
    }
};

struct PumpData {
    int bits, mode, readBack;
    std::uint8_t seed;
    static PumpData from(FuzzInput& in) {
        const int bits = bitCount(in);
        const int mode = in.integer();
        return {bits, mode, in.byte() & 1, in.byte()};
    }
    template <typename Invoke>
    int apply(Session& s, const Invoke& invoke) const {
        return invoke(s.block(bits, seed), bits, mode, readBack);
    }
};

/* One SSPI transfer (four elements) or one I2C transfer (five, with the
 * byte value second). */
struct BusTransfer {
    bool i2c;
    int first, byteValue, bits, last;
    std::uint8_t seed;
    bool nullData;
    static BusTransfer from(FuzzInput& in, bool i2c) {
        const int first = in.integer();
        const int byteValue = i2c ? in.integer() : 0;
        const int bits = bitCount(in);
        const int last = in.integer();
        const std::uint8_t seed = in.byte();
        return {i2c, first, byteValue, bits, last, seed, (seed & 0x80) != 0};
    }
    /* `writes`: the transfer sends its block, which may then not be null. */
    template <typename Invoke>
    int apply(Session& s, bool writes, const Invoke& invoke) const {
        const char* data = nullData && !writes ? nullptr : s.block(bits, seed);
        return i2c ? invoke(first, byteValue, bits, data, last) : invoke(first, bits, data, last);
    }
};

struct SharedApps {
    int count;
    std::array<std::string, 4> names;
    static SharedApps from(FuzzInput& in) {
        SharedApps apps{static_cast<int>(in.byte() % 6) - 1, {}};
        for (std::string& name : apps.names) name = in.byte() % 8 == 7 ? std::string(150, 'n') : in.text(maxText);
        return apps;
    }
    template <typename Invoke>
    int apply(Session&, const Invoke& invoke) const {
        return invoke(count, names[0].c_str(), names[1].c_str(), names[2].c_str(), names[3].c_str());
    }
};

/* A JTAG-interface sub-command and its arguments in the pattern of its
 * number. */
struct SubCommand {
    int number;
    std::array<int, 5> ints;
    std::array<std::string, 2> texts;
    JtagShift shift;
    static SubCommand from(FuzzInput& in) {
        SubCommand sub{static_cast<int>(in.byte()) - 4, {}, {}, {}};
        if (sub.number == protocol::sub::jtagShift) {
            sub.shift = JtagShift::from(in);
            return sub;
        }
        for (int& value : sub.ints) value = in.integer();
        for (std::string& text : sub.texts) text = in.text(maxText);
        return sub;
    }
    template <typename Invoke>
    int apply(Session& s, const Invoke& invoke) const {
        using protocol::SubPattern;
        const char* t0 = texts[0].c_str();
        const char* t1 = texts[1].c_str();
        switch (protocol::subCommand(number).pattern) {
        case SubPattern::Ints: return invoke(number, ints[0], ints[1], ints[2], ints[3], ints[4]);
        case SubPattern::Texts: return invoke(number, t0, t1);
        case SubPattern::IntTextInt: return invoke(number, ints[0], t0, ints[1]);
        case SubPattern::IntThenEmptyText:
        case SubPattern::FractionStrict:
        case SubPattern::FractionFixed: return invoke(number, ints[0]);
        case SubPattern::JtagShift:
            return shift.apply(s, [&](auto... shiftArgs) { return invoke(number, shiftArgs...); });
        case SubPattern::Unknown:
        case SubPattern::NoArgs: break;
        }
        return invoke(number);
    }
};

/* Texts and ints for the argument senders, command 4 and the plain
 * commands. */
struct PlainArgs {
    std::array<int, 11> ints;
    std::array<std::string, 4> texts;
    std::uint8_t nullTexts;
    static PlainArgs from(FuzzInput& in) {
        PlainArgs args{};
        for (int& value : args.ints) value = in.integer();
        for (std::string& text : args.texts) text = in.text(maxText);
        args.nullTexts = in.byte();
        return args;
    }
    /* Text `i`; a null pointer where the senders accept one and the input
     * asks for it. */
    const char* text(std::size_t i, bool nullAllowed) const {
        return nullAllowed && (nullTexts >> i & 1) != 0 ? nullptr : texts[i].c_str();
    }
};

/* Send(command, ...) with the arguments its marshalling takes. */
int sendCommand(Session& s, int command, FuzzInput& in) {
    using protocol::Marshal;
    Client& client = s.client;
    auto send = [&](auto... args) { return client.Send(command, args...); };
    const protocol::Command entry = protocol::shapeOf(command);
    switch (entry.marshal) {
    case Marshal::TextsLenient:
    case Marshal::TextsStrict: {
        const PlainArgs a = PlainArgs::from(in);
        return send(a.text(0, true), a.text(1, true));
    }
    case Marshal::Ints: {
        const PlainArgs a = PlainArgs::from(in);
        return send(a.ints[0], a.ints[1]);
    }
    case Marshal::HeaderTrailer: {
        const PlainArgs a = PlainArgs::from(in);
        return send(a.ints[0], a.text(0, true), a.ints[1], a.text(1, true), a.ints[2], a.text(2, true), a.ints[3],
                    a.text(3, true));
    }
    case Marshal::OpenSession: {
        const PlainArgs a = PlainArgs::from(in);
        const int given = static_cast<int>(static_cast<unsigned>(a.ints[10]) % 11);
        return send(a.text(0, false), a.text(1, false), given, a.ints[0], a.ints[1], a.ints[2], a.ints[3], a.ints[4],
                    a.ints[5], a.ints[6], a.ints[7], a.ints[8], a.ints[9]);
    }
    case Marshal::GenericShift: return GenericShift::from(in).apply(s, send);
    case Marshal::SharedApps: return SharedApps::from(in).apply(s, send);
    case Marshal::PumpData: return PumpData::from(in).apply(s, send);
    case Marshal::JtagInterface: return SubCommand::from(in).apply(s, send);
    case Marshal::I2C:
    case Marshal::SSPI: {
        const bool i2c = entry.marshal == Marshal::I2C;
        const BusTransfer last = BusTransfer::from(in, i2c);
        if (!entry.readOnlyFirst) return last.apply(s, true, send);
        // Commands 47 and 51: a read-only transfer, then the written one,
        // all on one argument list.
        const BusTransfer first = BusTransfer::from(in, i2c);
        return first.apply(s, false, [&](auto... firstArgs) {
            return last.apply(s, true, [&](auto... lastArgs) { return send(firstArgs..., lastArgs...); });
        });
    }
    case Marshal::Nothing:
    case Marshal::Unknown:
    case Marshal::CommandLock:
    case Marshal::ReleaseCommandLock:
    case Marshal::ReleaseSessionLock:
    case Marshal::Farewell: break;
    }
    return send();
}

/* A member that takes an argument list, called directly on the client's
 * socket with the arguments that `invoke` is given. */
template <typename Member>
auto direct(const Member& member) {
    return [member](auto... args) { return withVaList([&](va_list list) { return member(list); }, args...); };
}

int directTransfer(Session& s, FuzzInput& in) {
    Client& client = s.client;
    int socket = s.socket();
    switch (in.byte() % 7) {
    case 0: return GenericShift::from(in).apply(s, direct([&](va_list l) { return client.sendShiftargs(socket, l); }));
    case 1: return JtagShift::from(in).apply(s, direct([&](va_list l) { return client.sendJTAGShiftargs(socket, l); }));
    case 2: return PumpData::from(in).apply(s, direct([&](va_list l) { return client.sendPumpData(socket, l); }));
    case 3:
    case 4: {
        const bool i2c = in.byte() % 2 == 0;
        const std::uint8_t shape = in.byte();
        const int withWrite = shape & 1;
        const int withReadBack = shape >> 1 & 1;
        const BusTransfer transfer = BusTransfer::from(in, i2c);
        return transfer.apply(s, withWrite != 0, direct([&](va_list l) {
                                  return i2c ? client.sendI2CShiftargs(socket, withWrite, withReadBack, l)
                                             : client.sendSSPIShiftargs(socket, withWrite, withReadBack, l);
                              }));
    }
    case 5: return SharedApps::from(in).apply(s, direct([&](va_list l) { return client.sendSharedApps(socket, l); }));
    default:
        return SubCommand::from(in).apply(s, direct([&](va_list l) { return client.JTAGInterfaceFunc(socket, l); }));
    }
}

int argumentSender(Session& s, FuzzInput& in) {
    // The stream is only tested against null (each line reopens the file by
    // name), so any open stream marks that logging is on.
    ClientUtils utils(0, s.logging ? stdout : nullptr, "fuzzclient", s.logging ? logPath() : std::string());
    const int socket = s.socket();
    const std::uint8_t kind = in.byte();
    const int count = static_cast<int>(kind >> 2) % 5 - 1;
    const PlainArgs a = PlainArgs::from(in);
    auto texts = [&](auto member) {
        return withVaList([&](va_list l) { return (utils.*member)(socket, count, l); }, a.text(0, true),
                          a.text(1, true), a.text(2, true), a.text(3, true));
    };
    switch (kind % 4) {
    case 0: return texts(&ClientUtils::sendstrargs);
    case 1: return texts(&ClientUtils::sendcharstarargs);
    case 2:
        return withVaList([&](va_list l) { return utils.sendintargs(socket, count, l); }, a.ints[0], a.ints[1],
                          a.ints[2], a.ints[3]);
    default:
        return withVaList([&](va_list l) { return utils.sendSetHeaderTrailerargs(socket, l); }, a.ints[0],
                          a.text(0, true), a.ints[1], a.text(1, true), a.ints[2], a.text(2, true), a.ints[3],
                          a.text(3, true));
    }
}

/* The commands Send is driven with: all of the table, the farewell, and
 * unknown numbers below, between and above. */
int commandNumber(FuzzInput& in) {
    static constexpr std::array<int, 5> others = {protocol::command::farewell, -7, 57, 100, 8888};
    const std::uint8_t pick = in.byte();
    return pick < 57 ? pick : others[pick % others.size()];
}

int readTdo(Session& s, FuzzInput& in) {
    const int bits = static_cast<int>(in.u16() % (maxDataBits + 1)) - 8;
    const std::uint8_t form = in.byte();
    std::vector<unsigned char> destination(static_cast<std::size_t>(std::max(protocol::byteCountOf(bits), 0)) + 1);
    if (form % 2 == 0) {
        unsigned char* dest = form % 4 == 2 ? nullptr : destination.data();
        return s.client.GetTDO(dest, bits);
    }
    return s.client.GetTDO(form % 4 == 3 ? nullptr : reinterpret_cast<char*>(destination.data()), bits);
}

int readReply(Session& s, std::uint8_t form) {
    switch (form % 4) {
    case 0: {
        char* text = nullptr;
        return s.client.Read(text);
    }
    case 1: return s.client.Read()[0];
    case 2: {
        int value = 0;
        return s.client.Read(value);
    }
    default: {
        std::vector<std::string> fields;
        return s.client.Read(fields);
    }
    }
}

int oneCallShift(Session& s, FuzzInput& in) {
    const int flags = in.integer();
    const int bits = in.byte() % 4 == 3 ? in.integer() : bitCount(in);
    const int blockCount = static_cast<int>(in.byte() % 5) - 1;
    // The buffers' sizes are the input's choice, not the bit count's: the
    // function must stay within what they hold.
    std::array<LByteBuffer, 3> buffers;
    for (LByteBuffer& buffer : buffers) {
        std::vector<unsigned char> bytes(in.u16() % 5000);
        for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(i);
        buffer = LByteBuffer(bytes);
    }
    int socket = s.socket();
    return SendJTAGShiftData(socket, flags, bits, blockCount, buffers[0], buffers[1], buffers[2]);
}

Operation operation(FuzzInput& in) {
    // Each operation's arguments are taken from the input now, while the
    // operations are read; their records follow all of them.
    const std::uint8_t kind = in.byte();
    const std::string arguments = in.bytes(in.byte());
    return [kind, arguments](Session& s) {
        FuzzInput args(reinterpret_cast<const std::uint8_t*>(arguments.data()), arguments.size());
        switch (kind % 10) {
        case 0: s.client.Connect(nullptr, s.logging ? logPath().c_str() : nullptr, nullptr); break;
        case 1:
        case 2: sendCommand(s, commandNumber(args), args); break;
        case 3: readReply(s, args.byte()); break;
        case 4: readTdo(s, args); break;
        case 5: s.client.Disconnect(); break;
        case 6: directTransfer(s, args); break;
        case 7: argumentSender(s, args); break;
        case 8: {
            ClientUtils utils(0, nullptr, "fuzzclient", "");
            int socket = s.socket();
            int lockFlag = args.byte() % 2;
            utils.DetermineMutex(socket, lockFlag);
            break;
        }
        default: oneCallShift(s, args); break;
        }
    };
}

}  // namespace

void runClientSession(const std::uint8_t* data, std::size_t size, HostileServer::Transport transport,
                      Pieces (*readPieces)(FuzzInput&)) {
    FuzzInput in(data, size);
    const bool logging = (in.byte() & 1) != 0;
    std::vector<Operation> operations(1 + in.byte() % maxOperations);
    for (Operation& op : operations) op = operation(in);
    HostileServer server(readPieces(in), transport);
    activeServer = &server;

    static char name[] = "fuzzclient";
    Client client(name);
    Session session{client, logging, {}};
    if (logging) client.Set_Log_File(logPath().c_str());
    client.Connect(nullptr, nullptr, nullptr);
    for (const Operation& op : operations) {
        server.drain();
        op(session);
    }
    activeServer = nullptr;
}

}  // namespace tetherhost::fuzz

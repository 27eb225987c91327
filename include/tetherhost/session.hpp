// SPDX-License-Identifier: MIT
/* <tetherhost/session.hpp>: the typed session layer over the exported Client.
 *
 * - Session owns one connection from start to end: it connects, opens the
 *   session (command 4), takes the command lock (33), and in its destructor
 *   gives both locks back (34, 35) and disconnects. It moves and does not
 *   copy.
 * - Every command is a typed call, checked at compile time against the
 *   protocol's own table (<tetherhost/commands.hpp>, generated from the
 *   tables the library's dispatcher and the simulator use): send<N>(...) for
 *   a command by number, jtag<SUB>(...) for a JTAG-interface sub-command, and
 *   named calls for the scans, SSPI, I2C, pump data and the readers. A wrong
 *   argument count or type does not compile.
 * - Failures throw tetherhost::Error: the library's status code or the
 *   server's negative reply, its text from the status tables, and the last
 *   message the library posted when the session keeps a log.
 * - Connect forks to start the server when none answers; when the server
 *   program cannot be executed, the forked child comes back from Connect as
 *   a copy of the host. Session ends that copy at once with _exit(127)
 *   (forkedCopyExitStatus), so it never runs the host's code.
 *
 * Header only, C++17, no Qt; it uses nothing but the exported Client. One
 * Session must not be used from two threads at once. */
#ifndef TETHERHOST_SESSION_HPP
#define TETHERHOST_SESSION_HPP

#include <nl_types.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "Client.h"
#include <tetherhost/commands.hpp>

namespace tetherhost {

/** Bytes as they travel: scan data, bus data, pump data. */
using Bytes = std::vector<std::uint8_t>;

/** The exit status of the forked copy of the host that a failed server start
 * leaves behind (see the file comment): what a shell reports for a program
 * that could not be executed. */
inline constexpr int forkedCopyExitStatus = 127;

/** The meaning of any status code of the library (0 is "success"). */
inline const char* describe(int status) noexcept {
    for (const vocabulary::Code& code : vocabulary::statusCodes)
        if (code.number == status) return code.meaning;
    return "not a status code of the tetherhost library";
}

/** The meaning of a negative integer reply of the server. */
inline const char* describeReply(int reply) noexcept {
    for (const vocabulary::Code& code : vocabulary::serverReplies)
        if (code.number == reply) return code.meaning;
    return "a negative reply the server gives no meaning to";
}

/** A failed call: a status code of the library, or a negative integer reply
 * of the server (fromServer()). */
class Error : public std::runtime_error {
public:
    Error(int status, bool fromServer, std::string operation, std::string message)
        : std::runtime_error(compose(status, fromServer, operation, message)),
          code(status),
          server(fromServer),
          meaning(fromServer ? describeReply(status) : describe(status)),
          step(std::move(operation)),
          lastMessage(std::move(message)) {}

    /** The status code, or the server's reply when fromServer(). */
    int status() const noexcept { return code; }
    /** True when the server answered the command with a negative reply; false
     * when the library reported a status code. */
    bool fromServer() const noexcept { return server; }
    /** The code's meaning from the status table (or the server's replies). */
    const std::string& text() const noexcept { return meaning; }
    /** What the session was doing, e.g. "command 38". */
    const std::string& operation() const noexcept { return step; }
    /** The identifier of the last message the library posted ("1009"), read
     * back from the session's log; empty when the session keeps no log. */
    const std::string& message() const noexcept { return lastMessage; }

private:
    static std::string compose(int status, bool fromServer, const std::string& operation, const std::string& message) {
        std::string what = operation + ": " + (fromServer ? "the server replied " : "status ") +
                           std::to_string(status) + ": " + (fromServer ? describeReply(status) : describe(status));
        if (!message.empty()) what += " (last message " + message + ")";
        return what;
    }

    int code;
    bool server;
    std::string meaning;
    std::string step;
    std::string lastMessage;
};

/** Arguments of a runtime-typed call (Session::send(int, ...)) that do not fit
 * the command's pattern: a wrong count or kind. */
class ArgumentError : public std::invalid_argument {
public:
    using std::invalid_argument::invalid_argument;
};

class ByteView;

/** A call on a Session that is closed or was moved from. */
class SessionClosed : public std::logic_error {
public:
    SessionClosed() : std::logic_error("the session is closed") {}
};

namespace detail {

template <class T>
inline constexpr bool isCharacter =
    std::is_same_v<T, char> || std::is_same_v<T, wchar_t> || std::is_same_v<T, char16_t> || std::is_same_v<T, char32_t>
#if defined(__cpp_char8_t)
    || std::is_same_v<T, char8_t>
#endif
    ;

/* An integer type all of whose values an int holds; bool and the character
 * types are not numbers here. */
template <class T, class U = std::remove_cv_t<std::remove_reference_t<T>>>
inline constexpr bool fitsInt = std::is_integral_v<U> && !std::is_same_v<U, bool> && !isCharacter<U> &&
                                (std::is_signed_v<U> ? sizeof(U) <= sizeof(int) : sizeof(U) < sizeof(int));

template <class T>
inline constexpr bool isByte = std::is_same_v<T, unsigned char> || std::is_same_v<T, signed char> ||
                               std::is_same_v<T, char> || std::is_same_v<T, std::byte>;

template <class C, class = void>
struct ByteRange : std::false_type {};
template <class C>
struct ByteRange<
    C, std::void_t<decltype(std::data(std::declval<const C&>())), decltype(std::size(std::declval<const C&>()))>>
    : std::bool_constant<
          isByte<std::remove_cv_t<std::remove_pointer_t<decltype(std::data(std::declval<const C&>()))>>>> {};

/* Contiguous ranges of bytes with a size: vectors, arrays, strings. A raw
 * pointer has no size, and a char array is a string literal with its NUL. */
template <class T, class U = std::remove_cv_t<std::remove_reference_t<T>>>
inline constexpr bool isByteRange =
    ByteRange<U>::value && !std::is_pointer_v<U> && !std::is_same_v<U, ByteView> &&
    !(std::is_array_v<U> && std::is_same_v<std::remove_cv_t<std::remove_extent_t<U>>, char>);

}  // namespace detail

/** An int argument: any integer type all of whose values an int holds
 * (int, short, std::int8_t, std::uint16_t, ...). A long, an unsigned int, a
 * double, a bool or a character does not convert. */
class Int {
public:
    template <class T, std::enable_if_t<detail::fitsInt<T>, int> = 0>
    constexpr Int(T number) noexcept : value(static_cast<int>(number)) {}

    int value;
};

/** A text argument: a NUL-terminated text (const char*) or a std::string. A
 * std::string_view is not NUL-terminated and does not convert. */
class Text {
public:
    Text(const char* text) : pointer(text) {
        if (text == nullptr) throw std::invalid_argument("a text argument is a null pointer");
        check(std::strlen(text));
    }
    Text(const std::string& text) : pointer(text.c_str()) {
        if (text.find('\0') != std::string::npos)
            throw std::invalid_argument("a text argument holds a NUL byte, which would end it early");
        check(text.size());
    }
    Text(std::string_view) = delete;
    Text(std::nullptr_t) = delete;

    const char* c_str() const noexcept { return pointer; }

private:
    static void check(std::size_t length) {
        if (length > vocabulary::maxTokenLength)
            throw std::length_error("a text argument of " + std::to_string(length) + " bytes: at most " +
                                    std::to_string(vocabulary::maxTokenLength) + " fit in a frame");
    }
    const char* pointer;
};

/** A data argument: a contiguous range of bytes and its size, from a
 * std::vector, std::array, std::string or an array of unsigned char, or an
 * explicit (pointer, size) pair. The layer checks every block against the
 * bit count it travels with, so the library never reads past its end. */
class ByteView {
public:
    constexpr ByteView() noexcept = default;
    ByteView(const void* data, std::size_t size) noexcept
        : start(static_cast<const std::uint8_t*>(data)), length(size) {}
    template <class Range, std::enable_if_t<detail::isByteRange<Range>, int> = 0>
    ByteView(const Range& range) noexcept
        : start(reinterpret_cast<const std::uint8_t*>(std::data(range))), length(std::size(range)) {}

    /** The bytes; never null, so that an empty block is not taken for a
     * missing one. */
    const std::uint8_t* data() const noexcept {
        static const std::uint8_t none = 0;
        return start != nullptr ? start : &none;
    }
    std::size_t size() const noexcept { return length; }

private:
    const std::uint8_t* start = nullptr;
    std::size_t length = 0;
};

/** A compared scan: its TDO and how many bits differed from the expected
 * value under the mask, as the server counted them. */
struct Checked {
    Bytes tdo;
    int mismatchedBits = 0;
    bool matched() const noexcept { return mismatchedBits == 0; }
};

/** One device of the JTAG chain, as the server describes it (sub-command 7),
 * from the cable's TDI to its TDO. */
struct Device {
    std::string name;
    int irLength = 0;
    std::optional<std::uint32_t> idcode;  // none for a device without an IDCODE register
};

/** How a Session opens. */
struct SessionOptions {
    /** Command 4's two texts: the application that opens the session (empty:
     * the session's name) and its version. */
    std::string application;
    std::string version = "1.0";
    /** Replace the first of command 4's ten options (at most ten). */
    std::vector<int> sessionOptions;
    /** The folder from which Connect starts the server when none answers;
     * empty: the folder of the running program. */
    std::string serverDirectory;
    /** A log file for the library's messages, started empty; Error::message()
     * then names the last message posted. Empty: no log. */
    std::string log;
    /** The library's debug output on standard error. */
    bool debug = false;
};

/** A runtime-typed argument, for Session::send(int, ...) and jtag(int, ...). */
using Argument = std::variant<int, std::string, Bytes>;

namespace detail {

/* What one argument of a pattern is. */
enum class Kind : unsigned char { Int, Text, Data };

/* The arguments a command or sub-command takes, in order, derived from its
 * row of the vocabulary. A data block names the argument that holds its bit
 * count. */
struct Plan {
    static constexpr int capacity = 10;
    Kind kinds[capacity]{};
    int bitsAt[capacity]{};
    int size = 0;
    bool textList = false;      // command 41: any number of texts; the layer sends their count
    bool sessionOwned = false;  // the locks and the farewell belong to Session
    bool byInterface = false;   // command 44: through jtag<SUB>
    bool byScan = false;        // sub-command 12: through scanIr / scanDr
    vocabulary::Marshal marshal = vocabulary::Marshal::Nothing;
    vocabulary::SubPattern pattern = vocabulary::SubPattern::NoArgs;
    int transfers = 0;  // I2C and SSPI: one, or two on one argument list

    constexpr void add(Kind kind, int bits = -1) {
        kinds[size] = kind;
        bitsAt[size] = bits;
        ++size;
    }
};

constexpr Plan planOf(vocabulary::Command shape) {
    using vocabulary::Marshal;
    Plan plan;
    plan.marshal = shape.marshal;
    switch (shape.marshal) {
    case Marshal::Nothing:
    case Marshal::Unknown: break;
    case Marshal::TextsLenient:
    case Marshal::TextsStrict:
        for (int i = 0; i < shape.count; ++i) plan.add(Kind::Text);
        break;
    case Marshal::Ints:
        for (int i = 0; i < shape.count; ++i) plan.add(Kind::Int);
        break;
    case Marshal::HeaderTrailer:
        for (int i = 0; i < shape.count; ++i) plan.add(i % 2 == 0 ? Kind::Int : Kind::Text);
        break;
    case Marshal::OpenSession:
    case Marshal::CommandLock:
    case Marshal::ReleaseCommandLock:
    case Marshal::ReleaseSessionLock:
    case Marshal::Farewell: plan.sessionOwned = true; break;
    case Marshal::GenericShift:
        // flags, bitCount, withReadBack, data
        plan.add(Kind::Int);
        plan.add(Kind::Int);
        plan.add(Kind::Int);
        plan.add(Kind::Data, 1);
        break;
    case Marshal::SharedApps: plan.textList = true; break;
    case Marshal::PumpData:
        // data, bitCount, mode, withReadBack
        plan.add(Kind::Data, 1);
        plan.add(Kind::Int);
        plan.add(Kind::Int);
        plan.add(Kind::Int);
        break;
    case Marshal::JtagInterface: plan.byInterface = true; break;
    case Marshal::I2C:
    case Marshal::SSPI:
        plan.transfers = shape.readOnlyFirst ? 2 : 1;
        for (int transfer = 0; transfer < plan.transfers; ++transfer) {
            const int base = plan.size;
            if (shape.marshal == Marshal::I2C) {
                // first value, byte value, bitCount, data, last value
                plan.add(Kind::Int);
                plan.add(Kind::Int);
                plan.add(Kind::Int);
                plan.add(Kind::Data, base + 2);
            } else {
                // first value, bitCount, data, last value
                plan.add(Kind::Int);
                plan.add(Kind::Int);
                plan.add(Kind::Data, base + 1);
            }
            plan.add(Kind::Int);
        }
        break;
    }
    return plan;
}

constexpr Plan planOf(vocabulary::SubCommand entry) {
    using vocabulary::SubPattern;
    Plan plan;
    plan.marshal = vocabulary::Marshal::JtagInterface;
    plan.pattern = entry.pattern;
    switch (entry.pattern) {
    case SubPattern::Unknown:
    case SubPattern::NoArgs: break;
    case SubPattern::Ints:
        for (int i = 0; i < entry.count; ++i) plan.add(Kind::Int);
        break;
    case SubPattern::Texts:
        for (int i = 0; i < entry.count; ++i) plan.add(Kind::Text);
        break;
    case SubPattern::IntTextInt:
        plan.add(Kind::Int);
        plan.add(Kind::Text);
        plan.add(Kind::Int);
        break;
    case SubPattern::IntThenEmptyText:
    case SubPattern::FractionStrict:
    case SubPattern::FractionFixed: plan.add(Kind::Int); break;
    case SubPattern::JtagShift: plan.byScan = true; break;
    }
    return plan;
}

template <int Number>
struct CommandPlan {
    static constexpr Plan plan = planOf(vocabulary::shapeOf(Number));
};

template <int Number>
struct SubPlan {
    static constexpr Plan plan = planOf(vocabulary::subCommand(Number));
};

template <class T>
inline constexpr bool isText = std::is_same_v<std::decay_t<T>, const char*> || std::is_same_v<std::decay_t<T>, char*> ||
                               std::is_same_v<std::remove_cv_t<std::remove_reference_t<T>>, std::string> ||
                               std::is_same_v<std::remove_cv_t<std::remove_reference_t<T>>, Text>;

template <class T>
inline constexpr bool isData = isByteRange<T> || std::is_same_v<std::remove_cv_t<std::remove_reference_t<T>>, ByteView>;

template <class T>
inline constexpr bool isNumber = fitsInt<T> || std::is_same_v<std::remove_cv_t<std::remove_reference_t<T>>, Int>;

/* One argument's check, a type of its own so that the compiler's message
 * names the command, the argument's position and its type. */
template <int Command, int SubCommand, std::size_t Position, Kind Wanted, class Given>
struct ArgumentCheck {
    static_assert(Wanted != Kind::Int || isNumber<Given>,
                  "this argument is an int: pass an int, or an integer type all of whose values an int holds "
                  "(not a long, an unsigned int, a floating-point number, a bool, a character or a text)");
    static_assert(Wanted != Kind::Text || isText<Given>,
                  "this argument is a text: pass a const char* or a std::string");
    static_assert(Wanted != Kind::Data || isData<Given>,
                  "this argument is a data block: pass a std::vector<std::uint8_t>, std::array, std::string or "
                  "tetherhost::ByteView (a pointer alone has no size)");
    static constexpr bool value = true;
};

template <int Command, int SubCommand, class Planned, class... Args, std::size_t... Positions>
constexpr bool checkArguments(std::index_sequence<Positions...>) {
    return (ArgumentCheck<Command, SubCommand, Positions, Planned::plan.kinds[Positions], Args>::value && ... && true);
}

/* One argument as it goes to the library. */
struct Slot {
    Kind kind = Kind::Int;
    int number = 0;
    const char* text = nullptr;
    ByteView data;
};

template <class T>
Slot slotOf(const T& given) {
    Slot slot;
    if constexpr (std::is_same_v<std::remove_cv_t<T>, Int>) {
        slot.number = given.value;
    } else if constexpr (fitsInt<T>) {
        slot.number = static_cast<int>(given);
    } else if constexpr (isText<T>) {
        slot.kind = Kind::Text;
        slot.text = Text(given).c_str();
    } else if constexpr (isData<T>) {
        slot.kind = Kind::Data;
        slot.data = ByteView(given);
    }
    // Any other type has failed its ArgumentCheck already.
    return slot;
}

inline Slot slotOf(const Argument& given) {
    Slot slot;
    if (const int* number = std::get_if<int>(&given)) {
        slot.number = *number;
    } else if (const std::string* text = std::get_if<std::string>(&given)) {
        slot.kind = Kind::Text;
        slot.text = Text(*text).c_str();
    } else {
        slot.kind = Kind::Data;
        slot.data = ByteView(std::get<Bytes>(given));
    }
    return slot;
}

/* Bytes a block of `bits` bits takes; none for 0 or fewer bits. */
constexpr std::size_t byteCountOf(int bits) noexcept { return bits > 0 ? (static_cast<std::size_t>(bits) + 7) / 8 : 0; }

inline const char* kindName(Kind kind) {
    switch (kind) {
    case Kind::Int: return "an int";
    case Kind::Text: return "a text";
    case Kind::Data: return "data";
    }
    return "";
}

/* What a command's arguments must be, for the runtime-typed calls. */
inline std::string describePlan(const Plan& plan) {
    if (plan.textList) return "texts, any number";
    if (plan.size == 0) return "no arguments";
    std::string text;
    for (int i = 0; i < plan.size; ++i) text += std::string(i == 0 ? "" : ", ") + kindName(plan.kinds[i]);
    return text;
}

/* Every data block must hold the bytes its bit count asks for: the library
 * reads that many. The shared applications must fit command 41's block. */
inline void checkSlots(const Plan& plan, const Slot* slots, int count) {
    for (int i = 0; i < count && !plan.textList; ++i) {
        if (plan.kinds[i] != Kind::Data) continue;
        const std::size_t needed = byteCountOf(slots[plan.bitsAt[i]].number);
        if (slots[i].data.size() < needed)
            throw std::length_error("argument " + std::to_string(i + 1) + " holds " +
                                    std::to_string(slots[i].data.size()) + " bytes, but its bit count " +
                                    std::to_string(slots[plan.bitsAt[i]].number) + " takes " + std::to_string(needed));
    }
    if (!plan.textList) return;
    std::size_t joined = 0;
    for (int i = 0; i < count; ++i) {
        const std::size_t length = std::strlen(slots[i].text);
        if (length > vocabulary::sharedAppNameLimit)
            throw std::length_error("a shared application name of " + std::to_string(length) + " characters: at most " +
                                    std::to_string(vocabulary::sharedAppNameLimit));
        joined += length + 1;
    }
    if (joined > vocabulary::maxTokenLength)
        throw std::length_error("the shared application names take " + std::to_string(joined) +
                                " bytes with their separators: at most " + std::to_string(vocabulary::maxTokenLength) +
                                " fit in command 41's block");
}

inline std::string subName(int sub) { return "command 44, sub-command " + std::to_string(sub); }
inline std::string commandName(int command) { return "command " + std::to_string(command); }

/* The last line of the log file at `path`; empty when there is none. */
inline std::string lastLine(const std::string& path) {
    std::ifstream in(path);
    std::string line;
    std::string last;
    while (std::getline(in, line))
        if (!line.empty()) last = line;
    return last;
}

/* True when `line` is `pattern` with every "$$s" standing for some text and
 * every "$$d" for a decimal integer; `literal` counts the characters the
 * pattern fixes, so that the most specific of several matches wins. */
inline bool matchesTemplate(std::string_view line, std::string_view pattern, std::size_t& literal) {
    if (pattern.empty()) return line.empty();
    if (pattern.substr(0, 3) == "$$s") {
        for (std::size_t taken = 0; taken <= line.size(); ++taken)
            if (matchesTemplate(line.substr(taken), pattern.substr(3), literal)) return true;
        return false;
    }
    if (pattern.substr(0, 3) == "$$d") {
        std::size_t digits = !line.empty() && line[0] == '-' ? 1 : 0;
        const std::size_t first = digits;
        while (digits < line.size() && line[digits] >= '0' && line[digits] <= '9') ++digits;
        for (std::size_t end = digits; end > first; --end)
            if (matchesTemplate(line.substr(end), pattern.substr(3), literal)) return true;
        return false;
    }
    if (line.empty() || line[0] != pattern[0]) return false;
    if (!matchesTemplate(line.substr(1), pattern.substr(1), literal)) return false;
    ++literal;
    return true;
}

/* The identifier of the message a log line was made from. The library takes
 * each template from the catalogue that NLSPATH finds (module
 * "tetherhostclient", set 1), or its built-in text; so does this. */
inline std::string recogniseMessage(const std::string& line) {
    if (line.empty()) return {};
    const nl_catd catalogue = catopen("tetherhostclient", NL_CAT_LOCALE);
    const bool opened =
        catalogue != reinterpret_cast<nl_catd>(-1);  // NOLINT(performance-no-int-to-ptr): catopen's failure value
    std::string best;
    std::size_t bestLiteral = 0;
    for (const vocabulary::MessageTemplate& message : vocabulary::builtinMessages) {
        const char* text = opened ? catgets(catalogue, 1, message.number, message.text) : message.text;
        std::size_t literal = 0;
        if (matchesTemplate(line, text, literal) && (best.empty() || literal > bestLiteral)) {
            best = std::to_string(message.number);
            bestLiteral = literal;
        }
    }
    if (opened) catclose(catalogue);
    return best;
}

/* Connect, and commands 1 and 4 when their command frame fails (they
 * reconnect), may fork to start the server; when its program cannot be
 * executed the child returns from the library as a copy of the host. Called
 * after each of them with the pid from before: the copy ends here, before
 * any of the host's code runs, without atexit handlers, destructors or a
 * flush of stdio buffers that are the host's (hence _exit). */
inline void leaveIfForkedCopy(pid_t caller) noexcept {
    if (::getpid() != caller) ::_exit(forkedCopyExitStatus);
}

}  // namespace detail

/** One connection to the tetherhost server with both locks held, from
 * construction to destruction (or close()). */
class Session {
public:
    /** Connects (the library starts the server when none answers), opens the
     * session and takes the command lock. Throws Error when any of it fails,
     * having given back what it took; std::invalid_argument or
     * std::length_error for a name or options the library cannot send. */
    explicit Session(const std::string& name, const SessionOptions& options = SessionOptions())
        : owned(makeClient(name)), logPath(options.log) {
        if (options.sessionOptions.size() > sessionOptionCount)
            throw std::length_error("at most " + std::to_string(sessionOptionCount) + " session options");
        const Text application(options.application.empty() ? name : options.application);
        const Text version(options.version);
        if (options.debug) owned->Set_Debug_On();
        if (!logPath.empty()) {
            const int opened = owned->Set_Log_File(logPath.c_str());
            if (opened != 0) throw Error(opened, false, "opening the log file " + logPath, {});
        }

        char connectText[] = "";
        const pid_t caller = ::getpid();
        const int connected = owned->Connect(
            connectText, nullptr, options.serverDirectory.empty() ? nullptr : options.serverDirectory.c_str());
        detail::leaveIfForkedCopy(caller);
        // A failed Connect leaves no conversation to end, only a descriptor.
        if (connected != 0) giveUp(connected, "connecting to the server", true);

        int given[sessionOptionCount] = {};
        std::copy(options.sessionOptions.begin(), options.sessionOptions.end(), given);
        const int opened = owned->Send(vocabulary::command::openSession, application.c_str(), version.c_str(),
                                       static_cast<int>(options.sessionOptions.size()), given[0], given[1], given[2],
                                       given[3], given[4], given[5], given[6], given[7], given[8], given[9]);
        detail::leaveIfForkedCopy(caller);
        if (opened != 0) giveUp(opened, "opening the session (command 4)", isTransportFailure(opened));
        sessionLock = true;
        const int locked = owned->Send(vocabulary::command::commandLock);
        if (locked != 0) giveUp(locked, "taking the command lock (command 33)", isTransportFailure(locked));
        commandLock = true;
    }

    /** Gives the locks back and disconnects, as close() does, but swallows
     * its errors. */
    ~Session() { closeQuietly(); }

    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    Session(Session&& other) noexcept { take(other); }
    Session& operator=(Session&& other) noexcept {
        if (this != &other) {
            closeQuietly();
            take(other);
        }
        return *this;
    }

    /** Gives both locks back (34, 35) and disconnects, reporting a failure as
     * Error. After a failed send or receive the conversation may be out of
     * step and the server may still wait for the rest of a command, so
     * nothing more is said: the connection is closed, and the server frees
     * the locks with it. The session is closed afterwards in any case. */
    void close() {
        if (!owned) return;
        const std::unique_ptr<Client> closing = std::move(owned);
        std::optional<Error> first;
        auto step = [&](int result, const char* operation) {
            const int status = closing->GetClientStatus();
            if (status != 0 && isTransportFailure(status)) brokenStatus = status;
            if (first) return;
            if (status != 0)
                first.emplace(status, false, operation, lastMessage());
            else if (result < 0)
                first.emplace(result, true, operation, lastMessage());
        };
        if (brokenStatus == 0 && commandLock)
            step(closing->Send(vocabulary::command::releaseCommandLock), "releasing the command lock (command 34)");
        if (brokenStatus == 0 && sessionLock)
            step(closing->Send(vocabulary::command::releaseSessionLock), "releasing the session lock (command 35)");
        commandLock = false;
        sessionLock = false;
        if (brokenStatus != 0) {
            abandon(*closing);
        } else if (const int disconnected = closing->Disconnect(); disconnected != 0 && !first) {
            first.emplace(disconnected, false, "disconnecting", lastMessage());
        }
        brokenStatus = 0;
        if (first) throw *first;
    }

    /** False once closed or moved from. */
    bool isOpen() const noexcept { return owned != nullptr; }
    explicit operator bool() const noexcept { return isOpen(); }

    /** The Client underneath, for what the layer does not cover (the SVF
     * player: tetherhost::svf::play(session.client(), ...)). The locks and
     * the connection stay the Session's. */
    Client& client() { return live(); }

    /** A command by number, its arguments checked at compile time against
     * the command's pattern: ints as int (or a narrower integer), texts as
     * const char* or std::string, data blocks as byte ranges, each checked
     * at run time against its bit count. Returns the server's integer reply.
     * Command 41 takes the names alone (the layer sends their count);
     * command 44 goes through jtag<SUB>; the locks and the farewell are the
     * Session's. */
    template <int Number, class... Args>
    int send(const Args&... args) {
        using Planned = detail::CommandPlan<Number>;
        constexpr detail::Plan plan = Planned::plan;
        static_assert(!plan.sessionOwned,
                      "commands 4, 33, 34, 35 and 9999 (the locks and the farewell) belong to the Session");
        static_assert(!plan.byInterface, "command 44 goes through jtag<SUB>(...), or scanIr / scanDr");
        if constexpr (plan.textList) {
            static_assert((detail::isText<Args> && ... && true), "command 41 takes the shared application names");
            static_assert(sizeof...(Args) <= maxTexts, "command 41 takes at most 32 names in one call");
        } else if constexpr (!plan.sessionOwned && !plan.byInterface) {
            static_assert(sizeof...(Args) == static_cast<std::size_t>(plan.size),
                          "wrong number of arguments for this command");
            if constexpr (sizeof...(Args) == static_cast<std::size_t>(plan.size))
                static_assert(detail::checkArguments<Number, -1, Planned, Args...>(std::index_sequence_for<Args...>{}));
        }
        const detail::Slot slots[sizeof...(Args) + 1] = {detail::slotOf(args)...};
        return run(Number, -1, plan, slots, static_cast<int>(sizeof...(Args)));
    }

    /** A JTAG-interface sub-command (command 44) by number, its arguments
     * checked at compile time. Returns the server's integer reply. The JTAG
     * shift (12) goes through scanIr / scanDr. */
    template <int SubCommand, class... Args>
    int jtag(const Args&... args) {
        using Planned = detail::SubPlan<SubCommand>;
        constexpr detail::Plan plan = Planned::plan;
        static_assert(!plan.byScan, "the JTAG shift (sub-command 12) goes through scanIr / scanDr");
        static_assert(plan.byScan || sizeof...(Args) == static_cast<std::size_t>(plan.size),
                      "wrong number of arguments for this sub-command");
        if constexpr (!plan.byScan && sizeof...(Args) == static_cast<std::size_t>(plan.size))
            static_assert(detail::checkArguments<vocabulary::command::jtagInterface, SubCommand, Planned, Args...>(
                std::index_sequence_for<Args...>{}));
        const detail::Slot slots[sizeof...(Args) + 1] = {detail::slotOf(args)...};
        return run(vocabulary::command::jtagInterface, SubCommand, plan, slots, static_cast<int>(sizeof...(Args)));
    }

    /** A command by a number known only at run time, its arguments checked
     * then: ArgumentError for a wrong count or kind. Command 44 takes the
     * sub-command number first. */
    int send(int number, const std::vector<Argument>& arguments) {
        const detail::Plan plan = detail::planOf(vocabulary::shapeOf(number));
        if (plan.sessionOwned)
            throw ArgumentError("commands 4, 33, 34, 35 and 9999 (the locks and the farewell) belong to the Session");
        if (plan.byInterface) {
            if (arguments.empty() || !std::holds_alternative<int>(arguments.front()))
                throw ArgumentError("command 44 takes the sub-command number first");
            return jtag(std::get<int>(arguments.front()),
                        std::vector<Argument>(std::next(arguments.begin()), arguments.end()));
        }
        return runChecked(number, -1, plan, arguments);
    }

    /** A JTAG-interface sub-command by a number known only at run time. */
    int jtag(int subCommand, const std::vector<Argument>& arguments) {
        const detail::Plan plan = detail::planOf(vocabulary::subCommand(subCommand));
        if (plan.byScan) throw ArgumentError("the JTAG shift (sub-command 12) goes through scanIr / scanDr");
        return runChecked(vocabulary::command::jtagInterface, subCommand, plan, arguments);
    }

    /** An instruction-register scan of `bits` bits: TDI from `tdi` (the
     * first bit shifted is bit 0 of byte 0), its TDO returned. A scan of more
     * than one 1024-byte block returns at most 1023 TDO bytes per block: the
     * protocol brings no more. */
    Bytes scanIr(Int bits, ByteView tdi) { return scan(true, bits.value, tdi); }
    /** A data-register scan, as scanIr. */
    Bytes scanDr(Int bits, ByteView tdi) { return scan(false, bits.value, tdi); }
    /** An instruction-register scan whose TDO the server compares with
     * `expected` where `mask` has ones. */
    Checked scanIr(Int bits, ByteView tdi, ByteView expected, ByteView mask) {
        return compare(true, bits.value, tdi, expected, mask);
    }
    /** A data-register scan compared as above. */
    Checked scanDr(Int bits, ByteView tdi, ByteView expected, ByteView mask) {
        return compare(false, bits.value, tdi, expected, mask);
    }

    /** The JTAG chain as the server describes it (sub-command 7). */
    std::vector<Device> chain() {
        const int count = jtag<vocabulary::sub::describeChain>();
        std::vector<Device> devices;
        for (const std::string& field : readList()) devices.push_back(parseDevice(field));
        if (static_cast<int>(devices.size()) != count)
            throw std::runtime_error("the server counts " + std::to_string(count) + " devices but describes " +
                                     std::to_string(devices.size()));
        return devices;
    }

    /** SSPI: writes `data` at `address` (command 50); the server's reply. */
    int sspiWrite(Int address, ByteView data, Int options = 0) {
        const int bits = transferBits(data);
        const int number = vocabulary::command::sspiWrite;
        return call(number, -1, live().Send(number, address.value, bits, asChars(data), options.value));
    }
    /** SSPI: writes `data` at `address` and reads as many bytes back from
     * there (command 52). */
    Bytes sspiTransfer(Int address, ByteView data, Int options = 0) {
        const int bits = transferBits(data);
        const int number = vocabulary::command::sspiWriteReadBack;
        call(number, -1, live().Send(number, address.value, bits, asChars(data), options.value));
        return collect(bits, number);
    }

    /** I2C: writes `data` at word `address` of the device at bus address
     * `device` (command 46); the server's reply. */
    int i2cWrite(Int device, Int address, ByteView data) {
        const int bits = transferBits(data);
        const int number = vocabulary::command::i2cWrite;
        return call(number, -1, live().Send(number, address.value, device.value, bits, asChars(data), 0));
    }
    /** I2C: writes `data` and reads as many bytes back from the same word
     * address (command 48). */
    Bytes i2cTransfer(Int device, Int address, ByteView data) {
        const int bits = transferBits(data);
        const int number = vocabulary::command::i2cWriteReadBack;
        call(number, -1, live().Send(number, address.value, device.value, bits, asChars(data), 0));
        return collect(bits, number);
    }

    /** Pump data (command 42) in `mode`, nothing read back; the server's
     * reply. */
    int pump(ByteView data, Int mode) {
        const int bits = transferBits(data);
        const int number = vocabulary::command::pumpData;
        return call(number, -1, live().Send(number, data.data(), bits, mode.value, 0));
    }
    /** Pump data in `mode` with as many bytes read back. A longer read-back
     * comes in chunks as long as the server has data, which the Client does
     * not tell apart: one block at most here. */
    Bytes pumpTransfer(ByteView data, Int mode) {
        const int bits = transferBits(data);
        if (bits > vocabulary::singleBlockBits)
            throw std::length_error("a pump transfer with read-back takes at most " +
                                    std::to_string(vocabulary::singleBlockBits / 8) + " bytes");
        const int number = vocabulary::command::pumpData;
        call(number, -1, live().Send(number, data.data(), bits, mode.value, 1));
        return collect(bits, number);
    }

    /** The current command's text reply (after commands 1 and 43, and the
     * simulator's sub-commands 7, 8, 9 and 23). */
    std::string readText() {
        char* text = nullptr;
        check(live().Read(text), "reading a text reply");
        return text != nullptr ? std::string(text) : std::string();
    }
    /** The current command's next reply as an integer. */
    int readInt() {
        int value = 0;
        check(live().Read(value), "reading an integer reply");
        return value;
    }
    /** The current command's next reply as its ";"-separated fields. */
    std::vector<std::string> readList() {
        std::vector<std::string> fields;
        check(live().Read(fields), "reading a list reply");
        return fields;
    }
    /** What the last transfer with read-back left (GetTDO), as it came:
     * (bits + 7) / 8 bytes. */
    Bytes readData(Int bits) {
        if (bits.value < 0) throw std::invalid_argument("a negative bit count");
        Bytes data(detail::byteCountOf(bits.value));
        if (data.empty()) return data;
        unsigned char* destination = data.data();
        check(live().GetTDO(destination, bits.value), "collecting the returned data (GetTDO)");
        return data;
    }

private:
    static constexpr std::size_t sessionOptionCount = 10;
    /* Command 41's names go as one call of this many pointers (the library
     * takes as many as the count says). */
    static constexpr int maxTexts = 32;

    static std::unique_ptr<Client> makeClient(const std::string& name) {
        const Text checked(name);
        std::vector<char> buffer(name.begin(), name.end());
        buffer.push_back('\0');
        return std::make_unique<Client>(buffer.data());
    }

    static const char* asChars(const ByteView& data) noexcept { return reinterpret_cast<const char*>(data.data()); }

    /* A bus or pump transfer's bit count: the whole of `data`. */
    static int transferBits(const ByteView& data) {
        if (data.size() == 0) throw std::invalid_argument("a transfer needs at least one byte of data");
        if (data.size() > static_cast<std::size_t>(INT_MAX / 8))
            throw std::length_error("a transfer of " + std::to_string(data.size()) +
                                    " bytes: its bit count does not fit in an int");
        return static_cast<int>(data.size() * 8);
    }

    static Device parseDevice(const std::string& field) {
        const std::size_t first = field.find(',');
        const std::size_t second = first == std::string::npos ? first : field.find(',', first + 1);
        if (second == std::string::npos)
            throw std::runtime_error("the server's chain description holds '" + field + "', not name,irLength,idcode");
        Device device;
        device.name = field.substr(0, first);
        const std::string length = field.substr(first + 1, second - first - 1);
        const std::string idcode = field.substr(second + 1);
        std::size_t used = 0;
        try {
            device.irLength = std::stoi(length, &used);
        } catch (const std::exception&) {
            used = 0;
        }
        if (used == 0 || used != length.size())
            throw std::runtime_error("the server's chain description gives '" + length + "' as an IR length");
        if (idcode == "none") return device;
        unsigned long value = 0;
        try {
            value = std::stoul(idcode, &used, 16);
        } catch (const std::exception&) {
            used = 0;
        }
        if (idcode.rfind("0x", 0) != 0 || used != idcode.size() || value > UINT32_MAX)
            throw std::runtime_error("the server's chain description gives '" + idcode + "' as an IDCODE");
        device.idcode = static_cast<std::uint32_t>(value);
        return device;
    }

    static bool isLibraryStatus(int status) noexcept {
        for (const vocabulary::Code& code : vocabulary::statusCodes)
            if (code.number == status) return true;
        return false;
    }

    static bool isTransportFailure(int status) noexcept {
        return status == vocabulary::status::sendFailed || status == vocabulary::status::receiveFailed;
    }

    /* Closes the connection without another word. A failed Connect leaves
     * descriptor 0 behind, which is the host's standard input: only a socket
     * above the standard streams is closed. */
    static void abandon(Client& closing) noexcept {
        const long descriptor = closing.GetClientSocket();
        struct stat about {};
        if (descriptor <= STDERR_FILENO || descriptor > INT_MAX) return;
        if (::fstat(static_cast<int>(descriptor), &about) != 0 || !S_ISSOCK(about.st_mode)) return;
        ::shutdown(static_cast<int>(descriptor), SHUT_RDWR);
        ::close(static_cast<int>(descriptor));
    }

    Client& live() {
        if (!owned) throw SessionClosed();
        if (brokenStatus != 0) throw Error(brokenStatus, false, "the connection failed earlier", {});
        return *owned;
    }

    void take(Session& other) noexcept {
        owned = std::move(other.owned);
        logPath = std::move(other.logPath);
        sessionLock = std::exchange(other.sessionLock, false);
        commandLock = std::exchange(other.commandLock, false);
        brokenStatus = std::exchange(other.brokenStatus, 0);
        noExpectation = std::move(other.noExpectation);
    }

    void closeQuietly() noexcept {
        try {
            close();
        } catch (...) {
        }
    }

    std::string lastMessage() const {
        return logPath.empty() ? std::string() : detail::recogniseMessage(detail::lastLine(logPath));
    }

    /* The constructor's failures: what was taken is given back (or the
     * connection abandoned), then the Error, with the message that the
     * failure posted, not those of the clean-up. */
    [[noreturn]] void giveUp(int status, const std::string& operation, bool abandoning) {
        Error error(status, false, operation, lastMessage());
        if (abandoning) brokenStatus = status;
        closeQuietly();
        throw error;
    }

    [[noreturn]] void fail(int status, bool fromServer, const std::string& operation) {
        if (!fromServer && isTransportFailure(status)) brokenStatus = status;
        throw Error(status, fromServer, operation, lastMessage());
    }

    void check(int status, const char* operation) {
        if (status != 0) fail(status, false, operation);
    }

    /* After a library call: its recorded status, then the server's reply.
     * The status is 0 after every call that went well, so one read tells. */
    int call(int number, int subCommand, int result) {
        const int status = owned->GetClientStatus();
        if (__builtin_expect(status != 0 || result < 0, 0)) failed(number, subCommand, status, result);
        return result;
    }

    [[noreturn]] void failed(int number, int subCommand, int status, int result) {
        const std::string operation = subCommand < 0 ? detail::commandName(number) : detail::subName(subCommand);
        // A status that is not the library's is a JTAG shift's status text,
        // which the library records as the server sent it.
        if (status != 0) fail(status, !isLibraryStatus(status), operation);
        fail(result, true, operation);
    }

    Bytes scan(bool instruction, int bits, const ByteView& tdi) {
        checkScan(bits, tdi);
        const int flags = instruction ? vocabulary::shiftFlag::instructionScan : 0;
        const int number = vocabulary::command::jtagInterface;
        // The read-back is asked for with a second block, the TDO expected;
        // without a mask the server compares nothing, and zeros will do (kept
        // from scan to scan, grown when a longer scan comes).
        const std::size_t needed = detail::byteCountOf(bits);
        if (noExpectation.size() < needed) noExpectation.resize(needed);
        call(number, vocabulary::sub::jtagShift,
             live().Send(number, vocabulary::sub::jtagShift, flags, bits, 1, 0, tdi.data(),
                         ByteView(noExpectation).data()));
        return collect(bits, number);
    }

    Checked compare(bool instruction, int bits, const ByteView& tdi, const ByteView& expected, const ByteView& mask) {
        checkScan(bits, tdi);
        checkScan(bits, expected);
        checkScan(bits, mask);
        const int flags = instruction ? vocabulary::shiftFlag::instructionScan : 0;
        const int number = vocabulary::command::jtagInterface;
        Checked checked;
        checked.mismatchedBits = call(number, vocabulary::sub::jtagShift,
                                      live().Send(number, vocabulary::sub::jtagShift, flags, bits, 1, 1, tdi.data(),
                                                  expected.data(), mask.data()));
        checked.tdo = collect(bits, number);
        return checked;
    }

    static void checkScan(int bits, const ByteView& block) {
        if (bits < 0) throw std::invalid_argument("a scan of a negative bit count");
        const std::size_t needed = detail::byteCountOf(bits);
        if (block.size() < needed)
            throw std::length_error("a block of " + std::to_string(block.size()) + " bytes for a scan of " +
                                    std::to_string(bits) + " bits, which takes " + std::to_string(needed));
        if (heldBytes(needed) > static_cast<std::size_t>(INT_MAX / 8))
            throw std::length_error("a scan of " + std::to_string(bits) + " bits cannot be read back");
    }

    /* What the Client holds after a read-back of `bytes` bytes: the bytes,
     * or whole chunks when they came in several. */
    static std::size_t heldBytes(std::size_t bytes) noexcept {
        if (bytes <= vocabulary::frameSize) return bytes;
        return (bytes + vocabulary::frameSize - 1) / vocabulary::frameSize * vocabulary::frameSize;
    }

    /* The read-back of command `number`'s transfer of `bits` bits. A single
     * block is the data as they are; chunks that begin with "+" carry
     * framedPayload data bytes behind it, the others are data throughout. */
    Bytes collect(int bits, int number) {
        const std::size_t bytes = detail::byteCountOf(bits);
        if (bytes == 0) return {};
        if (bits <= vocabulary::singleBlockBits || !vocabulary::shapeOf(number).framedReadBack) {
            Bytes data(bytes);
            unsigned char* destination = data.data();
            checkCollected(owned->GetTDO(destination, static_cast<int>(bytes * 8)), number);
            return data;
        }
        const std::size_t held = heldBytes(bytes);
        Bytes chunks(held);
        unsigned char* destination = chunks.data();
        checkCollected(owned->GetTDO(destination, static_cast<int>(held * 8)), number);
        Bytes data;
        data.reserve(bytes);
        for (std::size_t chunk = 0; chunk < held && data.size() < bytes; chunk += vocabulary::frameSize) {
            const std::size_t take = std::min(vocabulary::framedPayload, bytes - data.size());
            const auto payload = chunks.begin() + static_cast<std::ptrdiff_t>(chunk + 1);
            data.insert(data.end(), payload, payload + static_cast<std::ptrdiff_t>(take));
        }
        return data;
    }

    void checkCollected(int status, int number) {
        if (status != 0) fail(status, false, detail::commandName(number) + ", collecting the returned data (GetTDO)");
    }

    /* Every call by pattern goes through here: the data blocks checked, the
     * arguments handed to the library with the C types its marshallers
     * read, the forked copy stopped, the result checked. */
    int run(int number, int subCommand, const detail::Plan& plan, const detail::Slot* slots, int count) {
        detail::checkSlots(plan, slots, count);
        Client& target = live();
        const bool mayFork = vocabulary::shapeOf(number).reconnectsOnFailure;
        const pid_t caller = mayFork ? ::getpid() : 0;
        const int result = dispatch(target, number, subCommand, plan, slots, count);
        if (mayFork && result < 0) detail::leaveIfForkedCopy(caller);
        return call(number, subCommand, result);
    }

    int runChecked(int number, int subCommand, const detail::Plan& plan, const std::vector<Argument>& arguments) {
        const std::string operation = subCommand < 0 ? detail::commandName(number) : detail::subName(subCommand);
        const int count = static_cast<int>(arguments.size());
        if (plan.textList ? count > maxTexts : count != plan.size)
            throw ArgumentError(operation + " takes " + detail::describePlan(plan) +
                                (plan.textList ? " (at most " + std::to_string(maxTexts) + ")" : std::string()) +
                                ", not " + std::to_string(count) + " arguments");
        std::vector<detail::Slot> slots;
        slots.reserve(arguments.size() + 1);
        for (int i = 0; i < count; ++i) {
            slots.push_back(detail::slotOf(arguments[static_cast<std::size_t>(i)]));
            const detail::Kind wanted = plan.textList ? detail::Kind::Text : plan.kinds[i];
            if (slots.back().kind != wanted)
                throw ArgumentError(operation + ": argument " + std::to_string(i + 1) + " is " +
                                    detail::kindName(wanted) + ", not " + detail::kindName(slots.back().kind));
        }
        slots.emplace_back();
        return run(number, subCommand, plan, slots.data(), count);
    }

    static int dispatch(Client& target, int number, int subCommand, const detail::Plan& plan, const detail::Slot* s,
                        int count) {
        using vocabulary::Marshal;
        using vocabulary::SubPattern;
        auto i = [s](int at) { return s[at].number; };
        auto t = [s](int at) { return s[at].text; };
        auto u = [s](int at) { return s[at].data.data(); };
        auto c = [s](int at) { return reinterpret_cast<const char*>(s[at].data.data()); };
        if (plan.marshal == Marshal::JtagInterface) {
            switch (plan.pattern) {
            case SubPattern::Unknown:
            case SubPattern::NoArgs: return target.Send(number, subCommand);
            case SubPattern::Texts:
                return count == 1 ? target.Send(number, subCommand, t(0)) : target.Send(number, subCommand, t(0), t(1));
            case SubPattern::IntTextInt: return target.Send(number, subCommand, i(0), t(1), i(2));
            case SubPattern::IntThenEmptyText:
            case SubPattern::FractionStrict:
            case SubPattern::FractionFixed: return target.Send(number, subCommand, i(0));
            case SubPattern::Ints: return sendInts(target, number, subCommand, s, count);
            case SubPattern::JtagShift: break;
            }
            throw std::logic_error("the JTAG shift goes through scanIr / scanDr");
        }
        switch (plan.marshal) {
        case Marshal::Nothing:
        case Marshal::Unknown: return target.Send(number);
        case Marshal::TextsLenient:
        case Marshal::TextsStrict: return count == 1 ? target.Send(number, t(0)) : target.Send(number, t(0), t(1));
        case Marshal::Ints: return sendInts(target, number, -1, s, count);
        case Marshal::HeaderTrailer: return target.Send(number, i(0), t(1), i(2), t(3), i(4), t(5), i(6), t(7));
        case Marshal::GenericShift: return target.Send(number, i(0), i(1), i(2), u(3));
        case Marshal::SharedApps: {
            const char* names[maxTexts] = {};
            for (int at = 0; at < maxTexts; ++at) names[at] = at < count ? t(at) : "";
            return sendNames(target, number, count, names, std::make_index_sequence<maxTexts>{});
        }
        case Marshal::PumpData: return target.Send(number, u(0), i(1), i(2), i(3));
        case Marshal::I2C:
            if (plan.transfers == 1) return target.Send(number, i(0), i(1), i(2), c(3), i(4));
            return target.Send(number, i(0), i(1), i(2), c(3), i(4), i(5), i(6), i(7), c(8), i(9));
        case Marshal::SSPI:
            if (plan.transfers == 1) return target.Send(number, i(0), i(1), c(2), i(3));
            return target.Send(number, i(0), i(1), c(2), i(3), i(4), i(5), c(6), i(7));
        case Marshal::OpenSession:
        case Marshal::CommandLock:
        case Marshal::ReleaseCommandLock:
        case Marshal::ReleaseSessionLock:
        case Marshal::Farewell:
        case Marshal::JtagInterface: break;
        }
        throw std::logic_error("the locks and the farewell belong to the Session");
    }

    /* The integer patterns: one or two ints after a command number, one to
     * five after a sub-command number. */
    static int sendInts(Client& target, int number, int subCommand, const detail::Slot* s, int count) {
        auto i = [s](int at) { return s[at].number; };
        if (subCommand < 0 && count == 1) return target.Send(number, i(0));
        if (subCommand < 0 && count == 2) return target.Send(number, i(0), i(1));
        if (subCommand >= 0) {
            switch (count) {
            case 1: return target.Send(number, subCommand, i(0));
            case 2: return target.Send(number, subCommand, i(0), i(1));
            case 3: return target.Send(number, subCommand, i(0), i(1), i(2));
            case 5: return target.Send(number, subCommand, i(0), i(1), i(2), i(3), i(4));
            default: break;
            }
        }
        throw std::logic_error("an integer pattern of " + std::to_string(count) + " arguments");
    }

    template <std::size_t... At>
    static int sendNames(Client& target, int number, int count, const char* const* names, std::index_sequence<At...>) {
        return target.Send(number, count, names[At]...);
    }

    std::unique_ptr<Client> owned;
    std::string logPath;
    bool sessionLock = false;
    bool commandLock = false;
    int brokenStatus = 0;  // the transport failure that put the conversation out of step
    Bytes noExpectation;   // the zeros a scan without a mask sends as its expected TDO
};

}  // namespace tetherhost

#endif

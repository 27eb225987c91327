// SPDX-License-Identifier: MIT
/* SimulatorHarness: what the simulator's tests need around the program: a
 * simulator process started with chosen options and ended by its pid, a raw
 * client that exchanges the protocol's frames byte for byte (one send per
 * frame, one receive per reply, exactly as the library does), and a few
 * look-ups in /proc. */
#ifndef TETHERHOST_TESTS_SIMULATORHARNESS_H
#define TETHERHOST_TESTS_SIMULATORHARNESS_H

#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tetherhost::test {

/** An std::string holding `literal` exactly, NUL bytes included. */
template <std::size_t N>
std::string wire(const char (&literal)[N]) {
    return std::string(literal, N - 1);
}

/** The acknowledgement, answer, go token and request frame: "+" and NUL. */
inline const std::string plus = wire("+\0");

/** The built-in chain's IDCODEs, from the device nearest TDI, and its
 * description as sub-command 7 gives it. The tests spell these out rather
 * than take them from the model, so a change there shows. */
inline constexpr unsigned idcode0 = 0x10A5C1FF;
inline constexpr unsigned idcode1 = 0x23E171FF;
inline constexpr unsigned idcode2 = 0x07B421FF;
inline const std::string defaultChainText = "tap0,4,0x10a5c1ff;tap1,6,0x23e171ff;tap2,8,0x07b421ff;";

/** The simulator program built beside the tests. */
std::string simulatorProgram();

/** A private temporary directory, removed with its contents. */
class ScratchDir {
public:
    ScratchDir();
    ~ScratchDir();
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;
    std::string file(const std::string& name) const { return path + "/" + name; }

private:
    std::string path;
};

/** A link (or copy) of the simulator program in `scratch` under another
 * file name, so that a process started from it never looks like a running
 * "tetherhost" to the library's server detection in a test beside it. */
std::string simulatorAlias(const ScratchDir& scratch);

/** A simulator process of this test, started from a simulatorAlias. */
class Simulator {
public:
    /** Starts the simulator on `port` with `options` and waits until it
     * listens; null when it did not come up. While another program holds
     * the port it waits for it (at most 60 s in all). */
    static std::unique_ptr<Simulator> start(int port, const std::vector<std::string>& options = {});
    /** As start, with the descriptor limits that `ulimitArguments` (as the
     * shell's ulimit takes them, "-n 64") set for the simulator alone. */
    static std::unique_ptr<Simulator> startLimited(int port, const std::string& ulimitArguments,
                                                   const std::vector<std::string>& options = {});
    /** Ends the process (SIGTERM, then SIGKILL after 5 s) unless it has ended. */
    ~Simulator();
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    pid_t pid() const { return process; }
    /** Sends `signal` and waits (at most `timeoutMs`) for the exit status;
     * nullopt when the process did not end in time. */
    std::optional<int> stop(int signal, int timeoutMs = 5000);
    /** Waits (at most `timeoutMs`) for the process to end by itself. */
    std::optional<int> waitExit(int timeoutMs);
    /** A file in the simulator's own scratch directory. */
    std::string file(const std::string& name) const { return scratch.file(name); }

private:
    Simulator() = default;
    static std::unique_ptr<Simulator> launch(int port, const std::string& ulimitArguments,
                                             const std::vector<std::string>& options);
    ScratchDir scratch;
    pid_t process = -1;
    std::optional<int> status;
};

/** A simulator process whose trace and standard error are kept in files of
 * its own (a replay's reports, a fault's events), for tests that read both
 * or wait for it to end by itself. Ended by its pid. */
class TracedSimulator {
public:
    /** Starts the simulator on `port` with `options` and waits until it
     * listens (its pid file, written once it does); null when it did not
     * come up. */
    static std::unique_ptr<TracedSimulator> start(int port, const std::vector<std::string>& options);
    ~TracedSimulator();
    TracedSimulator(const TracedSimulator&) = delete;
    TracedSimulator& operator=(const TracedSimulator&) = delete;

    pid_t pid() const { return process; }
    /** The exit status once the process has ended by itself (at most 10 s);
     * -1 when it did not end or was killed. */
    int exitStatus();
    /** SIGTERM, then the exit status. */
    int stop();
    /** The path of its trace. */
    std::string trace() const { return scratch.file("trace.txt"); }
    /** What it wrote on standard error. */
    std::string errors() const;

private:
    TracedSimulator() = default;
    ScratchDir scratch;
    pid_t process = -1;
    std::optional<int> status;
};

/** A trace file that a simulator writes, followed as it grows. */
class TraceFollower {
public:
    /** Watches `path`, which must exist. */
    explicit TraceFollower(const std::string& path);
    ~TraceFollower();
    TraceFollower(const TraceFollower&) = delete;
    TraceFollower& operator=(const TraceFollower&) = delete;

    /** Waits (at most `timeoutMs`) until the file holds at least `count`
     * lines containing `needle`; woken by the file's changes, not by
     * polling. */
    bool waitFor(const std::string& needle, int count = 1, int timeoutMs = 10000);
    /** How many lines contain `needle` now. */
    int count(const std::string& needle) const;
    /** The lines that contain `needle`, joined. */
    std::string lines(const std::string& needle) const;

private:
    std::string path;
    int watch = -1;
};

/** Starts `program` with `arguments` (argument zero included); its pid. */
pid_t spawnProgram(const std::string& program, const std::vector<std::string>& arguments);
/** Waits (at most `timeoutMs`) until a child of this process ends; its wait
 * status, or nullopt. */
std::optional<int> waitChild(pid_t pid, int timeoutMs);
/** Waits (at most `timeoutMs`) until process `pid` no longer exists, whoever
 * reaps it. */
bool waitGone(pid_t pid, int timeoutMs);
/** True when a socket listens on 127.0.0.1:`port`, from /proc/net/tcp
 * (without connecting to it). */
bool portListening(int port);
/** Waits (at most `timeoutMs`) until nothing listens on 127.0.0.1:`port`. */
bool waitPortFree(int port, int timeoutMs);
/** The process that owns the socket listening on 127.0.0.1:`port`, found
 * through /proc/net/tcp and the processes' descriptors; -1 when none. */
pid_t listeningOwner(int port);
/** How many descriptors process `pid` has open, from /proc. */
int openDescriptors(pid_t pid);
/** Resident memory of process `pid` in kilobytes (VmRSS), or -1. */
long residentKilobytes(pid_t pid);
/** Ids of the processes whose name is `name` (as pidof would find them). */
std::vector<pid_t> processesNamed(const std::string& name);

/** The arguments of a JTAG shift (command 44, sub-command 12). */
struct JtagShift {
    int flags = 0;
    int bitCount = 0;
    int withSecond = 0;
    int withThird = 0;
    std::string first, second, third;
};

/** What came back from a JTAG shift, receive by receive. */
struct JtagShiftReply {
    bool framed = false;   // every acknowledgement and answer was "+" and NUL
    std::string status;    // the one receive after the go token, as received
    std::string readBack;  // the read-back receives, joined
};

/** One connection to the simulator, spoken byte by byte. Every receive is
 * one recv call, bounded by a 10-second time-out, so a server that does not
 * answer fails the test instead of hanging it. */
class RawClient {
public:
    /** Connects to 127.0.0.1:`port`; check connected(). */
    explicit RawClient(int port);
    ~RawClient();
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    bool connected() const { return socket >= 0; }
    int descriptor() const { return socket; }

    /** One send of `bytes`; false when it failed. */
    bool send(std::string_view bytes);
    /** One receive of at most `capacity` bytes; empty when the connection
     * closed, failed or stayed silent for the time-out. */
    std::string receive(std::size_t capacity);
    /** The frame `token` and its NUL, then one receive of at most `capacity`. */
    std::string exchange(const std::string& token, std::size_t capacity = 1024);
    /** The name frame and the server's answer; true when the answer is "+". */
    bool introduce(const std::string& name);
    /** A request frame and the reply, read as the library's Read does. */
    std::string replyText();
    int reply();
    /** Command 4 with its texts and ten options, then the session lock
     * request: the lock answer's text. */
    std::string openSession();
    /** Command 33: the lock answer's text. */
    std::string commandLock();
    /** Both locks; true when both were granted. */
    bool takeLocks();
    /** Command 9999, its reply, and the close. */
    int leave();
    /** A JTAG shift exchanged exactly as the library's marshaller does,
     * up to (not including) the integer reply. */
    JtagShiftReply jtagShift(const JtagShift& shift);
    /** True when the server closes the connection (within the time-out). */
    bool closedByServer();
    /** Closes the connection at once. */
    void close();

private:
    int socket = -1;
};

/** A field "key=value" of the status report (command 1's text reply). */
long statusField(const std::string& report, const std::string& key);
/** The simulator's heap in use, read through a fresh connection once only
 * that connection is open (so closed ones have been cleaned up). */
long settledHeap(int port);

/** Bits, least significant first in each byte, as a byte string. */
std::string bitString(const std::vector<bool>& bits);
/** Bit `index` of a byte string. */
bool bitOf(const std::string& bytes, std::size_t index);
/** The 32-bit value as four bytes, least significant first. */
std::string littleEndian(unsigned value);
/** `count` pseudo-random bytes from `seed`. */
std::string pattern(std::size_t count, unsigned seed);
/** What a chain of `delay` BYPASS registers returns for `bitCount` bits of
 * `tdi`: `delay` zeros, then TDI. */
std::string delayed(const std::string& tdi, std::size_t bitCount, std::size_t delay);
/** Drops the leading "+" of every 1024-byte read-back chunk. */
std::string unframe(const std::string& framed);

/** The whole text of the file at `path` ("" when it cannot be read). */
std::string fileText(const std::string& path);
/** Runs `arguments` (argument zero is the program's path) with its standard
 * output and error going to `outputPath`, for at most a minute (then it is
 * killed by its pid); its status as waitChild gives it, -1 when it did not
 * end in time, and what it wrote in `output`. */
int runTool(const std::vector<std::string>& arguments, const std::string& outputPath, std::string& output);
/** The start of an OpenOCD command line (`openocd` is its path) that drives
 * the remote_bitbang door at 127.0.0.1:`doorPort` over JTAG; each command
 * to follow goes as "-c" and the command. */
std::vector<std::string> openOcdOnDoor(const std::string& openocd, int doorPort);

}  // namespace tetherhost::test

#endif

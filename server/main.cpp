// SPDX-License-Identifier: MIT
/* tetherhost: the server simulator's program. Started by the library's
 * Connect with no arguments, it listens on 127.0.0.1:4001 and runs quietly
 * until a minute passes without clients; see docs/simulator.md. */
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <asio/io_context.hpp>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <optional>
#include <string>
#include <system_error>

#include "protocol/Frames.h"
#include "server/Cable.h"
#include "server/ChainFile.h"
#include "server/Faults.h"
#include "server/Limits.h"
#include "server/Replay.h"
#include "server/Server.h"
#include "server/Trace.h"
#include "tetherhost/version.h"

namespace {

struct Options {
    int port = tetherhost::protocol::serverPort;
    int idleExit = 60;
    tetherhost::sim::Limits limits;
    int stallTimeout = static_cast<int>(limits.stallTimeout.count());
    std::string trace;
    std::string chain;
    std::string pidFile;
    int remoteBitbangPort = 0;  // 0: no remote_bitbang door
    int xvcPort = 0;            // 0: no XVC door
    bool realTime = false;
    std::string replay;  // a recording to replay; empty: the model serves
    bool replayThenModel = false;
    std::string faults;  // fault rules for the model's answers; empty: none
};

/* A program that starts us may hand down any of its descriptors; holding on
 * to its sockets would keep its connections open after it closes them. */
void closeInheritedDescriptors() {
    if (close_range(3, ~0U, 0) == 0) return;
    const long limit = sysconf(_SC_OPEN_MAX);
    for (int descriptor = 3; descriptor < limit; ++descriptor) close(descriptor);
}

/* Each client holds one descriptor for as long as it is connected; a soft
 * limit below the hard one would refuse clients the system allows. */
void raiseDescriptorLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == limit.rlim_max) return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

/* Once listening, the server has nothing more to say on its standard
 * streams (unless the trace goes to standard error), so it lets go of the
 * terminal or pipe it was started with. */
void detachStandardStreams(bool keepStandardError) {
    const int null = open("/dev/null", O_RDWR);
    if (null < 0) return;
    dup2(null, STDIN_FILENO);
    dup2(null, STDOUT_FILENO);
    if (!keepStandardError) dup2(null, STDERR_FILENO);
    if (null > STDERR_FILENO) close(null);
}

}  // namespace

// Anything thrown that has no handler of its own (running out of memory, a
// failing system call inside Asio) ends the program with one line saying why.
int main(int argc, char** argv) try {
    closeInheritedDescriptors();
    raiseDescriptorLimit();
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGHUP, SIG_IGN);

    Options options;
    CLI::App app{"tetherhost: the tetherhost server simulator, a server on 127.0.0.1 with a virtual cable"};
    app.set_version_flag("--version", "tetherhost " TETHERHOST_VERSION_STRING);
    // Wide enough for the longest option with its type, so that every
    // description starts in a column of its own (help2man reads them so).
    app.get_formatter()->column_width(40);
    app.add_option("--port", options.port, "TCP port on 127.0.0.1 (default 4001)")->check(CLI::Range(1, 65535));
    app.add_option("--idle-exit", options.idleExit,
                   "exit after this many seconds without clients; 0: never (default 60)")
        ->check(CLI::NonNegativeNumber);
    app.add_option("--trace", options.trace, "write one line per frame to FILE ('-': standard error)");
    app.add_option("--chain", options.chain, "JSON file describing the cable's devices, or a shipped chain's name");
    app.add_option("--max-connections", options.limits.maxConnections,
                   "connections served at once; more are closed at once (default 4096)")
        ->check(CLI::PositiveNumber);
    app.add_option("--stall-timeout", options.stallTimeout,
                   "close a connection whose command stays half sent this many seconds (default 30)")
        ->check(CLI::PositiveNumber);
    app.add_option("--pid-file", options.pidFile, "write the process id to FILE while running");
    app.add_option("--remote-bitbang", options.remoteBitbangPort,
                   "also serve OpenOCD's remote_bitbang protocol on 127.0.0.1:PORT, on the same chain")
        ->check(CLI::Range(1, 65535));
    app.add_option("--xvc", options.xvcPort,
                   "also serve the Xilinx Virtual Cable protocol on 127.0.0.1:PORT, on the same chain")
        ->check(CLI::Range(1, 65535));
    app.add_flag("--real-time", options.realTime,
                 "JTAG operations on the library's port take their virtual TCK time in wall time "
                 "(by default the virtual clock only counts)");
    CLI::Option* replay =
        app.add_option("--replay", options.replay,
                       "serve the connections recorded in FILE (TETHERHOST_RECORD) in order, checking every byte "
                       "the clients send; exit status 1 when a client leaves its recording");
    app.add_flag("--replay-then-model", options.replayThenModel,
                 "with --replay: once a connection's recording ends, the model goes on with it, and serves the "
                 "connections beyond the recording")
        ->needs(replay);
    app.add_option("--faults", options.faults,
                   "misbehave on purpose by the rules in FILE (JSON, see docs/faults.md): close, reset, stall, "
                   "delay, other replies and acknowledgements, split replies, refused or held locks");
    CLI11_PARSE(app, argc, argv);
    options.limits.stallTimeout = std::chrono::seconds(options.stallTimeout);

    using namespace tetherhost::sim;
    CableConfig config;
    try {
        if (!options.chain.empty()) config = loadCableConfig(chainFilePath(options.chain, shippedChainFolders()));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tetherhost: %s: %s\n", options.chain.c_str(), error.what());
        return 2;
    }
    config.realTime = options.realTime;
    std::optional<ReplayRun> replayRun;
    try {
        if (!options.replay.empty()) replayRun.emplace(options.replay, options.replayThenModel, options.trace != "-");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tetherhost: %s\n", error.what());
        return 2;
    }
    std::optional<Faults> faults;
    try {
        if (!options.faults.empty()) faults.emplace(Faults::load(options.faults));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tetherhost: %s\n", error.what());
        return 2;
    }
    // The rules change the model's answers; a replay sends the recorded ones.
    if (faults && replayRun && !replayRun->thenModel()) {
        std::fprintf(stderr,
                     "tetherhost: --faults changes the model's answers: with --replay it needs "
                     "--replay-then-model\n");
        return 2;
    }
    Trace trace;
    if (!options.trace.empty() && !trace.open(options.trace)) {
        std::fprintf(stderr, "tetherhost: cannot write the trace to %s\n", options.trace.c_str());
        return 2;
    }
    if (faults) {
        const std::size_t rules = faults->rules().size();
        trace.event({0, {}, {}}, "faults: " + std::to_string(rules) + (rules == 1 ? " rule" : " rules") + " from " +
                                     options.faults + ", seed " + std::to_string(faults->seed()));
    }

    asio::io_context io(1);
    Cable cable(config);
    Server server(io, cable, trace, options.limits, std::chrono::seconds(options.idleExit));
    if (replayRun) server.replay(*replayRun);
    if (faults) server.faults(*faults);
    // The doors listen first: once the library's port answers, every door does.
    int listening = options.remoteBitbangPort;
    try {
        if (options.remoteBitbangPort != 0)
            server.listenRemoteBitbang(static_cast<unsigned short>(options.remoteBitbangPort));
        listening = options.xvcPort;
        if (options.xvcPort != 0) server.listenXvc(static_cast<unsigned short>(options.xvcPort));
        listening = options.port;
        server.listen(static_cast<unsigned short>(options.port));
    } catch (const std::system_error& error) {
        std::fprintf(stderr, "tetherhost: cannot listen on 127.0.0.1:%d: %s\n", listening, error.what());
        return 1;
    }
    if (!options.pidFile.empty()) {
        std::ofstream pid(options.pidFile, std::ios::trunc);
        if (!(pid << getpid() << '\n')) {
            std::fprintf(stderr, "tetherhost: cannot write %s\n", options.pidFile.c_str());
            return 2;
        }
    }
    // A replay keeps standard error: its reports go there.
    detachStandardStreams(options.trace == "-" || replayRun);
    server.start();
    io.run();
    const int status = replayRun ? replayRun->finish(trace) : 0;
    if (!options.pidFile.empty()) unlink(options.pidFile.c_str());
    return status;
} catch (const std::exception& error) {
    std::fprintf(stderr, "tetherhost: %s\n", error.what());
    return 1;
}

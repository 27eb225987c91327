// SPDX-License-Identifier: MIT
/* tetherctl: the command-line front end of libtetherhost_client. A host
 * application of the library like any other, built on its exported headers
 * only: it connects (starting the tetherhost server when none answers),
 * takes the locks, runs one subcommand and disconnects. This file holds the
 * command line and turns every way a run can end into an exit code and, for
 * failures, one line on standard error. */
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <functional>
#include <string>

#include "tetherhost/version.h"
#include "tools/Commands.h"
#include "tools/CompletionWords.h"
#include "tools/Failure.h"
#include "tools/StatusCodes.h"

namespace {

using namespace tetherctl;

const char* const sendHelp =
    "Send any command number with typed arguments: i:NUMBER (an int; decimal, or hex with 0x), s:TEXT (a "
    "text of at most 1023 bytes), x:HEX (a block of bytes in wire order; x: alone passes a null pointer). Byte "
    "blocks shorter than the largest integer argument, read as a bit count, are padded with zero bytes. Up to 8 "
    "arguments may come in any order, 9 or 10 in at most 5 runs of one kind (integers, or texts and blocks), 11 to "
    "13 in at most 2 runs. A negative command number goes after --.";

void addCommonOptions(CLI::App& app, CommonOptions& common) {
    app.add_option("--name", common.name, "client name the server knows this run by")->capture_default_str();
    app.add_option("--server-dir", common.serverDirectory,
                   "directory to start the tetherhost server from when none answers (default: tetherctl's own)");
    app.add_option("--log", common.logFile, "the library's log file: one line per message, started empty");
    app.add_flag("--debug", common.debug, "show the library's messages on standard error");
    app.add_flag("--json", common.json, "print the result as one JSON object on standard output");
}

/* Prints `line` on standard error and, with --json, records it. */
int fail(Output& out, int exitCode, const std::string& line, int status = 0, bool hasStatus = false) {
    std::fprintf(stderr, "tetherctl: %s\n", line.c_str());
    Json& error = out.data()["error"];
    error["message"] = line;
    if (hasStatus) error["status"] = status;
    out.finish();
    return exitCode;
}

int run(const std::function<void(Output&)>& command, bool json) {
    Output out(json);
    try {
        command(out);
    } catch (const Failure& failure) {
        const std::string action = failure.what();
        std::string line;
        switch (failure.reading) {
        case Reading::LibraryStatus: line = action + " failed: " + statusLine(failure.status); break;
        case Reading::ServerReply: line = action + ": the server answered " + serverReplyLine(failure.status); break;
        case Reading::LockAnswer:
            line = action + ": the lock was not granted: " + lockAnswerLine(failure.status);
            break;
        }
        return fail(out, exitFailure, line, failure.status, true);
    } catch (const UsageError& error) {
        return fail(out, exitUsage, error.what());
    } catch (const Mismatch& mismatch) {
        return fail(out, exitMismatch, mismatch.what());
    } catch (const TdoMismatch& mismatch) {
        return fail(out, exitFailure, mismatch.what());
    } catch (const Interrupted& interrupted) {
        return fail(out, exitInterrupted, interrupted.what());
    } catch (const std::exception& error) {
        return fail(out, exitFailure, error.what());
    }
    out.finish();
    return exitSuccess;
}

int runTetherctl(int argc, char** argv) {
    CommonOptions common;
    ShiftOptions shift;
    SspiOptions sspi;
    I2cOptions i2c;
    PumpOptions pump;
    SendOptions send;
    SvfOptions svf;
    DecodeOptions decode;
    std::function<void(Output&)> command;

    CLI::App app{"tetherctl: drive the tetherhost cable server through libtetherhost_client"};
    app.set_version_flag("--version", "tetherctl " TETHERHOST_VERSION_STRING);
    // Wide enough for the longest option with its type, so that every
    // description starts in a column of its own (help2man reads them so).
    app.get_formatter()->column_width(40);
    // At most one subcommand; that one is given is checked after parsing, so
    // that a mistyped name is reported as such rather than as a missing one.
    app.require_subcommand(0, 1);
    // The common options may also follow the subcommand.
    app.fallthrough();
    addCommonOptions(app, common);

    app.add_subcommand("chain", "reset the TAPs and list the devices of the JTAG chain with their IDCODEs")
        ->callback([&] { command = [&](Output& out) { runChain(common, out); }; });

    CLI::App* shiftCommand = app.add_subcommand("shift", "one JTAG scan; prints the TDO that comes back");
    shiftCommand->add_option("REGISTER", shift.registerName, "ir (instruction) or dr (data register)")
        ->required()
        ->check(CLI::IsMember({"ir", "dr"}));
    shiftCommand->add_option("BITS", shift.bits, "length of the scan, 1 to 8192")->required();
    shiftCommand->add_option("VALUE", shift.value, "TDI as a hex number; bit 0 is shifted first")->required();
    shiftCommand->callback([&] { command = [&](Output& out) { runShift(common, shift, out); }; });

    CLI::App* sspiCommand =
        app.add_subcommand("sspi", "program the SSPI memory at ADDRESS and read it back, or read it with --read");
    sspiCommand->add_option("ADDRESS", sspi.address, "memory address")->required();
    sspiCommand->add_option("DATA", sspi.data, "bytes to program, in hex (programming only clears bits)");
    sspiCommand->add_option("--read", sspi.readCount, "read COUNT bytes instead of programming");
    sspiCommand->add_flag("--erase", sspi.erase, "erase the touched 4 KiB sectors first");
    sspiCommand->add_flag("--write-only", sspi.writeOnly, "program without reading back (command 50)");
    sspiCommand->callback([&] { command = [&](Output& out) { runSspi(common, sspi, out); }; });

    CLI::App* i2cCommand = app.add_subcommand("i2c", "write bytes to the I2C device from ADDRESS and read them back");
    i2cCommand->add_option("ADDRESS", i2c.wordAddress, "word address in the device")->required();
    i2cCommand->add_option("DATA", i2c.data, "bytes to write, in hex (at most " + std::to_string(maxI2cBytes) + ")")
        ->required();
    i2cCommand->add_option("--device", i2c.device, "7-bit bus address of the device")->capture_default_str();
    i2cCommand->add_flag("--write-only", i2c.writeOnly, "write without reading back (command 46)");
    i2cCommand->callback([&] { command = [&](Output& out) { runI2c(common, i2c, out); }; });

    CLI::App* pumpCommand = app.add_subcommand("pump", "send a file's data to the pump buffer, in pieces");
    pumpCommand->add_option("FILE", pump.file, "the data to pump")->required();
    CLI::Option* verify = pumpCommand->add_flag(
        "--verify", pump.verify,
        "read each piece back and compare (pieces of at most " + std::to_string(maxVerifiedPiece) + " bytes)");
    pumpCommand->add_flag("--append", pump.append, "add to what the buffer holds instead of replacing it")
        ->excludes(verify);
    pumpCommand->add_option("--piece", pump.pieceBytes,
                            "bytes per piece (" + std::to_string(PumpOptions{}.pieceBytes) + "; " +
                                std::to_string(maxVerifiedPiece) + " with --verify)");
    pumpCommand->callback([&] {
        if (pump.verify && pumpCommand->count("--piece") == 0) pump.pieceBytes = maxVerifiedPiece;
        command = [&](Output& out) { runPump(common, pump, out); };
    });

    CLI::App* svfCommand =
        app.add_subcommand("svf", "play an SVF file: exit 0 when every TDO matched, 1 on a mismatch, 2 for a bad file");
    svfCommand->add_option("FILE", svf.file, "the SVF file ('-': standard input)")->required();
    svfCommand->add_flag("--keep-going", svf.keepGoing, "play on after a TDO mismatch and report them all");
    svfCommand->add_flag("--dry-run", svf.dryRun, "read and check the file only, and print its statistics");
    svfCommand->add_flag("--quiet", svf.quiet, "no progress bar");
    svfCommand->callback([&] { command = [&](Output& out) { runSvf(common, svf, out); }; });

    CLI::App* sendCommand = app.add_subcommand("send", "send one command with typed arguments (for experts)");
    sendCommand->footer(sendHelp);
    sendCommand->add_option("CMD", send.command, "command number")->required();
    sendCommand->add_option("ARG", send.arguments, "i:NUMBER, s:TEXT or x:HEX");
    sendCommand->add_option("--reply", send.reply, "read a further reply after the integer one")
        ->check(CLI::IsMember({"int", "text", "list"}));
    sendCommand->add_flag("--session", send.session, "open the session and take the command lock first");
    sendCommand->callback([&] { command = [&](Output& out) { runSend(common, send, out); }; });

    CLI::App* decodeCommand = app.add_subcommand(
        "decode", "print a recording (TETHERHOST_RECORD) or a simulator trace as its conversation; needs no server");
    decodeCommand->add_option("FILE", decode.file, "the recording or trace")->required();
    decodeCommand->callback([&] { command = [&](Output& out) { runDecode(decode, out); }; });

    app.add_subcommand("codes", "list the status codes and what they mean")->callback([&] {
        command = [](Output& out) { runCodes(out); };
    });

    // Hidden: the words the build turns into the bash completion and the man
    // page's subcommand sections.
    app.add_flag_callback("--completion-words",
                          [&app] {
                              std::fputs(completionWords(app).c_str(), stdout);
                              throw CLI::Success();
                          })
        ->group("");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        const int code = app.exit(error);
        return code == 0 ? exitSuccess : exitUsage;
    }
    if (!command) {
        std::fprintf(stderr, "tetherctl: a subcommand is required (see tetherctl --help)\n");
        return exitUsage;
    }
    return run(command, common.json);
}

}  // namespace

int main(int argc, char** argv) {
    // Standard input gets a buffer of its own, so that `svf -` reads it in
    // pieces rather than a byte at a time.
    std::ios::sync_with_stdio(false);
    try {
        return runTetherctl(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tetherctl: %s\n", error.what());
    } catch (...) {
        std::fprintf(stderr, "tetherctl: an unexpected error\n");
    }
    return exitFailure;
}

// SPDX-License-Identifier: MIT
/* tetherctl's subcommands: what each one asks of the server and prints.
 * The command-line parsing that fills their options lives in tetherctl.cpp. */
#ifndef TETHERCTL_COMMANDS_H
#define TETHERCTL_COMMANDS_H

#include <string>
#include <vector>

#include "protocol/Commands.h"
#include "protocol/Frames.h"
#include "support/ByteUnits.h"
#include "tools/Hex.h"
#include "tools/Output.h"
#include "tools/ServerSession.h"

class Client;

namespace tetherctl {

namespace command = tetherhost::protocol::command;
namespace sub = tetherhost::protocol::sub;
namespace shiftFlag = tetherhost::protocol::shiftFlag;

/** Longest scan `tetherctl shift` makes: one block, which comes back whole. */
inline constexpr int maxShiftBits = tetherhost::protocol::singleBlockBits;
/** Longest I2C transfer: one block, which comes back whole. */
inline constexpr std::size_t maxI2cBytes = tetherhost::protocol::frameSize;
/** Longest pump piece that `--verify` reads back whole: one block. Larger
 * pieces travel in chunks whose read-back marks each chunk with a "+" byte
 * in place of data, so they cannot be compared byte for byte. */
inline constexpr int maxVerifiedPiece = tetherhost::protocol::frameBytes;
/** Longest SSPI transfer (its bit count must fit in an int). */
inline constexpr std::size_t maxSspiBytes = 16 * tetherhost::units::mebi;

struct ShiftOptions {
    std::string registerName;  // "ir" or "dr"
    int bits = 0;
    std::string value;
};

struct SspiOptions {
    long address = 0;
    std::string data;
    int readCount = 0;
    bool erase = false;
    bool writeOnly = false;
};

struct I2cOptions {
    long wordAddress = 0;
    std::string data;
    int device = 0x50;
    bool writeOnly = false;
};

struct PumpOptions {
    std::string file;
    bool verify = false;
    bool append = false;
    int pieceBytes = 16 * tetherhost::protocol::frameBytes;
};

struct SvfOptions {
    std::string file;  // "-": standard input
    bool keepGoing = false;
    bool dryRun = false;
    bool quiet = false;
};

struct DecodeOptions {
    std::string file;  // a recording or a simulator trace
};

struct SendOptions {
    int command = 0;
    std::vector<std::string> arguments;
    std::string reply;  // "", "int", "text" or "list"
    bool session = false;
};

void runChain(const CommonOptions& common, Output& out);
void runShift(const CommonOptions& common, const ShiftOptions& options, Output& out);
void runSspi(const CommonOptions& common, const SspiOptions& options, Output& out);
void runI2c(const CommonOptions& common, const I2cOptions& options, Output& out);
void runPump(const CommonOptions& common, const PumpOptions& options, Output& out);
void runSend(const CommonOptions& common, const SendOptions& options, Output& out);
void runSvf(const CommonOptions& common, const SvfOptions& options, Output& out);
void runCodes(Output& out);
/** Prints a recording or a trace as its conversation; needs no server.
 * Throws UsageError for a file that is neither. */
void runDecode(const DecodeOptions& options, Output& out);

/** The scan or bus data of the last transfer with read-back: `byteCount`
 * bytes through GetTDO. Throws a Failure when GetTDO fails. */
Bytes collectReturnedData(Client& client, std::size_t byteCount);

}  // namespace tetherctl

#endif

/* tetherctl's subcommands: what each one asks of the server and prints.
 * The command-line parsing that fills their options lives in tetherctl.cpp. */
#ifndef TETHERCTL_COMMANDS_H
#define TETHERCTL_COMMANDS_H

#include <string>
#include <vector>

#include "Hex.h"
#include "Output.h"
#include "ServerSession.h"

class Client;

namespace tetherctl {

/* The command numbers and JTAG-interface sub-commands tetherctl uses, with
 * the meaning the tetherhost simulator gives them. */
namespace command {
inline constexpr int pumpData = 42;
inline constexpr int jtagInterface = 44;
inline constexpr int i2cWrite = 46;
inline constexpr int i2cWriteReadBack = 48;
inline constexpr int sspiWrite = 50;
inline constexpr int sspiWriteReadBack = 52;
}  // namespace command

namespace jtag {
inline constexpr int resetTaps = 3;
inline constexpr int describeChain = 7;
inline constexpr int shift = 12;
inline constexpr int instructionScanFlag = 1;  // clear: a data-register scan
}  // namespace jtag

/** Longest scan `tetherctl shift` makes: one block of 1024 bytes, which
 * comes back whole. */
inline constexpr int maxShiftBits = 8192;
/** Longest I2C transfer: one block of 1024 bytes, which comes back whole. */
inline constexpr std::size_t maxI2cBytes = 1024;
/** Longest SSPI transfer (its bit count must fit in an int). */
inline constexpr std::size_t maxSspiBytes = std::size_t{16} << 20;

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
    int pieceBytes = 16 * 1024;
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
void runCodes(Output& out);

/** The scan or bus data of the last transfer with read-back: `byteCount`
 * bytes through GetTDO. Throws a Failure when GetTDO fails. */
Bytes collectReturnedData(Client& client, std::size_t byteCount);

}  // namespace tetherctl

#endif

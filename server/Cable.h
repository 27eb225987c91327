// SPDX-License-Identifier: MIT
/* Cable: everything the simulated cable drives (the JTAG chain, the SSPI
 * flash, the I2C EEPROM, the pump buffer) and the list of shared
 * applications, with the meaning that the protocol's commands have for
 * them. One Cable serves every connection of a server. Nothing here knows
 * about sockets. */
#ifndef TETHERHOST_SERVER_CABLE_H
#define TETHERHOST_SERVER_CABLE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/Commands.h"
#include "protocol/Status.h"
#include "server/JtagChain.h"
#include "server/Peripherals.h"
#include "server/TapControl.h"
#include "support/ByteUnits.h"

namespace tetherhost::sim {

/** Integer replies of the simulator. */
namespace reply = tetherhost::protocol::reply;

struct CableConfig {
    std::vector<TapDevice> chain = defaultChain();
    std::size_t sspiSize = 64 * units::kibi;
    int i2cAddress = 0x50;
    std::size_t i2cSize = 256;
    std::size_t pumpCapacity = 16 * units::mebi;
    /** JTAG operations take their virtual time in wall time too. */
    bool realTime = false;
};

/** Longest register that describeDevice writes out in hex. */
inline constexpr std::size_t longestRegisterShown = 128;

/** Scans of more bits than this are taken off the wire but not performed. */
inline constexpr std::int64_t maxScanBits = 32 * units::mebi;

/** The JTAG shift flag bits. */
namespace shiftFlag = tetherhost::protocol::shiftFlag;

/** SSPI option bits (the transfer's last value). */
namespace sspiOption {
inline constexpr int eraseFirst = 1;  // erase the touched sectors before programming
}

struct ShiftResult {
    int status = reply::done;  // done, or tooLong or busy (nothing was shifted)
    std::string tdo;           // (bitCount + 7) / 8 bytes when done
    std::size_t mismatches = 0;
};

struct PumpPlan {
    int code = reply::done;  // what the transfer will answer if not done
    bool keep = false;       // whether the block goes into the buffer
};

class Cable {
public:
    explicit Cable(const CableConfig& config = CableConfig{});

    /** A scan of `bitCount` bits of `tdi`, an instruction scan when `flags`
     * has shiftFlag::instructionScan. With `mask`, the TDO is compared with
     * `expected` (or zeros) where the mask is 1. */
    ShiftResult shift(int flags, std::int64_t bitCount, const std::string& tdi, const std::string* expected,
                      const std::string* mask);
    /** Number of devices; `description` becomes "name,irLength,idcode;" per
     * device from TDI to TDO, the IDCODE as 0x and eight hex digits or "none". */
    int describeChain(std::string& description) const;
    /** Number of devices, or outOfRange for an `index` outside the chain;
     * `registers` becomes device `index`'s name and registers as they hold
     * now, "name;instruction=0x..;ir=0x..;fixed=0x..;" and "NAME=0x..;" for
     * each listed instruction, so that two ways of driving the chain can be
     * compared register by register. A register longer than
     * `longestRegisterShown` bits is given by its length and an FNV-1a digest
     * of its bits ("4096 bits fnv1a 0x...") to keep the text within a token. */
    int describeDevice(int index, std::string& registers) const;

    /** Programs `data` at `address`; SSPI options in `options`. */
    int sspiWrite(std::int64_t address, std::string_view data, int options);
    /** done, or outOfRange when [address, address + count) leaves the memory. */
    int sspiReadStatus(std::int64_t address, std::size_t count) const;
    /** Bytes [offset, offset + length) of a read of `count` bytes at
     * `address`: the memory's, or 0xFF (an idle data line) when the whole
     * read is out of range. */
    std::string sspiRead(std::int64_t address, std::size_t count, std::size_t offset, std::size_t length) const;

    /** Writes `data` to the I2C device at `busAddress` from `wordAddress`;
     * a write longer than the device's memory is out of range. */
    int i2cWrite(int busAddress, std::int64_t wordAddress, std::string_view data);
    /** done, noAcknowledge (nobody answers `busAddress`) or outOfRange. */
    int i2cReadStatus(int busAddress, std::int64_t wordAddress) const;
    /** Bytes [offset, offset + length) of a read from `wordAddress`, which
     * wraps at the end of the memory; 0xFF (an idle bus) when it fails. */
    std::string i2cRead(int busAddress, std::int64_t wordAddress, std::size_t offset, std::size_t length) const;

    /** Decides what a pump transfer of `size` bytes in `modeValue` does and
     * prepares the buffer (Replace empties it when the block will be kept). */
    PumpPlan planPump(int modeValue, std::size_t size);
    /** The pump command's integer reply: the bytes held, or the plan's code. */
    int pumpReply(const PumpPlan& plan) const;

    /** Keeps the names of a shared-applications block (";"-terminated names
     * up to the first NUL); returns how many there are. */
    int setSharedApps(std::string_view block);
    const std::string& sharedApps() const { return sharedList; }
    int sharedAppCount() const;

    JtagChain jtag;
    TapControl tap{jtag};
    SspiFlash sspi;
    I2cEeprom eeprom;
    PumpBuffer pump;

private:
    std::string sharedList;
};

}  // namespace tetherhost::sim

#endif

// SPDX-License-Identifier: MIT
/* Reading a JTAG chain from the bits that a data-register scan brings back
 * after a TAP reset: each device shifts out its 32-bit IDCODE (whose bit 0
 * is 1) or, without one, its one-bit BYPASS register (which captures 0); the
 * scan's own all-ones input follows the last device. */
#ifndef TETHERCTL_CHAINSCAN_H
#define TETHERCTL_CHAINSCAN_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/Hex.h"

namespace tetherctl {

/** Longest chain tetherctl reads, and the scan length that covers it: every
 * device with an IDCODE, then one more word of the all-ones input. */
inline constexpr int maxChainDevices = 32;
inline constexpr int chainScanBits = (maxChainDevices + 1) * 32;

struct ChainDevice {
    /** Absent for a device that selects BYPASS after reset. */
    std::optional<std::uint32_t> idcode;
};

/** The devices whose registers `tdo` holds (bit 0 of byte 0 first out), in
 * chain order from the cable's TDI to its TDO. Throws std::runtime_error
 * when the bits do not end in the all-ones input within `bitCount` bits. */
std::vector<ChainDevice> decodeChain(const Bytes& tdo, int bitCount);

struct IdcodeFields {
    unsigned version;       // bits 28 to 31
    unsigned part;          // bits 12 to 27
    unsigned manufacturer;  // bits 1 to 11: JEP106 bank (continuation codes) and identity
};

IdcodeFields idcodeFields(std::uint32_t idcode);

/** "0x" and eight upper-case hex digits. */
std::string idcodeText(std::uint32_t idcode);

}  // namespace tetherctl

#endif

// SPDX-License-Identifier: MIT
/* Decoding the chain scan and the fields of an IDCODE. */
#include "tools/ChainScan.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace tetherctl {

namespace {

constexpr std::uint32_t allOnes = 0xFFFFFFFFu;

bool bitAt(const Bytes& bits, int index) {
    const auto position = static_cast<std::size_t>(index);
    return position / 8 < bits.size() && (bits[position / 8] >> (position % 8) & 1) != 0;
}

std::uint32_t wordAt(const Bytes& bits, int first) {
    std::uint32_t word = 0;
    for (int i = 0; i < 32; ++i)
        if (bitAt(bits, first + i)) word |= std::uint32_t{1} << i;
    return word;
}

}  // namespace

std::vector<ChainDevice> decodeChain(const Bytes& tdo, int bitCount) {
    // The first bits out come from the device next to TDO.
    std::vector<ChainDevice> fromTdo;
    int position = 0;
    for (;;) {
        if (fromTdo.size() > static_cast<std::size_t>(maxChainDevices))
            throw std::runtime_error("the chain scan shows more than " + std::to_string(maxChainDevices) +
                                     " devices; is TDO stuck at 0?");
        const bool idcodeBit = bitAt(tdo, position);
        if (position + (idcodeBit ? 32 : 1) > bitCount)
            throw std::runtime_error("the chain scan ended before the devices did");
        if (!idcodeBit) {
            fromTdo.push_back({});
            ++position;
            continue;
        }
        const std::uint32_t word = wordAt(tdo, position);
        if (word == allOnes) break;
        fromTdo.push_back({word});
        position += 32;
    }
    std::reverse(fromTdo.begin(), fromTdo.end());
    return fromTdo;
}

IdcodeFields idcodeFields(std::uint32_t idcode) { return {idcode >> 28, idcode >> 12 & 0xFFFFu, idcode >> 1 & 0x7FFu}; }

std::string idcodeText(std::uint32_t idcode) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", idcode);
    return text;
}

}  // namespace tetherctl

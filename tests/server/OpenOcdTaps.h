// SPDX-License-Identifier: MIT
/* How OpenOCD is told about a chain file's devices: one "jtag newtap" per
 * device with its IR length, the capture value and mask where the device
 * does not capture ...01 (OpenOCD checks ...01 by default), and the
 * IDCODE it must find. OpenOCD declares the TAP next to TDO first; the
 * chain file lists from TDI. Each TAP is named d<k> after its place in the
 * file (d0 next to TDI), so "d<k>.tap" in OpenOCD's output is device k.
 * Also the name of a test of one chain. */
#ifndef TETHERHOST_TESTS_OPENOCDTAPS_H
#define TETHERHOST_TESTS_OPENOCDTAPS_H

#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <string>
#include <vector>

#include "server/JtagChain.h"

namespace tetherhost::test {

inline std::string openOcdHex(std::uint64_t value) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%" PRIx64, value);
    return text;
}

inline std::vector<std::string> openOcdTapDeclarations(const std::vector<sim::TapDevice>& devices) {
    std::vector<std::string> declarations;
    for (std::size_t k = devices.size(); k-- > 0;) {
        const sim::TapDevice& device = devices[k];
        std::string declaration =
            "jtag newtap d" + std::to_string(k) + " tap -irlen " + std::to_string(device.irLength);
        if ((device.irCapture & 0b11) != 0b01) {
            const std::uint64_t mask = device.irLength >= 32 ? 0xFFFFFFFFU : (std::uint64_t{1} << device.irLength) - 1;
            declaration += " -ircapture " + openOcdHex(device.irCapture & mask) + " -irmask " + openOcdHex(mask);
        }
        if (device.idcode) declaration += " -expected-id " + openOcdHex(*device.idcode);
        declarations.push_back(declaration);
    }
    return declarations;
}

/** A chain's name as a test name: GoogleTest allows no '-'. */
inline std::string chainTestName(const ::testing::TestParamInfo<std::string>& info) {
    std::string name = info.param;
    for (char& c : name)
        if (c == '-') c = '_';
    return name;
}

}  // namespace tetherhost::test

#endif

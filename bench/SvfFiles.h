// SPDX-License-Identifier: MIT
/* SvfFiles: the SVF files the SVF benchmark plays, written at run time, and
 * the scans they make as bytes in wire order, so that the floor client can
 * make the same scans without reading SVF. Every file is for one TAP shaped
 * as chains/xc7a35t.json describes the Artix-7 XC7A35T, which the simulator
 * and the minimal remote_bitbang server both model: a 6-bit instruction
 * register that captures 01, and IDCODE (0x09) selecting a 32-bit register
 * that captures 0x0362D093. The minimal server decodes no instruction (every
 * data scan goes through its 32-bit register), so the long scan goes through
 * IDCODE rather than BYPASS: what comes out is the IDCODE, then TDI 32 bits
 * late. Every scan gives TDO, so that each player reads it back and compares. */
#ifndef TETHERHOST_BENCH_SVFFILES_H
#define TETHERHOST_BENCH_SVFFILES_H

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

namespace tetherhost::bench {

inline constexpr const char* svfChainName = "xc7a35t";
inline constexpr int svfIrLength = 6;
inline constexpr std::uint32_t svfIdcode = 0x0362D093;

/* One compared scan. Each vector is (bits + 7) / 8 bytes, the first bit
 * shifted being bit 0 of byte 0, and the bits past `bits` in the last byte 0,
 * as the SVF player holds them. */
struct WireScan {
    bool instruction = false;  // SIR (true) or SDR
    int bits = 0;
    std::vector<unsigned char> tdi, expected, mask;
};

/* SIR 6 selecting IDCODE, compared with the instruction register's capture. */
WireScan selectIdcode();
/* SDR 32 of zeros, compared with the IDCODE. */
WireScan readIdcode();
/* SDR `bits` (a multiple of 8) of a fixed pattern through the IDCODE
 * register, compared with the IDCODE followed by the pattern 32 bits late. */
WireScan longScan(int bits);

/* Writes SVF statements into a file, one per scan: TDI and TDO in hex, most
 * significant digit first, in lines of 128 digits as many vendor tools cut
 * them. No MASK is written: the player and OpenOCD both compare every bit. */
class SvfWriter {
public:
    explicit SvfWriter(const std::string& path);
    void comment(const std::string& text);
    void write(const WireScan& scan);
    /** Flushes and closes the file; its size in bytes. */
    std::uint64_t finish();

private:
    void hex(int bits, const std::vector<unsigned char>& bytes);

    std::ofstream out;
    std::string line;  // reused for each hex value
};

}  // namespace tetherhost::bench

#endif

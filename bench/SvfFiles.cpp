// SPDX-License-Identifier: MIT
/* SvfFiles: the benchmark's scans as bytes and as SVF text. */
#include "SvfFiles.h"

#include <algorithm>
#include <stdexcept>

namespace tetherhost::bench {

namespace {

constexpr unsigned char idcodeInstruction = 0x09;
constexpr unsigned char irCapture = 0x01;
constexpr int idcodeBits = 32;
constexpr std::size_t digitsPerLine = 128;

std::size_t byteCount(int bits) { return static_cast<std::size_t>((bits + 7) / 8); }

/* All `bits` ones, the bits past the end of the last byte 0. */
std::vector<unsigned char> ones(int bits) {
    std::vector<unsigned char> bytes(byteCount(bits), 0xFF);
    if (bits % 8 != 0) bytes.back() = static_cast<unsigned char>((1U << (bits % 8)) - 1);
    return bytes;
}

std::vector<unsigned char> littleEndian(std::uint32_t value) {
    return {static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8),
            static_cast<unsigned char>(value >> 16), static_cast<unsigned char>(value >> 24)};
}

}  // namespace

WireScan selectIdcode() { return {true, svfIrLength, {idcodeInstruction}, {irCapture}, ones(svfIrLength)}; }

WireScan readIdcode() {
    return {false, idcodeBits, std::vector<unsigned char>(byteCount(idcodeBits), 0), littleEndian(svfIdcode),
            ones(idcodeBits)};
}

WireScan longScan(int bits) {
    if (bits % 8 != 0 || bits < idcodeBits) throw std::invalid_argument("a long scan is whole bytes past the IDCODE");
    WireScan scan{false, bits, std::vector<unsigned char>(byteCount(bits)), {}, ones(bits)};
    for (std::size_t i = 0; i < scan.tdi.size(); ++i) scan.tdi[i] = static_cast<unsigned char>((i * 37 + 11) & 0xFFU);
    // The register hands out its capture first, then what went in, a whole
    // number of bytes late.
    scan.expected = littleEndian(svfIdcode);
    scan.expected.insert(scan.expected.end(), scan.tdi.begin(), scan.tdi.end() - idcodeBits / 8);
    return scan;
}

SvfWriter::SvfWriter(const std::string& path) : out(path, std::ios::binary | std::ios::trunc) {
    if (!out) throw std::runtime_error("cannot write " + path);
}

void SvfWriter::comment(const std::string& text) { out << "! " << text << '\n'; }

void SvfWriter::hex(int bits, const std::vector<unsigned char>& bytes) {
    static constexpr char digitOf[] = "0123456789ABCDEF";
    const std::size_t digits = static_cast<std::size_t>((bits + 3) / 4);
    out << '(';
    for (std::size_t done = 0; done < digits;) {
        const std::size_t count = std::min(digitsPerLine, digits - done);
        line.clear();
        for (std::size_t i = 0; i < count; ++i) {
            // Digit 0 of the text is the most significant nibble.
            const std::size_t nibble = digits - 1 - (done + i);
            line.push_back(digitOf[(bytes[nibble / 2] >> (4 * (nibble % 2))) & 0xFU]);
        }
        if (done > 0) out << "\n\t";
        out << line;
        done += count;
    }
    out << ')';
}

void SvfWriter::write(const WireScan& scan) {
    out << (scan.instruction ? "SIR " : "SDR ") << scan.bits << " TDI ";
    hex(scan.bits, scan.tdi);
    out << " TDO ";
    hex(scan.bits, scan.expected);
    out << ";\n";
}

std::uint64_t SvfWriter::finish() {
    const auto size = static_cast<std::uint64_t>(out.tellp());
    out.close();
    if (!out) throw std::runtime_error("could not write an SVF file");
    return size;
}

}  // namespace tetherhost::bench

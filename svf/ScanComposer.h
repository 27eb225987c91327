// SPDX-License-Identifier: MIT
/* ScanComposer: the rules that carry from one SVF statement to the next,
 * applied to the statements a Reader hands out, and the full scans they
 * make. For each of SIR, SDR, HIR, HDR, TIR and TDR it keeps the last
 * length, TDI and MASK: TDI and MASK stay while the length stays, a new
 * length needs a new TDI (unless it is 0), and MASK falls back to all ones
 * when the length changes. TDO is not kept: a SIR or SDR is compared only
 * when it gives TDO itself. Header bits (HIR, HDR; the devices nearer TDO)
 * are shifted first, then the statement's, then the trailer's (TIR, TDR).
 * As OpenOCD's svf command does, the header and trailer take part in the
 * comparison of a compared scan with the TDO and MASK of the HIR/HDR/TIR/TDR
 * statement that set them, and are not compared (mask 0) when that statement
 * gave no TDO. */
#ifndef TETHERHOST_SVF_SCANCOMPOSER_H
#define TETHERHOST_SVF_SCANCOMPOSER_H

#include <optional>
#include <string>

#include "svf/Bits.h"
#include "svf/Statement.h"

namespace tetherhost::svf {

struct Scan {
    bool instruction = false;  // SIR (true) or SDR
    Bits tdi;                  // header + body + trailer, header shifted first
    bool check = false;        // TDO is compared: the SIR or SDR gave TDO
    Bits expected, mask;       // when check: as long as tdi, mask 1 where compared; otherwise empty
};

class ScanComposer {
public:
    /** Sir/Sdr: the scan to make. Hir/Hdr/Tir/Tdr: updates the header or trailer, nullopt.
     *  Other kinds: nullopt. Throws Error, at the statement's first word, for a broken rule:
     *  a new length without TDI, or TRST other than ABSENT after TRST ABSENT. */
    std::optional<Scan> take(const Statement& statement, const std::string& fileName);

private:
    struct Kept {
        std::uint64_t length = 0;
        Bits tdi, mask;
        std::optional<Bits> tdo;  // headers and trailers only: the TDO their statement gave
    };
    Kept& keptFor(Kind kind);
    void keep(Kept& kept, const Statement& statement, const std::string& fileName);
    static void appendExpected(Scan& scan, const Kept& part);

    Kept sir, sdr, hir, hdr, tir, tdr;
    std::optional<long> trstAbsentLine;  // where TRST ABSENT was given
};

}  // namespace tetherhost::svf

#endif

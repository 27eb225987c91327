// SPDX-License-Identifier: MIT
/* ScanComposer: the kept parameters of each scan kind and the composed scan. */
#include "svf/ScanComposer.h"

#include "svf/Error.h"

namespace tetherhost::svf {

ScanComposer::Kept& ScanComposer::keptFor(Kind kind) {
    switch (kind) {
    case Kind::Sir: return sir;
    case Kind::Hir: return hir;
    case Kind::Hdr: return hdr;
    case Kind::Tir: return tir;
    case Kind::Tdr: return tdr;
    default: return sdr;
    }
}

void ScanComposer::keep(Kept& kept, const Statement& statement, const std::string& fileName) {
    const ScanFields& fields = statement.scan;
    const bool newLength = fields.length != kept.length;
    if (fields.tdi) {
        kept.tdi = *fields.tdi;
    } else if (newLength) {
        // No bits to shift need no TDI; any others cannot come from a TDI of another length.
        if (fields.length != 0) {
            throw Error(fileName, statement.firstLine, statement.firstColumn,
                        std::string(svfKeyword(statement.kind)) + " changes the scan length from " +
                            std::to_string(kept.length) + " to " + std::to_string(fields.length) +
                            " bits without giving TDI");
        }
        kept.tdi = Bits{};
    }
    if (fields.mask) {
        kept.mask = *fields.mask;
    } else if (newLength) {
        kept.mask = Bits::ones(fields.length);
    }
    kept.length = fields.length;
}

void ScanComposer::appendExpected(Scan& scan, const Kept& part) {
    scan.expected.append(part.tdo ? *part.tdo : Bits::zeros(part.length));
    scan.mask.append(part.tdo ? part.mask : Bits::zeros(part.length));
}

std::optional<Scan> ScanComposer::take(const Statement& statement, const std::string& fileName) {
    switch (statement.kind) {
    case Kind::Hir:
    case Kind::Hdr:
    case Kind::Tir:
    case Kind::Tdr: {
        Kept& kept = keptFor(statement.kind);
        keep(kept, statement, fileName);
        kept.tdo = statement.scan.tdo;
        return std::nullopt;
    }
    case Kind::Sir:
    case Kind::Sdr: {
        Kept& body = keptFor(statement.kind);
        keep(body, statement, fileName);
        const bool instruction = statement.kind == Kind::Sir;
        const Kept& header = instruction ? hir : hdr;
        const Kept& trailer = instruction ? tir : tdr;
        Scan scan;
        scan.instruction = instruction;
        scan.tdi = header.tdi;
        scan.tdi.append(body.tdi);
        scan.tdi.append(trailer.tdi);
        if (statement.scan.tdo) {
            scan.check = true;
            appendExpected(scan, header);
            scan.expected.append(*statement.scan.tdo);
            scan.mask.append(body.mask);
            appendExpected(scan, trailer);
        }
        return scan;
    }
    case Kind::Trst:
        if (statement.trst == TrstMode::Absent) {
            if (!trstAbsentLine) trstAbsentLine = statement.firstLine;
        } else if (trstAbsentLine) {
            static constexpr const char* modes[] = {"ON", "OFF", "Z"};
            throw Error(fileName, statement.firstLine, statement.firstColumn,
                        std::string("TRST ") + modes[static_cast<int>(statement.trst)] + " after TRST ABSENT on line " +
                            std::to_string(*trstAbsentLine) + ": the file said the chain has no TRST");
        }
        return std::nullopt;
    default: return std::nullopt;
    }
}

}  // namespace tetherhost::svf

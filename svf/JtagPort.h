// SPDX-License-Identifier: MIT
/* JtagPort: what the SVF player asks of a cable, one call per operation, so
 * that the SVF semantics (Player) stay apart from how a cable is reached
 * (ClientPort: the library's commands). Each call answers the cable's
 * status: 0 or more when done, negative when it failed. */
#ifndef TETHERHOST_SVF_JTAGPORT_H
#define TETHERHOST_SVF_JTAGPORT_H

#include <cstdint>

#include "svf/Bits.h"
#include "svf/ScanComposer.h"
#include "svf/Statement.h"

namespace tetherhost::svf {

struct ScanResult {
    /** At least 0: the compared bits that differ (0 for a scan not
     * compared); negative: the scan failed. */
    int status = 0;
    /** When read back: as long as the scan; bits at and past `returned`
     * did not come back and are 0. */
    Bits tdo;
    std::uint64_t returned = 0;
};

class JtagPort {
public:
    virtual ~JtagPort() = default;

    /** One scan from the current state to the end state of its kind; the
     * TDO comes back when the scan is compared. */
    virtual ScanResult scan(const Scan& scan) = 0;
    /** Where scans of this kind end from now on (a stable state). */
    virtual int setEndState(bool instruction, State state) = 0;
    /** To a stable state by the shortest TMS path. */
    virtual int moveTo(State state) = 0;
    /** One TCK to `state`, which must follow the current one. */
    virtual int stepTo(State state) = 0;
    /** `count` cycles of `clock` in the current stable state, taking at
     * least `minimumNs` nanoseconds. */
    virtual int runTest(std::uint64_t count, std::uint64_t minimumNs, Clock clock) = 0;
    virtual int setTrst(bool asserted) = 0;
    virtual int setFrequency(int hz) = 0;
};

}  // namespace tetherhost::svf

#endif

// SPDX-License-Identifier: MIT
/* SvfFloor: the floor the SVF player is held against. A client on plain
 * send and recv that makes, byte for byte, the exchange the library makes
 * for each compared scan the player sends (command 44, sub-command 12: the
 * flags, the bit count, the TDI, expected TDO and mask blocks, the go
 * token, the status, the read-back and the integer reply), with one receive
 * wherever the library receives once. It reads no SVF and keeps no messages:
 * the scans come to it as bytes, so that what is left is the protocol's own
 * cost. SvfBench checks once per run, in the simulator's traces, that its
 * frames are the library's. */
#ifndef TETHERHOST_BENCH_SVFFLOOR_H
#define TETHERHOST_BENCH_SVFFLOOR_H

#include <vector>

#include "SvfFiles.h"
#include "protocol/Frames.h"

namespace tetherhost::bench {

class SvfFloorClient {
public:
    /** Connects to 127.0.0.1:4001 and introduces itself as `name`, as
     * Connect does. */
    explicit SvfFloorClient(const char* name);
    ~SvfFloorClient();
    SvfFloorClient(const SvfFloorClient&) = delete;
    SvfFloorClient& operator=(const SvfFloorClient&) = delete;

    /** One compared scan: the server's count of differing bits, its
     * negative status, or -1 when the exchange broke (a failed send or
     * receive, an acknowledgement or chunk without its "+"). */
    int scan(const WireScan& scan);

private:
    /** The decimal token of `value`, then one receive of at most `capacity`
     * bytes, which must begin with "+" when `acknowledged`. */
    bool token(int value, long capacity, bool acknowledged);
    bool sendGo();
    bool sendBlocks(const WireScan& scan, const protocol::BlockShape& shape);
    bool readBack(const protocol::BlockShape& shape, long carried);

    int socket;
    char reply[protocol::frameSize + 1] = {};
    std::vector<unsigned char> outgoing;  // a single block and its zero byte, or one chunk
    std::vector<unsigned char> tdo;       // the read-back as received (chunks with their "+")
};

}  // namespace tetherhost::bench

#endif

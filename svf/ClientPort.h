// SPDX-License-Identifier: MIT
/* ClientPort: the SVF player's operations as the library's commands: a
 * scan is one command-44 JTAG shift (sub-command 12) with the expected TDO
 * and mask as its second and third blocks, so that the server compares and
 * answers the count of differing bits; end states, moves, path steps,
 * RUNTEST, TRST and the TCK frequency are the TAP-control sub-commands. */
#ifndef TETHERHOST_SVF_CLIENTPORT_H
#define TETHERHOST_SVF_CLIENTPORT_H

#include <vector>

#include "svf/JtagPort.h"

class Client;

namespace tetherhost::svf {

class ClientPort : public JtagPort {
public:
    explicit ClientPort(Client& client) : client(client) {}

    ScanResult scan(const Scan& scan) override;
    int setEndState(bool instruction, State state) override;
    int moveTo(State state) override;
    int stepTo(State state) override;
    int runTest(std::uint64_t count, std::uint64_t minimumNs, Clock clock) override;
    int setTrst(bool asserted) override;
    int setFrequency(int hz) override;

private:
    /** The read-back of a `bitCount`-bit scan, with each chunk's leading
     * "+" dropped. */
    void collect(int bitCount, ScanResult& result);

    Client& client;
    std::vector<unsigned char> received;  // reused: a long scan's read-back is large
};

}  // namespace tetherhost::svf

#endif

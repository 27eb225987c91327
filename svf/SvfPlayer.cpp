// SPDX-License-Identifier: MIT
/* check and play: a file read statement by statement, through a port that
 * sends nothing (check) or through the client's commands (play). */
#include "SvfPlayer.h"

#include "svf/ClientPort.h"
#include "svf/Player.h"

namespace tetherhost::svf {

namespace {

/** Answers every operation as done and sends nothing: the whole file is read
 * and every rule applied, as playing it would. */
class CheckingPort : public JtagPort {
public:
    ScanResult scan(const Scan&) override { return {}; }
    int setEndState(bool, State) override { return 0; }
    int moveTo(State) override { return 0; }
    int stepTo(State) override { return 0; }
    int runTest(std::uint64_t, std::uint64_t, Clock) override { return 0; }
    int setTrst(bool) override { return 0; }
    int setFrequency(int) override { return 0; }
};

}  // namespace

Report check(std::istream& in, const std::string& name) {
    CheckingPort port;
    return playStream(port, in, name, Options());
}

Report play(Client& client, std::istream& in, const std::string& name, const Options& options) {
    ClientPort port(client);
    return playStream(port, in, name, options);
}

}  // namespace tetherhost::svf

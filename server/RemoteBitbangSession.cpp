// SPDX-License-Identifier: MIT
/* RemoteBitbangSession: the remote_bitbang door's protocol for a chain door
 * connection: what arrives is carried out on the chain at once, and the TDO
 * answers go back in one send per receive, as OpenOCD batches its reads. */
#include "server/ChainDoor.h"

#include <cstdio>

#include "server/RemoteBitbang.h"

namespace tetherhost::sim {

namespace {

std::string byteName(unsigned char byte) {
    char name[8];
    std::snprintf(name, sizeof name, "0x%02X", byte);
    return name;
}

class RemoteBitbangDoor final : public ChainDoorProtocol {
public:
    explicit RemoteBitbangDoor(JtagChain& chain) : door(chain) {}

    std::optional<std::string> feed(std::string_view received, std::string& answers) override {
        switch (door.feed(received, answers)) {
        case RemoteBitbang::Outcome::More: return std::nullopt;
        case RemoteBitbang::Outcome::Quit: return "quit";
        case RemoteBitbang::Outcome::Garbage: return "not a remote_bitbang request: " + byteName(door.garbage());
        }
        return std::nullopt;
    }

    std::uint64_t cycles() const override { return door.cycles(); }

private:
    RemoteBitbang door;
};

}  // namespace

std::unique_ptr<ChainDoorProtocol> remoteBitbangDoor(ServerState& state, const Trace::Where& /*where*/) {
    return std::make_unique<RemoteBitbangDoor>(state.cable.jtag);
}

}  // namespace tetherhost::sim

// SPDX-License-Identifier: MIT
/* XvcSession: the XVC door's protocol for a chain door connection: what
 * arrives is handed to Xvc, which keeps a command cut between receives until
 * its rest comes; the answers of one receive go back in one send. */
#include "server/ChainDoor.h"

#include "server/Xvc.h"

namespace tetherhost::sim {

namespace {

class XvcDoor final : public ChainDoorProtocol {
public:
    XvcDoor(JtagChain& chain, Trace& trace, const Trace::Where& where) : door(chain), trace(trace), where(where) {}

    std::optional<std::string> feed(std::string_view received, std::string& answers) override {
        const std::optional<std::uint32_t> periodBefore = door.tckPeriod();
        const Xvc::Outcome outcome = door.feed(received, answers);
        if (door.tckPeriod() != periodBefore)
            trace.event(where, "TCK period " + std::to_string(*door.tckPeriod()) + " ns");
        if (outcome == Xvc::Outcome::Garbage) return door.garbage();
        return std::nullopt;
    }

    std::uint64_t cycles() const override { return door.cycles(); }

private:
    Xvc door;
    Trace& trace;
    const Trace::Where where;
};

}  // namespace

std::unique_ptr<ChainDoorProtocol> xvcDoor(ServerState& state, const Trace::Where& where) {
    return std::make_unique<XvcDoor>(state.cable.jtag, state.trace, where);
}

}  // namespace tetherhost::sim

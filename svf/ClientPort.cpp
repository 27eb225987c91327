// SPDX-License-Identifier: MIT
/* ClientPort: SVF operations through Client::Send and GetTDO. */
#include "svf/ClientPort.h"

#include <algorithm>
#include <climits>

#include "Client.h"
#include "protocol/Commands.h"
#include "protocol/Frames.h"
#include "protocol/Status.h"

namespace tetherhost::svf {

namespace {

namespace command = protocol::command;
namespace sub = protocol::sub;
namespace shiftFlag = protocol::shiftFlag;

int high(std::uint64_t value) { return static_cast<int>(static_cast<std::uint32_t>(value >> 32)); }
int low(std::uint64_t value) { return static_cast<int>(static_cast<std::uint32_t>(value)); }

/** The library copies a block's bytes and never writes to them; a 0-bit
 * scan's empty block still needs an address, since a null first block is
 * refused. */
unsigned char* block(const Bits& bits) {
    static unsigned char empty = 0;
    return bits.bytes.empty() ? &empty : const_cast<unsigned char*>(bits.bytes.data());
}

}  // namespace

ScanResult ClientPort::scan(const Scan& scan) {
    ScanResult result;
    if (scan.tdi.length > static_cast<std::uint64_t>(INT_MAX)) {
        result.status = protocol::reply::tooLong;
        return result;
    }
    const int bitCount = static_cast<int>(scan.tdi.length);
    // TDO comes back from a compared scan only, for the mismatch report; a
    // 0-bit scan has none.
    const bool readTdo = scan.check && bitCount > 0;
    const int flags = (scan.instruction ? shiftFlag::instructionScan : 0) | (readTdo ? 0 : shiftFlag::noReadBack);
    if (scan.check)
        result.status = client.Send(command::jtagInterface, sub::jtagShift, flags, bitCount, 1, 1, block(scan.tdi),
                                    block(scan.expected), block(scan.mask));
    else
        result.status = client.Send(command::jtagInterface, sub::jtagShift, flags, bitCount, 0, 0, block(scan.tdi));
    if (result.status >= 0 && readTdo) collect(bitCount, result);
    return result;
}

void ClientPort::collect(int bitCount, ScanResult& result) {
    const protocol::BlockShape shape = protocol::BlockShape::ofShift(bitCount);
    // A chunked read-back keeps each chunk's "+" before its 1023 TDO bytes.
    const std::size_t stored = shape.single ? static_cast<std::size_t>(shape.byteCount)
                                            : static_cast<std::size_t>(shape.chunkCount) * protocol::frameSize;
    received.resize(stored);
    const int status = client.GetTDO(reinterpret_cast<char*>(received.data()), static_cast<int>(stored * 8));
    if (status < 0) {
        result.status = status;
        return;
    }
    result.tdo = Bits::zeros(static_cast<std::uint64_t>(bitCount));
    std::size_t returnedBytes = 0;
    if (shape.single) {
        returnedBytes = stored;
        std::copy(received.begin(), received.end(), result.tdo.bytes.begin());
    } else {
        const std::size_t wanted = result.tdo.bytes.size();
        for (std::size_t chunk = 0; chunk < stored / protocol::frameSize && returnedBytes < wanted; ++chunk) {
            const auto payload = received.begin() + static_cast<std::ptrdiff_t>(chunk * protocol::frameSize + 1);
            const std::size_t take = std::min(protocol::framedPayload, wanted - returnedBytes);
            std::copy(payload, payload + static_cast<std::ptrdiff_t>(take),
                      result.tdo.bytes.begin() + static_cast<std::ptrdiff_t>(returnedBytes));
            returnedBytes += take;
        }
    }
    // The bits past the scan's end in its last byte are not TDO.
    if (const std::uint64_t spare = result.tdo.length % 8; spare != 0)
        result.tdo.bytes.back() &= static_cast<unsigned char>((1U << spare) - 1);
    result.returned = std::min<std::uint64_t>(static_cast<std::uint64_t>(returnedBytes) * 8, result.tdo.length);
}

int ClientPort::setEndState(bool instruction, State state) {
    return client.Send(command::jtagInterface, instruction ? sub::irEndState : sub::drEndState,
                       static_cast<int>(state));
}

int ClientPort::moveTo(State state) {
    return client.Send(command::jtagInterface, sub::moveToState, static_cast<int>(state));
}

int ClientPort::stepTo(State state) {
    return client.Send(command::jtagInterface, sub::stepToState, static_cast<int>(state));
}

int ClientPort::runTest(std::uint64_t count, std::uint64_t minimumNs, Clock clock) {
    return client.Send(command::jtagInterface, sub::runTest, high(count), low(count), high(minimumNs), low(minimumNs),
                       clock == Clock::Sck ? 1 : 0);
}

int ClientPort::setTrst(bool asserted) { return client.Send(command::jtagInterface, sub::trst, asserted ? 1 : 0); }

int ClientPort::setFrequency(int hz) { return client.Send(command::jtagInterface, sub::tckFrequency, hz); }

}  // namespace tetherhost::svf

// SPDX-License-Identifier: MIT
/* SessionJtag: command 44, the JTAG interface: its sub-commands and the JTAG
 * shift (sub-command 12). */
#include "server/Conversation.h"

#include <algorithm>
#include <array>
#include <asio/steady_timer.hpp>
#include <asio/this_coro.hpp>
#include <asio/use_awaitable.hpp>
#include <chrono>

namespace tetherhost::sim {

asio::awaitable<int> Conversation::jtagInterface() {
    const std::uint64_t startedNs = cable.tap.virtualNs();
    const int value = co_await jtagOperation();
    if (cable.tap.realTime()) {
        // The cable takes as long as its clock says: the reply waits out the
        // virtual time this operation added, without holding up the others.
        asio::steady_timer spent(co_await asio::this_coro::executor,
                                 std::chrono::nanoseconds(cable.tap.virtualNs() - startedNs));
        co_await spent.async_wait(asio::use_awaitable);
    }
    co_return value;
}

asio::awaitable<int> Conversation::jtagOperation() {
    const std::string frame = co_await token("sub-command");
    if (frame.empty()) {
        // The zero filler of a fixed 1024-byte "44" frame: the one-call
        // JTAG shift, which pads every token frame to 1024 bytes.
        co_await oneCallShift();
        co_return reply::done;
    }
    const std::optional<int> number = parseInt(frame);
    if (!number) throw ProtocolError("not a sub-command number: " + shortened(frame));
    label = commandToken + "/" + frame;
    subNumber = *number;
    co_await acknowledge("ack");
    using protocol::SubPattern;
    const protocol::SubCommand shape = protocol::subCommand(*number);
    switch (shape.pattern) {
    case SubPattern::Unknown: break;
    case SubPattern::NoArgs: co_return plainSubCommand(*number);
    case SubPattern::Ints: {
        std::array<int, 5> values{};
        for (int i = 0; i < shape.count; ++i) values[static_cast<std::size_t>(i)] = co_await integer("arg");
        co_return tapSubCommand(*number, values);
    }
    case SubPattern::Texts:
        for (int i = 0; i < shape.count; ++i) co_await text("text");
        break;
    case SubPattern::IntTextInt:
        co_await integer("arg");
        co_await text("text");
        co_await integer("arg");
        break;
    case SubPattern::IntThenEmptyText: co_await integer("arg"); break;
    case SubPattern::FractionStrict: co_await text("fraction"); break;
    case SubPattern::FractionFixed:
        co_await fixedFrameText("fraction");
        co_await acknowledge("ack");
        break;
    case SubPattern::JtagShift: co_return co_await jtagShift();
    }
    co_return reply::done;
}

int Conversation::plainSubCommand(int number) {
    switch (number) {
    case protocol::sub::resetTaps:
        if (chainOwned()) return reply::chainOwned;
        cable.jtag.reset();
        return reply::done;
    case protocol::sub::toRunTestIdle:
        if (chainOwned()) return reply::chainOwned;
        cable.jtag.moveTo(TapState::RunTestIdle);
        return reply::done;
    case protocol::sub::describeChain: {
        std::string description;
        const int devices = cable.describeChain(description);
        textReply = description;
        return devices;
    }
    case protocol::sub::clockReport: textReply = cable.tap.report(); return reply::done;
    case protocol::sub::tapState:
        textReply = tapStateName(cable.jtag.state());
        return static_cast<int>(cable.jtag.state());
    default: return reply::done;
    }
}

namespace {

std::uint64_t joined(int high, int low) {
    return static_cast<std::uint64_t>(static_cast<std::uint32_t>(high)) << 32 | static_cast<std::uint32_t>(low);
}

}  // namespace

int Conversation::tapSubCommand(int number, const std::array<int, 5>& values) {
    TapControl& tap = cable.tap;
    switch (number) {
    case protocol::sub::irEndState: return tap.setEndState(ScanKind::Instruction, values[0]);
    case protocol::sub::drEndState: return tap.setEndState(ScanKind::Data, values[0]);
    case protocol::sub::tckFrequency: return tap.setFrequency(values[0]);
    case protocol::sub::deviceRegisters: {
        std::string registers;
        const int devices = cable.describeDevice(values[0], registers);
        if (devices >= 0) textReply = registers;
        return devices;
    }
    case protocol::sub::moveToState:
    case protocol::sub::stepToState:
    case protocol::sub::trst:
    case protocol::sub::runTest: break;
    default: return reply::done;
    }
    // The rest clock the chain, or hold it in reset.
    if (chainOwned()) return reply::chainOwned;
    switch (number) {
    case protocol::sub::moveToState: return tap.moveTo(values[0]);
    case protocol::sub::stepToState: return tap.stepTo(values[0]);
    case protocol::sub::trst: return tap.setTrst(values[0]);
    default:
        if (values[4] != 0 && values[4] != 1) return reply::outOfRange;  // the clock: 0 TCK, 1 SCK
        return tap.runTest(joined(values[0], values[1]), joined(values[2], values[3]), values[4] == 1);
    }
}

asio::awaitable<int> Conversation::jtagShift() {
    const int flags = co_await integer("flags");
    const int bitCount = co_await integer("bits");
    const int withSecond = co_await integer("second");
    const int withThird = co_await integer("third");
    const BlockShape shape = BlockShape::ofShift(bitCount);
    if (shape.single && shape.byteCount < 0)
        co_return reply::done;  // the library's block send of byteCount + 1 bytes fails

    // Block 1 is TDI; block 2 the expected TDO and block 3 its mask.
    static constexpr std::array<const char*, 3> names = {"tdi", "expected", "mask"};
    const std::array<bool, 3> present = {true, withSecond != 0, withThird != 0};
    std::array<std::string, 3> blocks;
    const std::int64_t keep = bitCount <= maxScanBits ? shape.byteCount : 0;
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        if (!present[i]) continue;
        if (shape.single) {
            // Each block is followed by one zero byte and answered.
            blocks[i] = co_await bytes(static_cast<std::size_t>(shape.byteCount) + 1, names[i]);
            blocks[i].pop_back();
            co_await acknowledge("answer");
        } else {
            blocks[i] = co_await chunkedBlock(shape.byteCount, true, keep);
        }
    }
    co_await goToken();
    ShiftResult shifted{reply::busy, {}, 0};
    if (chainOwned())
        shifted.status = reply::chainOwned;
    else if (!overBudget)
        shifted = cable.shift(flags, bitCount, blocks[0], present[1] ? &blocks[1] : nullptr,
                              present[2] ? &blocks[2] : nullptr);
    const std::string status = std::to_string(shifted.status) + '\0';
    co_await send(status, "status", true, AnswerKind::Status);

    const bool returnsTdo = (withSecond & 1) != 0 && shifted.status >= 0 && (flags & shiftFlag::noReadBack) == 0;
    if (returnsTdo) {
        // The library receives the status and the read-back without
        // sending in between: the status must be taken before the data go.
        co_await waitClientDrained();
        const Producer produce = [&](std::size_t offset, std::size_t length) {
            return slice(shifted.tdo, offset, length);
        };
        co_await readBack(shape, true, produce);
    }
    if (shifted.status == reply::chainOwned) co_return reply::chainOwned;
    co_return static_cast<int>(std::min<std::size_t>(shifted.mismatches, 0x7FFFFFFF));
}

}  // namespace tetherhost::sim

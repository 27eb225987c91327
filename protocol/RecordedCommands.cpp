// SPDX-License-Identifier: MIT
/* RecordedCommands: the client's side of the conversation, walked with the
 * frame reader the simulator's sessions receive with and the argument
 * shapes of Commands.h, in the order the simulator's session takes them off
 * the wire. */
#include "protocol/RecordedCommands.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>

#include "protocol/Commands.h"
#include "protocol/FrameReader.h"
#include "protocol/Frames.h"

namespace tetherhost::protocol {
namespace {

using Role = ClientItem::Role;

/* The walk over one connection's client bytes. Every step either takes
 * bytes or ends the walk, so it ends for any input. */
class Walker {
public:
    Walker(std::string_view bytes, std::vector<ClientItem>& items) : bytes(bytes), items(items) {
        reader.feed(bytes.data(), bytes.size());
    }

    void run(std::string& name) {
        try {
            name = token("name", Role::Introduction);
            for (;;) next();
        } catch (const End&) {
        }
    }

private:
    /* The bytes end here, or stop making sense. */
    struct End {};

    void add(std::size_t length, Role role, std::string_view item, bool raw = false) {
        ClientItem added = context;
        added.begin = offset;
        added.length = length;
        added.role = role;
        added.item = item;
        added.raw = raw;
        items.push_back(std::move(added));
        offset += length;
    }

    /* The rest of the bytes, as what the protocol does not account for. */
    [[noreturn]] void unexplained() {
        if (offset < bytes.size()) add(bytes.size() - offset, Role::Unexplained, "unexplained");
        throw End{};
    }

    /* The bytes end inside an item: what there is of it. */
    [[noreturn]] void cutShort(Role role, std::string_view item) {
        if (offset < bytes.size()) add(bytes.size() - offset, role, item);
        throw End{};
    }

    std::optional<std::string> rawToken() {
        std::string text;
        switch (reader.token(text)) {
        case FrameReader::Result::Ready: return text;
        case FrameReader::Result::NeedMore: return std::nullopt;
        case FrameReader::Result::Overlong: break;
        }
        unexplained();
    }

    std::string token(std::string_view item, Role role = Role::Argument) {
        std::optional<std::string> text = rawToken();
        if (!text) cutShort(role, item);
        add(text->size() + 1, role, item);
        return std::move(*text);
    }

    std::string take(std::size_t count, std::string_view item) {
        std::string taken;
        if (reader.take(count, taken) != FrameReader::Result::Ready) cutShort(Role::Argument, item);
        add(count, Role::Argument, item, true);
        return taken;
    }

    int integer(std::string_view item) {
        const std::optional<int> value = parseInt(token(item));
        if (!value) unexplained();
        return *value;
    }

    /* A fixed 1024-byte frame holding a text: the text. */
    std::string fixedText(std::string_view item) {
        const std::string frame = take(frameSize, item);
        return frame.substr(0, frame.find('\0'));
    }

    /* Between commands: a "+" request of the command before, or the next
     * command's frame and arguments. */
    void next() {
        if (offset == bytes.size()) throw End{};
        const std::optional<std::string> frame = rawToken();
        if (!frame) {
            const bool request = bytes[offset] == plus;
            cutShort(request ? Role::Request : Role::CommandFrame, request ? "request" : "command");
        }
        if (*frame == plusText) {
            const Role role = lockPending ? Role::LockRequest : Role::Request;
            add(frame->size() + 1, role, lockPending ? "lock" : goTokens > 0 ? "go" : "request");
            lockPending = false;
            if (goTokens > 0) --goTokens;
            return;
        }
        const std::optional<int> number = parseInt(*frame);
        context = ClientItem{};
        lockPending = false;
        goTokens = 0;
        if (!number) unexplained();
        context.command = *number;
        context.hasCommand = true;
        add(frame->size() + 1, Role::CommandFrame, "command");
        arguments(*number, *frame);
    }

    void arguments(int number, const std::string& commandToken) {
        const Command shape = shapeOf(number);
        switch (shape.marshal) {
        case Marshal::Nothing:
        case Marshal::Unknown:
        case Marshal::ReleaseCommandLock:
        case Marshal::ReleaseSessionLock:
        case Marshal::Farewell: break;
        case Marshal::TextsLenient:
        case Marshal::TextsStrict:
            for (int i = 0; i < shape.count; ++i) token("text");
            break;
        case Marshal::Ints:
            for (int i = 0; i < shape.count; ++i) integer("arg");
            break;
        case Marshal::HeaderTrailer:
            for (int i = 0; i < shape.count; i += 2) {
                integer("arg");
                token("text");
            }
            break;
        case Marshal::OpenSession:
            token("text");
            token("text");
            for (int i = 0; i < sessionOptionCount; ++i) integer("option");
            lockPending = true;
            break;
        case Marshal::CommandLock: lockPending = true; break;
        case Marshal::GenericShift: genericShift(); break;
        case Marshal::SharedApps: take(frameSize, "block"); break;
        case Marshal::PumpData: pumpData(); break;
        case Marshal::JtagInterface: jtagInterface(commandToken); break;
        case Marshal::I2C:
        case Marshal::SSPI:
            // Commands 47 and 51 read first, then write and read.
            if (shape.readOnlyFirst) transfer(shape.marshal, 0, 0);
            transfer(shape.marshal, shape.withWrite, shape.withReadBack);
            break;
        }
    }

    /* A block of `shape`: whole (named "block", as the simulator's trace
     * names it), or in chunks of up to 1024 bytes (all of 1024 when
     * `padded`), each named by `item` and its number. The first two chunks'
     * bytes are returned. */
    std::string block(const BlockShape& shape, std::string_view item, bool padded = false) {
        if (shape.single) return take(static_cast<std::size_t>(shape.byteCount), "block");
        return chunks(shape.byteCount, item, padded);
    }

    std::string chunks(std::int64_t byteCount, std::string_view item, bool padded) {
        std::string head;
        const auto frame = static_cast<std::int64_t>(frameSize);
        int chunk = 0;
        for (std::int64_t at = 0; at < byteCount; at += frame) {
            const auto length = static_cast<std::size_t>(padded ? frame : std::min(frame, byteCount - at));
            const std::string name = std::string(item) + " chunk " + std::to_string(++chunk);
            const std::string taken = take(length, name);
            if (head.size() < 2 * frameSize) head += taken;
        }
        return head;
    }

    void genericShift() {
        integer("flags");
        const int bitCount = integer("bits");
        const int sentByteCount = integer("bytes");
        integer("read-back");
        const BlockShape shape = BlockShape::ofShift(bitCount);
        if (sentByteCount != shape.byteCount) unexplained();
        if (shape.byteCount <= 0) return;
        block(shape, "tdi");
    }

    void pumpData() {
        const int bitCount = integer("bits");
        integer("mode");
        const int readBack = integer("read-back");
        const BlockShape shape = BlockShape::ofTransfer(bitCount);
        if (shape.single && shape.byteCount <= 0) return;
        block(shape, "data");
        if (readBack != 0) goTokens = readBackGoTokens(shape);
    }

    /* A chunked read-back is answered chunk by chunk with a go token. */
    static int readBackGoTokens(const BlockShape& shape) {
        return shape.single ? 0 : static_cast<int>(shape.chunkCount);
    }

    void transfer(Marshal kind, int withWrite, int withReadBack) {
        integer("address");
        if (kind == Marshal::I2C) integer("device");
        const int bitCount = integer("bits");
        integer(kind == Marshal::I2C ? "last" : "options");
        const BlockShape shape = BlockShape::ofTransfer(bitCount);
        if (withWrite == 0 || (shape.single && shape.byteCount <= 0)) return;
        block(shape, "data");
        if (withReadBack != 0) goTokens = readBackGoTokens(shape);
    }

    void jtagInterface(const std::string& commandToken) {
        const std::optional<std::string> frame = rawToken();
        if (!frame) cutShort(Role::Argument, "sub-command");
        if (frame->empty()) {
            // The zero filler of the one-call shift's fixed "44" frame.
            add(1, Role::Argument, "filler");
            oneCallShift(commandToken);
            return;
        }
        const std::optional<int> number = parseInt(*frame);
        if (!number) unexplained();
        context.sub = *number;
        context.hasSub = true;
        add(frame->size() + 1, Role::Argument, "sub-command");
        const SubCommand shape = subCommand(*number);
        switch (shape.pattern) {
        case SubPattern::Unknown:
        case SubPattern::NoArgs: break;
        case SubPattern::Ints:
            for (int i = 0; i < shape.count; ++i) integer("arg");
            break;
        case SubPattern::Texts:
            for (int i = 0; i < shape.count; ++i) token("text");
            break;
        case SubPattern::IntTextInt:
            integer("arg");
            token("text");
            integer("arg");
            break;
        case SubPattern::IntThenEmptyText: integer("arg"); break;
        case SubPattern::FractionStrict: token("fraction"); break;
        case SubPattern::FractionFixed: take(frameSize, "fraction"); break;
        case SubPattern::JtagShift: jtagShift(); break;
        }
    }

    void jtagShift() {
        const int flags = integer("flags");
        const int bitCount = integer("bits");
        const int withSecond = integer("second");
        const int withThird = integer("third");
        const BlockShape shape = BlockShape::ofShift(bitCount);
        if (shape.single && shape.byteCount < 0) return;
        static constexpr std::array<const char*, 3> names = {"tdi", "expected", "mask"};
        const std::array<bool, 3> present = {true, withSecond != 0, withThird != 0};
        for (std::size_t i = 0; i < names.size(); ++i) {
            if (!present[i]) continue;
            // A whole block is followed by one zero byte; chunks are all
            // 1024 bytes.
            if (shape.single)
                take(static_cast<std::size_t>(shape.byteCount) + 1, names[i]);
            else
                chunks(shape.byteCount, names[i], true);
        }
        // The go token that asks for the status, then one per read-back
        // chunk when the scan comes back.
        const bool readsBack = withSecond % 2 != 0 && (flags & shiftFlag::noReadBack) == 0;
        goTokens = 1 + (readsBack ? readBackGoTokens(shape) : 0);
    }

    void oneCallShift(const std::string& commandToken) {
        take(frameSize - commandToken.size() - 2, "filler");
        const std::string subText = fixedText("sub-command");
        if (subText != std::to_string(sub::jtagShift)) unexplained();
        context.sub = sub::jtagShift;
        context.hasSub = true;
        const std::optional<int> flags = parseInt(fixedText("flags"));
        const std::optional<int> bitCount = parseInt(fixedText("bits"));
        if (!flags || !bitCount) unexplained();
        if (*bitCount <= oneCallSingleFrameBits) {
            take(frameSize, "tdi");
            take(frameSize, "slot");
            take(frameSize, "slot");
            return;
        }
        const std::int64_t byteCount = byteCountOf(*bitCount);
        if (byteCount <= std::int64_t{2} * static_cast<std::int64_t>(frameSize)) unexplained();
        const std::string head = chunks(byteCount, "tdi", false);
        laterSlots(head, byteCount);
    }

    /* The one-call shift's second and third slots: each a copy of the first
     * slot or a zero frame, told apart by content as the session does. */
    void laterSlots(const std::string& head, std::int64_t byteCount) {
        const auto frame = static_cast<std::int64_t>(frameSize);
        const std::string firstChunk = head.substr(0, frameSize);
        const std::string secondChunk = head.substr(frameSize, frameSize);
        for (int slot = 2; slot <= 3; ++slot) {
            const std::string first = take(frameSize, "slot");
            if (!allZero(firstChunk)) {
                if (first == firstChunk) {
                    chunks(byteCount - frame, "slot", false);
                    continue;
                }
                if (!allZero(first)) unexplained();
                if (slot == 2) take(frameSize, "slot");
                return;
            }
            if (slot == 3) return;
            const std::string second = take(frameSize, "slot");
            if (!allZero(secondChunk) && second == secondChunk) {
                chunks(byteCount - 2 * frame, "slot", false);
                continue;
            }
            if (!allZero(second)) unexplained();
            return;
        }
    }

    std::string_view bytes;
    std::vector<ClientItem>& items;
    FrameReader reader;
    std::size_t offset = 0;
    ClientItem context;        // the command being read
    bool lockPending = false;  // the next "+" asks for the lock of command 4 or 33
    int goTokens = 0;          // the next so many "+" are go tokens of the command being read
};

}  // namespace

std::string ClientItem::label() const {
    if (!hasCommand) return "-";
    return hasSub ? std::to_string(command) + "/" + std::to_string(sub) : std::to_string(command);
}

std::string ClientItem::describe() const {
    if (role == Role::Introduction) return "the introduction (the client's name)";
    // Bytes past the walk: "unexplained" (the protocol does not account for
    // them) or "beyond the recording".
    const std::string unexplained = item == "unexplained" ? "bytes the protocol does not account for" : item;
    if (!hasCommand) return role == Role::Request ? "a request before the first command" : unexplained;
    std::string text = "command " + std::to_string(command);
    if (const char* name = commandName(command)) text += std::string(" (") + name + ")";
    if (hasSub) {
        text += ", sub-command " + std::to_string(sub);
        if (const char* name = subCommandName(sub)) text += std::string(" (") + name + ")";
    }
    switch (role) {
    case Role::CommandFrame: return text + ", its command frame";
    case Role::Unexplained: return unexplained + ", after " + text;
    default: return text + ", " + item;
    }
}

RecordedCommands::RecordedCommands(std::string_view clientBytes) : total(clientBytes.size()) {
    Walker(clientBytes, all).run(name);
}

ClientItem RecordedCommands::at(std::size_t offset) const {
    if (offset < total && !all.empty()) {
        const auto after = std::upper_bound(all.begin(), all.end(), offset,
                                            [](std::size_t at, const ClientItem& item) { return at < item.begin; });
        if (after != all.begin()) return *std::prev(after);
    }
    ClientItem beyond = all.empty() ? ClientItem{} : all.back();
    beyond.begin = offset;
    beyond.length = 0;
    beyond.role = Role::Unexplained;
    beyond.item = "beyond the recording";
    return beyond;
}

}  // namespace tetherhost::protocol

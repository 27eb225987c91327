// SPDX-License-Identifier: MIT
/* The JTAG-interface sub-commands of command 44: the sub-command number as an
 * argument frame, then its arguments in the pattern the vocabulary gives. */
#include <cstdio>

#include "Client.h"
#include "ClientUtils.h"
#include "client/ClientSink.h"
#include "platform/MessageIds.h"
#include "protocol/Commands.h"
#include "protocol/Frames.h"
#include "protocol/Status.h"
#include "wire/TransferWire.h"

namespace {

namespace protocol = tetherhost::protocol;
namespace wire = tetherhost::wire;
namespace message = tetherhost::message;
using protocol::SubPattern;
using tetherhost::transfer::Channel;
using tetherhost::transfer::Marshaller;
using tetherhost::transfer::TokenNote;

/* The sub-command number is reported as if it were an integer argument. */
constexpr Marshaller subCommandNumber{.sendFailedId = message::integerArgumentSendFailed,
                                      .receiveFailedId = message::integerArgumentNotAcknowledged,
                                      .tokenNote = TokenNote::TokenText,
                                      .tokenNoteId = message::integerArgumentSent};
/* Sub-commands 69 and 70: the decimal fraction in a standard frame. */
constexpr Marshaller fractionFrame{.sendFailedId = message::fractionSendFailed,
                                   .receiveFailedId = message::fractionNotAcknowledged};

/* An int sent as a decimal fraction: through single precision, six digits
 * after the point (5 becomes 5.000000). */
void formatFraction(wire::FrameBuffer& buffer, int value) {
    std::snprintf(buffer.data(), protocol::frameSize, "%f", static_cast<double>(static_cast<float>(value)));
}

}  // namespace

int Client::JTAGInterfaceFunc(int& socket, va_list args) {
    const char* name = clientName.c_str();
    wire::FrameBuffer buffer;
    ClientUtils utils(debugFlag, logFile, clientName, logFileName);

    const int number = va_arg(args, int);
    const Channel channel(socket, clientSink(*this), name, subCommandNumber);
    const int acknowledged = channel.sendToken(buffer, number);
    if (acknowledged < 0) return acknowledged;
    PrintMessage(message::integerArgumentAcknowledged, name, buffer.text());

    const protocol::SubCommand entry = protocol::subCommand(number);
    switch (entry.pattern) {
    case SubPattern::Unknown: PrintMessage(message::unknownJtagSubCommand); [[fallthrough]];
    case SubPattern::NoArgs: break;
    case SubPattern::Ints: return utils.sendintargs(socket, entry.count, args);
    case SubPattern::Texts: return utils.sendcharstarargs(socket, entry.count, args);
    case SubPattern::IntTextInt:
        // Each frame goes out whatever became of the one before it; only the
        // last one's result counts.
        utils.sendintargs(socket, 1, args);
        utils.sendcharstarargs(socket, 1, args);
        return utils.sendintargs(socket, 1, args);
    case SubPattern::IntThenEmptyText:
        // The integer frame's result is not looked at: the empty text call
        // that follows decides, and it always succeeds.
        utils.sendintargs(socket, 1, args);
        return utils.sendcharstarargs(socket, 0, args);
    case SubPattern::FractionStrict: {
        const Channel fraction(socket, clientSink(*this), name, fractionFrame);
        buffer.clear();
        formatFraction(buffer, va_arg(args, int));
        const int sent = fraction.send(buffer.text(), static_cast<int>(buffer.textLength()) + 1);
        return sent < 0 ? sent : fraction.receiveAcknowledgement(buffer);
    }
    case SubPattern::FractionFixed: {
        // A whole 1024-byte frame, no messages, and any answer is accepted.
        // The text overwrites the acknowledgement still in the buffer; the
        // rest of the frame is zero.
        formatFraction(buffer, va_arg(args, int));
        if (wire::failed(wire::sendBytes(socket, buffer.data(), protocol::frameSize)))
            return protocol::status::sendFailed;
        const long received = buffer.receive(socket, 2);
        return wire::failed(received) ? protocol::status::receiveFailed : static_cast<int>(received);
    }
    case SubPattern::JtagShift: return sendJTAGShiftargs(socket, args);
    }
    // Nothing follows the number: the result is its acknowledgement's byte count.
    return acknowledged;
}

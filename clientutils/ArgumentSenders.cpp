// SPDX-License-Identifier: MIT
/* The four argument senders of ClientUtils. Each argument crosses as one
 * frame (its token and NUL) answered by one acknowledgement; the senders
 * differ only in how they form tokens, how they take the acknowledgement and
 * which messages they post, so all four run one frame-exchange routine. */
#include <cstdarg>

#include "ClientUtils.h"
#include "platform/MessageIds.h"
#include "protocol/Frames.h"
#include "protocol/Status.h"
#include "wire/Wire.h"

namespace {

namespace message = tetherhost::message;
using tetherhost::wire::FrameBuffer;

enum class Tokens {
    Ints,           // every element an int, written with "%d"
    Texts,          // every element a text; a null pointer is the empty token
    HeaderTrailer,  // int, text, int, text...; a null or empty text is the empty token
};

struct SenderProfile {
    Tokens tokens;
    long ackCapacity;         // at most this many bytes per acknowledgement
    bool clearBeforeReceive;  // zero the frame buffer before each receive
    bool strict;              // the acknowledgement must begin with "+"
    bool showsData;           // messages show the token and the reply, not the name twice
    const char* entryId;
    const char* sendFailedId;
    const char* frameSentId;
    const char* ackBadId;
    const char* ackGoodId;
    const char* completionId;
};

constexpr SenderProfile stringSender{.tokens = Tokens::Texts,
                                     .ackCapacity = tetherhost::protocol::frameBytes,
                                     .clearBeforeReceive = false,
                                     .strict = false,
                                     .showsData = true,
                                     .entryId = message::sendingStringArguments,
                                     .sendFailedId = message::stringArgumentSendFailed,
                                     .frameSentId = message::stringArgumentSent,
                                     .ackBadId = message::stringArgumentUnanswered,
                                     .ackGoodId = message::stringArgumentAcknowledged,
                                     .completionId = message::stringArgumentsSent};
constexpr SenderProfile intSender{.tokens = Tokens::Ints,
                                  .ackCapacity = 2,
                                  .clearBeforeReceive = true,
                                  .strict = true,
                                  .showsData = true,
                                  .entryId = message::sendingIntegerArguments,
                                  .sendFailedId = message::integerArgumentSendFailed,
                                  .frameSentId = message::integerArgumentSent,
                                  .ackBadId = message::integerArgumentNotAcknowledged,
                                  .ackGoodId = message::integerArgumentAcknowledged,
                                  .completionId = message::integerArgumentsSent};
constexpr SenderProfile textSender{.tokens = Tokens::Texts,
                                   .ackCapacity = 2,
                                   .clearBeforeReceive = true,
                                   .strict = true,
                                   .showsData = true,
                                   .entryId = message::sendingTextArguments,
                                   .sendFailedId = message::textArgumentSendFailed,
                                   .frameSentId = message::textArgumentSent,
                                   .ackBadId = message::textArgumentNotAcknowledged,
                                   .ackGoodId = message::textArgumentAcknowledged,
                                   .completionId = message::textArgumentsSent};
constexpr SenderProfile headerTrailerSender{.tokens = Tokens::HeaderTrailer,
                                            .ackCapacity = 2,
                                            .clearBeforeReceive = false,
                                            .strict = true,
                                            .showsData = false,
                                            .entryId = message::sendingHeaderTrailerArguments,
                                            .sendFailedId = message::headerTrailerArgumentSendFailed,
                                            .frameSentId = message::headerTrailerArgumentSent,
                                            .ackBadId = message::headerTrailerArgumentNotAcknowledged,
                                            .ackGoodId = message::headerTrailerArgumentAcknowledged,
                                            .completionId = message::headerTrailerArgumentsSent};

constexpr int headerTrailerCount = 8;

/* Takes element `index` from `args` and forms its token over the frame
 * buffer. A null text empties the whole buffer, while a text is laid over
 * its start like strcpy: what the buffer held behind it stays, and shows in
 * sendstrargs' acknowledgement message when a short reply has no NUL. */
void formToken(Tokens tokens, int index, va_list args, FrameBuffer& frame) {
    if (tokens == Tokens::Ints || (tokens == Tokens::HeaderTrailer && index % 2 == 0)) {
        frame.setNumber(va_arg(args, int));
        return;
    }
    const char* text = va_arg(args, const char*);
    if (text == nullptr || (tokens == Tokens::HeaderTrailer && text[0] == '\0'))
        frame.clear();
    else
        frame.setText(text);
}

/* Sends `count` elements of `args`, one frame and one acknowledgement each,
 * and leaves `args` after the last element read. */
int exchangeFrames(ClientUtils& utils, const char* name, int socket, int count, va_list args,
                   const SenderProfile& profile) {
    FrameBuffer frame;
    utils.PrintMessage(profile.entryId, name);
    for (int done = 0; done < count; ++done) {
        formToken(profile.tokens, done, args, frame);
        if (tetherhost::wire::failed(frame.sendFrame(socket))) {
            utils.PrintMessage(profile.sendFailedId, name, name);
            return tetherhost::protocol::status::sendFailed;
        }
        utils.PrintMessage(profile.frameSentId, name, profile.showsData ? frame.text() : name);
        if (profile.clearBeforeReceive) frame.clear();
        const long received = frame.receive(socket, profile.ackCapacity);
        if (tetherhost::wire::failed(received) || (profile.strict && frame.text()[0] != tetherhost::protocol::plus)) {
            utils.PrintMessage(profile.ackBadId, name, name);
            return tetherhost::protocol::status::receiveFailed;
        }
        utils.PrintMessage(profile.ackGoodId, name, profile.showsData ? frame.text() : name);
    }
    utils.PrintMessage(profile.completionId, name);
    return 0;
}

}  // namespace

int ClientUtils::sendstrargs(int socket, int count, va_list args) {
    return exchangeFrames(*this, clientName.c_str(), socket, count, args, stringSender);
}

int ClientUtils::sendintargs(int socket, int count, va_list args) {
    return exchangeFrames(*this, clientName.c_str(), socket, count, args, intSender);
}

int ClientUtils::sendcharstarargs(int socket, int count, va_list args) {
    return exchangeFrames(*this, clientName.c_str(), socket, count, args, textSender);
}

int ClientUtils::sendSetHeaderTrailerargs(int socket, va_list args) {
    return exchangeFrames(*this, clientName.c_str(), socket, headerTrailerCount, args, headerTrailerSender);
}

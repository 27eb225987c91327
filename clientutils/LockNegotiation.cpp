// SPDX-License-Identifier: MIT
/* Lock negotiation: asks the server for one of its locks and records the
 * verdict in the Client's lock flag (sessionMutex after command 4,
 * commandMutex for command 33). */
#include <cstdlib>

#include "ClientUtils.h"
#include "platform/MessageIds.h"
#include "protocol/Frames.h"
#include "protocol/Status.h"
#include "wire/Wire.h"

namespace {

namespace message = tetherhost::message;

/* The answer is a number of at most two characters. */
constexpr long answerCapacity = 2;

}  // namespace

int ClientUtils::DetermineMutex(int& socket, int& lockFlag) {
    tetherhost::wire::FrameBuffer answer;
    const char* name = clientName.c_str();
    PrintMessage(message::askingForLock, name);
    if (tetherhost::wire::failed(tetherhost::wire::sendBytes(socket, tetherhost::protocol::plusToken,
                                                             sizeof tetherhost::protocol::plusToken))) {
        PrintMessage(message::lockRequestSendFailed, name, name);
        return tetherhost::protocol::status::sendFailed;
    }
    if (tetherhost::wire::failed(answer.receive(socket, answerCapacity))) {
        PrintMessage(message::lockRequestUnanswered, name);
        return tetherhost::protocol::status::receiveFailed;
    }
    // A number, not an acknowledgement: "+" reads as 0 like any text
    // without digits.
    const int verdict = static_cast<int>(std::strtol(answer.text(), nullptr, 10));
    if (verdict == 1) {
        lockFlag = 1;
        PrintMessage(message::lockGranted, name, 1);
        return 0;
    }
    if (verdict == 0) {
        lockFlag = 0;
        PrintMessage(message::lockNotGranted, name);
        return -1;
    }
    PrintMessage(message::lockNotGranted, name);
    lockFlag = 0;
    return verdict;
}

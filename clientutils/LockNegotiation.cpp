/* Lock negotiation: asks the server for one of its locks and records the
 * verdict in the Client's lock flag (sessionMutex after command 4,
 * commandMutex for command 33). */
#include <cstdlib>

#include "ClientUtils.h"
#include "protocol/Frames.h"
#include "protocol/Status.h"
#include "wire/Wire.h"

namespace {

/* The answer is a number of at most two characters. */
constexpr long answerCapacity = 2;

}  // namespace

int ClientUtils::DetermineMutex(int& socket, int& lockFlag) {
    tetherhost::wire::FrameBuffer answer;
    const char* name = clientName.c_str();
    PrintMessage("1086", name);
    if (tetherhost::wire::failed(tetherhost::wire::sendBytes(socket, tetherhost::protocol::plusToken, sizeof tetherhost::protocol::plusToken))) {
        PrintMessage("1073", name, name);
        return tetherhost::protocol::status::sendFailed;
    }
    if (tetherhost::wire::failed(answer.receive(socket, answerCapacity))) {
        PrintMessage("1074", name);
        return tetherhost::protocol::status::receiveFailed;
    }
    // A number, not an acknowledgement: "+" reads as 0 like any text
    // without digits.
    const int verdict = static_cast<int>(std::strtol(answer.text(), nullptr, 10));
    if (verdict == 1) {
        lockFlag = 1;
        PrintMessage("1075", name, 1);
        return 0;
    }
    if (verdict == 0) {
        lockFlag = 0;
        PrintMessage("1076", name);
        return -1;
    }
    PrintMessage("1076", name);
    lockFlag = 0;
    return verdict;
}

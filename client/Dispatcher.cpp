// SPDX-License-Identifier: MIT
/* The command dispatcher: Client::Send. It applies the lock gate, sends the
 * command number and takes the server's answer, hands the rest of its
 * argument list to the marshaller the command table names, and ends with the
 * server's integer reply. */
#include <algorithm>
#include <cstdarg>
#include <iterator>

#include "Client.h"
#include "ClientUtils.h"
#include "platform/MessageIds.h"
#include "protocol/Commands.h"
#include "protocol/Frames.h"
#include "protocol/Status.h"
#include "wire/Wire.h"

namespace {

namespace protocol = tetherhost::protocol;
namespace wire = tetherhost::wire;
namespace message = tetherhost::message;
using protocol::Marshal;

/* Command 4's option table: slots 3 and 7 default to 1. */
constexpr int optionCount = protocol::sessionOptionCount;
constexpr int defaultOptions[optionCount] = {0, 0, 0, 1, 0, 0, 0, 1, 0, 0};

using BusTransfer = int (Client::*)(int&, int, int, va_list);

/* The commands whose arguments are scan or bus transfers (19, 41, 42, 44,
 * 46 to 48, 50 to 52), handed to the Client's own marshallers. */
int marshalTransfer(Client& client, int& socket, const protocol::Command& entry, va_list args) {
    switch (entry.marshal) {
    case Marshal::GenericShift: return client.sendShiftargs(socket, args);
    case Marshal::SharedApps: return client.sendSharedApps(socket, args);
    case Marshal::PumpData: return client.sendPumpData(socket, args);
    case Marshal::JtagInterface: return client.JTAGInterfaceFunc(socket, args);
    default: {
        // I2C or SSPI, the only other kinds that reach this function.
        const BusTransfer transfer =
            entry.marshal == Marshal::I2C ? &Client::sendI2CShiftargs : &Client::sendSSPIShiftargs;
        // Commands 47 and 51 make a read-back transfer first on the same
        // argument list; only the second transfer's result counts, and it
        // runs even when the first failed.
        if (entry.readOnlyFirst) (client.*transfer)(socket, 0, 1, args);
        return (client.*transfer)(socket, entry.withWrite, entry.withReadBack, args);
    }
    }
}

}  // namespace

int Client::Send(int command, ...) {
    wire::FrameBuffer commandFrame;
    wire::FrameBuffer reply;
    wire::FrameBuffer option;
    int options[optionCount];
    std::copy(std::begin(defaultOptions), std::end(defaultOptions), options);
    commandFrame.setNumber(command);
    va_list args;
    va_start(args, command);
    SetClientStatus(0);
    ClientUtils utils(debugFlag, logFile, clientName, logFileName);
    const char* name = clientName.c_str();

    // One frame and the server's answer to it, whose content is never
    // examined: the answer's byte count, or -1001 / -1002 after the
    // send-failed / unanswered message.
    auto exchange = [&](const char* frame, long length, wire::FrameBuffer& answer) -> int {
        if (wire::failed(wire::sendBytes(clientSocket, frame, length))) {
            PrintMessage(message::commandFrameSendFailed, name, name);
            return protocol::status::sendFailed;
        }
        const long received = answer.receive(clientSocket, protocol::frameSize);
        if (wire::failed(received)) {
            PrintMessage(message::commandFrameUnanswered, name, name);
            return protocol::status::receiveFailed;
        }
        return static_cast<int>(received);
    };
    auto exchangeOption = [&]() -> int {
        const int answered = exchange(option.text(), option.textLength() + 1, option);
        option.clear();
        return answered < 0 ? answered : 0;
    };

    // Command 4: two texts (never null), n and n option values, the ten
    // option frames, then the session lock. Every one of the n values is
    // taken from the list, so that it stays in step, but only ten slots
    // exist.
    auto openSession = [&]() -> int {
        for (int text = 0; text < 2; ++text) {
            option.setText(va_arg(args, const char*));
            if (const int status = exchangeOption(); status < 0) return status;
        }
        const int given = va_arg(args, int);
        for (int slot = 0; slot < given; ++slot) {
            const int value = va_arg(args, int);
            if (slot < optionCount) options[slot] = value;
        }
        for (const int value : options) {
            option.setNumber(value);
            if (const int status = exchangeOption(); status < 0) return status;
        }
        return utils.DetermineMutex(clientSocket, sessionMutex);
    };

    auto run = [&]() -> int {
        if ((sessionMutex == 0 || commandMutex == 0) && protocol::isLockGuarded(command)) {
            PrintMessage(message::lockGuardedCommandWithheld, name, name);
            // The poll goes in the command's place, with its NUL.
            commandFrame.setNumber(protocol::command::lockPoll);
            const int polled = exchange(commandFrame.text(), commandFrame.textLength() + 1, reply);
            const int status = polled < 0 ? polled : 1;
            SetClientStatus(status);
            return status;
        }

        const int answered = exchange(commandFrame.text(), commandFrame.textLength() + 1, reply);
        if (answered < 0) {
            if (protocol::reconnectsOnFailure(command)) Connect(connectText.data(), nullptr, nullptr);
            if (answered == protocol::status::sendFailed) SetClientStatus(protocol::status::commandFrameUnsent);
            SetClientStatus(answered);
            return answered;
        }
        PrintMessage(message::commandAnswered, name, command);

        // Commands without marshalling keep the answer's byte count as their
        // result until the integer reply replaces it.
        int result = answered;
        const protocol::Command entry = protocol::shapeOf(command);
        switch (entry.marshal) {
        case Marshal::Nothing: break;
        case Marshal::Unknown: PrintMessage(message::unknownCommandNumber, name); break;
        case Marshal::TextsLenient: result = utils.sendstrargs(clientSocket, entry.count, args); break;
        case Marshal::Ints: result = utils.sendintargs(clientSocket, entry.count, args); break;
        case Marshal::TextsStrict: result = utils.sendcharstarargs(clientSocket, entry.count, args); break;
        case Marshal::HeaderTrailer: result = utils.sendSetHeaderTrailerargs(clientSocket, args); break;
        case Marshal::OpenSession: result = openSession(); break;
        case Marshal::CommandLock: result = utils.DetermineMutex(clientSocket, commandMutex); break;
        // The releases report the session lock flag as it stands afterwards.
        case Marshal::ReleaseCommandLock:
            commandMutex = 0;
            PrintMessage(message::lockReleased, name, sessionMutex);
            break;
        case Marshal::ReleaseSessionLock:
            sessionMutex = 0;
            PrintMessage(message::lockReleased, name, sessionMutex);
            break;
        case Marshal::Farewell:
            sessionMutex = 0;
            commandMutex = 0;
            PrintMessage(message::lockReleased, name, sessionMutex);
            break;
        case Marshal::GenericShift:
        case Marshal::SharedApps:
        case Marshal::PumpData:
        case Marshal::JtagInterface:
        case Marshal::I2C:
        case Marshal::SSPI: result = marshalTransfer(*this, clientSocket, entry, args); break;
        }

        SetClientStatus(result);
        if (result < 0 || !protocol::readsIntegerReply(command)) return result;
        // Read's own status is what remains recorded; the result keeps the
        // byte count (or the marshaller's 0) when the reply does not come.
        SetClientStatus(Read(result));
        return result;
    };

    const int result = run();
    va_end(args);
    return result;
}

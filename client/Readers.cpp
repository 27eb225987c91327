// SPDX-License-Identifier: MIT
/* Reply reading: the four Read overloads. Each asks for the server's reply
 * with the request frame "+" and NUL and takes the reply in one receive;
 * they differ only in their messages and in what they make of the text. */
#include <cstdlib>
#include <cstring>

#include "Client.h"
#include "platform/MessageIds.h"
#include "protocol/Frames.h"
#include "protocol/Status.h"
#include "wire/Wire.h"

namespace {

namespace protocol = tetherhost::protocol;
namespace wire = tetherhost::wire;
namespace message = tetherhost::message;
using protocol::frameSize;

struct ReaderIds {
    const char* entry;
    const char* requestFailed;
    const char* requestSent;
    const char* receiveFailed;
    const char* received;
};

constexpr ReaderIds textIds{.entry = message::readingTextReply,
                            .requestFailed = message::textReplyRequestFailed,
                            .requestSent = message::textReplyRequestSent,
                            .receiveFailed = message::textReplyNotReceived,
                            .received = message::textReplyReceived};
constexpr ReaderIds resultTextIds{.entry = message::readingTextReplyAsResult,
                                  .requestFailed = message::textReplyRequestFailed,
                                  .requestSent = message::textReplyRequestSent,
                                  .receiveFailed = message::textReplyNotReceived,
                                  .received = message::textReplyReceived};
constexpr ReaderIds integerIds{.entry = message::readingIntegerReply,
                               .requestFailed = message::integerReplyRequestFailed,
                               .requestSent = message::integerReplyRequestSent,
                               .receiveFailed = message::integerReplyNotReceived,
                               .received = message::integerReplyReceived};
constexpr ReaderIds listIds{.entry = message::readingListReply,
                            .requestFailed = message::listReplyRequestFailed,
                            .requestSent = message::listReplyRequestSent,
                            .receiveFailed = message::listReplyNotReceived,
                            .received = message::listReplyReceived};

/* Sends the request frame on `socket` and receives the reply into `buffer`
 * (1024 bytes followed by a zero byte that is never written). Returns 0, or
 * -1001 / -1002 after recording the failure in the client's status. */
int requestReply(Client& client, int socket, const char* name, char* buffer, const ReaderIds& ids) {
    std::memset(buffer, 0, frameSize);
    client.PrintMessage(ids.entry, name);
    if (wire::failed(wire::sendBytes(socket, protocol::plusToken, sizeof protocol::plusToken))) {
        client.PrintMessage(ids.requestFailed, name, name);
        client.SetClientStatus(protocol::status::sendFailed);
        return protocol::status::sendFailed;
    }
    // The buffer is still all zero here: the message shows the empty text.
    client.PrintMessage(ids.requestSent, name, buffer);
    if (wire::failed(wire::receiveBytes(socket, buffer, frameSize))) {
        client.PrintMessage(ids.receiveFailed, name, name);
        client.SetClientStatus(protocol::status::receiveFailed);
        return protocol::status::receiveFailed;
    }
    client.PrintMessage(ids.received, name, buffer);
    return 0;
}

}  // namespace

int Client::Read(char*& text) {
    const int status = requestReply(*this, clientSocket, clientName.c_str(), replyText, textIds);
    if (status == 0) text = replyText;
    return status;
}

char* Client::Read() {
    if (requestReply(*this, clientSocket, clientName.c_str(), replyText, resultTextIds) != 0)
        return const_cast<char*>("");
    return replyText;
}

int Client::Read(int& value) {
    wire::FrameBuffer reply;
    const int status = requestReply(*this, clientSocket, clientName.c_str(), reply.data(), integerIds);
    if (status == 0) value = static_cast<int>(std::strtol(reply.text(), nullptr, 10));
    return status;
}

int Client::Read(std::vector<std::string>& fields) {
    wire::FrameBuffer reply;
    const int status = requestReply(*this, clientSocket, clientName.c_str(), reply.data(), listIds);
    if (status != 0) return status;
    std::string field;
    for (const char* at = reply.text(); *at != '\0'; ++at) {
        if (*at == ';') {
            fields.push_back(field);
            field.clear();
        } else {
            field.push_back(*at);
        }
    }
    if (!field.empty()) fields.push_back(field);
    return 0;
}

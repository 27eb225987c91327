// SPDX-License-Identifier: MIT
/* The Client object: construction, destruction and the small accessors. */
#include <cstdarg>
#include <type_traits>

#include "Client.h"
#include "platform/MessageIds.h"
#include "platform/msgManager.h"

// The marshallers hand one argument list on from member to member and each
// continues where the previous one stopped. That works because va_list is an
// array type here, so a va_list parameter refers to the caller's own list.
static_assert(std::is_array_v<va_list>,
              "tetherhost needs va_list to be an array type (as on x86-64 Linux): the marshallers "
              "pass one argument list on by reference");

namespace {
namespace message = tetherhost::message;
constexpr char catalogueModule[] = "tetherhostclient";
}  // namespace

Client::Client() : Client(const_cast<char*>("")) {}

Client::Client(char* name)
    : sessionMutex(0),
      commandMutex(0),
      messages(new msgManager(catalogueModule)),
      clientName(name),
      clientSocket(-1),
      clientStatus(0),
      debugFlag(0),
      logFile(nullptr),
      msgLogFileId(0),
      replyText{} {}

Client::~Client() {
    if (messages != nullptr) {
        messages->finishMsgLogFile(msgLogFileId);
        delete messages;
        messages = nullptr;
    }
    clientName.clear();
    clientSocket = -1;
    reservedC.clear();
    reservedB.clear();
    sessionMutex = 0;
    commandMutex = 0;
    clientStatus = 0;
}

int Client::ValidClient() {
    if (clientName.empty()) {
        PrintMessage(message::clientNameEmpty, clientName.c_str());
        return 0;
    }
    PrintMessage(message::clientValid, clientName.c_str());
    return 1;
}

long Client::GetClientSocket() { return clientSocket; }

int Client::GetClientStatus() { return clientStatus; }

void Client::SetClientStatus(int status) { clientStatus = status; }

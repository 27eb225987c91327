// SPDX-License-Identifier: MIT
/* ClientUtils: construction from a Client's diagnostic identity, and its own
 * message output. */
#include "ClientUtils.h"

#include "platform/MessageTemplate.h"
#include "platform/msgManager.h"

namespace {
constexpr char catalogueModule[] = "tetherhostclient";
}

ClientUtils::ClientUtils() : ClientUtils(0, nullptr, std::string(), std::string()) {}

ClientUtils::ClientUtils(int debugFlag, FILE* logFile, std::string clientName, std::string logFileName)
    : messages(new msgManager(catalogueModule)),
      clientName(std::move(clientName)),
      logFileName(std::move(logFileName)),
      debugFlag(debugFlag),
      logFile(logFile) {}

ClientUtils::~ClientUtils() {
    // The catalogue handle is deliberately left alive: a ClientUtils never
    // ends the catalogue service's life. Handles take no heap memory.
    messages = nullptr;
    debugFlag = 0;
    logFile = nullptr;
    clientName.clear();
    logFileName.clear();
}

void ClientUtils::PrintMessage(std::string id, ...) {
    if (logFile == nullptr && debugFlag != 1) return;
    va_list args;
    va_start(args, id);
    tetherhost::postMessage(*messages, debugFlag, logFile, logFileName, id, args,
                            tetherhost::WhenBothOn::CatalogueOnly);
    va_end(args);
}

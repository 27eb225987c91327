// SPDX-License-Identifier: MIT
/* clientSink: the wire layer's message sink bound to a Client, so that the
 * messages of the shared exchanges reach that Client's output. */
#ifndef TETHERHOST_CLIENT_CLIENTSINK_H
#define TETHERHOST_CLIENT_CLIENTSINK_H

#include "Client.h"
#include "wire/MessageSink.h"

inline tetherhost::transfer::MessageSink clientSink(Client& client) {
    return {[](void* context, const char* id, const char* name, const char* text) {
                static_cast<Client*>(context)->PrintMessage(id, name, text);
            },
            &client};
}

#endif

// SPDX-License-Identifier: MIT
/* MessageSink: where the wire layer's exchanges post their messages. The
 * wire layer knows message identifiers and their two texts, not the Client
 * that turns them into output: the client layer hands it a sink bound to
 * its Client, and the one-call JTAG shift, which runs without a Client,
 * hands it the empty sink, which posts nothing. */
#ifndef TETHERHOST_WIRE_MESSAGESINK_H
#define TETHERHOST_WIRE_MESSAGESINK_H

namespace tetherhost::transfer {

struct MessageSink {
    using Post = void (*)(void* context, const char* id, const char* name, const char* text);

    Post target = nullptr;
    void* context = nullptr;

    void post(const char* id, const char* name, const char* text) const {
        if (target != nullptr) target(context, id, name, text);
    }
};

}  // namespace tetherhost::transfer

#endif

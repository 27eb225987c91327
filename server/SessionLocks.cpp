// SPDX-License-Identifier: MIT
/* SessionLocks: the lock requests of commands 4 and 33. */
#include "server/Conversation.h"

#include <asio/use_awaitable.hpp>

namespace tetherhost::sim {

asio::awaitable<void> Conversation::openSession() {
    co_await text("text");
    co_await text("text");
    for (int i = 0; i < sessionOptionCount; ++i) co_await integer("option");
    co_await lockRequest(Lock::Session);
}

asio::awaitable<void> Conversation::lockRequest(Lock lock) {
    const std::string request = co_await token("lock");
    if (request != protocol::plusText) throw ProtocolError("expected the lock request");
    const std::string_view answer = state.locks.acquire(lock, id) ? lockGrantedFrame : lockRefusedFrame;
    co_await send(answer, "lock", true, AnswerKind::Lock);
}

}  // namespace tetherhost::sim

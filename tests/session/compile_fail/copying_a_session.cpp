// SPDX-License-Identifier: MIT
/* Must not compile: a copy of a Session, which owns its connection.
 * Its twin (TETHERHOST_TWIN) makes the same call correctly and must compile,
 * so that this file fails for its own reason and not for a broken build. */
#include <tetherhost/session.hpp>

#include <array>
#include <string>
#include <string_view>
#include <vector>

void use(tetherhost::Session& session) {
    [[maybe_unused]] const std::vector<unsigned char> tdi(4, 0);
#ifdef TETHERHOST_TWIN
    tetherhost::Session moved = std::move(session);
#else
    tetherhost::Session copy = session;
#endif
}

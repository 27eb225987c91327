// SPDX-License-Identifier: MIT
/* Must not compile: a long where command 5 reads an int (through Send it crashed the host).
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
    session.send<5>(7);
#else
    session.send<5>(7L);
#endif
}

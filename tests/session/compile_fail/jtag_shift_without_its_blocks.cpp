// SPDX-License-Identifier: MIT
/* Must not compile: a JTAG shift by number, with its data blocks missing (through Send it returned 0).
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
    session.scanDr(32, tdi);
#else
    session.jtag<12>(0, 32, 1, 0);
#endif
}

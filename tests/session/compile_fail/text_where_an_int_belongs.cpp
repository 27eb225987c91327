// SPDX-License-Identifier: MIT
/* Must not compile: a text for the data scans' end state, which is an int.
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
    session.jtag<18>(6);
#else
    session.jtag<18>("Pause-DR");
#endif
}

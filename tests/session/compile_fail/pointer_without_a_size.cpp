// SPDX-License-Identifier: MIT
/* Must not compile: scan data as a bare pointer, which has no size.
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
    session.scanDr(32, tdi.data());
#endif
}

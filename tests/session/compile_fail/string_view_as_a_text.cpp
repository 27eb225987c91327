// SPDX-License-Identifier: MIT
/* Must not compile: a std::string_view, which is not NUL-terminated, as a text.
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
    session.send<2>(std::string("text"));
#else
    session.send<2>(std::string_view("text"));
#endif
}

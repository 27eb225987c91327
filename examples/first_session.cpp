// SPDX-License-Identifier: MIT
/* first_session: a first program on the session layer. It opens a session
 * (the library starts the tetherhost server when none answers), lists the
 * JTAG chain, resets the TAPs and scans 32 bits of the data registers: the
 * IDCODE of the device next to TDO. The Session gives both locks back and
 * disconnects when it goes out of scope; every failure is an exception.
 *
 * Usage: first_session [SERVER_DIRECTORY] */
#include <cstdio>

#include <tetherhost/session.hpp>

int main(int argc, char** argv) {
    tetherhost::SessionOptions options;
    if (argc > 1) options.serverDirectory = argv[1];
    try {
        tetherhost::Session session("first_session", options);
        for (const tetherhost::Device& device : session.chain())
            std::printf("%s: IR %d bits, IDCODE 0x%08X\n", device.name.c_str(), device.irLength,
                        static_cast<unsigned>(device.idcode.value_or(0)));
        session.jtag<tetherhost::vocabulary::sub::resetTaps>();
        const tetherhost::Bytes tdo = session.scanDr(32, tetherhost::Bytes(4, 0));
        std::printf("TDO: %02X %02X %02X %02X\n", tdo[0], tdo[1], tdo[2], tdo[3]);
    } catch (const tetherhost::Error& error) {
        // The library's status code or the server's reply, with its meaning.
        std::fprintf(stderr, "first_session: %s\n", error.what());
        return 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "first_session: %s\n", error.what());
        return 2;
    }
    return 0;
}

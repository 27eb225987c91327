# SPDX-License-Identifier: MIT
"""first_session.py: a first program on the tetherhost Python module. It
opens a session (the library starts the tetherhost server when none
answers), lists the JTAG chain, resets the TAPs and scans 32 bits of the
data registers: the IDCODE of the device next to TDO. The with block gives
both locks back and disconnects; every failure is an exception.

Usage: python3 first_session.py [SERVER_DIRECTORY]
"""
import sys

import tetherhost


def main() -> int:
    options = {"server_directory": sys.argv[1]} if len(sys.argv) > 1 else {}
    try:
        with tetherhost.Session("first_session", **options) as session:
            for device in session.chain():
                print(f"{device.name}: IR {device.ir_length} bits, IDCODE 0x{device.idcode or 0:08X}")
            session.jtag(3)
            tdo = session.scan_dr(32, bytes(4))
            print("TDO:", tdo.hex(" ").upper())
    except tetherhost.Error as error:
        print(f"first_session: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())

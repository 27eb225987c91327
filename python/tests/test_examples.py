# SPDX-License-Identifier: MIT
"""The Python first program (examples/first_session.py, shown in
docs/python.md) against the simulator: the same lines as its C++ twin."""
import os
import subprocess
import sys

EXAMPLES = os.environ["TETHERHOST_EXAMPLES"]


def test_first_session_lists_the_chain_and_scans_the_idcode_next_to_tdo(tetherhost_server):
    done = subprocess.run([sys.executable, os.path.join(EXAMPLES, "first_session.py")], capture_output=True,
                          text=True, timeout=60)
    assert done.returncode == 0, done.stderr
    assert done.stdout == (
        "tap0: IR 4 bits, IDCODE 0x10A5C1FF\n"
        "tap1: IR 6 bits, IDCODE 0x23E171FF\n"
        "tap2: IR 8 bits, IDCODE 0x07B421FF\n"
        "TDO: FF 21 B4 07\n"
    )
    trace = tetherhost_server.trace.read_text()
    assert 'first_session < 34 command "34"' in trace
    assert 'first_session < 9999 command "9999"' in trace

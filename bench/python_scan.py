#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""A 32-bit JTAG data scan from Python against the same scan from C++, both
through the session layer, against one simulator, in the same run.

Usage: tests/support/RunIsolated.sh /usr/bin/python3 bench/python_scan.py [BUILD_DIR] [ROUNDS]

It uses port 4001, hence the namespace of its own. Each round times a block
of scans in this interpreter (tetherhost.Session.scan_dr) and a block of the
same scans in bench_session --scan-block (tetherhost::Session::scanDr, timed
inside that program, its start and connection left out); which goes first
alternates. The session is opened before the block and closed after it, so
the two never wait for each other's locks. It prints both medians and the
median of the rounds' ratios (Python / C++).
"""
import os
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

build = Path(sys.argv[1] if len(sys.argv) > 1 else "build").resolve()
rounds = int(sys.argv[2]) if len(sys.argv) > 2 else 21
sys.path.insert(0, str(build / "python"))

import tetherhost  # noqa: E402  (from the build tree, above)
from tetherhost.servers import Simulator  # noqa: E402

SCANS = 500
TDI = bytes([0x33] * 4)


def python_block() -> float:
    with tetherhost.Session("bench-python") as session:
        session.scan_dr(32, TDI)
        start = time.perf_counter_ns()
        for _ in range(SCANS):
            session.scan_dr(32, TDI)
        return (time.perf_counter_ns() - start) / SCANS


def cpp_block() -> float:
    done = subprocess.run([str(build / "bin" / "bench_session"), "--scan-block", str(SCANS)], check=True,
                          capture_output=True, text=True)
    return float(done.stdout)


def main() -> int:
    with tempfile.TemporaryDirectory() as scratch:
        simulator = Simulator(Path(scratch))
        try:
            python_ns, cpp_ns, ratios = [], [], []
            for round_number in range(rounds):
                if round_number % 2 == 0:
                    py, cpp = python_block(), cpp_block()
                else:
                    cpp, py = cpp_block(), python_block()
                python_ns.append(py)
                cpp_ns.append(cpp)
                ratios.append(py / cpp)
        finally:
            simulator.stop()
    print(f"32-bit JTAG scan, medians of {rounds} rounds of {SCANS} scans each:")
    print(f"  Python  {statistics.median(python_ns) / 1000:8.1f} us")
    print(f"  C++     {statistics.median(cpp_ns) / 1000:8.1f} us")
    print(f"  ratio   {statistics.median(ratios):8.3f}  (Python / C++, median of the rounds' ratios; target <= 1.3)")
    return 0


if __name__ == "__main__":
    sys.exit(main())

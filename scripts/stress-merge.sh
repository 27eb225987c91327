#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Bounded stress run of the JTAG shift's read-back: SHIFTS (default 100000)
# shifts with read-back through the library against the simulator, with one
# CPU hog per core beside them, in a network namespace of their own. Prints
# the wrong TDO count (must be 0) and how many read-backs a stream socket
# delivered in the status text's receive, per million. Not a CI step.
# Usage: scripts/stress-merge.sh [BUILD_DIR] [SHIFTS]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
shifts=${2:-100000}
cmake --build "$build" --target stress_merge > /dev/null
exec tests/support/RunIsolated.sh scripts/with-cpu-hog.sh \
  timeout 1800 "$build/bin/stress_merge" "$shifts"

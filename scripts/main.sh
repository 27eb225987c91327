#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The main job on a fresh Debian machine: install what the build needs,
# build, and list the JTAG chain of the simulator's virtual cable with
# tetherctl. The library starts the simulator itself when no server answers
# (and waits the 5 seconds its start-up takes).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh -DTETHERHOST_BUILD_BENCH=OFF
build/bin/tetherctl chain

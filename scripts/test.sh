#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# All tests on a fresh Debian machine: install what the build needs, build,
# and run the whole suite under ctest.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh
ctest --test-dir "${BUILD_DIR:-build}" --output-on-failure -j "$(nproc)"

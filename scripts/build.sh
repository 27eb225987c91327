#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Configures and builds the project into BUILD_DIR (default: build).
# Extra arguments go to cmake's configure step.
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir=${BUILD_DIR:-build}
cmake -S . -B "$build_dir" -G Ninja -DTETHERHOST_WERROR=ON "$@"
cmake --build "$build_dir" -j "$(nproc)"

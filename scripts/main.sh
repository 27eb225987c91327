#!/usr/bin/env bash
# The main job on a fresh Debian machine: install what the build needs,
# build, and run the example host application.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh -DTETHERHOST_BUILD_BENCH=OFF
build/bin/hello_log

#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The simulator under bounded load, with figures on standard output: 64
# clients for SOAK_SECONDS (default 60) with the simulator's descriptors
# checked flat and its resident memory reported at start and end; and one
# client's median Send(38) latency beside 100 stalled connections against
# none (goal: a ratio within 1.5). Each in a private network namespace; run
# by CI after the test suite, on its build (BUILD_DIR, default build).
set -euo pipefail
cd "$(dirname "$0")/.."
build=${BUILD_DIR:-build}
isolated=tests/support/RunIsolated.sh
TETHERHOST_SOAK_SECONDS=${SOAK_SECONDS:-60} timeout 300 "$isolated" "$build/bin/simulator_process_tests" \
  --gtest_filter='BadInput.SixtyFourClientsAtOnceAreAllServedCorrectly'
timeout 300 "$isolated" "$build/bin/bench_simulator" --benchmark_filter='Stalled'

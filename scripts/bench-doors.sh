#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The doors' baseline: OpenOCD's drscan rate through the simulator's
# remote_bitbang door and through a minimal remote_bitbang server, the same
# scans through the library, and openFPGALoader's --detect through the XVC
# door (bench/DoorBench.cpp). Runs bench_doors REPETITIONS times (default 5)
# in network and process namespaces of its own, since it takes 127.0.0.1:4001,
# and prints the rows of bench_report for it.
# Usage: scripts/bench-doors.sh [BUILD_DIR] [extra bench_doors arguments]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
shift $(($# > 0 ? 1 : 0))
repetitions=${REPETITIONS:-5}
results=$(mktemp -d)
trap 'rm -rf "$results"' EXIT
cmake --build "$build" --target bench_doors bench_report > /dev/null
tests/support/RunIsolated.sh "$build/bin/bench_doors" --benchmark_repetitions="$repetitions" \
  --benchmark_report_aggregates_only=true --benchmark_enable_random_interleaving=true \
  --benchmark_out_format=json --benchmark_out="$results/bench_doors.json" "$@"
"$build/bin/bench_report" --doors "$results/bench_doors.json"

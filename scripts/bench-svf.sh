#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The SVF player's figures (bench/SvfBench.cpp): tetherctl svf against
# OpenOCD's svf through remote_bitbang and against a raw send/recv floor, on
# a file of one 4 Mibit SDR and one of 10,000 SIR/SDR pairs, and tetherctl's
# peak memory on a 100 MB file. Each benchmark takes the medians of its own
# rounds; REPETITIONS (default 1) runs it more times and reports the medians
# of those. Runs in network and process namespaces of its own, since it
# takes 127.0.0.1:4001, and prints the rows of bench_report for it.
# Usage: scripts/bench-svf.sh [BUILD_DIR] [extra bench_svf arguments]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
shift $(($# > 0 ? 1 : 0))
repetitions=${REPETITIONS:-1}
results=$(mktemp -d)
trap 'rm -rf "$results"' EXIT
cmake --build "$build" --target bench_svf bench_report > /dev/null
aggregate=()
if [ "$repetitions" -gt 1 ]; then aggregate=(--benchmark_report_aggregates_only=true); fi
tests/support/RunIsolated.sh "$build/bin/bench_svf" --benchmark_repetitions="$repetitions" "${aggregate[@]}" \
  --benchmark_out_format=json --benchmark_out="$results/bench_svf.json" "$@"
"$build/bin/bench_report" --svf "$results/bench_svf.json"

#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Finds flaky tests: runs the whole ctest suite ROUNDS times in a row (default
# 20), plain (BUILD_DIR, default build) and under AddressSanitizer and
# UndefinedBehaviorSanitizer (ASAN_DIR, default build-asan), each with one CPU
# hog per core beside it. Every round is bounded in time; the tests that need
# fixed ports run in network namespaces of their own as always. Prints the
# failures of each round and the totals. A tool for finding flakes, not a CI
# step. Usage: scripts/stress-suite.sh [ROUNDS]
set -uo pipefail
cd "$(dirname "$0")/.."
rounds=${1:-20}
build=${BUILD_DIR:-build}
asan=${ASAN_DIR:-build-asan}
jobs=$(nproc)
export ASAN_OPTIONS=${ASAN_OPTIONS:-halt_on_error=1:detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-halt_on_error=1:print_stacktrace=1}
total_failed=0
for dir in "$build" "$asan"; do
  if [ ! -f "$dir/CTestTestfile.cmake" ]; then
    echo "stress-suite: $dir is not a configured build; skipped" >&2
    continue
  fi
  failed_here=0
  for round in $(seq "$rounds"); do
    log="$dir/Testing/stress-round-$round.log"
    scripts/with-cpu-hog.sh timeout 1800 ctest --test-dir "$dir" -j "$jobs" --timeout 300 \
      > "$log" 2>&1
    failures=$(grep -c '(Failed)\|(Timeout)\|(SEGFAULT)\|(Subprocess aborted)' "$log" || true)
    failed_here=$((failed_here + failures))
    echo "$dir round $round: $failures failed"
    grep '(Failed)\|(Timeout)\|(SEGFAULT)\|(Subprocess aborted)' "$log" || true
  done
  echo "$dir: $failed_here failures in $rounds rounds"
  total_failed=$((total_failed + failed_here))
done
[ "$total_failed" -eq 0 ]

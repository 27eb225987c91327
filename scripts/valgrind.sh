#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Runs the whole test suite under valgrind memcheck, on the plain build that
# scripts/build.sh makes in BUILD_DIR (default build; no sanitizers, which
# valgrind cannot run beside). Every test program of ours runs as
#   valgrind --error-exitcode=99 --leak-check=full ...
# (through scripts/valgrind-test.sh, which leaves the compiler and cmake,
# run by the packaging tests, unchecked), so a memory error or a leak
# (definite, indirect or possible) fails its test and the run. valgrind's
# report is printed for every test that has one. Extra arguments go to
# cmake's configure step.
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir=${BUILD_DIR:-build}
command -v valgrind >/dev/null || { echo "valgrind is not installed" >&2; exit 1; }

options="--error-exitcode=99 --leak-check=full --show-leak-kinds=definite,indirect,possible"
options+=" --errors-for-leak-kinds=definite,indirect,possible --num-callers=40"
BUILD_DIR=$build_dir scripts/build.sh -DMEMORYCHECK_TYPE=Valgrind \
  -DMEMORYCHECK_COMMAND="$PWD/scripts/valgrind-test.sh" -DMEMORYCHECK_COMMAND_OPTIONS="$options" "$@"

export TETHERHOST_MEMCHECK_BIN=$(cd "$build_dir" && pwd)/bin
rm -f "$build_dir"/Testing/Temporary/MemoryChecker.*.log
status=0
ctest --test-dir "$build_dir" -T memcheck --output-on-failure -j "$(nproc)" || status=$?
# ctest keeps one valgrind log per test; show those that report something.
for log in "$build_dir"/Testing/Temporary/MemoryChecker.*.log; do
  [ -s "$log" ] || continue
  if grep -qE 'ERROR SUMMARY: [1-9]|(definitely|indirectly|possibly) lost: [1-9]' "$log"; then
    echo "== $log"
    cat "$log"
  fi
done
exit "$status"

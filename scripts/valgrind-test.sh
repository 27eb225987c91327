#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The memory checker that ctest runs each test with under scripts/valgrind.sh:
# ctest calls it with valgrind's options (all beginning with "--") and then
# the test's command. The program checked is the first word of the command
# that lies in the build's bin folder (TETHERHOST_MEMCHECK_BIN); the words
# before it are a launcher (such as the tests' namespace wrapper
# tests/support/RunIsolated.sh), which is left to run valgrind with the
# program under it. A command without a program of ours (the compiler, cmake)
# runs as it is: it is not our memory to check.
set -euo pipefail
bin_dir=$(readlink -f "${TETHERHOST_MEMCHECK_BIN:?set by scripts/valgrind.sh}")

options=()
while [ $# -gt 0 ] && [[ $1 == --* ]]; do
  options+=("$1")
  shift
done
launcher=()
while [ $# -gt 0 ] && [[ $(readlink -f "$1" 2>/dev/null || true) != "$bin_dir"/* ]]; do
  launcher+=("$1")
  shift
done
if [ $# -eq 0 ]; then
  # An empty report for ctest, which looks for one after every test.
  for option in "${options[@]}"; do
    if [[ $option == --log-file=* ]]; then : >"${option#--log-file=}"; fi
  done
  exec "${launcher[@]}"
fi
exec "${launcher[@]}" valgrind "${options[@]}" "$@"

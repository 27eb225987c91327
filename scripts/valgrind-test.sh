#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The memory checker that ctest runs each test with under scripts/valgrind.sh:
# ctest calls it with valgrind's options (all beginning with "--") and then
# the test's command. The program checked is the command's first word when
# it lies in the build's bin folder (TETHERHOST_MEMCHECK_BIN); when the
# command starts with the tests' namespace wrapper tests/support/RunIsolated.sh
# (or a script it runs), it is the first word of ours after it, and the words
# before it are left to run valgrind with the program under it. Any other
# command (the compiler, cmake, a Python script that is handed one of our
# programs as an argument) runs as it is: it is not our memory to check, and
# its arguments are its own.
set -euo pipefail
bin_dir=$(readlink -f "${TETHERHOST_MEMCHECK_BIN:?set by scripts/valgrind.sh}")

options=()
while [ $# -gt 0 ] && [[ $1 == --* ]]; do
  options+=("$1")
  shift
done
ours() { [[ $(readlink -f "$1" 2>/dev/null || true) == "$bin_dir"/* ]]; }
# An empty report for ctest, which looks for one after every test.
empty_report() {
  for option in "${options[@]}"; do
    if [[ $option == --log-file=* ]]; then : >"${option#--log-file=}"; fi
  done
}
if [ $# -gt 0 ] && ! ours "$1" && [ "$(basename "$1")" != RunIsolated.sh ]; then
  empty_report
  exec "$@"
fi
launcher=()
while [ $# -gt 0 ] && ! ours "$1"; do
  launcher+=("$1")
  shift
done
if [ $# -eq 0 ]; then
  empty_report
  exec "${launcher[@]}"
fi
exec "${launcher[@]}" valgrind "${options[@]}" "$@"

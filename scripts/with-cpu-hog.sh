#!/bin/sh
# SPDX-License-Identifier: MIT
# Runs COMMAND with one busy loop per core beside it, so that the command's
# processes are preempted at random points as on a loaded machine; the loops
# are ended by their process ids when the command ends. The command's exit
# status is passed on. Usage: scripts/with-cpu-hog.sh COMMAND [ARGS...]
hogs=""
for core in $(seq "$(nproc)"); do
  ( while :; do :; done ) &
  hogs="$hogs $!"
done
status=0
"$@" || status=$?
kill $hogs
exit $status

#!/bin/sh
# SPDX-License-Identifier: MIT
# Runs a test program in namespaces of its own: a network namespace with
# only its loopback, so that 127.0.0.1:4001 is the test's alone, and a PID
# namespace with its own /proc, so that pidof sees only the processes the
# test starts. Other programs of the machine (another tetherhost server, a
# peer of another test run) can then neither answer nor be found. The shell
# stays the namespace's first process and the test runs beneath it, so that
# the test gets ordinary signal handling (SIGPIPE included).
PATH="$PATH:/usr/sbin:/sbin"
exec unshare --user --map-root-user --pid --fork --kill-child --mount-proc --net \
    /bin/sh -c 'ip link set lo up && "$0" "$@"' "$@"

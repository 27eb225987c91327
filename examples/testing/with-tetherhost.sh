#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# with-tetherhost.sh: runs a host application against a tetherhost server
# started for it alone, as a CI test does:
#
#   with-tetherhost.sh [--expect FILE] TETHERHOST [SERVER OPTION...] -- HOST [ARGUMENT...]
#
# Starts the server program TETHERHOST with the options (--replay FILE,
# --faults FILE, --chain NAME, ...) on 127.0.0.1:4001, waits until it
# listens, runs HOST, and ends the server: a replay (--replay without
# --replay-then-model) ends by itself once its recording has been played;
# any other server is stopped by its pid. The host's standard output is
# shown, and with --expect compared with FILE.
#
# Exit status: the host's when it failed; 1 when its output differs from
# FILE (the difference on standard error); otherwise the server's (a
# replay: 0 when every recorded connection was replayed exactly, 1 when a
# client left its recording). 2 when the server did not start.
set -u
usage() {
    echo "usage: with-tetherhost.sh [--expect FILE] TETHERHOST [SERVER OPTION...] -- HOST [ARGUMENT...]" >&2
    exit 2
}
expect=
if [[ ${1-} == --expect ]]; then
    (($# >= 2)) || usage
    expect=$2
    shift 2
fi
(($# >= 1)) || usage
tetherhost=$1
shift
server=()
while (($#)) && [[ $1 != -- ]]; do
    server+=("$1")
    shift
done
(($# >= 2)) || usage
shift

replay=0
for option in "${server[@]}"; do
    [[ $option == --replay ]] && replay=1
done
for option in "${server[@]}"; do
    [[ $option == --replay-then-model ]] && replay=0
done

work=$(mktemp -d) || exit 2
trap 'rm -rf "$work"' EXIT
# The server writes its pid file once it listens; here the file is a pipe
# that this script reads, so the wait ends the moment the server is ready.
# A server that ends without writing it (a bad option or file) leaves
# "ended STATUS" there instead, so the wait never outlasts the server. The
# script holds the pipe open for reading and writing, so no writer ever
# waits for a reader.
mkfifo "$work/ready" || exit 2
exec 3<>"$work/ready"
(
    "$tetherhost" "${server[@]}" --pid-file "$work/ready"
    status=$?
    [[ -p $work/ready ]] && echo "ended $status" >"$work/ready"
    exit "$status"
) 3>&- &
runner=$!
read -r ready <&3
if [[ $ready == ended* ]]; then
    wait "$runner"
    echo "with-tetherhost.sh: $tetherhost did not start (exit status ${ready#ended })" >&2
    exit 2
fi

"$@" >"$work/output"
host=$?
cat "$work/output"
((replay)) || kill -TERM "$ready"
wait "$runner"
status=$?

if ((host != 0)); then
    echo "with-tetherhost.sh: $1 exited with status $host" >&2
    exit "$host"
fi
if [[ -n $expect ]] && ! diff -u "$expect" "$work/output" >&2; then
    echo "with-tetherhost.sh: the output of $1 differs from $expect" >&2
    exit 1
fi
exit "$status"

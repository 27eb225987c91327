# SPDX-License-Identifier: MIT
"""A Python host whose server start fails: Connect forks to start the
server, and when the program is missing the child comes back as a copy of
the host. The copy must not run the host's Python code (not even its
finally blocks or atexit handlers): only the host writes the marker. This
test process becomes a subreaper, so a copy that outlives the host is
waited for here before the marker is read. No server runs in the test's
namespaces, and pidof finds none."""
import ctypes
import os
import subprocess
import sys

PR_SET_CHILD_SUBREAPER = 36

HOST = """
import atexit, os, sys, tetherhost
marker, directory = sys.argv[1], sys.argv[2]
def mark(what):
    with open(marker, "a") as out:
        out.write(f"{os.getpid()} {what}\\n")
atexit.register(mark, "atexit")
try:
    tetherhost.Session("py-host", server_directory=directory)
except tetherhost.Error as error:
    mark(error.status)
"""


def test_a_failed_server_start_runs_the_hosts_code_only_in_the_host(tmp_path):
    libc = ctypes.CDLL(None, use_errno=True)
    assert libc.prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0) == 0
    try:
        directory = tmp_path / "no-server-here"
        directory.mkdir()
        marker = tmp_path / "marker"
        host = subprocess.Popen([sys.executable, "-c", HOST, str(marker), str(directory)],
                                stdin=subprocess.DEVNULL)
        assert host.wait(timeout=60) == 0
        # Any copy that outlived the host is this process's child now.
        others = {}
        while True:
            try:
                pid, status = os.waitpid(-1, 0)
            except ChildProcessError:
                break
            others[pid] = status
    finally:
        libc.prctl(PR_SET_CHILD_SUBREAPER, 0, 0, 0, 0)
    lines = marker.read_text().split("\n")
    assert lines == [f"{host.pid} -1001", f"{host.pid} atexit", ""]
    for status in others.values():
        assert os.waitstatus_to_exitcode(status) == 127

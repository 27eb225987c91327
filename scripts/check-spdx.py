#!/usr/bin/env python3
"""Lists the source files that do not declare the project's license.

Every C and C++ source and header, CMake file, shell, Python and Lua script
of the tree must carry "SPDX-License-Identifier: MIT" in one of its first
lines, so that a file copied out of the tree still says under which terms it
may be used. A script without an extension counts by its "#!" line. The files
looked at are those git knows of (tracked, or new and not ignored), so build
trees are never read; outside a git checkout (an unpacked release) the
folders are walked, skipping build*/ and hidden folders.

Usage: scripts/check-spdx.py [ROOT]; prints each file lacking the line and
exits 1 if there is any.
"""
import os
import re
import subprocess
import sys

IDENTIFIER = "SPDX-License-Identifier: MIT"
FIRST_LINES = 5
SUFFIXES = (".c", ".cc", ".cpp", ".cxx", ".h", ".hh", ".hpp", ".hxx", ".h.in",
            ".cmake", ".cmake.in", ".sh", ".bash", ".bash.in", ".py", ".lua")
NAMES = {"CMakeLists.txt"}
SCRIPT_LINE = re.compile(r"^#!.*\b(sh|bash|python3?|lua)\b")


def tree_files(root):
    """Paths relative to root of every file that belongs to the tree."""
    try:
        listing = subprocess.run(["git", "-C", root, "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                                 check=True, capture_output=True).stdout
        return sorted(set(p for p in listing.decode().split("\0") if p and os.path.isfile(os.path.join(root, p))))
    except (OSError, subprocess.CalledProcessError):
        found = []
        for directory, folders, files in os.walk(root):
            folders[:] = sorted(f for f in folders if not f.startswith(".") and not f.startswith("build"))
            found += [os.path.relpath(os.path.join(directory, f), root) for f in files]
        return sorted(found)


def head(path, count):
    with open(path, "rb") as source:
        return [source.readline().decode("utf-8", "replace") for _ in range(count)]


def is_source(root, path):
    name = os.path.basename(path)
    if name in NAMES or name.endswith(SUFFIXES):
        return True
    if "." in name:
        return False
    return SCRIPT_LINE.match(head(os.path.join(root, path), 1)[0]) is not None


def main():
    root = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
    lacking = [p for p in tree_files(root)
               if is_source(root, p) and not any(IDENTIFIER in line for line in head(os.path.join(root, p), FIRST_LINES))]
    for path in lacking:
        print(path)
    if lacking:
        print(f"{len(lacking)} source files lack \"{IDENTIFIER}\" in their first {FIRST_LINES} lines", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())

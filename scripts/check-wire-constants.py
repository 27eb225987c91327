#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Finds wire constants written out by hand outside protocol/.

The frame size (1024), the transfer failure codes (1001, 1002) and the "+"
token have one home, protocol/ (Frames.h, Status.h); everywhere else they are
used by name. This check reads every C++ file of the production folders and
the Wireshark dissector's Lua (which takes them from its generated table),
strips comments and the contents of string and character literals, and
reports each numeral 1024, 1001 or 1002 (integer or floating), each
respelling of the frame size (0x400, a shift by 10), and each "+" string or
'+' character literal. Message identifiers such as "1001" are texts of the
catalogue and stay as they are. support/ByteUnits.h states the binary
multiple Ki once, by name, for sizes that are not frames.

Usage: scripts/check-wire-constants.py [ROOT]; exit status 1 on a finding.
"""
import os
import re
import sys

FOLDERS = ["client", "clientutils", "platform", "wire", "support", "server", "tools", "include", "examples",
           "wireshark", "session", "python"]
EXEMPT = {os.path.join("support", "ByteUnits.h")}
NUMERAL = re.compile(r"(?<![\w.])(1024|1001|1002)(?![\w])|\b0[xX]0*400\b|<<\s*10\b")


def strip(source, lua=False):
    """The source with comments removed and literals emptied; a "+" or '+'
    literal becomes the marker PLUS_LITERAL. Line breaks are kept. Lua's
    comments run from "--" to the end of the line."""
    out = []
    i, n = 0, len(source)
    while i < n:
        if source.startswith("--" if lua else "//", i):
            end = source.find("\n", i)
            i = n if end < 0 else end
        elif not lua and source.startswith("/*", i):
            end = source.find("*/", i + 2)
            end = n if end < 0 else end + 2
            out.append("\n" * source.count("\n", i, end))
            i = end
        elif source[i] in "\"'" and not (source[i] == "'" and i > 0 and source[i - 1].isalnum()):
            quote = source[i]
            j = i + 1
            while j < n and source[j] != quote and source[j] != "\n":
                j += 2 if source[j] == "\\" else 1
            literal = source[i + 1:j]
            out.append(" PLUS_LITERAL " if literal == "+" else quote * 2)
            i = j + 1
        else:
            out.append(source[i])
            i += 1
    return "".join(out)


def main():
    root = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), "..")
    findings = 0
    for folder in FOLDERS:
        for directory, _, files in os.walk(os.path.join(root, folder)):
            for name in sorted(files):
                if not name.endswith((".h", ".hpp", ".cpp", ".lua")):
                    continue
                path = os.path.join(directory, name)
                relative = os.path.relpath(path, root)
                if relative in EXEMPT:
                    continue
                with open(path, encoding="utf-8") as source:
                    text = strip(source.read(), lua=name.endswith(".lua"))
                for number, line in enumerate(text.split("\n"), 1):
                    if NUMERAL.search(line) or "PLUS_LITERAL" in line:
                        print(f"{relative}:{number}: a wire constant written out: {line.strip()}")
                        findings += 1
    if findings:
        print(f"{findings} wire constants outside protocol/: use the names of protocol/Frames.h and protocol/Status.h")
        return 1
    print("wire constants: each used by its protocol/ name")
    return 0


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The programs' man pages and tetherctl's bash completion against the
programs themselves.

  check_cli_docs.py man PROGRAM PAGE [SUBCOMMAND...]
      Every entry of PAGE's OPTIONS section (options and the subcommand list)
      and of each subcommand's part of its COMMANDS section, with its
      description, is exactly what PROGRAM --help and PROGRAM SUBCOMMAND
      --help print: no entry more, none fewer, no description different.
  check_cli_docs.py completion SCRIPT
      bash, with SCRIPT sourced and COMP_WORDS set as bash sets them, gets
      exactly the expected completions for a set of command lines.

Exit status 1 with the differences on a mismatch.
"""
import re
import subprocess
import sys


def help_entries(command):
    """{first word of the entry: its description} from CLI11's --help: the
    lines of its Options, Positionals and Subcommands sections."""
    text = subprocess.run(command + ["--help"], check=True, capture_output=True, text=True).stdout
    entries = {}
    section = None
    pending = None
    for line in text.splitlines():
        if re.match(r"^(Options|Positionals|Subcommands):$", line):
            section = line
            continue
        if not line.startswith(" "):
            section = None if line.strip() == "" or section is None else section
            if line.strip() and not line.startswith(" "):
                section = None
            continue
        if section is None:
            continue
        # "  NAME TYPE        description", or the name alone and the
        # description on the next line, indented further.
        match = re.match(r"^  (\S.*?)(?: {2,}(\S.*))?$", line)
        if line.startswith("   ") and pending is not None:
            entries[pending] = line.strip()
            pending = None
            continue
        name = match.group(1).split()[0]
        if match.group(2) is None:
            pending = name
        else:
            entries[name] = match.group(2).strip()
    return entries


def unroff(text):
    text = re.sub(r"\\f[BIRP]|\\f\(..|\\/|\\,", "", text)
    return text.replace("\\-", "-").replace("\\e", "\\")


def page_entries(lines):
    """{first word of the .TP entry: its description} of a run of roff lines."""
    entries = {}
    i = 0
    while i < len(lines):
        if lines[i] == ".TP" and i + 2 < len(lines):
            name = unroff(lines[i + 1]).split()[0]
            description = []
            j = i + 2
            while j < len(lines) and not lines[j].startswith("."):
                description.append(unroff(lines[j]))
                j += 1
            entries[name] = " ".join(description).strip()
            i = j
        else:
            i += 1
    return entries


def page_sections(page):
    """{section or subsection title: its lines}, the subsections of COMMANDS
    apart from the rest."""
    sections = {}
    current = None
    for line in open(page, encoding="utf-8").read().splitlines():
        heading = re.match(r'^\.(SH|SS) "?(.*?)"?$', line)
        if heading and (heading.group(1) == "SH" or current is None or not current.startswith("OPTIONS")):
            current = unroff(heading.group(2))
            if heading.group(1) == "SS" and not current.startswith("tetherctl "):
                current = "OPTIONS"
            sections.setdefault(current, [])
            continue
        if current is not None:
            sections[current].append(line)
    return sections


def compare(what, expected, actual):
    problems = []
    for name in sorted(set(expected) | set(actual)):
        if name not in actual:
            problems.append(f"{what}: {name} is in --help but not in the man page")
        elif name not in expected:
            problems.append(f"{what}: {name} is in the man page but not in --help")
        elif expected[name] != actual[name]:
            problems.append(f"{what}: {name}: --help says {expected[name]!r}, the man page {actual[name]!r}")
    return problems


def check_man(program, page, subcommands):
    sections = page_sections(page)
    name = program.rsplit("/", 1)[-1]
    problems = compare(name, help_entries([program]), page_entries(sections.get("OPTIONS", [])))
    for subcommand in subcommands:
        title = f"{name} {subcommand}"
        if title not in sections:
            problems.append(f"{title}: no part of its own in the man page")
            continue
        problems += compare(title, help_entries([program, subcommand]), page_entries(sections[title]))
    listed = sorted(t for t in sections if t.startswith(name + " "))
    if sorted(f"{name} {s}" for s in subcommands) != listed:
        problems.append(f"the man page's subcommand parts are {listed}, expected {sorted(subcommands)}")
    return problems


COMPLETIONS = [
    (["tetherctl", ""], "chain shift sspi i2c pump svf send decode codes"),
    (["tetherctl", "s"], "shift sspi svf send"),
    (["tetherctl", "--"], "--help --version --name --server-dir --log --debug --json"),
    (["tetherctl", "svf", "--"], "--help --version --name --server-dir --log --debug --json --keep-going --dry-run --quiet"),
    (["tetherctl", "sspi", "--w"], "--write-only"),
    (["tetherctl", "send", "38", "--reply", ""], "int text list"),
    (["tetherctl", "send", "38", "--reply", "t"], "text"),
    (["tetherctl", "shift", ""], "ir dr"),
    (["tetherctl", "shift", "ir", ""], ""),
    (["tetherctl", "--name", "chain", "s"], "shift sspi svf send"),
    (["tetherctl", "--log", ""], ""),
    (["tetherctl", "chain", "x"], ""),
]


def check_completion(script):
    problems = []
    registered = subprocess.run(["bash", "-c", 'source "$0" && complete -p tetherctl', script],
                                capture_output=True, text=True)
    if registered.stdout.strip() != "complete -o default -F _tetherctl tetherctl":
        problems.append(f"registration: {registered.stdout.strip()!r} {registered.stderr.strip()}")
    for words, expected in COMPLETIONS:
        run = subprocess.run(
            ["bash", "-c", 'source "$0"; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); COMPREPLY=(); _tetherctl; '
             'echo "${COMPREPLY[*]}"', script] + words, capture_output=True, text=True)
        got = run.stdout.strip()
        if run.returncode != 0 or got != expected or run.stderr:
            problems.append(f"{' '.join(words)!r}<TAB>: expected {expected!r}, got {got!r} {run.stderr.strip()}")
    return problems


def main():
    if len(sys.argv) >= 4 and sys.argv[1] == "man":
        problems = check_man(sys.argv[2], sys.argv[3], sys.argv[4:])
    elif len(sys.argv) == 3 and sys.argv[1] == "completion":
        problems = check_completion(sys.argv[2])
    else:
        print(__doc__, file=sys.stderr)
        return 2
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())

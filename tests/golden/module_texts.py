#!/usr/bin/env python3
"""The texts the module can write: every string literal of its sources, adjacent literals joined,
listed file by file in the order they appear. A text added, removed or changed in the module shows
up as a difference against module_texts.txt beside this script.

  module_texts.py SOURCE_DIR            compare, print a diff, exit 1 when they differ
  module_texts.py SOURCE_DIR --write    rewrite module_texts.txt from the sources
"""
import difflib
import os
import re
import sys

# The module's own code; the host's preflight in src/packngo is not part of it.
MODULE_DIRS = ["src/utility", "src/package", "src/packngo", "src/mapping"]
NOT_MODULE = {"Preflight.cpp", "Preflight.h"}
GOLDEN = os.path.join(os.path.dirname(os.path.abspath(__file__)), "module_texts.txt")

TOKEN = re.compile(r'''
    (?P<comment>//[^\n]*|/\*.*?\*/)
  | (?P<string>"(?:[^"\\\n]|\\.)*")
  | (?P<char>'(?:[^'\\\n]|\\.)+')
  | (?P<include>\#\s*include[^\n]*)
  | (?P<space>\s+)
  | (?P<other>.)
''', re.S | re.X)


def literals(text):
    """The string literals of a C++ source, adjacent ones (only blanks or comments between)
    joined into one."""
    found, current = [], None
    for match in TOKEN.finditer(text):
        kind = match.lastgroup
        if kind == "string":
            body = match.group()[1:-1]
            current = body if current is None else current + body
        elif kind in ("space", "comment"):
            continue
        else:
            if current is not None:
                found.append(current)
            current = None
    if current is not None:
        found.append(current)
    return found


def listing(source_dir):
    lines = []
    for folder in MODULE_DIRS:
        for name in sorted(os.listdir(os.path.join(source_dir, folder))):
            if name in NOT_MODULE or not name.endswith((".cpp", ".h")):
                continue
            path = os.path.join(source_dir, folder, name)
            texts = [t for t in literals(open(path, encoding="utf-8").read()) if t]
            if texts:
                lines.append("%s/%s" % (folder, name))
                lines.extend('  "%s"' % t for t in texts)
    return "\n".join(lines) + "\n"


def main(argv):
    source_dir = argv[1]
    actual = listing(source_dir)
    if len(argv) > 2 and argv[2] == "--write":
        open(GOLDEN, "w", encoding="utf-8").write(actual)
        return 0
    expected = open(GOLDEN, encoding="utf-8").read()
    if actual == expected:
        return 0
    sys.stdout.writelines(difflib.unified_diff(
        expected.splitlines(True), actual.splitlines(True), "module_texts.txt", "sources"))
    print("The module's texts changed. If that is intended, run: python3 %s %s --write"
          % (os.path.relpath(__file__, source_dir), source_dir))
    return 1


if __name__ == "__main__":
    sys.exit(main(sys.argv))

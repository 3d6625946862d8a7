#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
"""Compares the atomic accesses and fences of the sources with the argument for their order.

usage: order_labels.py DESIGN SOURCES

Each fence has a comment in its line with the lines of the argument that it serves, as "[R2]"; an
access may have it in the line above or the one above that. DESIGN has these lines as rows of tables
that begin with "| R2 |".
"""

import pathlib
import re
import sys

ACCESS = re.compile(r"__atomic_(load|store|exchange|compare|fetch|thread|add|sub|or|and)"
                    r"|atomic_(thread|signal)_fence|memory_order_")
LABEL = re.compile(r"\[([A-Z][0-9]+)\]")
ROW = re.compile(r"^\| ([A-Z][0-9]+) \|", re.MULTILINE)

FENCE = re.compile(r"atomic_(thread|signal)_fence")

# The comment of a field's first access speaks for the others beside it.
LINES_ABOVE = 2


def main(design, sources):
    rows = set(ROW.findall(pathlib.Path(design).read_text()))
    complaints = []
    for path in sorted(pathlib.Path(sources).rglob("*")):
        if path.suffix not in (".cpp", ".h"):
            continue
        lines = path.read_text().splitlines()
        for number, line in enumerate(lines):
            code, _, comment = line.partition("//")
            for label in set(LABEL.findall(comment)) - rows:
                complaints.append(f"{path}:{number + 1}: {design} has no line {label}")
            above = 0 if FENCE.search(code) else LINES_ABOVE
            near = lines[max(0, number - above):number + 1]
            if ACCESS.search(code) and not any(LABEL.search(text.partition("//")[2]) for text in near):
                complaints.append(f"{path}:{number + 1}: names no line of the argument for its order")
    print("\n".join(complaints))
    return 1 if complaints or not rows else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))

#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
"""Compares the atomic accesses and fences of the sources with the argument for their order.

usage: order_labels.py DESIGN SOURCES...

Each fence has a comment in its line with the lines of the argument that it serves, as "[R2]"; an
access may have it in the line above or the one above that. DESIGN has these lines as rows of tables
that begin with "| R2 |". Where such a row speaks of "an acquire fence" or "a release fence", the first of
SOURCES has one. Nobody uses an atomic object without naming an order.
"""

import pathlib
import re
import sys

ACCESS = re.compile(r"__atomic_(load|store|exchange|compare|fetch|thread|add|sub|or|and)"
                    r"|atomic_(thread|signal)_fence|memory_order_")
LABEL = re.compile(r"\[([A-Z][0-9]+)\]")
ROW = re.compile(r"^\| ([A-Z][0-9]+) \|", re.MULTILINE)

FENCE = re.compile(r"atomic_(thread|signal)_fence")
FENCED_ROW = re.compile(r"^\| ([A-Z][0-9]+) \|.*\ban? (acquire|release) fence", re.MULTILINE)

ATOMIC_OBJECT = re.compile(r"std::atomic<[^;=]*> (\w+)\s*[;{=]")

# The comment of a field's first access speaks for the others beside it.
LINES_ABOVE = 2


def complaints_of(path, lines, rows, fenced):
    atomics = [match.group(1) for line in lines for match in ATOMIC_OBJECT.finditer(line)]
    for number, line in enumerate(lines):
        code, _, comment = line.partition("//")
        where = f"{path}:{number + 1}"
        for label in sorted(set(LABEL.findall(comment)) - rows):
            yield f"{where}: there is no line {label} of the argument"
        above = 0 if FENCE.search(code) else LINES_ABOVE
        near = lines[max(0, number - above):number + 1]
        if ACCESS.search(code) and not any(LABEL.search(text.partition("//")[2]) for text in near):
            yield f"{where}: names no line of the argument for its order"
        if FENCE.search(code):
            fenced.update(LABEL.findall(comment))
        for name in atomics:
            if re.search(rf"\b{name}\b(?!\.)", ATOMIC_OBJECT.sub("", code)):
                yield f"{where}: uses {name} without naming an order"


def main(design, *folders):
    text = pathlib.Path(design).read_text()
    rows = set(ROW.findall(text))
    complaints = []
    missing = {match[0] for match in FENCED_ROW.findall(text)}
    for place, folder in enumerate(folders):
        fenced = set()
        for path in sorted(pathlib.Path(folder).rglob("*")):
            if path.suffix in (".cpp", ".h"):
                complaints += complaints_of(path, path.read_text().splitlines(), rows, fenced)
        if place == 0:
            complaints += [f"{folder}: has no fence of {label}" for label in sorted(missing - fenced)]
    print("\n".join(complaints))
    return 1 if complaints or not rows else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))

#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
"""Passes when every public header, and every class, structure, type and function of the library that
stands on its own in one, says since which version it is there, and none is from the future. Types of
other libraries have no mark.

usage: since_marks.py VERSION HEADER...
"""

import pathlib
import re
import sys

COMMENT = r"(/\*\*(?:(?!\*/).)*\*/)"
SUBJECT = re.compile(
    COMMENT + r"\n((?:class|struct|enum|namespace|typedef(?! struct _)|VASK_EXPORT)\b[^;{(]*)", re.DOTALL)
FILE = re.compile(r"(/\*\*\n \* (@file)(?:(?!\*/).)*\*/)", re.DOTALL)
MARK = re.compile(r"@since (\d+)\.(\d+)\n")


def main():
    version, *headers = sys.argv[1:]
    newest = tuple(int(number) for number in version.split(".")[:2])
    problems, count = [], 0
    for header in map(pathlib.Path, headers):
        text = header.read_text()
        for comment, subject in FILE.findall(text) + SUBJECT.findall(text):
            count += 1
            since = MARK.search(comment)
            if since is None:
                problems.append(f"{header.name}: since when is there '{subject.strip()}'?")
            elif tuple(map(int, since.groups())) > newest:
                problems.append(f"{header.name}: '{subject.strip()}' is of a later version than {version}")
    print("\n".join(problems) or f"{count} marks in {len(headers)} headers")
    sys.exit(1 if problems or count < len(headers) else 0)


main()

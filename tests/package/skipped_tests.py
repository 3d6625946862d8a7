#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
"""Passes when each test that a list of skipped tests names is there.

usage: skipped_tests.py LIST TEST_SOURCE_DIRECTORY
"""

import pathlib
import re
import sys

MACRO = re.compile(r"^TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\)", re.MULTILINE)
ENTRY = re.compile(r"^(?:\w+/)?(\w+\.\w+)(?:/\d+)?: \S", re.ASCII)

there = {f"{suite}.{name}" for source in pathlib.Path(sys.argv[2]).rglob("*.cpp")
         for suite, name in MACRO.findall(source.read_text())}
failed = False
for line in pathlib.Path(sys.argv[1]).read_text().splitlines():
    if line and not line.startswith("#"):
        entry = ENTRY.match(line)
        if not entry or entry[1] not in there:
            print(f"no test has this name, or the reason is missing: {line}")
            failed = True
sys.exit(failed or not there)

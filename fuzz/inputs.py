#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
"""Keeps the inputs of a fuzz target in a file that people can read: a line for each, with the escapes of
Python, and comments behind "#" at the beginning of a line.

usage: inputs.py unpack LIST DIRECTORY   makes a file of each line; the directory is made anew
       inputs.py line FILE...            prints the line for each file, to be put into a list
"""

import ast
import pathlib
import shutil
import sys


def unpack(listed, directory):
    shutil.rmtree(directory, ignore_errors=True)
    directory.mkdir(parents=True)
    for number, line in enumerate(listed.read_text(encoding="ascii").splitlines(), 1):
        if line and not line.startswith("#"):
            text = line.replace('"', r"\x22")
            (directory / f"{number:04}").write_bytes(ast.literal_eval(f'b"{text}"'))


def line_of(file):
    line = "".join(chr(byte) if 32 <= byte < 127 and chr(byte) not in "\\" else f"\\x{byte:02x}"
                   for byte in file.read_bytes())
    # An empty line and a comment are no inputs.
    return r"\x23" + line[1:] if line.startswith("#") else line


def main():
    if len(sys.argv) == 4 and sys.argv[1] == "unpack":
        unpack(pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3]))
    elif len(sys.argv) > 2 and sys.argv[1] == "line":
        print(*(line_of(pathlib.Path(name)) for name in sys.argv[2:]), sep="\n")
    else:
        sys.exit(__doc__)


main()

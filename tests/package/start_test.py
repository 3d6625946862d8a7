#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
"""Starts an empty program that is linked to the library, beside one that is linked to dbus-glib,
GObject and the C++ library alone. The first maps the library and nothing else beyond the second, and
touches a few pages more.

usage: start_test.py LIBRARY COMPILER DIRECTORY
"""

import os
import re
import subprocess
import sys

STARTS = 20
MORE_PAGES = 20  # the library's own data and tables; each library below it would be as many again


def build(compiler, path, libraries):
    source = path + ".cpp"
    with open(source, "w", encoding="ascii") as file:
        file.write("int main() {}\n")
    subprocess.run(
        [compiler, source, "-o", path, "-Wl,--no-as-needed", *libraries, "-lstdc++"], check=True
    )
    return path


def mapped_libraries(program):
    """Their names without the directories, as the dynamic loader lists them."""
    environment = dict(os.environ, LD_TRACE_LOADED_OBJECTS="1")
    listing = subprocess.run(
        [program], env=environment, check=True, capture_output=True, text=True
    ).stdout
    if "not found" in listing:
        sys.exit(listing)
    return set(re.findall(r"^\s*(?:\S*/)?(\S+)", listing, re.MULTILINE))


def page_faults(program):
    """The fewest of some starts: what else the machine does can only add to them."""
    faults = []
    for _ in range(STARTS):
        pid = os.posix_spawn(program, [program], os.environ)
        _, status, usage = os.wait4(pid, 0)
        if status != 0:
            sys.exit(f"{program} has ended with status {status}")
        faults.append(usage.ru_minflt)
    return min(faults)


def main():
    library, compiler, directory = sys.argv[1:]
    os.makedirs(directory, exist_ok=True)
    below = ["-ldbus-glib-1", "-lgobject-2.0"]
    own = [library, "-Wl,-rpath," + os.path.dirname(library)]
    baseline = build(compiler, os.path.join(directory, "baseline"), below)
    program = build(compiler, os.path.join(directory, "program"), own + below)

    more = mapped_libraries(program) - mapped_libraries(baseline)
    if more != {"libvask.so.2"}:
        sys.exit("The library maps " + ", ".join(sorted(more)))
    more_faults = page_faults(program) - page_faults(baseline)
    print(f"{more_faults} page faults more, {MORE_PAGES} allowed")
    return 0 if more_faults <= MORE_PAGES else 1


if __name__ == "__main__":
    sys.exit(main())

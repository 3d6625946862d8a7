#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
"""Usage: benchmark_table_test.py SUMMARISE

Rows of one group stand under one heading, also if another group was measured between them."""

import json
import os
import subprocess
import sys
import tempfile


def write_results(directory, file, *names):
    results = [
        {
            "name": name,
            "run_name": name,
            "run_type": "iteration",
            "family_index": index,
            "real_time": 10.0,
            "time_unit": "ns",
        }
        for index, name in enumerate(names)
    ]
    path = os.path.join(directory, file)
    with open(path, "w", encoding="utf-8") as output:
        json.dump({"benchmarks": results}, output)
    return path


def main(summarise):
    with tempfile.TemporaryDirectory() as directory:
        again = write_results(directory, "again.json", "a registry/ours", "a scan/ours")
        before = write_results(directory, "before.json", "a registry/theirs", "a scan/theirs")
        command = [sys.executable, summarise, "--markdown", again, before]
        table = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    firsts = [line.split(" | ")[0].lstrip("| ") for line in table.splitlines()[2:]]
    expected = ["**a registry**", "ours", "theirs", "**a scan**", "ours", "theirs"]
    if firsts != expected:
        sys.exit(f"The table is torn apart:\n{table}")


if __name__ == "__main__":
    main(sys.argv[1])

#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
"""Prints one table from the JSON results of the benchmark programs.

Benchmarks are named "group/competitor". Within a group, ratios are taken to the competitor whose
label is "baseline". A label "ratio <= N" or "added ns <= N" is a limit on the medians' ratio or
difference. A row that counts something else than time has a counter with the name of a unit below,
and its limit is "amount <= N". The exit status is
1 when a benchmark failed. A missed limit is only marked, unless --check is given: then the exit status
is 1 also where a median is over its limit by more than its own spread, the distance of the quartiles.
"""

import argparse
import json
import re
import statistics
import sys

NS_PER_UNIT = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
AMOUNT_UNITS = ["KB", "faults"]
HEAD = ["", "median", "ratio", "ratio of the best runs", "limit"]


class Row:
    def __init__(self, group, competitor):
        self.group = group
        self.competitor = competitor
        self.label = ""
        self.unit = "ns"
        self.values = []

    def median(self):
        return statistics.median(self.values)

    def best(self):
        return min(self.values)

    def spread(self):
        if len(self.values) < 2:
            return 0
        first, _, third = statistics.quantiles(self.values, n=4, method="inclusive")
        return third - first


class Limit:
    """What a row has to reach, and by how much it does not, in the unit of its values."""

    def __init__(self, kind, number, row, baseline):
        if kind == "amount":
            self.text, allowed = f"{number} {row.unit}", float(number)
        elif kind == "ratio":
            self.text, allowed = number, float(number) * baseline.median()
        else:
            self.text, allowed = f"+{number} ns", float(number) + baseline.median()
        self.excess = row.median() - allowed
        self.is_missed = self.excess > 0
        self.is_missed_clearly = self.excess > row.spread()


def read_rows(paths):
    """The rows in the order of the files, those of a group together where its first one stands, and what
    the benchmarks that failed have said."""
    rows = {}
    errors = []
    for path in paths:
        with open(path, encoding="utf-8") as file:
            results = json.load(file)["benchmarks"]
        for result in sorted(results, key=lambda result: result["family_index"]):
            if result["run_type"] != "iteration":
                continue
            if result.get("error_occurred"):
                errors.append(f"{result['name']}: {result['error_message']}")
                continue
            # Behind the name the benchmark library says how it took the time.
            name = re.sub(
                r"(/(min_time|iterations):[0-9.]+)?(/(real_time|manual_time))?$",
                "",
                result["run_name"],
            )
            # Only the last slash separates: a group may name a path.
            group, competitor = name.rsplit("/", 1)
            row = rows.setdefault(name, Row(group, competitor))
            row.label = result.get("label", "")
            amounts = [unit for unit in AMOUNT_UNITS if unit in result]
            if amounts:
                row.unit = amounts[0]
                row.values.append(result[row.unit])
            else:
                row.values.append(result["real_time"] * NS_PER_UNIT[result["time_unit"]])
    # A file may have some rows of a group alone: those that were measured again.
    place = {}
    for row in rows.values():
        place.setdefault(row.group, len(place))
    return sorted(rows.values(), key=lambda row: place[row.group]), errors


def format_value(row):
    if row.unit in AMOUNT_UNITS:
        return f"{row.median():.4g} {row.unit}"
    return format_time(row.median())


def format_time(ns):
    for unit in ("ms", "us"):
        if ns >= NS_PER_UNIT[unit]:
            return f"{ns / NS_PER_UNIT[unit]:.3g} {unit.replace('us', 'µs')}"
    return f"{ns:.3g} ns"


def format_ratio(ratio):
    return f"{ratio:.3f}" if ratio < 10 else f"{ratio:.0f}"


def limit_of(row, baseline):
    match = re.fullmatch(r"(ratio|added ns|amount) <= (.+)", row.label)
    if not match or not (baseline or match[1] == "amount"):
        return None
    return Limit(*match.groups(), row, baseline)


def format_limit(row, baseline):
    limit = limit_of(row, baseline)
    if limit is None:
        return ""
    return f"{limit.text} (missed)" if limit.is_missed else limit.text


def baselines_of(rows):
    return {row.group: row for row in rows if row.label == "baseline"}


def missed_limits(rows):
    """What is over its limit by more than its spread, and limits that nothing is compared with."""
    baselines = baselines_of(rows)
    for row in rows:
        limit = limit_of(row, baselines.get(row.group))
        name = f"{row.group}/{row.competitor}"
        if limit is None and "<=" in row.label:
            yield f"{name}: there is no baseline for its limit"
        elif limit is not None and limit.is_missed_clearly:
            over = 100 * limit.excess / (row.median() - limit.excess)
            yield f"{name}: {over:.1f} % over its limit of {limit.text}"


def table_cells(rows):
    """Lists of cells; a list of one cell opens a group."""
    baselines = baselines_of(rows)
    group = None
    for row in rows:
        if row.group != group:
            group = row.group
            yield [group]
        baseline = baselines.get(group)
        ratio = row.median() / baseline.median() if baseline else None
        best_ratio = row.best() / baseline.best() if baseline else None
        yield [
            row.competitor,
            format_value(row),
            format_ratio(ratio) if baseline else "",
            format_ratio(best_ratio) if baseline else "",
            format_limit(row, baseline),
        ]


def print_markdown(lines):
    print("| " + " | ".join(HEAD) + " |")
    print("| --- | ---: | ---: | ---: | --- |")
    for cells in lines:
        if len(cells) == 1:
            cells = [f"**{cells[0]}**", "", "", "", ""]
        print("| " + " | ".join(cells) + " |")


def print_text(lines):
    lines = list(lines)
    first_width = max(len(cells[0]) for cells in lines) + 2
    print(f"{'':{first_width}}{HEAD[1]:>10}{HEAD[2]:>8}{HEAD[3]:>24}  {HEAD[4]}")
    for cells in lines:
        if len(cells) == 1:
            print(f"\n{cells[0]}")
        else:
            name = f"  {cells[0]}"
            print(f"{name:{first_width}}{cells[1]:>10}{cells[2]:>8}{cells[3]:>24}  {cells[4]}")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--markdown", action="store_true", help="the form of docs/performance.md")
    parser.add_argument("--check", action="store_true", help="fail where a limit is clearly missed")
    parser.add_argument("results", nargs="+", help="JSON results")
    options = parser.parse_args()

    rows, errors = read_rows(options.results)
    if rows:
        (print_markdown if options.markdown else print_text)(table_cells(rows))
    if options.check:
        errors.extend(missed_limits(rows))
    for error in errors:
        print(f"FAILED: {error}", file=sys.stderr)
    return 1 if errors or not rows else 0


if __name__ == "__main__":
    sys.exit(main())

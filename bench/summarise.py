#!/usr/bin/env python3
"""Prints one table from the JSON results of the benchmark programs.

Benchmarks are named "group/competitor". Within a group, ratios are taken to the competitor whose
label is "baseline". A label "ratio <= N" or "added ns <= N" is a limit on the medians' ratio or
difference. A row that counts something else than time has a counter with the name of a unit below,
and its limit is "amount <= N". The exit status is
1 when a benchmark failed; a missed limit is only marked.
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


def read_rows(paths):
    """The rows in the order of the files, and what the benchmarks that failed have said."""
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
    return list(rows.values()), errors


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


def format_limit(row, baseline):
    match = re.fullmatch(r"(ratio|added ns|amount) <= (.+)", row.label)
    if not match or not (baseline or match[1] == "amount"):
        return ""
    kind, limit = match.groups()
    if kind == "amount":
        measured, text = row.median(), f"{limit} {row.unit}"
    elif kind == "ratio":
        measured, text = row.median() / baseline.median(), limit
    else:
        measured, text = row.median() - baseline.median(), f"+{limit} ns"
    return text if measured <= float(limit) else f"{text} (missed)"


def table_cells(rows):
    """Lists of cells; a list of one cell opens a group."""
    baselines = {row.group: row for row in rows if row.label == "baseline"}
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
    parser.add_argument("results", nargs="+", help="JSON results")
    options = parser.parse_args()

    rows, errors = read_rows(options.results)
    if rows:
        (print_markdown if options.markdown else print_text)(table_cells(rows))
    for error in errors:
        print(f"FAILED: {error}", file=sys.stderr)
    return 1 if errors or not rows else 0


if __name__ == "__main__":
    sys.exit(main())

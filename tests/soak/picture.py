#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
"""Draws what desktop.py has measured.

usage: picture.py RESULT_DIRECTORY PICTURE
"""

import json
import os
import sys
from statistics import median

import matplotlib

matplotlib.use("svg")
# Nothing that differs from run to run, and no letter as a curve of its own.
matplotlib.rcParams["svg.hashsalt"] = "soak"
matplotlib.rcParams["svg.fonttype"] = "none"
matplotlib.rcParams["font.size"] = 8

from matplotlib import pyplot  # noqa: E402  (after the choice of the output)

MOST_POINTS = 150
PROGRAMS = ["soak_pages", "soak_parent", "demo_child", "echo_server", "soak_client", "dbus-daemon"]
KINDS = ["command", "signal", "echo", "meeting", "page", "tool"]


def read_lines(directory, name):
    with open(os.path.join(directory, name), encoding="utf-8") as file:
        return file.read().splitlines()


def thinned(times, values):
    """Middles of neighbours, so that the picture stays small."""
    step = max(1, len(times) // MOST_POINTS)
    pieces = range(0, len(times), step)
    return [times[i] for i in pieces], [round(median(values[i : i + step]), 2) for i in pieces]


def draw(axes, times, values, label):
    times, values = thinned(times, values)
    axes.plot(times, values, label=label, linewidth=1)


def draw_memory(axes, samples):
    axes.set_title("memory of a process, mean (MiB)")
    for program in PROGRAMS:
        times, values = [], []
        for sample in samples:
            memory = [p["memory"] for p in sample["processes"] if p["program"] == program]
            if memory:
                times.append(sample["seconds"] / 60)
                values.append(sum(memory) / len(memory) / 1024)
        if times:
            draw(axes, times, values, program)
    axes.set_yscale("log")


def draw_counts(axes, samples):
    axes.set_title("in all")
    times = [sample["seconds"] / 60 for sample in samples]
    draw(axes, times, [sum(p["descriptors"] for p in s["processes"]) for s in samples], "descriptors")
    draw(axes, times, [len(s["processes"]) for s in samples], "processes")
    draw(axes, times, [len(s["shared"]) for s in samples], "shared objects")
    draw(axes, times, [sum(p["state"] == "Z" for p in s["processes"]) for s in samples], "zombies")
    axes.set_yscale("symlog")
    axes.set_ylim(bottom=0)


def draw_latencies(axes, samples, report, which, title):
    axes.set_title(title)
    begin = samples[0]["clock"] - samples[0]["seconds"]
    for kind in KINDS:
        points = {}
        for line in report:
            words = line.split()
            if words[:2] == ["LATENCY", kind]:
                minute = (int(words[-1]) - begin) // 30 / 2
                points.setdefault(minute, []).append(int(words[which]) / 1000)
        if points:
            chosen = median if which == 3 else max
            times = sorted(points)
            axes.plot(times, [round(chosen(points[t]), 2) for t in times], label=kind, linewidth=1)
    axes.set_yscale("log")


def main():
    if len(sys.argv) != 3:
        print(__doc__.splitlines()[-1], file=sys.stderr)
        return 2
    directory = sys.argv[1]
    samples = [json.loads(line) for line in read_lines(directory, "samples")]
    report = read_lines(directory, "report")
    figure, axes = pyplot.subplots(2, 2, figsize=(9, 6), layout="constrained")
    draw_memory(axes[0][0], samples)
    draw_counts(axes[0][1], samples)
    draw_latencies(axes[1][0], samples, report, 3, "how long it takes, the middle one (ms)")
    draw_latencies(axes[1][1], samples, report, 4, "how long it takes, the slowest in 30 s (ms)")
    for each in axes.flat:
        each.set_xlabel("minutes")
        each.grid(alpha=0.3)
        each.legend(fontsize=6, loc="upper right")
    figure.savefig(sys.argv[2], metadata={"Date": None})
    return 0


if __name__ == "__main__":
    sys.exit(main())

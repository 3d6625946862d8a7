#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
"""Judges a soak by what desktop.py has written. Prints the figures and what is wrong with them.

The exit status is 0 when nothing is.

usage: verdict.py RESULT_DIRECTORY
"""

import json
import os
import re
import sys
from statistics import median

MIB = 1024  # in KiB, as everything here

# How much memory in KiB an hour may take, by program, and how much however short the time is: the
# allocator takes its pages by hundreds of KiB. A browser engine grows by itself.
MEMORY_AN_HOUR = {"soak_pages": 12 * MIB}
MEMORY_AN_HOUR_OF_OTHERS = 128
MEMORY_AT_ONCE = {"soak_pages": 8 * MIB}
MEMORY_AT_ONCE_OF_OTHERS = 256
DESKTOP_AN_HOUR = 16 * MIB
DESKTOP_AT_ONCE = 16 * MIB

# Connections and pages come and go.
DESCRIPTORS_AT_ONCE = {"echo_server": 20, "soak_client": 20, "soak_pages": 8, "dbus-daemon": 12}
DESCRIPTORS_AT_ONCE_OF_OTHERS = 4
DESKTOP_DESCRIPTORS = 60

# How old a process has to be for its growth to say something, and what of its life is warming up.
OLD_SECONDS = 15 * 60
WARM_UP_SHARE = 0.25
LONGEST_ZOMBIE_SECONDS = 15
CPU_SHARE = 0.25

# A desktop that is smaller or quieter says nothing. In the middle; what has no browser is smaller.
LEAST_PROCESSES = 30
LEAST_PROCESSES_WITHOUT_PAGES = 24
SECONDS_PER_KILL = 10

# What a kill leaves behind mends itself, but for a very few.
KILLS_PER_REPAIR = 200

# The lock of a process that was killed with it is free after 5 s: whoever waits may need that longer.
# In milliseconds: of the middle one, and of the slowest.
LATENCIES = {
    "command": (50, 10000),
    "refusal": (1000, 10000),
    "signal": (50, 10000),
    "meeting": (2000, 15000),
    "farewell": (5000, 15000),
    "echo": (50, 10000),
    "page": (5000, 30000),
    "silent-page": (40000, 40000),
    "tool": (2000, 20000),
}

# The others need a kill at the right moment.
ALWAYS_MEASURED = ("command", "signal", "meeting", "echo", "tool")
WITHOUT_PAGES = "without pages: "

OBJECTS = {
    "sem.vask_shm_lock",
    "vask_proc_pid_demo_child",
    "vask_shm_context_shm_vask_shared_info",
    "sem.vask_shm_context_sem_vask_shared_info",
}


def growth(points):
    """By how much it has grown in what is no warm-up, and the hours of that.

    The points are pairs of seconds and a value. Measured from the middle of the first third to the
    middle of the last one, so that no single point counts, and extended to the ends at that pace.
    """
    warm = points[int(len(points) * WARM_UP_SHARE) :]
    third = max(1, len(warm) // 3)
    first, last = ([median(column) for column in zip(*part)] for part in (warm[:third], warm[-third:]))
    seconds = warm[-1][0] - warm[0][0]
    return (last[1] - first[1]) / (last[0] - first[0]) * seconds, seconds / 3600


class Soak:
    def __init__(self, directory):
        self.directory = directory
        self.samples = [json.loads(line) for line in self.lines("samples")]
        self.faults = []
        self.facts = []

    def lines(self, name):
        path = os.path.join(self.directory, name)
        if not os.path.exists(path):
            return []
        with open(path, encoding="utf-8", errors="replace") as file:
            return file.read().splitlines()

    def lives(self):
        """The samples of each process that became old, by program and process."""
        found = {}
        for sample in self.samples:
            for process in sample["processes"]:
                life = found.setdefault((process["program"], process["pid"], process["begin"]), [])
                life.append((sample["seconds"], process))
        return {who: life for who, life in found.items() if life[-1][0] - life[0][0] >= OLD_SECONDS}

    def latencies(self):
        """By kind: how many, the middle of the middle ones, and the slowest, in milliseconds."""
        found = {}
        for line in self.lines("report"):
            if line.startswith("LATENCY "):
                _, kind, count, middle, slowest = line.split()[:5]
                found.setdefault(kind, []).append((int(count), int(middle) / 1000, int(slowest) / 1000))
        return {
            kind: (sum(c for c, _, _ in all_), median(m for _, m, _ in all_), max(s for _, _, s in all_))
            for kind, all_ in sorted(found.items())
        }

    def require(self, holds, text):
        if not holds:
            self.faults.append(text)

    def growth_in_all(self, what):
        return growth([(one["seconds"], sum(process[what] for process in one["processes"])) for one in self.samples])

    def judge_memory(self):
        for (program, pid, _), life in sorted(self.lives().items()):
            minutes = (life[-1][0] - life[0][0]) / 60
            grown, hours = growth([(seconds, process["memory"]) for seconds, process in life])
            most = max(
                MEMORY_AT_ONCE.get(program, MEMORY_AT_ONCE_OF_OTHERS),
                hours * MEMORY_AN_HOUR.get(program, MEMORY_AN_HOUR_OF_OTHERS),
            )
            text = f"{program} {pid}: {minutes:.0f} min, memory {life[-1][1]['memory']} KiB, grown by {grown:.0f}"
            self.facts.append(text)
            self.require(grown <= most, f"{text}, more than {most:.0f}")
        grown, hours = self.growth_in_all("memory")
        most = max(DESKTOP_AT_ONCE, hours * DESKTOP_AN_HOUR)
        self.facts.append(f"all: memory grown by {grown:.0f} KiB")
        self.require(grown <= most, f"all: memory grown by {grown:.0f} KiB, more than {most:.0f}")

    def judge_descriptors(self):
        for (program, pid, _), life in sorted(self.lives().items()):
            grown, _ = growth([(seconds, process["descriptors"]) for seconds, process in life])
            most = DESCRIPTORS_AT_ONCE.get(program, DESCRIPTORS_AT_ONCE_OF_OTHERS)
            self.require(grown <= most, f"{program} {pid}: {grown:.0f} descriptors more")
        grown, _ = self.growth_in_all("descriptors")
        self.facts.append(f"all: {grown:+.0f} descriptors")
        self.require(grown <= DESKTOP_DESCRIPTORS, f"all: {grown:.0f} descriptors more")

    def judge_zombies(self):
        since = {}
        for sample in self.samples:
            dead = {(p["pid"], p["begin"]): p["program"] for p in sample["processes"] if p["state"] == "Z"}
            since = {who: since.get(who, sample["seconds"]) for who in dead}
            for who, begin in since.items():
                if sample["seconds"] - begin > LONGEST_ZOMBIE_SECONDS:
                    self.faults.append(f"zombie for more than {LONGEST_ZOMBIE_SECONDS} s: {who[0]} {dead[who]}")

    def judge_shared_objects(self):
        for sample in self.samples:
            strange = set(sample["shared"]) - OBJECTS
            if strange:
                self.faults.append(f"shared objects after {sample['seconds']} s: {sorted(strange)}")
                return

    def judge_latencies(self):
        for kind, (count, middle, slowest) in self.latencies().items():
            most = LATENCIES.get(kind, (0, 0))
            self.facts.append(f"{kind}: {count}, {middle:.1f} ms, slowest {slowest:.1f} ms")
            self.require(middle <= most[0], f"{kind} takes {middle:.1f} ms, more than {most[0]}")
            self.require(slowest <= most[1], f"the slowest {kind} takes {slowest:.1f} ms, more than {most[1]}")
        for kind in ALWAYS_MEASURED + (() if self.pages_are_missing() else ("page",)):
            self.require(kind in self.latencies(), f"nobody has measured: {kind}")

    def pages_are_missing(self):
        return any(WITHOUT_PAGES in line for line in self.lines("events"))

    def judge_size(self):
        """That it was the desktop it is meant to be."""
        last = self.samples[-1]
        self.facts += [line for line in self.lines("events") if WITHOUT_PAGES in line]
        least = LEAST_PROCESSES_WITHOUT_PAGES if self.pages_are_missing() else LEAST_PROCESSES
        middle = median(len(sample["processes"]) for sample in self.samples)
        self.require(middle >= least, f"{middle:.0f} processes in the middle, fewer than {least}")
        kills = last["seconds"] / SECONDS_PER_KILL
        self.require(last["kills"] >= kills, f"{last['kills']} kills, fewer than {kills:.0f}")
        repairs = max(1, last["kills"] // KILLS_PER_REPAIR)
        self.require(last["repairs"] <= repairs, f"{last['repairs']} repairs, more than {repairs}")

    def judge_words(self):
        self.faults += [line for line in self.lines("report") if line.startswith("COMPLAINT ")]
        self.faults += [line for line in self.lines("events") if " COMPLAINT " in line]
        self.faults += [line for line in self.lines("log") if re.search(r"\] BUG: |-CRITICAL|Sanitizer|terminate called", line)]

    def judge_end(self):
        path = os.path.join(self.directory, "end")
        if not os.path.exists(path):
            self.faults.append("the desktop did not come to its end")
            return
        with open(path, encoding="utf-8") as file:
            end = json.load(file)
        self.require(not end["processes"], f"left at the end: {end['processes']}")
        self.require(not end["registered"], f"registered and dead at the end: {end['registered']}")
        # The last child that has registered itself has ended too; nobody has come after it.
        verdicts = {found["object"]: found["verdict"] for found in end["status"]["objects"]}
        self.require(set(verdicts.values()) == {"healthy"}, f"shared objects at the end: {verdicts}")
        self.require(set(end["shared"]) <= OBJECTS, f"left in shared memory: {end['shared']}")

    def judge_pace(self):
        used = self.samples[-1]["cpu"] - self.samples[0]["cpu"]
        share = used / (self.samples[-1]["seconds"] - self.samples[0]["seconds"])
        last = self.samples[-1]
        self.facts.append(
            f"{last['seconds'] / 60:.1f} min, {median(len(s['processes']) for s in self.samples):.0f} processes, "
            f"{last['kills']} kills, {last['repairs']} repairs, {share * 100:.1f} % of one CPU"
        )
        self.require(share <= CPU_SHARE, f"{share * 100:.1f} % of one CPU, more than {CPU_SHARE * 100:.0f}")

    def judge(self):
        if len(self.samples) < 4:
            self.faults.append("fewer than four samples")
            return
        self.judge_size()
        self.judge_pace()
        self.judge_memory()
        self.judge_descriptors()
        self.judge_zombies()
        self.judge_shared_objects()
        self.judge_latencies()
        self.judge_words()
        self.judge_end()


def main():
    if len(sys.argv) != 2:
        print(__doc__.splitlines()[-1], file=sys.stderr)
        return 2
    soak = Soak(sys.argv[1])
    soak.judge()
    for fact in soak.facts:
        print(fact)
    for fault in soak.faults:
        print(f"WRONG: {fault}")
    print("failed" if soak.faults else "passed")
    return 1 if soak.faults else 0


if __name__ == "__main__":
    sys.exit(main())

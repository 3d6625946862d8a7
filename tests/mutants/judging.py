# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
"""What has become of the planted faults, in one run and in all of them."""

import hashlib
import json
import os
import re

LEAST_SHARE = 0.95


def known_survivors(lines):
    """What makes no difference, and why, by the fault's key. A key may hold " : ", too."""
    matches = (re.fullmatch(r"(src/.*` \d+) : (.+)", line.rstrip("\n")) for line in lines)
    return {match[1]: match[2] for match in matches if match}


class Sum:
    """Of pairs of a fault's key and its verdict. What is known to make no difference counts for nothing."""

    def __init__(self, results, accepted):
        results = list(results)
        self.killed = sum(verdict == "killed" for _, verdict in results)
        self.known = sum(verdict == "survived" and key in accepted for key, verdict in results)
        self.survived = sum(verdict == "survived" for _, verdict in results) - self.known
        self.no_program = len(results) - self.killed - self.survived - self.known

    def tried(self):
        return self.killed + self.survived

    def share(self):
        return self.killed / self.tried() if self.tried() else 0.0

    def text(self):
        return (
            f"{self.killed} killed, {self.survived} survived ({self.share() * 100:.1f} % killed), "
            f"{self.known} make no difference, {self.no_program} are no program"
        )

    def faults(self, least):
        """Why it is no success. A run that has tried nothing has shown nothing."""
        found = []
        if self.tried() < max(1, least):
            found.append(f"only {self.tried()} faults were tried, fewer than {max(1, least)}")
        if self.tried() and self.share() < LEAST_SHARE:
            found.append(f"{self.share() * 100:.1f} % were killed, fewer than {LEAST_SHARE * 100:.0f} %")
        return found


class Ledger:
    """The last verdict of every fault that was ever tried, in a file. It counts until its source changes."""

    def __init__(self, path, root):
        self.path = path
        self.root = root
        self.entries = {}
        if os.path.exists(path):
            with open(path, encoding="utf-8") as file:
                for line in file:
                    entry = json.loads(line)
                    self.entries[entry["key"]] = entry

    def digest(self, source):
        path = os.path.join(self.root, source)
        if not os.path.exists(path):
            return ""
        with open(path, "rb") as file:
            return hashlib.sha256(file.read()).hexdigest()[:16]

    def add(self, source, key, verdict):
        entry = {"key": key, "source": source, "digest": self.digest(source), "verdict": verdict}
        self.entries[key] = entry
        # At once: a run may be ended at any time.
        with open(self.path, "a", encoding="utf-8") as file:
            file.write(json.dumps(entry) + "\n")

    def results(self):
        digests = {source: self.digest(source) for source in {entry["source"] for entry in self.entries.values()}}
        return [(key, entry["verdict"]) for key, entry in self.entries.items() if entry["digest"] == digests[entry["source"]]]

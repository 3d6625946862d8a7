#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
"""A run of planted faults succeeds when enough were tried and nearly all were found."""

import os
import tempfile
import unittest

import judging


def results(killed, survived=0, no_program=0):
    verdicts = ["killed"] * killed + ["survived"] * survived + ["no program"] * no_program
    return [(f"key {i}", verdict) for i, verdict in enumerate(verdicts)]


class Judging(unittest.TestCase):
    def test_fails_when_nothing_was_tried(self):
        self.assertEqual(judging.Sum([], {}).faults(0), ["only 0 faults were tried, fewer than 1"])

    def test_fails_when_few_were_tried(self):
        self.assertEqual(judging.Sum(results(4), {}).faults(20), ["only 4 faults were tried, fewer than 20"])
        self.assertEqual(judging.Sum(results(20), {}).faults(20), [])

    def test_fails_when_more_than_a_twentieth_survived(self):
        self.assertEqual(judging.Sum(results(95, 5), {}).faults(20), [])
        self.assertEqual(judging.Sum(results(94, 6), {}).faults(20), ["94.0 % were killed, fewer than 95 %"])

    def test_does_not_count_what_makes_no_difference_or_is_no_program(self):
        found = judging.Sum(results(19, 1, 7), {"key 19": "nobody looks"})
        self.assertEqual((found.killed, found.survived, found.known, found.no_program), (19, 0, 1, 7))
        self.assertEqual(found.faults(20), ["only 19 faults were tried, fewer than 20"])

    def test_says_what_it_has_counted(self):
        text = "2 killed, 1 survived (66.7 % killed), 0 make no difference, 1 are no program"
        self.assertEqual(judging.Sum(results(2, 1, 1), {}).text(), text)


class KnownSurvivors(unittest.TestCase):
    def test_are_keys_with_their_reasons(self):
        lines = ["# a comment : `1` 0 : none\n", "\n", "src/a.cpp f other order `a; b` 0 : nobody looks: ever\n"]
        self.assertEqual(judging.known_survivors(lines), {"src/a.cpp f other order `a; b` 0": "nobody looks: ever"})

    def test_may_hold_a_colon_in_their_keys(self):
        self.assertEqual(judging.known_survivors(["src/a.cpp f k `x ? `y` : z` 12 : why\n"]), {"src/a.cpp f k `x ? `y` : z` 12": "why"})


class Ledger(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.addCleanup(self.directory.cleanup)
        self.path = os.path.join(self.directory.name, "ledger")
        self.write("int a;")

    def write(self, text):
        with open(os.path.join(self.directory.name, "a.cpp"), "w", encoding="utf-8") as file:
            file.write(text)

    def ledger(self):
        return judging.Ledger(self.path, self.directory.name)

    def test_adds_up_several_runs(self):
        self.ledger().add("a.cpp", "one", "killed")
        self.ledger().add("a.cpp", "two", "survived")
        self.assertEqual(self.ledger().results(), [("one", "killed"), ("two", "survived")])

    def test_counts_a_fault_once_with_its_last_verdict(self):
        self.ledger().add("a.cpp", "one", "survived")
        self.ledger().add("a.cpp", "one", "killed")
        self.assertEqual(self.ledger().results(), [("one", "killed")])

    def test_forgets_what_was_tried_in_another_source(self):
        self.ledger().add("a.cpp", "one", "killed")
        self.write("int b;")
        self.assertEqual(self.ledger().results(), [])


if __name__ == "__main__":
    unittest.main()

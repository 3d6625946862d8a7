#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
"""A soak passes that was as it should be, and fails for each thing that was not."""

import json
import os
import tempfile
import unittest

import desktop
import verdict

MINUTES = 40
STEP_SECONDS = 10
MEASURED = ("command", "signal", "meeting", "echo", "tool", "page")
HEALTHY_END = {
    "processes": [],
    "registered": [],
    "status": {"objects": [{"object": "library-lock", "verdict": "healthy"}]},
    "shared": ["sem.vask_shm_lock"],
}


def process(program="soak_parent", **more):
    return {"pid": 7, "program": program, "begin": 1.0, "state": "S", "memory": 700, "descriptors": 9, **more}


OTHERS = [process(program="demo_child", pid=100 + i, memory=0, descriptors=0) for i in range(verdict.LEAST_PROCESSES - 1)]


def sample(seconds, *processes, **more):
    return {
        "seconds": seconds,
        "clock": int(seconds),
        "cpu": seconds / 10,
        "shared": ["sem.vask_shm_lock"],
        "kills": int(seconds / 3),
        "repairs": 0,
        "processes": list(processes) or [process(), *OTHERS],
        **more,
    }


class SoakVerdict(unittest.TestCase):
    def setUp(self):
        self.samples = [sample(seconds) for seconds in range(0, MINUTES * 60, STEP_SECONDS)]
        self.report = [f"LATENCY {kind} 10 400 900 pid 7 at 5" for kind in MEASURED]
        self.events = ["3.0 kill child 8 by SIGKILL"]
        self.log = []
        self.end = HEALTHY_END

    def faults(self):
        with tempfile.TemporaryDirectory() as directory:
            return self.judged(directory).faults

    def judged(self, directory):
        texts = {
            "samples": [json.dumps(each) for each in self.samples],
            "report": self.report,
            "events": self.events,
            "log": self.log,
            "end": [json.dumps(self.end)],
        }
        for name, lines in texts.items():
            with open(os.path.join(directory, name), "w", encoding="utf-8") as file:
                file.write("".join(line + "\n" for line in lines))
        soak = verdict.Soak(directory)
        soak.judge()
        return soak

    def expect_fault(self, text):
        faults = self.faults()
        self.assertTrue(any(text in fault for fault in faults), faults)

    def expect_no_fault_but(self, text):
        """As expect_fault(), for what must not hide another fault."""
        faults = self.faults()
        self.assertEqual([fault for fault in faults if text not in fault], [])
        self.assertNotEqual(faults, [])

    def grow(self, whole, program="soak_parent", what="memory", minutes=MINUTES):
        """Evenly, by so much behind the quarter of its life in which it warms up."""
        self.samples = [sample(seconds) for seconds in range(0, minutes * 60, STEP_SECONDS)]
        pace = whole / 0.75 / len(self.samples)
        self.each(lambda one, i: one["processes"][0].update({"program": program, what: 700 + pace * i}))

    def each(self, change):
        for i, one in enumerate(self.samples):
            change(one, i)

    def test_passes_when_nothing_is_wrong(self):
        self.assertEqual(self.faults(), [])

    def test_fails_when_the_memory_of_a_process_grows(self):
        self.grow(verdict.MEMORY_AT_ONCE_OF_OTHERS + 10)
        self.expect_no_fault_but("soak_parent 7: 40 min, memory")

    def test_passes_while_the_memory_of_a_process_grows_less(self):
        self.grow(verdict.MEMORY_AT_ONCE_OF_OTHERS - 10)
        self.assertEqual(self.faults(), [])

    def test_fails_when_the_memory_of_a_process_grows_slowly_for_hours(self):
        self.grow(3 * verdict.MEMORY_AN_HOUR_OF_OTHERS * 1.05, minutes=240)
        self.expect_no_fault_but("soak_parent 7: 240 min, memory")

    def test_lets_a_browser_grow_more(self):
        self.grow(verdict.MEMORY_AT_ONCE["soak_pages"] * 0.95, "soak_pages")
        self.assertEqual(self.faults(), [])
        self.grow(verdict.MEMORY_AT_ONCE["soak_pages"] * 1.05, "soak_pages")
        self.expect_no_fault_but("soak_pages 7: 40 min, memory")

    def test_fails_when_a_browser_grows_fast_for_hours(self):
        self.grow(3 * verdict.MEMORY_AN_HOUR["soak_pages"] * 1.05, "soak_pages", minutes=240)
        self.expect_no_fault_but("soak_pages 7: 240 min, memory")

    def test_forgives_what_a_process_takes_while_it_warms_up(self):
        self.each(lambda one, i: one["processes"][0].update(memory=700 + 100 * min(i, 30)))
        self.assertEqual(self.faults(), [])

    def test_fails_when_the_desktop_grows_though_no_process_is_old(self):
        self.each(lambda one, i: one["processes"][0].update(pid=i, memory=700 + 100 * i))
        self.expect_fault("all: memory grown by")

    def test_fails_when_descriptors_pile_up(self):
        for program in ("soak_parent", *verdict.DESCRIPTORS_AT_ONCE):
            with self.subTest(program):
                most = verdict.DESCRIPTORS_AT_ONCE.get(program, verdict.DESCRIPTORS_AT_ONCE_OF_OTHERS)
                self.grow(most - 1, program, "descriptors")
                self.assertEqual(self.faults(), [])
                self.grow(most + 1, program, "descriptors")
                self.expect_no_fault_but(f"{program} 7: {most + 1} descriptors more")

    def test_fails_when_descriptors_pile_up_though_no_process_is_old(self):
        self.grow(verdict.DESKTOP_DESCRIPTORS + 2, what="descriptors")
        self.each(lambda one, i: one["processes"][0].update(pid=1000 + i))
        self.expect_no_fault_but("all: 62 descriptors more")

    def test_fails_for_a_zombie_that_stays_but_not_for_one_that_goes(self):
        self.samples[5]["processes"][0]["state"] = "Z"
        self.assertEqual(self.faults(), [])
        for one in self.samples[5:10]:
            one["processes"][0]["state"] = "Z"
        self.expect_fault("zombie for more than 15 s: 7 soak_parent")

    def test_fails_for_a_shared_object_that_nobody_knows(self):
        self.samples[9]["shared"] = ["sem.vask_shm_lock", "sem.other"]
        self.expect_fault("['sem.other']")

    def test_fails_when_something_is_slow_in_general(self):
        for kind, (middle, _) in verdict.LATENCIES.items():
            with self.subTest(kind):
                self.setUp()
                self.report = [line for line in self.report if f" {kind} " not in line]
                self.report.append(f"LATENCY {kind} 10 {middle * 1000 + 1000} {middle * 1000 + 1000} pid 7 at 5")
                self.expect_fault(f"{kind} takes {middle + 1}.0 ms")

    def test_fails_when_something_is_slow_once(self):
        for kind, (_, slowest) in verdict.LATENCIES.items():
            with self.subTest(kind):
                self.setUp()
                self.report.append(f"LATENCY {kind} 10 400 {slowest * 1000 + 1000} pid 7 at 5")
                self.expect_no_fault_but(f"the slowest {kind} takes {slowest + 1}.0 ms")

    def test_fails_for_a_measurement_without_a_limit(self):
        self.report.append("LATENCY another 10 400 900 pid 7 at 5")
        self.expect_fault("another takes 0.4 ms, more than 0")

    def test_fails_when_something_has_not_been_measured(self):
        for kind in MEASURED:
            with self.subTest(kind):
                self.setUp()
                self.report = [line for line in self.report if f" {kind} " not in line]
                self.expect_no_fault_but(f"nobody has measured: {kind}")

    def test_says_that_there_were_no_pages(self):
        self.report = [line for line in self.report if " page " not in line]
        self.events.append("0.0 without pages: no browser engine")
        with tempfile.TemporaryDirectory() as directory:
            soak = self.judged(directory)
        self.assertEqual(soak.faults, [])
        self.assertIn("0.0 without pages: no browser engine", soak.facts)

    def test_fails_when_the_desktop_is_small(self):
        self.each(lambda one, i: one["processes"].pop())
        self.expect_no_fault_but("29 processes in the middle, fewer than 30")

    def test_fails_when_a_desktop_without_pages_is_small(self):
        self.events.append("0.0 without pages: no browser engine")
        self.each(lambda one, i: one.update(processes=one["processes"][:24]))
        self.assertEqual(self.faults(), [])
        self.each(lambda one, i: one["processes"].pop())
        self.expect_no_fault_but("23 processes in the middle, fewer than 24")

    def test_fails_when_hardly_anybody_was_killed(self):
        self.each(lambda one, i: one.update(kills=int(one["seconds"] / 11)))
        self.expect_no_fault_but("kills, fewer than")

    def test_fails_when_much_had_to_be_repaired(self):
        most = self.samples[-1]["kills"] // verdict.KILLS_PER_REPAIR
        self.samples[-1]["repairs"] = most
        self.assertEqual(self.faults(), [])
        self.samples[-1]["repairs"] = most + 1
        self.expect_no_fault_but(f"{most + 1} repairs, more than {most}")

    def test_fails_without_samples(self):
        self.samples = []
        self.expect_fault("fewer than four samples")

    def test_fails_when_somebody_has_complained(self):
        self.report.append("COMPLAINT a wrong echo pid 7 at 3")
        self.expect_fault("a wrong echo")

    def test_fails_when_the_supervisor_has_complained(self):
        self.events.append("9.0 COMPLAINT child 8 outlives its parent")
        self.expect_fault("outlives its parent")

    def test_fails_for_a_broken_promise_in_the_log(self):
        self.log.append("[soak_parent:7] BUG: something")
        self.expect_fault("BUG: something")

    def test_fails_when_the_dead_are_still_registered(self):
        self.end = {**HEALTHY_END, "registered": [8]}
        self.expect_fault("registered and dead at the end: [8]")

    def test_fails_when_processes_are_left(self):
        self.end = {**HEALTHY_END, "processes": ["8 S demo_child"]}
        self.expect_fault("left at the end")

    def test_fails_when_a_lock_is_left(self):
        self.end = {**HEALTHY_END, "status": {"objects": [{"object": "library-lock", "verdict": "abandoned"}]}}
        self.expect_fault("abandoned")

    def test_fails_when_it_takes_too_much_of_the_machine(self):
        self.each(lambda one, i: one.update(cpu=one["seconds"] / 2))
        self.expect_fault("50.0 % of one CPU")


class SoakTools(unittest.TestCase):
    def complaints(self, statuses):
        with tempfile.TemporaryDirectory() as directory:
            running = desktop.Desktop("/build", directory, "1")
            for status in statuses:
                running.count(["/build/tools/vaskctl", "tree", "--json"], status)
            running.complain_of_failing_tools()
            running.events.close()
            running.samples.close()
            running.log.close()
            soak = verdict.Soak(directory)
            soak.judge_words()
            return soak.faults

    def test_fails_when_a_tool_never_succeeds(self):
        faults = self.complaints([1] * desktop.ENOUGH_RUNS)
        self.assertIn("vaskctl tree has failed 8 times and never succeeded", "".join(faults))

    def test_lets_a_tool_fail_now_and_then(self):
        self.assertEqual(self.complaints([1] * desktop.ENOUGH_RUNS + [0]), [])

    def test_says_nothing_of_tools_that_were_killed_or_rarely_used(self):
        self.assertEqual(self.complaints([-9] * 100 + [1] * (desktop.ENOUGH_RUNS - 1)), [])


if __name__ == "__main__":
    unittest.main()

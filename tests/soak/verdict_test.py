#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
"""A soak passes that was as it should be, and fails for each thing that was not."""

import json
import os
import tempfile
import unittest

import verdict

MINUTES = 40
HEALTHY_END = {
    "processes": [],
    "registered": [],
    "status": {"objects": [{"object": "library-lock", "verdict": "healthy"}]},
    "shared": ["sem.vask_shm_lock"],
}


def process(program="soak_parent", **more):
    return {"pid": 7, "program": program, "begin": 1.0, "state": "S", "memory": 700, "descriptors": 9, **more}


def sample(seconds, *processes, **more):
    return {
        "seconds": seconds,
        "clock": int(seconds),
        "cpu": seconds / 10,
        "shared": ["sem.vask_shm_lock"],
        "kills": 3,
        "repairs": 0,
        "processes": list(processes) or [process()],
        **more,
    }


class SoakVerdict(unittest.TestCase):
    def setUp(self):
        self.samples = [sample(seconds) for seconds in range(0, MINUTES * 60, 5)]
        self.report = [f"LATENCY {kind} 10 400 900 pid 7 at 5" for kind in ("command", "signal", "meeting", "echo", "tool")]
        self.events = ["3.0 kill child 8 by SIGKILL"]
        self.log = []
        self.end = HEALTHY_END

    def faults(self):
        with tempfile.TemporaryDirectory() as directory:
            texts = {
                "samples": [json.dumps(each) for each in self.samples],
                "report": self.report,
                "events": self.events,
                "log": self.log,
                "end": [json.dumps(self.end)],
            }
            for name, lines in texts.items():
                with open(os.path.join(directory, name), "w", encoding="utf-8") as file:
                    file.write("\n".join(lines) + "\n")
            soak = verdict.Soak(directory)
            soak.judge()
            return soak.faults

    def expect_fault(self, text):
        faults = self.faults()
        self.assertTrue(any(text in fault for fault in faults), faults)

    def each(self, change):
        for i, one in enumerate(self.samples):
            change(one, i)

    def test_passes_when_nothing_is_wrong(self):
        self.assertEqual(self.faults(), [])

    def test_fails_when_the_memory_of_a_process_grows(self):
        self.each(lambda one, i: one["processes"][0].update(memory=700 + 10 * i))
        self.expect_fault("soak_parent 7: 40 min, memory")

    def test_forgives_what_a_process_takes_while_it_warms_up(self):
        self.each(lambda one, i: one["processes"][0].update(memory=700 + 100 * min(i, 60)))
        self.assertEqual(self.faults(), [])

    def test_fails_when_the_desktop_grows_though_no_process_is_old(self):
        self.each(lambda one, i: one["processes"][0].update(pid=i, memory=700 + 100 * i))
        self.expect_fault("all: memory grown by")

    def test_fails_when_descriptors_pile_up(self):
        self.each(lambda one, i: one["processes"][0].update(descriptors=9 + i // 20))
        self.expect_fault("descriptors more")

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
        self.report.append("LATENCY command 10 90000 90001 pid 7 at 5")
        self.report.append("LATENCY command 10 90000 90001 pid 7 at 10")
        self.expect_fault("command takes 90.0 ms")

    def test_fails_when_something_is_slow_once(self):
        self.report.append("LATENCY echo 10 400 11000000 pid 7 at 5")
        self.expect_fault("the slowest echo takes 11000.0 ms")

    def test_fails_when_something_has_not_been_measured(self):
        self.report = [line for line in self.report if "meeting" not in line]
        self.expect_fault("nobody has measured: meeting")

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


if __name__ == "__main__":
    unittest.main()

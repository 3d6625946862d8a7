#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
"""Runs a desktop of thirty processes for some minutes and kills some of them at random.

Everything that it starts is in a world of its own (vask-sealed). What it sees goes into a directory,
for verdict.py and picture.py:

    samples   every five seconds the processes and what they hold, a line of JSON each
    report    what the programs of the desktop have measured, a line each
    events    kills, and what must not have happened (lines that begin with COMPLAINT)
    end       what was left of the desktop when it had ended, as JSON

usage: desktop.py MINUTES BUILD_DIRECTORY RESULT_DIRECTORY [SEED]
"""

import json
import os
import random
import resource
import signal
import subprocess
import sys
import threading
import time

SAMPLE_SECONDS = 5
STEP_SECONDS = 0.25
KILL_SECONDS = 3
TOOL_SECONDS = 4
REPAIR_SECONDS = 20
SERVER_LIFE_SECONDS = 25 * 60
ORPHAN_SECONDS = 10
TOOL_DEADLINE_SECONDS = 60
ENOUGH_RUNS = 8
CONNECTIONS = 100
TICKS = os.sysconf("SC_CLK_TCK")
PAGES = os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "engine", "pages")

# Who is killed how often. The first of each kind is spared, so that some processes become old.
VICTIMS = {"child": 55, "page-child": 10, "parent": 8, "client": 6, "pages": 4, "tool": 17}
SIGNALS = [signal.SIGKILL] * 5 + [signal.SIGSEGV, signal.SIGTERM]


def read(path):
    try:
        with open(path, encoding="utf-8", errors="replace") as file:
            return file.read()
    except OSError:
        return ""


class Process:
    """A process as /proc shows it."""

    def __init__(self, pid):
        self.pid = pid
        stat = read(f"/proc/{pid}/stat")
        self.exists = ")" in stat
        if not self.exists:
            return
        comm, _, rest = stat.partition("(")[2].rpartition(")")
        fields = rest.split()
        self.state = fields[0]
        self.parent = int(fields[1])
        self.cpu = sum(int(ticks) for ticks in fields[11:15]) / TICKS
        self.begin = int(fields[19]) / TICKS
        command = read(f"/proc/{pid}/cmdline").split("\0")[0]
        self.program = os.path.basename(command) or comm

    def sample(self):
        status = read(f"/proc/{self.pid}/status")
        memory = [line for line in status.splitlines() if line.startswith("RssAnon:")]
        try:
            descriptors = len(os.listdir(f"/proc/{self.pid}/fd"))
        except OSError:
            descriptors = 0
        return {
            "pid": self.pid,
            "program": self.program,
            "begin": self.begin,
            "state": self.state,
            "memory": int(memory[0].split()[1]) if memory else 0,
            "descriptors": descriptors,
        }


def processes():
    found = [Process(int(name)) for name in os.listdir("/proc") if name.isdigit()]
    return {process.pid: process for process in found if process.exists}


class Desktop:
    def __init__(self, build, results, seed):
        self.dice = random.Random(seed)
        self.build = build
        self.results = results
        self.events = open(os.path.join(results, "events"), "w", encoding="utf-8", buffering=1)
        self.samples = open(os.path.join(results, "samples"), "w", encoding="utf-8", buffering=1)
        self.environment = dict(os.environ, VASK_SOAK_REPORT=os.path.join(results, "report"), VASK_MSG_LV="4")
        # The lines of the library; the sample child's own would fill the disk.
        self.log = open(os.path.join(results, "log"), "w", encoding="utf-8")
        self.begin = time.monotonic()
        self.port = 0
        self.kills = 0
        self.killed = set()
        self.repairs = 0
        self.orphans = {}
        self.tools = set()
        self.runs = {}
        self.members = {}

    def seconds(self):
        return time.monotonic() - self.begin

    def note(self, text):
        self.events.write(f"{self.seconds():.1f} {text}\n")

    def complain(self, text):
        self.note("COMPLAINT " + text)

    def path(self, *parts):
        return os.path.join(self.build, *parts)

    def start(self, command, **more):
        more.setdefault("stdout", self.log)
        return subprocess.Popen(command, env=self.environment, stdin=subprocess.DEVNULL, stderr=self.log, **more)

    def start_server(self):
        # On the port of the one before, so that the clients find it.
        path = os.path.join(self.results, "server")
        with open(path, "w", encoding="utf-8") as output:
            server = self.start([self.path("examples/echo_server"), str(self.port)], stdout=output)
        while server.poll() is None and "port" not in read(path):
            time.sleep(STEP_SECONDS / 10)
        if server.poll() is None:
            self.port = int(read(path).split()[-1])
        return server

    def starters(self):
        child = self.path("examples/demo_child")
        programs = self.path("tests/programs")
        yield "server", self.start_server
        for i in range(5):
            yield f"parent {i}", lambda: self.start([f"{programs}/soak_parent", child])
        for i in range(2):
            yield f"client {i}", lambda: self.start([f"{programs}/soak_client", str(self.port), str(CONNECTIONS)])
        if os.path.exists(f"{programs}/soak_pages"):
            for i in range(2):
                yield f"pages {i}", lambda: self.start([f"{programs}/soak_pages", PAGES])
        yield "monitor 0", lambda: self.start(
            [self.path("tools/vaskctl/vaskctl"), "monitor", "--json"], stdout=subprocess.DEVNULL
        )

    def keep_up(self):
        """Starts who is not there, for the first time or again."""
        for name, start in self.starters():
            member = self.members.get(name)
            if member is None or member.poll() is not None:
                if member is not None and member.pid not in self.killed:
                    self.complain(f"{name} has ended by itself with status {member.returncode}")
                self.members[name] = start()

    def role(self, process, everybody):
        for name, member in self.members.items():
            if member.pid == process.pid:
                return name
        parent = everybody.get(process.parent)
        if process.program == "demo_child":
            return "page-child" if parent and parent.program == "soak_pages" else "child"
        return "tool" if process.program in ("vaskctl", "demo_ctl") else ""

    def kill_one(self):
        everybody = processes()
        roles = {pid: self.role(process, everybody) for pid, process in everybody.items()}
        kind = self.dice.choices(list(VICTIMS), list(VICTIMS.values()))[0]
        victims = sorted(pid for pid, role in roles.items() if role.split(" ")[0] == kind and not role.endswith(" 0"))
        if victims:
            self.kill(self.dice.choice(victims), self.dice.choice(SIGNALS), kind)

    def kill(self, pid, number, kind):
        self.note(f"kill {kind} {pid} by {signal.Signals(number).name}")
        try:
            os.kill(pid, number)
            self.kills += 1
            self.killed.add(pid)
        except ProcessLookupError:
            pass

    def use_tool(self, command):
        """Runs beside the rest; several at once may be under way."""

        def run():
            begin = time.monotonic()
            tool = self.start(command, stdout=subprocess.PIPE)
            self.tools.add(tool)
            try:
                output, _ = tool.communicate(timeout=TOOL_DEADLINE_SECONDS)
            except subprocess.TimeoutExpired:
                self.complain(f"{' '.join(command)} needs more than {TOOL_DEADLINE_SECONDS} s")
                tool.kill()
                output, _ = tool.communicate()
            self.tools.discard(tool)
            duration = int((time.monotonic() - begin) * 1e6)
            with open(self.environment["VASK_SOAK_REPORT"], "a", encoding="utf-8") as report:
                report.write(f"LATENCY tool 1 {duration} {duration} pid {tool.pid} at {int(time.monotonic())}\n")
            self.count(command, tool.returncode)
            self.examine(command[1:], tool.returncode, output.decode(errors="replace"))

        threading.Thread(target=run, daemon=True).start()

    def count(self, command, status):
        """A tool fails when its child or the lock's holder is killed, but not always. Who was killed has no status."""
        if status >= 0:
            kind = f"{os.path.basename(command[0])} {command[1]}"
            self.runs.setdefault(kind, []).append(status)

    def complain_of_failing_tools(self):
        for kind, statuses in sorted(self.runs.items()):
            if len(statuses) >= ENOUGH_RUNS and 0 not in statuses:
                self.complain(f"{kind} has failed {len(statuses)} times and never succeeded")

    def examine(self, arguments, status, output):
        if arguments[:1] == ["repair"]:
            done = [line for line in output.splitlines() if line.strip().startswith("done:")]
            self.repairs += len(done)
            for line in done:
                self.note("repaired: " + line.strip())
        if arguments[:1] == ["status"] and status >= 0 and '"damaged"' in output:
            self.complain("damaged: " + output.strip())
        if status < 0 and -status not in SIGNALS:
            self.complain(f"{arguments} was ended by signal {-status}")

    def use_some_tool(self):
        vaskctl = self.path("tools/vaskctl/vaskctl")
        children = [pid for pid, process in processes().items() if process.program == "demo_child"]
        child = str(self.dice.choice(children)) if children else "0"
        self.use_tool(
            self.dice.choice(
                [
                    [vaskctl, "tree", "--json"],
                    [vaskctl, "status", "--json"],
                    [vaskctl, "call", child, "1", "tool"],
                    [vaskctl, "record", "set", "monitor-rotation", str(self.dice.randrange(4))],
                    [vaskctl, "record", "get"],
                    [self.path("examples/demo_ctl"), "list"],
                    [self.path("examples/demo_ctl"), "show", child],
                    [self.path("examples/demo_ctl"), "rotate", str(self.dice.randrange(4))],
                    [self.path("examples/demo_ctl"), "quit", child],
                ]
            )
        )

    def sample(self):
        everybody = processes()
        self.look_for_orphans(everybody)
        members = [process for process in everybody.values() if process.pid != os.getpid()]
        self.samples.write(
            json.dumps(
                {
                    "seconds": round(self.seconds(), 1),
                    "clock": int(time.monotonic()),
                    # Of all that ever ran: who ends leaves his to who has waited for him.
                    "cpu": round(sum(process.cpu for process in everybody.values()), 2),
                    "shared": sorted(os.listdir("/dev/shm")),
                    "kills": self.kills,
                    "repairs": self.repairs,
                    "processes": [process.sample() for process in members],
                }
            )
            + "\n"
        )

    def look_for_orphans(self, everybody):
        for process in everybody.values():
            if process.program != "demo_child" or process.parent != 1 or process.state == "Z":
                continue
            since = self.orphans.setdefault((process.pid, process.begin), self.seconds())
            if self.seconds() - since > ORPHAN_SECONDS:
                self.complain(f"child {process.pid} outlives its parent")
                os.kill(process.pid, signal.SIGKILL)

    def live(self, minutes):
        due = {}
        if not os.path.exists(self.path("tests/programs/soak_pages")):
            self.note("without pages: no browser engine was there to build them with")

        def is_due(what, interval):
            if self.seconds() < due.setdefault(what, interval):
                return False
            due[what] = self.seconds() + interval
            return True

        while self.seconds() < minutes * 60:
            self.keep_up()
            if is_due("kill", KILL_SECONDS):
                self.kill_one()
            if is_due("server", SERVER_LIFE_SECONDS):
                self.kill(self.members["server"].pid, signal.SIGKILL, "server")
            if is_due("tool", TOOL_SECONDS):
                self.use_some_tool()
            if is_due("repair", REPAIR_SECONDS):
                self.use_tool([self.path("tools/vaskctl/vaskctl"), "repair", "--yes"])
            if is_due("sample", SAMPLE_SECONDS):
                self.sample()
            time.sleep(STEP_SECONDS)

    def end(self):
        """Asks everybody to end, and tells what is left then."""
        self.complain_of_failing_tools()
        for name, member in self.members.items():
            member.send_signal(signal.SIGINT if name.startswith("monitor") else signal.SIGTERM)
        for name, member in self.members.items():
            try:
                status = member.wait(timeout=60)
            except subprocess.TimeoutExpired:
                self.complain(f"{name} does not end")
                continue
            if status != 0 and name != "server":
                self.complain(f"{name} ends with status {status}")
        deadline = time.monotonic() + 30
        while self.strangers() and time.monotonic() < deadline:
            time.sleep(STEP_SECONDS)
        left = {"processes": self.strangers(), "registered": self.registered_beside_a_last_one()}
        left["status"] = json.loads(self.ask("status", "--json"))
        left["shared"] = sorted(os.listdir("/dev/shm"))
        with open(os.path.join(self.results, "end"), "w", encoding="utf-8") as file:
            json.dump(left, file, indent=1)

    def strangers(self):
        return [
            f"{process.pid} {process.state} {process.program}"
            for process in processes().values()
            if process.pid != os.getpid() and process.program not in ("vask-sealed", "dbus-daemon", "Xvfb")
        ]

    def registered_beside_a_last_one(self):
        """Who registers drops the dead: beside a last child nobody may be registered."""
        last = self.start([self.path("examples/demo_child")])
        entries = []
        for _ in range(120):
            time.sleep(STEP_SECONDS)
            objects = json.loads(self.ask("status", "--json"))["objects"]
            entries = [entry["pid"] for found in objects for entry in found.get("entries", [])]
            if last.pid in entries:
                break
        last.terminate()
        last.wait()
        return [pid for pid in entries if pid != last.pid] if last.pid in entries else ["the last one is not"]

    def ask(self, *arguments):
        return subprocess.run(
            [self.path("tools/vaskctl/vaskctl"), *arguments],
            env=self.environment,
            stdout=subprocess.PIPE,
            stderr=self.log,
            check=False,
        ).stdout


def main():
    if len(sys.argv) not in (4, 5):
        print(__doc__.splitlines()[-1], file=sys.stderr)
        return 2
    minutes, build, results = float(sys.argv[1]), sys.argv[2], sys.argv[3]
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    desktop = Desktop(build, results, sys.argv[4] if len(sys.argv) == 5 else str(time.time_ns()))
    desktop.live(minutes)
    desktop.end()
    return 0


if __name__ == "__main__":
    sys.exit(main())

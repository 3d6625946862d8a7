#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
"""Plants single faults into the library and looks whether the tests of its folder find them.

Each fault has a number, the same as long as no source changes. The seed shuffles them; --from and
--count take a piece of that order, so that a later run can go on. What has survived is listed in
tests/mutants/survivors when it makes no difference that a test could see, with the reason.
"""

import argparse
import concurrent.futures
import hashlib
import itertools
import json
import os
import pickle
import random
import re
import shutil
import signal
import subprocess
import sys
import threading
import time

import judging
import planting

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
FOLDERS = ["foundation", "bus", "child", "bridge", "controller", "shared_info", "socket", "plugin"]
# The bus has no tests of its own.
TESTS_OF = {"bus": ["child", "bridge", "controller"]}
QUICK_SECONDS = 12
LONGEST_SECONDS = 40
MOST_MEASUREMENTS = 3
ALONE = -1
LEAST_TRIED = 20


class TestProgram:
    """What vask_add_test() has been told about one."""

    def __init__(self, folder, name, words):
        self.folder = folder
        self.name = name
        self.internal = "INTERNAL" in words
        self.options = [f"--{word.lower()}" for word in ("BUS", "DISPLAY") if word in words]
        if "MAY_LEAVE" in words:
            kinds = itertools.takewhile(lambda word: not word.isupper(), words[words.index("MAY_LEAVE") + 1 :])
            self.options += [part for kind in kinds for part in ("--may-leave", kind)]
        self.seconds = 0.0
        self.left_out = []


def test_programs():
    found = []
    for folder in FOLDERS:
        directory = os.path.join(ROOT, "tests", folder)
        if not os.path.isdir(directory):
            continue
        for file in sorted(os.listdir(directory)):
            if file == "CMakeLists.txt" or file.endswith(".cmake"):
                with open(os.path.join(directory, file), encoding="utf-8") as lists:
                    for match in re.finditer(r"vask_add_test\(\s*NAME (\w+)([^)]*)\)", lists.read()):
                        found.append(TestProgram(folder, match[1], match[2].split()))
    return found


def guilty_tests(output):
    """Those that have failed, or the one in which the process has ended."""
    failed = set(re.findall(r"^\[  FAILED  \] (\S+\.\S+?)(?:,| \(|$)", output, re.MULTILINE))
    return failed or set(re.findall(r"^\[ RUN      \] (\S+)", output, re.MULTILINE)[-1:])


class Workshop:
    """A build whose library is broken and mended again."""

    def __init__(self, build, jobs):
        self.build = build
        self.jobs = jobs
        self.commands = planting.compile_commands(build)
        self.library = os.path.join(build, "src/libvask.so.2.0.0")
        self.link = self.ninja_command("src/libvask.so.2.0.0")
        self.programs = [program for program in test_programs() if os.path.exists(self.path_of(program))]
        self.processes = set()
        self.finds = {}
        self.lock = threading.Lock()

    def path_of(self, program):
        return os.path.join(self.build, "tests", program.folder, program.name)

    def ninja_command(self, target):
        output = subprocess.run(["ninja", "-C", self.build, "-t", "commands", target], stdout=subprocess.PIPE, check=True)
        # The last one that makes something of it; a link to its name may follow.
        lines = [line for line in output.stdout.decode().splitlines() if f"-o {target}" in line or f" {target} " in line]
        return [line for line in lines if "cmake_symlink_library" not in line][-1]

    def mutants(self):
        """Finding them takes a minute: they are kept until a source changes."""
        digest = hashlib.sha256()
        for path in sorted([*self.commands, planting.__file__]):
            if os.path.relpath(path, ROOT).startswith(("src/", "tests/mutants")):
                with open(path, "rb") as file:
                    digest.update(file.read())
        kept = os.path.join(self.build, f"mutants.{digest.hexdigest()[:16]}")
        if not os.path.exists(kept):
            found = planting.all_mutants(ROOT, self.build)
            with open(kept + ".new", "wb") as file:
                pickle.dump(found, file)
            os.replace(kept + ".new", kept)
        with open(kept, "rb") as file:
            return pickle.load(file)

    def run(self, program, timeout, *more, only=None):
        command = [os.path.join(self.build, "testkit/vask-sealed"), *program.options, "--timeout", str(timeout), "--"]
        command += [self.path_of(program), *more]
        if only:
            command.append("--gtest_filter=" + only)
        elif program.left_out:
            command.append("--gtest_filter=-" + ":".join(program.left_out))
        with open(os.devnull, "rb") as nothing:
            process = subprocess.Popen(command, stdin=nothing, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        with self.lock:
            self.processes.add(process)
        try:
            output, _ = process.communicate(timeout=timeout + 60)
        except subprocess.TimeoutExpired:
            process.kill()
            output, _ = process.communicate()
        with self.lock:
            self.processes.discard(process)
        return process.returncode, output.decode(errors="replace")

    def measure(self):
        """How long each program takes, and which tests cannot share a process with the others."""
        path = os.path.join(self.build, "baseline")
        known = {}
        if os.path.exists(path):
            with open(path, encoding="utf-8") as file:
                known = json.load(file)
        stamps = {program.name: self.stamp_of(program) for program in self.programs}
        missing = [program for program in self.programs if known.get(program.name, [None])[-1] != stamps[program.name]]
        with concurrent.futures.ThreadPoolExecutor(self.jobs) as pool:
            runs = {pool.submit(self.measure_one, program): program for program in missing}
            for done in concurrent.futures.as_completed(runs):
                name = runs[done].name
                known[name] = [*done.result(), stamps[name]]
                with open(path, "w", encoding="utf-8") as file:
                    json.dump(known, file, indent=1)
        for program in self.programs:
            program.seconds, program.left_out, _ = known[program.name]
        self.programs.sort(key=lambda program: program.seconds)

    def stamp_of(self, program):
        """Another one when the program or the library is another one: what they said before counts no more."""
        return max(os.stat(path).st_mtime_ns for path in (self.path_of(program), self.library))

    def measure_one(self, program):
        for _ in range(MOST_MEASUREMENTS):
            begin = time.monotonic()
            status, output = self.run(program, LONGEST_SECONDS)
            if status == 0:
                return time.monotonic() - begin, program.left_out
            guilty = guilty_tests(output)
            if not guilty - set(program.left_out):
                break
            program.left_out = sorted(guilty.union(program.left_out))
        # Then each test has a process of its own.
        return ALONE, self.tests_of(program)

    def tests_of(self, program):
        listing = subprocess.run([self.path_of(program), "--gtest_list_tests"], stdout=subprocess.PIPE, check=False)
        names, suite = [], ""
        for line in listing.stdout.decode().splitlines():
            name = line.split("#")[0].strip()
            if line.startswith(" "):
                names.append(suite + name)
            else:
                suite = name
        return names

    def plant(self, mutant):
        """False when it is no program any more."""
        entry = self.commands[os.path.join(ROOT, mutant.path)]
        source = os.path.join(ROOT, mutant.path)
        with open(source, "rb") as file:
            changed = f'#line 1 "{source}"\n'.encode() + mutant.applied(file.read())
        copy = os.path.join(self.build, "mutant.cpp")
        with open(copy, "wb") as file:
            file.write(changed)
        command = entry["command"].replace(source, copy) + f" -iquote {os.path.dirname(source)} -w -g0"
        if subprocess.run(command, shell=True, cwd=entry["directory"], stderr=subprocess.DEVNULL, check=False).returncode != 0:
            return False
        linked = subprocess.run(self.link, shell=True, cwd=self.build, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)
        return linked.returncode == 0

    def object_of(self, mutant):
        entry = self.commands[os.path.join(ROOT, mutant.path)]
        words = entry["command"].split()
        return os.path.join(entry["directory"], words[words.index("-o") + 1])

    def relink_internal(self, programs):
        """These have the library's objects in themselves."""
        internal = [program for program in programs if program.internal]
        if not internal:
            return []
        subprocess.run(self.ninja_command("src/libvask_internal.a"), shell=True, cwd=self.build, stdout=subprocess.DEVNULL, check=False)
        kept = []
        for program in internal:
            path = self.path_of(program)
            shutil.copy2(path, path + ".kept")
            kept.append(path)
            link = self.ninja_command(os.path.relpath(path, self.build))
            subprocess.run(link, shell=True, cwd=self.build, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)
        return kept

    def killer(self, programs):
        """The first program that finds the fault, or nothing."""
        found = []

        def fails(program, only):
            seconds = max(0, int(program.seconds * 4)) + 20
            status, output = self.run(program, seconds, "--gtest_fail_fast", only=only)
            return status not in (0, 77), ":".join(guilty_tests(output))

        def fails_twice(program, only):
            """A busy machine may make one fail by itself, or run out of time. What has failed is asked first."""
            former = None
            for _ in range(2):
                failed, guilty = fails(program, only)
                if not failed or found:
                    return False
                if guilty == former or (guilty and fails(program, guilty)[0]):
                    return True
                former = guilty
            return False

        def try_one(task):
            if not found and fails_twice(*task) and not found:
                found.append(task[0].name)
                with self.lock:
                    for process in self.processes:
                        process.kill()

        # What cannot share a process with other tests comes last, each in one of its own.
        tasks = [(program, None) for program in programs if program.seconds != ALONE]
        tasks += [(program, only) for program in programs for only in program.left_out]
        with concurrent.futures.ThreadPoolExecutor(self.jobs) as pool:
            list(pool.map(try_one, tasks))
        return found[0] if found else ""

    def try_mutant(self, mutant, thorough):
        folder = mutant.path.split("/")[1]
        own = [p for p in self.programs if p.folder in TESTS_OF.get(folder, [folder])]
        others = [p for p in self.programs if p not in own and p.seconds < QUICK_SECONDS]
        programs = own + others if thorough else own
        # Who has found a fault of this source finds the next one, too; else who is called like it.
        words = set(re.findall("[a-z]+", mutant.path)) - {"src", "vask", "cpp", folder}
        # The slow ones are for what the quick ones miss. On a busy machine many are slow.
        programs.sort(key=lambda p: (p.seconds >= QUICK_SECONDS, -self.finds.get((mutant.path, p.name), 0), -len(words & set(p.name.split("_")))))
        object_file = self.object_of(mutant)
        kept = [object_file, self.library, os.path.join(self.build, "src/libvask_internal.a")]
        kept = [path for path in kept if os.path.exists(path)]
        for path in kept:
            shutil.copy2(path, path + ".kept")
        try:
            if not self.plant(mutant):
                return "no program", ""
            kept += self.relink_internal(programs)
            killer = self.killer(programs)
            if not killer:
                return "survived", ""
            self.finds[mutant.path, killer] = self.finds.get((mutant.path, killer), 0) + 1
            return "killed", killer
        finally:
            for path in kept:
                os.replace(path + ".kept", path)


def parse():
    parser = argparse.ArgumentParser(prog="scripts/mutants", description=__doc__.splitlines()[0])
    parser.add_argument("--build", default=os.path.join(ROOT, "build/mutants"), help=argparse.SUPPRESS)
    parser.add_argument("--seed", type=int, default=1, help="shuffles the faults (1)")
    parser.add_argument("--from", dest="first", type=int, default=0, help="the first one of that order (0)")
    parser.add_argument("--count", type=int, default=30, help="how many are planted (30)")
    parser.add_argument("--seconds", type=float, default=1e9, help="begin with no more after so long")
    parser.add_argument(
        "--least", type=int, default=LEAST_TRIED, help=f"fail when fewer are tried, if there are so many ({LEAST_TRIED})"
    )
    parser.add_argument("--sum", action="store_true", help="plant nothing, print the sum of all runs")
    parser.add_argument("--only", type=int, help="the number of a single one")
    parser.add_argument("--folder", help="only those of one folder of src")
    parser.add_argument("--jobs", type=int, default=3, help="test programs at once (3)")
    parser.add_argument("--thorough", action="store_true", help="tests of other folders, too")
    parser.add_argument("--list", action="store_true", help="print what would be planted")
    return parser.parse_args()


def choose(mutants, wanted):
    if wanted.only is not None:
        return [wanted.only]
    numbers = list(range(len(mutants)))
    random.Random(wanted.seed).shuffle(numbers)
    if wanted.folder:
        numbers = [i for i in numbers if mutants[i].path.split("/")[1] == wanted.folder]
    return numbers[wanted.first : wanted.first + wanted.count]


def judge(results, least, accepted, ledger):
    found = judging.Sum(results, accepted)
    print(f"This run: {found.text()}")
    print(f"All runs: {judging.Sum(ledger.results(), accepted).text()}")
    faults = found.faults(least)
    for fault in faults:
        print(f"WRONG: {fault}")
    return not faults


def main():
    # However it ends, the library is mended first.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    wanted = parse()
    with open(os.path.join(ROOT, "tests/mutants/survivors"), encoding="utf-8") as file:
        accepted = judging.known_survivors(file)
    ledger = judging.Ledger(os.path.join(wanted.build, "ledger"), ROOT)
    if wanted.sum:
        print(judging.Sum(ledger.results(), accepted).text())
        return 0
    workshop = Workshop(wanted.build, wanted.jobs)
    mutants = workshop.mutants()
    chosen = choose(mutants, wanted)
    if wanted.list:
        for number in chosen:
            print(f"{number} {mutants[number].text()}")
        return 0
    workshop.measure()
    results = []
    begin = time.monotonic()
    for place, number in enumerate(chosen):
        if time.monotonic() - begin > wanted.seconds:
            print(f"The time is over; go on with --from {wanted.first + place}")
            break
        mutant = mutants[number]
        start = time.monotonic()
        verdict, killer = workshop.try_mutant(mutant, wanted.thorough)
        results.append((mutant.key(), verdict))
        ledger.add(mutant.path, mutant.key(), verdict)
        known = " (makes no difference)" if mutant.key() in accepted and verdict == "survived" else ""
        print(f"{number} {verdict}{known} {killer} {time.monotonic() - start:.0f} s {mutant.text()}", flush=True)
        if verdict == "survived":
            print(f"    key: {mutant.key()}", flush=True)
    return 0 if judge(results, min(wanted.least, len(chosen)), accepted, ledger) else 1


if __name__ == "__main__":
    sys.exit(main())

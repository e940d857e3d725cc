# SPDX-License-Identifier: MIT
"""Tries the tests: spoils the plug-in's sources one place at a time and says which faults no test notices.

    run.py [--only FILE ...] [--sample N] [--seed S] [--jobs N] [--quick] [--again] [--equivalent] [--report]

Faults inside functions are built all at once: each spoiled body stands beside the good one, and the environment chooses.
For those elsewhere each job has a copy of the tree, in which it spoils a file and builds what that touches. Then the
tests are run until one fails.
Verdicts are kept in build/mutate/verdicts.jsonl: what was killed is not tried again, unless with --again.
equivalent.txt lists the mutants that no test can notice, with their reasons.
"""

import argparse
import collections
import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

from mutants import CHOICE, mutants, with_choices

ROOT = pathlib.Path(__file__).resolve().parents[3]
SOURCES = pathlib.Path("Source/Plugins/qf_mkv")
WORK = ROOT / "build/mutate"
EQUIVALENT = pathlib.Path(__file__).with_name("equivalent.txt")
# What is built and run, in this order: a program of build/.../Tests and its tests. Random sessions come
# last: what they alone notice wants a row of its own.
STAGES = [
    ("Host/qf_host_tests", "-RandomSessions.*:EbmlWalker.*:PayloadLedger.*"), # the last two try the tests' own kit
    ("Unit/qf_unit_tests", "*"),
    ("Host/Silent/qf_silent_tests", "*"),
    ("Host/SecondName/qf_second_name_tests", "*"),
    ("Host/qf_abi_tests", "-Hardening.*"), # the copies are not built as what ships
    ("Robustness/qf_robustness_tests", "HeldMemory.*:*StorageFaults*:Limits.Tables*"),
    ("Robustness/qf_robustness_tests", "RealFaults.*:*OutOfMemory*"),
    ("Robustness/qf_robustness_tests", "LongHours.*:*OneLongFile*:*AMillionFrames*"), # instructions are not counted
    ("Robustness/qf_large_tests", "*"),
    ("Host/qf_host_tests", "RandomSessions.*"),
]
QUICK = 7 # of them, which take some seconds together
RANDOM_SESSIONS = 300
KILLERS = 20         # tests that noticed the most faults of a file, which are run before all others
LIKELY_SECONDS = 3   # of the processor, for these
MEMORY = 3 << 30     # octets of address space
WALL_SECONDS = 300   # for what waits; what computes is stopped after three times its time and some seconds
BUILD_SECONDS = 300

Verdict = collections.namedtuple("Verdict", "name by") # killed, refused by the compiler, survived; and by which test

EMPTY = Verdict("", "")


def key_of(mutant):
    return json.dumps([mutant.file, mutant.number, mutant.old, mutant.new])


def number_of(mutant, seed=0):
    """A number that stays the mutant's own, whatever others there are."""
    return int(hashlib.sha1(f"{seed}{key_of(mutant)}".encode()).hexdigest()[:8], 16) % (2**31 - 2) + 1


def shown(mutant):
    place = mutant.file + (f" #{mutant.number}" if mutant.number > 1 else "")
    return "\n".join([place, *("- " + line for line in mutant.old), *("+ " + line for line in mutant.new)])


def read_equivalent():
    """The reason for each entry, by its text as shown() has it."""
    reasons, reason, entry, behind_entry = {}, [], [], False
    def finish():
        if entry:
            reasons["\n".join(entry)] = " ".join(reason)
            entry.clear()
    for line in EQUIVALENT.read_text().splitlines() if EQUIVALENT.exists() else []:
        if line.startswith("# "):
            if behind_entry:
                finish()
                reason, behind_entry = [], False
            reason.append(line[2:])
        elif line[:2] in ("- ", "+ "):
            entry.append(line)
        elif line.strip():
            finish()
            entry.append(line)
            behind_entry = True
    finish()
    return reasons


def all_mutants(only):
    result = []
    for path in sorted((ROOT / SOURCES).iterdir()):
        if path.suffix not in (".cpp", ".h") or (only and path.name not in only):
            continue
        header = path.with_suffix(".h")
        declarations = "".join(p.read_text() for p in (header, ROOT / SOURCES / "ContainerMuxer.h") if p.exists())
        result += mutants(path.name, path.read_text(), declarations)
    return result


class Tree:
    """A copy of this tree, in which things may be spoiled."""

    def __init__(self, name, stages):
        self.stages = stages
        self.targets = sorted({os.path.basename(program) for program, _ in stages})
        self.root = WORK / name
        self.source, self.build = self.root / "source", self.root / "build"
        self.limits = {}

    def copy(self):
        names = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=ROOT, check=True, text=True,
                               capture_output=True).stdout.splitlines()
        for name in names:
            if (ROOT / name).is_file():
                self.write(self.source / name, (ROOT / name).read_bytes())
        for path in self.source.rglob("*"):
            if path.is_file() and str(path.relative_to(self.source)) not in names:
                path.unlink()

    @staticmethod
    def write(path, octets):
        """Leaves a file that is the same as it is, so that it need not be compiled."""
        if not (path.exists() and path.read_bytes() == octets):
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(octets)

    def configure(self):
        # Warnings are no verdict. To optimise what is spoiled would take longer than it saves; the tests are optimised.
        self.need(["cmake", "-S", self.source, "-B", self.build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
                   "-DCMAKE_CXX_FLAGS=-w -Wno-narrowing", "-DCMAKE_CXX_FLAGS_RELEASE=-O0", "-DQF_BUILD_TOOLS=OFF",
                   "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=gold", "-DCMAKE_MODULE_LINKER_FLAGS=-fuse-ld=gold",
                   "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST"], 600)

    def measure(self):
        """What the tests take when nothing is spoiled; they must pass."""
        for stage in self.stages:
            before = resource.getrusage(resource.RUSAGE_CHILDREN).ru_utime
            output, failed = self.test(stage, stage[1], 600)
            if failed:
                sys.exit(f"{stage[0]} fails in a tree that nobody spoiled:\n{output}")
            self.limits[stage] = int((resource.getrusage(resource.RUSAGE_CHILDREN).ru_utime - before) * 3) + 3

    def need(self, command, seconds):
        output, failed = self.run(command, seconds)
        if failed:
            sys.exit(f"{' '.join(map(str, command))} failed:\n{output[-4000:]}")

    @staticmethod
    def run(command, seconds, cpu=None, **more):
        """(output, whether it failed); what does not end in time has failed."""
        def limit():
            if cpu is not None:
                resource.setrlimit(resource.RLIMIT_CPU, (cpu, cpu + 1))
                resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
                resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL,
                                   start_new_session=True, preexec_fn=limit, **more)
        try:
            output = process.communicate(timeout=seconds)[0]
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            output = process.communicate()[0] + b"\nout of time"
        return output.decode(errors="replace"), process.returncode != 0

    def test(self, stage, tests, cpu, number=0):
        program = self.build / "Tests" / stage[0]
        memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
        with tempfile.TemporaryDirectory(dir=memory) as folder:
            return self.run([program, f"--gtest_filter={tests}", "--gtest_fail_fast"], WALL_SECONDS, cpu=cpu,
                            cwd=program.parent,
                            env={**os.environ, "TMPDIR": folder, "QF_SESSIONS": str(RANDOM_SESSIONS),
                                 "QF_MUTANT": str(number)})

    def judge(self, killers, number=0, build=None):
        runs = [(stage, ":".join(test for program, test in killers if program == stage[0]), LIKELY_SECONDS)
                for stage in self.stages[:2]]
        runs += [(stage, stage[1], self.limits[stage]) for stage in self.stages]
        for stage, tests, seconds in runs:
            if build and not build(stage):
                return Verdict("refused", "")
            if not tests:
                continue
            output, failed = self.test(stage, tests, seconds, number)
            if failed:
                names = re.findall(r"^\[ RUN      \] (\S+)", output, re.M)
                return Verdict("killed", f"{stage[0]} {names[-1] if names else 'at its start'}")
        return Verdict("survived", "")


class RebuiltTree(Tree):
    """Builds each mutant by itself."""

    def prepare(self):
        self.copy()
        self.configure()
        self.need(["ninja", "-C", self.build, *self.targets], 3600)
        self.measure()

    def try_mutant(self, mutant, killers):
        path = self.source / SOURCES / mutant.file
        text = path.read_text()
        path.write_text(text[:mutant.start] + mutant.replacement + text[mutant.end:])
        def build(stage):
            command = ["ninja", "-j1", "-C", self.build, os.path.basename(stage[0])]
            return not self.run(command, BUILD_SECONDS)[1]
        try:
            return self.judge(killers, build=build)
        finally:
            path.write_text(text)


class TreeOfAll(Tree):
    """One build that holds all mutants with a choice."""

    def prepare(self, some):
        """Returns those that the compiler refuses."""
        self.copy()
        self.write(self.source / SOURCES / "Choice.h", CHOICE.encode())
        left = {mutant: number_of(mutant) for mutant in some}
        self._write(left)
        self.configure()
        for targets in (["qf_mkv"], self.targets): # what the library refuses need not be tried in the tests
            self._build(targets, left)
        self.measure()
        return [mutant for mutant in some if mutant not in left]

    def _build(self, targets, left):
        while True:
            output, failed = self.run(["ninja", "-k0", "-C", self.build, *targets], 3600)
            if not failed:
                return
            refused = self._refused(output)
            if not refused:
                sys.exit(f"the tree of all mutants does not build:\n{output[-4000:]}")
            for mutant in [mutant for mutant, number in left.items() if number in refused]:
                del left[mutant]
            print(f"({len(left)} that the compiler takes)\n", flush=True)
            self._write(left)

    def _write(self, left):
        by_file = collections.defaultdict(list)
        for mutant, number in left.items():
            by_file[mutant.file].append((number, mutant))
        for path in (ROOT / SOURCES).iterdir():
            if path.suffix in (".cpp", ".h"):
                self.write(self.source / SOURCES / path.name,
                           with_choices(path.name, path.read_text(), by_file[path.name]).encode())

    @staticmethod
    def _refused(output):
        """The numbers in the compiler's errors; of an error in a header, that of the place which asked for it."""
        refused, asked_by = set(), None
        for line in output.splitlines():
            place = re.search(r"mutant-(\d+):", line)
            if place and ("required from" in line or "In " in line):
                asked_by = int(place[1])
            if " error: " in line:
                number = int(place[1]) if place and line.startswith(("mutant-", "../")) else asked_by
                if number:
                    refused.add(number)
        return refused

    def try_mutant(self, mutant, killers):
        return self.judge(killers, number_of(mutant))


class Run:
    def __init__(self, arguments):
        self.lock = threading.Lock()
        self.log = WORK / "verdicts.jsonl"
        self.killers = collections.defaultdict(collections.Counter)
        self.verdicts = {}
        if self.log.exists():
            for line in self.log.read_text().splitlines():
                entry = json.loads(line)
                self._note_killer(entry["file"], entry["verdict"], entry["by"])
                if not arguments.again:
                    self.verdicts[entry["key"]] = Verdict(entry["verdict"], entry["by"])
        self.reasons = read_equivalent()
        everything = all_mutants(arguments.only)
        present = {shown(m) for m in everything}
        self.stale = [] if arguments.only else sorted(set(self.reasons) - present)
        if arguments.sample:
            everything = sorted(everything, key=lambda m: number_of(m, arguments.seed))[:arguments.sample]
        self.mutants = everything
        self.explained = [m for m in everything if shown(m) in self.reasons and not arguments.equivalent]
        left_out = {key_of(m) for m in self.explained}
        settled = {key for key, verdict in self.verdicts.items() if verdict.name != "survived"}
        self.waiting = [m for m in everything if key_of(m) not in left_out | settled]
        self.jobs = arguments.jobs
        self.stages = STAGES[:QUICK] if arguments.quick else STAGES

    def _note_killer(self, file, verdict, by):
        if verdict == "killed" and " at its start" not in by and "RandomSessions" not in by:
            self.killers[file][tuple(by.split(" "))] += 1

    def work(self, tree, queue, take):
        while True:
            with self.lock:
                if not queue:
                    return
                mutant = take()
                killers = [killer for killer, _ in self.killers[mutant.file].most_common(KILLERS)]
            verdict = tree.try_mutant(mutant, killers)
            with self.lock:
                self.note(mutant, verdict)
                self.done += 1
                if self.done % 100 == 0:
                    rate = self.done / (time.time() - self.start)
                    print(f"({self.done} tried, {len(queue)} to go, {rate:.2f} a second)\n", flush=True)

    def note(self, mutant, verdict):
        self._note_killer(mutant.file, *verdict)
        self.verdicts[key_of(mutant)] = verdict
        with self.log.open("a") as log:
            log.write(json.dumps({"key": key_of(mutant), "file": mutant.file, "verdict": verdict.name, "by": verdict.by}) + "\n")
        if verdict.name == "survived":
            print(shown(mutant) + "\n", flush=True)

    def run_queue(self, some, trees):
        queue = collections.deque(some)
        self.start, self.done = time.time(), 0
        with concurrent.futures.ThreadPoolExecutor(len(trees)) as pool:
            ends = [queue.popleft, queue.popleft if len(set(trees)) == 1 else queue.pop]
            for future in [pool.submit(self.work, tree, queue, ends[i % 2]) for i, tree in enumerate(trees)]:
                future.result()

    def run(self):
        WORK.mkdir(parents=True, exist_ok=True)
        switched = [m for m in self.waiting if m.choice]
        built = [m for m in self.mutants if m.choice and self.verdicts.get(key_of(m), EMPTY).name != "refused"]
        rebuilt = [m for m in self.waiting if not m.choice]
        print(f"{len(switched)} mutants in one build, {len(rebuilt)} in builds of their own\n", flush=True)
        if switched:
            # Those that are settled stay in the build, which then stays as it is from run to run.
            tree = TreeOfAll("all", self.stages)
            refused = tree.prepare(built)
            for mutant in refused:
                self.note(mutant, Verdict("refused", ""))
            left = set(switched) - set(refused)
            # Those that survived before come first, the others in no order: a part of them is a sample.
            left = sorted(left, key=lambda m: (key_of(m) not in self.verdicts, number_of(m)))
            self.run_queue(left, [tree] * self.jobs)
        if rebuilt:
            trees = [RebuiltTree(str(number), self.stages) for number in range(self.jobs)]
            for tree in trees:
                tree.prepare()
            # By file, from both ends: a file that was spoiled and mended is compiled once, with its next fault.
            self.run_queue(sorted(rebuilt), trees)
        return self.report()

    def report(self):
        counts = collections.defaultdict(collections.Counter)
        survivors, wrong, random_only = [], [], []
        for mutant in self.mutants:
            is_explained = shown(mutant) in self.reasons
            verdict = self.verdicts.get(key_of(mutant))
            name = verdict.name if verdict else "not tried"
            if is_explained and (mutant in self.explained or name == "survived"):
                name = "explained"
            elif is_explained and name == "killed":
                wrong.append(mutant)
            elif name == "survived":
                survivors.append(mutant)
            if verdict and "RandomSessions" in verdict.by:
                random_only.append(mutant)
            counts[mutant.file][name] += 1
        print("| file | mutants | killed | explained | survived |\n|---|---|---|---|---|")
        total = collections.Counter()
        for file, row in sorted(counts.items()):
            total += row
            self._print_row(f"`{file}`", row)
        self._print_row("all", total)
        print(f"\nnot counted: {total['refused']} that the compiler refuses, {total['not tried']} not tried")
        for title, some in [("Noticed by random sessions alone", random_only), ("Explained, but killed", wrong),
                            ("Survivors", survivors)]:
            if some:
                print(f"\n{title}: {len(some)}\n")
                print("\n\n".join(shown(m) for m in some))
        if self.stale:
            print(f"\nStale entries of {EQUIVALENT.name}: {len(self.stale)}\n")
            print("\n\n".join(self.stale))
        return 1 if survivors or wrong or self.stale else 0

    @staticmethod
    def _print_row(name, row):
        count = row["killed"] + row["explained"] + row["survived"]
        print(f"| {name} | {count} | {row['killed']} | {row['explained']} | {row['survived']} |")


def main():
    parser = argparse.ArgumentParser(description="Spoils the plug-in's sources one place at a time and runs the tests.")
    parser.add_argument("--only", action="append", metavar="FILE", help="mutants of this file of the plug-in; may be repeated")
    parser.add_argument("--sample", type=int, metavar="N", help="so many of the mutants, drawn by chance")
    parser.add_argument("--seed", type=int, default=1, metavar="S", help="of the draw (default: 1)")
    parser.add_argument("--jobs", type=int, default=2, metavar="N", help="mutants at a time (default: 2)")
    parser.add_argument("--quick", action="store_true", help="leave out the tests that take longest")
    parser.add_argument("--again", action="store_true", help="try also what was killed before")
    parser.add_argument("--report", action="store_true", help="try nothing: say what has been found")
    parser.add_argument("--equivalent", action="store_true", help="try also the mutants that are listed as equivalent")
    arguments = parser.parse_args()
    run = Run(arguments)
    return run.report() if arguments.report else run.run()


if __name__ == "__main__":
    sys.exit(main())

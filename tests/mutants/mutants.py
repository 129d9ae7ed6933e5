#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0
"""Changes the module, one place at a time, and asks who notices.

Each change is built into a copy of the sources, and the unit tests that reach
the changed line are run with it until one fails. What nobody notices is named,
unless the list has it as one that changes nothing observable.
"""

import argparse
import collections
import concurrent.futures
import difflib
import hashlib
import json
import os
import pathlib
import queue
import re
import shlex
import shutil
import subprocess
import sys
import threading
import time

import changes

MODULE = ("plat/linux/zorva", "plat/common")
COPIED = (*MODULE, "plat/linux/include")

# Of what a test takes without a change; a loop that never ends takes more.
CPU_FACTOR = 20
CPU_SECONDS = 2

NOTICED, UNNOTICED, SAME, BROKEN = "noticed", "unnoticed", "same", "broken"


def say(text):
    print(f"mutants: {text}", file=sys.stderr, flush=True)


def die(text):
    sys.exit(f"mutants: {text}")


def module_sources(root):
    """The files that are changed: the seam is the kernel's side."""
    found = []
    for directory in MODULE:
        found += [file for suffix in ("cpp", "h")
                  for file in (root / directory).glob(f"*.{suffix}")
                  if not file.name.startswith("zk")]
    return sorted(str(file.relative_to(root)) for file in found)


class Build:
    """The commands by which the sources of the unit tests are compiled."""

    def __init__(self, root, directory):
        self.root = root
        self.directory = directory
        self.commands = {}
        commands = json.loads(
            (directory / "compile_commands.json").read_text())
        for each in commands:
            self.commands[pathlib.Path(each["file"])] = each
        self.module = [path for path in self.commands
                       if any(path.parent == root / d for d in MODULE)]

    def object_of(self, path):
        each = self.commands[path]
        words = shlex.split(each["command"])
        return pathlib.Path(each["directory"], words[words.index("-o") + 1])

    def includers(self, file):
        """The sources of the module that a file is compiled with."""
        path = self.root / file
        if path in self.commands:
            return [path]
        return [source for source in self.module
                if str(path) in self.dependencies(source)]

    def dependencies(self, source):
        text = pathlib.Path(f"{self.object_of(source)}.d").read_text()
        return {os.path.normpath(os.path.join(
                    self.commands[source]["directory"], word)) for word in
                text.replace("\\\n", " ").split(":", 1)[1].split()}


class Program:
    """The unit tests, with the module as a library of its own beside them.

    The library is built from a copy of the sources, and is all that has to be
    linked after a change.
    """

    def __init__(self, build, module, directory):
        self.build = build
        self.module = module    # its commands may be others
        self.directory = directory
        self.copy = directory / "sources"
        self.program = directory / "unit"
        self.shared = directory / "libmodule.so"
        self.environment = {
            **os.environ, "CCACHE_DISABLE": "1",
            # What the headers define is in both.
            "ASAN_OPTIONS": "malloc_context_size=0:detect_odr_violation=0"}
        shutil.rmtree(directory, ignore_errors=True)
        directory.mkdir(parents=True)
        for each in COPIED:
            shutil.copytree(build.root / each, self.copy / each)
        self.objects = {}
        for path in build.module:
            self.objects[path] = directory / f"{path.stem}.o"
            if not self.compile(path, self.objects[path]):
                die(f"{path}: cannot be compiled")
        self.link({})
        self.link_program()

    def link_program(self):
        objects = []
        for path in self.build.commands:
            if (path in self.build.module or "googletest" in path.parts
                    or path.name.startswith(("cmake_pch", "text_"))):
                continue
            # The tests of the tables compile the module themselves.
            if path.name == "comp_test.cpp":
                objects.append(self.directory / "comp_test.o")
                self.compile(path, objects[-1])
            else:
                objects.append(self.build.object_of(path))
        self.run(["g++", "-m32", "-fsanitize=address,undefined", "-rdynamic",
                  "-Wl,--strip-debug", "-Wl,-rpath,$ORIGIN", "-o",
                  self.program, *objects, self.shared,
                  *self.build.directory.glob("lib/libgtest*.a")])

    def link(self, changed):
        """Links the module, with what tells the tests where its text lies; its
        own functions are called by it."""
        counted = ["--coverage"] if self.module is not self.build else []
        begin, end = (self.build.object_of(
            self.build.directory / f"text_{end}.cpp")
            for end in ("begin", "end"))
        self.run(["g++", "-m32", "-shared", "-fsanitize=address,undefined",
                  *counted, "-Wl,-Bsymbolic-functions", "-o", self.shared,
                  begin, *(changed.get(path, out)
                           for path, out in self.objects.items()), end])

    def run(self, words):
        done = subprocess.run(words, capture_output=True, text=True,
                              env=self.environment)
        if done.returncode:
            die(f"{' '.join(map(str, words))}:\n{done.stderr}")

    def compile(self, path, out, more=()):
        """Compiles a source as the copy has it; false when it cannot be."""
        each = self.module.commands[path]
        command = each["command"]
        for top in COPIED:
            command = command.replace(f"{self.build.root}/{top}",
                                      f"{self.copy}/{top}")
        words = shlex.split(command)
        words[words.index("-o") + 1] = str(out)
        return subprocess.run([*words, "-fPIC", "-w",
                               *(() if self.counts() else ("-g0",)), *more],
                              cwd=each["directory"], env=self.environment,
                              capture_output=True).returncode == 0

    def counts(self):
        return self.module is not self.build

    def list_tests(self):
        """All, but for what the fuzzers have found: that is no test's own."""
        output = subprocess.run([self.program, "--gtest_list_tests"],
                                check=True, capture_output=True, text=True,
                                env=self.environment)
        tests, suite = [], ""
        for line in output.stdout.splitlines():
            name = line.split("#")[0].rstrip()
            if line.startswith("  "):
                tests.append(suite + name.strip())
            elif name.endswith("."):
                suite = name
        return [test for test in tests if not test.startswith("Corpus.")]

    def run_tests(self, orders, every=False):
        """Runs tests, each in a process: (test, passed, seconds)."""
        done = subprocess.run(
            [self.program, "--each=all" if every else "--each"],
            input="".join(f"{order}\n" for order in orders),
            capture_output=True, text=True, env=self.environment)
        if done.returncode not in (0, 1):
            return [("the loading of the module", False, 0.0)]
        results = []
        for line in done.stdout.splitlines():
            test, result, seconds = line.split()
            results.append((test, result == "passed", float(seconds)))
        return results


class Worker(Program):
    """A program and a copy, in which one change at a time is tried."""

    def __init__(self, build, directory):
        super().__init__(build, build, directory)

    def attempt(self, change, original, orders):
        """Tries one change: what came of it, and who has noticed."""
        place = self.copy / change.file
        place.write_text(change.apply(original))
        try:
            return self.build_and_run(change, orders)
        finally:
            place.write_text(original)

    def build_and_run(self, change, orders):
        changed = {}
        for number, path in enumerate(self.build.includers(change.file)):
            changed[path] = self.directory / f"changed{number}.o"
            if not self.compile(path, changed[path]):
                return BROKEN, ""
        self.link(changed)
        for test, passed, _ in self.run_tests(orders):
            if not passed:
                return NOTICED, test
        return UNNOTICED, ""

    def same_code(self, change, original):
        """Whether the compiler makes the same code of it."""
        place = self.copy / change.file
        for path in self.build.includers(change.file):
            codes = []
            for text in (change.apply(original), original):
                out = self.directory / "code.o"
                place.write_text(text)
                self.compile(path, out, ("-O2", "-fno-sanitize=all"))
                codes.append(out.read_bytes())
            if codes[0] != codes[1]:
                return False
        return True


class Reach:
    """Which tests reach which lines, and what each test takes.

    Counting takes a minute, so it is kept for as long as no source changes.
    """

    def __init__(self, root, build, counted, work, jobs):
        self.root = root
        self.lines = collections.defaultdict(set)
        self.reached_by = collections.defaultdict(set)
        self.reached_in = collections.defaultdict(set)
        self.reach = collections.Counter()
        kept = work / "reach.json"
        digest = self.digest()
        data = json.loads(kept.read_text()) if kept.exists() else {}
        if data.get("sources") != digest:
            say("counting what each test reaches")
            data = {"sources": digest,
                    **self.count(build, counted, work, jobs)}
            kept.write_text(json.dumps(data))
        self.seconds = data["seconds"]
        self.tests = list(self.seconds)
        for file, lines in data["lines"].items():
            self.lines[file].update(lines)
        for test, files in data["reached"].items():
            for file, lines in files.items():
                self.reached_in[file].add(test)
                self.reach[test] += len(lines)
                for line in lines:
                    self.reached_by[file, line].add(test)

    def digest(self):
        """Of all that the tests are made of."""
        total = hashlib.sha256()
        for top in ("plat", "tests/unit", "tests/mutants"):
            for path in sorted((self.root / top).rglob("*")):
                if path.suffix in (".cpp", ".h", ".def", ".txt", ".py"):
                    total.update(path.read_bytes())
        return total.hexdigest()

    def count(self, build, counted, work, jobs):
        program = Program(build, counted, work / "counted")
        tests = program.list_tests()
        found = {"lines": {}, "reached": {}, "seconds": {}}
        prefix = work / "counts"
        shutil.rmtree(prefix, ignore_errors=True)
        numbered = list(enumerate(tests))
        with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
            parts = [[f"{test} 60 {prefix / str(n)}"
                      for n, test in numbered[job::jobs]]
                     for job in range(jobs)]
            for results in pool.map(
                    lambda part: program.run_tests(part, every=True), parts):
                for test, passed, seconds in results:
                    if not passed:
                        die(f"{test} fails without a change")
                    found["seconds"][test] = seconds
            for test, lines, reached in pool.map(
                    lambda each: self.read_counts(prefix / str(each[0]),
                                                  each[1]), numbered):
                found["lines"].update(lines)
                found["reached"][test] = reached
        shutil.rmtree(prefix)
        return found

    def read_counts(self, prefix, test):
        """The lines of the module, and those that one test has run."""
        data = [str(path) for path in prefix.rglob("*.gcda")]
        for path in data:
            notes = pathlib.Path("/", pathlib.Path(path).relative_to(
                prefix)).with_suffix(".gcno")
            pathlib.Path(path).with_suffix(".gcno").symlink_to(notes)
        output = subprocess.run(["gcov", "--json-format", "--stdout", *data],
                                check=True, capture_output=True, text=True,
                                cwd=prefix)
        lines, reached = {}, {}
        for text in output.stdout.splitlines():
            for each in json.loads(text)["files"]:
                file = re.sub(".*/sources/", "", each["file"])
                if not file.startswith(MODULE):
                    continue
                known = lines.setdefault(file, set())
                ran = reached.setdefault(file, set())
                for line in each["lines"]:
                    known.add(line["line_number"])
                    if line["count"]:
                        ran.add(line["line_number"])
        return (test, {file: sorted(each) for file, each in lines.items()},
                {file: sorted(each) for file, each in reached.items() if each})

    def tests_of(self, change, sources):
        """The tests that a change may matter to."""
        source = sources[change.file]
        if source.span_of.get(change.number):
            tests = self.tests_at(change.file, source, change.number)
        else:
            tests = self.tests_with(source.constant_at(change.number), sources)
        # What only the compiler runs may matter to all.
        return set(self.tests) if tests is None else tests

    def tests_at(self, file, source, number):
        """The tests that reach a line of a function; None when it is one that
        only the compiler runs."""
        known = self.lines[file]
        span = source.span_of[number]
        if not any(self.reached_by[file, each]
                   for each in span if each in known):
            return None
        # The rest of a statement is counted with its beginning.
        while number > span.start and number not in known:
            number -= 1
        return self.reached_by[file, number]

    def tests_with(self, constant, sources):
        """The tests that reach a line with a constant; None when another
        declaration has it."""
        tests = set()
        for file, source in sources.items():
            for number in source.uses_of(constant):
                if not source.span_of.get(number):
                    return None
                found = self.tests_at(file, source, number)
                if found is None:
                    return None
                tests |= found
        return tests or None


class Equivalents:
    """The list of changes that nobody can notice, with the reasons."""

    def __init__(self, path):
        self.path = path
        self.places = {}
        self.problems = []
        place, line, pending, reason = None, None, 0, None
        lines = path.read_text().splitlines() if path.exists() else []
        for number, raw in enumerate([*lines, ""], 1):
            here = f"{path.name}:{number}"
            text = raw.strip()
            item = re.match(r"(line(?: \(\d+\))?:|becomes:|because:) ?(.*)",
                            text)
            if raw.startswith("#"):
                continue
            if not text or not raw[0].isspace():
                if place and (line or not pending or not reason):
                    self.problems.append(f"{here}: the entry before is not "
                                         "complete")
                place, line, pending, reason = None, None, 0, None
                if text:
                    place = text.split()
                    if len(place) != 2:
                        self.problems.append(
                            f"{here}: not a file and a function")
                        place = None
            elif reason is not None:
                reason += " " + text
            elif not item or not place:
                self.problems.append(f"{here}: cannot be read: {text}")
            elif item[1] == "because:":
                reason = item[2]
            elif item[1] != "becomes:":
                line = item
            elif line:
                key = (*place, line[1], line[2], item[2])
                if key in self.places:
                    self.problems.append(f"{here}: is listed twice")
                self.places[key] = here
                pending, line = pending + 1, None

    def check(self, candidates):
        """What the list has and the sources have not."""
        known = {change.key for change in candidates}
        for key, here in self.places.items():
            if key not in known:
                self.problems.append(f"{here}: is not in the sources: " +
                                     " ".join(key))


class Trial:
    """Tries changes until so many of them have been built."""

    def __init__(self, workers, reach, sources, listed, work):
        self.workers = queue.Queue()
        for worker in workers:
            self.workers.put(worker)
        self.jobs = len(workers)
        self.reach = reach
        self.sources = sources
        self.listed = listed
        self.lock = threading.Lock()
        self.killers = collections.Counter()
        self.unlisted = 0
        self.in_list = 0
        self.log = open(work / "results", "w")
        self.patches = work / "unnoticed"
        shutil.rmtree(self.patches, ignore_errors=True)
        self.patches.mkdir()

    def orders_for(self, change):
        """The tests to run: who noticed before, then the most specific."""
        tests = self.reach.tests_of(change, self.sources)
        near = self.reach.reached_in[change.file]
        seconds = self.reach.seconds
        with self.lock:
            ranked = sorted(tests, key=lambda t: (
                -self.killers[change.file, change.function, t],
                -self.killers[change.file, t],
                t not in near, self.reach.reach[t], seconds[t]))
        return [f"{t} {int(seconds[t] * CPU_FACTOR) + CPU_SECONDS}"
                for t in ranked]

    def one(self, change):
        original = self.sources[change.file].text
        worker = self.workers.get()
        try:
            result, test = worker.attempt(change, original,
                                          self.orders_for(change))
            if result == UNNOTICED and worker.same_code(change, original):
                result = SAME
        finally:
            self.workers.put(worker)
        with self.lock:
            if test:
                self.killers[change.file, test] += 1
                self.killers[change.file, change.function, test] += 1
            self.record(change, result, test)
        return result

    def record(self, change, result, test):
        """Keeps a result, and tells at once of one that is not as it should
        be."""
        self.log.write(f"{result} {test or '-'} {show(change)}\n")
        self.log.flush()
        here = self.listed.places.get(change.key)
        if result == UNNOTICED and here:
            self.in_list += 1
        elif result == UNNOTICED:
            self.unlisted += 1
            print(f"{show(change)}\n\t{self.keep_patch(change)}", flush=True)
        elif here:
            self.listed.problems.append(
                f"{here}: is noticed by {test}" if test else
                f"{here}: makes the same code, or none: needs no entry")

    def keep_patch(self, change):
        """The change as a patch, for whoever writes the test."""
        source = self.sources[change.file].text
        path = self.patches / f"{self.unlisted}.patch"
        path.write_text("".join(difflib.unified_diff(
            source.splitlines(keepends=True),
            change.apply(source).splitlines(keepends=True),
            f"a/{change.file}", f"b/{change.file}")))
        return path

    def run(self, drawn, count):
        """Tries drawn changes, until as many as wanted were built."""
        start = shown = time.monotonic()
        tally = collections.Counter()
        drawn = iter(drawn)
        running = set()
        with concurrent.futures.ThreadPoolExecutor(self.jobs) as pool:
            while True:
                built = tally[NOTICED] + tally[UNNOTICED]
                while len(running) < min(self.jobs, count - built):
                    change = next(drawn, None)
                    if change is None:
                        break
                    running.add(pool.submit(self.one, change))
                if not running:
                    return tally
                done, running = concurrent.futures.wait(
                    running, return_when=concurrent.futures.FIRST_COMPLETED)
                for each in done:
                    tally[each.result()] += 1
                if time.monotonic() - shown > 30:
                    shown = time.monotonic()
                    say(f"{tally[NOTICED] + tally[UNNOTICED]} of {count} "
                        f"tried, {tally[UNNOTICED]} not noticed "
                        f"({shown - start:.0f} s)")


def show(change):
    return (f"{change.file}:{change.number}: {change.function}: "
            f"{change.kind}: {change.line}  ->  {change.becomes}")


def parse_arguments():
    parser = argparse.ArgumentParser(
        description=__doc__.split("\n\n")[0],
        formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--root", type=pathlib.Path, required=True,
                        help=argparse.SUPPRESS)
    parser.add_argument("--seed", default="1",
                        help="draws the changes (default: 1)")
    parser.add_argument("--count", type=int, default=500,
                        help="how many to try (default: 500)")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(),
                        help="at once (default: the number of processors)")
    parser.add_argument("--file", help="only of files with this in their name")
    parser.add_argument("--function", help="only in this function")
    parser.add_argument("--kind", choices=changes.KINDS, action="append",
                        help="only of this kind; may be repeated")
    parser.add_argument("--list", action="store_true",
                        help="print the changes and try none")
    return parser.parse_args()


def main():
    options = parse_arguments()
    root = options.root.resolve()
    work = root / "build/mutants"
    sources = {file: changes.Source(file, (root / file).read_text())
               for file in module_sources(root)}
    candidates = [change for source in sources.values()
                  for change in source.changes()]
    listed = Equivalents(root / "tests/mutants/equivalent")
    listed.check(candidates)

    drawn = [change for change in
             sorted(candidates, key=lambda c: c.rank(options.seed))
             if (not options.file or options.file in change.file)
             and (not options.function or
                  options.function == change.function)
             and (not options.kind or change.kind in options.kind)]
    if not drawn:
        die("there is no such change")
    if options.list:
        for change in drawn:
            print(show(change))
        say(f"{len(drawn)} changes")
        return 0

    unit = Build(root, root / "build/unit")
    counted = Build(root, root / "build/coverage")
    reach = Reach(root, unit, counted, work, options.jobs)
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        workers = list(pool.map(lambda n: Worker(unit, work / f"worker{n}"),
                                range(options.jobs)))
    reached = [change for change in drawn
               if reach.tests_of(change, sources)]
    say(f"{len(candidates)} changes, {len(reached)} of them wanted and "
        f"reached; seed {options.seed}")

    start = time.monotonic()
    trial = Trial(workers, reach, sources, listed, work)
    tally = trial.run(reached, options.count)
    for problem in listed.problems:
        print(problem)
    say(f"{tally[NOTICED] + tally[UNNOTICED]} changes, "
        f"{tally[NOTICED]} noticed, {trial.in_list} in the list, "
        f"{trial.unlisted} unnoticed; besides, {tally[SAME]} made the same code and "
        f"{tally[BROKEN]} none ({time.monotonic() - start:.0f} s)")
    return bool(trial.unlisted or listed.problems)


if __name__ == "__main__":
    sys.exit(main())

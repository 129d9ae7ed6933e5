#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0
"""Compares what the unit tests leave out of the module with the list of it.

usage: coverage.py ROOT JSON LIST

JSON is what gcovr has counted; LIST explains its own form. Each difference is
one line on standard error, and fails the comparison.
"""

import collections
import json
import pathlib
import re
import sys

# What has not run, and the text of the line.
ITEM = re.compile(r"(function(?: \(\d+\))?$|"
                  r"(?:line|branch \d+ of \d+)(?: \(\d+\))?:(?= ))(.*)")


def short_name(demangled):
    """The name of a function without its namespace, types and parameters."""
    name = demangled.replace("(anonymous namespace)::", "")
    while name != (shorter := re.sub(r"<[^<>]*>", "", name)):
        name = shorter
    return name.split("(")[0].split()[-1]


def nth(seen, what):
    """Of equal ones, the second has a "(2)"."""
    seen[what] += 1
    return f" ({seen[what]})" if seen[what] > 1 else ""


class Counts:
    """What there is in the sources, and what of it has not run.

    Both are keyed by (file, function, what, text of the line), as the list has
    them, so that nothing depends on the numbers of lines.
    """

    def __init__(self, root, files):
        self.root = root
        self.known = set()
        self.gaps = {}
        self.total = collections.Counter()
        self.run = collections.Counter()
        for each in files:
            self.add_file(each)

    def add(self, key, kind, has_run, number):
        self.total[kind] += 1
        self.run[kind] += has_run
        self.known.add(key)
        if not has_run:
            self.gaps[key] = number

    def add_file(self, each):
        file = each["file"]
        source = (self.root / file).read_text().splitlines()
        functions = sorted(each["functions"],
                           key=lambda f: (f["lineno"], f["name"]))
        seen = collections.Counter()
        run_at = set()

        # Each instance of a template is a function of its own.
        for function in functions:
            name = short_name(function["name"])
            key = (file, name, f"function{nth(seen, name)}", "")
            has_run = function["execution_count"] > 0
            self.add(key, "functions", has_run, function["lineno"])
            if has_run:
                run_at.add(function["lineno"])

        for line in each["lines"]:
            if line["gcovr/noncode"]:
                continue
            number = line["line_number"]
            around = [f for f in functions if f["lineno"] <= number][-1]
            name = short_name(around["name"])
            text = source[number - 1].strip()
            which = nth(seen, (name, text))

            # Who lists a function or a line has listed what is in it.
            whole = around["lineno"] not in run_at
            key = (file, name, f"line{which}:", text)
            self.add(key, "lines", line["count"] > 0, number)
            if whole:
                self.gaps.pop(key, None)
            ways = len(line["branches"])
            for i, branch in enumerate(line["branches"]):
                key = (file, name, f"branch {i} of {ways}{which}:", text)
                self.add(key, "branches", branch["count"] > 0, number)
                if whole or line["count"] == 0:
                    self.gaps.pop(key, None)

    def summary(self):
        return ", ".join(f"{kind} {self.run[kind]}/{self.total[kind]}"
                         for kind in ("lines", "branches", "functions"))


def read_list(path, problems):
    """The entries of the list, each with its place in it."""
    listed = {}
    place = []
    pending = []
    reason = None

    def close():
        if place and (not pending or not reason):
            problems.append(f"{place[0]}: an entry without " +
                            ("a reason" if pending else "a gap"))

    for number, raw in enumerate(path.read_text().splitlines(), 1):
        text = raw.strip()
        here = f"{path.name}:{number}"
        item = ITEM.match(text)
        if raw.startswith("#"):
            continue
        if not text or not raw[0].isspace():
            close()
            place, pending, reason = [], [], None
            if text:
                place = [here, *text.split()]
                if len(place) != 3:
                    problems.append(f"{here}: not a file and a function")
                    place = []
        elif reason is not None:
            reason += text
        elif text.startswith("because:"):
            reason = text[len("because:"):].strip()
        elif item and place:
            key = (place[1], place[2], item[1], item[2].strip())
            if key in listed:
                problems.append(f"{here}: is listed twice")
            listed[key] = here
            pending.append(key)
        else:
            problems.append(f"{here}: cannot be read: {text}")
    close()
    return listed


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    root = pathlib.Path(sys.argv[1])
    files = json.loads(pathlib.Path(sys.argv[2]).read_text())["files"]
    problems = []
    counts = Counts(root, files)
    listed = read_list(pathlib.Path(sys.argv[3]), problems)

    counted = {each["file"] for each in files}
    for source in sorted((root / "plat").rglob("*.cpp")):
        file = str(source.relative_to(root))
        if not file.startswith("plat/host/") and file not in counted:
            problems.append(f"{file}: is not compiled for the tests")
    for (file, name, what, text), number in counts.gaps.items():
        if (file, name, what, text) not in listed:
            problems.append(f"{file}:{number}: is not covered: "
                            f"{name}: {what} {text}".rstrip())
    for key, here in listed.items():
        text = " ".join(key).rstrip()
        if key not in counts.known:
            problems.append(f"{here}: is not in the sources: {text}")
        elif key not in counts.gaps:
            problems.append(f"{here}: is covered: {text}")

    for problem in problems:
        print(f"coverage: {problem}", file=sys.stderr)
    print(f"coverage: {counts.summary()}, listed {len(listed)}, "
          f"wrong {len(problems)}")
    sys.exit(bool(problems))


main()

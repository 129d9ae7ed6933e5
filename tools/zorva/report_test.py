#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0
"""Looks at the page of zorva report, as a text.

usage: report_test.py ZORVA SAMPLES

The page has to be well formed and to need nothing but itself, a name of a
switch may change nothing but the rows that show it, and a page of many blocks
has to stay small. How a browser shows it is tested by tests/report.
"""

import base64
import hashlib
import html.parser
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

import bench

ZORVA = sys.argv[1]
BOARD = str(pathlib.Path(sys.argv[2]) / "demo-console.log")

MOST_BYTES = 5 * 1000 * 1000

# Each is a name in a report: of a queue, of a thread, a lock, a component.
HOSTILE = ["<script>alert(1)</script>", "\" onload=\"x", "' x='", "&lt;b&gt;",
           "</style></script>", "\x1b[2J\x07\x9b", "\u202etxt", "\udcff",
           "-->", "]]>", "%s{}{0}", "a\\b", "javascript:x"]

VOID = {"meta", "link", "input", "br"}
# Of SVG, where a tag may end itself.
ALONE = {"rect", "path"}

SWITCH = """==> zorva.msgq <==
Queue Name   : {name}
Component ID : 17 ({name})
Msg Size     : 16 bytes
Max Depth    : 8
Curr Depth   : 8
Max Seen     : 8

==> zorva.thread <==
Component : {name}
Name      : {name}
PID       : 7
State     : 2
Priority  : 128

==> zorva.mutex.detail <==

----------------
Dump all ACTIVE mutex(s)
Current Time : 50
----------------

Index     : 1
Name      : {name}
Component : {name} (17)
Status    : Take
Locker    : 7 ({name})
---------------------------------
  [0000000000000009] Take @{name}, 3


Total number of Mutex: 1 (active 1)
==> zorva.mem.detail <==

----------------
Current Time : 50
----------------

Component   : {name}
Curr Usage  : 100
Max Usage   : 100
Alloc Count : 2
Free Count  : 0
----------------
<memory corruption 0x81000080 invalid end 0x00000000 (expected 0xbbbbbbbb) ({name}, 38)>
  [0000000000] 81000000 - 100 bytes ({name}, 7)

"""


def make(*sources, text=None):
    """The page of these sources."""
    done = subprocess.run(
        [ZORVA, "report", "--html", "-", *sources], check=True,
        capture_output=True,
        input=None if text is None else
        text.encode("utf-8", "surrogateescape"))
    return done.stdout.decode()


class Page(html.parser.HTMLParser):
    """Collects what a page has in it."""

    def __init__(self, text):
        super().__init__()
        self.open = []
        self.wrong = []
        self.tags = []
        self.inside = {"style": "", "script": ""}
        self.feed(text)
        self.close()
        if self.open:
            self.wrong.append(f"not closed: {self.open}")

    def handle_starttag(self, tag, attrs):
        names = [name for name, _ in attrs]
        if len(set(names)) != len(names):
            self.wrong.append(f"{self.getpos()}: an attribute twice")
        self.tags.append((tag, dict(attrs)))
        if tag not in VOID:
            self.open.append(tag)

    def handle_startendtag(self, tag, attrs):
        if tag not in ALONE:
            self.wrong.append(f"{self.getpos()}: <{tag}/>")
        self.tags.append((tag, dict(attrs)))

    def handle_endtag(self, tag):
        if not self.open or self.open.pop() != tag:
            self.wrong.append(f"{self.getpos()}: </{tag}>")

    def handle_data(self, data):
        if self.open and self.open[-1] in self.inside:
            self.inside[self.open[-1]] += data


class Report(unittest.TestCase):
    """The page as a text."""

    def check_form(self, text):
        """What holds for every page."""
        page = Page(text)
        self.assertEqual(page.wrong, [])
        ids = [its["id"] for _, its in page.tags if "id" in its]
        self.assertEqual(len(ids), len(set(ids)))
        for tag, its in page.tags:
            for name, value in its.items():
                self.assertNotEqual(name, "style", tag)
                self.assertFalse(name.startswith("on"), (tag, name))
                if name in ("href", "src", "action", "xlink:href"):
                    self.assertTrue(value == "data:," or value[0] == "#" and
                                    value[1:] in ids, (tag, value))
        self.assertEqual([tag for tag, _ in page.tags].count("script"), 1)
        for loader in ("iframe", "img", "object", "embed", "base", "image",
                       "use", "foreignobject", "form"):
            self.assertNotIn(loader, [tag for tag, _ in page.tags])
        self.assertNotRegex(page.inside["style"], r"url\(|@import|src:")
        return page

    def test_a_page_is_well_formed_and_needs_nothing(self):
        self.check_form(make(BOARD))

    def test_the_policy_lets_its_own_parts_in_and_nothing_else(self):
        page = self.check_form(make(BOARD))
        policy = next(its["content"] for tag, its in page.tags
                      if its.get("http-equiv") == "Content-Security-Policy")
        for part, text in page.inside.items():
            digest = base64.b64encode(
                hashlib.sha256(text.encode()).digest()).decode()
            self.assertIn(f"{part}-src 'sha256-{digest}'", policy)
        self.assertIn("default-src 'none'", policy)
        self.assertNotIn("unsafe", policy)

    def test_the_first_line_says_what_is_wrong(self):
        self.assertIn(">Nothing looks wrong.<", make(BOARD))
        text = make("-", text=SWITCH.format(name="plain"))
        self.assertIn(">2 things look wrong.<", text)
        self.assertIn("FULL QUEUE &#39;plain&#39;", text)
        self.assertIn("DAMAGED BLOCK of plain", text)

    def test_a_hostile_name_changes_only_the_rows_that_show_it(self):
        plain = make("-", text=SWITCH.format(name="plain-name"))
        lines = plain.splitlines()
        for name in HOSTILE:
            with self.subTest(name=name):
                text = make("-", text=SWITCH.format(name=name))
                for sign in text:
                    self.assertTrue(sign in "\n\t" or " " <= sign < "\x7f",
                                    repr(sign))
                page = self.check_form(text)
                self.assertEqual(len(text.splitlines()), len(lines))
                for line, other in zip(lines, text.splitlines()):
                    if "plain-name" not in line:
                        self.assertEqual(line, other)
                self.assertEqual([tag for tag, _ in page.tags],
                                 [tag for tag, _ in Page(plain).tags])

    def test_many_blocks_make_a_small_page(self):
        with tempfile.TemporaryDirectory() as where:
            name = os.path.join(where, "many.txt")
            bench.write_snapshot(name, 100000)
            text = make(name)
        self.check_form(text)
        self.assertLess(len(text.encode()), MOST_BYTES)
        self.assertIn("more places are not shown", text)
        places = re.search(r"(\d+) more places are not", text)
        self.assertGreater(int(places[1]), 0)

    def test_places_that_are_all_different_make_a_small_page(self):
        blocks = "".join(
            f"  [{i:010d}] {0x80000000 + i * 128:08x} - 10 bytes "
            f"(f{i % 1000}.c, {i})\n" for i in range(100000))
        text = make("-", text=(
            "==> zorva.mem.detail <==\n\n----------------\n"
            "Current Time : 100000\n----------------\n\n"
            "Component   : PORT\nCurr Usage  : 1000000\n"
            "Max Usage   : 1000000\nAlloc Count : 100000\n"
            f"Free Count  : 0\n----------------\n{blocks}\n"))
        self.assertLess(len(text.encode()), MOST_BYTES)
        self.assertIn("99700 more places are not shown", text)

    def test_moments_show_what_has_grown(self):
        texts = []
        with tempfile.TemporaryDirectory() as where:
            for i, used in enumerate((1000, 3000, 5000)):
                name = os.path.join(where, f"{i}.txt")
                with open(name, "w", encoding="ascii") as file:
                    file.write(
                        f"==> /proc/uptime <==\n{i * 60}.00 1.00\n"
                        "==> zorva.mem <==\n"
                        f"RMON       {used:<12}{used:<12}{used:<12}0          "
                        f" +{used}   \n")
                texts.append(name)
            text = make(*texts)
        self.check_form(text)
        self.assertIn("RMON +3.9 KiB", text)
        self.assertIn("only grew", text)
        self.assertIn("2 min later", text)

    def test_wrong_use_is_said(self):
        for arguments, status, said in (
                (["report", BOARD], 2, "--html"),
                (["report", "--html", "-", "--json", BOARD], 2, "--json"),
                (["report", "--html", "/nonexistent/x", BOARD], 3,
                 "/nonexistent/x"),
                (["report", "--html", "-", "/nonexistent"], 3, "/nonexistent"),
                (["report", "--html", "/dev/full", BOARD], 3, "/dev/full")):
            with self.subTest(arguments=arguments):
                done = subprocess.run([ZORVA, *arguments], check=False,
                                      capture_output=True, text=True)
                self.assertEqual(done.returncode, status, done.stderr)
                self.assertIn(said, done.stderr)
                self.assertEqual(done.stdout, "")
        self.assertTrue(os.path.exists("/dev/full"))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])

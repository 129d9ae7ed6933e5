#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0
"""Runs zorva as its users do, and looks at all that it prints.

usage: json_test.py ZORVA SCHEMA SAMPLES

What --json prints has to be what the schema says; no byte of a hostile input
may reach the terminal as it is; and the exit status has to tell what was found.
"""

import json
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

import jsonschema

ZORVA, SCHEMA, SAMPLES = sys.argv[1:4]
SAMPLES = pathlib.Path(SAMPLES)
BOARD = str(SAMPLES / "demo-console.log")
COMMANDS = [["mem"], ["mem", "--by", "site"], ["mem", "--by", "size"],
            ["mem", "--by", "age"], ["mem", "--older-than", "1"],
            ["torn"], ["queues"], ["timers"], ["threads"],
            ["locks"], ["waits"], ["check"], ["top"]]

DETAIL = """
----------------
Current Time : {now}
----------------

Component   : PORT
Curr Usage  : {bytes}
Max Usage   : {bytes}
Alloc Count : {count}
Free Count  : 0
----------------
{blocks}
"""

HOSTILE = "x\x1b]0;owned\x07\x1b[2J\x9b\u202e\udcff\"]; y -> \\"


def detail(now, count, name="fw_leak.c"):
    """A detailed memory report with so many blocks of 100 bytes."""
    lines = "".join(
        f"  [{i:010d}] {0x81000000 + i * 256:x} - 100 bytes ({name}, 7)\n"
        for i in range(count))
    return DETAIL.format(now=now, bytes=count * 100, count=count,
                         blocks=lines)


def run(*arguments, text=None, env=None):
    """Output, complaints and status."""
    done = subprocess.run(
        [ZORVA, *arguments], capture_output=True, check=False,
        input=None if text is None else
        text.encode("utf-8", "surrogateescape"),
        env={**os.environ, **(env or {})})
    return done.stdout.decode(), done.stderr.decode(), done.returncode


class Output(unittest.TestCase):
    """What is printed, and the exit status."""

    @classmethod
    def setUpClass(cls):
        with open(SCHEMA, encoding="utf-8") as file:
            schema = json.load(file)
        jsonschema.Draft202012Validator.check_schema(schema)
        cls.validator = jsonschema.Draft202012Validator(schema)

    def read_json(self, *arguments, text=None):
        """What a command prints, which has to be as the schema says."""
        out, said, _ = run(*arguments, "--json", text=text)
        self.assertTrue(out, said)
        shown = json.loads(out)
        command = self.validator.evolve(
            schema={**self.validator.schema, "oneOf": [
                {"$ref": f"#/$defs/{shown['command']}"}]})
        for error in command.iter_errors(shown):
            self.fail(f"{arguments}: {error.json_path}: {error.message}")
        self.validator.validate(shown)
        self.assertEqual(shown["command"], arguments[0])
        return shown

    def files(self, **texts):
        """Files with these texts, and their names."""
        where = tempfile.TemporaryDirectory()
        self.addCleanup(where.cleanup)
        names = []
        for name, text in texts.items():
            names.append(os.path.join(where.name, name))
            with open(names[-1], "wb") as file:
                file.write(text.encode("utf-8", "surrogateescape"))
        return names

    def test_every_command_prints_what_the_schema_says(self):
        for command in COMMANDS:
            with self.subTest(command=command):
                shown = self.read_json(*command, BOARD)
                self.assertEqual(shown["read"]["errors"], 0)

    def test_a_page_that_was_written_is_named(self):
        name, = self.files(page="")
        shown = self.read_json("report", "--html", name, BOARD)
        self.assertEqual((shown["file"], shown["bytes"]),
                         (name, os.stat(name).st_size))

    def test_metrics_are_no_json(self):
        self.assertEqual(run("metrics", "--json", BOARD)[::2], ("", 2))
        self.assertTrue(run("metrics", BOARD)[0].endswith("# EOF\n"))

    def test_metrics_without_what_they_need_are_none(self):
        name, = self.files(a=detail(5, 3))
        self.assertEqual(run("metrics", "--torn", name)[2], 0)
        self.assertEqual(run("metrics", "cmd:echo")[::2], ("", 3))
        table = "PORT       1           1           1           0           +1\n"
        name, = self.files(**{"zorva.mem": table})
        self.assertEqual(run("metrics", name)[2], 0)
        self.assertEqual(run("metrics", "--torn", name)[::2], ("", 3))

    def test_the_schema_refuses_what_is_not_in_it(self):
        shown = self.read_json("mem", BOARD)
        for change in ({"version": 2}, {"more": 1}, {"total": {}}):
            with self.assertRaises(jsonschema.ValidationError):
                self.validator.validate({**shown, **change})

    def test_a_leak_is_found(self):
        names = self.files(a=detail(0, 10), b=detail(3600, 20))
        shown = self.read_json("leaks", *names)
        self.assertEqual(shown["grown"][0]["file"], "fw_leak.c")
        self.assertEqual(shown["grown"][0]["grown_blocks"], 10)
        self.assertEqual(shown["lost_bytes_per_hour"], 10 * 156)
        out, _, status = run("leaks", *names)
        self.assertIn("fw_leak.c:7", out)
        self.assertEqual(status, 1)

    def test_what_does_not_grow_is_no_leak(self):
        names = self.files(a=detail(0, 10), b=detail(3600, 10))
        out, _, status = run("leaks", *names)
        self.assertEqual((status, "nothing only grows" in out), (0, True))

    def test_moments_in_the_wrong_order_are_refused(self):
        names = self.files(a=detail(3600, 10), b=detail(0, 20))
        out, said, status = run("leaks", *names)
        self.assertEqual((out, status), ("", 2))
        self.assertIn("earlier", said)

    def test_a_full_queue_is_found(self):
        text = ("Queue Name   : q\nComponent ID : 17 (FDB)\n"
                "Msg Size     : 16 bytes\nMax Depth    : 8\n"
                "Curr Depth   : 8\nMax Seen     : 8\n\n")
        out, _, status = run("queues", "-", text=text)
        self.assertIn("FULL", out)
        self.assertEqual(status, 1)
        self.assertTrue(self.read_json(
            "queues", "-", text=text)["queues"][0]["full"])

    def test_a_damaged_block_is_found(self):
        text = detail(9, 1).rstrip("\n").replace(
            "Alloc Count : 1", "Alloc Count : 2") + (
            "\n<memory corruption 0x81000080 invalid end 0x00000000 "
            "(expected 0xbbbbbbbb) (fw_fault.c, 38)>\n\n")
        out, _, status = run("torn", "-", text=text)
        self.assertIn("fw_fault.c:38", out)
        self.assertIn("fw_leak.c:7", out)
        self.assertEqual(status, 1)
        shown = self.read_json("torn", "-", text=text)
        self.assertTrue(shown["torn"][0]["below"]["adjacent"])

    def test_nothing_hostile_reaches_the_terminal(self):
        text = ("\n----------------\nDump all ACTIVE & LOCKED mutex(s)\n"
                "Current Time : 5\n----------------\n\nIndex     : 1\n"
                f"Name      : {HOSTILE}\nComponent : {HOSTILE} (1)\n"
                f"Status    : Take\nLocker    : 7 ({HOSTILE})\n"
                "---------------------------------\n"
                f"  [0000000000000005] Take @{HOSTILE}, 3\n"
                f"  [0000000000000004] Take @{HOSTILE}, 2\n"
                "\n\nNumber of Mutex: 1\n\n" +
                detail(5, 3, HOSTILE) +
                f"# cat /proc/zorva/zorva.thread\nComponent : {HOSTILE}\n"
                f"Name      : {HOSTILE}\nPID       : 7\nState     : 2\n"
                "Priority  : 99999999999999999999\n"
                f"Queue Name   : {HOSTILE}\nComponent ID : 1 ({HOSTILE})\n"
                "Msg Size     : 1 bytes\nMax Depth    : 1\n"
                f"Curr Depth   : 0\nMax Seen     : 0\n\n[ {HOSTILE}\n")
        for command in COMMANDS:
            with self.subTest(command=command):
                out, said, _ = run(*command, "-v", "-", text=text,
                                   env={"NO_COLOR": "1"})
                for shown in out + said:
                    self.assertTrue(shown == "\n" or " " <= shown < "\x7f" or
                                    shown > "\xa0", repr(shown))
                    self.assertNotEqual(shown, "\u202e")
                if command != ["timers"]:
                    self.read_json(*command, "-", text=text)

    def test_wrong_use_is_said_in_one_line_with_status_2(self):
        for wrong in (["bogus"], [], ["mem", "--bogus"],
                      ["mem", "--by", "x", BOARD], ["mem", BOARD, BOARD],
                      ["mem", "--older-than", "x", BOARD],
                      ["mem", "-n", "x", BOARD], ["leaks"],
                      ["leaks", BOARD + "x", "--bogus"]):
            with self.subTest(wrong=wrong):
                out, said, status = run(*wrong)
                self.assertEqual((out, status), ("", 2))
                self.assertTrue(said.startswith("zorva: "), said)
                self.assertLessEqual(said.count("\n"), 2)

    def test_what_cannot_be_read_is_named_with_status_3(self):
        for source in ("/nonexistent", "/proc", "ssh:-oProxyCommand=x",
                       "cmd:exit 1", "/dev/null"):
            with self.subTest(source=source):
                out, said, status = run("mem", source)
                self.assertEqual((out, status), ("", 3))
                self.assertIn(source, said)

    def test_a_command_is_a_source(self):
        out, _, status = run("mem", f"cmd:cat '{BOARD}'")
        self.assertEqual(status, 0)
        self.assertEqual(out, run("mem", BOARD)[0])

    def test_a_directory_is_a_source(self):
        name, = self.files(**{"zorva.mem.detail": detail(5, 3)})
        out, _, status = run("mem", "--by", "site", os.path.dirname(name))
        self.assertEqual(status, 0)
        self.assertIn("fw_leak.c:7", out)

    def test_the_script_makes_a_snapshot(self):
        name, = self.files(**{"zorva.mem.detail": detail(5, 3)})
        directory = os.path.dirname(name)
        with open(os.path.join(directory, "zorva.mem"), "w",
                  encoding="ascii") as file:
            file.write("PORT       300         300         3           "
                       "0           +3      \n")
        script, _, _ = run("snapshot", "--script")
        text = subprocess.run(
            ["sh", "-s"], input=script, capture_output=True, check=True,
            text=True, env={**os.environ, "ZORVA_REPORTS": directory}).stdout
        shown = self.read_json("mem", "--by", "site", "-", text=text)
        self.assertEqual(shown["groups"][0]["blocks"], 3)
        self.assertEqual(shown["read"]["warnings"], 0, shown["read"])
        self.assertEqual(shown["read"]["errors"], 0, shown["read"])

    def test_colours_come_only_when_wanted(self):
        self.assertNotIn("\x1b", run("mem", BOARD)[0])
        self.assertIn("\x1b", run("mem", BOARD, "--color=always")[0])

    def test_sizes_are_exact_when_asked_for(self):
        name, = self.files(a=detail(5, 30))
        self.assertIn("2.9 KiB", run("mem", name)[0])
        self.assertIn(" 3000 ", run("mem", name, "--bytes")[0])

    def test_every_command_has_help_with_an_example(self):
        for command in {each[0] for each in COMMANDS} | {
                "leaks", "snapshot", "report", "metrics"}:
            with self.subTest(command=command):
                out, _, status = run(command, "--help")
                self.assertEqual(status, 0)
                self.assertIn("Example", out)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])

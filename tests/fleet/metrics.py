#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0
"""Looks at what zorva metrics prints, and at who uses it.

usage: metrics.py ZORVA SAMPLES PROMETHEUS

  ZORVA       the inspector
  SAMPLES     tools/zorva/samples
  PROMETHEUS  tools/prometheus: its rules and its dashboard are looked at

Needs Debian's python3-prometheus-client, which has a reader of the format
that others wrote, and promtool.
"""
import json
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

from prometheus_client.openmetrics.parser import text_string_to_metric_families

ZORVA, SAMPLES, PROMETHEUS = sys.argv[1], *map(pathlib.Path, sys.argv[2:4])
TROUBLE = SAMPLES / "trouble-later.txt"

HOSTILE = ["<script>alert(1)</script>", '"} 1', "a\\", "a\\n", "{{ $x }}",
           "\x1b[2J", "\x07", "# EOF", "\u00e9\u202e", "\udcff", "x\ty"]

QUEUE = ("==> zorva.msgq <==\nQueue Name   : {0}\nComponent ID : 17 ({0})\n"
         "Msg Size     : 16 bytes\nMax Depth    : 8\nCurr Depth   : 3\n"
         "Max Seen     : 8\n\nQueue Name   : other\nComponent ID : 17 (FDB)\n"
         "Msg Size     : 16 bytes\nMax Depth    : 8\nCurr Depth   : 4\n"
         "Max Seen     : 8\n\n")


def metrics(*arguments, text=None):
    """What is printed, and its families."""
    out = subprocess.run(
        [ZORVA, "metrics", *arguments], check=True, capture_output=True,
        input=None if text is None else
        text.encode("utf-8", "surrogateescape")).stdout.decode()
    return out, {one.name: one for one in text_string_to_metric_families(out)}


def promtool(*arguments, text=None):
    """What promtool says, which has to be content."""
    done = subprocess.run(["promtool", *arguments], check=False, input=text,
                          capture_output=True, text=True)
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


def expressions():
    """All that the dashboard asks for."""
    board = json.loads((PROMETHEUS / "dashboard.json").read_text("utf-8"))
    return [(panel["title"],
             one["expr"].replace("$instance", ".*"))
            for panel in board["panels"] for one in panel["targets"]]


class Metrics(unittest.TestCase):
    """The text, as those who read it have it."""

    def test_others_can_read_it(self):
        _, families = metrics("--torn", TROUBLE)
        kinds = {one.type for one in families.values()}
        self.assertEqual(kinds, {"gauge", "counter"})
        for one in families.values():
            self.assertTrue(one.documentation, one.name)
            if one.unit:
                self.assertTrue(one.name.endswith(one.unit), one.name)

    def test_promtool_has_nothing_to_say(self):
        # It reads the older form, in which a counter's name has all of it.
        text, _ = metrics("--torn", TROUBLE)
        text = re.sub(r"^(# \S+ zorva_component_(allocations|frees)) ",
                      r"\1_total ", text, flags=re.M)
        self.assertEqual(promtool("check", "metrics", text=text), "")

    def test_the_four_faults_are_in_it(self):
        _, families = metrics("--torn", TROUBLE)
        value = {(one.name, one.labels.get("queue") or
                  one.labels.get("component")): one.value
                 for family in families.values() for one in family.samples}
        self.assertEqual(value["zorva_deadlocks", None], 1)
        self.assertEqual(value["zorva_torn_blocks", "VLAN"], 1)
        self.assertEqual(value["zorva_queue_messages", "snmp-trap"], 4)
        self.assertGreater(value["zorva_component_blocks", "RMON"], 50)
        held = {one.labels["mutex"]: one
                for one in families["zorva_mutex_held_seconds"].samples}
        self.assertEqual(set(held), {"stp", "lag"})
        self.assertEqual(held["stp"].labels["holder"], "stp-update")

    def test_a_hostile_name_stays_in_its_own_label(self):
        plain, _ = metrics("-", text=QUEUE.format("plain"))
        for name in HOSTILE:
            with self.subTest(name=name):
                text, families = metrics("-", text=QUEUE.format(name))
                queues = families["zorva_queue_messages"].samples
                self.assertEqual([one.value for one in queues], [3, 4])
                self.assertEqual(queues[1].labels,
                                 {"component": "FDB", "queue": "other"})
                for sign in text:
                    self.assertTrue(sign == "\n" or " " <= sign < "\x7f" or
                                    sign > "\xa0", repr(sign))
                lines = text.splitlines()
                self.assertEqual(len(lines), len(plain.splitlines()))
                for before, after in zip(plain.splitlines(), lines):
                    if "plain" not in before:
                        self.assertEqual(before, after)

    def test_the_rules_are_right(self):
        self.assertIn("SUCCESS", promtool(
            "check", "config", PROMETHEUS / "prometheus.yml"))
        self.assertIn("SUCCESS", promtool(
            "test", "rules", PROMETHEUS / "rules.test.yml"))

    def test_every_rule_has_a_test(self):
        rules = re.findall(r"- alert: (\w+)",
                           (PROMETHEUS / "rules.yml").read_text("utf-8"))
        self.assertGreater(len(rules), 5)
        tests = (PROMETHEUS / "rules.test.yml").read_text("utf-8")
        for rule in rules:
            self.assertRegex(tests, rf"alertname: {rule}\n\s+exp_alerts:")

    def test_the_dashboard_can_be_asked_for(self):
        rules = {"groups": [{"name": "dashboard", "rules": [
            {"record": f"panel:{i}", "expr": expr}
            for i, (_, expr) in enumerate(expressions())]}]}
        with tempfile.NamedTemporaryFile("w", suffix=".yml") as file:
            json.dump(rules, file)
            file.flush()
            said = promtool("check", "rules", file.name)
        self.assertIn(f"{len(expressions())} rules found", said)

    def test_what_is_asked_for_is_there(self):
        text, _ = metrics("--torn", TROUBLE)
        known = set(re.findall(r"^(zorva_\w+)", text, flags=re.M))
        known |= set(re.findall(r"^# TYPE (zorva_\w+) gauge", text,
                                flags=re.M))
        asked = " ".join(expr for _, expr in expressions())
        asked += (PROMETHEUS / "rules.yml").read_text("utf-8")
        names = set(re.findall(r"\bzorva_\w+", asked))
        self.assertGreater(len(names), 10)
        self.assertEqual(names - known, set())

    def test_the_dashboard_has_no_panel_over_another(self):
        board = json.loads((PROMETHEUS / "dashboard.json").read_text("utf-8"))
        taken = set()
        for panel in board["panels"]:
            at = panel["gridPos"]
            self.assertLessEqual(at["x"] + at["w"], 24)
            its = {(x, y) for x in range(at["x"], at["x"] + at["w"])
                   for y in range(at["y"], at["y"] + at["h"])}
            self.assertFalse(its & taken, panel["title"])
            taken |= its
        ids = [panel["id"] for panel in board["panels"]]
        self.assertEqual(len(ids), len(set(ids)))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])

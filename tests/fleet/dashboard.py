#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0
"""Asks a Prometheus that watches the two boards for all that the dashboard shows.

usage: dashboard.py ADDRESS DASHBOARD

  ADDRESS    of the Prometheus: 127.0.0.1:9090
  DASHBOARD  tools/prometheus/dashboard.json

Each question has to be answered with figures, and the faults of the second
board have to be among them. There is time for that: the boards have to make
their faults, and Prometheus needs two looks for a rate.
"""
import json
import math
import pathlib
import sys
import time
import urllib.error
import urllib.parse
import urllib.request

PATIENCE = 300  # seconds

# What there is at least of these, for the faults of the second board.
LEAST = {"Switches that answer": 2, "Deadlocks": 1, "Damaged blocks": 1,
         "Full queues": 1, "Mutexes that are held": 0,
         "Takes that wait for a mutex": 1}


def ask(address, expression):
    """The values that Prometheus answers with."""
    query = urllib.parse.urlencode({"query": expression})
    try:
        with urllib.request.urlopen(
                f"http://{address}/api/v1/query?{query}", timeout=10) as said:
            answer = json.load(said)
    except urllib.error.HTTPError as error:
        raise SystemExit(f"{expression}: {error.read().decode()}") from error
    result = answer["data"]["result"]
    return [float(one["value"][1]) for one in result]


def problem(address, title, expression):
    """What is wrong with the answer to a panel's question; "" if nothing."""
    values = ask(address, expression)
    if not values:
        return "no data"
    if not all(math.isfinite(one) for one in values):
        return f"no numbers: {values}"
    if max(values) < LEAST.get(title, -math.inf):
        return f"{max(values)} at most, expected {LEAST[title]}"
    return ""


def main():
    """Asks until all answers are right, or the time is over."""
    if len(sys.argv) != 3 or sys.argv[1].startswith("-"):
        print(__doc__.strip(), file=sys.stderr)
        return 0 if sys.argv[1:] in (["-h"], ["--help"]) else 2
    board = json.loads(pathlib.Path(sys.argv[2]).read_text("utf-8"))
    wrong = [(panel["title"], one["expr"].replace("$instance", ".*"), "")
             for panel in board["panels"] for one in panel["targets"]]
    titles = {title for title, _, _ in wrong}
    assert set(LEAST) <= titles, set(LEAST) - titles
    count = len(wrong)
    end = time.monotonic() + PATIENCE
    while True:
        wrong = [(title, expression, why) for title, expression, _ in wrong
                 if (why := problem(sys.argv[1], title, expression))]
        if not wrong or time.monotonic() > end:
            break
        time.sleep(3)
    for title, expression, why in wrong:
        print(f"{title}: {expression}: {why}", file=sys.stderr)
    print(f"    {count - len(wrong)} of {count} questions have an answer",
          file=sys.stderr)
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())

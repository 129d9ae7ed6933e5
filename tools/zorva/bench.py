#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0
"""How long zorva takes for a large report, and how much memory.

usage: bench.py ZORVA [BLOCKS]

Makes a snapshot of that many blocks (1,000,000), groups it by place with zorva
and with "grep -o '([^)]*)' | sort | uniq -c", on one processor and in turn, and
prints the best of three. Fails when zorva takes more than a tenth of the time,
or more memory than four times the size of the file.
"""

import os
import pathlib
import random
import subprocess
import sys
import tempfile
import time

TIMES = 3
MOST_TIME = 1 / 10
MOST_MEMORY = 4
PLACES = 400
COMPONENTS = ["SYS", "PORT", "PHY", "FDB", "VLAN", "STP", "IGMP", "ACL"]


def write_snapshot(path, blocks):
    """A snapshot of a board with so many blocks; the same each time.

    It is written bit by bit: a program that is started from here would be
    counted with all the memory that this one has.
    """
    dice = random.Random(1)
    places = [(f"fw_{dice.choice(COMPONENTS).lower()}.c",
               dice.randrange(20, 3000)) for _ in range(PLACES)]
    each = blocks // len(COMPONENTS)
    with open(path, "w", encoding="ascii") as file:
        file.write("zorva-snapshot 1 bench\n"
                   "==> bench /proc/zorva/zorva.mem.detail\n\n"
                   "----------------\nCurrent Time : 864000\n"
                   "----------------\n\n")
        for number, name in enumerate(COMPONENTS):
            count = each + (blocks % len(COMPONENTS) if number == 0 else 0)
            file.write(f"Component   : {name}\nCurr Usage  : 1\n"
                       f"Max Usage   : 1\nAlloc Count : {count}\n"
                       "Free Count  : 0\n----------------\n")
            for i in range(count):
                source, line = places[dice.randrange(PLACES)]
                file.write(
                    f"  [{864000 - i // 10:010d}] "
                    f"{0x80000000 + (number * each + i) * 128:08x} - "
                    f"{dice.randrange(8, 2000)} bytes ({source}, {line})\n")
            file.write("\n")
        file.flush()
        total = subprocess.run(
            ["sh", "-c", 'tail -n +2 "$1" | cksum', "sh", path],
            check=True, capture_output=True, text=True).stdout.split()
        file.write(f"zorva-snapshot end bench {total[0]} {total[1]}\n")


def measure(arguments):
    """Processor seconds, and the most memory in bytes."""
    with open(os.devnull, "wb") as nowhere:
        with subprocess.Popen(arguments, stdout=nowhere) as child:
            start = time.monotonic()
            _, status, used = os.wait4(child.pid, 0)
            took = time.monotonic() - start
            child.returncode = os.waitstatus_to_exitcode(status)
    if child.returncode != 0:
        sys.exit(f"bench.py: {arguments[0]} has failed")
    return used.ru_utime + used.ru_stime, took, used.ru_maxrss * 1024


def main():
    """Measures, prints, and compares with the limits."""
    if len(sys.argv) not in (2, 3) or sys.argv[1].startswith("-"):
        print(__doc__.strip(), file=sys.stderr)
        return 0 if sys.argv[1:] in (["-h"], ["--help"]) else 2
    zorva = str(pathlib.Path(sys.argv[1]).resolve())
    blocks = int(sys.argv[2]) if len(sys.argv) == 3 else 1000000
    os.sched_setaffinity(0, {min(os.sched_getaffinity(0))})
    with tempfile.TemporaryDirectory() as where:
        path = os.path.join(where, "snapshot")
        write_snapshot(path, blocks)
        size = os.stat(path).st_size
        print(f"{blocks} blocks, {size / 1e6:.1f} MB; best of {TIMES}, "
              "processor time (and by the clock)")
        ours, theirs = [], []
        for _ in range(TIMES):
            ours.append(measure([zorva, "mem", "--by", "site", path]))
            theirs.append(measure(
                ["bash", "-c", "grep -o '([^)]*)' \"$1\" | sort | uniq -c",
                 "bash", path]))
    best, clock, memory = min(ours)
    reference, reference_clock, _ = min(theirs)
    print(f"zorva mem --by site   {best:6.2f} s ({clock:.2f} s), "
          f"{memory / 1e6:.0f} MB, {memory / size:.1f} times the file")
    print(f"grep | sort | uniq -c {reference:6.2f} s ({reference_clock:.2f} s)")
    print(f"zorva takes {best / reference:.3f} of the time")
    if best > reference * MOST_TIME or memory > size * MOST_MEMORY:
        print("bench.py: more than it may", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())

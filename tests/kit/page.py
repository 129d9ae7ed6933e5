#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0
"""Types what a page says, and compares what comes with what it prints.

usage: page.py [--keep] PAGE ZORVA

PAGE is a text whose fenced blocks are

  ```LANGUAGE PATH   a file, written to PATH
  ```console         a session: "$ COMMAND" on this machine, or
                     "board:DIR# COMMAND" on the board after "make shell"; the
                     other lines are what comes

In what comes, "..." stands for anything within a line, and alone on a line for
any lines. ZORVA is a checkout in which the commands are typed. Prints a line
for each block. Exit status: 1 when one of them fails.
"""
import contextlib
import os
import pty
import re
import select
import signal
import subprocess
import sys
import threading
import time
from pathlib import Path

LIMIT = int(os.environ.get("PAGE_TIMEOUT", "900"))
PROMPT = re.compile(r"board:[^\n#]*# ")


class Mismatch(Exception):
    """What came is not what the page prints."""


def blocks(text):
    """The fenced blocks of a text: line, language, path, content."""
    fence = re.compile(r"^```(\S+)(?: (\S+))?\n(.*?)^```$", re.M | re.S)
    for found in fence.finditer(text):
        line = text.count("\n", 0, found.start()) + 1
        yield line, found.group(1), found.group(2), found.group(3)


def commands(session):
    """The commands of a session: (where, command, lines that come)."""
    said = []
    for line in session.splitlines():
        typed = re.match(r"(?:(\$)|board:\S*#) (.*)", line)
        if typed:
            said.append(("host" if typed.group(1) else "board",
                         typed.group(2), []))
        elif said:
            said[-1][2].append(line)
        else:
            raise Mismatch(f"no command before: {line}")
    return said


def matches(expected, line):
    """Whether a line is the expected one."""
    parts = [re.escape(part) for part in expected.split("...")]
    return re.fullmatch(".*".join(parts), line.rstrip()) is not None


def compare(expected, lines):
    """Fails unless the lines are the expected ones, from first to last."""
    # The places in expected that the lines so far can have led to.
    states = {0: None}

    def skip(places):
        todo = list(places)
        for place in todo:
            if place < len(expected) and expected[place] == "...":
                if place + 1 not in todo:
                    todo.append(place + 1)
        return dict.fromkeys(todo)

    states = skip(states)
    farthest = 0
    for line in lines:
        after = []
        for place in states:
            if place == len(expected):
                continue
            if expected[place] == "...":
                after.append(place)
            elif matches(expected[place], line):
                after.append(place + 1)
        farthest = max([farthest, *states])
        if not after:
            wanted = expected[farthest] if farthest < len(expected) \
                else "nothing more"
            raise Mismatch(f"came: {line}\nwanted: {wanted}\n"
                           + "all:\n" + "\n".join(lines))
        states = skip(after)
    if len(expected) not in states:
        raise Mismatch(f"did not come: {expected[max(states)]}\nall:\n"
                       + "\n".join(lines))


class Board:
    """A shell on the board, on a terminal of its own."""

    def __init__(self, command, directory):
        self.pid, self.terminal = pty.fork()
        if self.pid == 0:
            os.chdir(directory)
            os.execvp("bash", ["bash", "-c", command])
        self.end = time.monotonic() + LIMIT
        self.ended = False

    def until_prompt(self):
        """What comes until the board waits for a command, or has ended."""
        got = b""
        while True:
            left = self.end - time.monotonic()
            ready, _, _ = select.select([self.terminal], [], [], max(left, 0))
            if not ready:
                raise Mismatch("the board says nothing more:\n"
                               + got.decode(errors="replace"))
            try:
                more = os.read(self.terminal, 65536)
            except OSError:
                more = b""
            got += more
            text = re.sub(r"\x1b\[[0-9;?]*[a-zA-Z]", "",
                          got.decode(errors="replace").replace("\r", ""))
            if not more:
                self.ended = True
                os.waitpid(self.pid, 0)
                return text
            if PROMPT.search(text.rsplit("\n", 1)[-1]):
                return text[:text.rfind("\n") + 1]

    def type(self, command):
        """The lines that a command gives, without itself."""
        os.write(self.terminal, command.encode() + b"\n")
        lines = self.until_prompt().split("\n")
        # The terminal shows what is typed.
        return [line for line in lines[1:] if line.strip()]


def type_here(command, shell):
    """The lines that a command gives on this machine."""
    # Without the shell nothing of the page goes on.
    limit = threading.Timer(LIMIT, os.killpg, (shell.pid, signal.SIGKILL))
    limit.start()
    lines = []
    try:
        shell.stdin.write(f"{{ {command}\n}} 2>&1 </dev/null; "
                          "printf '\\n@end %s\\n' $?\n")
        shell.stdin.flush()
        for line in shell.stdout:
            if line.startswith("@end "):
                break
            lines.append(line.rstrip("\n"))
        else:
            raise Mismatch(f"no end within {LIMIT} s:\n" + "\n".join(lines))
    except BrokenPipeError:
        raise Mismatch("the shell has ended before") from None
    finally:
        limit.cancel()
    while lines and not lines[-1]:
        lines.pop()
    return lines


def run_session(session, directory, shell):
    """Types the commands of one block."""
    board = None
    for where, command, expected in commands(session):
        print(f"        {command}", flush=True)
        if where == "board":
            if board is None:
                raise Mismatch("nobody has started the board")
            lines = board.type(command)
        elif command.startswith("make shell"):
            board = Board(command, directory)
            lines = board.until_prompt().splitlines()
            if board.ended:
                raise Mismatch("no shell:\n" + "\n".join(lines))
        else:
            lines = type_here(command, shell)
        compare(expected, lines)
    if board and not board.ended:
        raise Mismatch("the shell on the board was not left")


@contextlib.contextmanager
def ended_with_us(shell):
    """What the shell runs, in a session of its own, ends if this is ended."""
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    try:
        yield
    except BaseException:
        os.killpg(shell.pid, signal.SIGKILL)
        raise


def main():
    if len(sys.argv) != 3 or sys.argv[1] in ("-h", "--help"):
        print(__doc__.strip())
        return 0 if "--help" in sys.argv or "-h" in sys.argv else 2
    page, zorva = Path(sys.argv[1]), Path(sys.argv[2])
    failed = passed = 0
    # One shell for all, so that variables stay.
    with subprocess.Popen(["bash"], cwd=zorva, text=True,
                          stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                          start_new_session=True) as shell, \
            ended_with_us(shell):
        for line, language, path, content in blocks(page.read_text()):
            if path:
                (zorva / path).write_text(content)
                print(f"ok      {page.name}:{line}: {path} written")
                continue
            if language != "console":
                continue
            start = time.monotonic()
            try:
                run_session(content, zorva, shell)
                result = "ok    "
                passed += 1
            except Mismatch as why:
                result = "FAILED"
                failed += 1
                print("        " + str(why).replace("\n", "\n        "))
            print(f"{result}  {page.name}:{line}: "
                  f"{time.monotonic() - start:.0f} s", flush=True)
        with contextlib.suppress(BrokenPipeError):
            shell.stdin.close()
    print(f"{page.name}: {passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())

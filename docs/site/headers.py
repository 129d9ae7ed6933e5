# SPDX-License-Identifier: GPL-2.0
"""What the public headers say, as the pages and the manual need it.

The kernel's own scripts/kernel-doc reads the comments of the functions. What
it leaves out is read here: the text at the head of a header, its constants,
and the macros that add the caller's file and line to a function.
"""
import re
import subprocess


class Macro:
    """#define zorva_x(a, b) zorva_x_track(a, b, ZORVA_FILE, __LINE__)"""

    def __init__(self, name, parameters, function):
        self.name = name
        self.parameters = parameters
        self.function = function

    def __str__(self):
        return f"{self.name}({', '.join(self.parameters)})"


class Constant:
    """#define ZORVA_RC_OK 0x00000000u, and the comment above it."""

    def __init__(self, name, value, comment):
        self.name = name
        self.value = value
        self.comment = comment


class Header:
    """One public header."""

    def __init__(self, path):
        self.path = path
        self.name = path.name
        self.text = path.read_text(encoding="utf-8")
        joined = self.text.replace("\\\n", " ")
        self.intro = self._intro()
        self.macros = self._macros(joined)
        self.constants = self._constants(joined)
        self.functions = re.findall(r"^ \* (zorva_\w+)\(\) - ", self.text,
                                    re.MULTILINE)

    def _intro(self):
        """The second comment of the file; the first is the licence."""
        comments = re.findall(r"/\*(.*?)\*/", self.text, re.DOTALL)
        return plain(comments[1])

    @staticmethod
    def _macros(text):
        pattern = r"^#define (zorva_\w+)\(([^)]*)\)\s+(.*)$"
        macros = []
        for name, parameters, body in re.findall(pattern, text, re.MULTILINE):
            called = re.match(r"\(*(?:\([^)]*\)\s*)?(zorva_\w+)\s*\(", body)
            if called:
                macros.append(Macro(name,
                                    [p.strip() for p in parameters.split(",")],
                                    called.group(1)))
        return macros

    @staticmethod
    def _constants(text):
        pattern = r"(?:/\*((?:[^*]|\*(?!/))*)\*/\n)?" \
            r"^#define (ZORVA_\w+)[ \t]+(\S.*)$"
        constants = {}
        for comment, name, value in re.findall(pattern, text, re.MULTILINE):
            # Of a name with two values the first is the usual one.
            if not name.endswith("_H") and name not in constants:
                constants[name] = Constant(name, " ".join(value.split()),
                                           plain(comment))
        return list(constants.values())

    def macros_of(self, function):
        """The macros that call a function."""
        return [m for m in self.macros if m.function == function]


def plain(comment):
    """A comment's text without its stars, paragraphs kept."""
    lines = [re.sub(r"^\s*\*? ?", "", line) for line in comment.split("\n")]
    return "\n".join(lines).strip()


def kernel_doc(script, header, form):
    """The functions of a header as kernel-doc prints them: rst or man."""
    done = subprocess.run(["perl", str(script), f"-{form}", str(header.path)],
                          check=True, capture_output=True, text=True)
    if done.stderr:
        raise SystemExit(f"{header.path}: kernel-doc says:\n{done.stderr}")
    return done.stdout


def read_headers(directory):
    """All public headers, in the order in which zorva.h includes them."""
    index = (directory / "zorva.h").read_text(encoding="utf-8")
    return [Header(directory / name)
            for name in re.findall(r'^#include "(\w+\.h)"', index,
                                   re.MULTILINE)]

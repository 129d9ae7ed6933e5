# SPDX-License-Identifier: GPL-2.0
"""The changes that can be made to the module's sources, one at a time.

The sources are read as a sequence of tokens, no more: what a change makes of
them need not compile. .clang-format is relied on: an operator with a blank on
both sides has two operands. No change moves a line.
"""

import collections
import dataclasses
import hashlib
import re

KINDS = ("condition", "operator", "constant", "statement", "lock", "text",
         "owner", "result", "report")

TOKEN = re.compile(r"""
    (?P<comment>  /\*.*?\*/ | //[^\n]* )
  | (?P<directive> ^[ \t]*\#(?:[^\n]*\\\n)*[^\n]* )
  | (?P<string>   "(?:\\.|[^"\\\n])*" )
  | (?P<char>     '(?:\\.|[^'\\\n])+' )
  | (?P<number>   \b(?:0[xX][0-9A-Fa-f]+|[0-9]+)[uUlL]*\b )
  | (?P<name>     [A-Za-z_]\w* )
  | (?P<operator> <<= | >>= | \.\.\. | ::\* | -> | \+\+ | -- | && | \|\| | ::
                | [-+*/%&|^=!<>]= | << | >> | \[\[ | \]\]
                | [-+*/%&|^=!<>~?:;,.(){}\[\]] )
""", re.VERBOSE | re.DOTALL | re.MULTILINE)

# What each operator between two operands becomes.
BINARY = {
    "==": ("!=",), "!=": ("==",),
    "<": ("<=", ">="), "<=": ("<", ">"), ">": (">=", "<="), ">=": (">", "<"),
    "&&": ("||",), "||": ("&&",),
    "+": ("-",), "-": ("+",), "*": ("+",), "/": ("*",), "%": ("/",),
    "&": ("|",), "|": ("&",), "^": ("|",), "<<": (">>",), ">>": ("<<",),
    "+=": ("-=", "="), "-=": ("+=", "="), "*=": ("=",), "/=": ("=",),
    "|=": ("&=", "="), "&=": ("|=", "="),
}

# Names that stand for a value, and another one that could be meant.
CONSTANTS = {
    "true": "false", "false": "true",
    "SIGKILL": "SIGTERM", "SIGTERM": "SIGKILL",
    "GFP_ATOMIC": "GFP_KERNEL", "GFP_KERNEL": "GFP_ATOMIC",
    "action_take": "action_give", "action_give": "action_take",
    "ZORVA_LEVEL_ERROR": "ZORVA_LEVEL_INFO",
    "ZORVA_LEVEL_INFO": "ZORVA_LEVEL_ERROR",
    "ZORVA_WAIT_FOREVER": "ZORVA_NO_WAIT",
    "ZORVA_NO_WAIT": "ZORVA_WAIT_FOREVER",
    "ZORVA_ERROR": "ZORVA_INFO", "ZORVA_INFO": "ZORVA_ERROR",
    "HRTIMER_NORESTART": "HRTIMER_RESTART",
    "TK_OFFS_BOOT": "TK_OFFS_REAL",
    "HRTIMER_MODE_REL": "HRTIMER_MODE_ABS",
}

RESULTS = ("ZORVA_RC_OK", "ZORVA_RC_FAIL", "ZORVA_RC_BAD_VALUE")

# What the sources call the component that they work for, and the module's.
SELF = "ZORVA_COMPONENT_SELF"
OWNER = re.compile(r"\bcompId\b|\b\w+(?:->|\.)(?:component|compId)\b|" + SELF)

SPIN_LOCKS = ("_mallocMemLck", "_zorvaLockDbgLck", "_zorvaThreadLock",
              "_zorvaTimerLock", "_waitListLck")

# A constant that is defined in one line.
CONSTANT = re.compile(r"(?:static |inline )*constexpr [\w ]+ (\w+) = [^{]*;")

# What a declaration starts with: without it nothing would compile.
DECLARATION = re.compile(
    r"(?:\[\[|(?:const|constexpr|constinit|auto|static|struct|enum|using|"
    r"typename|typedef|template|extern|namespace|static_assert|return|inline|"
    r"class|case|default|public|private|else|explicit|friend)\b|"
    r"[A-Za-z_][\w:<>]*(?: const)?(?: [*&]*| ?[*&]+)[A-Za-z_]\w*"
    r"(?:\[[^\]]*\])?(?: =|;|\(|\{|,))")


@dataclasses.dataclass(frozen=True)
class Token:
    kind: str
    text: str
    start: int
    end: int


@dataclasses.dataclass(frozen=True)
class Change:
    """One change: what lies between two offsets of a file becomes a text."""
    file: str
    function: str
    kind: str
    number: int     # of the line, from 1
    which: str      # of equal lines in a function, the second has " (2)"
    line: str       # the text of the line
    becomes: str    # what the change makes of it
    start: int
    end: int
    text: str

    @property
    def key(self):
        """What names the change wherever its line goes."""
        return (self.file, self.function, f"line{self.which}:", self.line,
                self.becomes)

    def rank(self, seed):
        """The place of the change among all, drawn by the seed."""
        words = "\0".join((str(seed), *self.key))
        return hashlib.sha256(words.encode()).digest()

    def apply(self, source):
        return source[:self.start] + self.text + source[self.end:]


class Source:
    """A file of the module, and the changes that can be made to it.

    For each line of a function, function_of has its name and span_of all of
    its lines.
    """

    def __init__(self, file, text):
        self.file = file
        self.text = text
        self.tokens = [Token(m.lastgroup, m.group(), m.start(), m.end())
                       for m in TOKEN.finditer(text)
                       if m.lastgroup not in ("comment", "directive")]
        self.lines = text.splitlines()
        self.starts = [0]
        for line in text.splitlines(keepends=True):
            self.starts.append(self.starts[-1] + len(line))
        self.match_brackets()
        self.name_functions()
        self.number_lines()
        self.found = {}

    def match_brackets(self):
        """For each bracket the other one of the pair."""
        self.partner = {}
        opened = []
        for i, token in enumerate(self.tokens):
            if token.text in ("(", "[", "{", "[["):
                opened.append(i)
            elif token.text in (")", "]", "}", "]]") and opened:
                j = opened.pop()
                self.partner[i], self.partner[j] = j, i

    def name_functions(self):
        """Where the functions are: (first token, last token, name)."""
        self.functions = []
        i = head = 0
        while i < len(self.tokens):
            text = self.tokens[i].text
            if text == "{" and self.tokens[i - 1].text == "=":
                # An initialiser, perhaps a parameter's.
                i = self.partner[i]
            elif text == "{":
                begin = self.behind_template(head)
                words = [t.text for t in self.tokens[begin:i]]
                if "(" in words and "=" not in words[:words.index("(")]:
                    self.functions.append(
                        (head, self.partner[i], self.head_name(head, i)))
                    i = self.partner[i]
                elif "=" in words:
                    i = self.partner[i]
                head = i + 1
            elif text in (";", "}"):
                head = i + 1
            i += 1

    def behind_template(self, head):
        """Where a declaration goes on after the parameters of its template."""
        depth = 0
        if self.tokens[head].text != "template":
            return head
        for i in range(head + 1, len(self.tokens)):
            depth += {"<": 1, ">": -1}.get(self.tokens[i].text, 0)
            if depth == 0:
                return i + 1
        return head

    def head_name(self, head, end):
        """The name before the parameters, which the body follows."""
        for i in range(head + 1, end):
            if self.tokens[i].text == "(" and \
                    self.tokens[self.partner[i] + 1].text in ("{", ":",
                                                              "const"):
                return self.tokens[i - 1].text
        return "-"

    def number_of(self, offset):
        low, high = 0, len(self.starts) - 1
        while high - low > 1:
            middle = (low + high) // 2
            if self.starts[middle] <= offset:
                low = middle
            else:
                high = middle
        return low + 1

    def number_lines(self):
        """For each line its function, and which of equal ones it is."""
        self.function_of = {}
        self.span_of = {}
        self.which_of = {}
        seen = collections.Counter()
        for head, last, name in self.functions:
            span = range(self.number_of(self.tokens[head].start),
                         self.number_of(self.tokens[last].start) + 1)
            for number in span:
                self.function_of[number] = name
                self.span_of[number] = span
        for number, line in enumerate(self.lines, 1):
            key = (self.function_of.get(number, "-"), line.strip())
            seen[key] += 1
            self.which_of[number] = f" ({seen[key]})" if seen[key] > 1 else ""

    def constant_at(self, number):
        """The constant that a line outside of functions defines, or None."""
        match = CONSTANT.match(self.lines[number - 1])
        return match and match[1]

    def uses_of(self, name):
        """The lines that name something, but for that of its definition."""
        for token in self.tokens:
            if token.text == name and token.kind == "name":
                number = self.number_of(token.start)
                if self.constant_at(number) != name:
                    yield number

    def add(self, kind, start, end, text):
        """Notes the change, unless it is another one's."""
        old = self.text[start:end]
        text += "\n" * (old.count("\n") - text.count("\n"))
        number = self.number_of(start)
        first, last = self.starts[number - 1], self.starts[number]
        tail = text + self.text[end:last] if end <= last else text
        becomes = (self.text[first:start] + tail).split("\n")[0].strip()
        change = Change(self.file, self.function_of.get(number, "-"), kind,
                        number, self.which_of[number],
                        self.lines[number - 1].strip(),
                        becomes or "(nothing)", start, end, text)
        self.found.setdefault(change.key, change)

    def replace(self, kind, token, text):
        self.add(kind, token.start, token.end, text)

    def spaced(self, token):
        return (self.text[token.start - 1].isspace() and
                self.text[token.end].isspace())

    def changes(self):
        asserted = self.asserted()
        for i, token in enumerate(self.tokens):
            if i in asserted:
                continue
            if token.kind == "operator":
                self.change_operator(i, token)
            elif token.kind == "number":
                self.change_number(token)
            elif token.kind == "char":
                self.replace("constant", token,
                             "'B'" if token.text == "'A'" else "'A'")
            elif token.kind == "string" and \
                    self.tokens[i - 1].text != "extern":
                self.change_string(token)
            elif token.kind == "name":
                self.change_name(i, token)
        for head, last, _ in self.functions:
            self.change_statements(head, last)
        return sorted(self.found.values(),
                      key=lambda c: (c.start, c.kind, c.text))

    def asserted(self):
        """The tokens of assertions that are made while it is compiled.

        Their breaking stops every build. Only those of the tables of
        components have tests: these compile tables of their own.
        """
        inside = set()
        if "COMPONENT_LIST" in self.text:
            return inside
        for i, token in enumerate(self.tokens):
            if token.text == "static_assert":
                inside.update(range(i, self.partner[i + 1] + 1))
        return inside

    def change_operator(self, i, token):
        if token.text in BINARY and self.spaced(token):
            for other in BINARY[token.text]:
                self.replace("operator", token, other)
        elif token.text in ("++", "--"):
            self.replace("operator", token,
                         "--" if token.text == "++" else "++")
        elif token.text in ("!", "~"):
            self.replace("operator", token, "")
        elif token.text == "-" and self.tokens[i + 1].kind in ("number",
                                                               "name"):
            self.replace("operator", token, "")
        elif token.text == "?":
            self.swap_choices(i)

    def swap_choices(self, i):
        """Makes "a ? b : c" choose c where it chose b."""
        depth = 0
        for j in range(i + 1, len(self.tokens)):
            text = self.tokens[j].text
            if text in ("(", "["):
                depth += 1
            elif text in (")", "]"):
                depth -= 1
            if depth < 0 or (depth == 0 and text in (";", ",")):
                end = j
                break
            if depth == 0 and text == ":":
                colon = j
        else:
            return
        one = self.text[self.tokens[i].end:self.tokens[colon].start].strip()
        two = self.text[self.tokens[colon].end:
                        self.tokens[end].start].strip()
        self.add("condition", self.tokens[i].start, self.tokens[end].start,
                 f"? {two} : {one}")

    def change_number(self, token):
        digits = token.text.rstrip("uUlL")
        suffix = token.text[len(digits):]
        hexadecimal = digits[:2] in ("0x", "0X")
        octal = not hexadecimal and digits != "0" and digits[0] == "0"
        value = int(digits, 16 if hexadecimal else 8 if octal else 10)
        form = "0x{:X}" if hexadecimal else "0{:o}" if octal else "{}"
        for other in (value + 1, value - 1):
            if other >= 0:
                self.replace("constant", token, form.format(other) + suffix)

    def change_string(self, token):
        inner = token.text[1:-1]
        if not inner:
            return
        pieces = re.findall(r"\\x[0-9a-f]{2}|\\[0-7]{1,3}|\\.|"
                            r"%[-.0-9]*[a-z]+|.", inner)
        letters = [p for p, piece in enumerate(pieces) if piece.isalnum()]
        for p in letters[:1] + letters[-1:]:
            other = pieces[p].swapcase() if pieces[p].isalpha() else "7"
            self.replace("text", token, '"' + "".join(
                pieces[:p] + [other] + pieces[p + 1:]) + '"')
        self.replace("text", token, '"' + "".join(pieces[:-1]) + '"')
        for p, piece in enumerate(pieces):
            if re.fullmatch(r"%[-.0-9]*[ud]", piece):
                other = piece[:-1] + ("d" if piece[-1] == "u" else "u")
                self.replace("text", token, '"' + "".join(
                    pieces[:p] + [other] + pieces[p + 1:]) + '"')

    def change_name(self, i, token):
        if token.text in CONSTANTS:
            self.replace("constant", token, CONSTANTS[token.text])
        elif token.text.startswith("ZORVA_RC_"):
            for other in RESULTS:
                if other != token.text:
                    self.replace("result", token, other)
                    break
        elif token.text in ("if", "while") and \
                self.tokens[i + 1].text == "(":
            self.change_condition(i + 1, self.partner[i + 1])
        elif token.text == "for":
            self.change_for(i + 1, self.partner[i + 1])
        elif token.text.startswith("ZORVA_CHECK"):
            self.change_check(i)
        elif token.text.endswith("_guard") and \
                self.tokens[i - 1].text == "const":
            if self.tokens[i + 2].text == "(":
                self.change_lock(i)
            elif self.tokens[i + 2].text == ";":
                self.add("lock", self.tokens[i - 1].start,
                         self.tokens[i + 2].end, "")
        self.change_owner(i, token)

    def change_condition(self, opening, closing):
        start, end = self.tokens[opening].end, self.tokens[closing].start
        inner = self.text[start:end]
        self.add("condition", start, end, f"!({inner})")
        self.add("condition", start, end, "true")
        self.add("condition", start, end, "false")

    def change_for(self, opening, closing):
        """Ends a loop before its first run."""
        ends = [j for j in range(opening, closing)
                if self.tokens[j].text == ";"]
        if len(ends) == 2 and ends[0] + 1 < ends[1]:
            self.add("condition", self.tokens[ends[0]].end,
                     self.tokens[ends[1]].start, " false")

    def change_check(self, i):
        """Lets an argument pass, whatever it is."""
        opening = i + 1
        if self.tokens[opening].text != "(":
            return
        start, depth = opening + 1, 0
        if self.tokens[i].text == "ZORVA_CHECK_IN":
            while self.tokens[start].text != ",":
                start += 1
            start += 1
        for j in range(start, self.partner[opening]):
            text = self.tokens[j].text
            depth += (text in ("(", "[")) - (text in (")", "]"))
            if depth == 0 and text == ",":
                self.add("condition", self.tokens[start].start,
                         self.tokens[j].start, "true")
                return

    def change_lock(self, i):
        """Leaves a lock out, or takes another."""
        closing = self.partner[i + 2]
        start = self.tokens[i - 1].start
        self.add("lock", start, self.tokens[closing + 1].end, "")
        what = self.tokens[i + 3]
        if closing == i + 4 and what.text in SPIN_LOCKS:
            for other in SPIN_LOCKS:
                if other != what.text:
                    self.replace("lock", what, other)
        elif self.tokens[closing - 1].text == "lock" and \
                what.text in ("_zorvaMutexDbg", "_zorvaSemDbg"):
            self.replace("lock", what, "_zorvaSemDbg"
                         if what.text == "_zorvaMutexDbg"
                         else "_zorvaMutexDbg")

    def change_owner(self, i, token):
        match = OWNER.match(self.text, token.start)
        before, after = self.tokens[i - 1].text, self.tokens[i + 1]
        if not match or self.number_of(token.start) not in self.function_of:
            return
        if before in ("u32", "->", ".") or match.end() < token.end:
            return
        next_text = self.text[match.end():match.end() + 1]
        if before not in ("(", ",", "=", "return", "[") or \
                next_text not in (",", ")", ";", "]"):
            return
        if match.group() == SELF:
            self.add("owner", match.start(), match.end(), "compId")
            self.add("owner", match.start(), match.end(), f"{SELF} + 1")
        else:
            self.add("owner", match.start(), match.end(), SELF)

    def change_statements(self, head, last):
        """Drops statements, and plants reports before a return."""
        i = head
        while self.tokens[i].text != "{" or self.partner[i] != last:
            i += 1
        first = i + 1
        i = first
        while i < last:
            text = self.tokens[i].text
            if text in ("if", "while", "for", "switch") and \
                    self.tokens[i + 1].text == "(":
                first = i = self.partner[i + 1] + 1
            elif text in ("else", "do"):
                first = i = i + 1
            elif text in ("{", "}"):
                first = i = i + 1
            elif text in ("(", "["):
                i = self.partner[i] + 1
            elif text == ";":
                self.change_statement(first, i)
                first = i = i + 1
            else:
                # An initialiser is part of its statement.
                i += 1
                if self.tokens[i].text == "{" and \
                        self.tokens[i - 1].text in ("=", "]"):
                    i = self.partner[i] + 1

    def change_statement(self, first, end):
        if first >= end:
            return
        start = self.tokens[first].start
        whole = self.text[start:self.tokens[end].end]
        if self.tokens[first].text == "return":
            if first + 1 == end:
                self.add("statement", start, self.tokens[end].start, "")
            if "ZORVA_CHECK(" in self.text and "\n" not in whole:
                self.add("report", start, self.tokens[end].end,
                         f'{{ ZORVA_ERROR("planted"); {whole} }}')
        elif not DECLARATION.match(whole) and \
                not whole.startswith("ZORVA_CHECK"):
            self.add("statement", start, self.tokens[end].start, "")

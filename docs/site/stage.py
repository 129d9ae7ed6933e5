# SPDX-License-Identifier: GPL-2.0
"""Lays out what Sphinx makes the site of.

    stage.py ROOT KERNEL_DOC STAGE

The texts of the repository are copied as they are, but for their links: one
to a file that is no page of its own leads to a page that shows the file. The
public headers become a page each. It writes nothing but below STAGE.
"""
import os
import pathlib
import re
import shutil
import subprocess
import sys

from headers import kernel_doc, read_headers

LANGUAGES = {".c": "c", ".h": "c", ".cpp": "cpp", ".def": "c", ".sh": "bash",
             ".py": "python", ".json": "json", ".yml": "yaml", ".mk": "make",
             "Kbuild": "make", "Makefile": "make"}
IMAGES = {".svg", ".png"}

FRONT = """
```{toctree}
:hidden:
:caption: Read

%s
```

```{toctree}
:hidden:
:caption: Reference

reference/index
genindex
```
"""


def underlined(text, mark="="):
    """A heading."""
    return f"{text}\n{mark * len(text)}\n"


class Stage:
    """The directory that is laid out, and the files it shows."""

    def __init__(self, root, where):
        self.root = root
        self.where = where
        self.shown = set()

    def write(self, name, text):
        """A file of the site's source, only if it has changed."""
        path = self.where / name
        path.parent.mkdir(parents=True, exist_ok=True)
        if not path.exists() or path.read_text(encoding="utf-8") != text:
            path.write_text(text, encoding="utf-8")

    def texts(self):
        """The Markdown texts: those at the top, and those under docs/."""
        names = ["README.md", "CONTRIBUTING.md", "CHANGELOG.md"]
        names += sorted(f"docs/{p.name}" for p in
                        (self.root / "docs").glob("*.md"))
        return names

    def link(self, text, name, target):
        """One link of a text: kept, or led to the page that shows a file."""
        path, mark, anchor = target.partition("#")
        if "://" in target or not path:
            return f"[{text}]({target})"
        here = (self.root / name).parent
        file = (here / path).resolve()
        relative = file.relative_to(self.root)
        if str(relative) in self.texts() or file.suffix in IMAGES:
            return f"[{text}]({target})"
        self.shown.add(relative)
        up = os.path.relpath(f"source/{relative}.rst",
                             pathlib.Path(name).parent)
        return f"[{text}]({up})"

    def copy_texts(self):
        """All texts, and the pictures that they show."""
        pages = [n for n in self.texts() if n != "README.md"]
        first = ["docs/first-module.md", "docs/architecture.md"]
        order = [n for n in first if n in pages]
        order += [n for n in pages if n not in order]
        for name in self.texts():
            text = (self.root / name).read_text(encoding="utf-8")
            # What is code stays as it is: every other part.
            parts = re.split(r"(^```.*?^```$|^ {4}.*?$|`[^`\n]*`(?!\]))", text,
                             flags=re.MULTILINE | re.DOTALL)
            for i in range(0, len(parts), 2):
                parts[i] = re.sub(
                    r"(?<!!)\[([^\]]*)\]\(([^)\s]+)\)",
                    lambda m, n=name: self.link(m.group(1), n, m.group(2)),
                    parts[i])
            text = "".join(parts)
            for picture in re.findall(r"!\[[^\]]*\]\(([^)\s]+)\)", text):
                source = (self.root / name).parent / picture
                target = (self.where / name).parent / picture
                target.parent.mkdir(parents=True, exist_ok=True)
                shutil.copyfile(source, target)
            if name == "README.md":
                name = "index.md"
                text += FRONT % "\n".join(n.removesuffix(".md") for n in order)
            self.write(name, text)

    def below(self, relative):
        """The files below a directory: where git is, those that it knows."""
        if (self.root / ".git").exists():
            return subprocess.run(
                ["git", "-C", str(self.root), "ls-files", "-co",
                 "--exclude-standard", "--", str(relative)],
                check=True, capture_output=True, text=True).stdout.split()
        return sorted(str(p.relative_to(self.root))
                      for p in (self.root / relative).rglob("*")
                      if p.is_file())

    def show(self, relative):
        """The page of one file or directory that a text leads to."""
        title = underlined(str(relative))
        path = self.root / relative
        page = f"source/{relative}.rst"
        if path.is_dir():
            rows = "".join(f"* ``{n}``\n" for n in self.below(relative))
            self.write(page, f":orphan:\n\n{title}\n{rows}")
            return
        language = LANGUAGES.get(path.suffix) or LANGUAGES.get(path.name,
                                                               "none")
        copy = f"source/files/{relative}"
        target = self.where / copy
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(path, target)
        self.write(page, f":orphan:\n\n{title}\n"
                   f".. literalinclude:: /{copy}\n"
                   f"   :language: {language}\n   :linenos:\n")

    def header_page(self, header, script, constants):
        """A public header: its text, its constants, and its functions."""
        out = [underlined(header.name), header.intro, ""]
        out += ["::", "", "    #include <zorva/zorva.h>", ""]
        for constant in header.constants:
            out += [f".. c:macro:: {constant.name}", "",
                    f"   ``{constant.value}``", ""]
            out += [f"   {line}" for line in constant.comment.split("\n")]
            out += [""]
        text = kernel_doc(script, header, "rst") if header.functions else ""
        text = re.sub(r"``(ZORVA_\w+)``",
                      lambda m: f":c:macro:`{m.group(1)}`"
                      if m.group(1) in constants else m.group(0), text)
        for part in re.split(r"(?=^\.\. c:function::)", text,
                             flags=re.MULTILINE):
            found = re.match(r"\.\. c:function:: [^(]*?(\w+) ?\(", part)
            if not found:
                if part.strip():
                    out += [part]
                continue
            macros = header.macros_of(found.group(1))
            title = macros[0].name if macros else found.group(1)
            out += [underlined(title, "-")]
            for macro in macros:
                out += [f".. c:macro:: {macro}", "",
                        "   What callers write: it adds their file and line.",
                        ""]
            out += [part]
        self.write(f"reference/{header.name.removesuffix('.h')}.rst",
                   "\n".join(out))

    def reference(self, include, script):
        """The pages of all headers, and their list."""
        headers = read_headers(include)
        constants = {c.name for h in headers for c in h.constants}
        for header in headers:
            self.header_page(header, script, constants)
        rows = "".join(f"   {h.name.removesuffix('.h')}\n" for h in headers)
        every = []
        for header in headers:
            summary = header.intro.split("\n\n")[0].replace("\n", " ")
            name = header.name.removesuffix(".h")
            every += [f":doc:`{header.name} <{name}>`", f"   {summary}", ""]
        self.write("reference/index.rst",
                   underlined("The public headers") +
                   "\nFind a function, a macro or a result code, with its "
                   "units, its contexts and\nwhat holds when it returns. "
                   "The same texts are manual pages of section 9.\n\n"
                   ".. toctree::\n   :hidden:\n\n" + rows + "\n" +
                   "\n".join(every))


def main():
    """Runs the steps."""
    root, script, where = (pathlib.Path(a).resolve() for a in sys.argv[1:4])
    stage = Stage(root, where)
    if where.exists():
        shutil.rmtree(where)
    stage.copy_texts()
    for relative in sorted(stage.shown):
        stage.show(relative)
    stage.reference(root / "plat/linux/include/zorva", script)
    shutil.copyfile(root / "VERSION", where / "VERSION")
    shutil.copyfile(root / "docs/site/conf.py", where / "conf.py")


if __name__ == "__main__":
    main()

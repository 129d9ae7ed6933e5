# SPDX-License-Identifier: GPL-2.0
"""Makes the manual pages of section 9 from the public headers.

    man.py KERNEL_DOC INCLUDE VERSION DATE OUT

A function is found under its own name and under that of the macro which adds
the caller's file and line: the macro's page holds both, the function's leads
there.
"""
import pathlib
import re
import sys

from headers import kernel_doc, read_headers


def roff(text):
    """Text that roff shows as it is."""
    text = text.replace("\\", "\\e").replace("-", "\\-")
    return re.sub(r"^([.'])", r"\\&\1", text, flags=re.MULTILINE)


def synopsis(body, macros):
    """The header to include, and the macro's form before the function's."""
    lines = [".B #include <zorva/zorva.h>", ".PP"]
    for macro in macros:
        lines += [f".BI \"{macro.name}(\" \"{', '.join(macro.parameters)}\" "
                  "\");\"", ".PP"]
    return body.replace(".SH SYNOPSIS\n",
                        ".SH SYNOPSIS\n" + "\n".join(lines) + "\n", 1)


def pages(header, script, version, date):
    """Pairs of a page's name and its text."""
    text = kernel_doc(script, header, "man")
    documented = re.findall(r'^\.TH "(\w+)"', text, re.MULTILINE)
    names = {f: (header.macros_of(f) or [None])[0] for f in documented}
    shown = {f: m.name if m else f for f, m in names.items()}
    for part in re.split(r"^(?=\.TH )", text, flags=re.MULTILINE)[1:]:
        function = re.match(r'\.TH "(\w+)"', part).group(1)
        page = shown[function]
        head = f'.TH {page} 9 "{date}" "zorva {version}" "zorva"'
        body = re.sub(r"\A\.TH .*$", head, part, count=1, flags=re.MULTILINE)
        body = "\n".join(line.rstrip() for line in body.split("\n"))
        macros = header.macros_of(function)
        if macros:
            body = body.replace(f".SH NAME\n{function} \\-",
                                f".SH NAME\n{page}, {function} \\-", 1)
        body = synopsis(body, macros).strip() + "\n"
        body += '.SH "THE HEADER"\n' + roff(header.intro).replace(
            "\n\n", "\n.PP\n") + "\n"
        others = sorted(n for f, n in shown.items() if f != function)
        if others:
            body += '.SH "SEE ALSO"\n' + ",\n".join(
                f".BR {n} (9)" for n in others).replace(
                    ",\n.BR", " ,\n.BR") + "\n"
        yield page, body
        for name in {function, *(m.name for m in macros)} - {page}:
            yield name, f".so man9/{page}.9\n"


def main():
    """Runs the steps."""
    script, include = (pathlib.Path(a) for a in sys.argv[1:3])
    version, date = sys.argv[3:5]
    out = pathlib.Path(sys.argv[5])
    out.mkdir(parents=True, exist_ok=True)
    for old in out.glob("*.9"):
        old.unlink()
    for header in read_headers(include):
        if not header.functions:
            continue
        for name, text in pages(header, script, version, date):
            (out / f"{name}.9").write_text(text, encoding="utf-8")


if __name__ == "__main__":
    main()

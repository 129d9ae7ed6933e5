#!/usr/bin/env python3
# SPDX-License-Identifier: GPL-2.0
"""Looks at the page of zorva report as its reader does, in a real browser.

usage: run.py ZORVA SAMPLES PICTURES [COUNTS | --update]

  ZORVA     the inspector
  SAMPLES   tools/zorva/samples
  PICTURES  a directory: it gets what the browser has shown
  COUNTS    a file for "PASSED FAILED", the numbers of checks
  --update  checks nothing, and makes the pictures of docs/ anew
"""
import pathlib
import subprocess
import sys
import tempfile
import traceback

HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE), str(HERE.parent.parent / "tools/zorva")]

import bench  # noqa: E402
import browser  # noqa: E402

# What a page of a snapshot with so many blocks may take.
BLOCKS = 100000
MOST_SECONDS = 2
MOST_BYTES = 5 * 1000 * 1000

# The least that two colours of a text differ, by the rules for readable pages.
CONTRAST = 4.5

HOSTILE = ("<script>alert(1)</script>"
           "<img src=http://127.0.0.1:9/y onerror=alert(1)>")

CONTRASTS = """
(() => {
	const light = (text) => {
		const [r, g, b] = text.match(/[0-9.]+/g).slice(0, 3).map((x) => {
			x /= 255;
			return x <= 0.03928 ? x / 12.92
					    : ((x + 0.055) / 1.055) ** 2.4;
		});
		return 0.2126 * r + 0.7152 * g + 0.0722 * b;
	};
	const paper = (one) => {
		for (; one; one = one.parentElement) {
			const c = getComputedStyle(one).backgroundColor;
			if (c !== "rgba(0, 0, 0, 0)")
				return c;
		}
		return "rgb(255, 255, 255)";
	};
	let least = 99, where = "";
	for (const one of document.querySelectorAll(
		"h1, h2, h3, p, li, td, th, th button, dt, dd, caption, a, pre, code")) {
		if (!one.innerText || one.className === "skip")
			continue;
		const a = light(getComputedStyle(one).color);
		const b = light(paper(one));
		const c = (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05);
		if (c < least) {
			least = c;
			where = one.tagName + ": " + one.innerText;
		}
	}
	return [least, where];
})()
"""

# What sticks out of the page, but for what can be scrolled by itself.
TOO_WIDE = """
[...document.querySelectorAll("body *")].filter((one) =>
	!one.closest(".scroll, .skip, pre, svg") &&
	one.getBoundingClientRect().right > innerWidth + 0.5)
	.map((one) => one.outerHTML.slice(0, 80))
"""


class Checks:
    """The checks; each is a method that begins with check_."""

    def __init__(self, zorva, samples, pictures, work):
        self.zorva = zorva
        self.work = pathlib.Path(work)
        self.pictures = pathlib.Path(pictures)
        self.pictures.mkdir(parents=True, exist_ok=True)
        samples = pathlib.Path(samples)
        self.demo = self.page("demo", samples / "demo-console.log")
        self.trouble = self.page("trouble", samples / "trouble-first.txt",
                                 samples / "trouble-later.txt")
        self.shown = None

    def page(self, name, *sources):
        """Makes a page."""
        path = self.work / (name + ".html")
        subprocess.run([self.zorva, "report", "--html", path, *sources],
                       check=True, stderr=subprocess.DEVNULL)
        return path

    def open(self, path):
        """Opens a page, which must ask for nothing and complain of nothing."""
        took = self.shown.open(path)
        assert self.shown.requests == [path.resolve().as_uri()], \
            self.shown.requests
        assert not self.shown.complaints, self.shown.complaints
        return took

    def text(self, where="body"):
        """What can be read."""
        return self.shown.ask(
            f"document.querySelector({where!r}).innerText")

    def check_it_shows_what_is_wrong(self):
        """The four faults, first of all."""
        self.open(self.trouble)
        text = self.text()
        for wanted in ("4 things look wrong", "DEADLOCK: ", "wants mutex 'lag'",
                       "DAMAGED BLOCK of VLAN, allocated at fw_fault.c:",
                       "FULL QUEUE 'snmp-trap' of SNMP: 4 of 4 messages",
                       "GROWS: RMON at fw_fault.c:"):
            assert wanted in text, wanted
        assert text.index("things look wrong") < text.index("Memory")
        self.shown.picture(self.pictures / "trouble.png")

    def check_its_pictures_are_there(self):
        """Each picture has an area, and the circle is closed."""
        self.open(self.trouble)
        for one in ("svg.map", "svg.chart", "svg.waits", "td.bar svg"):
            high = self.shown.ask(
                f"document.querySelector({one!r})"
                ".getBoundingClientRect().height")
            assert high > 5, (one, high)
        stuck = self.shown.ask(
            "document.querySelectorAll('svg.waits .box.stuck').length")
        assert stuck == 4, stuck
        back = self.shown.ask(
            "document.querySelectorAll('svg.waits path.arrow.stuck').length")
        assert back == 4, back

    def check_all_is_well(self):
        """A page of a switch on which all is well says so."""
        self.open(self.demo)
        assert "Nothing looks wrong." in self.text(".verdict")
        self.shown.picture(self.pictures / "demo.png")

    def check_tables_sort(self):
        """By a click, and back by another."""
        self.open(self.trouble)
        column = ("[...document.querySelectorAll('#memory table:last-of-type "
                  "th')]")
        rows = ("[...document.querySelectorAll('#memory .scroll')].at(-1)"
                ".querySelectorAll('tbody tr')")
        used = (f"[...{rows}].map((row) => Number(row.cells[3].dataset.v))")
        button = ("[...document.querySelectorAll('#memory .scroll')].at(-1)"
                  ".querySelectorAll('th button')[2]")
        assert self.shown.ask(column + ".length") > 0
        for direction, up in (("descending", False), ("ascending", True)):
            self.shown.ask(button + ".click()")
            values = self.shown.ask(used)
            assert values == sorted(values, reverse=not up), values
            assert len(set(values)) > 3
            assert self.shown.ask(
                button + ".parentNode.getAttribute('aria-sort')") == direction

    def check_tables_filter(self):
        """What is typed stays, and how many rows there are is said."""
        self.open(self.trouble)
        self.shown.ask("document.querySelector('#threads input').focus()")
        self.shown.call("Input.insertText", text="LAG")
        shown = self.shown.ask(
            "[...document.querySelectorAll('#threads tbody tr')]"
            ".filter((row) => row.checkVisibility())"
            ".map((row) => row.innerText)")
        assert len(shown) == 1 and "lag-update" in shown[0], shown
        assert self.shown.ask(
            "document.querySelector('#threads output').value") \
            .startswith("1 of ")

    def check_the_keyboard_is_enough(self):
        """Tab goes everywhere, and shows where it is; Enter sorts."""
        self.open(self.trouble)
        seen = []
        for _ in range(400):
            self.shown.press("Tab", 9)
            where = self.shown.ask("""(() => {
                const one = document.activeElement;
                const box = one.getBoundingClientRect();
                const look = getComputedStyle(one);
                return [one.tagName, one.innerText.slice(0, 30),
                        look.outlineStyle !== "none" &&
                        parseFloat(look.outlineWidth) >= 2,
                        box.bottom > 0 && box.top < innerHeight];
            })()""")
            if where[0] == "BODY":
                break
            assert where[2] and where[3], where
            seen.append(where[0])
            if where[0] == "BUTTON" and where[1] == "Blocks":
                self.shown.press("Enter", 13, "\r")
                assert self.shown.ask(
                    "document.activeElement.parentNode"
                    ".getAttribute('aria-sort')") == "descending"
        assert where[0] == "BODY", where
        assert {"A", "BUTTON", "INPUT", "DIV", "PRE"} == set(seen), set(seen)
        assert self.shown.ask(
            "document.querySelectorAll('th[aria-sort]').length") >= 2

    def check_a_phone_shows_it(self):
        """Nothing sticks out, and what is small can be read."""
        self.shown.look(width=360, height=740)
        for path, name in ((self.trouble, "trouble-phone"),
                           (self.demo, "demo-phone")):
            self.open(path)
            wide = self.shown.ask(
                "document.documentElement.scrollWidth")
            assert wide <= 360, wide
            assert self.shown.ask(TOO_WIDE) == [], self.shown.ask(TOO_WIDE)
            self.shown.picture(self.pictures / (name + ".png"))
        self.open(self.trouble)
        least = self.shown.ask(
            "Math.min(...[...document.querySelectorAll('svg text')].map("
            "(one) => parseFloat(getComputedStyle(one).fontSize) *"
            " one.getScreenCTM().a))")
        assert least >= 8, least

    def check_dark_is_dark(self):
        """Dark where it is wanted; all texts can be read in both."""
        for dark in (False, True):
            self.shown.look(dark=dark)
            for path in (self.trouble, self.demo):
                self.open(path)
                paper = self.shown.ask(
                    "getComputedStyle(document.body).backgroundColor")
                first = int(paper[4:].split(",")[0])
                assert (first < 64) == dark, paper
                least, where = self.shown.ask(CONTRASTS)
                assert least >= CONTRAST, (least, where)
        self.open(self.trouble)
        self.shown.picture(self.pictures / "trouble-dark.png")

    def check_it_needs_no_scripts(self):
        """The same texts and pictures, and nothing that does nothing."""
        self.open(self.trouble)
        with_scripts = self.text("main").replace("Only rows with\n", "")
        self.shown.look(scripts=False)
        self.open(self.trouble)
        controls = self.shown.ask(
            "document.querySelectorAll('button, input').length")
        assert controls == 0, controls
        without = self.text("main")
        assert "".join(with_scripts.split()) \
            .replace("Onlyrowswith", "") == "".join(without.split())
        self.shown.picture(self.pictures / "trouble-no-scripts.png")

    def check_it_can_be_printed(self):
        """All rows, on paper, without what only a screen has."""
        self.open(self.trouble)
        pages = self.shown.pages()
        assert pages.startswith(b"%PDF-") and pages.count(b"/Type /Page\n") > 1
        (self.pictures / "trouble.pdf").write_bytes(pages)
        self.shown.look(media="print", width=700)
        self.open(self.trouble)
        assert not self.shown.ask(
            "[...document.querySelectorAll('nav, .filter')]"
            ".some((one) => one.checkVisibility())")
        wide = self.shown.ask("document.documentElement.scrollWidth")
        assert wide <= 700, wide
        self.shown.picture(self.pictures / "trouble-print.png")

    def check_many_blocks_open_soon(self):
        """100,000 blocks: in two seconds, five megabytes at most."""
        source = self.work / "many.txt"
        bench.write_snapshot(source, BLOCKS)
        path = self.page("many", source)
        size = path.stat().st_size
        took = min(self.open(path) for _ in range(3))
        print(f"{BLOCKS} blocks: {size} bytes, shown after {took:.2f} s",
              file=sys.stderr)
        assert size <= MOST_BYTES, size
        assert took <= MOST_SECONDS, took
        assert "more places are not shown" in self.text()
        self.shown.picture(self.pictures / "many.png")

    def check_a_hostile_name_does_nothing(self):
        """It is a text in its own rows."""
        source = self.work / "hostile.txt"
        texts = []
        for name in ("plain", HOSTILE):
            source.write_text(
                "==> zorva.msgq <==\n"
                f"Queue Name   : {name}\nComponent ID : 17 ({name})\n"
                "Msg Size     : 16 bytes\nMax Depth    : 8\n"
                "Curr Depth   : 8\nMax Seen     : 8\n\n", encoding="ascii")
            self.open(self.page("hostile", source))
            texts.append(self.shown.ask(
                "document.querySelectorAll('*').length"))
            assert name in self.text("#queues")
        assert texts[0] == texts[1], texts

    def check_a_page_that_asks_for_more_is_noticed(self):
        """The checks above can fail: a page that was made to asks, and is
        refused by its own policy."""
        text = self.demo.read_text(encoding="ascii")
        path = self.work / "worse.html"
        for more in ("<img src='http://127.0.0.1:9/z'>",
                     "<script>document.title = 'owned'</script>",
                     "<p style='color: red'>x</p>"):
            path.write_text(text.replace("</main>", more + "</main>"),
                            encoding="ascii")
            self.shown.open(path)
            assert self.shown.complaints, more
            assert self.shown.ask("document.title") != "owned"

    def update(self):
        """The pictures of the texts."""
        docs = HERE.parent.parent / "docs"
        with browser.Browser() as self.shown:
            self.shown.look(width=820)
            self.open(self.trouble)
            self.shown.picture(docs / "report-page.png", "header",
                               "#problems", 12)
            self.shown.picture(docs / "report-memory.png", "#memory",
                               "#memory svg.map", 12)
            self.shown.look(width=360, dark=True)
            self.open(self.trouble)
            self.shown.picture(docs / "report-phone.png", "#waits",
                               "#waits svg", 12)

    def run(self):
        """All of them. The numbers that passed and that failed."""
        passed = failed = 0
        with browser.Browser() as self.shown:
            for name in dir(self):
                if not name.startswith("check_"):
                    continue
                text = name[6:].replace("_", " ")
                try:
                    self.shown.look()
                    getattr(self, name)()
                except (AssertionError, RuntimeError, ValueError,
                        subprocess.CalledProcessError):
                    failed += 1
                    print(f"FAILED: {text}", file=sys.stderr)
                    traceback.print_exc(limit=-1)
                else:
                    passed += 1
                    print(f"ok: {text}", file=sys.stderr)
        return passed, failed


def main():
    """Reads the arguments, runs the checks and says what came of them."""
    if len(sys.argv) not in (4, 5) or sys.argv[1].startswith("-"):
        print(__doc__.strip(), file=sys.stderr)
        return 0 if sys.argv[1:] in (["-h"], ["--help"]) else 2
    with tempfile.TemporaryDirectory() as work:
        checks = Checks(*sys.argv[1:4], work)
        if sys.argv[4:] == ["--update"]:
            checks.update()
            return 0
        passed, failed = checks.run()
    print(f"report: {passed} passed, {failed} failed")
    if len(sys.argv) == 5:
        pathlib.Path(sys.argv[4]).write_text(f"{passed} {failed}\n",
                                             encoding="ascii")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())

# SPDX-License-Identifier: GPL-2.0
"""Prints the text of an HTML page, without its markup and its scripts."""
import html.parser
import pathlib
import sys


class Reader(html.parser.HTMLParser):
    """Collects what stands between the tags."""

    def __init__(self):
        super().__init__()
        self.hidden = 0
        self.words = []

    def handle_starttag(self, tag, attrs):
        if tag in ("script", "style"):
            self.hidden += 1

    def handle_endtag(self, tag):
        if tag in ("script", "style"):
            self.hidden -= 1

    def handle_data(self, data):
        if not self.hidden:
            self.words.append(data)


def main():
    """Reads the page that is named."""
    reader = Reader()
    reader.feed(pathlib.Path(sys.argv[1]).read_text(encoding="utf-8"))
    print(" ".join("".join(reader.words).split()))


if __name__ == "__main__":
    main()

# SPDX-License-Identifier: GPL-2.0
"""How Sphinx makes the site of what stage.py has laid out."""
import pathlib

project = "zorva"
author = "the zorva developers"
release = (pathlib.Path(__file__).parent / "VERSION").read_text().strip()

extensions = ["myst_parser"]
exclude_patterns = ["source/files"]
myst_heading_anchors = 3
# The languages of the listings are named where there is one.
highlight_language = "none"

html_theme = "furo"
html_title = f"zorva {release}"
html_copy_source = False
html_show_copyright = False

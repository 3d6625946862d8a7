#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
"""Passes when every link of the pages leads to a page, or to a place on one, that is there, no page is
reached by nobody, and every diagram has become a picture.

usage: html_links.py DIRECTORY

The reference's pages link each other; of them only those that the other pages lead to are looked at.
"""

import html.parser
import pathlib
import sys
import urllib.parse


class Page(html.parser.HTMLParser):
    def __init__(self, path):
        super().__init__()
        self.links, self.places = [], set()
        self.text = path.read_text()
        self.feed(self.text)

    def handle_starttag(self, tag, attributes):
        attributes = dict(attributes)
        self.places.update(attributes[key] for key in ("id", "name") if attributes.get(key))
        if tag in ("a", "link") and attributes.get("href"):
            self.links.append(attributes["href"])


def find_problems(root):
    pages = {}

    def page_at(path):
        return pages.setdefault(path, Page(path))

    waiting, reached = [root / "index.html"], set()
    while waiting:
        path = waiting.pop()
        if path in reached:
            continue
        reached.add(path)
        if path.suffix != ".html":
            continue
        page = page_at(path)
        if "mermaid" in page.text:
            yield f"{path}: shows the source of a diagram"
        for link in page.links:
            target, place = urllib.parse.urldefrag(link)
            if "://" in link or link.startswith("mailto:"):
                continue
            found = (path.parent / urllib.parse.unquote(target)).resolve() if target else path
            if not found.exists():
                yield f"{path}: {link} leads nowhere"
                continue
            if place and found.suffix == ".html" and place not in page_at(found).places:
                yield f"{path}: there is no such place as {link}"
            if found.relative_to(root).parts[0] != "reference" or found.name == "index.html":
                waiting.append(found)
    for path in root.glob("**/*.html"):
        if path.relative_to(root).parts[0] != "reference" and path not in reached:
            yield f"{path}: no page leads there"
    if not any("<svg" in page.text for page in pages.values()):
        yield "there is no diagram"


problems = list(find_problems(pathlib.Path(sys.argv[1]).resolve()))
sys.exit("\n".join(problems) or None)

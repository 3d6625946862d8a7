#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
"""Makes pages for a browser of the start page, the manual and what belongs to them.

usage: make_pages.py SOURCES OUTPUT VERSION

Links between the documents become links between the pages; a link to what has no page becomes plain
text. Diagrams become pictures, drawn by Graphviz. The rest is Pandoc's.
"""

import html
import json
import pathlib
import re
import subprocess
import sys
import textwrap

# In the order in which somebody would read them who reads all of them.
PARTS = [
    ("", {"docs/pages/start.md": "index.html"}),
    ("The manual", {f"docs/manual/{name}.md": f"manual/{page}.html" for name, page in [
        ("README", "index"), *((name, name) for name in [
            "questions", "foundation", "child", "bridge", "life-of-a-child", "controller", "plugin",
            "shared-info", "sockets", "threads", "testing", "interfaces", "exceptions", "debugging",
            "kept-oddities"])]}),
    ("To look things up", {
        "docs/messages.md": "messages.html",
        "docs/performance.md": "performance.html",
        "docs/abi.md": "abi.html",
        "CHANGELOG.md": "changes.html",
        "docs/releases/2.0.0.md": "releases/2.0.0.html",
        "docs/porting.md": "porting.html",
        "SECURITY.md": "security.html",
        "CONTACT.md": "contact.html"}),
]
REFERENCE = "reference/index.html"
PAGES = {source: page for _, part in PARTS for source, page in part.items()}
LINKED = {**PAGES, "docs/reference.md": REFERENCE}

HERE = pathlib.Path(__file__).parent


def run(*command, text):
    return subprocess.run(command, input=text, text=True, check=True, stdout=subprocess.PIPE).stdout


class Drawing:
    """A flowchart or a state diagram in the language of the documents, as the text of a Graphviz graph."""

    NODE = re.compile(r'(\w+)(\[\("|\[")(.*?)"\)?\]')
    ARROW = re.compile(r"^(.+?) (?:<?--(?: \"(.*)\" -->|>)) (.+?)(?:: (.*))?$")

    def __init__(self, text):
        _, *lines = [line.strip() for line in text.strip().splitlines()]
        self.nodes, self.arrows = {}, []
        for line in filter(None, lines):
            self.read_line(line)

    def read_line(self, line):
        node = self.NODE.fullmatch(line)
        if node:
            shape = "cylinder" if "(" in node.group(2) else "box"
            self.nodes[node.group(1)] = (node.group(3), shape)
            return
        arrow = self.ARROW.match(line)
        if not arrow:
            sys.exit(f"What does '{line}' mean in a diagram?")
        both = ' dir="both"' if "<--" in line else ""
        sources, label, targets, state_label = arrow.groups()
        for source in sources.split(" & "):
            for target in targets.split(" & "):
                self.arrows.append((self.end(source, "begin"), self.end(target, "end"),
                                    label or state_label or "", both))

    def end(self, name, which):
        if name == "[*]":
            self.nodes[which] = ("", "point" if which == "begin" else "doublecircle")
            return which
        self.nodes.setdefault(name, (name, "box"))
        return name

    def as_graph(self):
        def quote(text):
            lines = [line for part in text.split("<br>") for line in textwrap.wrap(part, 26)]
            return '"' + "\\n".join(lines).replace('"', '\\"') + '"'
        # From the top to the bottom, whatever the document says: a page is higher than wide.
        lines = ['digraph { bgcolor="transparent"; nodesep=0.4; ranksep=0.5;',
                 'node [style="rounded,filled" fillcolor="#eef3f8" color="#31597f"'
                 ' fontname="sans-serif" fontsize=12];',
                 'edge [color="#555555" fontname="sans-serif" fontsize=11];']
        for name, (label, shape) in self.nodes.items():
            style = ' style="filled" width=0.2' if shape in ("point", "doublecircle", "cylinder") else ""
            fill = ' fillcolor="#31597f"' if shape in ("point", "doublecircle") else ""
            lines.append(f"{name} [label={quote(label)} shape={shape}{style}{fill}];")
        lines += [f"{a} -> {b} [label={quote(label)}{both}];" for a, b, label, both in self.arrows]
        return "\n".join([*lines, "}"])

    def as_picture(self, description):
        drawn = run("dot", "-Tsvg", text=self.as_graph())
        svg = drawn[drawn.index("<svg"):]
        # What a node is called inside is of no interest as a tool tip.
        svg = re.sub(r"<title>.*?</title>\n?|<!--.*?-->\n?", "", svg, flags=re.DOTALL)
        return (f'<figure><svg role="img" aria-label="{html.escape(description)}"'
                + svg[len("<svg"):] + "</figure>")


class Site:
    def __init__(self, sources, output, version):
        self.sources, self.output, self.version = sources, output, version
        self.titles = {page: self.title_of(source) for source, page in PAGES.items()}

    def chapters_without_page(self):
        chapters = (self.sources / "docs/manual").glob("*.md")
        return {f"docs/manual/{chapter.name}" for chapter in chapters} - PAGES.keys()

    def title_of(self, source):
        return re.search(r"^# (.*)", (self.sources / source).read_text(), re.MULTILINE).group(1)

    def navigation(self, page, root):
        lines = []
        for part, documents in PARTS:
            entries = [(page, self.titles[page]) for page in documents.values()]
            if part.startswith("To look"):
                entries.insert(0, (REFERENCE, "Reference"))
            lines += [f"<h2>{part}</h2>"] if part else []
            lines.append("<ul>")
            for target, title in entries:
                here = ' aria-current="page"' if target == page else ""
                lines.append(f'<li><a href="{root}{target}"{here}>{html.escape(title)}</a></li>')
            lines.append("</ul>")
        return "\n".join(lines)

    def read(self, source):
        """The text of a document. Where the start page names a program in braces, it shows it."""
        return re.sub(r"^\{\{(.*)\}\}$",
                      lambda match: f"```cpp\n{self.program(match.group(1))}```",
                      (self.sources / source).read_text(), flags=re.MULTILINE)

    def program(self, source):
        """Without the lines on its licence."""
        return re.sub(r"\A(// SPDX-.*\n)+\n", "", (self.sources / source).read_text())

    def rewrite(self, element, source, root, heading):
        """Goes through what Pandoc has read, in order, and returns what is shown instead."""
        if isinstance(element, list):
            return [self.rewrite(child, source, root, heading) for child in element]
        if not isinstance(element, dict):
            return element
        kind, content = element.get("t"), element.get("c")
        if kind == "Header":
            heading[0] = content[1][0].replace("-", " ")
        elif kind == "CodeBlock" and "mermaid" in content[0][1]:
            picture = Drawing(content[1]).as_picture("Diagram: " + heading[0])
            return {"t": "RawBlock", "c": ["html", picture]}
        elif kind == "Link":
            target = self.target_of(content[2][0], source, root)
            if target is None:
                return {"t": "Span", "c": [["", [], []], content[1]]}
            content[2][0] = target
        return {key: self.rewrite(child, source, root, heading) for key, child in element.items()}

    def target_of(self, target, source, root):
        name, hash_mark, anchor = target.partition("#")
        if not name or "://" in name:
            return target
        path = (self.sources / source).parent.joinpath(name).resolve()
        page = LINKED.get(path.relative_to(self.sources).as_posix())
        return page and root + page + hash_mark + anchor

    def make_page(self, source, page):
        root = "../" * page.count("/")
        read = json.loads(run("pandoc", "--from=gfm", "--to=json", text=self.read(source)))
        read["blocks"] = self.rewrite(read["blocks"], source, root, [""])
        target = self.output / page
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_text(run(
            "pandoc", "--from=json", "--to=html5", "--standalone", "--highlight-style=tango",
            f"--template={HERE / 'page.html'}", f"--variable=root:{root}",
            f"--variable=version:{self.version}", f"--metadata=pagetitle:{self.titles[page]}",
            f"--variable=navigation:{self.navigation(page, root)}", text=json.dumps(read)))


def main():
    sources, output, version = sys.argv[1:]
    site = Site(pathlib.Path(sources).resolve(), pathlib.Path(output), version)
    if missing := site.chapters_without_page():
        sys.exit(f"PARTS gives no page to {', '.join(sorted(missing))}")
    for source, page in PAGES.items():
        site.make_page(source, page)
    (site.output / "style.css").write_text((HERE / "style.css").read_text())


main()

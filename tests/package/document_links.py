#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
"""Passes when every relative link in the documents leads to a file.

usage: document_links.py SOURCE_DIRECTORY
"""

import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1])
documents = [*root.glob("*.md"), *root.glob("docs/**/*.md"), *root.glob("*/README.md")]
broken, count = [], 0
for document in documents:
    prose = re.sub(r"^```.*?^```$", "", document.read_text(), flags=re.DOTALL | re.MULTILINE)
    for target in re.findall(r"\]\(([^)#]+)(?:#[^)]*)?\)", prose):
        if "://" in target:
            continue
        count += 1
        if not (document.parent / target).exists():
            broken.append(f"{document}: {target}")
print("\n".join(broken) or f"{count} links in {len(documents)} documents")
sys.exit(1 if broken or count < 10 else 0)

#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
"""Compares docs/messages.md with the texts of the sources and of the built library, both ways.

usage: message_index.py INDEX SOURCES [LIBRARY OBJCOPY]
"""

import collections
import pathlib
import re
import subprocess
import sys
import tempfile

# What prints, and the helpers that hand a format on to it, with the level they print at.
PRINTERS = {
    "vask_p": None,
    "print_message_of": None,
    "report_failure": None,
    "log_text_array": "DBG",
    "report_nothing_to_lock": "ERR",
    "printf": "stdout",
    "append_printf": "stdout",
    "g_print": "stdout",
    "g_log": "GLib",
    "g_return_if_fail_warning": "GLib",
}

# These macros put the place before the text and the line end behind it.
PLACED = {"VASK_AT", "VASK_AT_FORMAT"}

# These put the line end behind the text themselves, or print parts of lines.
OWN_LINE_ENDS = {"report_failure", "printf", "append_printf", "g_print", "g_log", "g_return_if_fail_warning"}
NO_LINE_END = "(no line end)"

# These show another text and nothing of their own.
BARE_FORMATS = {"%s\\n", "\\n"}

# Texts with a blank that never reach a log.
NOT_MESSAGES = {
    "shared by all processes": "an assertion of the compiler",
    "one for both": "an assertion of the compiler",
    "vask: child %d: %s": "a part of a GLib source's name",
    "end by pidfd": "a part of a GLib source's name",
    "end by polling": "a part of a GLib source's name",
    "last signals": "a part of a GLib source's name",
    "held by its tracer": "a part of a GLib source's name",
    "] ": "a part of a message's header",
    ": ": "a part of a message's header",
    "\\nTracerPid:": "looked for in /proc/PID/status",
    "\\nState:": "looked for in /proc/PID/status",
    "model name": "looked for in /proc/cpuinfo",
    "Intel(R) Atom(TM) CPU Z": "looked for in /proc/cpuinfo",
    "Intel(R) Core(TM)2 Duo CPU": "looked for in /proc/cpuinfo",
    "\\r\\n\\t": "separators",
    "Not checked": "result of get_vask_cpu_type_str()",
    "ATOM Z": "result of get_vask_cpu_type_str()",
    "ATOM N": "result of get_vask_cpu_type_str()",
    "Core 2 Duo": "result of get_vask_cpu_type_str()",
    "GMA 500": "result of get_vask_gpu_type_str()",
    "GMA 950": "result of get_vask_gpu_type_str()",
    "GMA 4500MHD": "result of get_vask_gpu_type_str()",
    "Object Address": "description of a GObject property",
    "The address of the object": "description of a GObject property",
    "there is no base URI": "text of an exception",
    "a member that is a number has no name": "text of an exception",
}

TOKEN = re.compile(
    r'//[^\n]*|/\*.*?\*/|^[ \t]*#(?:include|define)[^\n]*|"(?:\\.|[^"\\])*"|\'(?:\\.|[^\'\\])*\'|[A-Za-z_]\w*|\S',
    re.DOTALL | re.MULTILINE)
SIGNATURE = re.compile(r"[\w*&: ]*\w[\w:]*::~?\w+\(.*\)|[\w*& ]+ \w+\(NP\w+.*\)")
CODE = re.compile(r"`([^`]+)`")

errors = []


def complain(text):
    errors.append(text)


class Call:
    def __init__(self, function):
        self.function = function
        self.level = PRINTERS.get(function)
        self.has_format = False


def literals(source):
    """Yields (text, the printing call around it or None)."""
    tokens = [t for t in TOKEN.findall(source)
              if not t.startswith(("//", "/*")) and not t.lstrip().startswith(("#include", "#define"))]
    calls, previous, text = [], "", None
    for token in tokens + [""]:
        if token.startswith('"'):
            text = (text or "") + token[1:-1]
            continue
        if text is not None:
            if calls and calls[-1].function in PLACED:
                text = f"<%s:%d> {text}\\n"
            yield text, next((c for c in reversed(calls) if c.function in PRINTERS), None)
            text = None
        if token == "(":
            calls.append(Call(previous))
        elif token == ")" and calls:
            calls.pop()
        elif token.startswith("VASK_P_"):
            for call in calls:
                call.level = call.level or token[len("VASK_P_"):]
        previous = token


def read_sources(directory):
    """Formats as text -> {(level, unit)}, those of them without a line end, and the other texts
    that can be seen in a log."""
    formats, unended, texts, seen = collections.defaultdict(set), set(), set(), set()
    for path in sorted(directory.rglob("*")):
        if path.suffix not in (".cpp", ".h"):
            continue
        for text, call in literals(path.read_text()):
            seen.add(text)
            if call is not None and call.level is None:
                continue  # stands before the level: the name
            if call is not None and not call.has_format:
                call.has_format = call.function != "log_text_array"
                if text not in BARE_FORMATS and not SIGNATURE.fullmatch(text):
                    formats[text].add((call.level, path.stem))
                    if call.function not in OWN_LINE_ENDS and not text.endswith("\\n"):
                        unended.add(text)
            elif (" " in text or "\\n" in text) and text not in NOT_MESSAGES:
                texts.add(text)
    for text in NOT_MESSAGES:
        if text not in seen:
            complain(f"no longer in the sources, but excepted by {sys.argv[0]}: {text}")
    return formats, unended, texts


def without_line_end(text):
    return text[:-2] if text.endswith("\\n") else text


def read_index(path):
    """Rows as text -> {(level, unit)}, those that tell of no line end, and the texts of lists and
    of rows without a level."""
    rows, unended, texts = {}, set(), set()
    for number, line in enumerate(path.read_text().splitlines(), 1):
        if line.startswith("- `"):
            texts.add(CODE.match(line, 2).group(1))
        if not line.startswith("| `"):
            continue
        cells = [cell.strip() for cell in line.strip().strip("|").split(" | ")]
        text = CODE.match(cells[0]).group(1)
        if not all(cells) or len(cells) not in (3, 5):
            complain(f"{path}:{number}: every cell of a row has to say something")
        if len(cells) == 3:
            texts.add(text)
            continue
        if text in rows:
            complain(f"{path}:{number}: listed twice: {text}")
        if cells[3].endswith(NO_LINE_END):
            unended.add(text)
        levels = cells[1].split(", ")
        rows[text] = set()
        for source in cells[2].split(", "):
            unit, _, level = source.partition(" at ")
            rows[text].add((level or levels[0], unit.strip("`")))
        if {level for level, _ in rows[text]} != set(levels):
            complain(f"{path}:{number}: the sources do not account for the levels {cells[1]}")
    return rows, unended, texts


def show(places):
    return ", ".join(f"{level} in {unit}" for level, unit in sorted(places))


def compare_with_sources(rows, texts, formats, other):
    found = {without_line_end(text): places for text, places in formats.items()}
    for text in sorted(found.keys() - rows.keys()):
        complain(f"not in the index: {text} ({show(found[text])})")
    for text in sorted(rows.keys() - found.keys()):
        complain(f"in the index, but nothing prints it: {text}")
    for text in sorted(found.keys() & rows.keys()):
        if found[text] != rows[text]:
            complain(f"the index says {show(rows[text])}, but it is {show(found[text])}: {text}")
    for text in sorted(other - texts):
        complain(f"not in the index, and not excepted as no message: {text}")
    for text in sorted(texts - other):
        complain(f"in the index, but not in the sources: {text}")


def compare_line_ends(indexed, printed):
    for text in sorted(printed - indexed):
        complain(f"printed without a line end, and the index does not say so: {text}")
    for text in sorted(indexed - printed):
        complain(f"the index says \"{NO_LINE_END[1:-1]}\", but it has one: {text}")


def read_strings(library, objcopy):
    with tempfile.NamedTemporaryFile() as section:
        subprocess.run([objcopy, "--output-target=binary", "--only-section=.rodata", library,
                        section.name], check=True)
        return pathlib.Path(section.name).read_bytes()


def holds(content, text):
    # What becomes a string object may be put together from constants of 8 bytes.
    return text in content or all(text[i:i + 8] in content for i in range(0, len(text) - 7, 8))


def compare_with_library(indexed, library, objcopy):
    content = pathlib.Path(library).read_bytes()
    for text in sorted(indexed):
        if not holds(content, text.encode()):
            complain(f"in the index, but not in {library}: {text}")
    for string in read_strings(library, objcopy).split(b"\0"):
        if not re.fullmatch(rb"[\x20-\x7e]{2,}\n", string):
            continue
        text = without_line_end(string.decode().replace("\n", "\\n"))
        if text + "\\n" not in BARE_FORMATS and text not in indexed:
            complain(f"in {library}, but not in the index: {text}")


def main():
    index, sources = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    rows, indexed_unended, texts = read_index(index)
    formats, printed_unended, other = read_sources(sources)
    if len(formats) < 100:
        complain(f"only {len(formats)} messages found in {sources}: is that the right directory?")
    compare_with_sources(rows, texts, formats, other)
    compare_line_ends(indexed_unended, printed_unended)
    if len(sys.argv) > 3:
        compare_with_library(rows.keys() | texts, sys.argv[3], sys.argv[4])
    for error in errors:
        print(error)
    if errors:
        print(f"\nEvery text that the library prints has a row in {index} with its level, the\n"
              "source unit, what it means and what to do; and every row has its text.")
    return 1 if errors else 0


sys.exit(main())

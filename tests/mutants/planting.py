# SPDX-FileCopyrightText: 2026 The libvask authors
# SPDX-License-Identifier: MIT
"""Single faults that can be planted into the library's sources, found in the syntax trees of clang."""

import json
import os
import shlex

from clang import cindex
from clang.cindex import CursorKind

INVERTED = {"<": ">=", ">": "<=", "<=": ">", ">=": "<", "==": "!=", "!=": "=="}
SHIFTED = {"<": "<=", ">": ">=", "<=": "<", ">=": ">"}
OTHER = {"&&": "||", "||": "&&", "+": "-", "-": "+", "*": "/", "/": "*", "|": "&", "+=": "-=", "-=": "+="}
TESTS = {CursorKind.IF_STMT, CursorKind.WHILE_STMT, CursorKind.CONDITIONAL_OPERATOR, CursorKind.FOR_STMT}
DROPPED = {
    CursorKind.CALL_EXPR,
    CursorKind.BINARY_OPERATOR,
    CursorKind.COMPOUND_ASSIGNMENT_OPERATOR,
    CursorKind.UNARY_OPERATOR,
    CursorKind.BREAK_STMT,
    CursorKind.CONTINUE_STMT,
}


class Mutant:
    """One fault: what stands at a place of a source is replaced by another text."""

    def __init__(self, path, kind, begin, end, old, new, line, function):
        self.path = path
        self.kind = kind
        self.begin = begin
        self.end = end
        self.old = old
        self.new = new
        self.line = line
        self.function = function
        self.twin = 0

    def key(self):
        """The same as long as the function is the same, wherever it stands."""
        old = " ".join(self.old.split())
        return f"{self.path} {self.function} {self.kind} `{old}` {self.twin}"

    def text(self):
        new = " ".join(self.new.split()) or "nothing"
        return f"{self.path}:{self.line} {self.kind}: `{' '.join(self.old.split())}` becomes `{new}`"

    def applied(self, source):
        return source[: self.begin] + self.new.encode() + source[self.end :]


class Planter:
    """Collects the faults of one source."""

    def __init__(self, path, source):
        self.path = path
        self.source = source
        self.found = []
        self.function = ""

    def add(self, kind, cursor_extent, new):
        begin, end = cursor_extent
        old = self.source[begin:end].decode()
        if old != new:
            line = self.source.count(b"\n", 0, begin) + 1
            self.found.append(Mutant(self.path, kind, begin, end, old, new, line, self.function))

    def extent(self, cursor):
        """Where it stands; nothing for what a macro has made."""
        begin, end = cursor.extent.start, cursor.extent.end
        if begin.file is None or begin.file.name != cursor.translation_unit.spelling:
            return None
        if cursor.location.file is None or end.offset <= begin.offset:
            return None
        return begin.offset, end.offset

    def visit(self, cursor):
        if cursor.kind in (CursorKind.CXX_METHOD, CursorKind.FUNCTION_DECL, CursorKind.CONSTRUCTOR, CursorKind.DESTRUCTOR):
            self.function = cursor.spelling
        if self.extent(cursor) is not None:
            self.plant_tests(cursor)
            self.plant_operators(cursor)
            self.plant_constants(cursor)
            if cursor.kind == CursorKind.COMPOUND_STMT:
                self.plant_statements(cursor)
        for child in cursor.get_children():
            if child.location.file is None or child.location.file.name == cursor.translation_unit.spelling:
                self.visit(child)

    def plant_tests(self, cursor):
        if cursor.kind not in TESTS:
            return
        children = [child for child in cursor.get_children() if self.extent(child)]
        if cursor.kind == CursorKind.FOR_STMT:
            children = [child for child in children[1:2] if child.kind == CursorKind.BINARY_OPERATOR]
        for condition in children[:1]:
            if condition.kind not in (CursorKind.DECL_STMT, CursorKind.VAR_DECL) and not self.is_comparison(condition):
                begin, end = self.extent(condition)
                self.add("inverted test", (begin, end), f"!({self.source[begin:end].decode()})")

    def operator_of(self, cursor):
        """The operator and where it begins; libclang 14 does not tell it."""
        sides = [self.extent(child) for child in cursor.get_children()]
        if len(sides) != 2 or None in sides:
            return "", 0
        between = self.source[sides[0][1] : sides[1][0]].decode()
        return between.strip(), sides[0][1] + len(between) - len(between.lstrip())

    # Inverting one is planted once, as an operator.
    def is_comparison(self, cursor):
        return cursor.kind == CursorKind.BINARY_OPERATOR and self.operator_of(cursor)[0] in INVERTED

    def plant_operators(self, cursor):
        if cursor.kind not in (CursorKind.BINARY_OPERATOR, CursorKind.COMPOUND_ASSIGNMENT_OPERATOR):
            return
        operator, begin = self.operator_of(cursor)
        for kind, table in (("inverted comparison", INVERTED), ("shifted comparison", SHIFTED), ("other operator", OTHER)):
            if operator in table:
                self.add(kind, (begin, begin + len(operator)), table[operator])

    def plant_constants(self, cursor):
        begin, end = self.extent(cursor)
        text = self.source[begin:end].decode()
        if cursor.kind == CursorKind.CXX_BOOL_LITERAL_EXPR:
            self.add("other constant", (begin, end), "false" if text == "true" else "true")
        if cursor.kind == CursorKind.INTEGER_LITERAL and text.isdigit():
            self.add("other constant", (begin, end), str(int(text) + 1))

    def plant_statements(self, block):
        statements = [(child, self.extent(child)) for child in block.get_children()]
        calls = []
        for child, extent in statements:
            is_call = extent is not None and child.kind in DROPPED and self.ends_with_semicolon(extent)
            calls.append(is_call)
            if is_call:
                self.add("dropped statement", extent, "")
        for i in range(len(statements) - 1):
            if calls[i] and calls[i + 1]:
                (first_begin, first_end), (begin, end) = statements[i][1], statements[i + 1][1]
                swapped = self.source[begin:end] + self.source[first_end:begin] + self.source[first_begin:first_end]
                self.add("other order", (first_begin, end), swapped.decode())

    def ends_with_semicolon(self, extent):
        return self.source[extent[1] :].lstrip()[:1] == b";"


def compile_commands(build):
    with open(os.path.join(build, "compile_commands.json"), encoding="utf-8") as file:
        return {entry["file"]: entry for entry in json.load(file)}


def arguments_of(entry):
    words = shlex.split(entry["command"])
    kept = [word for word in words if word.startswith(("-I", "-D", "-std"))]
    kept += [part for i, word in enumerate(words) if word == "-isystem" for part in ("-isystem", words[i + 1])]
    return kept


def all_mutants(root, build):
    """In an order that depends on the sources alone."""
    commands = compile_commands(build)
    index = cindex.Index.create()
    found = []
    for path in sorted(commands):
        relative = os.path.relpath(path, root)
        # Each source of the library, once, whatever is made of it.
        if not relative.startswith("src/") or not relative.endswith(".cpp"):
            continue
        with open(path, "rb") as file:
            planter = Planter(relative, file.read())
        planter.visit(index.parse(path, arguments_of(commands[path])).cursor)
        unique = {(m.begin, m.end, m.new): m for m in planter.found}
        found += [unique[place] for place in sorted(unique)]
    number_twins(found)
    return found


def number_twins(mutants):
    seen = {}
    for mutant in mutants:
        key = mutant.key()
        mutant.twin = seen.get(key, 0)
        seen[key] = mutant.twin + 1

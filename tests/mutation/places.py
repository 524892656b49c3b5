"""Where a source file can be changed by one mistake, and how: found on the compiler's own tree of the file.

Each operator is a mistake that a programmer makes. A place has one replacement, so a place is a mutant.
"""

import hashlib
import random
import re
from dataclasses import dataclass
from pathlib import Path

import clang.cindex
from clang.cindex import CursorKind

OPERATORS = {
    "comparison": "the opposite comparison, or a lost negation",
    "boundary": "a limit that is itself taken in or left out",
    "constant": "a number one off, a truth value turned round, another character",
    "removed call": "a call that is not made",
    "swapped arguments": "two neighbouring arguments of one type in the wrong order",
    "changed text": "a letter of a text is another one, or its end of line is missing",
    "dropped guard": "an early way out that is never taken, or one side of a condition that does not count",
}

_OPPOSITE = {"==": "!=", "!=": "==", "<": ">=", ">=": "<", ">": "<=", "<=": ">"}
_BOUNDARY = {"<": "<=", "<=": "<", ">": ">=", ">=": ">"}
_NUMBER = re.compile(r"(?:(0[xX])([0-9a-fA-F]+)|()([0-9]+))([uUlL]*)")
_LEAVES = (CursorKind.RETURN_STMT, CursorKind.BREAK_STMT, CursorKind.CONTINUE_STMT)
_STATEMENTS = (CursorKind.COMPOUND_STMT, CursorKind.CASE_STMT, CursorKind.DEFAULT_STMT)
_FUNCTIONS = (CursorKind.FUNCTION_DECL, CursorKind.CXX_METHOD, CursorKind.CONSTRUCTOR, CursorKind.DESTRUCTOR,
              CursorKind.CONVERSION_FUNCTION, CursorKind.FUNCTION_TEMPLATE)
# A conversion of printf, an escape, and a letter or digit: only the last may be changed.
_TEXT_PIECE = re.compile(r"%[-#0 +']*[0-9.*]*(?:hh|h|ll|l|z|j|t)?[a-zA-Z%]|\\(?:x[0-9a-fA-F]+|[0-7]+|.)|\[[^]\"]*\]|([A-Za-z0-9])|.", re.DOTALL)


@dataclass(frozen=True)
class Place:
    """One change of one file: bytes from `start` to `end` become `after`."""

    file: str  # from the root of the sources
    operator: str
    start: int
    end: int
    before: str
    after: str
    line: int
    source_line: str  # without the space around it
    name: str  # stays the same when other lines of the file change
    function: tuple[int, int] = (0, 0)  # first and last line of the function around it that runs on the device, 0 without one

    def apply(self, source: bytes) -> bytes:
        return source[:self.start] + self.after.encode() + source[self.end:]

    def changed_line(self, source: bytes) -> str:
        """The changed line, or lines, as one line."""
        first = source.rfind(b"\n", 0, self.start) + 1
        last = source.find(b"\n", self.end)
        text = source[first:self.start] + self.after.encode() + source[self.end:last if last >= 0 else None]
        return " ".join(text.decode().split())


class _Finder:
    def __init__(self, file: str, source: bytes):
        self.file, self.source, self.found, self.functions = file, source, [], []

    def text(self, cursor) -> str:
        return self.source[cursor.extent.start.offset:cursor.extent.end.offset].decode()

    def add(self, operator: str, start: int, end: int, after: str) -> None:
        before = self.source[start:end].decode()
        if before != after:
            self.found.append((operator, start, end, before, after))

    def visit(self, cursor, parent) -> None:
        if cursor.kind in (CursorKind.STATIC_ASSERT, CursorKind.ANNOTATE_ATTR):
            return
        try:
            method = {CursorKind.BINARY_OPERATOR: self.binary, CursorKind.UNARY_OPERATOR: self.unary,
                      CursorKind.INTEGER_LITERAL: self.number, CursorKind.CXX_BOOL_LITERAL_EXPR: self.truth,
                      CursorKind.CHARACTER_LITERAL: self.character, CursorKind.STRING_LITERAL: self.string,
                      CursorKind.CALL_EXPR: self.call, CursorKind.IF_STMT: self.guard}.get(cursor.kind)
        except ValueError:  # a kind that these bindings do not know
            method = None
        if method:
            method(cursor, parent)
        if cursor.kind in _FUNCTIONS and cursor.is_definition():
            # One that the compiler may run as well is none.
            first, last = cursor.extent.start, cursor.extent.end
            if not re.search(rb"\bconst(expr|eval)\b", self.source[first.offset:last.offset].partition(b"{")[0]):
                self.functions.append((first.line, last.line))
        if parent is not None and parent.kind in _STATEMENTS:
            self.statement(cursor)
        for child in cursor.get_children():
            place = child.extent.start.file
            if place is not None and place.name == self.file:
                self.visit(child, cursor)

    def binary(self, cursor, _parent) -> None:
        left, right = list(cursor.get_children())
        start, end = left.extent.end.offset, right.extent.start.offset
        between = self.source[start:end].decode()
        operator = between.strip()
        at = start + between.find(operator)
        if operator in _OPPOSITE:
            self.add("comparison", at, at + len(operator), _OPPOSITE[operator])
        if operator in _BOUNDARY:
            self.add("boundary", at, at + len(operator), _BOUNDARY[operator])
        if operator in ("&&", "||"):
            for kept in (left, right):
                self.add("dropped guard", left.extent.start.offset, right.extent.end.offset, self.text(kept))

    def unary(self, cursor, _parent) -> None:
        start = cursor.extent.start.offset
        if self.source[start:start + 1] == b"!":
            self.add("comparison", start, start + 1, "")

    def number(self, cursor, parent) -> None:
        if parent.kind in (CursorKind.VAR_DECL, CursorKind.FIELD_DECL) and self.is_room(cursor, parent):
            return
        number = _NUMBER.fullmatch(self.text(cursor))
        if number is None:
            return
        prefix, digits, suffix = number[1] or "", number[2] or number[4], number[5]
        if not prefix and len(digits) > 1 and digits[0] == "0":
            other = f"0{int(digits, 8) + 1:o}"
        elif prefix:
            other = f"{prefix}{int(digits, 16) + 1:0{len(digits)}X}"
        else:
            other = "0" if digits == "1" else str(int(digits) + 1)
        self.add("constant", cursor.extent.start.offset, cursor.extent.end.offset, other + suffix)

    def is_room(self, cursor, declaration) -> bool:
        """Whether the number is the length of an array that is declared: one more is no mistake that shows."""
        return self.source[:cursor.extent.start.offset].rstrip().endswith(b"[") and "[" in declaration.type.spelling

    def truth(self, cursor, _parent) -> None:
        other = {"true": "false", "false": "true"}.get(self.text(cursor))
        if other:
            self.add("constant", cursor.extent.start.offset, cursor.extent.end.offset, other)

    def character(self, cursor, _parent) -> None:
        text = self.text(cursor)
        if len(text) == 3 and text[1] not in "&\\~[" and text[1].isprintable():
            self.add("constant", cursor.extent.start.offset, cursor.extent.end.offset, f"'{chr(ord(text[1]) + 1)}'")

    def string(self, cursor, _parent) -> None:
        text = self.text(cursor)
        if not text.startswith('"'):
            return
        pieces = [piece for piece in _TEXT_PIECE.finditer(text)]
        letters = [piece.start() for piece in pieces if piece[1]]
        start = cursor.extent.start.offset
        if letters:
            at = letters[len(letters) // 2]
            old = text[at]
            new = str((int(old) + 1) % 10) if old.isdigit() else ("y" if old == "x" else "x" if old.islower() else "Y" if old == "X" else "X")
            self.add("changed text", start, cursor.extent.end.offset, text[:at] + new + text[at + 1:])
        elif text.endswith('\\n"') and len(text) > 4:
            self.add("changed text", start, cursor.extent.end.offset, text[:-3] + '"')

    def call(self, cursor, _parent) -> None:
        arguments = [argument for argument in cursor.get_arguments() if argument is not None]
        for left, right in zip(arguments, arguments[1:]):
            texts = self.text(left), self.text(right)
            types = {_plain_type(argument.type) for argument in (left, right)}
            start, end = left.extent.start.offset, right.extent.end.offset
            between = self.source[left.extent.end.offset:right.extent.start.offset].decode()
            if texts[0] != texts[1] and len(types) == 1 and "" not in types and between.strip() == ",":
                self.add("swapped arguments", start, end, texts[1] + between + texts[0])

    def statement(self, cursor) -> None:
        inner = cursor
        while inner.kind in (CursorKind.UNEXPOSED_EXPR, CursorKind.CSTYLE_CAST_EXPR):
            children = list(inner.get_children())
            if not children:
                return
            inner = children[-1]
        end = cursor.extent.end.offset
        if inner.kind == CursorKind.CALL_EXPR and cursor.extent.start.offset < end and self.source[end:end + 1] == b";":
            self.add("removed call", cursor.extent.start.offset, end, "")

    def guard(self, cursor, _parent) -> None:
        children = list(cursor.get_children())
        if len(children) != 2:
            return  # it has another way, or declares something
        condition, body = children
        steps = list(body.get_children()) if body.kind == CursorKind.COMPOUND_STMT else [body]
        opening = self.source[cursor.extent.start.offset:condition.extent.start.offset].decode()
        if steps and steps[-1].kind in _LEAVES and "".join(opening.split()) == "if(":
            self.add("dropped guard", condition.extent.start.offset, condition.extent.end.offset,
                     f"false && ({self.text(condition)})")


def _plain_type(kind) -> str:
    return re.sub(r"\b(const|volatile|__restrict|restrict)\b", "", kind.get_canonical().spelling).replace(" ", "")


def find_places(root: Path, file: str, flags: list[str]) -> list[Place]:
    """All mutants of a file, which is named from `root`. Fails on a file that does not compile."""
    source = (root / file).read_bytes()
    path = str(root / file)
    tree = clang.cindex.Index.create().parse(path, args=["-x", "c++", "-std=c++20", *flags])
    problems = [str(problem) for problem in tree.diagnostics if problem.severity >= clang.cindex.Diagnostic.Error]
    if problems:
        raise RuntimeError("\n".join(problems))
    finder = _Finder(path, source)
    for child in tree.cursor.get_children():
        place = child.extent.start.file
        if place is not None and place.name == path:
            finder.visit(child, tree.cursor)
    places, seen = [], {}
    for operator, start, end, before, after in sorted(set(finder.found), key=lambda found: (found[1], found[2], found[0], found[4])):
        first = source.rfind(b"\n", 0, start) + 1
        line_end = source.find(b"\n", start)
        source_line = source[first:line_end].decode().strip()
        # Named by what stands there, and by how many of the same came before, not by its line.
        what = f"{file}|{operator}|{source_line}|{before}|{after}"
        seen[what] = seen.get(what, 0) + 1
        name = hashlib.sha1(f"{what}|{seen[what]}".encode()).hexdigest()[:10]
        line = source.count(b"\n", 0, start) + 1
        around = [lines for lines in finder.functions if lines[0] <= line <= lines[1]]
        places.append(Place(file, operator, start, end, before, after, line, source_line, name, min(around, default=(0, 0))))
    return places


def in_order(places: dict[str, list[Place]], seed: int) -> list[Place]:
    """All places in the order in which they are tried: the beginning of it is spread over all files, large ones more often,
    and over the operators. The same seed and sources give the same order, however many of it are then tried."""
    keyed = []
    for file, own in sorted(places.items()):
        by_operator = {}
        for place in own:
            by_operator.setdefault(place.operator, []).append(place)
        for group in by_operator.values():
            group.sort(key=lambda place: hashlib.sha1(f"{seed}|{place.name}".encode()).digest())
        turns = sorted(by_operator, key=lambda operator: hashlib.sha1(f"{seed}|{file}|{operator}".encode()).digest())
        mixed = []
        while turns:
            mixed += [by_operator[operator].pop() for operator in turns]
            turns = [operator for operator in turns if by_operator[operator]]
        shift = random.Random(f"{seed}|{file}").random()
        keyed += [((rank + shift) / len(own) ** 0.5, place.name, place) for rank, place in enumerate(mixed)]
    return [place for _, _, place in sorted(keyed, key=lambda entry: entry[:2])]

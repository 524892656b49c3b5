"""Compares what was shown with what a document shows. What differs from run to run is left aside: times, dates, speeds, the
version that the shell says of itself, numbers of processes, sums and lengths of what is compiled; and how many blanks stand
between two words."""

import difflib
import re

ANY = "..."
_ASIDE = [
    (re.compile(r"\x1b\[[0-9;]*[A-Za-z]"), ""),
    (re.compile(r"Recovery Loader v\S+ \([A-Z][a-z]{2} +\d+ \d{4} [\d:]{8}\)"), "Recovery Loader (version)"),
    (re.compile(r"\b[A-Z][a-z]{2} [A-Z][a-z]{2} +\d+ [\d:]{8} (?:[A-Z]+ )?\d{4}\b"), "(date)"),
    (re.compile(r"\b\d{4}-\d\d-\d\d(?:[T ][\d:]{8}Z?)?\b"), "(date)"),
    (re.compile(r"\b\d\d:\d\d:\d\d\b"), "(time)"),
    (re.compile(r"\[ *\d+\.\d{6}\]"), "[time]"),
    (re.compile(r"= [\d.]+/[\d.]+/[\d.]+ ms"), "= (times)"),
    (re.compile(r"\b[\d.]+ ?(?:ms|KiB/s|s left|seconds|s)\b"), "(time)"),
    (re.compile(r"\b(?:0x)?(?=[0-9a-f]*\d)[0-9a-f]{6,8}\b", re.IGNORECASE), "(number)"),
    (re.compile(r"\b\d{5,}\b"), "(number)"),
    (re.compile(r'"seconds": [\d.]+'), '"seconds": (time)'),
    (re.compile(r"PID \d+"), "PID (number)"),
    (re.compile(r"[ \t]+"), " "),
    (re.compile(r"-{3,}"), "---"),
]


def plain(line):
    """A line without what is left aside."""
    for expression, instead in _ASIDE:
        line = expression.sub(instead, line)
    return line.strip()


def is_same(expected, found):
    """Whether these lines are what a document shows; each `...` in it takes as few lines as it can."""
    expected, found = [plain(line) for line in expected], [plain(line) for line in found]
    pieces, current = [], []
    for line in expected:
        if line == ANY:
            pieces.append(current)
            current = []
        else:
            current.append(line)
    pieces.append(current)
    if len(pieces) == 1:
        return found == pieces[0]
    first, *middle, last = pieces
    if found[:len(first)] != first:
        return False
    at = len(first)
    for piece in middle:
        while at + len(piece) <= len(found) and found[at:at + len(piece)] != piece:
            at += 1
        if at + len(piece) > len(found):
            return False
        at += len(piece)
    return at + len(last) <= len(found) and (not last or found[len(found) - len(last):] == last)


def difference(expected, found):
    """What to show of two that differ."""
    return "\n".join(difflib.unified_diff([plain(line) for line in expected], [plain(line) for line in found], "document", "shown",
                                          lineterm="", n=1))

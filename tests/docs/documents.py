"""The sessions that a document shows: which blocks they are, and what nobody marked.

A fenced block says by its first word what becomes of it when documents are tested:

    ```console          "$ COMMAND" is run by a shell on a computer, and its output compared
    ```cli              "CLI> COMMAND" is typed at the device's prompt ("> ORDER" at the small firmware's), and the screen compared
    ```sh fixture.sh    any language and a name: the file that the commands behind it find

A line "..." in an output stands for any lines. "^C" alone is Ctrl-C, as soon as the line in front of it has come.

An indented line that begins with a program is a command without its output: two blanks end it, what follows explains it.
"""

import dataclasses
import os
import re
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
SHELL, DEVICE = "console", "cli"
# What is typed, in each kind of session.
TYPED = {SHELL: re.compile(r"^(\$ )(.*)$"), DEVICE: re.compile(r"^(CLI> |> )(.*)$")}
LOOKS_LIKE_A_SESSION = re.compile(r"^\s*(?:\$|CLI>) ")
# Programs of this project by where they lie, and those of others that documents show.
_COMMAND = re.compile(r"^ {4}(?=(?:[A-Z_]+=\S* )*(?:(?:\.|\. tools|build|tools|tests|bench|docs|packaging|/usr/bin)/\w"
                      r"|(?:kesto|cmake|ctest|pytest|git|man|bash|sh|apt|dpkg|pandoc|arm-linux-gnueabi-\w+) ))(.*)$")
_FENCE = re.compile(r"^\s*```+\s*(.*?)\s*$")


@dataclasses.dataclass
class Step:
    """
    One command and what it shows; `line` is that of the command in the document. `typed` is None for what a device shows by
    itself.
    """

    line: int
    prompt: str
    typed: str | None
    shown: list[str]


@dataclasses.dataclass
class Block:
    """A fenced block. `line` is its first line behind the fence, counted from 1."""

    line: int
    kind: str
    name: str
    lines: list[str]

    def steps(self):
        """What is typed here, in order."""
        made = [Step(self.line, "", None, [])]
        for number, line in enumerate(self.lines, self.line):
            if made[-1].typed and made[-1].typed.endswith("\\") and not made[-1].shown:
                made[-1].typed += "\n" + line
            elif found := TYPED[self.kind].match(line):
                made.append(Step(number, found[1], found[2], []))
            else:
                made[-1].shown.append(line)
        return made if made[0].shown else made[1:]


def blocks(text):
    """The fenced blocks of a document."""
    made, current = [], None
    for number, line in enumerate(text.splitlines(), 1):
        fence = _FENCE.match(line)
        if fence and current is None:
            kind, _, name = fence[1].partition(" ")
            current = Block(number + 1, kind, name, [])
        elif fence:
            made.append(current)
            current = None
        elif current is not None:
            current.lines.append(line)
    assert current is None, f"the block at line {current.line} has no end"
    return made


def sessions(text):
    """The blocks that are run, or that those need as files."""
    return [block for block in blocks(text) if block.kind in TYPED or block.name]


def unmarked(text):
    """[(line number, line)] of what looks typed and stands in no block that is run."""
    run = {number for block in sessions(text) for number in range(block.line, block.line + len(block.lines))}
    return [(number, line) for number, line in enumerate(text.splitlines(), 1)
            if LOOKS_LIKE_A_SESSION.match(line) and number not in run]


def commands(text):
    """[(line number, command)] of the commands that stand there without a prompt and without their output."""
    fenced = {number for block in blocks(text) for number in range(block.line, block.line + len(block.lines))}
    made, goes_on = [], False
    for number, line in enumerate(text.splitlines(), 1):
        found = None if number in fenced else _COMMAND.match(line)
        if goes_on:
            made[-1] = made[-1][0], f"{made[-1][1]} {line.strip()}"
        elif found:
            made.append((number, re.split(r"\s{2,}", found[1].strip())[0]))
        goes_on = (found or goes_on) and line.endswith("\\")
        if goes_on:
            made[-1] = made[-1][0], made[-1][1].removesuffix("\\").strip()
    return made


def documents():
    """All documents of the project, and the texts that documents are made of."""
    found = []
    for directory, below, files in os.walk(ROOT):
        below[:] = [name for name in below if name != "build" and not name.startswith(".")]
        found += [Path(directory) / name for name in files if name.endswith(".md")]
    return sorted(found)

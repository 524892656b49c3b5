"""Plays the sessions of a document, and compares."""

import shlex

from comparison import ANY, difference, is_same, plain
from documents import DEVICE, sessions
from terminals import RunTerminal, lines_of

INTERRUPT, LEAVE = "^C", "^]"
# "[FILE is sent]" in a device's session.
_SENT = " is sent]"
# What the device asks, and behind it the answer that a document shows.
_QUESTION = "Do you really want to do this (y/N)? "


class Stale(AssertionError):
    """A document shows something else than what happens."""


class Player:
    """
    The terminals that the commands of documents are typed at. `terminal` is at the device's prompt, or None before a document's
    `./run`, which is started with `state` for its flash. `transcript` keeps what was typed and shown: [(prompt, typed, lines)].
    """

    def __init__(self, computer, terminal=None, state=None):
        self.computer, self.terminal, self._state = computer, terminal, state
        self.transcript = []
        self.found = {}  # what was shown instead, by the line of the step

    def close(self):
        """Ends the device that the document has started."""
        if self.terminal:
            self.terminal.close()

    def play(self, name, text):
        """
        Runs all sessions of a document, to its end: a command that shows something else does not end it. Raises Stale,
        which names the lines.
        """
        wrong = []
        for block in sessions(text):
            if block.name:
                path = self.computer.directory / block.name
                path.write_text(self.computer.here("\n".join(block.lines) + "\n"), encoding="utf-8")
                continue
            for step in block.steps():
                shown = self._play(block.kind, step)
                self.transcript.append((step.prompt, step.typed, shown))
                expected = lines_of("\n".join(step.shown))
                if expected != shown and (ANY not in expected or not is_same(expected, shown)):
                    self.found[step.line + (step.typed or "").count("\n")] = (len(step.shown), shown)
                if not is_same(expected, shown):
                    wrong.append(f"{name}:{step.line}: {step.prompt}{step.typed or ''}\n{difference(expected, shown)}")
        if wrong:
            raise Stale("\n\n".join(wrong))

    def _play(self, kind, step):
        if kind == DEVICE:
            return self._type(step)
        assert step.typed is not None, f"line {step.line}: a session of a shell begins with a command"
        words = shlex.split(step.typed)
        if words[0] == "./run":
            self.close()
            self.terminal = RunTerminal(words[1:], self.computer.directory, self._state)
            shown = self.terminal.shown()
            return [*shown, self.terminal.prompt.rstrip()]
        if INTERRUPT in step.shown:
            mark = plain(step.shown[step.shown.index(INTERRUPT) - 1])
            return self.computer.run(step.typed, lambda lines: mark in [plain(line) for line in lines])
        return self.computer.run(step.typed)

    def _type(self, step):
        terminal = self.terminal
        if step.typed is None:
            return terminal.shown_like(lambda lines: is_same(lines_of("\n".join(step.shown)), lines))
        terminal.ready(step.prompt)
        terminal.type(step.typed)
        if LEAVE in step.shown:
            mark = step.shown[:step.shown.index(LEAVE)]
            return [*terminal.leave_behind(lambda lines: is_same(mark, lines)), LEAVE]
        for answer in (line.removeprefix(_QUESTION) for line in step.shown if line.startswith(_QUESTION)):
            terminal.screen.wait(lambda: terminal.screen.text.endswith(_QUESTION), "the question")
            terminal.send(answer.encode() + b"\r")
        sent = next((line for line in step.shown if line.startswith("[") and line.endswith(_SENT)), None)
        if sent is None:
            return terminal.shown()
        begin = terminal.screen.take_until("Begin serial download...\n")
        terminal.send_file(sent[1:-len(_SENT)])
        return [*lines_of(begin), sent, *terminal.shown()]


def renewed(text, found):
    """The document with what was shown in place of what it shows; `found` is a player's."""
    # A step without a command begins with its output.
    lines = text.splitlines()
    for line, (count, shown) in sorted(found.items(), reverse=True):
        typed = lines[line - 1].startswith(("$ ", "CLI> ", "> ", " "))
        begin = line if typed else line - 1
        # The blank line in front of a prompt or of the end stays.
        while count and not lines[begin + count - 1]:
            count -= 1
        lines[begin:begin + count] = [text.rstrip() for text in shown]
    return "\n".join(lines) + "\n"

"""Who types what documents show: a shell on a computer, and a person at the device's terminal."""

import os
import pty
import re
import select
import shutil
import signal
import subprocess
import threading
import time
from pathlib import Path

import flow_control
from board_session import BoardSession
from documents import ROOT
from line_socket import LineSocket
from product import MAC, PRODUCT_ID

# Seconds for what must come: nothing fails for a busy machine.
PATIENCE = 600.0
_PROMPT = re.compile(r"(?:^|\n)((?:CLI)?> )$")
WAY_OUT = b"\x1d"  # Ctrl-]


class Screen:
    """What a terminal has shown and nobody has looked at yet."""

    def __init__(self):
        self._data = b""
        self._changed = threading.Condition()
        self.has_ended = False

    def received(self, data):
        """Takes bytes of the line."""
        with self._changed:
            self._data += data
            self._changed.notify_all()

    def ended(self):
        """Nothing more will come."""
        with self._changed:
            self.has_ended = True
            self._changed.notify_all()

    @property
    def text(self):
        """What nobody has looked at yet."""
        return self._data.decode("latin-1").replace("\r", "")

    def prompt(self):
        """The prompt that the text ends with, or ""."""
        found = _PROMPT.search(self.text)
        return found[1] if found else ""

    def wait(self, condition, what):
        """Waits until condition() holds."""
        deadline = time.monotonic() + PATIENCE
        with self._changed:
            while not condition():
                left = deadline - time.monotonic()
                assert not self.has_ended and left > 0, f"{what} did not come; the terminal shows\n{self.text[-3000:]}"
                self._changed.wait(min(left, 1.0))

    def before_prompt(self):
        """What stands in front of it."""
        return _PROMPT.sub("\n", self.text)

    def take(self):
        """The prompt, which is the last thing there, and all that was shown before it."""
        with self._changed:
            taken = self.prompt(), self.before_prompt()
            self._data = b""
        return taken

    def take_until(self, mark):
        """What was shown up to the end of `mark`."""
        self.wait(lambda: mark in self.text, repr(mark))
        with self._changed:
            before, _, behind = self._data.replace(b"\r", b"").partition(mark.encode())
            self._data = behind
        return before.decode("latin-1") + mark


class Terminal:
    """A person at a device. A kind has `screen` and send(bytes). `prompt` is the last one that was seen."""

    screen: Screen
    prompt = ""

    def send(self, data):
        """Types keys."""
        raise NotImplementedError

    def ready(self, prompt):
        """Waits until the device waits for input at this prompt, and forgets what it has shown before."""
        if self.prompt != prompt or self.screen.text:
            self.screen.wait(lambda: self.screen.prompt() == prompt, f"the prompt {prompt!r}")
            self._take()

    def type(self, line):
        """Types a line at the prompt; its echo is not among what is shown then."""
        self.send(line.encode() + b"\r")
        echo = self.screen.take_until(line + "\n")
        assert echo == line + "\n", f"the echo of {line!r} is {echo!r}"

    def shown(self):
        """Waits for the next prompt, and returns the lines in front of it."""
        return self.shown_like(lambda lines: True)

    def shown_like(self, condition):
        """Waits for a prompt behind lines of which condition(lines) holds, and returns them."""
        self.screen.wait(lambda: self.screen.prompt() and condition(lines_of(self.screen.before_prompt())), "what is shown")
        return self._take()

    def _take(self):
        self.prompt, text = self.screen.take()
        return lines_of(text)

    def send_file(self, path):
        """Sends a file into the serial line, as a terminal program does."""
        raise NotImplementedError


class RunTerminal(Terminal):
    """`./run` with these words, in this directory; the programs are built. `state` takes the device's flash."""

    def __init__(self, words, directory, state):
        self.screen = Screen()
        self._end, slave = pty.openpty()
        command = ["/usr/bin/python3", ROOT / "board" / "launcher.py", "--state", state, *words]
        self._process = subprocess.Popen(command, cwd=directory, stdin=slave, stdout=slave, stderr=slave, start_new_session=True)
        os.close(slave)
        self._thread = threading.Thread(target=self._read, daemon=True)
        self._thread.start()

    def _read(self):
        while True:
            try:
                data = os.read(self._end, 65536)
            except OSError:  # nobody has the other end open any more
                data = b""
            if not data:
                self.screen.ended()
                return
            self.screen.received(data)

    def send(self, data):
        os.write(self._end, data)

    def leave_behind(self, is_mark):
        """Leaves as soon as is_mark(lines) holds of the lines up to one of those that are shown, and returns those."""
        def found():
            lines = lines_of(self.screen.text)
            return next((lines[:count] for count in range(1, len(lines) + 1) if is_mark(lines[:count])), None)
        self.screen.wait(found, "what is shown before it is left")
        lines = found()
        self.leave()
        return lines

    def leave(self):
        """Ctrl-], which switches the device off."""
        self.send(WAY_OUT)
        self._process.wait(PATIENCE)
        self._thread.join()

    def close(self):
        """Ends it, whatever it does."""
        if self._process.poll() is None:
            self._process.terminate()
            self._process.wait(PATIENCE)
        self._thread.join()
        if self._end >= 0:
            os.close(self._end)
            self._end = -1


class BoardTerminal(Terminal):
    """A virtual board at its first prompt, started without its boot loader. Its TFTP server has the files of `directory`, and its
    line is a socket for other programs."""

    def __init__(self, place, directory):
        self.session = BoardSession(place, tftp=directory, cmdline="vboard.rs485=1")
        self.board = self.session.board
        self._boot()
        self._directory = directory
        self.screen = Screen()
        self.board.console.listeners.append(self.screen.received)
        self._line = LineSocket(self.board, 1, place / "ttyS1")
        self._line.__enter__()
        self.port = f"unix:{self._line.path}"
        self.prompt = "CLI> "

    def _boot(self):
        """As a device of a kind, whose product record the shell reads once."""
        self.session.give_product((PRODUCT_ID, b"P2"), (MAC[0], bytes.fromhex("525400123456")))
        self.session.boot()
        self._booted = len(self.board.kernel_log.output)

    def renew(self):
        """Another device of the kind, with erased flash; what was there before is forgotten."""
        if b"Linux version" in self.board.kernel_log.output[self._booted:]:
            self.session.kill()
            self.board.console.skip()
            self.board.flash_erase()
            self._boot()
        self.session.renew()
        self.session.command("affirm off")
        self.screen.wait(lambda: self.screen.text.endswith("affirm is OFF\nCLI> "), "the prompt")
        self._take()

    def send(self, data):
        self.board.console.send(data)

    def send_file(self, path):
        self.board.wait_receiving(timeout=PATIENCE)
        self.board.console.skip()
        flow_control.send_as_taken(self.board, (self._directory / path).read_bytes())

    def close(self):
        """Switches it off."""
        self._line.__exit__()
        self.session.kill()


class Computer:
    """
    A computer's shell: commands are run in `directory`, where kesto is on the search path. `instead` are texts of documents
    and what stands for them here; kesto gets more time than it takes by itself.
    """

    def __init__(self, directory, instead=None):
        patience = {f"kesto {command} --port": f"kesto {command} --limit {PATIENCE:.0f} --port"
                    for command in ("run", "show", "install")}
        self.directory, self._instead = Path(directory), {**(instead or {}), **patience}
        self._status = 0

    def here(self, text):
        """A document's text as it holds here."""
        for shown, here in self._instead.items():
            text = text.replace(shown, here)
        return text

    def _there(self, text):
        for shown, here in self._instead.items():
            text = text.replace(here, shown)
        return text

    def run(self, command, interrupt_behind=None):
        """
        Runs a command. Returns the lines that it showed, standard error among them. With `interrupt_behind`, a condition on
        the lines so far, it gets Ctrl-C when that holds.
        """
        process = subprocess.Popen(["/bin/bash", "-c", f"(exit {self._status}); {self.here(command)}"], cwd=self.directory,
                                   stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                   start_new_session=True, env={**os.environ, "PATH": f"{ROOT}/build/release:{os.environ['PATH']}"})
        shown, deadline = b"", time.monotonic() + PATIENCE
        while True:
            ready, _, _ = select.select([process.stdout], [], [], 1.0)
            data = os.read(process.stdout.fileno(), 65536) if ready else None
            if data == b"":
                break
            shown += data or b""
            if interrupt_behind and interrupt_behind(lines_of(self._there(shown.decode()))):
                os.killpg(process.pid, signal.SIGINT)
                shown += b"^C\n"
                interrupt_behind = None
            if time.monotonic() > deadline:
                os.killpg(process.pid, signal.SIGKILL)
                raise AssertionError(f"{command!r} did not end; it showed\n{shown.decode()}")
        self._status = process.wait()
        return lines_of(self._there(shown.decode()))


def lines_of(text):
    """The lines of what was shown, without empty ones at both ends."""
    return text.rstrip().lstrip("\n").split("\n") if text.strip() else []


def clone(directory):
    """
    Makes `directory` look like a checkout whose programs are built. What is written in build/board/ stays there; the rest is
    that of this checkout.
    """
    (directory / "build" / "board").mkdir(parents=True)
    for entry in ROOT.iterdir():
        if entry.name != "build":
            (directory / entry.name).symlink_to(entry)
    for entry in (ROOT / "build").iterdir():
        if entry.name != "board":
            (directory / "build" / entry.name).symlink_to(entry)
    # Written there by ./run.
    (directory / "build" / "board" / "firmware.img").symlink_to(ROOT / "build" / "board" / "firmware.img")


def empty(directory):
    """Removes all that lies in it."""
    for entry in directory.iterdir():
        shutil.rmtree(entry) if entry.is_dir() else entry.unlink()



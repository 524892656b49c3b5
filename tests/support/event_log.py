"""Reads the one ordered log of a device root (see event_log.h for how it is written)."""

import errno
import os
import re
import shlex
import struct
from typing import NamedTuple

_ESCAPE = re.compile(r"\\x([0-9a-f]{2})")

# What follows the kind in a line of the log.
_FIELDS = {
    "shell": ["line"],
    "run": ["sigint"],  # then the words of the command line
    "answer": ["rule", "tool"],
    "input": ["tool", "size", "crc32", "data"],
    "exit": ["tool", "status"],
    "ioctl": ["path", "request", "argument", "result"],
    "sleep": ["seconds"],
    "open": ["path", "flags", "result"],
    "write": ["path", "result", "crc32", "data"],
    "read": ["path", "result", "crc32", "data"],
    "select": ["path", "seconds"],
    "tcsetattr": ["path", "action", "iflag", "oflag", "cflag", "lflag", "cc", "result"],
    "tcflush": ["path", "queue", "result"],
    "call": ["call", "subject"],
    "caught": ["call", "subject", "error", "result"],
}


def _unescape(field: str) -> str:
    return _ESCAPE.sub(lambda match: chr(int(match[1], 16)), field)


def join_words(words: list[str]) -> str:
    """A command line as a tool saw it: words joined by blanks, a word quoted only where it could be misread."""
    return " ".join(shlex.quote(word) if not word or re.search(r"[\s'\"\\]", word) else word for word in words)


class NewPartition(NamedTuple):
    """One record of the request that creates partitions."""

    name: str
    size: int
    offset: int
    flags: int


class Event:
    """One line of the log: `time` (monotonic seconds), `pid`, `kind`, and the fields of the kind as attributes."""

    def __init__(self, line: str):
        time, pid, self.kind, *fields = line.split("\t")
        self.time = int(time) / 1e6
        self.pid = int(pid)
        self.fields = [_unescape(field) for field in fields]
        for name, value in zip(_FIELDS[self.kind], self.fields):
            setattr(self, name, value)
        if self.kind == "run":
            self.words = self.fields[1:]
            self.line = join_words(self.words)
        elif self.kind == "ioctl":
            self.request = int(self.request, 16)
            self.argument = bytes.fromhex(self.argument) if len(self.argument) % 2 == 0 else b""
        elif self.kind == "input":
            self.size, self.crc32 = int(self.size), int(self.crc32, 16)
            self.data = self.data.encode("latin-1")
        elif self.kind in ("write", "read"):
            self.crc32, self.data = int(self.crc32, 16), self.data.encode("latin-1")
        elif self.kind in ("sleep", "select"):
            self.seconds = float(self.seconds)
        elif self.kind == "tcsetattr":
            for name in ("iflag", "oflag", "cflag", "lflag"):
                setattr(self, name, int(getattr(self, name), 8))
            self.cc = bytes.fromhex(self.cc)
        elif self.kind == "open":
            self.flags = int(self.flags, 8)

    @property
    def partitions(self) -> list[NewPartition]:
        """The records of a create request (0x40044D17)."""
        records = [struct.unpack_from("32sQQI", self.argument, at) for at in range(0, len(self.argument), 56)]
        return [NewPartition(r[0].split(b"\0")[0].decode(), *r[1:]) for r in records]

    def __str__(self) -> str:
        """Short enough to compare whole sequences: "run /usr/sbin/flash_unlock /dev/mtd2", "sleep 1"."""
        if self.kind in ("run", "shell"):
            return f"{self.kind} {self.line}"
        if self.kind == "ioctl":
            return f"ioctl {self.path} 0x{self.request:08x} {self.argument.hex()} -> {self.result}"
        if self.kind in ("sleep", "select"):
            return f"{self.kind} {self.fields[-1]}"
        if self.kind in ("write", "read"):
            return f"{self.kind} {self.path} {self.result}"
        return " ".join([self.kind, *self.fields])

    __repr__ = __str__


class Events(list):
    """Events in the order in which they happened, and views of them."""

    def __getitem__(self, key):
        return Events(super().__getitem__(key)) if isinstance(key, slice) else super().__getitem__(key)

    def of(self, *kinds: str) -> "Events":
        """Only the events of these kinds."""
        return Events(event for event in self if event.kind in kinds)

    @property
    def ran(self) -> list[str]:
        """The command lines as the tools saw them."""
        return [event.line for event in self.of("run")]

    @property
    def shell_lines(self) -> list[str]:
        """The command lines as the program composed them, redirections and all."""
        return [event.line for event in self.of("shell")]

    @property
    def ioctls(self) -> "Events":
        return self.of("ioctl")

    @property
    def sleeps(self) -> list[float]:
        return [event.seconds for event in self.of("sleep")]

    @property
    def gpio_writes(self) -> list[str]:
        """What was written below /sys/class/gpio: "gpio74/value 1". Fails for a value that does not end in one zero
        byte."""
        writes = []
        for event in self.of("write"):
            if event.path.startswith("/sys/class/gpio/"):
                assert event.data.index(b"\0") == len(event.data) - 1, f"{event.path}: {event.data!r}"
                writes.append(f"{event.path.removeprefix('/sys/class/gpio/')} {event.data[:-1].decode()}")
        return writes

    @property
    def sequence(self) -> list[str]:
        """Tool runs, requests and sleeps as text, in order."""
        return [str(event) for event in self.of("run", "ioctl", "sleep", "write", "select")]


class Log:
    """The log of a device root, read on from where it was read last."""

    LIMIT = 16 << 20  # bytes; nothing is logged beyond (EVENT_LOG_LIMIT)

    def __init__(self, path):
        self._path = path
        self._read_to = 0
        self._events = Events()

    @property
    def events(self) -> Events:
        """Everything so far."""
        with open(self._path, "rb") as log:
            log.seek(self._read_to)
            new, newline, _ = log.read().rpartition(b"\n")
        if newline:
            self._read_to += len(new) + 1
            self._events += [Event(line) for line in new.decode("ascii").split("\n")]
        return Events(self._events)

    @property
    def full(self) -> bool:
        return os.path.getsize(self._path) >= self.LIMIT


def error_number(error) -> int:
    """An errno value from its name or number; None is 0."""
    return error if isinstance(error, int) else getattr(errno, error) if error else 0

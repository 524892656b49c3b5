"""The files that stand for the device: partitions, boot environment, tools and their answers, calls that fail."""

import mmap
import re
import shutil
import struct
import subprocess
from collections.abc import MutableMapping
from pathlib import Path

from event_log import Events, Log, error_number

# Layout of control.h.
_HEAD = struct.Struct("d 512s")
_RULE = struct.Struct("16s160sqqqqiI256s")
_RULES = 32
_TALLY_AT = _HEAD.size + _RULES * _RULE.size + 16
_FIRED = struct.Struct("q")
_FIRED_AT = 16 + 160 + 8 + 8


class Partition:
    """A line of /proc/mtd and the node file behind it."""

    def __init__(self, root: "DeviceRoot", number: int, size: int, erase_size: int, name: str):
        self.root, self.number, self.size, self.erase_size, self.name = root, number, size, erase_size, name
        self.node = f"/dev/mtd{number}"
        self.file = root.path(self.node)

    def read(self, offset: int = 0, size: int | None = None) -> bytes:
        with open(self.file, "rb") as node:
            node.seek(offset)
            return node.read(self.size - offset if size is None else size)

    def write(self, data: bytes, offset: int = 0) -> None:
        with open(self.file, "r+b") as node:
            node.seek(offset)
            node.write(data)

    def fill(self, byte: int = 0xFF) -> None:
        """Fills the partition, by default as an erase does."""
        self.write(bytes([byte]) * self.size)

    @property
    def erased(self) -> bool:
        return self.read().count(0xFF) == self.size

    def mark_bad(self, offset: int) -> None:
        """Makes the erase block at `offset` a bad one."""
        with open(self.root.path("/.harness/bad_blocks"), "a", encoding="ascii") as blocks:
            blocks.write(f"{self.number} {offset}\n")

    def __repr__(self) -> str:
        return f"<{self.node} {self.name} {self.size:#x}>"


class Environment(MutableMapping):
    """The boot environment behind fw_printenv and fw_setenv."""

    def __init__(self, file: Path):
        self._file = file

    def _load(self) -> dict[str, str]:
        lines = self._file.read_text(encoding="latin-1").splitlines()
        return dict(line.split("=", 1) for line in lines)

    def _store(self, values: dict[str, str]) -> None:
        self._file.write_text("".join(f"{name}={value}\n" for name, value in values.items()), encoding="latin-1")

    def __getitem__(self, name):
        return self._load()[name]

    def __setitem__(self, name, value):
        self._store({**self._load(), name: value})

    def __delitem__(self, name):
        values = self._load()
        del values[name]
        self._store(values)

    def __iter__(self):
        return iter(self._load())

    def __len__(self):
        return len(self._load())

    def __repr__(self):
        return repr(self._load())


class DeviceRoot:
    """A fresh device root below `directory`, made by the helper programs in `tools` (build/PRESET/tests)."""

    def __init__(self, directory: Path, tools: Path):
        self.directory = directory
        self._enter_root = tools / "enter_root"
        subprocess.run([self._enter_root, "make", directory], check=True)
        self.log = Log(self.path("/.harness/log"))
        self.env = Environment(self.path("/.harness/env"))
        self._answers: dict[tuple, str] = {}
        self._expected_rules: dict[str, str] = {}
        self._expected_calls: dict[int, str] = {}
        self._next_call = 0
        with open(self.path("/.harness/control"), "r+b") as control:
            self._control = mmap.mmap(control.fileno(), 0)
        self._mark = 0

    # ------------------------------------------------------------------ files

    def path(self, name: str) -> Path:
        """Where a path of the device lies on the host: dev.path("/tmp/image.rom").exists()."""
        return self.directory / name.lstrip("/")

    def remove(self, *names: str) -> None:
        """Takes files or tools away, before or during a session."""
        for name in names:
            self.path(name).unlink()

    def remove_tools(self) -> None:
        """Takes all tools away; only the shell stays."""
        for directory in ("bin", "sbin", "usr/bin", "usr/sbin"):
            for tool in (self.directory / directory).iterdir():
                if tool.name != "sh":
                    tool.unlink()

    def cmdline(self, text: str) -> None:
        """Sets the kernel command line, without its newline."""
        self.path("/proc/cmdline").write_text(text + "\n", encoding="latin-1")

    @property
    def partitions(self) -> list[Partition]:
        """The partitions as /proc/mtd lists them now."""
        lines = self.path("/proc/mtd").read_text(encoding="ascii")
        found = re.findall(r'^mtd(\d+): ([0-9a-f]+) ([0-9a-f]+) "(.*)"$', lines, re.MULTILINE)
        return [Partition(self, int(n), int(size, 16), int(erase, 16), name) for n, size, erase, name in found]

    def partition(self, name: str) -> Partition:
        """The partition of that very name."""
        return next(p for p in self.partitions if p.name == name)

    def set_partitions(self, *rows: tuple[str, int, int]) -> None:
        """Replaces /proc/mtd and the node files: rows of name, size, erase size, numbered from 0."""
        for partition in self.partitions:
            partition.file.unlink()
        text = "dev:    size   erasesize  name\n"
        for number, (name, size, erase_size) in enumerate(rows):
            text += f'mtd{number}: {size:08x} {erase_size:08x} "{name}"\n'
            with open(self.path(f"/dev/mtd{number}"), "wb") as node:
                node.truncate(size)
        self.path("/proc/mtd").write_text(text, encoding="ascii")

    def use_ubi(self) -> None:
        """Puts the UBI partition into use, in the dual schema, with the busybox of a root file system where it is mounted."""
        self.partition("ubi0").fill()
        self.partition("ubi0").write(b"UBI#")
        for volume, lebs in enumerate((8, 8, 1)):
            directory = self.path(f"/sys/class/ubi/ubi0/ubi0_{volume}")
            directory.mkdir(parents=True)
            (directory / "reserved_ebs").write_text(f"{lebs}\n")
        self.path("/sys/class/ubi/ubi0/avail_eraseblocks").write_text("0\n")
        self.path("/mnt/bin").mkdir(parents=True)
        self.path("/mnt/bin/busybox").write_text("busybox")

    # ------------------------------------------------------------------ answers of tools

    def answer(self, tool: str, *, when: str = "", times: int = 0, after: int = 0, status: int = 0, stdout: bytes | str = b"",
               stderr: bytes | str = b"", signal: int = 0, delay: float = 0, hold: float = 0,
               reads: int | None = None, piece: int = 0, pause: float = 0, acts: bool = False,
               held: str = "", optional: bool = False) -> None:
        """Says how a tool (its name without the directory) answers from now on, instead of doing anything.

        when      only runs whose command line contains this text
        times     only so many runs; then the next answer counts. Answers for a number of times are used up in the
                  order given and come before lasting ones; of lasting ones, those with `when` come first, and a
                  later one replaces an earlier one with the same `when`
        after     so many such runs get no answer of this one first
        status    exit status; signal: the signal by which the tool dies instead
        stdout, stderr   what it prints; piece and pause: in pieces of so many bytes, so many seconds apart
        delay     seconds before it does anything; hold: seconds between printing and its end
        reads     bytes it takes from a pipe on its standard input, None = all
        acts      also do what the tool does without an answer
        held      wait for release(): at the "begin" before it does anything, at the "end" when it has printed
        optional  the test does not fail when the answer is never used
        """
        order = f"1-{len(self._answers):04}" if times else f"2-{len(self._answers):04}" if when else "3"
        name = self._answers.setdefault((tool, when, len(self._answers) + 1 if times else 0), order)
        directory = self.path(f"/.harness/answers/{tool}")
        directory.mkdir(exist_ok=True)
        for ending, data in (("out", stdout), ("err", stderr)):
            raw = data.encode("latin-1") if isinstance(data, str) else data
            (directory / f"{name}.{ending}").write_bytes(raw)
        if held:
            (directory / f"{name}.{held}").touch()
        keys = {"when": when, "times": times, "after": after, "status": status, "signal": int(signal), "delay": round(delay * 1000),
                "hold": round(hold * 1000), "reads": -1 if reads is None else reads, "piece": piece,
                "pause": round(pause * 1000), "acts": int(acts)}
        fresh = directory / "fresh"
        fresh.write_text("".join(f"{key}={value}\n" for key, value in keys.items()), encoding="latin-1")
        fresh.rename(directory / f"{name}.rule")
        self._expected_rules.pop(f"{tool} {name}", None)
        if not optional:
            self._expected_rules[f"{tool} {name}"] = f"answer({tool!r}, when={when!r})"

    def release(self, tool: str) -> None:
        """Lets the held answers of a tool go on."""
        for where in "begin", "end":
            for file in self.path(f"/.harness/answers/{tool}").glob(f"*.{where}"):
                file.unlink()

    # ------------------------------------------------------------------ calls that fail, requests that are answered

    def fail_call(self, call: str, match: str | int = "", *, error: str | int | None = "EIO", result: int = -1,
                  after: int = 0, times: int = -1, optional: bool = False) -> None:
        """Makes a C library call of the program fail with `error`, returning `result`.

        call      open fopen fdopen close dup2 fcntl read write fgets fwrite lseek select poll fork waitpid kill posix_spawn
                  pipe malloc realloc mmap access unlink stat lstat fstat statfs tcgetattr tcsetattr tcflush socket
                  sigaction; ioctl with its path and number
        match     only calls whose path (also of a descriptor) or command line contains this text; for malloc and
                  mmap the exact size, for sigaction the exact signal number, for waitpid "program" or "reader"; behind "="
                  the whole of it
        after     so many matching calls succeed first; times: so many fail then, -1 = all
        error     None: no error. read and write then move at most `result` bytes (0: nothing, the end of input),
                  other calls are skipped and return `result`; select with 0 times out at once; the child of
                  fork is sent the signal `result` before it does anything
        optional  the test does not fail when the call never comes
        """
        self._add_rule(call, match, error, result, after, times, b"", optional)

    def answer_ioctl(self, request: int, path: str = "", *, result: int = 0, error: str | int | None = None,
                     data: bytes = b"", after: int = 0, times: int = -1, optional: bool = False) -> None:
        """Answers a request instead of the kernel: stores `data` through its argument, returns `result` or fails
        with `error`. Sockets have the path "socket"."""
        self._add_rule("ioctl", f"{path} 0x{request:08x}".strip(), error, -1 if error else result, after, times, data,
                       optional)

    def _add_rule(self, call, match, error, result, after, times, data, optional) -> None:
        slot = self._next_call
        if slot == _RULES:
            raise ValueError("too many rules for calls")
        self._next_call += 1
        record = _RULE.pack(b"", str(match).encode(), after, times, 0, result, error_number(error), len(data), data)
        at = _HEAD.size + slot * _RULE.size
        self._control[at + 16:at + _RULE.size] = record[16:]
        self._control[at:at + 16] = call.encode().ljust(16, b"\0")  # last: it makes the rule live
        if not optional:
            self._expected_calls[slot] = f"{call} {match}"

    def drop_rules(self) -> None:
        """Lets every call and request work again."""
        for slot in range(self._next_call):
            at = _HEAD.size + slot * _RULE.size
            self._control[at:at + 16] = bytes(16)

    def unused(self) -> list[str]:
        """Answers and failing calls that never came to use."""
        used = {f"{event.tool} {event.rule}" for event in self.all_events.of("answer")}
        answers = [text for rule, text in self._expected_rules.items() if rule not in used]
        calls = [text for slot, text in self._expected_calls.items()
                 if _FIRED.unpack_from(self._control, _HEAD.size + slot * _RULE.size + _FIRED_AT)[0] == 0]
        return answers + calls

    # ------------------------------------------------------------------ knobs

    @property
    def sleep_scale(self) -> float:
        """Real seconds per second that the program sleeps; 0.01 unless changed."""
        return _HEAD.unpack_from(self._control)[0]

    @sleep_scale.setter
    def sleep_scale(self, scale: float) -> None:
        struct.pack_into("d", self._control, 0, scale)

    def tally(self, on: bool = True) -> None:
        """Also logs every call that fail_call() could make fail, as "call" events."""
        struct.pack_into("Q", self._control, _TALLY_AT, on)

    def trace(self, *prefixes: str) -> None:
        """Also logs open, read and write of paths that begin so ("/dev/mtd"), or the calls of "select"."""
        for slot, prefix in enumerate(prefixes):
            struct.pack_into("64s", self._control, 8 + 64 * slot, prefix.encode())

    # ------------------------------------------------------------------ what happened

    @property
    def all_events(self) -> Events:
        """Everything from the start of the program on."""
        return self.log.events

    @property
    def events(self) -> Events:
        """What happened since the last mark()."""
        return Events(self.all_events[self._mark:])

    def mark(self) -> None:
        """Forgets what happened so far: ran, ioctls, ... begin here."""
        self._mark = len(self.all_events)

    @property
    def ran(self) -> list[str]:
        return self.events.ran

    @property
    def shell_lines(self) -> list[str]:
        return self.events.shell_lines

    @property
    def ioctls(self) -> Events:
        return self.events.ioctls

    @property
    def sleeps(self) -> list[float]:
        return self.events.sleeps

    @property
    def sequence(self) -> list[str]:
        return self.events.sequence

    # ------------------------------------------------------------------ running a program inside

    def enter(self, program: list[str], *, binds: dict[str, str], env: dict[str, str],
              terminal: str, untidy: bool = False) -> subprocess.Popen:
        """Starts a program inside; `binds` maps paths of the root to files of the host, `terminal` is the path of the
        root that its standard descriptors are on. An `untidy` parent leaves it signals ignored and blocked, and
        descriptors that do not wait."""
        options = [word for path, source in binds.items() for word in ("-b", f"{source}:{path}")]
        options += ["-u"] * untidy
        command = [self._enter_root, "run", self.directory, *options, "-t", terminal, "--", *program]
        return subprocess.Popen(command, stdin=subprocess.DEVNULL, env=env, start_new_session=True)

    def discard(self) -> None:
        """Removes the root from the host."""
        self._control.close()
        shutil.rmtree(self.directory)

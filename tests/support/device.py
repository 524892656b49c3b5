"""A session with the program on a device of its own: type, read the screen, and see what the device was asked to do.

    def test_...(dev):
        dev.boot()
        dev.type("flash download serial 2")
        dev.expect("Begin serial download...\\n")
        dev.send_stream(image)
        assert dev.text_until_prompt() == "..."
        dev.expect_ran("/usr/sbin/flash_unlock /dev/mtd2", "/usr/sbin/flash_lock /dev/mtd2 0 -1")

Text and bytes: where a test gives or gets str, line ends are "\\n" as the program wrote them; bytes are raw, with the
"\\r\\n" that the console port makes of them.
"""

import os
import re
import time
from pathlib import Path

from device_root import DeviceRoot
from event_log import Events
from serial_ports import SerialPort, SerialPorts, Timeout

PROMPT = b"CLI> "
BANNER = "Zentavio Solvantra Recovery Loader v3.1.0.0R1 ("
ENTER = b"\r"
TIMEOUT = 60  # seconds; generous, for a machine that runs many tests at once, and for the emulator


def onlcr(text: str) -> bytes:
    """The raw bytes that the console port sends for a text."""
    return text.encode("latin-1").replace(b"\n", b"\r\n")


def plain(raw: bytes) -> str:
    """The text that the program wrote for these raw bytes of the console port."""
    return raw.decode("latin-1").replace("\r\n", "\n")


class Device(DeviceRoot):
    """A device root with serial ports ttyS0 to ttyS2, a boot console, and the program to run on it.

    Before start() or boot(): set the stage with answer(), env, partition(), cmdline(), remove(), remove_port().
    """

    def __init__(self, directory: Path, build: Path, program: Path):
        super().__init__(directory, build / "tests")
        self._build, self._program = build, program
        self._ports = SerialPorts("ttyS0", "ttyS1", "ttyS2", "console")
        self._present = ["ttyS0", "ttyS1", "ttyS2"]
        self._other_binds = {}
        self._process = None
        self._console = None
        self.starts_expected = 0
        self._start_events = 0
        self.unknown_command_expected = False
        self.death_expected = False
        self.unused_rules_expected = False

    # ------------------------------------------------------------------ ports

    def port(self, number: int) -> SerialPort:
        """The test's end of /dev/ttyS<number>."""
        return self._ports[f"ttyS{number}"]

    @property
    def boot_console(self) -> SerialPort:
        """Standard input, output and error of the program at its start (/dev/console)."""
        return self._ports["console"]

    @property
    def console(self) -> SerialPort:
        """The port that the kernel command line makes the console; ttyS1 without one, the boot console where that
        port is absent. `dev.console = dev.port(0)` after the session has moved it."""
        if self._console is None:
            cmdline = self.path("/proc/cmdline")
            found = re.search(r"cli_console=ttyS(\d+),\d+", cmdline.read_text() if cmdline.exists() else "")
            name = f"ttyS{found[1]}" if found else "ttyS1"
            self._console = self._ports[name] if name in self._present else self.boot_console
        return self._console

    @console.setter
    def console(self, port: SerialPort) -> None:
        self._console = port

    def remove_port(self, *numbers: int) -> None:
        """The device has no /dev/ttyS<number>; call it before the start."""
        for number in numbers:
            self._present.remove(f"ttyS{number}")

    def replace_port(self, number: int, host_path: str) -> None:
        """Something else of the host stands at /dev/ttyS<number>; call it before the start."""
        self.remove_port(number)
        self._other_binds[f"/dev/ttyS{number}"] = host_path

    # ------------------------------------------------------------------ starting and ending

    def start(self) -> None:
        """Starts the program, and does not wait for anything."""
        binds = {f"/dev/{name}": self._ports[name].device for name in [*self._present, "console"]}
        binds |= self._other_binds
        binds["/.harness/build"] = str(self._build)
        if self._build not in self._program.parents:
            binds["/.harness/program"] = str(self._program)
            inside = "/.harness/program"
        else:
            inside = f"/.harness/build/{self._program.relative_to(self._build)}"
        env = {
            "PATH": "/sbin:/bin:/usr/sbin:/usr/bin",
            "LD_PRELOAD": "/.harness/bin/libkernel_stand_in.so",
            "ASAN_OPTIONS": "verify_asan_link_order=0:log_path=/.harness/sanitizer:abort_on_error=0",
            "UBSAN_OPTIONS": "print_stacktrace=1:log_path=/.harness/sanitizer",
            "GCOV_PREFIX": "/.harness/build",
            "GCOV_PREFIX_STRIP": str(len(self._build.parts) - 1),
        }
        self.starts_expected += 1
        self._process = self.enter([inside], binds=binds, env=env, terminal="/dev/console")

    def boot(self) -> str:
        """Starts the program, waits for the first prompt and returns the text before it. The banner stands there
        exactly once. What start-up did is in `startup`; ran, ioctls, ... begin after it."""
        self.start()
        text = self.text_until_prompt()
        assert text.count(BANNER) == 1, f"one banner expected: {text!r}"
        self.mark()
        self._start_events = self._mark
        return text

    @property
    def startup(self) -> Events:
        """What happened between the start and the first prompt."""
        return Events(self.all_events[:self._start_events])

    @property
    def alive(self) -> bool:
        return self._process is not None and self._process.poll() is None

    @property
    def pid(self) -> int:
        """The program's process number on the host."""
        end = time.monotonic() + TIMEOUT
        while self.alive and time.monotonic() < end:
            init = self._only_child(self._process.pid)
            program = init and self._only_child(init)
            if program and Path(f"/proc/{program}/comm").read_text() != "enter_root\n":
                return program
            time.sleep(0.01)
        raise Timeout("the program is not running")

    @staticmethod
    def _only_child(pid: int) -> int | None:
        try:
            children = Path(f"/proc/{pid}/task/{pid}/children").read_text().split()
        except FileNotFoundError:
            return None
        return int(children[0]) if children else None

    def status(self, field: str) -> str:
        """A line of the program's /proc/PID/status: status("SigIgn"), status("VmHWM")."""
        return re.search(rf"^{field}:\s*(.*)$", Path(f"/proc/{self.pid}/status").read_text(), re.MULTILINE)[1]

    def cpu_seconds(self) -> float:
        """Processor time that the program has used."""
        fields = Path(f"/proc/{self.pid}/stat").read_text().rsplit(")", 1)[1].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def ignores(self, signal: int) -> bool:
        """Whether the program ignores this signal."""
        return bool(int(self.status("SigIgn"), 16) >> (signal - 1) & 1)

    def kill(self) -> None:
        """Ends the program and everything it started, at once, as a power cut does. boot() starts it again."""
        if self.alive:
            self._process.terminate()
        if self._process is not None:
            self._process.wait()

    # ------------------------------------------------------------------ typing

    def keys(self, data: bytes | str) -> None:
        """Sends keys to the console as they are."""
        self.console.send(data.encode("latin-1") if isinstance(data, str) else data)

    def type(self, line: str) -> None:
        """Types a line and Enter."""
        self.keys(line.encode("latin-1") + ENTER)

    def interrupt(self) -> None:
        """Ctrl-C."""
        self.keys(b"\x03")

    def command(self, line: str, timeout: float = TIMEOUT) -> str:
        """Types a line, and returns what the program printed between its echo and the next prompt."""
        self.type(line)
        text = self.text_until_prompt(timeout)
        echo = line + "\n"
        assert text.startswith(echo), f"the echo of {line!r} is missing: {text!r}"
        return text[len(echo):]

    def send(self, data: bytes, port: int | None = None, piece: int = 0, pause: float = 0) -> None:
        """Sends bytes into the console port, or another one, at once."""
        (self.console if port is None else self.port(port)).send(data, piece, pause)

    def send_stream(self, data: bytes, port: int | None = None, piece: int = 0, pause: float = 0) -> None:
        """Sends bytes once the program has opened the port for a transfer: bytes before that would be lost, as
        opening empties the port's input queue."""
        target = self.console if port is None else self.port(port)
        self.wait_for("tcflush", f"/dev/{target.name}", "input")
        self.wait_for("tcsetattr", f"/dev/{target.name}")
        target.send(data, piece, pause)

    # ------------------------------------------------------------------ the screen

    @property
    def screen(self) -> bytes:
        """Every raw byte the console port ever showed."""
        return bytes(self.console.received)

    def expect(self, text: str | bytes, timeout: float = TIMEOUT) -> str:
        """Waits for a text on the console, reads up to its end, and returns what stood before it."""
        return plain(self._take_until(onlcr(text) if isinstance(text, str) else text, timeout, repr(text)))

    def expect_quiet(self, seconds: float = 0.1) -> None:
        """Nothing more appears on the console."""
        time.sleep(seconds)
        assert self.console.unread == b"", f"unexpected output: {self.console.unread!r}"

    def screen_until_prompt(self, timeout: float = TIMEOUT) -> bytes:
        """Waits for the next prompt, reads on behind it, and returns the raw bytes before it."""
        return self._take_until(PROMPT, timeout, "the prompt")

    def text_until_prompt(self, timeout: float = TIMEOUT) -> str:
        """The same as text, with "\\n" as the only line end."""
        return plain(self.screen_until_prompt(timeout))

    def screen_of(self, keys: bytes, timeout: float = TIMEOUT) -> bytes:
        """Sends keys and Enter; returns every raw byte up to the next prompt."""
        self.keys(keys + ENTER)
        return self.screen_until_prompt(timeout)

    def _take_until(self, raw: bytes, timeout: float, what: str) -> bytes:
        at = self.console.wait(lambda unread: i if (i := unread.find(raw)) >= 0 else None, timeout,
                               lambda: self.alive, what)
        return self.console.take(at + len(raw))[:at]

    # ------------------------------------------------------------------ what the device was asked to do

    def wait_for(self, kind: str, *fields: str, timeout: float = TIMEOUT):
        """Waits for an event since the last mark() whose first fields are these, and returns it."""
        end = time.monotonic() + timeout
        while True:
            was_alive = self.alive
            for event in self.events.of(kind):
                if event.fields[:len(fields)] == list(fields):
                    return event
            if time.monotonic() > end or not was_alive:
                raise Timeout(f"no event {kind} {' '.join(fields)}; there were: {self.events!r}")
            time.sleep(0.005)

    def wait_ran(self, line: str, timeout: float = TIMEOUT) -> None:
        """Waits until a tool was started with this command line."""
        end = time.monotonic() + timeout
        while line not in self.ran:
            if time.monotonic() > end or not self.alive:
                raise Timeout(f"{line!r} did not run; these did: {self.ran!r}")
            time.sleep(0.005)

    def expect_ran(self, *lines: str) -> None:
        """These command lines ran since the last mark(), in this order; others may stand between them."""
        ran = iter(self.ran)
        for line in lines:
            assert line in ran, f"{line!r} did not run in its place; these did: {self.ran!r}"

    def expect_ran_exactly(self, lines: list[str]) -> None:
        """Exactly these command lines ran since the last mark()."""
        assert self.ran == lines

    def expect_not_ran(self, *tools: str) -> None:
        """None of these tools (by name, without directory) ran since the last mark()."""
        ran = {event.words[0].rsplit("/", 1)[-1] for event in self.events.of("run")}
        assert not ran & set(tools), f"ran: {self.ran!r}"

    # ------------------------------------------------------------------ the end of a test

    def check(self) -> None:
        """What no session may show, whatever the test was about: a dead program, a sanitizer's report, a log that ran
        full, a second start-up (the banner and the notice below it; `version` prints the banner alone), an unknown
        command, an answer or a failing call that the test prepared in vain."""
        screens = {name: plain(bytes(port.received)) for name, port in self._ports.items()}
        if self._process is not None and not self.death_expected:
            assert self.alive, f"the program ended with status {self._process.returncode}; screens: {screens!r}"
        assert not self.log.full, f"the log is full; it ends so: {self.all_events[-5:]!r}"
        reports = [file.read_text() for file in self.path("/.harness").glob("sanitizer*")]
        assert not reports, "\n".join(reports)
        starts = re.findall(rf"^{re.escape(BANNER)}[^\n]*\n([^\n]*)\n", "".join(screens.values()), re.MULTILINE)
        assert starts.count((starts or [""])[0]) <= self.starts_expected, f"a second start-up: {screens!r}"
        for name, screen in screens.items():
            if not self.unknown_command_expected:
                assert "Unknown Command" not in screen, f"{name}: {screen!r}"
        if not self.unused_rules_expected:
            assert not self.unused(), f"never used: {self.unused()!r}"

    def close(self) -> None:
        """Ends everything and leaves nothing behind."""
        self.kill()
        self._ports.close()
        self.discard()

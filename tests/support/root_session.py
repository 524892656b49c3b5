"""A session with the program on a device root of its own: type, read the screen, and see what the device was asked to do.

    def test_...(dev):
        dev.boot()
        assert dev.install(image) == "..."
        dev.expect_ran("/usr/sbin/flash_unlock /dev/mtd2", "/usr/sbin/flash_lock /dev/mtd2 0 -1")
"""

import contextlib
import fcntl
import os
import re
import struct
import termios
import time
from pathlib import Path

from device_root import DeviceRoot
from event_log import Events
from product import model_record, record
from serial_ports import SerialPort, SerialPorts, Timeout
from session import Session, plain

TIOCSRS485 = 0x542F


class RootSession(Session, DeviceRoot):
    """A device root with serial ports ttyS0 to ttyS2, a boot console, and the program to run on it.

    Before start() or boot(): set the stage with answer(), env, partition(), cmdline(), remove(), remove_port(),
    untidy_parent.
    """

    def __init__(self, directory: Path, build: Path, program: Path):
        Session.__init__(self)
        DeviceRoot.__init__(self, directory, build / "tests")
        self._build, self._program = build, program
        self._ports = SerialPorts("ttyS0", "ttyS1", "ttyS2", "console")
        self._present = ["ttyS0", "ttyS1", "ttyS2"]
        self._other_binds = {}
        self._process = None
        self._console = None
        self._start_events = 0
        self.death_expected = False
        self.untidy_parent = False
        self.unused_rules_expected = False

    # ------------------------------------------------------------------ ports

    @property
    def ports(self) -> dict[int, SerialPort]:
        return {number: self._ports[f"ttyS{number}"] for number in range(3)}

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
            # A build that counts what is covered; others take no notice.
            "LLVM_PROFILE_FILE": "/.harness/build/coverage/%m%c.profraw",
            # The same for one that writes down which test it was started by.
            "PYTEST_CURRENT_TEST": os.environ.get("PYTEST_CURRENT_TEST", ""),
        }
        self.starts += 1
        for port in self._ports.values():
            port.alive = lambda: self.alive
        self._process = self.enter([inside], binds=binds, env=env, terminal="/dev/console", untidy=self.untidy_parent)

    def first_prompt(self) -> str:
        """Waits for the first prompt after a start. What start-up did is in `startup`; ran, ioctls, ... begin after it."""
        text = super().first_prompt()
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
        end = time.monotonic() + self.patience
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

    def processor_seconds(self, seconds: float) -> float:
        """Processor time that the program uses in this time. Ends the program: one that runs wild fills the log."""
        before = self.cpu_seconds()
        time.sleep(seconds)
        used = self.cpu_seconds() - before
        self.death_expected = True
        self.kill()
        return used

    def ignores(self, signal: int) -> bool:
        """Whether the program ignores this signal."""
        return bool(int(self.status("SigIgn"), 16) >> (signal - 1) & 1)

    def kill(self) -> None:
        """Ends the program and everything it started, at once, as a power cut does. boot() starts it again."""
        if self.alive:
            self._process.terminate()
        if self._process is not None:
            self._process.wait()

    # ------------------------------------------------------------------ serial transfers

    def begin(self, line: str) -> str:
        """Types a download command and waits for its begin; the judgement of what it did starts here."""
        self.mark()
        return super().begin(line)

    def send(self, data: bytes, port: int | None = None, piece: int = 0, pause: float = 0) -> None:
        """Sends bytes into the console port, or another one, at once."""
        (self.console if port is None else self.port(port)).send(data, piece, pause)

    def wait_receiving(self, port: int | None = None) -> None:
        """Waits until the program has opened the port for a transfer, dropped its stale input, and made it raw: what comes
        before that is changed on its way."""
        path = f"/dev/{(self.console if port is None else self.port(port)).name}"

        def is_raw():
            done = [event.kind for event in self.events.of("tcflush", "tcsetattr") if event.fields[0] == path]
            return "tcflush" in done and "tcsetattr" in done[done.index("tcflush"):]
        self.wait_until(is_raw)

    # ------------------------------------------------------------------ the device as a test meets it

    def hang_up(self, number: int) -> None:
        """The far end of a line is gone. Not of the boot console's line: the test's own thread is woken through it."""
        reading, writing = os.pipe()
        os.dup2(reading, self.port(number).master)
        os.close(reading)
        os.write(self.port(0).slave, b".")  # wakes the thread that still watches the old line
        time.sleep(0.1)
        os.close(writing)

    def terminal(self, number: int) -> tuple:
        """Flags and special characters of a serial port, as the kernel has them."""
        iflag, oflag, cflag, lflag, _, _, cc = termios.tcgetattr(self.port(number).slave)
        return iflag, oflag, cflag, lflag, [c if isinstance(c, int) else c[0] for c in cc]

    def environment(self) -> dict[str, str]:
        """The boot environment behind fw_printenv and fw_setenv."""
        return dict(self.env)

    def give_product(self, *items: tuple[int, bytes]) -> None:
        """Writes a product record into flash, before the start."""
        self.partition("prod_config").write(record(*items))

    def give_model(self, product_id: str, hwcfg: str | None = None) -> None:
        """Makes the device the model of this product ID and hardware configuration, with GPIO lines; before the
        start."""
        self.partition("prod_config").write(model_record(product_id, hwcfg))
        self.make_gpio_lines()

    def make_gpio_lines(self, numbers=range(32, 160)) -> None:
        """Makes the tree below /sys/class/gpio with these lines exported already; what is written there is logged."""
        top = self.path("/sys/class/gpio")
        for name in ("export", "unexport"):
            (top / name).write_text("")
        for number in numbers:
            line = top / f"gpio{number}"
            line.mkdir()
            (line / "direction").write_text("in\n")
            (line / "value").write_text("0\n")
        self.trace("/sys/class/gpio")

    def give_firmware(self) -> None:
        """Nothing boots a device root, so there is nothing to give."""

    def expect_still_boots(self) -> None:
        """Nor is there anything to judge."""

    def expect_flash(self, **partitions: bytes) -> None:
        """The serial flash holds these bytes at the start of these partitions, and what a fresh root has everywhere else."""
        for partition in self.partitions:
            if partition.name != "ubi0":
                expected, found = partitions.get(partition.name, b""), partition.read()
                assert found[:len(expected)] == expected, f"{partition} does not hold what was sent"
                assert not found[len(expected):].strip(b"\0"), f"{partition} holds more than was sent"

    def expect_locked(self) -> None:
        """Whatever was unlocked was locked again."""
        unlocked = set()
        for line in self.all_events.ran:
            tool, node, *_ = line.split() + [""]
            if tool.endswith("flash_unlock"):
                unlocked.add(node)
            elif tool.endswith("flash_lock"):
                unlocked.discard(node)
        assert not unlocked

    @contextlib.contextmanager
    def only_changed(self, *numbers: int):
        """What happens inside touches each of these GPIO lines and no other."""
        begin = len(self.all_events)
        yield
        paths = [event.path.split("/") for event in self.all_events[begin:].of("write")]
        assert {int(path[4].removeprefix("gpio")) for path in paths if path[3:4] == ["gpio"] and len(path) > 5} == set(numbers)

    def refuse_rs485(self) -> None:
        """The ports take no RS-485 from now on, as a UART that knows nothing of it."""
        self.answer_ioctl(TIOCSRS485, error="ENOTTY")

    def level(self, number: int) -> int:
        """What the program last drove the line to, or 0."""
        return int(self.path(f"/sys/class/gpio/gpio{number}/value").read_text()[0])

    def set_level(self, number: int, level: int) -> None:
        """Wires a level to a line from outside."""
        self.path(f"/sys/class/gpio/gpio{number}/value").write_text(f"{level}\n")

    def wait_until(self, condition, timeout: float = Session.patience) -> None:
        """Waits until a condition of the device holds, for what leaves no event."""
        end = time.monotonic() + timeout
        while not condition():
            if time.monotonic() > end or not self.alive:
                raise Timeout("the condition did not come true")
            time.sleep(0.005)

    def wait_typed_ahead(self, count: int) -> None:
        """Waits until this many bytes that the program has not read yet stand in the console's line."""
        self.wait_until(lambda: fcntl.ioctl(self.console.slave, termios.FIONREAD, bytes(4)) == struct.pack("i", count))

    # ------------------------------------------------------------------ what the device was asked to do

    def wait_for(self, kind: str, *fields: str, timeout: float = Session.patience):
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

    def wait_ran(self, line: str, timeout: float = Session.patience) -> None:
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
        """What no session may show, and also no dead program, sanitizer's report, log that ran full, answer or failing
        call that the test prepared in vain."""
        if self._process is not None and not self.death_expected:
            assert self.alive, f"the program ended with status {self._process.returncode}; screens: {self._screens()!r}"
        assert not self.log.full, f"the log is full; it ends so: {self.all_events[-5:]!r}"
        reports = [report for file in self.path("/.harness").glob("sanitizer*") if (report := file.read_text())]
        assert not reports, "\n".join(reports)
        super().check()
        if not self.unused_rules_expected:
            assert not self.unused(), f"never used: {self.unused()!r}"

    def report(self) -> list[tuple[str, str]]:
        """What is shown of a test that failed; the ends, of what may be long."""
        return [("screen", repr(self.console.output[-10000:])),
                ("boot console", repr(self.boot_console.output[-10000:])),
                ("events", "\n".join(map(str, self.all_events[-500:])))]

    def _screens(self) -> dict[int | str, str]:
        return {**super()._screens(), "boot console": plain(self.boot_console.output)}

    def close(self) -> None:
        """Ends everything and leaves nothing behind."""
        self.kill()
        self._ports.close()
        self.discard()

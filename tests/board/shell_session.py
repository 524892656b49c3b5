"""A session with the recovery shell on a virtual board: lines typed, text read, images sent, and the flash judged from
outside.

    assert dev.command("verbose 4") == "verbosity is 4\n"
    assert dev.install(image, "flash download serial 2") == images.info(image) + SUCCESS
    dev.expect_flash(kernel_2=image)
    dev.expect_locked("bootloader")
    assert dev.environment()["bootbank"] == "2"
"""

import os
import time
import zlib
from pathlib import Path

import layout
from virtual_board import Board, BoardError, Timeout

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("BUILD", ROOT / "build" / "arm")).resolve()

PROMPT = "CLI> "
BEGIN = "Begin serial download..."
SUCCESS = "Done: SUCCESS\n"
FAILURE = "Done: FAILURE\n"
NOT_INSTALLED = "ERROR: Failed to write firmware image\n" + FAILURE

# The cores may be busy with other boards and builds: nothing that is expected to come fails for being slow.
PATIENCE = 300.0
# Longest the shell waits for a sender to start, and its settling before and after.
START_SECONDS = 30
IDLE_SECONDS = 3

PARTITIONS = layout.PARTITIONS
NOR = [name for name, row in PARTITIONS.items() if row.chip == "nor"]
PROTECTED = [name for name, row in PARTITIONS.items() if row.locked]
NODES = {name: f"/dev/mtd{number}" for number, name in enumerate(PARTITIONS)}

DEFAULT_ENVIRONMENT = {"bootbank": "1", "bootcmd": "run flashboot", "bootdelay": "3"}
_ERASED = b"\xff"
_NOTICE = b"Copyright (c) "


def plain(data):
    """Bytes of the console as text with "\\n" line ends, a character for each byte."""
    return data.decode("latin-1").replace("\r", "")


class ShellSession:
    """A board and its shell. `console` is the port that the shell is on; `unknown_command_expected` allows a test to type
    what is no command."""

    def __init__(self, directory, **options):
        self.board = Board(directory, BUILD / "recovery-loader", **options)
        self.console = self.board.console
        self.unknown_command_expected = False
        self._boots = 0
        self._pid = None

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        self.board.kill()

    # Power.

    def start(self):
        """Powers up and waits for the first prompt. Returns what the shell showed before it."""
        self.board.start()
        return self.wait_start()

    def restart(self):
        """Cuts the power and starts again."""
        self.board.kill()
        return self.start()

    def reset(self):
        """Has the shell reset the device, and waits for the first prompt. Returns what the shell showed before it."""
        mark = len(self.board.kernel_log.output)
        self.type("reset")
        try:
            self.board.wait_boot(40)
        except Timeout:
            # The reset did its work when another kernel has begun. Emulated without a processor of its own, a boot
            # behind a reset stalls now and then; that is the emulator's, and power helps.
            assert b"Linux version" in self.board.kernel_log.output[mark:], "the device was not reset"
            return self.restart()
        return self.wait_start()

    def wait_start(self):
        """After the machine was started: waits for the first prompt."""
        self.console = self.board.console
        shown = self.text_until_prompt()
        self._boots += 1
        self._pid = self.shell_pid()
        return shown

    def shell_pid(self):
        """The process that is the shell."""
        return self.board.sh("pidof recovery-loader").output.strip()

    def renew(self):
        """Makes the device as good as new without a boot: erased flash, locked partitions, no faults, nothing raised, the
        network down, without addresses, and negotiating."""
        self.board.clear_faults()
        self.board.flash_erase()
        self.board.sh("; ".join(f"flash_lock {NODES[name]} 0 -1" for name in PROTECTED), check=True)
        self.board.console.skip()
        self.board.serial2.skip()
        self.unknown_command_expected = False
        assert self.command("network ethernet stop").endswith(SUCCESS)
        self.board.sh("ip address flush dev eth0 && ip link set eth0 down && ethtool -s eth0 autoneg on", check=True)
        assert self.command("verbose 3") == "verbosity is 3\n"

    def check(self):
        """What holds after every test: one start per boot, the same process all along, nothing that was taken for an
        unknown command, and a shell that answers."""
        assert "Recovery Loader" in self.command("version")
        output = self.board.console.output + self.board.serial2.output
        kernel = self.board.kernel_log.output
        assert output.count(_NOTICE) == self._boots, "the shell was started a second time"
        assert b"init: shell ended" not in kernel, "the shell died"
        assert self.shell_pid() == self._pid, "the shell is another process than at the start"
        if not self.unknown_command_expected:
            assert b"Unknown Command" not in output, "something was typed that nobody meant to type"

    # The console.

    def type(self, line):
        """Types a line and Enter."""
        self.console.send(line + "\r")

    def text_until_prompt(self, timeout=PATIENCE):
        """Reads to the next prompt; returns the text before it."""
        return plain(self.console.expect(PROMPT, timeout=timeout).before)

    def command(self, line, timeout=PATIENCE):
        """Types a line and returns what it showed, without its echo."""
        self.type(line)
        shown = self.text_until_prompt(timeout)
        assert shown.startswith(line + "\n"), f"the echo of {line!r} is missing: {shown!r}"
        return shown.removeprefix(line + "\n")

    def shown_environment(self):
        """The boot environment as the shell shows it."""
        lines = self.command("show bootenv").splitlines()
        return dict(line.split("=", 1) for line in lines if line != "Cannot read environment, using default")

    # Serial transfers.

    def begin(self, line, port=1):
        """Types a download command and waits until the shell listens; returns what it showed before "Begin ..."."""
        self.type(line)
        before = plain(self.console.expect(BEGIN, timeout=PATIENCE).before)
        self.board.wait_receiving(self.port(port), PATIENCE)
        return before.removeprefix(line + "\n")

    def text_after_transfer(self, timeout=PATIENCE):
        """Reads from "Begin ..." to the next prompt; returns what was shown between."""
        shown = self.text_until_prompt(timeout)
        assert shown.startswith("\n"), f"more than a line end came behind {BEGIN!r}: {shown!r}"
        return shown[1:]

    def terminal(self, number):
        """Flags and special characters of a serial port, as the kernel has them."""
        iflag, oflag, cflag, lflag, *cc = (
            int(field, 16) for field in self.board.sh(f"stty -F /dev/ttyS{number} -g", check=True).output.split(":"))
        return iflag, oflag, cflag, lflag, cc

    def port(self, number):
        """The host's end of serial port 1 (where the console is at the start) or 2."""
        return {1: self.board.console, 2: self.board.serial2}[number]

    def install(self, data, line="flash download serial 2", port=1, timeout=PATIENCE):
        """A whole serial transfer; returns what was shown after "Begin ..."."""
        self.begin(line, port)
        self.port(port).send_paced(data)
        return self.text_after_transfer(timeout)

    def send_until_off(self, data):
        """Sends to the console; the power goes before the installation has ended."""
        try:
            self.board.console.send_paced(data)
        except BoardError:
            pass
        self.board.wait_off(PATIENCE)

    # The device, judged from outside.

    def wait_operation(self, operation, partition, after, timeout=PATIENCE):
        """Waits until the flash has seen more than `after` of these operations since power-up."""
        deadline = time.monotonic() + timeout
        while self.board.flash_operations()[partition][operation] <= after:
            assert time.monotonic() < deadline, f"no {operation} of {partition}"
            time.sleep(0.02)

    def flash(self, name):
        """A partition without the erased bytes at its end."""
        return self.board.flash_read(name).rstrip(_ERASED)

    def expect_flash(self, **partitions):
        """The serial flash holds these bytes at the start of these partitions and is erased everywhere else; what the
        boot environment holds is not looked at."""
        for name in NOR:
            if name == "bootenv_1" and name not in partitions:
                continue
            expected, found = partitions.get(name, b""), self.board.flash_read(name)
            assert found[:len(expected)] == expected, f"{name} does not hold what was sent"
            assert not found[len(expected):].strip(_ERASED), f"{name} holds more than was sent"

    def environment(self):
        """The boot environment as the boot loader would read it: its defaults when the checksum is wrong."""
        data = self.board.flash_read("bootenv_1")
        if int.from_bytes(data[:4], "little") != zlib.crc32(data[4:]):
            return dict(DEFAULT_ENVIRONMENT)
        variables = data[4:].split(b"\0\0")[0].decode()
        return dict(variable.split("=", 1) for variable in variables.split("\0"))

    def is_locked(self, name):
        """Whether a partition refuses to be written: the flash is asked, and a write is tried that would clear bits."""
        asked = "status: locked" in self.board.sh(f"flash_lock --islocked {NODES[name]}").output
        before = self.board.flash_read(name)
        tried = self.board.sh(f"printf '\\0\\0' | dd of={NODES[name]} bs=1 seek={len(before) - 2} conv=notrunc")
        changed = self.board.flash_read(name) != before
        if changed:
            self.board.flash_write(name, before[-2:], len(before) - 2)
        assert asked == (tried.status != 0) == (not changed), f"{name}: {asked=}, {changed=}, {tried}"
        return asked

    def expect_locked(self, *names):
        """All of these partitions, or all protected ones, refuse to be written."""
        for name in names or PROTECTED:
            assert self.is_locked(name), f"{name} can be written"

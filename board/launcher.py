"""What ./run starts: a board on this terminal, its lines for other programs, and the demonstration."""

import argparse
import contextlib
import hashlib
import os
import pathlib
import re
import selectors
import signal
import struct
import subprocess
import sys
import tempfile
import termios
import time
import tty

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))

import artefacts  # noqa: E402
import recovery_system  # noqa: E402
from firmware_images import Firmware  # noqa: E402
from flow_control import send_as_taken  # noqa: E402
from line_socket import LineSocket  # noqa: E402
from virtual_board import SHELL_PATH, Board, BoardError  # noqa: E402

ROOT = artefacts.ROOT
PROGRAM = ROOT / "build" / "arm" / "recovery-loader"
KESTO = ROOT / "build" / "release" / "kesto"
STATE = artefacts.BUILD / "state"
SAMPLE = artefacts.BUILD / "firmware.img"

PROMPT = "CLI> "
BEGIN = b"Begin serial download..."
# Seconds for what is expected to come: other work may keep the processors busy.
PATIENCE = 600
WAY_OUT = 0x1D  # Ctrl-]
# The lines of the board in the directory of its flash.
LINES = {1: "ttyS1", 2: "ttyS2"}
# Of the recovery system that the factory laid into the flash, see _factory().
LAID = "recovery.sum"
LOADER_BEGINS, LOADER_ENDS = b"\nU-Boot ", b"\nStarting kernel ..."


def sample():
    """The firmware that is installed: its kernel is packed as short as it gets, for it goes over a serial line."""
    return Firmware("4.1.0.0R1", small=True)


# The board on this terminal.


@contextlib.contextmanager
def _raw_terminal():
    """Passes every key through, Ctrl-C too, and puts the terminal back on every way out."""
    if not sys.stdin.isatty():
        yield
        return
    before = termios.tcgetattr(sys.stdin)
    try:
        tty.setraw(sys.stdin, termios.TCSANOW)
        yield
    finally:
        termios.tcsetattr(sys.stdin, termios.TCSADRAIN, before)


def _write_all(data):
    while data:
        data = data[os.write(sys.stdout.fileno(), data):]


class _Screen:
    """
    What a person at the device sees on one terminal: the boot loader's line until it has started a kernel, the console port
    after that. The kernel's own messages are in kernel.log. `write` takes bytes.
    """

    def __init__(self, board, write):
        self._board, self._write = board, write
        self._before = b""  # the end of what came, in which a mark may have begun
        self.port = board.kernel_log
        board.kernel_log.listeners.append(self._loader)
        board.console.listeners.append(write)

    def _loader(self, data):
        """Shows what comes up to the start of a kernel, and what comes after the next start of the boot loader."""
        while data:
            loads = self.port is self._board.kernel_log
            mark = LOADER_ENDS if loads else LOADER_BEGINS
            known, came = len(self._before), self._before + data
            at = came.find(mark)
            if at < 0:
                self._before = came[1 - len(mark):]
                if loads:
                    self._write(data)
                return
            self._before = b""
            if loads:
                end = at + len(mark)
                self._write(came[known:end] + b"\r\n\r\n")
                self.port, data = self._board.console, came[end:]
            else:
                self.port, data = self._board.kernel_log, came[at:]

    def shows_the_shell(self):
        """Whether it is the recovery system that runs: the others have nothing to write back, and nobody who would."""
        shown = self._board.console.output
        return self.port is self._board.console and shown.rfind(PROMPT.encode()) > shown.rfind(b"\nFirmware ")


def _hand_over(board, screen, console):
    """Passes keys to where the screen comes from until the way out is taken or the machine ends. Returns which."""
    keys = selectors.DefaultSelector()
    keys.register(sys.stdin, selectors.EVENT_READ)
    while board.running:
        for _ in keys.select(0.2):
            data = os.read(sys.stdin.fileno(), 4096)
            if not data:
                board.console.read_until_quiet(2.0, timeout=3600.0)
                return "end of input"
            if sys.stdin.isatty() and WAY_OUT in data:
                return "left"
            # A key would become part of the image.
            if not console.is_transferring:
                screen.port.send(data)
    return "the machine ended"


def _factory(board):
    """
    Lays the recovery system into the flash of a device that has none. One that the factory laid there and that is still
    there gives way to a newer one: whoever changes the shell finds it on the board.
    """
    new = recovery_system.image({SHELL_PATH: PROGRAM}, {})
    note = board.directory / LAID
    there = board.flash_read("config_loader")
    ours = note.exists() and note.read_text(encoding="ascii") == hashlib.sha256(there).hexdigest()
    if ours or not there.strip(b"\xff"):
        board.factory_setup()
        note.write_text(hashlib.sha256(new.ljust(len(there), b"\xff")).hexdigest(), encoding="ascii")


def interactive(options):
    """./run: boots and hands the terminal over."""
    SAMPLE.write_bytes(sample().image("tar"))
    with Board(options.state, PROGRAM, nand=options.nand, cmdline=options.cmdline, tftp=options.tftp,
               boot_loader=True) as board:
        if options.fresh:
            board.fresh_flash()
        _factory(board)
        print(_instructions(options), flush=True)
        screen = _Screen(board, _write_all)
        with _raw_terminal(), contextlib.ExitStack() as lines:
            board.start(wait=False)
            console = lines.enter_context(LineSocket(board, 1, options.state / LINES[1]))
            lines.enter_context(LineSocket(board, 2, options.state / LINES[2]))
            if not sys.stdin.isatty():
                # A script's lines are meant for what is started, not for the boot loader.
                board.console.expect(PROMPT, "> ", timeout=PATIENCE)
            why = _hand_over(board, screen, console)
        print(f"\n[board off: {why}]")
        if screen.shows_the_shell():
            board.stop()
    return 0


def _instructions(options):
    console = os.path.relpath(options.state / LINES[1])
    kesto = os.path.relpath(KESTO)
    return f"""Power on. This terminal shows the boot loader first, then the console of what it starts.

  Stop in the boot loader:               any key at once; its `boot` goes on
  Leave (switches the board off):        Ctrl-]
  Interrupt a command:                   Ctrl-C goes to the shell
  Install firmware into bank 2 and boot it, from a second terminal:
      {kesto} install --port unix:{console} {os.path.relpath(SAMPLE)} --bank 2 --erase --boot
  The second serial line:                --data-port unix:{os.path.relpath(options.state / LINES[2])} --data-number 2

Flash is kept in {options.state}; ./run --fresh starts with a device as it leaves the factory.
"""


# The demonstration.


class _Wrong(Exception):
    """The device did something else than it should."""


def demo(options):
    """./run --demo: firmware is installed and booted, then a damaged image is tried; shown as a transcript; 0 when right."""
    failure = None
    with tempfile.TemporaryDirectory() as directory:
        with Board(pathlib.Path(directory) / "board", PROGRAM, nand=options.nand, cmdline=options.cmdline,
                   boot_loader=True) as board:
            _Screen(board, lambda data: _write_all(data.replace(b"\r", b"")))
            try:
                _demonstrate(board)
            except (BoardError, _Wrong) as error:
                failure = str(error)
    if failure:
        print(f"\n[FAILED: {failure}]")
    print("\n[demonstration: " + ("FAILED]" if failure else "all as it should be]"))
    return 1 if failure else 0


def _demonstrate(board):
    firmware = sample()
    image = firmware.image("tar")
    damaged = bytearray(firmware.image("tar", kernel=False))
    damaged[len(damaged) // 2] ^= 1
    _note(f"firmware {firmware.version}: an image of {len(image)} bytes; the device has left the factory with empty banks")
    board.factory_setup()
    started = time.monotonic()
    _note("power on")
    board.start(timeout=PATIENCE)
    board.console.expect(PROMPT, timeout=PATIENCE)
    _note(f"prompt after {time.monotonic() - started:.1f} s; kesto installs the firmware into bank 2, over this very line")
    _install_by_kesto(board, image)
    _compare(board, image)
    _reset(board, firmware)
    board.console.send("shell\r")
    board.wait_boot(PATIENCE)
    board.console.expect(PROMPT, timeout=PATIENCE)
    _note("now a damaged image, into the other bank; kesto would not send it, a terminal program does")
    _install(board, bytes(damaged), 1, b"FAILURE")
    _type(board, "set bootenv bootcmd run flashboot")
    _reset(board, firmware)


def _type(board, line):
    board.console.send(line + "\r")
    board.console.expect(PROMPT, timeout=PATIENCE)


def _install_by_kesto(board, image):
    began = time.monotonic()
    file = board.directory / "firmware.img"
    file.write_bytes(image)
    with LineSocket(board, 1, board.directory / LINES[1]) as line:
        done = subprocess.run([KESTO, "install", "--port", f"unix:{line.path}", file, "--bank", "2", "--erase", "--yes",
                               "--check", "--limit", str(PATIENCE)], stdin=subprocess.DEVNULL, check=False)
    board.console.skip()
    if done.returncode:
        raise _Wrong(f"kesto ended with status {done.returncode}")
    _note(f"that took {time.monotonic() - began:.0f} s")


def _install(board, image, bank, wanted):
    began = time.monotonic()
    board.console.send(f"flash download serial {bank}\r")
    board.console.expect(BEGIN, timeout=PATIENCE)
    board.wait_receiving(timeout=PATIENCE)
    send_as_taken(board, image)
    said = board.console.expect("Done: ", timeout=PATIENCE).before
    result = board.console.expect("\n", timeout=PATIENCE).before.strip()
    board.console.expect(PROMPT, timeout=PATIENCE)
    if result != wanted:
        raise _Wrong(f"the shell said {said[-200:]!r}, Done: {result!r}")
    _note(f"that took {time.monotonic() - began:.0f} s")


def _reset(board, firmware):
    """Has the shell reset the device, and expects the firmware in bank 2."""
    board.console.send("reset\r")
    found = board.console.expect(re.compile(rb"Firmware [^\n]*\n"), PROMPT, timeout=PATIENCE)
    if found.index or found.group(0).decode().strip() != firmware.report("2"):
        raise _Wrong("bank 2 did not come up")
    board.console.expect("\n> ", timeout=PATIENCE)


def _note(text):
    """Something in the transcript that the device did not say."""
    print(f"\n[{text}]", flush=True)


def _checksum(data):
    """The image format's checksum, computed here and not by code that the device and kesto share."""
    data += b"\0" * (-len(data) % 4)
    total = sum(struct.unpack(f">{len(data) // 4}I", data))
    while total >> 32:
        total = (total >> 32) + (total & 0xFFFFFFFF)
    return ~total & 0xFFFFFFFF


def _sums_hold(part):
    """Whether both checksums of a part, its header's and its contents', are right."""
    header, contents = part[:256], part[256:]
    in_header, in_contents = struct.unpack_from(">I", header, 16)[0], struct.unpack_from(">I", header, 52)[0]
    return in_header == _checksum(header[:16] + bytes(4) + header[20:]) and in_contents == _checksum(contents)


def _compare(board, image):
    """The kernel in flash, read from outside, against the image, whose first part it is; and what the environment says."""
    length = struct.unpack_from(">I", image, 40)[0]
    part = image[:256 + length]
    flash = board.flash_read("kernel_2")
    if flash != part.ljust(len(flash), b"\xff"):
        raise _Wrong("kernel_2 does not hold what was sent")
    if not _sums_hold(part):
        raise _Wrong("the checksums of the kernel part are wrong")
    found = {name: board.sh(f"fw_printenv -n {name}").output.strip() for name in ("bootbank", "kernel_size_2")}
    if found != {"bootbank": "2", "kernel_size_2": f"{length:X}"}:
        raise _Wrong(f"the boot environment says {found}")
    _note(f"kernel_2, read from outside, is what was sent; bootbank=2, kernel_size_2={length:X}")


def _arguments():
    parser = argparse.ArgumentParser(prog="./run", description="Boots the virtual board and hands its console over.")
    parser.add_argument("--state", type=pathlib.Path, default=STATE, help="directory of the flash files")
    parser.add_argument("--fresh", action="store_true", help="start with a new device: erased flash")
    parser.add_argument("--nand", choices=("128k", "16k"), default="128k", help="erase block size of the NAND flash")
    parser.add_argument("--tftp", type=pathlib.Path, help="directory offered by TFTP at 10.0.2.2")
    parser.add_argument("--cmdline", default="", help="more words for the kernel command line")
    parser.add_argument("--demo", action="store_true", help="install firmware and boot it, without a person; true when it worked")
    options = parser.parse_args()
    options.state = options.state.resolve()
    return options


def _stop_on_signals():
    """A signal ends the launcher through its context managers: terminal restored, machine off."""
    def stop(number, _frame):
        raise SystemExit(128 + number)
    for number in (signal.SIGTERM, signal.SIGHUP, signal.SIGINT):
        signal.signal(number, stop)


def main():
    """Returns the exit status."""
    options = _arguments()
    _stop_on_signals()
    try:
        return demo(options) if options.demo else interactive(options)
    except (BoardError, artefacts.SetupError, subprocess.CalledProcessError, OSError) as error:
        print(f"run: {error}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main())

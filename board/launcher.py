"""What ./run starts: a board on this terminal, the sender for a second terminal, and the demonstration."""

import argparse
import contextlib
import json
import os
import pathlib
import selectors
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import termios
import threading
import time
import tty

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))

import artefacts  # noqa: E402
import virtual_board  # noqa: E402
from virtual_board import Board, BoardError, Timeout  # noqa: E402

ROOT = artefacts.ROOT
PROGRAM = ROOT / "build" / "arm" / "recovery-loader"
KESTO = ROOT / "build" / "release" / "kesto"
STATE = artefacts.BUILD / "state"
SAMPLE = artefacts.BUILD / "sample.img"

PROMPT = "CLI> "
BEGIN = b"Begin serial download..."
# The shell gives up this many seconds after it said so.
BEGIN_VALID = 30
WAY_OUT = 0x1D  # Ctrl-]
CONTROL = "control"


def sample_parts(full):
    """[(part option, file)] of the sample image: firmware that came with the packages; `full`: Debian's own kernel."""
    roms = pathlib.Path("/usr/lib/ipxe/qemu")
    kernel = artefacts.ensure().kernel if full else roms / "efi-virtio.rom"
    return [("bootloader", pathlib.Path("/usr/share/seabios/bios-256k.bin")), ("kernel", kernel),
            ("config-loader", roms / "pxe-virtio.rom")]


def build_image(target, parts):
    """Builds an image of these parts."""
    command = [str(KESTO), "image", "build", "-o", str(target), "--version", "3.1.0.0R1", "--code", "TK"]
    for word, path in parts:
        command += [f"--{word}", str(path)]
    subprocess.run(command, check=True)


# A running board's control socket: how a second terminal reaches it.


@contextlib.contextmanager
def _socket_path(directory):
    """A short name for the control socket however long the directory's is."""
    descriptor = os.open(directory, os.O_PATH | os.O_DIRECTORY)
    try:
        yield f"/proc/self/fd/{descriptor}/{CONTROL}"
    finally:
        os.close(descriptor)


class _BeginWatch:
    """Knows since when the shell has been waiting for a serial download, from what it says on its console."""

    def __init__(self, console):
        self._tail = b""
        self._changed = threading.Condition()
        self._since = None
        console.listeners.append(self._received)

    def _received(self, data):
        self._tail = (self._tail + data)[-4096:]
        begin, done = self._tail.rfind(BEGIN), self._tail.rfind(b"Done: ")
        with self._changed:
            if begin > done:
                if self._since is None:
                    self._since = time.monotonic()
                    self._changed.notify_all()
            else:
                self._since = None

    def wait(self, timeout):
        """Waits for the shell to ask for a download. Returns when that was, or None."""
        with self._changed:
            self._changed.wait_for(self._waiting, timeout)
            return self._since if self._waiting() else None

    def _waiting(self):
        return self._since is not None and time.monotonic() < self._since + BEGIN_VALID


class _Control(threading.Thread):
    """Feeds files from second terminals into the board's serial lines, one at a time."""

    def __init__(self, board, directory):
        super().__init__(daemon=True, name="control")
        self.sending = False
        self._board = board
        self._watch = _BeginWatch(board.console)
        self._socket = socket.socket(socket.AF_UNIX)
        (directory / CONTROL).unlink(missing_ok=True)
        with _socket_path(directory) as path:
            self._socket.bind(path)
        self._socket.listen()

    def run(self):
        while True:
            peer, _ = self._socket.accept()
            with peer, contextlib.suppress(OSError):
                self._serve(peer, peer.makefile("rwb"))

    def _serve(self, peer, stream):
        def answer(**fields):
            peer.sendall(json.dumps(fields).encode() + b"\n")

        request = json.loads(stream.readline())
        data = stream.read(request["size"])
        port = {1: self._board.console, 2: self._board.serial2}[request["port"]]
        try:
            answer(state="waiting")
            since = self._watch.wait(request["wait"])
            if since is None:
                answer(state="error", text="nobody asked for a serial download")
                return
            time.sleep(max(0.0, since + virtual_board.SERIAL_DOWNLOAD_PAUSE - time.monotonic()))
            self.sending = port is self._board.console
            port.send_paced(data, request["rate"], lambda sent: answer(state="sending", sent=sent))
            answer(state="done")
        except BoardError as error:
            answer(state="error", text=str(error))
        finally:
            self.sending = False


def send(options):
    """./run send: from a second terminal."""
    data = pathlib.Path(options.file).read_bytes()
    peer = socket.socket(socket.AF_UNIX)
    try:
        with _socket_path(options.state) as path:
            peer.connect(path)
    except OSError:
        print(f"No board is running in {options.state}. Start one with ./run in another terminal.", file=sys.stderr)
        return 1
    request = {"port": options.port, "rate": options.rate, "size": len(data), "wait": options.wait}
    try:
        peer.sendall(json.dumps(request).encode() + b"\n" + data)
        return _show_progress(peer.makefile("rb"), options, len(data))
    except OSError:
        print("\nThe board has gone.", file=sys.stderr)
        return 1


def _show_progress(answers, options, size):
    shown = -1
    for line in answers:
        answer = json.loads(line)
        if answer["state"] == "waiting":
            print(f'Sends to ttyS{options.port} when the shell says "{BEGIN.decode()}"; type there now:\n'
                  f"    flash download serial 2{' 2' if options.port == 2 else ''}", flush=True)
        elif answer["state"] == "sending" and answer["sent"] * 100 // size != shown:
            shown = answer["sent"] * 100 // size
            print(f"\r{answer['sent']} of {size} bytes ({shown} %)", end="", flush=True)
        elif answer["state"] == "done":
            print("\nSent.")
            return 0
        elif answer["state"] == "error":
            print(f"\n{answer['text']}", file=sys.stderr)
            return 1
    print("\nThe board has gone.", file=sys.stderr)
    return 1


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


def _hand_over(board, control):
    """Passes keys to the console until the way out is taken or the machine ends. Returns which."""
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
            if not control.sending:
                board.console.send(data)
    return "the machine ended"


def interactive(options):
    """./run: boots and hands the terminal over."""
    build_image(SAMPLE, sample_parts(options.full))
    with Board(options.state, PROGRAM, nand=options.nand, cmdline=options.cmdline, tftp=options.tftp) as board:
        if options.fresh:
            board.fresh_flash()
        print(_instructions(options), flush=True)
        board.console.listeners.append(_write_all)
        board.start()
        control = _Control(board, options.state)
        control.start()
        with contextlib.suppress(Timeout):
            board.console.expect(PROMPT)
        with _raw_terminal():
            why = _hand_over(board, control)
        print(f"\n[board off: {why}]")
        (options.state / CONTROL).unlink(missing_ok=True)
        board.stop()
    return 0


def _instructions(options):
    state = "" if options.state == STATE else f" --state {options.state}"
    return f"""Booting the virtual board. This terminal becomes the shell's serial console.

  Leave (switches the board off):        Ctrl-]
  Interrupt a command:                   Ctrl-C goes to the shell
  Install the sample image into bank 2:  in a second terminal    ./run send{state} {os.path.relpath(SAMPLE)}
                                         then here               flash download serial 2
  Over the second serial line:           ./run send --port 2{state} FILE   and   flash download serial 2 2

Flash is kept in {options.state}; ./run --fresh starts with a new device.
"""


# The demonstration.


def demo(options):
    """./run --demo: image built, sent, installed, flash read back; shown as a transcript; 0 when all was right."""
    with tempfile.TemporaryDirectory() as directory:
        image = pathlib.Path(directory) / "sample.img"
        parts = sample_parts(options.full)
        print("[an image is built from real files]")
        for word, path in parts:
            print(f"  {word:14} {path} ({path.stat().st_size} bytes)")
        build_image(image, parts)
        with Board(pathlib.Path(directory) / "board", PROGRAM, nand=options.nand, cmdline=options.cmdline) as board:
            try:
                failures = _install(board, image)
                failures += _compare(board, image, parts)
            except BoardError as error:
                failures = [str(error)]
            board.stop()
    for failure in failures:
        print(f"[FAILED: {failure}]")
    print("[demonstration: " + ("FAILED]" if failures else "all as it should be]"))
    return 1 if failures else 0


def _install(board, image):
    started = time.monotonic()
    print("[power on]", flush=True)
    board.console.listeners.append(lambda data: _write_all(data.replace(b"\r", b"")))
    board.start(wait=False)
    board.console.expect(PROMPT, timeout=60)
    _note(f"prompt after {time.monotonic() - started:.1f} s")
    board.wait_boot()
    data = image.read_bytes()
    board.serial_download("flash download serial 2", data)
    _note(f"{len(data)} bytes went over the console's own serial line at {virtual_board.UART_RATE} bytes per second")
    said = board.console.expect("Done: ", timeout=120).before
    result = board.console.expect("\n").before.strip()
    board.console.expect(PROMPT)
    return [] if result == b"SUCCESS" else [f"the shell said {said[-200:]!r}, Done: {result!r}"]


def _note(text):
    """Something in the transcript that the shell did not say."""
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


def _compare(board, image, parts):
    """The flash, read from outside, against the image: a partition holds a part's header and its file, then nothing."""
    failures = []
    data, offset = image.read_bytes(), 0
    destinations = {"bootloader": "bootloader", "kernel": "kernel_2", "config-loader": "config_loader"}
    _note("flash, read from outside, against the image")
    for word, path in parts:
        length = 256 + path.stat().st_size
        part, offset = data[offset:offset + length], offset + length
        flash = board.flash_read(destinations[word])
        same = part[256:] == path.read_bytes() and flash == part.ljust(len(flash), b"\xff")
        print(f"  {destinations[word]:14} {'same' if same else 'DIFFERENT'}")
        if not same:
            failures.append(f"{destinations[word]} does not hold what was sent")
        if not _sums_hold(part):
            failures.append(f"the checksums of the {word} part are wrong")
    for name, wanted in (("bootbank", "2"), ("kernel_size_2", None)):
        value = board.sh(f"fw_printenv -n {name}").output.strip()
        print(f"  {name:14} {value}")
        if not value or (wanted and value != wanted):
            failures.append(f"{name} is {value!r}")
    locked = board.sh("flash_lock --islocked /dev/mtd2").output
    print(f"  bootloader     {'locked again' if 'status: locked' in locked else 'NOT LOCKED'}")
    if "status: locked" not in locked:
        failures.append("the boot loader's partition is not locked")
    return failures


def _arguments():
    parser = argparse.ArgumentParser(prog="./run", description="Boots the virtual board and hands its console over.")
    parser.add_argument("--state", type=pathlib.Path, default=STATE, help="directory of the flash files")
    parser.add_argument("--fresh", action="store_true", help="start with a new device: erased flash")
    parser.add_argument("--nand", choices=("128k", "16k"), default="128k", help="erase block size of the NAND flash")
    parser.add_argument("--tftp", type=pathlib.Path, help="directory offered by TFTP at 10.0.2.2")
    parser.add_argument("--cmdline", default="", help="more words for the kernel command line")
    parser.add_argument("--full", action="store_true", help="sample image with Debian's own kernel (over a minute)")
    parser.add_argument("--demo", action="store_true", help="install an image without a person; true when it worked")
    sub = parser.add_subparsers(dest="verb", metavar="send ...")
    sender = sub.add_parser("send", help="feed a file into the running board's serial line")
    sender.add_argument("file")
    sender.add_argument("--port", type=int, choices=(1, 2), default=1, help="1: the console, 2: the spare line")
    sender.add_argument("--rate", type=int, default=virtual_board.UART_RATE, help="bytes per second")
    sender.add_argument("--wait", type=float, default=300.0, help="seconds to wait for the shell to ask")
    sender.add_argument("--state", type=pathlib.Path, default=STATE)
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
        if options.verb == "send":
            return send(options)
        return demo(options) if options.demo else interactive(options)
    except (BoardError, artefacts.SetupError, subprocess.CalledProcessError, OSError) as error:
        print(f"run: {error}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main())

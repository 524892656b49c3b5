"""
The virtual board: the one way to run a device.

    with Board("/tmp/device-1", program="build/release/recovery-loader") as board:
        board.start()
        board.console.expect("CLI> ")
        board.console.send("version\\r")
        print(board.sh("cat /proc/mtd").output)

The directory holds the flash chips' files and the kernel's log; a board started there again finds its flash as it was,
also after kill(), which is a power cut. See README.md for the rest.
"""

import atexit
import collections
import contextlib
import errno
import fcntl
import os
import pathlib
import re
import select
import selectors
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time
import weakref

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))

import artefacts  # noqa: E402
import layout  # noqa: E402
from cpio import Archive  # noqa: E402

QEMU = "qemu-system-x86_64"
SHELL_PATH = "/sbin/recovery-loader"

# Bytes per second that the emulated UART takes for sure: it has no flow control, so senders pace themselves.
UART_RATE = 80_000
# From "Begin serial download..." to the moment the port has been opened and its stale input dropped, with a margin; for
# those who cannot look into the board as Board.wait_receiving() does.
SERIAL_DOWNLOAD_PAUSE = 2.0

# A sender gives up when the line takes nothing for so many seconds.
_SEND_STALLED = 30.0

_ERASE_PIECE = 1 << 20
_INVERT = bytes(255 - value for value in range(256))
# The files of the board's kernel module.
_DEBUG = "/sys/kernel/debug/vboard"
_FRAME = struct.Struct("<IIII")
_MAGIC = 0x746E6741
_HELLO, _RUN, _PUT, _GET, _DATA, _END = range(1, 7)

Result = collections.namedtuple("Result", "status output")
Result.__doc__ = "Exit status and output (text, standard error included) of a command on the board."

Line = collections.namedtuple("Line", "direction level held driven")
Line.__doc__ = """A GPIO line: "in" or "out", 0 or 1 as on the wire, whether it is exported, how often it was driven."""

_boards = weakref.WeakSet()


class BoardError(Exception):
    """The board did not do what was asked of it."""


class Timeout(BoardError):
    """Something that was waited for did not come."""


class Port:
    """
    One serial line as the host sees it. Everything that came is in `output`; expect() searches what it has not passed
    yet. Each of `listeners` is called with each piece received, from the board's reader thread.
    """

    def __init__(self, name):
        self.name = name
        self.listeners = []
        self._buffer = bytearray()
        self._position = 0
        self._changed = threading.Condition()
        self._socket = None
        self._log = None

    def _attach(self, sock, log=None):
        with self._changed:
            self._socket, self._log = sock, log
            self._changed.notify_all()

    def _received(self, data):
        with self._changed:
            self._buffer += data
            self._changed.notify_all()
        if self._log:
            self._log.write(data)
            self._log.flush()
        for listener in self.listeners:
            listener(data)

    def _closed(self):
        with self._changed:
            self._socket = None
            self._changed.notify_all()

    @property
    def output(self):
        """All bytes received since the board was made, over all its boots."""
        with self._changed:
            return bytes(self._buffer)

    @property
    def unread(self):
        """The bytes that expect() has not passed yet."""
        with self._changed:
            return bytes(self._buffer[self._position:])

    def skip(self):
        """Passes everything received so far."""
        with self._changed:
            self._position = len(self._buffer)

    def expect(self, *patterns, timeout=20.0):
        """
        Waits for the first of `patterns` in the unread bytes: bytes or text are found as they stand, compiled byte
        patterns as expressions. Passes it and returns the match; `.before` is what came ahead of it and `.index` says
        which pattern it was. Raises Timeout, also when the machine ends.
        """
        expressions = [_expression(pattern) for pattern in patterns]
        deadline = time.monotonic() + timeout
        with self._changed:
            while True:
                found = _first(expressions, self._buffer, self._position)
                if found:
                    self._position = found.end
                    return found
                left = deadline - time.monotonic()
                if left <= 0 or self._socket is None:
                    why = "in time" if self._socket else "before the machine ended"
                    tail = bytes(self._buffer[self._position:][-2000:])
                    raise Timeout(f"{self.name}: no {' or '.join(map(repr, patterns))} {why}; unread: {tail!r}")
                self._changed.wait(left)

    def read_until_quiet(self, quiet=0.5, timeout=20.0):
        """Waits until nothing has come for `quiet` seconds; passes and returns what was unread."""
        deadline = time.monotonic() + timeout
        with self._changed:
            length = -1
            while len(self._buffer) != length and time.monotonic() < deadline:
                length = len(self._buffer)
                self._changed.wait_for(lambda: len(self._buffer) != length, quiet)  # pylint: disable=W0640
            data = bytes(self._buffer[self._position:])
            self._position = len(self._buffer)
            return data

    def send(self, data):
        """
        Sends as fast as the line takes it: keystrokes. Text is sent as UTF-8. Raises Timeout when the line takes nothing
        for a long time: nobody has the port open and its buffers are full.
        """
        data = memoryview(data.encode() if isinstance(data, str) else data)
        while data:
            sock = self._socket
            if sock is None:
                raise BoardError(f"{self.name}: the machine is off")
            try:
                if not select.select([], [sock], [], _SEND_STALLED)[1]:
                    raise Timeout(f"{self.name}: takes no more; {len(data)} bytes are left")
                data = data[sock.send(data, socket.MSG_DONTWAIT):]
            except BlockingIOError:
                pass
            except (OSError, ValueError) as error:  # closed by the other side, or by the reader meanwhile
                raise BoardError(f"{self.name}: the machine has ended") from error

    def send_paced(self, data, rate=UART_RATE, progress=None):
        """Sends at `rate` bytes per second; progress(bytes sent) is called now and then."""
        start, piece = time.monotonic(), max(16, rate // 200)
        for sent in range(0, len(data), piece):
            ahead = start + sent / rate - time.monotonic()
            if ahead > 0:
                time.sleep(ahead)
            self.send(data[sent:sent + piece])
            if progress:
                progress(min(sent + piece, len(data)))


class _Found:
    """Where a pattern was found; groups as the expression's own."""

    def __init__(self, match, index, before):
        self.start, self.end, self.index, self.before = match.start(), match.end(), index, before
        self.group, self.groups = match.group, match.groups


def _expression(pattern):
    if isinstance(pattern, re.Pattern):
        return pattern
    return re.compile(re.escape(pattern.encode() if isinstance(pattern, str) else pattern))


def _first(expressions, buffer, position):
    best = None
    data = bytes(buffer[position:])
    for index, expression in enumerate(expressions):
        match = expression.search(data)
        if match and (best is None or match.start() < best[0].start()):
            best = match, index
    if best is None:
        return None
    found = _Found(best[0], best[1], data[:best[0].start()])
    found.start += position
    found.end += position
    return found


class Board:
    """
    One device. `directory` keeps its state and is made when missing.

    program     the shell's binary on the host; None: the machine boots without one
    nand        "128k" (2 KiB pages) or "16k" (512-byte pages): erase block size of the NAND flash
    cli_console the shell's port, as on the kernel command line; None leaves the word out
    cmdline     more words for the kernel command line
    files       {path on the board: host path or bytes}, added to the root file system, executable when the host's is
                or when the path lies in a directory for programs
    tftp        directory that the network's TFTP server offers at 10.0.2.2
    netdev      the whole argument of -netdev, without its id, instead of the above
    neighbour   a datagram socket that carries whole frames: the cable from a second card, eth1, to a machine of the
                caller's
    memory      MiB
    """

    def __init__(self, directory, program=None, *, nand="128k", cli_console="ttyS1,115200", cmdline="", files=None,
                 tftp=None, netdev=None, neighbour=None, memory=256, accelerator=None):
        self.directory = pathlib.Path(directory).resolve()
        self.program, self.nand, self.cli_console, self.cmdline = program, nand, cli_console, cmdline
        self.files, self.tftp, self.netdev, self.memory = dict(files or {}), tftp, netdev, memory
        self.neighbour, self.accelerator = neighbour, accelerator
        self.geometry = layout.NAND_GEOMETRIES[nand]
        self.kernel_log, self.console, self.serial2 = Port("ttyS0"), Port("ttyS1"), Port("ttyS2")
        self._agent = _Agent()
        self._process = None
        self._reader = None
        self._lock_file = None
        self.directory.mkdir(parents=True, exist_ok=True)
        for chip in layout.FILE_SIZES:
            if not self._chip_path(chip).exists():
                self._make_chip(chip)

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        self.kill()

    # The machine.

    @property
    def running(self):
        """Whether the machine is on."""
        return self._process is not None and self._process.poll() is None

    def start(self, wait=True, timeout=60.0):
        """
        Powers up. With `wait`, returns when the command agent answers. The machine dies with the thread that starts it,
        so start boards from a thread that stays.
        """
        if self.running:
            raise BoardError("the board is running")
        made = artefacts.ensure()
        self._lock_file = self._lock_state()
        initrd = self.directory / "initrd.cpio"
        initrd.write_bytes(made.base.read_bytes() + self._overlay(made.libraries))
        ours, theirs = zip(*(socket.socketpair() for _ in range(4)))
        descriptors = [sock.fileno() for sock in theirs]
        inherited = descriptors + ([self.neighbour.fileno()] if self.neighbour else [])
        command = ["setpriv", "--pdeathsig", "KILL", "--", *self._command(made.kernel, initrd, descriptors)]
        with open(self.directory / "qemu.log", "wb") as log:
            self._process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                                             pass_fds=inherited, start_new_session=True)
        _boards.add(self)
        for sock in theirs:
            sock.close()
        self._agent.attach(ours[3])
        self._reader = _Reader(self, ours)
        if wait:
            self.wait_boot(timeout)

    def wait_boot(self, timeout=60.0):
        """Waits until the command agent has announced itself: after start(wait=False), or when the board resets."""
        try:
            self._agent.wait_hello(timeout)
        except Timeout as error:
            qemu = (self.directory / "qemu.log").read_text(errors="replace")
            raise Timeout(f"the board did not boot: {qemu}{self.kernel_log.output[-3000:].decode(errors='replace')}"
                          ) from error

    def kill(self):
        """Cuts the power. What the flash chips had stored is in their files. Harmless when the machine is off."""
        if self._process:
            if self._process.poll() is None:
                self._process.kill()
            self._process.wait()
            self._process = None
        if self._reader:
            self._reader.join()
            self._reader = None
        if self._lock_file:
            self._lock_file.close()
            self._lock_file = None
        _boards.discard(self)

    def wait_off(self, timeout=60.0):
        """Waits until the machine has ended by itself, as after a planned power cut."""
        if self._process:
            try:
                self._process.wait(timeout)
            except subprocess.TimeoutExpired as error:
                raise Timeout("the machine is still on") from error
        self.kill()

    def stop(self):
        """Shuts down in order: file systems are written back first."""
        if self.running:
            try:
                self._agent.request(_RUN, 10, b"sync; /bin/busybox poweroff -f\0", 10)
            except BoardError:
                pass
            try:
                self._process.wait(10)
            except subprocess.TimeoutExpired:
                pass
        self.kill()

    def restart(self, wait=True):
        """Cuts the power and starts again."""
        self.kill()
        self.start(wait)

    def _lock_state(self):
        """Two machines on one flash would be worse than any fault that a test plans."""
        lock = open(self.directory / "lock", "w", encoding="ascii")
        try:
            fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError as error:
            lock.close()
            raise BoardError(f"a board is running in {self.directory}") from error
        return lock

    @contextlib.contextmanager
    def _switched_off(self):
        with self._lock_state():
            yield

    def _overlay(self, present):
        archive = Archive()
        if self.program:
            artefacts.add_program(archive, SHELL_PATH, self.program, present)
        for path, source in self.files.items():
            program = os.path.dirname(path).endswith("bin")
            if isinstance(source, bytes):
                archive.file(path, source, 0o755 if program else 0o644)
            elif program:
                artefacts.add_program(archive, path, source, present)
            else:
                archive.copy(path, source)
        return archive.to_bytes()

    def _command(self, kernel, initrd, descriptors):
        accelerator = self.accelerator or default_accelerator()
        words = ["console=ttyS0,115200", "mitigations=off", "nowatchdog", "no_timer_check", "tsc=reliable",
                 "rcupdate.rcu_expedited=1", "audit=0", "panic=-1", "reboot=t", f"vboard.nand_page={self.geometry.page}"]
        if self.cli_console:
            words.append(f"cli_console={self.cli_console}")
        if accelerator == "tcg":
            # On busy cores the kernel may measure the TSC wrong by a factor, and all its waits with it.
            words.append("clocksource=acpi_pm")
        words.append(self.cmdline)
        command = [QEMU, "-nodefaults", "-no-user-config", "-display", "none", "-accel", accelerator,
                   "-machine", "pc,usb=off,vmport=off,hpet=off,i8042=off", "-cpu",
                   "host" if accelerator == "kvm" else "max",
                   "-m", str(self.memory), "-kernel", str(kernel), "-initrd", str(initrd),
                   "-append", " ".join(words)]
        for chip, slot in (("nor", "10"), ("nand", "11")):
            command += ["-object", f"memory-backend-file,id={chip},share=on,size={layout.FILE_SIZES[chip]},"
                                   f"mem-path={_escape(self._chip_path(chip))}",
                        "-device", f"ivshmem-plain,memdev={chip},addr={slot}"]
        for number, descriptor in enumerate(descriptors):
            command += ["-chardev", f"socket,id=line{number},fd={descriptor}"]
        for number in range(3):
            command += ["-serial", f"chardev:line{number}"]
        command += ["-device", "virtio-serial-pci", "-device", "virtserialport,chardev=line3,name=agent",
                    "-device", "isa-debug-exit,iobase=0xf4,iosize=0x04"]
        netdev = self.netdev or "user" + (f",tftp={_escape(pathlib.Path(self.tftp).resolve())}" if self.tftp else "")
        command += ["-netdev", f"{netdev},id=net0", "-device", "i82559c,netdev=net0,romfile="]
        if self.neighbour:
            command += ["-netdev", f"socket,fd={self.neighbour.fileno()},id=net1",
                        "-device", "i82559c,netdev=net1,romfile="]
        return command

    # Commands and files on the board.

    def sh(self, command, timeout=60.0, check=False):
        """Runs a command line as root; `check` raises BoardError when its exit status is not 0."""
        status, output = self._agent.request(_RUN, int(timeout) + 1, command.encode() + b"\0", timeout + 10)
        result = Result(status, output.decode(errors="replace"))
        if check and status:
            raise BoardError(f"{command}: status {status}: {result.output}")
        return result

    def put(self, path, data, mode=0o644):
        """Writes a file on the board."""
        data = data.encode() if isinstance(data, str) else data
        status, _ = self._agent.request(_PUT, mode, path.encode() + b"\0" + data, 60.0)
        if status:
            raise BoardError(f"put {path}: {os.strerror(status)}")

    def get(self, path):
        """The bytes of a file on the board."""
        status, data = self._agent.request(_GET, 0, path.encode(), 60.0)
        if status:
            raise BoardError(f"get {path}: {os.strerror(status)}")
        return data

    # Flash, seen from outside: with the machine on or off.

    def _chip_path(self, chip):
        return self.directory / f"{chip}.flash"

    def _make_chip(self, chip):
        with open(self._chip_path(chip), "wb") as cells:
            cells.truncate(layout.FILE_SIZES[chip])

    def fresh_flash(self):
        """Makes the device as new: both chips erased, no bad blocks. The machine must be off."""
        with self._switched_off():
            for chip in layout.FILE_SIZES:
                self._make_chip(chip)

    def copy_flash_from(self, other):
        """Takes over the flash of another board, or of a directory that save_flash() wrote. The machine must be off."""
        source = other.directory if isinstance(other, Board) else pathlib.Path(other)
        with self._switched_off():
            for chip in layout.FILE_SIZES:
                _copy_sparse(source / f"{chip}.flash", self._chip_path(chip))

    def save_flash(self, directory):
        """Copies both chips into a directory."""
        pathlib.Path(directory).mkdir(parents=True, exist_ok=True)
        for chip in layout.FILE_SIZES:
            _copy_sparse(self._chip_path(chip), pathlib.Path(directory) / f"{chip}.flash")

    def flash_read(self, partition, offset=0, length=None):
        """The bytes of a partition (NAND: pages without spare bytes, bad blocks as they stand)."""
        row = layout.PARTITIONS[partition]
        length = row.size - offset if length is None else length
        _check_range(row, offset, length)
        return self._read_cells(row.chip, row.offset + offset, length)

    def flash_write(self, partition, data, offset=0):
        """Makes these bytes the contents at `offset`, as if erased and programmed; write protection is no matter."""
        row = layout.PARTITIONS[partition]
        _check_range(row, offset, len(data))
        self._write_cells(row.chip, row.offset + offset, data)

    def flash_fill(self, partition, data):
        """Erases the whole partition and writes `data` at its start."""
        self.flash_write(partition, data + b"\xff" * (layout.PARTITIONS[partition].size - len(data)))

    def flash_erase(self, *partitions):
        """Erases these partitions, or all, whatever their locks say. Spare bytes of the NAND flash, and so its bad blocks,
        stay as they are. Cheap where flash is erased already."""
        for name in partitions or layout.PARTITIONS:
            row = layout.PARTITIONS[name]
            with open(self._chip_path(row.chip), "r+b") as cells:
                for address in range(row.offset, row.offset + row.size, _ERASE_PIECE):
                    erased = bytes(min(_ERASE_PIECE, row.offset + row.size - address))
                    if os.pread(cells.fileno(), len(erased), address) != erased:
                        os.pwrite(cells.fileno(), erased, address)

    def nand_oob(self, page):
        """The spare bytes of a page of the NAND flash."""
        return self._read_cells("nand", self._oob_address(page), self.geometry.oob)

    def nand_mark_bad(self, *blocks):
        """Makes blocks of the NAND flash bad, as the factory would. The machine should be off: UBI looks at attach."""
        for block in blocks:
            page = block * (self.geometry.erase_block // self.geometry.page)
            self._write_cells("nand", self._oob_address(page) + self.geometry.bad_mark, b"\0")

    def nand_bad_blocks(self):
        """Numbers of the bad blocks, factory and grown."""
        pages = self.geometry.erase_block // self.geometry.page
        blocks = layout.CHIP_SIZES["nand"] // self.geometry.erase_block
        spare = self._read_cells("nand", self._oob_address(0), blocks * pages * self.geometry.oob)
        mark, oob = self.geometry.bad_mark, self.geometry.oob
        return [block for block in range(blocks)
                if any(spare[(block * pages + page) * oob + mark] != 0xFF for page in (0, 1))]

    def _oob_address(self, page):
        return layout.CHIP_SIZES["nand"] + page * self.geometry.oob

    def _read_cells(self, chip, address, length):
        with open(self._chip_path(chip), "rb") as cells:
            return os.pread(cells.fileno(), length, address).translate(_INVERT)

    def _write_cells(self, chip, address, data):
        with open(self._chip_path(chip), "r+b") as cells:
            os.pwrite(cells.fileno(), data.translate(_INVERT), address)

    # Faults, see kernel/faults.c. They end with the machine.

    def fault(self, operation, partition, nth=1, times=1, error=errno.EIO):
        """Makes the n-th following read, write, erase, lock or unlock on a partition fail, `times` times (0: for ever)."""
        self._plan(f"{operation} {partition} {nth - 1} {times} fail {error}")

    def slow(self, operation, partition, seconds):
        """Delays each of these operations."""
        self._plan(f"{operation} {partition} 0 0 delay {round(seconds * 1e6)}")

    def cut_power_at(self, operation, partition, nth=1):
        """The n-th following operation is done by half, then the machine is dead; see wait_off()."""
        self._plan(f"{operation} {partition} {nth - 1} 1 cut 0")

    def clear_faults(self):
        """Forgets all planned faults and delays, and plugs the network cable in."""
        self._plan("clear")
        self.plug_in()

    def unplug(self):
        """Pulls the network cable, see kernel/link.c. The card's driver notices within two seconds."""
        self.sh(f"echo 1 >{_DEBUG}/unplugged", check=True)

    def plug_in(self):
        """Plugs the network cable in again."""
        self.sh(f"echo 0 >{_DEBUG}/unplugged", check=True)

    def _plan(self, rule):
        self.sh(f"echo '{rule}' >{_DEBUG}/faults", check=True)

    def flash_operations(self):
        """{partition: {operation: number since power-up}}; "ubi0" counts for the whole NAND flash."""
        counts = {}
        for line in self.sh(f"cat {_DEBUG}/operations", check=True).output.splitlines():
            name, *fields = line.split()
            counts[name] = {key: int(value) for key, value in (field.split("=") for field in fields)}
        return counts

    # GPIO lines, see kernel/gpio.c.

    def gpio(self):
        """{number: Line} of all lines, whatever the shell knows of them."""
        rows = (row.split() for row in self.sh(f"cat {_DEBUG}/gpio", check=True).output.splitlines())
        return {int(number): Line(direction, int(level), held == "held", int(driven))
                for number, direction, level, held, driven in rows}

    def gpio_input(self, number, level):
        """Wires a level to a line from outside. An output does not care, until it becomes an input."""
        self.sh(f"echo {number} {level} >{_DEBUG}/gpio", check=True)

    # The control device, see kernel/ctrl.c.

    def ctrl_log(self):
        """[(seconds, text)] of what was done with /dev/ctrl: "open rw", "40144c0a write 4c 10 20 3800... 0", "close"."""
        lines = self.sh(f"cat {_DEBUG}/ctrl/log", check=True).output.splitlines()
        return [(int(time) / 1e6, text) for time, text in (line.split(" ", 1) for line in lines)]

    def ctrl_clear(self):
        """Forgets what was done with /dev/ctrl and which requests should fail; nobody pushes the button."""
        self.sh(f"cd {_DEBUG}/ctrl && echo clear >log && echo clear >failures && echo 0 >reset_input", check=True)

    def ctrl_fail(self, request, error=errno.EIO):
        """Makes all later requests of this number fail."""
        self.sh(f"echo {request:x} {error} >{_DEBUG}/ctrl/failures", check=True)

    def ctrl_reset_input(self, status):
        """What /dev/ctrl says of the reset input: 0 while nobody pushes the button."""
        self.sh(f"echo {status} >{_DEBUG}/ctrl/reset_input", check=True)

    def rs485(self):
        """{serial port: the kernel's flags for RS-485}; the ports take some with vboard.rs485=1 on the command line."""
        rows = re.findall(r"ttyS(\d) 0x(\w+)", self.sh(f"cat {_DEBUG}/rs485", check=True).output)
        return {int(port): int(flags, 16) for port, flags in rows}

    # The console's usual errands.

    def wait_receiving(self, port=None, timeout=60.0):
        """Waits until the shell has opened a serial port (the console) for a transfer and dropped its stale input."""
        node = "/dev/ttyS2" if port is self.serial2 else "/dev/ttyS1"
        looked = self.sh(f"until stty -F {node} -a 2>&1 | grep -q -e -icrnl; do usleep 50000; done", timeout)
        if looked.status:
            raise Timeout(f"{node}: nobody waits for a transfer")

    def serial_download(self, command, data, port=None, rate=UART_RATE, progress=None):
        """Types a serial download command and, when the shell is ready for it, sends `data` to `port` (the console)."""
        self.console.send(command + "\r")
        self.console.expect("Begin serial download...", timeout=60.0)
        self.wait_receiving(port)
        (port or self.console).send_paced(data, rate, progress)


class _Reader(threading.Thread):
    """Drains the machine's lines: an unread one would stall it."""

    def __init__(self, board, sockets):
        super().__init__(daemon=True, name=f"board {board.directory.name}")
        self._selector = selectors.DefaultSelector()
        self._log = open(board.directory / "kernel.log", "wb")
        ports = [board.kernel_log, board.console, board.serial2, board._agent]  # pylint: disable=W0212
        for port, sock, log in zip(ports[:3], sockets, (self._log, None, None)):
            port._attach(sock, log)  # pylint: disable=W0212
        for port, sock in zip(ports, sockets):
            self._selector.register(sock, selectors.EVENT_READ, port)
        self.start()

    def run(self):
        while self._selector.get_map():
            for key, _ in self._selector.select():
                try:
                    data = key.fileobj.recv(65536)
                except ConnectionError:
                    data = b""
                if data:
                    key.data._received(data)  # pylint: disable=W0212
                else:
                    self._selector.unregister(key.fileobj)
                    key.data._closed()  # pylint: disable=W0212
                    key.fileobj.close()
        self._log.close()


class _Agent:
    """The host's end of the command agent, see rootfs/agent.c."""

    def __init__(self):
        self._changed = threading.Condition()
        self._buffer = bytearray()
        self._frames = collections.deque()
        self._hellos = 0
        self._socket = None
        self._one_at_a_time = threading.Lock()

    def attach(self, sock):
        """A machine was started."""
        with self._changed:
            self._buffer.clear()
            self._frames.clear()
            self._hellos, self._socket = 0, sock

    def _received(self, data):
        with self._changed:
            self._buffer += data
            while self._take_frame():
                pass
            self._changed.notify_all()

    def _take_frame(self):
        """A machine that is reset may leave half a frame: what does not begin with the magic is dropped."""
        start = self._buffer.find(_MAGIC.to_bytes(4, "little"))
        if start > 0:
            del self._buffer[:start]
        if start < 0 or len(self._buffer) < _FRAME.size:
            return False
        _, kind, value, length = _FRAME.unpack_from(self._buffer)
        if len(self._buffer) < _FRAME.size + length:
            return False
        if kind == _HELLO:
            self._hellos += 1
            self._frames.clear()
        else:
            self._frames.append((kind, value, bytes(self._buffer[_FRAME.size:_FRAME.size + length])))
        del self._buffer[:_FRAME.size + length]
        return True

    def _closed(self):
        with self._changed:
            self._socket = None
            self._changed.notify_all()

    def wait_hello(self, timeout):
        """Waits for the next announcement and takes it."""
        with self._changed:
            self._changed.wait_for(lambda: self._hellos or self._socket is None, timeout)
            if not self._hellos:
                raise Timeout("no sign of the command agent")
            self._hellos = 0

    def request(self, kind, value, data, timeout):
        """Asks one thing; returns the final value and the data that came before it."""
        with self._one_at_a_time:
            with self._changed:
                self._frames.clear()
                sock = self._socket
            if sock is None:
                raise BoardError("the machine is off")
            sock.sendall(_FRAME.pack(_MAGIC, kind, value, len(data)) + data)
            output, deadline = [], time.monotonic() + timeout
            while True:
                with self._changed:
                    self._changed.wait_for(lambda: self._frames or self._socket is None, deadline - time.monotonic())
                    if not self._frames:
                        raise Timeout("the command agent does not answer" if self._socket else "the machine ended")
                    kind, value, piece = self._frames.popleft()
                if kind == _END:
                    return value, b"".join(output)
                output.append(piece)


def _escape(path):
    """A comma separates options for QEMU."""
    return str(path).replace(",", ",,")


def _check_range(row, offset, length):
    if offset < 0 or length < 0 or offset + length > row.size:
        raise ValueError(f"{row.name}: {offset}+{length} lies outside its {row.size} bytes")


def _copy_sparse(source, target):
    subprocess.run(["cp", "--sparse=always", "--reflink=auto", str(source), str(target)], check=True)


# A KVM that boots at all boots in a third of this.
_KVM_PROBE_SECONDS = 10.0


def _kvm_works():
    """Boots a board under KVM: there are machines where it is offered and hangs, or stumbles over an instruction."""
    if not os.access("/dev/kvm", os.R_OK | os.W_OK):
        return False
    with tempfile.TemporaryDirectory() as directory, Board(directory, accelerator="kvm") as board:
        try:
            board.start(timeout=_KVM_PROBE_SECONDS)
        except BoardError:
            return False
        return board.sh("true").status == 0


def default_accelerator():
    """"kvm" when a board boots with it, which is tried once per boot of the host; else "tcg". VBOARD_ACCEL overrides."""
    if "VBOARD_ACCEL" in os.environ:
        return os.environ["VBOARD_ACCEL"]
    artefacts.ensure()
    boot = pathlib.Path("/proc/sys/kernel/random/boot_id").read_text(encoding="ascii").strip()
    note = artefacts.BUILD / "accelerator"
    with artefacts.exclusive("accelerator.lock"):
        words = note.read_text(encoding="ascii").split() if note.exists() else []
        if words[:1] != [boot] or len(words) != 2:
            words = [boot, "kvm" if _kvm_works() else "tcg"]
            note.write_text(" ".join(words), encoding="ascii")
    return words[1]


@atexit.register
def _kill_all():
    for board in list(_boards):
        board.kill()


__all__ = ["Board", "BoardError", "Line", "Port", "Result", "Timeout", "UART_RATE", "default_accelerator", "layout"]

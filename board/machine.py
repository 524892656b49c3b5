"""The QEMU machine: its command line, its process, and the threads that drain its lines."""

import atexit
import contextlib
import os
import selectors
import signal
import socket
import subprocess
import threading
import weakref

import layout
from command_agent import CommandAgent
from errors import Timeout
from serial_port import Port

# A 32-bit ARM machine with a PCI bus, emulated: there is no such host.
QEMU = "qemu-system-arm"
# The chips' cells are mapped whole.
VMALLOC = "vmalloc=400M"
# The kernel's tests of its ciphers take a third of its start.
NO_SELF_TESTS = "cryptomgr.notests"
# Where the kernel module looks for the chips' cells on the PCI bus.
CHIP_SLOTS = {"nor": "10", "nand": "11"}
# Where a program that counts what it runs through looks for its counters (tests/support/board_counters.cpp): there when the
# variable BOARD_COUNTERS names the file that they are to lie in.
_COUNTERS_SLOT, COUNTERS_SIZE = "12", 0x100000

_running = weakref.WeakSet()


class Machine:
    """
    One machine and its lines to the host, over all its boots.

    directory   where qemu.log and kernel.log are written
    memory      MiB
    network     the whole argument of -netdev for the first card, without its id
    neighbour   a datagram socket: the cable of a second card; None: there is no such card
    """

    def __init__(self, directory, memory, network, neighbour):
        self.directory, self.memory, self.network, self.neighbour = directory, memory, network, neighbour
        self.ports = [Port(name) for name in ("ttyAMA0", "ttyS1", "ttyS2")]
        self.agent = CommandAgent()
        self._process = None
        self._reader = None

    @property
    def running(self):
        """Whether the machine is on."""
        return self._process is not None and self._process.poll() is None

    def start(self, program, chips):
        """
        Powers up. `program`: options that name what it starts, see kernel_options() and boot_loader_options(). `chips`:
        {"nor" and "nand": file of the cells}. The machine dies with the thread that starts it.
        """
        ours, theirs = zip(*(socket.socketpair() for _ in range(4)))
        descriptors = [sock.fileno() for sock in theirs]
        inherited = descriptors + ([self.neighbour.fileno()] if self.neighbour else [])
        command = ["setpriv", "--pdeathsig", "KILL", "--", *self._command(program, chips, descriptors)]
        with open(self.directory / "qemu.log", "wb") as log:
            self._process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                                             pass_fds=inherited, start_new_session=True)
        _running.add(self)
        for sock in theirs:
            sock.close()
        self.agent.attach(ours[3])
        self._reader = _Reader(self, ours)

    def wait_boot(self, timeout):
        """Waits until the command agent has announced itself."""
        try:
            self.agent.wait_hello(timeout)
        except Timeout as error:
            qemu = (self.directory / "qemu.log").read_text(errors="replace")
            kernel = self.ports[0].output[-3000:].decode(errors="replace")
            raise Timeout(f"the board did not boot: {qemu}{kernel}") from error

    def wait_end(self, timeout):
        """Waits until the machine has ended by itself. Returns whether it has."""
        try:
            if self._process:
                self._process.wait(timeout)
        except subprocess.TimeoutExpired:
            return False
        return True

    @contextlib.contextmanager
    def halted(self):
        """Inside, the machine stands still: its chips' files hold what they would hold if the power were cut now."""
        process = self._process
        process.send_signal(signal.SIGSTOP)
        # Its end would do as well: nothing of it writes any more.
        os.waitid(os.P_PID, process.pid, os.WSTOPPED | os.WEXITED | os.WNOWAIT)
        try:
            yield
        finally:
            process.send_signal(signal.SIGCONT)

    def kill(self):
        """Cuts the power. Harmless when the machine is off."""
        if self._process:
            if self._process.poll() is None:
                self._process.kill()
            self._process.wait()
            self._process = None
        if self._reader:
            self._reader.join()
            self._reader = None
        _running.discard(self)

    def _command(self, program, chips, descriptors):
        command = [QEMU, "-nodefaults", "-no-user-config", "-display", "none", "-accel", "tcg",
                   "-machine", "virt,highmem=off", "-cpu", "cortex-a15", "-m", str(self.memory), *program]
        for number, descriptor in enumerate(descriptors):
            command += ["-chardev", f"socket,id=line{number},fd={descriptor}"]
        command += ["-serial", "chardev:line0", "-chardev", "null,id=unused",
                    "-device", "pci-serial-2x,chardev1=unused,chardev2=line1,addr=02",
                    "-device", "pci-serial,chardev=line2,addr=03",
                    "-device", "virtio-serial-pci", "-device", "virtserialport,chardev=line3,name=agent"]
        for chip, slot in CHIP_SLOTS.items():
            command += ["-object", f"memory-backend-file,id={chip},share=on,size={layout.FILE_SIZES[chip]},"
                                   f"mem-path={escape(chips[chip])}",
                        "-device", f"ivshmem-plain,memdev={chip},addr={slot}"]
        counters = os.environ.get("BOARD_COUNTERS")
        if counters:
            command += ["-object", f"memory-backend-file,id=counters,share=on,size={COUNTERS_SIZE},mem-path={escape(counters)}",
                        "-device", f"ivshmem-plain,memdev=counters,addr={_COUNTERS_SLOT}"]
        command += ["-netdev", f"{self.network},id=net0", "-device", "i82559c,netdev=net0,romfile="]
        if self.neighbour:
            command += ["-netdev", f"socket,fd={self.neighbour.fileno()},id=net1",
                        "-device", "i82559c,netdev=net1,romfile="]
        return command


class _Reader(threading.Thread):
    """Drains the machine's lines: an unread one would stall it."""

    def __init__(self, machine, sockets):
        super().__init__(daemon=True, name=f"board {machine.directory.name}")
        self._selector = selectors.DefaultSelector()
        self._log = open(machine.directory / "kernel.log", "wb")
        for port, sock, log in zip(machine.ports, sockets, (self._log, None, None)):
            port.attach(sock, log)
        for line, sock in zip([*machine.ports, machine.agent], sockets):
            self._selector.register(sock, selectors.EVENT_READ, line)
        self.start()

    def run(self):
        while self._selector.get_map():
            for key, _ in self._selector.select():
                try:
                    data = key.fileobj.recv(65536)
                except ConnectionError:
                    data = b""
                if data:
                    key.data.received(data)
                else:
                    self._selector.unregister(key.fileobj)
                    key.data.closed()
                    key.fileobj.close()
        self._log.close()


def kernel_words(words):
    """The kernel command line of this machine, with these words behind its own."""
    return " ".join(["console=ttyAMA0,115200", VMALLOC, "nowatchdog", "rcupdate.rcu_expedited=1", "audit=0", "panic=-1",
                     NO_SELF_TESTS, *words])


def kernel_options(kernel, initrd, words):
    """For a machine that starts with a kernel at once."""
    return ["-kernel", str(kernel), "-initrd", str(initrd), "-append", kernel_words(words)]


def boot_loader_options(program, bank):
    """For a machine that starts with a boot loader; `bank`: the file of its second flash bank."""
    return ["-bios", str(program), "-drive", f"if=pflash,index=1,format=raw,readonly=on,file={escape(bank)}"]


def escape(path):
    """A path in an option: a comma separates options for QEMU."""
    return str(path).replace(",", ",,")


@atexit.register
def _kill_all():
    for machine in list(_running):
        machine.kill()

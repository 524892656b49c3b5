"""The QEMU machine: its command line, its process, and the threads that drain its lines."""

import atexit
import selectors
import socket
import subprocess
import threading
import weakref

import accelerator
import layout
from command_agent import CommandAgent
from errors import Timeout
from serial_port import Port

QEMU = "qemu-system-x86_64"
# Where the kernel module looks for the chips' cells on the PCI bus.
CHIP_SLOTS = {"nor": "10", "nand": "11"}

_running = weakref.WeakSet()


class Machine:
    """
    One machine and its lines to the host, over all its boots.

    directory   where qemu.log and kernel.log are written
    memory      MiB
    network     the whole argument of -netdev for the first card, without its id
    neighbour   a datagram socket: the cable of a second card; None: there is no such card
    """

    def __init__(self, directory, memory, network, neighbour, accelerator_name=None):
        self.directory, self.memory, self.network, self.neighbour = directory, memory, network, neighbour
        self.ports = [Port(f"ttyS{number}") for number in range(3)]
        self.agent = CommandAgent()
        self._accelerator = accelerator_name
        self._process = None
        self._reader = None

    @property
    def running(self):
        """Whether the machine is on."""
        return self._process is not None and self._process.poll() is None

    def start(self, kernel, initrd, words, chips):
        """
        Powers up with these words on the kernel command line. `chips`: {"nor" and "nand": file of the cells}. The machine
        dies with the thread that starts it.
        """
        ours, theirs = zip(*(socket.socketpair() for _ in range(4)))
        descriptors = [sock.fileno() for sock in theirs]
        inherited = descriptors + ([self.neighbour.fileno()] if self.neighbour else [])
        command = ["setpriv", "--pdeathsig", "KILL", "--", *self._command(kernel, initrd, words, chips, descriptors)]
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

    def _command(self, kernel, initrd, words, chips, descriptors):
        name = self._accelerator or accelerator.default_accelerator()
        words = ["console=ttyS0,115200", "mitigations=off", "nowatchdog", "no_timer_check", "tsc=reliable",
                 "rcupdate.rcu_expedited=1", "audit=0", "panic=-1", "reboot=t", *words]
        if name == "tcg":
            # On busy cores the kernel may measure the TSC wrong by a factor, and all its waits with it.
            words.append("clocksource=acpi_pm")
        command = [QEMU, "-nodefaults", "-no-user-config", "-display", "none", "-accel", name,
                   "-machine", "pc,usb=off,vmport=off,hpet=off,i8042=off", "-cpu", "host" if name == "kvm" else "max",
                   "-m", str(self.memory), "-kernel", str(kernel), "-initrd", str(initrd),
                   "-append", " ".join(words)]
        for chip, slot in CHIP_SLOTS.items():
            command += ["-object", f"memory-backend-file,id={chip},share=on,size={layout.FILE_SIZES[chip]},"
                                   f"mem-path={escape(chips[chip])}",
                        "-device", f"ivshmem-plain,memdev={chip},addr={slot}"]
        for number, descriptor in enumerate(descriptors):
            command += ["-chardev", f"socket,id=line{number},fd={descriptor}"]
        for number in range(len(self.ports)):
            command += ["-serial", f"chardev:line{number}"]
        command += ["-device", "virtio-serial-pci", "-device", "virtserialport,chardev=line3,name=agent",
                    "-device", "isa-debug-exit,iobase=0xf4,iosize=0x04",
                    "-netdev", f"{self.network},id=net0", "-device", "i82559c,netdev=net0,romfile="]
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


def escape(path):
    """A path in an option: a comma separates options for QEMU."""
    return str(path).replace(",", ",,")


@atexit.register
def _kill_all():
    for machine in list(_running):
        machine.kill()

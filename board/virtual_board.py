"""
The virtual board: the one way to run a device.

    with Board("/tmp/device-1", program="build/arm/recovery-loader") as board:
        board.start()
        board.console.expect("CLI> ")
        board.console.send("version\\r")
        print(board.sh("cat /proc/mtd").output)

The directory holds the flash chips' files and the kernel's log; a board started there again finds its flash as it was,
also after kill(), which is a power cut. See README.md for the rest.
"""

import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))

import artefacts  # noqa: E402
import boot_loader  # noqa: E402
import recovery_system  # noqa: E402
import root_file_system  # noqa: E402
from chip_files import ChipFiles  # noqa: E402
from command_agent import Result  # noqa: E402
from errors import BoardError, Timeout  # noqa: E402
from instruments import Instruments, Line  # noqa: E402
from machine import CHIP_SLOTS, Machine, boot_loader_options, escape, kernel_options, kernel_words  # noqa: E402
from serial_port import UART_RATE, Port  # noqa: E402

SHELL_PATH = "/sbin/recovery-loader"

# From "Begin serial download..." to the moment the port has been opened and its stale input dropped, with a margin; for
# those who cannot look into the board as Board.wait_receiving() does.
SERIAL_DOWNLOAD_PAUSE = 2.0


class Board(ChipFiles, Instruments):
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
    boot_loader power-on starts the boot loader, which starts what the flash holds; else kernel and root file system of the
                recovery system are started directly, whatever the flash holds
    """

    def __init__(self, directory, program=None, *, nand="128k", cli_console="ttyS1,115200", cmdline="", files=None,
                 tftp=None, netdev=None, neighbour=None, memory=256, boot_loader=False):
        ChipFiles.__init__(self, directory, nand)
        self.program, self.nand, self.cli_console, self.cmdline = program, nand, cli_console, cmdline
        self.files, self.tftp, self.boot_loader = dict(files or {}), tftp, boot_loader
        network = netdev or "user" + (f",tftp={escape(pathlib.Path(tftp).resolve())}" if tftp else "")
        self._machine = Machine(self.directory, memory, network, neighbour)
        self.kernel_log, self.console, self.serial2 = self._machine.ports
        self._claim = None

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        self.kill()

    # Power.

    @property
    def running(self):
        """Whether the machine is on."""
        return self._machine.running

    def start(self, wait=True, timeout=60.0):
        """
        Powers up. With `wait`, returns when the command agent answers. The machine dies with the thread that starts it,
        so start boards from a thread that stays.
        """
        if self.running:
            raise BoardError("the board is running")
        options = self._boot_loader_options() if self.boot_loader else self._kernel_options()
        self._claim = self.lock()
        self._machine.start(options, {chip: self.chip_path(chip) for chip in CHIP_SLOTS})
        if wait:
            self.wait_boot(timeout)

    def wait_boot(self, timeout=60.0):
        """Waits until the command agent has announced itself: after start(wait=False), or when the board resets."""
        self._machine.wait_boot(timeout)

    def kill(self):
        """Cuts the power. What the flash chips had stored is in their files. Harmless when the machine is off."""
        self._machine.kill()
        if self._claim:
            self._claim.close()
            self._claim = None

    def halted(self):
        """
        A context in which the running machine stands still: what the chips' files hold there is what kill() at that moment
        would leave. Its clock goes on.
        """
        return self._machine.halted()

    def wait_off(self, timeout=60.0):
        """Waits until the machine has ended by itself, as after a planned power cut."""
        if not self._machine.wait_end(timeout):
            raise Timeout("the machine is still on")
        self.kill()

    def stop(self):
        """Shuts down in order: file systems are written back first."""
        if self.running:
            try:
                self._machine.agent.run("sync; /bin/busybox poweroff -f", 10)
            except BoardError:
                pass
            self._machine.wait_end(10)
        self.kill()

    def restart(self, wait=True):
        """Cuts the power and starts again."""
        self.kill()
        self.start(wait)

    def factory_setup(self):
        """
        What a device has been through when it leaves the factory: the recovery system, with `program` and `files`, lies in
        its partition. The rest of the flash stays as it is. The machine may be on, if it does not run from there.
        """
        self.flash_fill("config_loader", recovery_system.image(self._programs(), self.files))

    def _programs(self):
        return {SHELL_PATH: self.program} if self.program else {}

    def _kernel_options(self):
        made = artefacts.ensure()
        initrd = self.directory / "initrd.cpio"
        base = made.base.read_bytes()
        initrd.write_bytes(base + root_file_system.overlay(base, self._programs(), self.files))
        return kernel_options(made.kernel, initrd, self._kernel_words())

    def _boot_loader_options(self):
        bank = self.directory / "boot-loader.flash"
        boot_loader.write_own_environment(bank, CHIP_SLOTS["nor"], kernel_words(self._kernel_words()))
        return boot_loader_options(boot_loader.PROGRAM, bank)

    def _kernel_words(self):
        words = [f"vboard.nand_page={self.geometry.page}"]
        if self.cli_console:
            words.append(f"cli_console={self.cli_console}")
        return [*words, self.cmdline]

    # Commands and files on the board.

    def sh(self, command, timeout=60.0, check=False):
        """Runs a command line as root; `check` raises BoardError when its exit status is not 0."""
        result = self._machine.agent.run(command, timeout)
        if check and result.status:
            raise BoardError(f"{command}: status {result.status}: {result.output}")
        return result

    def put(self, path, data, mode=0o644):
        """Writes a file on the board."""
        self._machine.agent.put(path, data.encode() if isinstance(data, str) else data, mode)

    def get(self, path):
        """The bytes of a file on the board."""
        return self._machine.agent.get(path)

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


__all__ = ["Board", "BoardError", "Line", "Port", "Result", "Timeout", "UART_RATE", "SERIAL_DOWNLOAD_PAUSE"]

"""A session with the shell on a virtual board, and its flash judged from outside.

    assert dev.command("verbose 4") == "verbosity is 4\\n"
    assert dev.install(image, "flash download serial 2") == images.info(image) + SUCCESS
    dev.expect_flash(kernel_2=image)
    dev.expect_locked("bootloader")
    assert dev.environment()["bootbank"] == "2"
"""

import contextlib
import os
import time
from pathlib import Path

import boot_loader
import layout
from power_on import NOTHING, RECOVERY, PowerOn, variables
from product import model_record, record
from session import Session
from texts import SUCCESS
from virtual_board import Board, BoardError, Timeout

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("BUILD", ROOT / "build" / "arm")).resolve()

# The cores may be busy with other boards and builds: nothing that is expected to come fails for being slow.
PATIENCE = float(os.environ.get("BOARD_PATIENCE", "300"))

PARTITIONS = layout.PARTITIONS
NOR = [name for name, row in PARTITIONS.items() if row.chip == "nor"]
PROTECTED = [name for name, row in PARTITIONS.items() if row.locked]
NODES = {name: f"/dev/mtd{number}" for number, name in enumerate(PARTITIONS)}

DEFAULT_ENVIRONMENT = dict(boot_loader.variables(boot_loader.DEFAULTS))
_ERASED = b"\xff"


class BoardSession(Session):
    """A board and its shell. `options` are those of Board, `build` is the build directory whose program it runs."""

    patience = PATIENCE

    def __init__(self, directory, build=BUILD, **options):
        super().__init__()
        self.board = Board(directory, build / "recovery-loader", **options)
        self.ports = {1: self.board.console, 2: self.board.serial2}
        self.console = self.board.console
        self._pid = None
        self._power_on = None
        self._laid = {}

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        self.board.kill()

    # Power.

    def start(self):
        """Powers up; returns when the board answers."""
        self.starts += 1
        self.console = self.board.console
        self.board.start(timeout=PATIENCE)

    @property
    def power_on(self):
        """Says what the device's flash boots, see power_on.py."""
        if self._power_on is None:
            self._power_on = PowerOn(self.board.directory / "power-on", nand=self.board.nand)
        return self._power_on

    def kill(self):
        """Cuts the power."""
        self.board.kill()
        if self._power_on is not None:
            self._power_on.kill()

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
        self.starts += 1
        self.console = self.board.console
        return self.first_prompt()

    def first_prompt(self):
        """Waits for the first prompt after a start."""
        shown = super().first_prompt()
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
        self._laid = {}
        assert self.command("network ethernet stop").endswith(SUCCESS)
        self.board.sh("ip address flush dev eth0 && ip link set eth0 down && ethtool -s eth0 autoneg on", check=True)
        assert self.command("verbose 3") == "verbosity is 3\n"

    def check(self):
        """What holds after every test, and also the same process all along, and a shell that answers."""
        assert "Recovery Loader" in self.command("version")
        super().check()
        assert b"init: shell ended" not in self.board.kernel_log.output, "the shell died"
        assert self.shell_pid() == self._pid, "the shell is another process than at the start"

    def report(self):
        """What is shown of a test that failed; the ends."""
        console, kernel = self.board.console.output, self.board.kernel_log.output
        return [("console", console[-4000:].decode(errors="backslashreplace")),
                ("kernel's console", kernel[-2000:].decode(errors="backslashreplace"))]

    # Serial transfers.

    def send(self, data, port=None, **pace):
        """Sends bytes into the console, or another port, at the pace that the emulated port takes."""
        (self.console if port is None else self.port(port)).send_paced(data, **pace)

    def wait_receiving(self, port=None):
        """Waits until the shell has opened the port for a transfer and dropped its stale input."""
        self.board.wait_receiving(self.console if port is None else self.port(port), PATIENCE)

    def send_until_off(self, data):
        """Sends to the console; the power goes before the installation has ended."""
        try:
            self.send_stream(data)
        except BoardError:
            pass
        self.board.wait_off(PATIENCE)

    # The device, judged and set up from outside.

    def terminal(self, number):
        """Flags and special characters of a serial port, as the kernel has them."""
        iflag, oflag, cflag, lflag, *cc = (
            int(field, 16) for field in self.board.sh(f"stty -F /dev/ttyS{number} -g", check=True).output.split(":"))
        return iflag, oflag, cflag, lflag, cc

    def give_product(self, *items):
        """Writes a product record into flash, before the start."""
        self.board.flash_fill("prod_config", record(*items))

    def give_model(self, product_id, hwcfg=None):
        """Makes the device the model of this product ID and hardware configuration, before the start."""
        self.board.flash_fill("prod_config", model_record(product_id, hwcfg))

    def give_firmware(self):
        """Lays firmware into bank 1, which is booted, and the recovery system."""
        import firmware  # pylint: disable=import-outside-toplevel; it stands on this file
        firmware.in_bank_1(self.board)
        self._laid = firmware.serial_flash()

    def expect_still_boots(self):
        """Power brings up that firmware, and from there the shell for the next try, if its system was not replaced."""
        import firmware  # pylint: disable=import-outside-toplevel; it stands on this file
        replaced = self.flash("config_loader") != self._laid["config_loader"].rstrip(_ERASED)
        firmware.expect_still_boots(self, NOTHING if replaced else RECOVERY)

    @contextlib.contextmanager
    def only_changed(self, *numbers):
        """What happens inside touches each of these GPIO lines and no other: not even to drive it to the level that it
        has."""
        before = self.board.gpio()
        yield
        after = self.board.gpio()
        assert {number for number in after if after[number] != before[number]} == set(numbers)

    def refuse_rs485(self):
        """The emulated UART refuses the request for RS-485, also the one that switches it off: nothing is left to do."""

    def level(self, number):
        """What is on the wire of a GPIO line."""
        return self.board.gpio()[number].level

    def set_level(self, number, level):
        """Wires a level to a GPIO line from outside."""
        self.board.gpio_input(number, level)

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
        """The serial flash holds these bytes at the start of these partitions, the firmware that was given, and is erased
        everywhere else; what the boot environment holds is not looked at if it was not given."""
        partitions = {**self._laid, **partitions}
        for name in NOR:
            if name == "bootenv_1" and name not in partitions:
                continue
            expected, found = partitions.get(name, b""), self.board.flash_read(name)
            assert found[:len(expected)] == expected, f"{name} does not hold what was sent"
            assert not found[len(expected):].strip(_ERASED), f"{name} holds more than was sent"

    def environment(self):
        """The boot environment as the boot loader would read it: its defaults when the checksum is wrong."""
        return variables(self.board.flash_read("bootenv_1")) or dict(DEFAULT_ENVIRONMENT)

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

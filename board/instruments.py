"""
What tests see and set inside a running board: planned faults and counts of the flash chips, the network cable, GPIO lines,
the control device and RS-485. The kernel module offers all of it in debugfs, see the files in kernel/.
"""

import collections
import errno
import re

_DEBUG = "/sys/kernel/debug/vboard"

Line = collections.namedtuple("Line", "direction level held driven")
Line.__doc__ = """A GPIO line: "in" or "out", 0 or 1 as on the wire, whether it is exported, how often it was driven."""


class Instruments:
    """For a class that has `sh()`, as Board has."""

    # Faults, see kernel/faults.c. They end with the machine.

    def fault(self, operation, partition, nth=1, times=1, error=errno.EIO):
        """Makes the n-th following read, write, erase, lock or unlock on a partition fail, `times` times (0: for ever)."""
        self._plan(f"{operation} {partition} {nth - 1} {times} fail {error}")

    def slow(self, operation, partition, seconds):
        """Delays each of these operations."""
        self._plan(f"{operation} {partition} 0 0 delay {round(seconds * 1e6)}")

    def cut_power_at(self, operation, partition, nth=1, done=0):
        """The n-th following operation is done by half, or by `done` bytes, then the machine is dead; see wait_off()."""
        self._plan(f"{operation} {partition} {nth - 1} 1 cut {done}")

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

    # The journal, see kernel/journal.c and flash_journal.py.

    def journal_start(self):
        """From now on all that changes flash is noted."""
        self.sh(f"echo on >{_DEBUG}/journal", check=True)

    def journal_end(self):
        """Ends that. The bytes of the journal, for flash_journal.parse()."""
        self.sh(f"echo off >{_DEBUG}/journal", check=True)
        return self.get(f"{_DEBUG}/journal")

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

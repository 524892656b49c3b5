"""What a device does when it gets power: another board gets a copy of its flash, and its boot loader decides.

    assert dev.power_on.judge(dev.board) == (firmware.A.report("1"), RECOVERY)

Most of a device's flash is nothing to its boot loader. A copy that differs from an earlier one only there is not booted
again: what came up then is the answer.
"""

import hashlib
import os
import re
import time
import zlib

import layout
from texts import PROMPT
from virtual_board import Board, Timeout

RECOVERY = "the recovery system"
NOTHING = "nothing: the boot loader waits for a person"

_PATIENCE = float(os.environ.get("BOARD_PATIENCE", "180"))
_FIRMWARE = re.compile(rb"\n(Firmware \S+ on [^\r\n]*)\r\n")
_BOOT_LOADER = re.compile(rb"\n=> $")


def variables(environment):
    """{name: value} of a boot environment's bytes; nothing when its checksum is wrong."""
    if int.from_bytes(environment[:4], "little") != zlib.crc32(environment[4:]):
        return {}
    return dict(text.split("=", 1) for text in environment[4:].split(b"\0\0")[0].decode().split("\0"))


def wait_for_start(board):
    """Waits for what comes up on a board that was started or reset: the firmware's report, RECOVERY or NOTHING."""
    deadline = time.monotonic() + _PATIENCE
    while time.monotonic() < deadline:
        if _BOOT_LOADER.search(board.kernel_log.unread):
            return NOTHING
        try:
            found = board.console.expect(_FIRMWARE, PROMPT, timeout=0.5)
        except Timeout:
            if not board.running:
                raise
            continue
        return found.group(1).decode() if found.index == 0 else RECOVERY
    raise Timeout(f"nothing came up: {board.kernel_log.output[-2000:]!r} {board.console.output[-1000:]!r}")


class PowerOn:
    """The other board, in `directory`, with the recovery system in no other place than the flash."""

    def __init__(self, directory, **options):
        self.board = Board(directory, boot_loader=True, **options)
        self._came_up, self._next = {}, {}

    def kill(self):
        """Cuts the power."""
        self.board.kill()

    def judge(self, device):
        """
        (what comes up when a device, a Board that is on or off, gets power; what comes up when it is then told to go to the
        recovery shell), each the firmware's report, RECOVERY or NOTHING.
        """
        self.kill()
        self.board.copy_flash_from(device)
        environment = self.board.flash_read("bootenv_1")
        recovery = self.board.flash_read("config_loader")
        key = self._sum(environment, recovery, self._kernel(environment), self.board.chip_path("nand").read_bytes())
        next_key = self._sum(environment, recovery)
        if key not in self._came_up or next_key not in self._next:
            self._came_up[key] = self._start()
            if self._came_up[key] not in (RECOVERY, NOTHING):
                self.board.console.send("shell\r")
                self._next[next_key] = wait_for_start(self.board)
        self.kill()
        came_up = self._came_up[key]
        return came_up, came_up if came_up in (RECOVERY, NOTHING) else self._next[next_key]

    def _start(self):
        self.board.console.skip()
        self.board.kernel_log.skip()
        self.board.start(wait=False)
        return wait_for_start(self.board)

    def _kernel(self, environment):
        """The partition that the boot loader looks into for a kernel."""
        name = f"kernel_{variables(environment).get('bootbank')}"
        return self.board.flash_read(name) if name in layout.PARTITIONS else b""

    @staticmethod
    def _sum(*contents):
        taken = hashlib.sha1()
        for data in contents:
            taken.update(data)
        return taken.digest()

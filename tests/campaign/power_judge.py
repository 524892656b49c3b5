"""
What a device's flash is worth after a power cut, as far as bytes alone decide: what the boot loader makes of the
environment and the kernels, and whether the old bank is byte for byte what it was. Nothing is started here.
"""

import hashlib
import struct
import zlib

import layout
import real_images
from firmware import A, B, SMALL_B
from power_on import variables

_EC, _VID = b"UBI#", b"UBI!"
_EC_OFFSETS = struct.Struct(">II")  # of the second header and the data, at byte 16
_VID_FIELDS = struct.Struct(">4sBBBBIIIIIIIIQ")  # as far as the sequence number
_HEADER_SIZE, _CRC_AT = 64, 60
_TABLE = 0x7FFFEFFF  # the volume that holds the table of volumes

BANK_1, BANK_2, SHELL, NOTHING = "bank 1", "bank 2", "shell", "nothing"


def _sum(data):
    return hashlib.sha1(data).hexdigest()[:16]


def _crc(data):
    return zlib.crc32(data) ^ 0xFFFFFFFF


def _is_header(data, magic):
    return data[:4] == magic and int.from_bytes(data[_CRC_AT:_HEADER_SIZE], "big") == _crc(data[:_CRC_AT])


def volume(flash, number, geometry):
    """
    {logical block: sum of its data} of a UBI volume; drivers/mtd/ubi/ubi-media.h tells the form. Of two copies of a block
    the later one counts; one that was being copied counts only if it is whole.
    """
    best = {}
    for at in range(0, layout.PARTITIONS["ubi0"].size, geometry.erase_block):
        if not _is_header(flash.read("ubi0", at, _HEADER_SIZE), _EC):
            continue
        second, data = _EC_OFFSETS.unpack(flash.read("ubi0", at + 16, 8))
        header = flash.read("ubi0", at + second, _HEADER_SIZE)
        if not _is_header(header, _VID):
            continue
        _, _, _, copied, _, owner, block, _, size, _, _, data_sum, _, sequence = _VID_FIELDS.unpack(header[:_VID_FIELDS.size])
        if owner != number or (block in best and best[block][0] > sequence):
            continue
        if copied and _crc(flash.read("ubi0", at + data, size)) != data_sum:
            continue
        best[block] = sequence, at + data, geometry.erase_block - data
    return {block: _sum(flash.read("ubi0", at, length)) for block, (_, at, length) in best.items()}


class Judge:
    """
    Judges what has read(partition, offset, length) as a replay has, against the flash that it is given first, the
    device before the cut. `version(partition)` may say that contents are the ones that were judged before.
    """

    def __init__(self, flash, geometry):
        self._geometry, self._known = geometry, {}
        # A campaign may go on when what it installs was built anew: what the device holds counts as well.
        self._kernels = {_sum(real_images.contents(one.image(None))) for one in (A, B, SMALL_B)}
        known = variables(flash.read("bootenv_1"))
        self._kernels |= {self._kernel(flash, known, bank, lambda partition: None) for bank in ("1", "2")} - {""}
        self._recovery = _sum(flash.read("config_loader"))
        self._kernel_1, self._root_1 = _sum(flash.read("kernel_1")), volume(flash, 0, geometry)

    def _once(self, what, key, make):
        if key is None:
            return make()
        if (what, key) not in self._known:
            self._known[what, key] = make()
        return self._known[what, key]

    def __call__(self, flash, version=None):
        """
        {"boots": BANK_1, BANK_2, SHELL or NOTHING, "bank": the variable's value, "torn": the environment's sum is wrong, "old": bank 1 is byte for byte
        what it was, "key": what is the same for two flashes that no start can tell apart}.
        """
        def of(partition):
            return version and version[partition]
        environment = self._once("environment", of("bootenv_1"), lambda: flash.read("bootenv_1"))
        known = variables(environment)
        bank = known.get("bootbank")
        kernel_1 = self._once("kernel_1", of("kernel_1"), lambda: _sum(flash.read("kernel_1")) == self._kernel_1)
        root_1 = self._once("rootfs_1", of("ubi0"), lambda: self._has_root_1(flash))
        recovers = self._once("recovery", of("config_loader"),
                              lambda: _sum(flash.read("config_loader")) == self._recovery)
        kernel = self._kernel(flash, known, bank, of) if known.get("bootcmd", "run flashboot") == "run flashboot" else ""
        fallback = SHELL if recovers else NOTHING
        # A kernel whose root file system is gone leads to the shell, too, see docs/boot.md.
        boots = f"bank {bank}" if kernel in self._kernels and (bank != "1" or root_1) else fallback
        ubi = (f"{version['ubi0']}" if version else _sum(flash.read("ubi0"))) if kernel in self._kernels else "unused"
        return {"boots": boots, "bank": bank, "torn": not known, "old": kernel_1 and root_1,
                "key": f"{_sum(environment)} {kernel} {recovers} {ubi}"}

    def _has_root_1(self, flash):
        """Without a table of volumes there are none."""
        return bool(volume(flash, _TABLE, self._geometry)) and volume(flash, 0, self._geometry) == self._root_1

    def _kernel(self, flash, known, bank, of):
        """The sum of what the boot loader would start."""
        name, size = f"kernel_{bank}", int(known.get(f"kernel_size_{bank}") or "0", 16)
        if name not in layout.PARTITIONS or not size:
            return ""
        return self._once(f"{name} {size}", of(name), lambda: _sum(flash.read(name, 256, size)))

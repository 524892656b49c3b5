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


def _block(flash, number, geometry, owners):
    """(volume, its block, sequence number, sum of the data) of an erase block, if a volume in `owners` has it."""
    at = number * geometry.erase_block
    if not _is_header(flash.read("ubi0", at, _HEADER_SIZE), _EC):
        return None
    second, data = _EC_OFFSETS.unpack(flash.read("ubi0", at + 16, 8))
    header = flash.read("ubi0", at + second, _HEADER_SIZE)
    if not _is_header(header, _VID):
        return None
    _, _, _, copied, _, owner, block, _, size, _, _, data_sum, _, sequence = _VID_FIELDS.unpack(header[:_VID_FIELDS.size])
    if owner not in owners or (copied and _crc(flash.read("ubi0", at + data, size)) != data_sum):
        return None
    return owner, block, sequence, _sum(flash.read("ubi0", at + data, geometry.erase_block - data))


class Volumes:
    """
    Finds the blocks of these UBI volumes in flash; drivers/mtd/ubi/ubi-media.h tells the form. Of two copies of a block
    the later one counts; one that was being copied counts only if it is whole.
    """

    def __init__(self, geometry, *owners):
        self._geometry, self._owners = geometry, owners
        self._known = {}

    def __call__(self, flash, versions=None):
        """
        {volume: {logical block: sum of its data}}. `versions`: {erase block: what is another one when it holds something else},
        0 when it is not in there: what is known is not read again.
        """
        best = {owner: {} for owner in self._owners}
        for number in range(layout.PARTITIONS["ubi0"].size // self._geometry.erase_block):
            found = self._found(flash, number, versions)
            if found:
                owner, block, sequence, data = found
                if best[owner].get(block, (-1,))[0] <= sequence:
                    best[owner][block] = sequence, data
        return {owner: {block: data for block, (_, data) in blocks.items()} for owner, blocks in best.items()}

    def _found(self, flash, number, versions):
        if versions is None:
            return _block(flash, number, self._geometry, self._owners)
        version, known = versions.get(number, 0), self._known.get(number)
        if not known or known[0] != version:
            known = self._known[number] = version, _block(flash, number, self._geometry, self._owners)
        return known[1]


class Judge:
    """
    Judges what has read(partition, offset, length) as a replay has, against the flash that it is given first, the
    device before the cut.
    """

    def __init__(self, flash, geometry):
        self._known, self._volumes = {}, Volumes(geometry, 0, _TABLE)
        # A campaign may go on when what it installs was built anew: what the device holds counts as well.
        self._kernels = {_sum(real_images.contents(one.image(None))) for one in (A, B, SMALL_B)}
        known = variables(flash.read("bootenv_1"))
        self._kernels |= {self._kernel(flash, known, bank, lambda partition: None) for bank in ("1", "2")} - {""}
        self._recovery = _sum(flash.read("config_loader"))
        self._kernel_1, self._root_1 = _sum(flash.read("kernel_1")), self._volumes(flash)[0]

    def _once(self, what, key, make):
        if key is None:
            return make()
        if (what, key) not in self._known:
            self._known[what, key] = make()
        return self._known[what, key]

    def __call__(self, flash, version=None, block_version=None):
        """
        `version` and `block_version` as a Replay of the same device has them: what is known is not read again.
        {"boots": BANK_1, BANK_2, SHELL or NOTHING, "bank": the variable's value, "torn": the environment's sum is wrong, "old": bank 1 is byte for byte
        what it was, "key": what is the same for two flashes that no start can tell apart}.
        """
        def of(partition):
            return version and version[partition]
        environment = self._once("environment", of("bootenv_1"), lambda: flash.read("bootenv_1"))
        known = variables(environment)
        bank = known.get("bootbank")
        kernel_1 = self._once("kernel_1", of("kernel_1"), lambda: _sum(flash.read("kernel_1")) == self._kernel_1)
        root_1 = self._once("rootfs_1", of("ubi0"), lambda: self._has_root_1(flash, block_version))
        recovers = self._once("recovery", of("config_loader"),
                              lambda: _sum(flash.read("config_loader")) == self._recovery)
        kernel = self._kernel(flash, known, bank, of) if known.get("bootcmd", "run flashboot") == "run flashboot" else ""
        fallback = SHELL if recovers else NOTHING
        # A kernel whose root file system is gone leads to the shell, too, see docs/boot.md.
        boots = f"bank {bank}" if kernel in self._kernels and (bank != "1" or root_1) else fallback
        ubi = (f"{version['ubi0']}" if version else _sum(flash.read("ubi0"))) if kernel in self._kernels else "unused"
        return {"boots": boots, "bank": bank, "torn": not known, "old": kernel_1 and root_1,
                "key": f"{_sum(environment)} {kernel} {recovers} {ubi}"}

    def _has_root_1(self, flash, block_version):
        """Without a table of volumes there are none."""
        found = self._volumes(flash, block_version)
        return bool(found[_TABLE]) and found[0] == self._root_1

    def _kernel(self, flash, known, bank, of):
        """The sum of what the boot loader would start."""
        name, size = f"kernel_{bank}", int(known.get(f"kernel_size_{bank}") or "0", 16)
        if name not in layout.PARTITIONS or not size:
            return ""
        return self._once(f"{name} {size}", of(name), lambda: _sum(flash.read(name, 256, size)))

"""The board's flash layout, read from the kernel module's own table, and how the chips' cells lie in their files."""

import pathlib
import re

_ROWS = pathlib.Path(__file__).parent / "kernel" / "partitions.h"
_ROW = re.compile(r'^PARTITION\((\w+), "(\w+)", (\d+), (true|false)\)$', re.MULTILINE)

NOR_ERASE_BLOCK = 64 << 10


class Partition:
    """One row: the chip ("nor" or "nand"), offset and size in bytes, and whether it is locked at power-up."""

    def __init__(self, chip, name, offset, size, locked):
        self.chip, self.name, self.offset, self.size, self.locked = chip, name, offset, size, locked


class NandGeometry:
    """Sizes in bytes of the NAND flash's page, spare bytes per page and erase block; UBI's logical erase block too."""

    def __init__(self, page, oob, erase_block, bad_mark):
        self.page, self.oob, self.erase_block, self.bad_mark = page, oob, erase_block, bad_mark
        self.leb = erase_block - 2 * page


NAND_GEOMETRIES = {"128k": NandGeometry(2048, 64, 128 << 10, 0), "16k": NandGeometry(512, 16, 16 << 10, 5)}


def _read_rows():
    partitions, ends = {}, {}
    for chip, name, kib, locked in _ROW.findall(_ROWS.read_text()):
        size, offset = int(kib) << 10, ends.get(chip, 0)
        partitions[name] = Partition(chip, name, offset, size, locked == "true")
        ends[chip] = offset + size
    return partitions, ends


# In the device's order: mtd0, mtd1, ...
PARTITIONS, CHIP_SIZES = _read_rows()

# A shared-memory window is a power of two; the NAND's holds the spare bytes behind the pages.
FILE_SIZES = {"nor": 1 << (CHIP_SIZES["nor"] - 1).bit_length(), "nand": 2 * CHIP_SIZES["nand"]}

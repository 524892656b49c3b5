"""
The flash chips' cells, which lie in two files of the host. Those of the NAND flash are inverted, so that erased flash is a
hole; those of the serial flash are not, for the boot loader reads them as they lie. Here they are read and programmed from
outside the machine, which may be on or off.
"""

import fcntl
import os
import pathlib
import subprocess

import layout
from errors import BoardError

_ERASE_PIECE = 1 << 20
# What turns a chip's cells round on their way to and from the file.
_TURN = {"nor": bytes(range(256)), "nand": bytes(255 - value for value in range(256))}
_ERASED = {chip: turn[0xFF:] for chip, turn in _TURN.items()}


class ChipFiles:
    """Both chips of one device, in `directory`, made erased when missing. `nand`: erase block size, "128k" or "16k"."""

    def __init__(self, directory, nand):
        self.directory = pathlib.Path(directory).resolve()
        self.geometry = layout.NAND_GEOMETRIES[nand]
        self.directory.mkdir(parents=True, exist_ok=True)
        for chip in layout.FILE_SIZES:
            if not self.chip_path(chip).exists():
                self._make_chip(chip)

    def lock(self):
        """
        Claims the flash: two machines on one would be worse than any fault that a test plans. Returns a file that holds the
        claim until it is closed; raises BoardError when another holds it.
        """
        claim = open(self.directory / "lock", "w", encoding="ascii")
        try:
            fcntl.flock(claim, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError as error:
            claim.close()
            raise BoardError(f"a board is running in {self.directory}") from error
        return claim

    def chip_path(self, chip):
        """The file of the chip "nor" or "nand"."""
        return self.directory / f"{chip}.flash"

    def _make_chip(self, chip):
        with open(self.chip_path(chip), "wb") as cells:
            if _ERASED[chip] == b"\0":
                cells.truncate(layout.FILE_SIZES[chip])
            else:
                cells.write(_ERASED[chip] * layout.FILE_SIZES[chip])

    def fresh_flash(self):
        """Makes the device as new: both chips erased, no bad blocks. The machine must be off."""
        with self.lock():
            for chip in layout.FILE_SIZES:
                self._make_chip(chip)

    def copy_flash_from(self, other):
        """Takes over the flash of another board, or of a directory that save_flash() wrote. The machine must be off."""
        source = other.directory if isinstance(other, ChipFiles) else pathlib.Path(other)
        with self.lock():
            for chip in layout.FILE_SIZES:
                _copy_sparse(source / f"{chip}.flash", self.chip_path(chip))

    def save_flash(self, directory):
        """Copies both chips into a directory."""
        pathlib.Path(directory).mkdir(parents=True, exist_ok=True)
        for chip in layout.FILE_SIZES:
            _copy_sparse(self.chip_path(chip), pathlib.Path(directory) / f"{chip}.flash")

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
            with open(self.chip_path(row.chip), "r+b") as cells:
                for address in range(row.offset, row.offset + row.size, _ERASE_PIECE):
                    erased = _ERASED[row.chip] * min(_ERASE_PIECE, row.offset + row.size - address)
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
        with open(self.chip_path(chip), "rb") as cells:
            return os.pread(cells.fileno(), length, address).translate(_TURN[chip])

    def _write_cells(self, chip, address, data):
        with open(self.chip_path(chip), "r+b") as cells:
            os.pwrite(cells.fileno(), data.translate(_TURN[chip]), address)


def _check_range(row, offset, length):
    if offset < 0 or length < 0 or offset + length > row.size:
        raise ValueError(f"{row.name}: {offset}+{length} lies outside its {row.size} bytes")


def _copy_sparse(source, target):
    subprocess.run(["cp", "--sparse=always", "--reflink=auto", str(source), str(target)], check=True)

"""
What was done to the flash chips, operation by operation (kernel/journal.c), and the flash as a power cut at any of them
leaves it: the operations before it, done again on a copy of the flash as it was at the beginning.

    board.save_flash(before)
    board.journal_start()
    ...
    operations = board.journal_end()
    flash = Replay(before, operations, board.geometry)
    flash.go_to(17)             # seventeen are done
    flash.go_to(17, done=100)   # and a hundred bytes of the next one
"""

import itertools
import mmap
import pathlib
import struct
from typing import NamedTuple

import layout

_HEAD = struct.Struct("<IBBHQQQ")
_NAMES = ("read", "write", "erase", "lock", "unlock")
_CHIPS = ("nor", "nand")
_PIECE = 64 << 10
_taken = itertools.count()


class Operation(NamedTuple):
    """One operation of a chip: its address there, the bytes it is about, what was written, seconds since power-up."""

    name: str
    partition: str
    chip: str
    address: int
    size: int
    data: bytes
    seconds: float

    @property
    def tears(self):
        """Whether a power cut in the middle of it leaves something else than one before or behind it."""
        return self.name in ("write", "erase")


def parse(raw):
    """The operations of a journal's bytes. Raises ValueError when spare bytes were written, which are not in it."""
    operations, at = [], 0
    while at < len(raw):
        length, name, chip, spare, address, size, time = _HEAD.unpack_from(raw, at)
        if spare:
            raise ValueError("spare bytes were written: the journal does not hold them")
        data = raw[at + _HEAD.size:at + _HEAD.size + length]
        operations.append(Operation(_NAMES[name], _partition(_CHIPS[chip], address), _CHIPS[chip], address, size, data, time / 1e9))
        at += _HEAD.size + length
    return operations


def _partition(chip, address):
    return next(row.name for row in layout.PARTITIONS.values()
                if row.chip == chip and row.offset <= address < row.offset + row.size)


class Replay:
    """
    The flash at any place of a journal. `directory`: the chips as save_flash() wrote them; they stay as they are.
    `version[partition]` is another one whenever the contents may be other ones; so is `block_version.get(block)` of an erase
    block of the NAND flash.
    """

    def __init__(self, directory, operations, geometry):
        self._directory, self.operations, self._geometry = pathlib.Path(directory), operations, geometry
        self._cells, self._done, self._undo = {}, 0, None
        self._rewind()

    def _rewind(self):
        self.close()
        for chip in layout.FILE_SIZES:
            with open(self._directory / f"{chip}.flash", "rb") as cells:
                self._cells[chip] = mmap.mmap(cells.fileno(), 0, access=mmap.ACCESS_COPY)
        self._done = 0
        self.version, self.block_version = {name: 0 for name in layout.PARTITIONS}, {}

    def close(self):
        """Gives the memory back."""
        for cells in self._cells.values():
            cells.close()
        self._cells, self._undo = {}, None

    def go_to(self, number, done=0):
        """The flash when `number` operations have been done, and `done` bytes of the next."""
        if self._undo:
            chip, pieces, partition, version, block_version = self._undo
            for address, held in pieces:
                self._cells[chip][address:address + len(held)] = held
            self.version[partition], self.block_version, self._undo = version, block_version, None
        if number < self._done:
            self._rewind()
        while self._done < number:
            self._do(self.operations[self._done])
            self._done += 1
            self._renew(self.operations[self._done - 1], self._done)
        if done:
            operation = self.operations[number]
            pieces = [(address, bytes(self._cells[operation.chip][address:address + size]))
                      for address, size in self._ranges(operation)]
            self._undo = operation.chip, pieces, operation.partition, self.version[operation.partition], dict(self.block_version)
            self._do(operation, done)
            self._renew(operation, (number, done))

    def _renew(self, operation, version):
        if not operation.tears:
            return
        self.version[operation.partition] = version
        if operation.chip == "nand":
            size = self._geometry.erase_block
            for block in range(operation.address // size, (operation.address + operation.size - 1) // size + 1):
                self.block_version[block] = version

    def _ranges(self, operation):
        yield operation.address, operation.size
        if operation.chip == "nand" and operation.name == "erase":
            page, oob = self._geometry.page, self._geometry.oob
            yield layout.CHIP_SIZES["nand"] + operation.address // page * oob, operation.size // page * oob

    def _do(self, operation, done=None):
        """As the chip does it, see kernel/nor.c and nand.c: a torn erase of the NAND flash has erased its spare bytes."""
        cells = self._cells[operation.chip]
        length = operation.size if done is None else min(done, operation.size)
        inverted = operation.chip == "nand"
        if operation.name == "erase":
            for number, (address, size) in enumerate(self._ranges(operation)):
                size = size if number else length
                cells[address:address + size] = (b"\0" if inverted else b"\xff") * size
        elif operation.name == "write":
            place = slice(operation.address, operation.address + length)
            held, data = int.from_bytes(cells[place], "little"), int.from_bytes(operation.data[:length], "little")
            ones = (1 << 8 * length) - 1
            cells[place] = (held | (data ^ ones) if inverted else held & data).to_bytes(length, "little")

    def read(self, partition, offset=0, length=None):
        """The bytes of a partition, as ChipFiles.flash_read()."""
        row = layout.PARTITIONS[partition]
        length = row.size - offset if length is None else length
        data = self._cells[row.chip][row.offset + offset:row.offset + offset + length]
        return data.translate(_INVERTED) if row.chip == "nand" else data

    def take_from(self, board):
        """Makes this flash what a board's is. Only what differs takes memory. No operation of the journal follows."""
        for chip, cells in self._cells.items():
            with open(board.chip_path(chip), "rb") as file, mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ) as held:
                # A board may stand still meanwhile: behind its cells the file is empty.
                spare = layout.CHIP_SIZES[chip] // self._geometry.page * self._geometry.oob if chip == "nand" else 0
                for address in _take_over(cells, held, layout.CHIP_SIZES[chip] + spare):
                    self._taken(chip, address)

    def _taken(self, chip, address):
        """What lies there is known to nobody: its versions are like no other."""
        if address >= layout.CHIP_SIZES[chip]:
            return
        version = f"taken {next(_taken)}"
        self.version[_partition(chip, address)] = version
        if chip == "nand":
            size = self._geometry.erase_block
            self.block_version.update(dict.fromkeys(range(address // size, (address + _PIECE - 1) // size + 1), version))

    def lay_into(self, board):
        """Makes a board's flash this one, whether it is on or off."""
        lay_cells(self._cells, board)


_INVERTED = bytes(255 - value for value in range(256))


def lay_cells(cells, board):
    """Makes a board's flash what these memory maps {chip: map} hold; only what differs is written, and holes stay."""
    for chip, wanted in cells.items():
        with open(board.chip_path(chip), "r+b") as file, mmap.mmap(file.fileno(), 0) as held:
            _take_over(held, wanted, len(held))


def _take_over(cells, wanted, length):
    """Copies what differs in the first `length` bytes; the addresses of the pieces that did."""
    different = []
    for at in range(0, length, _PIECE):
        piece = wanted[at:at + _PIECE]
        if cells[at:at + _PIECE] != piece:
            cells[at:at + _PIECE] = piece
            different.append(at)
    return different


def open_cells(directory):
    """The memory maps {chip: map} of a board's directory, or one that save_flash() wrote."""
    found = {}
    for chip in layout.FILE_SIZES:
        with open(pathlib.Path(directory) / f"{chip}.flash", "rb") as cells:
            found[chip] = mmap.mmap(cells.fileno(), 0, access=mmap.ACCESS_READ)
    return found

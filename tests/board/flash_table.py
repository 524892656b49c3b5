"""The table that flash analyze shows.

    assert dev.command("flash analyze") == table(("active", "1.5", "-", "1234", "345a59fa"), ("clean",), ...) + SUCCESS
"""

from board_session import PARTITIONS
from ubi_device import VOLUMES

_NAMES = (*PARTITIONS, *VOLUMES)
_NODES = (*(f"mtd{number}" for number in range(len(PARTITIONS))), *(f"ubi0_{number}" for number in range(len(VOLUMES))))
_BANKS = "-----12S---12S--"
_HEADING = """
partition  name            bk  status    version      pc  size-hex   crc-hex 
---------  --------------  --  --------  -----------  --  ---------  --------
"""


def row(name, status, version="-", code="-", size="-", crc="-"):
    """One line of it."""
    at = _NAMES.index(name)
    return f"{_NODES[at]:10} {name:15} {_BANKS[at]:3} {status:9} {version:12} {code:2}  {size:>9}  {crc:>8}\n"


def table(*rows):
    """The whole, of (status, version, code, size, checksum) rows that may end early."""
    return _HEADING + "".join(row(name, *columns) for name, columns in zip(_NAMES, rows, strict=True)) + "\n"

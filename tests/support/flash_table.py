"""The table that flash analyze shows.

    assert dev.command("flash analyze") == table(bootstrap=("active", "1.5", "-", "1234", "345a59fa"), ...) + SUCCESS
"""

HEADING = """
partition  name            bk  status    version      pc  size-hex   crc-hex 
---------  --------------  --  --------  -----------  --  ---------  --------
"""
NAMES = ("bootstrap", "prod_config", "bootloader", "bootenv_1", "bootenv_2", "kernel_1", "kernel_2", "kernel_single",
         "config_loader", "param_space", "ubi0", "rootfs_1", "rootfs_2", "rootfs_single", "vexo_private", "vexo_user")
_NODES = tuple(f"mtd{n}" for n in range(11)) + tuple(f"ubi0_{n}" for n in range(5))
_BANKS = "-----12S---12S--"


def row(name, status="-", version="-", code="-", size="-", crc="-"):
    """One line of it."""
    at = NAMES.index(name)
    return f"{_NODES[at]:10} {name:15} {_BANKS[at]:3} {status:9} {version:12} {code:2}  {size:>9}  {crc:>8}\n"


def table(**rows):
    """The whole, of (status, version, code, size, checksum) that may end early; what is not given is erased, and of the
    schema with two banks."""
    rows = {name: ("-",) if name in ("kernel_single", "rootfs_single") else ("clean",) for name in NAMES} | rows
    return HEADING + "".join(row(name, *columns) for name, columns in rows.items()) + "\n"

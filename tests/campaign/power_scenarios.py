"""What the campaign of power cuts cuts off: each scenario is a device, one command on it, and what holds when it was done."""

import functools
from typing import Callable, NamedTuple

import firmware
import images
import layout
import real_images
import ubi_device
from board_session import DEFAULT_ENVIRONMENT, BoardSession
from firmware import A, B, C, SMALL_B
from texts import SUCCESS

_PACKAGES = "python/lib/python2.7/site-packages"
USER_FILES = ubi_device.contents({"log/today": b"the user's other files\n" * 50})
_OLD_PYTHON = ubi_device.contents({f"{_PACKAGES}/thermo/__init__.py": b"print('21.5 C')\n",
                                   "python/bin/python": (images.pattern(900), 0o755)})
_NEW_PYTHON = ubi_device.contents({"bin/python": (images.pattern(40_000), 0o755), "lib/python2.7/os.py": images.pattern(3000, 1)})
_SERVER = "10.0.2.2"
_SPLIT_KIB, _SPLIT_ROOT_KIB = 48 << 10, 10240


class Scenario(NamedTuple):
    """
    `lay(chips)` gives erased flash what is on the device; `holds(dev)` is what is wrong with it after the
    command has succeeded, in words. `served`: what the TFTP server has. `sent`: what comes over the serial line.
    `old`: the old bank has to survive. `restarts`: the kernel's partitions change, so that a try needs a start.
    `aids`: commands that a person may have to give before the same command succeeds.
    """

    name: str
    line: str
    lay: Callable
    holds: Callable
    served: bytes = b""
    sent: bytes = b""
    old: bool = True
    restarts: bool = False
    aids: tuple = ()

    def run(self, dev: BoardSession) -> str:
        """Gives the command; what was shown."""
        if self.served:
            (dev.board.tftp / "image.rom").write_bytes(self.served)
        if self.sent:
            return ubi_device.install(dev, self.sent, self.line)
        return dev.command(self.line)


def succeeded(shown: str) -> bool:
    """Whether a command has said so."""
    return shown.endswith(SUCCESS) and "ERROR" not in shown


# Devices.

def _bank_1(board, kernel_2=b"", ubi=None, **more):
    """A boots from bank 1; `kernel_2` and the UBI partition `ubi` as they are given."""
    firmware.lay_ubi(board, ubi or firmware.ubi(rootfs_1=A, rootfs_2=C))
    known = {"kernel_size_2": firmware.kernel_size(B)} if kernel_2 else {}
    for name, data in {**firmware.serial_flash(**known, **more), "kernel_2": kernel_2}.items():
        board.flash_write(name, data)


def _only_kernel_missing(board):
    _bank_1(board, ubi=firmware.ubi(rootfs_1=A, rootfs_2=B))


def _only_root_missing(board):
    """Bank 2 has a kernel. An image without one makes the installation forget it: the shell comes up then."""
    _bank_1(board, firmware.kernel_part(B))


@functools.cache
def _ubi_with_python():
    return ubi_device.make(rootfs_1=A.root_ubifs().read_bytes(),
                           vexo_user=ubi_device.ubifs({**USER_FILES, **_OLD_PYTHON}, lebs=200))


def _with_python(board):
    _bank_1(board, ubi=_ubi_with_python())


def _factory(board):
    board.flash_write("config_loader", firmware.recovery())


def _split_and_clean(board):
    """A device whose UBI partition was made smaller; nothing is in it now."""
    _factory(board)
    board.flash_write("bootenv_1", real_images.environment(bootdelay="0", mtdparts=f"atmel_nand:{_SPLIT_KIB}k(ubi0),-(user)"))


# What holds afterwards.

def _environment(dev, **wanted):
    found = dev.environment()
    return [f"{name} is {found.get(name)}" for name, value in wanted.items() if found.get(name) != value]


def _files(dev, volume, wanted, exactly=True):
    with ubi_device.attached(dev) as ubi:
        found = ubi.files(volume)
    if not exactly:
        found = {path: entry for path, entry in found.items() if path in wanted}
    return [] if found == wanted else [f"{volume} holds {sorted(found)}"]


def _kernel_installed(image):
    def holds(dev):
        size = f"{len(real_images.contents(image)):X}"
        return ([] if dev.flash("kernel_2") == image.rstrip(b"\xff") else ["kernel_2 is not what was sent"]) + _environment(
            dev, bootbank="2", kernel_size_2=size)
    return holds


def _root_installed(dev):
    return _files(dev, "rootfs_2", B.files()) + _environment(dev, bootbank="2")


def _python_installed(dev):
    wanted = {**USER_FILES, **{f"python/{path}": entry for path, entry in _NEW_PYTHON.items()}}
    return _files(dev, "vexo_user", wanted, exactly=False) + _environment(dev, bootbank="1")


def _partitions(dev):
    rows = [line.split() for line in dev.board.get("/proc/mtd").decode().splitlines()[1:]]
    return {row[3].strip('"'): int(row[1], 16) for row in rows if row[3].strip('"') in ("ubi0", "user")}


def _is_split(dev):
    size, whole = _SPLIT_KIB << 10, layout.PARTITIONS["ubi0"].size
    wrong = [] if _partitions(dev) == {"ubi0": size, "user": whole - size} else [f"partitions: {_partitions(dev)}"]
    return wrong + _environment(dev, mtdparts=f"atmel_nand:{_SPLIT_KIB}k(ubi0),-(user)") + _files(dev, "rootfs_1", A.files())


def _is_merged(dev):
    """An installation that merges writes the size of the whole down; no start splits at that."""
    size = layout.PARTITIONS["ubi0"].size
    wrong = [] if _partitions(dev) == {"ubi0": size} else [f"partitions: {_partitions(dev)}"]
    return wrong + _environment(dev, mtdparts=f"atmel_nand:{size >> 10}k(ubi0),-(user)") + _files(dev, "rootfs_1", A.files())


def _is_clean(dev):
    wrong = ["ubi0 is not erased"] if dev.flash("ubi0") else []
    return wrong + _environment(dev, **DEFAULT_ENVIRONMENT, kernel_size_1=None)


# All of them.

def _python_image():
    with ubi_device.tempfile.TemporaryDirectory() as name:
        parts = ubi_device.PartFiles(ubi_device.Path(name))
        return parts.build(("python", ubi_device.tar_gz(_NEW_PYTHON)))


@functools.cache
def scenarios() -> dict[str, Scenario]:
    """{name: scenario}; the firmware of the devices is built when it is missing."""
    dummy = real_images.build(("kernel", real_images.SMALL_KERNEL))
    split = ("total-size-kib", str(_SPLIT_KIB)), ("rootfs-size-kib", str(_SPLIT_ROOT_KIB))
    clean_nand = ("flash clean nand",)
    both = []
    for way, line, field in (("serial", "flash download serial 2", "sent"),
                             ("network", f"flash download network 2 {_SERVER} image.rom", "served")):
        # A raw part that comes over a serial line goes into erased flash, or must be told to make it so.
        kill = ("flash kill 2 kernel",) if way == "serial" else ()
        # The kernel is none, which the boot loader sees: a real one is a hundred times as long.
        both += [Scenario(f"{way} kernel", line, _only_kernel_missing, _kernel_installed(dummy), aids=kill, **{field: dummy}),
                 Scenario(f"{way} archive", line, _only_root_missing, _root_installed, **{field: B.image("tar", kernel=False)}),
                 Scenario(f"{way} UBIFS", line, _only_root_missing, _root_installed, **{field: B.image("128k", kernel=False)}),
                 Scenario(f"{way} Python", line, _with_python, _python_installed, **{field: _python_image()})]
    whole = SMALL_B.image("tar")
    network = f"flash download network 1 {_SERVER} image.rom"
    every = both + [
        Scenario("network firmware", f"flash download network 2 {_SERVER} image.rom", _bank_1, _root_installed, served=whole),
        Scenario("set bootenv bootbank 2", "set bootenv bootbank 2", _only_root_missing,
                 lambda dev: _environment(dev, bootbank="2")),
        Scenario("set bootenv defaults", "set bootenv defaults", _only_root_missing,
                 lambda dev: _environment(dev, **DEFAULT_ENVIRONMENT)),
        Scenario("flash clean", "flash clean", _only_root_missing, _is_clean, old=False, restarts=True),
        Scenario("archive that splits", network, _factory, _is_split, old=False, restarts=True, aids=clean_nand,
                 served=real_images.build(*split, ("rootfs-tar", A.root_tar()))),
        Scenario("archive that merges", network, _split_and_clean, _is_merged, old=False, restarts=True, aids=clean_nand,
                 served=A.image("tar", kernel=False)),
    ]
    return {scenario.name: scenario for scenario in every}

"""What the fault campaign makes fail: the start, and each command in each of its forms, on a device with small flash."""

from typing import Callable, NamedTuple

import images
from product import PRODUCT_ID, HWCFG, MAC, record
from root_session import RootSession

SPARE = 2  # the port that images arrive on, where the console is not used for it
_SIZES = {"ubi0": 0x400000, "kernel_1": 0x20000, "kernel_2": 0x20000, "kernel_single": 0x20000}

KERNEL = images.part(images.KERNEL, images.pattern(5001), version=(3, 1, 0, 0, "R", 1), code=b"AB")
LOADER = images.part(images.BOOTLOADER, images.pattern(3002))
ARCHIVE = images.part(images.ROOTFS_TAR_LZMA, images.pattern(4001, 1))
SPLITTING = images.part(images.ROOTFS_TAR_LZMA, images.pattern(4001, 1), fields={
    images.ROOTFS_SIZE_KIB: 512, images.TOTAL_SIZE_KIB: 2048})
UBIFS = images.part(images.ROOTFS_UBIFS_128KEB, images.pattern(4193, 2))
OEM = images.part(images.OEM_DEFAULTS, b"<oem/>")
PYTHON = images.part(images.PYTHON_SETUP, images.pattern(301, 3))
BOOT_ENV = images.part(images.BOOT_ENV, b"bootenv")


def fresh(dev: RootSession) -> None:
    """A tk20 whose flash is in use: five volumes in the dual schema."""
    dev.set_partitions(*((p.name, _SIZES.get(p.name, 0x10000), min(p.erase_size, 0x20000)) for p in dev.partitions))
    dev.partition("prod_config").write(record(
        (PRODUCT_ID, b"P2"), (HWCFG, b""), (MAC[0], bytes.fromhex("00005ebcde0f"))))
    dev.make_gpio_lines()
    for partition in dev.partitions:
        if partition.name.startswith(("kernel", "config")):
            partition.write(KERNEL)
    dev.use_ubi()


def clean(dev: RootSession) -> None:
    """The same with nothing in the UBI partition."""
    fresh(dev)
    dev.partition("ubi0").fill()


def split(dev: RootSession) -> None:
    """The same with a boot environment that asks for a smaller UBI partition."""
    fresh(dev)
    dev.env["mtdparts"] = "atmel_nand:2048k(ubi0),-(user)"


def nothing(dev: RootSession) -> None:
    """Nothing has to be done at the prompt."""


def up(dev: RootSession) -> None:
    """The network is started."""
    dev.command("network ethernet start 10.0.0.2 255.255.255.0")


class Operation(NamedTuple):
    """One command, and the device that it is given to."""

    name: str
    line: str  # "" is the start itself
    sent: bytes = b""  # arrives over a serial port
    port: int = SPARE
    served: bytes = b""  # what the server has
    prepare: Callable[[RootSession], None] = fresh
    ready: Callable[[RootSession], None] = nothing


def _serial(name: str, image: bytes, bank: str = "2", port: int = SPARE, **more) -> Operation:
    return Operation(f"serial {name}", f"flash download serial {bank} {port}", image, port, **more)


def _network(name: str, image: bytes, bank: str = "2", **more) -> Operation:
    return Operation(f"network {name}", f"flash download network {bank} 10.0.0.1 image.rom", served=image, ready=up, **more)


_IMAGES = {"kernel": KERNEL, "loader": LOADER, "archive": ARCHIVE, "UBIFS": UBIFS, "OEM defaults": OEM, "Python": PYTHON,
           "boot environment": BOOT_ENV}

_LINES = ("flash analyze", "flash clean", "flash clean serial", "flash clean nand", "flash info", "flash kill",
          "flash kill 2 kernel", "flash kill 2 rootfs",
          "set bootenv bootbank 2", "set bootenv bootcmd run cfgldrboot", "set bootenv bootdelay 5", "set bootenv defaults",
          "set bootenv silent on", "set console 1 9600", "set console rs485", "set opmode board tk30", "set opmode io dio2x1r",
          "set opmode serports 1", "network ethernet start", "network ethernet start 10.0.0.2 255.255.255.0 10.0.0.1",
          "network info", "show bootenv", "show console", "show oem", "show opmode", "show product", "show klog", "show system",
          "gpiolib info", "gpiolib set 74 high", "reset")

_ON_A_NETWORK = ("network ethernet stop", "network ethernet link 10f", "network ping 10.0.0.1", "network info eth0")

OPERATIONS = [
    Operation("start", ""),
    Operation("start, UBI partition split", "", prepare=split),
    *(_serial(name, image) for name, image in _IMAGES.items()),
    _serial("kernel over the console", KERNEL, port=1),
    _serial("kernel, then archive", images.part(images.KERNEL, images.pattern(5001), more=True) + ARCHIVE),
    _serial("UBIFS, single bank", UBIFS, "single"),
    _serial("archive onto clean flash", ARCHIVE, prepare=clean),
    _serial("archive that splits clean flash", SPLITTING, prepare=clean),
    *(_network(name, image) for name, image in _IMAGES.items()),
    _network("archive onto clean flash", ARCHIVE, prepare=clean),
    Operation("file over serial", "file download serial a.bin 2", images.pattern(3000)),
    Operation("file over the network", "file download network 10.0.0.1 image.rom a.bin", served=images.pattern(3000), ready=up),
    *(Operation(line, line) for line in _LINES),
    *(Operation(line, line, ready=up) for line in _ON_A_NETWORK),
]

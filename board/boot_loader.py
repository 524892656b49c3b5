"""
The boot loader: Debian's U-Boot for this machine, the environment that it knows by itself (bootloader/), and the form of
what it starts: a kernel and an initial RAM file system in one file, each with a checksum (a flattened image tree).
"""

import pathlib
import re
import struct
import tempfile
import zlib

import device_kernel
import layout
from artefact_cache import HERE, SetupError, run

PROGRAM = pathlib.Path("/usr/lib/u-boot/qemu_arm/u-boot.bin")
SOURCES = HERE / "bootloader"
DEFAULTS = SOURCES / "default-environment"
OWN = SOURCES / "own-environment"

# The environment of its own lies at the start of the machine's second flash bank.
_OWN_SIZE, _OWN_BANK = 256 << 10, 64 << 20
# The header of an image part, which stands in front of every kernel in flash.
HEADER_SIZE = 256
# Free memory, clear of the kernel below and of the boot loader above.
_LOAD_ADDRESS = 0x48000000
_CONFIGURATION_SPACE, _MEMORY_BAR = 0x3F000000, 0x18

_TREE = """/dts-v1/;
/ {{
    description = "{description}";
    #address-cells = <1>;
    images {{
        kernel {{
            data = /incbin/("{kernel}");
            type = "kernel"; arch = "arm"; os = "linux"; compression = "{compression}";
            load = <{address:#x}>; entry = <{address:#x}>;
            hash {{ algo = "crc32"; }};
        }};
        ramdisk {{
            data = /incbin/("{ramdisk}");
            type = "ramdisk"; arch = "arm"; os = "linux"; compression = "none";
            hash {{ algo = "crc32"; }};
        }};
    }};
    configurations {{ default = "board"; board {{ kernel = "kernel"; ramdisk = "ramdisk"; }}; }};
}};
"""


def variables(path):
    """The (name, value) pairs of a file: lines NAME=VALUE, `#` in front of remarks, a backslash at an end that goes on."""
    text = re.sub(r"\\\n\s*", "", path.read_text(encoding="ascii"))
    return [tuple(line.split("=", 1)) for line in text.splitlines() if line and not line.startswith("#")]


def environment(pairs, size):
    """The bytes of a boot environment: checksum, then NAME=VALUE texts."""
    text = b"".join(f"{name}={value}\0".encode("ascii") for name, value in pairs) + b"\0"
    if len(text) > size - 4:
        raise SetupError(f"{len(text)} bytes are too much for a boot environment of {size}")
    text = text.ljust(size - 4, b"\0")
    return struct.pack("<I", zlib.crc32(text)) + text


def _addresses(slot, kernel_words):
    known = {"nor_window": f"{_CONFIGURATION_SPACE + (int(slot, 16) << 15) + _MEMORY_BAR:x}",
             "load_address": f"{_LOAD_ADDRESS:x}", "kernel_words": kernel_words}
    room = 0
    for name, row in layout.PARTITIONS.items():
        if row.chip == "nor":
            image = name.startswith(("kernel_", "config_loader"))
            known[name] = f"{row.offset + (HEADER_SIZE if image else 0):x}"
            known[f"{name}_size"] = f"{row.size:x}"
            known[f"{name}_room"] = f"{row.size - HEADER_SIZE:x}"
            room = max(room, row.size if name.startswith("kernel_") else 0)
    return known | {"load_words": f"{room // 4:x}"}


def write_own_environment(target, slot, kernel_words):
    """
    Writes the flash bank that the boot loader reads before anything else. `slot`: of the serial flash chip on the PCI bus,
    hexadecimal; `kernel_words`: for the command line of any kernel.
    """
    known = _addresses(slot, kernel_words)
    own = [(name, re.sub(r"@(\w+)@", lambda found: known[found[1]], value)) for name, value in variables(OWN)]
    with open(target, "wb") as bank:
        bank.write(environment(variables(DEFAULTS) + own, _OWN_SIZE))
        bank.truncate(_OWN_BANK)


# What it starts.

def startable(target, ramdisk, description, small=False):
    """
    Makes the file that the boot loader starts. `ramdisk`: bytes of an initial RAM file system. `small`: with the kernel as
    short as it gets, for slow lines; it then takes seconds longer to start.
    """
    if small:
        kernel, compression, address = device_kernel.image(), "none", device_kernel.RAM + (32 << 20)
    else:
        kernel, compression, address = device_kernel.packed(), "gzip", device_kernel.address()
    with tempfile.TemporaryDirectory() as name:
        directory = pathlib.Path(name)
        (directory / "ramdisk").write_bytes(ramdisk)
        (directory / "tree").write_text(_TREE.format(description=description, kernel=kernel, compression=compression,
                                                     address=address, ramdisk=directory / "ramdisk"), encoding="ascii")
        run("mkimage", "-f", directory / "tree", target)

"""Images as a release makes them: real files, put together by kesto. Tests that want a damaged one patch bytes of it.

    image = build(("bootloader", BOOTLOADER), ("kernel", KERNEL))
    loader, kernel = split(image)
"""

import functools
import os
import subprocess
import tempfile
from pathlib import Path

import boot_loader
import images
from board_session import ROOT

# Firmware that comes with the emulator's packages, of 40 to 250 kB: a serial line is slow, and slower on busy cores.
_FIRMWARE, _ROMS = Path("/usr/share/seabios"), Path("/usr/lib/ipxe/qemu")
BOOTSTRAP = _FIRMWARE / "bios.bin"  # fills its partition to the last byte
BOOTLOADER, SMALL_BOOTLOADER = _FIRMWARE / "bios-microvm.bin", _FIRMWARE / "vgabios-isavga.bin"
KERNEL, SMALL_KERNEL = _ROMS / "efi-virtio.rom", _ROMS / "pxe-e1000.rom"
CONFIG_LOADER, SMALL_CONFIG_LOADER = _ROMS / "pxe-virtio.rom", _FIRMWARE / "vgabios-ati.bin"

KESTO = Path(os.environ.get("KESTO", ROOT / "build" / "release" / "kesto"))

ENVIRONMENT_SIZE = 0x10000
VERSION, CODE = "3.1.0.0R1", "TK"


@functools.cache
def build(*parts):
    """An image of these (word of kesto, file) parts."""
    with tempfile.TemporaryDirectory() as directory:
        target = Path(directory) / "image.rom"
        command = [KESTO, "image", "build", "-o", target, "--version", VERSION, "--code", CODE]
        for word, file in parts:
            command += [f"--{word}", file] if not word.isdigit() else ["--part", f"{word}={file}"]
        subprocess.run(command, check=True, capture_output=True)
        return target.read_bytes()


def small(*more):
    """A boot loader, a kernel and `more` parts, in two seconds over the line."""
    return build(("bootloader", SMALL_BOOTLOADER), ("kernel", SMALL_KERNEL), *more)


def split(image):
    """The parts of an image, each with its header."""
    parts = []
    while image:
        length = images.HEADER_SIZE + images.field(image, images.CONTENTS_LENGTH)
        parts.append(image[:length])
        image = image[length:]
    return parts


def contents(part):
    """A part without its header."""
    return part[images.HEADER_SIZE:]


def info(image):
    """What the shell shows of an image's headers while it installs it."""
    return "".join(images.info(part) for part in split(image))


def flip(data, at):
    """The data with one bit turned over."""
    return data[:at] + bytes([data[at] ^ 0x10]) + data[at + 1:]


def chained(part, more):
    """The part with another chaining flag, and a header that is right about it."""
    header = images.with_field(part[:images.HEADER_SIZE], images.NEXT_HEADER_FLAG, int(more))
    return images.sign(header) + contents(part)


@functools.cache
def environment(**variables):
    """A boot environment as the environment tools make it: the whole partition. Made once for the same variables, for
    the tool leaves what it finds in memory behind them."""
    with tempfile.TemporaryDirectory() as name:
        directory = Path(name)
        copy = directory / "environment"
        copy.write_bytes(b"\xff" * ENVIRONMENT_SIZE)
        (directory / "config").write_text(f"{copy} 0x0 {ENVIRONMENT_SIZE:#x}\n", encoding="ascii")
        (directory / "script").write_text("".join(f"{key}={value}\n" for key, value in variables.items()),
                                          encoding="ascii")
        subprocess.run(["fw_setenv", "-c", directory / "config", "-f", boot_loader.DEFAULTS,
                        "-s", directory / "script"], check=True, capture_output=True)
        return copy.read_bytes()

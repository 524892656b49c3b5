#!/usr/bin/env python3
"""
Images of the small firmware (firmware/): a kernel that brings the flash driver, and root file systems for both NAND
geometries. Firmware of another version has other files.

    board/firmware_images.py 4.2.0.0R2 FILE      # writes an image of that version, for any bank
"""

import dataclasses
import io
import lzma
import pathlib
import random
import sys
import tarfile
import tempfile
import zlib

import artefacts
import boot_loader
import cpio
import device_kernel
import layout
from artefact_cache import BUILD, CROSS, HERE, exclusive, make, run
from recovery_system import KESTO

SOURCES = HERE / "firmware"
# What the flash driver, UBI and UBIFS need, and the board's module for its network cable.
MODULES = ("lzo", "zstd", "deflate", "mtd", "ubi", "ubifs", "mii")
FILE_LIST = "etc/firmware.files"
# Erase blocks that the file system may grow to, by NAND geometry.
_GROWS_TO = {"128k": 60, "16k": 400}


def _program():
    sources = sorted(SOURCES.iterdir())

    def build(target):
        run(f"{CROSS}gcc", "-Os", "-Wall", "-Wextra", "-Wconversion", "-Werror", "-static", "-s", "-o", target,
            *(source for source in sources if source.suffix == ".c"))
    return make(BUILD / "firmware", [HERE / "firmware_images.py", *sources], build)


def _ramdisk(version):
    module = device_kernel.module()
    archive = cpio.Archive()
    for path in ("/dev", "/proc", "/root"):
        archive.directory(path)
    archive.character_device("/dev/console", 5, 1)
    archive.copy("/init", _program(), 0o755)
    archive.file("/etc/version", version.encode() + b"\n")
    modules = [*device_kernel.modules_in_order(MODULES), module]
    for source in modules:
        archive.copy(f"/lib/modules/{source.name}", source, 0o644)
    archive.file("/etc/modules.order", "".join(f"/lib/modules/{source.name}\n" for source in modules).encode())
    return lzma.compress(archive.to_bytes(), check=lzma.CHECK_CRC32)


def _files(version, code):
    """{path: (bytes, mode)} of the root file system."""
    info = f'VEXO_PRODUCT_VERSION="{version}"\nVEXO_PRODUCT_CODE="{code}"\n'
    files = {
        "sbin/init": (_program().read_bytes(), 0o755),
        "bin/busybox": (b"#!/sbin/init\n", 0o4755),
        "etc/.vexo_product_info": (info.encode(), 0o644),
        "etc/release": (f"Firmware {version}\n".encode(), 0o644),
        "usr/share/data": (random.Random(version).randbytes(200_000), 0o644),
        "usr/share/text": (f"Text of firmware {version}.\n".encode() * 4000, 0o644),
    }
    listed = "".join(f"{zlib.crc32(data):08x} {len(data)} /{path}\n" for path, (data, _) in files.items())
    return {**files, FILE_LIST: (listed.encode(), 0o644)}


def _tar(files):
    archive = io.BytesIO()
    with tarfile.open(fileobj=archive, mode="w") as tar:
        for path in ("dev", "proc"):
            member = tarfile.TarInfo(f"./{path}")
            member.type, member.mode = tarfile.DIRTYPE, 0o755
            tar.addfile(member)
        for path, (data, mode) in files.items():
            member = tarfile.TarInfo(f"./{path}")
            member.size, member.mode = len(data), mode
            tar.addfile(member, io.BytesIO(data))
    return lzma.compress(archive.getvalue(), check=lzma.CHECK_CRC32)


def _ubifs(files, nand):
    geometry = layout.NAND_GEOMETRIES[nand]
    with tempfile.TemporaryDirectory() as name:
        tree, target = pathlib.Path(name) / "tree", pathlib.Path(name) / "image"
        for path in ("dev", "proc"):
            (tree / path).mkdir(parents=True)
        for path, (data, mode) in files.items():
            (tree / path).parent.mkdir(parents=True, exist_ok=True)
            (tree / path).write_bytes(data)
            (tree / path).chmod(mode)
        run("/usr/sbin/mkfs.ubifs", "-m", geometry.page, "-e", geometry.leb, "-c", _GROWS_TO[nand], "-x", "zlib", "-l", 4,
            "-U", "-r", tree, "-o", target)
        return target.read_bytes()


@dataclasses.dataclass(frozen=True)
class Firmware:
    """
    One version of the firmware. `small`: its kernel is packed as short as possible, for slow lines, and starts some seconds
    later. All of it is made once and kept under build/board/firmware/.
    """

    version: str
    code: str = "TK"
    small: bool = False

    def _made(self, kind, inputs, maker):
        artefacts.ensure()
        with exclusive():
            name = f"firmware-images/{self.version}{'-small' if self.small else ''}-{kind}"
            sources = [HERE / "firmware_images.py", HERE / "boot_loader.py", _program(), self.code, *inputs]
            return make(BUILD / name, sources, maker)

    def kernel(self):
        """The file of a kernel part's contents."""
        def build(target):
            boot_loader.startable(target, _ramdisk(self.version), f"Firmware {self.version}", self.small)
        artefacts.ensure()
        return self._made("kernel", [device_kernel.module(), device_kernel.TREE.contents], build)

    def files(self):
        """{path: (bytes, mode)} of the root file system's files."""
        artefacts.ensure()
        with exclusive():
            return _files(self.version, self.code)

    def root_ubifs(self, nand="128k"):
        """The file of a root file system as the contents of a UBI volume."""
        return self._made(f"ubifs-{nand}", [],
                          lambda target: target.write_bytes(_ubifs(_files(self.version, self.code), nand)))

    def root_tar(self):
        """The file of a root file system to be unpacked."""
        return self._made("tar", [], lambda target: target.write_bytes(_tar(_files(self.version, self.code))))

    def image(self, root, *more, kernel=True):
        """
        The bytes of an image with the kernel and a root file system: `root` is "tar" or the NAND geometry of a UBIFS image,
        None for no root file system. `more`: words for kesto.
        """
        words = ["--kernel", self.kernel()] if kernel else []
        if root == "tar":
            words += ["--rootfs-tar", self.root_tar()]
        elif root:
            words += [f"--rootfs-ubifs-{root}", self.root_ubifs(root)]
        with tempfile.TemporaryDirectory() as name:
            target = pathlib.Path(name) / "image"
            run(KESTO, "image", "build", "-o", target, "--version", self.version, "--code", self.code, *words, *more)
            return target.read_bytes()

    def report(self, bank):
        """What it says on the console when it runs from `bank` ("1", "2" or "single") and all its files are whole."""
        return (f"Firmware {self.version} on rootfs_{bank}, kernel {self.version}: {len(self.files()) - 1} files, "
                "all whole")


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit("usage: board/firmware_images.py VERSION FILE")
    pathlib.Path(sys.argv[2]).write_bytes(Firmware(sys.argv[1], small=True).image("tar"))

"""
The device's kernel: Debian's for 32-bit ARM machines, unpacked with its headers, and the module that makes the rest of the
device, cross-built from kernel/.
"""

import lzma
import os
import re
import shutil
import struct
import zlib

from artefact_cache import BUILD, CROSS, HERE, PackageTree, SetupError, make, run

# Loaded at boot, in this order, each after what it needs. The compressors come first: UBIFS looks for them once.
MODULES = ("virtio_pci", "virtio_console", "lzo", "zstd", "deflate", "mtd", "ubi", "ubifs", "jffs2", "e100")

# Where this kernel's build wants to lie: the start of the machine's memory, and the offset that holds for a kernel that some
# of the boards in its configuration force upon all.
KERNEL_ADDRESS = 0x4000_0000 + 0x20_8000

# The headers refer to the scripts of the build machine's own package.
_KBUILD = "usr/lib/linux-kbuild-6.1"
_HEADERS = "usr/src/linux-headers-"


def _fetch(lists):
    depends = lists.depends("linux-image-armmp")
    found = re.search(r"linux-image-(\S+)-armmp \(= ([^)]+)\)", depends)
    if not found:
        raise SetupError(f"linux-image-armmp depends on no kernel: {depends!r}")
    release, version = found.groups()
    return lists.download(*(f"linux-{part}={version}" for part in (
        f"image-{release}-armmp", f"headers-{release}-armmp", f"headers-{release}-common")))


def _release(tree):
    images = list((tree / "boot").glob("vmlinuz-*"))
    if len(images) != 1:
        raise SetupError(f"{tree}: {len(images)} kernels")
    return images[0].name.removeprefix("vmlinuz-")


def _finish(tree):
    """Makes the headers usable where they are, and lists what module needs what."""
    release = _release(tree)
    common = release.removesuffix("-armmp") + "-common"
    (tree / _KBUILD).parent.mkdir(parents=True, exist_ok=True)
    (tree / _KBUILD).symlink_to("/" + _KBUILD)
    (tree / f"{_HEADERS}{release}" / "Makefile").write_text(f"include ../linux-headers-{common}/Makefile\n")
    run("/usr/sbin/depmod", "-b", tree, release)


TREE = PackageTree("linux-armmp", "armhf", _fetch, _finish)


def image():
    """The kernel as the package has it: a zImage. The tree must be there."""
    return TREE.path / "boot" / f"vmlinuz-{_release(TREE.path)}"


def unpacked():
    """
    The same kernel unpacked, which saves a machine that starts it directly its own unpacking at each boot: a legacy image of
    the boot loader, because that says where the kernel wants to lie.
    """
    return make(BUILD / "kernel.uImage", [HERE / "device_kernel.py", TREE.contents], _unpack)


def _unpack(target):
    packed = image().read_bytes()
    # With the flags behind it: the unpacking code in front of the kernel holds the magic alone.
    start = packed.find(b"\xfd7zXZ\0\0\1")
    if start < 0:
        raise SetupError(f"{image()}: unknown kernel compression")
    kernel = lzma.LZMADecompressor().decompress(packed[start:])
    target.write_bytes(_legacy_header(kernel) + kernel)


def _legacy_header(kernel):
    """The 64 bytes of include/image.h of U-Boot: Linux, ARM, a kernel, not compressed."""
    def header(checksum):
        return struct.pack(">7I4B32s", 0x27051956, checksum, 0, len(kernel), KERNEL_ADDRESS, KERNEL_ADDRESS,
                           zlib.crc32(kernel), 5, 2, 2, 0, b"Linux")
    return header(zlib.crc32(header(0)))


def module():
    """The module vboard.ko, built when its sources or the kernel have changed."""
    return make(BUILD / "vboard.ko", [HERE / "device_kernel.py", TREE.contents, *sorted((HERE / "kernel").iterdir())],
                _build_module)


def _build_module(target):
    """Builds in a directory of links, so that the sources stay clean."""
    TREE.ensure_whole()
    work = BUILD / "module"
    shutil.rmtree(work, ignore_errors=True)
    work.mkdir(parents=True)
    for source in (HERE / "kernel").iterdir():
        (work / source.name).symlink_to(source)
    headers = TREE.path / f"{_HEADERS}{_release(TREE.path)}"
    run("make", "-C", headers, f"M={work}", "ARCH=arm", f"CROSS_COMPILE={CROSS}", "modules")
    run(f"{CROSS}strip", "--strip-debug", "-o", target, work / "vboard.ko")


def modules_in_order():
    """The stock kernel's module files to load, each after the ones that it needs."""
    directory = TREE.path / "lib" / "modules" / _release(TREE.path)
    needs = {}
    for line in (directory / "modules.dep").read_text().splitlines():
        path, _, others = line.partition(":")
        needs[path] = others.split()
    by_name = {os.path.basename(path).split(".")[0].replace("-", "_"): path for path in needs}
    builtin = (directory / "modules.builtin").read_text()
    order = []

    def add(path):
        for other in needs[path]:
            add(other)
        if path not in order:
            order.append(path)

    for name in MODULES:
        if name in by_name:
            add(by_name[name])
        elif f"/{name}.ko" not in builtin:
            raise SetupError(f"the kernel has no module {name}")
    return [directory / path for path in order]

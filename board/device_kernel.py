"""
The device's kernel: Debian's for 32-bit ARM machines, unpacked with its headers, and the module that makes the rest of the
device, cross-built from kernel/.

Of the two that Debian has it is the one with large physical addresses. The other, BOARD_KERNEL=armmp, guards user memory by
the processor's domains: it changes a register on the way into the kernel and out of it, after which the emulator forgets
all addresses that it has translated. System calls take it five times as long, and flash is read in many small ones.
"""

import gzip
import lzma
import os
import re
import shutil

from artefact_cache import BUILD, CROSS, HERE, PackageTree, SetupError, make, run

# Loaded at boot, in this order, each after what it needs. The compressors come first: UBIFS looks for them once.
MODULES = ("virtio_pci", "virtio_console", "lzo", "zstd", "deflate", "mtd", "ubi", "ubifs", "jffs2", "e100")

FLAVOUR = os.environ.get("BOARD_KERNEL", "armmp-lpae")

# The headers refer to the scripts of the build machine's own package.
_KBUILD = "usr/lib/linux-kbuild-6.1"
_HEADERS = "usr/src/linux-headers-"


def _fetch(lists):
    depends = lists.depends(f"linux-image-{FLAVOUR}")
    found = re.search(rf"linux-image-(\S+)-{FLAVOUR} \(= ([^)]+)\)", depends)
    if not found:
        raise SetupError(f"linux-image-{FLAVOUR} depends on no kernel: {depends!r}")
    release, version = found.groups()
    return lists.download(*(f"linux-{part}={version}" for part in (
        f"image-{release}-{FLAVOUR}", f"headers-{release}-{FLAVOUR}", f"headers-{release}-common")))


def _release(tree):
    images = list((tree / "boot").glob("vmlinuz-*"))
    if len(images) != 1:
        raise SetupError(f"{tree}: {len(images)} kernels")
    return images[0].name.removeprefix("vmlinuz-")


def _finish(tree):
    """Makes the headers usable where they are, and lists what module needs what."""
    release = _release(tree)
    common = release.removesuffix(f"-{FLAVOUR}") + "-common"
    (tree / _KBUILD).parent.mkdir(parents=True, exist_ok=True)
    (tree / _KBUILD).symlink_to("/" + _KBUILD)
    (tree / f"{_HEADERS}{release}" / "Makefile").write_text(f"include ../linux-headers-{common}/Makefile\n")
    run("/usr/sbin/depmod", "-b", tree, release)


# Where the machine's memory begins.
RAM = 0x40000000

TREE = PackageTree(f"linux-{FLAVOUR}", "armhf", _fetch, _finish)


def image():
    """The kernel as the package has it: a zImage. The tree must be there."""
    return TREE.path / "boot" / f"vmlinuz-{_release(TREE.path)}"


def address():
    """Where the plain kernel must lie: machines that it is made for, too, need room below it."""
    config = (TREE.path / "boot" / f"config-{_release(TREE.path)}").read_text(encoding="ascii")
    rooms = {"AXXIA": 0x308000, "MESON": 0x208000, "MSM8960": 0x208000, "REALTEK": 0x108000}
    return RAM + max((room for name, room in rooms.items() if f"\nCONFIG_ARCH_{name}=y\n" in config), default=0x8000)


def _unpack(target):
    """Takes the kernel out of its self-extracting form: to unpack xz costs the device more than half of its start."""
    data = image().read_bytes()
    at = -1
    while (at := data.find(b"\xfd7zXZ\0\0", at + 1)) >= 0:
        try:
            target.write_bytes(lzma.LZMADecompressor().decompress(data[at:]))
            return
        except lzma.LZMAError:
            continue
    raise SetupError(f"{image()}: no kernel inside")


def plain():
    """The kernel as it lies in memory."""
    return make(BUILD / "kernel", [HERE / "device_kernel.py", TREE.contents], _unpack)


def packed():
    """The same, packed for the boot loader."""
    return make(BUILD / "kernel.gz", [plain()],
                lambda target: target.write_bytes(gzip.compress(plain().read_bytes(), 9, mtime=0)))


def startable():
    """The same with a header that says where it goes, for a machine without a boot loader."""
    return make(BUILD / "kernel.uimage", [HERE / "device_kernel.py", plain()], lambda target: run(
        "mkimage", "-A", "arm", "-O", "linux", "-T", "kernel", "-C", "none", "-a", hex(address()), "-e", hex(address()),
        "-n", "Linux", "-d", plain(), target))


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


def modules_in_order(names=MODULES):
    """The stock kernel's module files to load for these modules, each after the ones that it needs."""
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

    for name in names:
        if name in by_name:
            add(by_name[name])
        elif f"/{name}.ko" not in builtin:
            raise SetupError(f"the kernel has no module {name}")
    return [directory / path for path in order]

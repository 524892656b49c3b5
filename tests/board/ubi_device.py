"""UBI on the board, from three sides: contents made on the host with the tools of mtd-utils, images sent to the shell at
the pace at which it takes them, and what lies in the volumes afterwards, seen from outside the shell.

    dev.board.flash_write("ubi0", ubi_device.make(rootfs_1=ubifs(FILES)))
    assert install(dev, image, "flash download serial 2") == real_images.info(image) + SUCCESS
    with attached(dev) as ubi:
        assert ubi.files("rootfs_2") == FILES
    expect_given_back(dev)
"""

import contextlib
import io
import lzma
import re
import subprocess
import tarfile
import tempfile
from pathlib import Path

import images
import layout
import real_images
from board_session import PARTITIONS, PATIENCE
from flow_control import WINDOW, Reader

UBI_SIZE = PARTITIONS["ubi0"].size
VOLUMES = ("rootfs_1", "rootfs_2", "rootfs_single", "vexo_private", "vexo_user")
PRODUCT_INFO = "etc/.vexo_product_info"

_LOOK = "/tmp/look"


# Contents: {path: bytes or (bytes, mode)}, as unpacked {path: (bytes, mode)}.

def contents(files):
    """The files with their modes."""
    return {path: entry if isinstance(entry, tuple) else (entry, 0o644) for path, entry in files.items()}


def root_files(version, **more):
    """A small root file system. Its busybox has lost its set-user-id bit, as in an archive of a release."""
    info = f'VEXO_PRODUCT_VERSION="{version}"\nVEXO_PRODUCT_CODE="TK"\n'.encode()
    return contents({"bin/busybox": (b"#!/bin/sh\n" + images.pattern(9000), 0o755), PRODUCT_INFO: info,
                     "etc/release": version.encode(), **more})


def with_set_user_id(files):
    """The same with the program as it must be in the volume."""
    return {**files, "bin/busybox": (files["bin/busybox"][0], 0o4755)}


def _tar(files):
    archive = io.BytesIO()
    with tarfile.open(fileobj=archive, mode="w") as tar:
        for path, (data, mode) in contents(files).items():
            member = tarfile.TarInfo(f"./{path}")
            member.size, member.mode = len(data), mode
            tar.addfile(member, io.BytesIO(data))
    return archive.getvalue()


def tar_xz(files):
    """An archive for a root file system part."""
    return lzma.compress(_tar(files), check=lzma.CHECK_CRC32)


def tar_gz(files):
    """An archive for a Python part: today's tar takes gzip where the device's takes more."""
    # pylint: disable=import-outside-toplevel
    import gzip
    return gzip.compress(_tar(files), mtime=0)


def ubifs(files, nand="128k", lebs=60):
    """A UBIFS image with these files, of a file system that can grow to `lebs` blocks."""
    geometry = layout.NAND_GEOMETRIES[nand]
    with tempfile.TemporaryDirectory() as name:
        tree, image = Path(name) / "tree", Path(name) / "image"
        tree.mkdir()
        for path, (data, mode) in contents(files).items():
            (tree / path).parent.mkdir(parents=True, exist_ok=True)
            (tree / path).write_bytes(data)
            (tree / path).chmod(mode)
        _run("/usr/sbin/mkfs.ubifs", "-m", geometry.page, "-e", geometry.leb, "-c", lebs, "-x", "zlib", "-l", 4,
             "-U", "-r", tree, "-o", image)
        return image.read_bytes()


def usable_lebs(nand="128k", size=UBI_SIZE):
    """Blocks that volumes can have: UBI keeps 20 of 1024 of the chip for bad ones, and four for itself."""
    block = layout.NAND_GEOMETRIES[nand].erase_block
    return size // block - 20 * (UBI_SIZE // block) // 1024 - 4


def fresh_layout(nand="128k", rootfs_kib=UBI_SIZE >> 12, size=UBI_SIZE):
    """{volume: blocks} of a freshly formatted device."""
    leb = layout.NAND_GEOMETRIES[nand].leb
    rootfs, private = (-(-kib * 1024 // leb) for kib in (rootfs_kib, UBI_SIZE * 2 // 102400))
    return dict(zip(VOLUMES, (rootfs, rootfs, 1, private, usable_lebs(nand, size) - 2 * rootfs - 1 - private)))


def single_layout(nand="128k"):
    """The same after the change to one bank."""
    fresh = fresh_layout(nand)
    return {**fresh, "rootfs_1": 1, "rootfs_2": 1, "rootfs_single": fresh["rootfs_1"] + fresh["rootfs_2"] - 1}


def make(lebs=None, nand="128k", **volumes):
    """The bytes of a UBI partition whose volumes hold these images. `lebs`: sizes, if not those of a fresh device."""
    geometry = layout.NAND_GEOMETRIES[nand]
    with tempfile.TemporaryDirectory() as name:
        directory = Path(name)
        sections = []
        for number, (volume, size) in enumerate((lebs or fresh_layout(nand)).items()):
            section = [f"[{volume}]", "mode=ubi", f"vol_id={number}", f"vol_name={volume}", "vol_type=dynamic",
                       f"vol_size={size * geometry.leb}"]
            if volume in volumes:
                (directory / volume).write_bytes(volumes[volume])
                section.append(f"image={directory / volume}")
            sections.append("\n".join(section) + "\n")
        (directory / "volumes").write_text("\n".join(sections), encoding="ascii")
        _run("/usr/sbin/ubinize", "-p", geometry.erase_block, "-m", geometry.page, "-o", directory / "ubi",
             directory / "volumes")
        return (directory / "ubi").read_bytes()


def _run(*command):
    subprocess.run([str(word) for word in command], check=True, capture_output=True)


class PartFiles:
    """Turns bytes into the files that images are built from."""

    def __init__(self, directory):
        self._directory = directory
        self._count = 0

    def __call__(self, data):
        self._count += 1
        file = self._directory / f"part {self._count}"
        file.write_bytes(data)
        return file

    def build(self, *parts):
        """An image of (word of kesto, bytes, file or text) parts."""
        return real_images.build(*((word, self(data) if isinstance(data, bytes) else data) for word, data in parts))


# Sending: the shell formats, mounts and resizes between a header and its contents. On the device, the lines of the port
# stop the sender meanwhile; the emulated port has none, so the sender looks.

def _pieces(data):
    """Headers, and contents cut into what the line holds for a busy reader."""
    while data:
        header = data[:images.HEADER_SIZE]
        yield header
        end = len(data)
        if len(header) == images.HEADER_SIZE:
            end = images.HEADER_SIZE + images.field(header, images.CONTENTS_LENGTH)
        part, data = data[:end], data[end:]
        for at in range(images.HEADER_SIZE, len(part), WINDOW):
            yield part[at:at + WINDOW]


def send(dev, data, port=1):
    """Sends an image, or the start of one, until the shell gives up. The end is not waited for."""
    dev.wait_receiving(port)
    reader, sent = Reader(dev.board, dev.shell_pid(), port), 0
    for piece in _pieces(data):
        reader.wait(sent, lambda: b"Done: " in dev.board.console.unread, PATIENCE)
        if b"Done: " in dev.board.console.unread:
            return
        dev.port(port).send(piece)
        sent += len(piece)


def install(dev, data, line="flash download serial 1", port=1):
    """A whole serial transfer; returns what was shown after "Begin ..."."""
    dev.begin(line)
    send(dev, data, port)
    return dev.text_until_prompt()


def install_from_server(dev, data, bank):
    """A whole installation over the network; returns what was shown. For images that are large for a serial line."""
    (dev.board.tftp / "image.rom").write_bytes(data)
    return dev.command(f"flash download network {bank} 10.0.2.2 image.rom")


# Judging.

class Attached:
    """The UBI device while it is attached from outside."""

    def __init__(self, board):
        self._board = board

    def layout(self):
        """{volume: blocks}, in the order of their numbers."""
        lines = self._board.sh("cd /sys/class/ubi && for n in 0 1 2 3 4; do [ -d ubi0_$n ] && "
                               "echo $(cat ubi0_$n/name ubi0_$n/reserved_ebs); done; true", check=True).output
        return {name: int(lebs) for name, lebs in (line.split() for line in lines.splitlines())}

    def free(self):
        """Blocks that no volume has."""
        return int(self._board.sh("cat /sys/class/ubi/ubi0/avail_eraseblocks", check=True).output)

    def files(self, volume):
        """What is in a volume: {path: (bytes, mode)}; plain files only."""
        self._board.sh(f"mkdir -p {_LOOK} && mount -t ubifs -o ro ubi0:{volume} {_LOOK}", check=True)
        try:
            self._board.sh(f"tar -cf {_LOOK}.tar -C {_LOOK} .", check=True)
            with tarfile.open(fileobj=io.BytesIO(self._board.get(f"{_LOOK}.tar"))) as tar:
                return {entry.name.removeprefix("./"): (tar.extractfile(entry).read(), entry.mode)
                        for entry in tar if entry.isfile()}
        finally:
            self._board.sh(f"umount {_LOOK}; rmdir {_LOOK}; rm -f {_LOOK}.tar", check=True)

    def raw(self, volume, length):
        """The first bytes of a volume; those of an empty one are 0xFF."""
        number = VOLUMES.index(volume)
        self._board.sh(f"head -c {length} /dev/ubi0_{number} >{_LOOK}.raw", check=True)
        data = self._board.get(f"{_LOOK}.raw")
        self._board.sh(f"rm {_LOOK}.raw")
        return data

    def holds_something(self):
        """The volumes that are not empty; one that cannot be read since its update was broken off is not."""
        unreadable = {volume for number, volume in enumerate(VOLUMES)
                      if self._board.sh(f"head -c 1 /dev/ubi0_{number} >/dev/null").status}
        return unreadable | {volume for volume in VOLUMES
                             if volume not in unreadable and self.raw(volume, 64).strip(b"\xff")}


def ubi_node(dev):
    """The partition that is called ubi0 now."""
    return "/dev/" + re.search(r'^(mtd\d+):.*"ubi0"$', dev.board.get("/proc/mtd").decode(), re.MULTILINE)[1]


@contextlib.contextmanager
def attached(dev):
    """Attaches the UBI device from outside the shell, which must not have it."""
    node = ubi_node(dev)
    dev.board.sh(f"ubiattach /dev/ubi_ctrl -d 0 -p {node} && mdev -s", check=True)
    try:
        yield Attached(dev.board)
    finally:
        dev.board.sh(f"ubidetach /dev/ubi_ctrl -p {node}", check=True)


def expect_given_back(dev):
    """Nothing is attached or mounted, no tool runs on, and no temporary file is left."""
    board = dev.board
    assert board.sh("ls /sys/class/ubi").output.split() == ["version"]
    assert "/mnt" not in board.get("/proc/mounts").decode()
    assert board.sh("pidof tar ubiupdatevol mount install").status != 0
    assert board.sh("ls /tmp/image.part /tmp/image.rom /tmp/recovery.log").output.count("No such file") == 3

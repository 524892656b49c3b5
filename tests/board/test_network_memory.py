"""What a network installation takes of the device's memory: as much for the largest root file system as for a small
one, and little more than the shell at rest. The tools that it runs are not counted."""

import random

import pytest

import layout
import ubi_device
from network_device import install
from real_images import info
from texts import INSTALLING, PREPARING, SUCCESS
from ubi_device import attached, root_files, ubifs

MEBIBYTE = 1 << 20
SAME_KIB, ABOVE_IDLE_KIB = 64, 1024
# An installation of this size takes over a minute when the cores are idle.
LARGE_PATIENCE = 1800


def reset_peak(dev):
    """From here on the peak is that of what is done next."""
    dev.board.sh(f"echo 5 >/proc/{dev.shell_pid()}/clear_refs", check=True)


def peak_kib(dev):
    """Most memory that the shell's process ever had resident since."""
    status = dev.board.get(f"/proc/{dev.shell_pid()}/status").decode()
    return int(dict(line.split(":", 1) for line in status.splitlines())["VmHWM"].split()[0])


def peak_of_installation(dev, server, image):
    reset_peak(dev)
    shown = install(dev, server, image, timeout=LARGE_PATIENCE)
    assert shown == info(image) + PREPARING + INSTALLING + info(image) + SUCCESS
    return peak_kib(dev)


@pytest.mark.parametrize("mebibytes", [6, pytest.param(22, marks=pytest.mark.long)])
def test_memory_does_not_depend_on_the_size_of_the_image(dev, server, tmp_path, mebibytes):
    parts = ubi_device.PartFiles(tmp_path)
    dev.board.flash_write("ubi0", ubi_device.make())
    leb = layout.NAND_GEOMETRIES["128k"].leb
    lebs = ubi_device.fresh_layout()["rootfs_2"]
    filling = {f"lib/{number}": random.Random(number).randbytes(MEBIBYTE) for number in range(mebibytes)}
    files = root_files("3.2.0.0R1", **filling)
    small = parts.build(("rootfs-ubifs-128k", ubifs(root_files("3.1.0.0R1"), lebs=22)))
    large = parts.build(("rootfs-ubifs-128k", ubifs(files, lebs=lebs)))
    assert mebibytes * MEBIBYTE < len(large) <= lebs * leb and len(large) > 2 * len(small)

    reset_peak(dev)
    assert dev.command("version")
    idle = peak_kib(dev)
    of_small, of_large = (peak_of_installation(dev, server, image) for image in (small, large))
    with attached(dev) as ubi:
        assert ubi.files("rootfs_2") == files
    print(f"idle {idle} KiB, small image {of_small} KiB, large image {of_large} KiB")
    assert abs(of_large - of_small) <= SAME_KIB
    assert max(of_small, of_large) - idle <= ABOVE_IDLE_KIB

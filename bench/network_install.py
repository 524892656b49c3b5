"""Installing over the network on the virtual board, against the same transfer piped into nothing: on the same board, turn
by turn. The second transfer counts, from its announcement to the result: that is the one that writes. A root file system
pays for two seconds in which the flash settles, whatever its size."""

import os
import subprocess
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "board"))

import layout  # noqa: E402  (the path had to be set first)

PATIENCE = 1800
SERVER, FILE = "10.0.2.2", "image.rom"


def root_file_system(directory, size):
    """A UBIFS image of a file of `size` random bytes."""
    geometry = layout.NAND_GEOMETRIES["128k"]
    tree, image = directory / "tree", directory / "rootfs"
    tree.mkdir(exist_ok=True)
    (tree / "file").write_bytes(os.urandom(size))
    subprocess.run(["/usr/sbin/mkfs.ubifs", "-m", str(geometry.page), "-e", str(geometry.leb), "-c", "250", "-r", tree,
                    "-o", image], check=True)
    return image


def _kernel(directory, size):
    (directory / "kernel").write_bytes(os.urandom(size))
    return directory / "kernel"


def _seconds_into_nothing(board):
    start = time.monotonic()
    board.sh(f"tftp -g -r {FILE} -l - {SERVER} | cat > /dev/null", PATIENCE, check=True)
    return time.monotonic() - start


def _seconds_of_second_transfer(board):
    board.console.send(f"flash download network 2 {SERVER} {FILE}\r")
    board.console.expect("Installing ...\r\n", timeout=PATIENCE)
    start = time.monotonic()
    ending = board.console.expect("Done: SUCCESS", "Done: FAILURE", timeout=PATIENCE)
    elapsed = time.monotonic() - start
    if ending.index:
        sys.exit(f"bench: the image was not installed:\n{ending.before.decode()}")
    board.console.expect("CLI> ", timeout=PATIENCE)
    return elapsed


def network_throughput(board, kesto, directory, size, runs):
    """{what is installed: the throughputs of `runs` installations of `size` bytes relative to the transfer alone}, on a board at
    its prompt whose network is up, whose flash was in use, and whose server offers `board.tftp`; `directory` is for files."""
    ratios = {}
    for word, make in ("kernel", _kernel), ("rootfs-ubifs-128k", root_file_system):
        subprocess.run([kesto, "image", "build", "-o", board.tftp / FILE, f"--{word}", make(directory, size)], check=True,
                       stdout=subprocess.DEVNULL)
        ratios[word] = [_seconds_into_nothing(board) / _seconds_of_second_transfer(board) for _ in range(runs)]
    return ratios

"""What an installation costs the device's own program on the board: memory, and system calls as the kernel counts them."""

import contextlib
import os
import re
import subprocess
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "board"))

from network_install import root_file_system  # noqa: E402  (the path had to be set first)

PATIENCE = 1800
SERVER, FILE = "10.0.2.2", "image.rom"
_COUNTER = "/sys/kernel/debug/tracing/events/raw_syscalls/sys_enter"


@contextlib.contextmanager
def _counted(board, whose, counts):
    """Counts system calls meanwhile, {name: number}; `whose` is a filter of the kernel's tracing."""
    rule = f"hist:keys=id.syscall if {whose}"
    board.sh(f"echo '{rule}' >{_COUNTER}/trigger", check=True)
    try:
        yield
        shown = board.sh(f"cat {_COUNTER}/hist", check=True).output
        counts.update({name: int(hits) for name, hits in re.findall(r"id: (\w+) .*hitcount: +(\d+)", shown)})
    finally:
        board.sh(f"echo '!{rule}' >{_COUNTER}/trigger")


def _calls_per_piece(board, pieces):
    """System calls that move data, per 4 KiB of `pieces` that stand ready in a pipe."""
    counts = {}
    with _counted(board, 'comm == "stream_bench"', counts):
        board.sh(f"dd if=/dev/zero bs=65536 count={pieces // 16} | stream_bench /dev/mtd5 {pieces * 4096}", PATIENCE,
                 check=True)
    return sum(number for name, number in counts.items() if re.search("select|read|write", name)) / pieces


class _Shell:
    """The shell on a board: its memory, its system calls, and installations by it."""

    def __init__(self, board, kesto):
        self._board, self._kesto, self._served = board, kesto, Path(board.tftp)
        self._command("network ethernet start")
        self._pid = board.sh("pidof recovery-loader", check=True).output.strip()

    def _command(self, line):
        self._board.console.send(line + "\r")
        if self._board.console.expect("Done: SUCCESS", "Done: FAILURE", timeout=PATIENCE).index:
            sys.exit(f"bench: {line} failed")
        self._board.console.expect("CLI> ", timeout=PATIENCE)

    def memory_kib(self, field):
        """VmRSS: resident now; VmHWM: the most that ever was."""
        status = self._board.sh(f"cat /proc/{self._pid}/status", check=True).output
        return int(re.search(rf"^{field}:\s+(\d+) kB", status, re.MULTILINE)[1])

    def _counted(self, counts):
        return _counted(self._board, f"common_pid == {self._pid}", counts)

    def _image(self, word, file):
        subprocess.run([self._kesto, "image", "build", "-o", self._served / FILE, f"--{word}", file], check=True,
                       stdout=subprocess.DEVNULL)
        return (self._served / FILE).read_bytes()

    def calls_of_network_installation(self, word, file):
        """System calls per 4 KiB piece, the two transfers and all that stands around them included."""
        size, counts = len(self._image(word, file)), {}
        with self._counted(counts):
            self._command(f"flash download network 2 {SERVER} {FILE}")
        return sum(counts.values()) / (size / 4096)

    def calls_over_serial(self, file, rate):
        """System calls per KiB of a kernel that comes over the console at `rate` bytes per second."""
        image, counts = self._image("kernel", file), {}
        self._command("flash kill 1 kernel")
        with self._counted(counts):
            self._board.serial_download("flash download serial 1", image, rate=rate)
            if self._board.console.expect("Done: SUCCESS", "Done: FAILURE", timeout=PATIENCE).index:
                sys.exit(f"bench: nothing was installed at {rate} bytes per second")
            self._board.console.expect("CLI> ", timeout=PATIENCE)
        return sum(counts.values()) / (len(image) / 1024)


def _random(path, size):
    path.write_bytes(os.urandom(size))
    return path


def installation_cost(board, kesto, directory, small, kernel, root, pieces, rates):
    """
    {"idle": KiB resident at the first prompt, "small" and "large": KiB above that at the peak of installing `small` bytes and
    then a root file system of `root`, "piece": system calls per 4 KiB of `pieces` that stand ready in a pipe, "network": per
    4 KiB of `kernel` bytes over the network, "serial": {rate: per KiB of `small` bytes} for each of `rates`}. The board is at
    its first prompt, has stream_bench, and its server offers `board.tftp`; `directory` is for files.
    """
    few, many = _random(directory / "small", small), _random(directory / "kernel", kernel)
    shell = _Shell(board, kesto)
    cost = {"idle": shell.memory_kib("VmRSS")}
    shell.calls_of_network_installation("kernel", few)
    cost["small"] = shell.memory_kib("VmHWM") - cost["idle"]
    cost["network"] = shell.calls_of_network_installation("kernel", many)
    shell.calls_of_network_installation("rootfs-ubifs-128k", root_file_system(directory, root))
    cost["large"] = shell.memory_kib("VmHWM") - cost["idle"]
    cost["piece"] = _calls_per_piece(board, pieces)
    cost["serial"] = {rate: shell.calls_over_serial(few, rate) for rate in rates}
    return cost

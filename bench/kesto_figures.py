"""kesto, the tool for a computer: its TFTP service against Debian's tftpd-hpa, turn by turn and with the same client, and its
memory against the size of an image."""

import os
import socket
import subprocess
import sys
import time
from pathlib import Path

FILE_SIZE = 24 << 20
SMALL, LARGE = 1 << 20, 48 << 20
PATIENCE = 300


def _free_port():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def debians_server(directory):
    """The server's program out of its package: installed, it would begin to serve on this machine."""
    subprocess.run(["apt-get", "-qq", "download", "tftpd-hpa"], cwd=directory, check=True)
    subprocess.run(["dpkg-deb", "-x", next(directory.glob("tftpd-hpa_*.deb")), directory / "package"], check=True)
    return directory / "package/usr/sbin/in.tftpd"


def _fetch(port, size):
    """Bytes per second."""
    start = time.monotonic()
    count = subprocess.run(["curl", "-sS", "--tftp-no-options", "--max-time", str(PATIENCE), "-o", "/dev/null", "-w",
                            "%{size_download}", f"tftp://127.0.0.1:{port}/image"], check=True, capture_output=True).stdout
    if int(count) != size:
        sys.exit(f"bench: {count} bytes were fetched")
    return size / (time.monotonic() - start)


def _wait_bound(port, process):
    """Until the UDP port is taken."""
    wanted = f"0100007F:{port:04X} "
    while wanted not in Path("/proc/net/udp").read_text():
        if process.poll() is not None:
            sys.exit(f"bench: {process.args[0]} has ended")
        time.sleep(0.01)


def tftp_ratios(build, server, directory, runs):
    """Throughput of kesto's service over that of Debian's `server`, of 24 MiB, once for each of `runs`; needs root."""
    (directory / "image").write_bytes(os.urandom(1 << 20) * (FILE_SIZE >> 20))
    (directory / "image").chmod(0o644)
    directory.chmod(0o755)
    ours, theirs = _free_port(), _free_port()
    with subprocess.Popen([build / "tftp_bench", directory / "image", "127.0.0.1", str(ours)], stdin=subprocess.PIPE,
                          stdout=subprocess.DEVNULL) as service, \
         subprocess.Popen([server, "-L", "-u", "nobody", "-a", f"127.0.0.1:{theirs}", "-s", directory]) as debians:
        try:
            _wait_bound(ours, service)
            _wait_bound(theirs, debians)
            return [_fetch(ours, FILE_SIZE) / _fetch(theirs, FILE_SIZE) for _ in range(runs)]
        finally:
            debians.terminate()
            service.stdin.close()


def _peak_kib(*words):
    """The most that a program was resident. A small program starts it: the size of this one would count, too."""
    done = subprocess.run(["busybox", "time", "-f", "%M", *words], check=True, capture_output=True, text=True)
    return int(done.stderr.splitlines()[-1])


def peak_memory(build, directory):
    """{"build", "verify": (KiB at the peak for an image of 1 MiB, and for one of 48 MiB)}"""
    peaks = {"build": [], "verify": []}
    for size in SMALL, LARGE:
        (directory / "part").write_bytes(os.urandom(1 << 20) * (size >> 20))
        peaks["build"].append(_peak_kib(build / "kesto", "image", "build", "-o", directory / "image.rom", "--kernel",
                                        directory / "part"))
        peaks["verify"].append(_peak_kib(build / "kesto", "image", "verify", directory / "image.rom"))
    return {what: tuple(pair) for what, pair in peaks.items()}

"""kesto, the tool for a computer: its TFTP service against Debian's tftpd-hpa, turn by turn and with the same client, and its
memory against the size of an image."""

import contextlib
import os
import socket
import subprocess
import sys
import tempfile
import time
from pathlib import Path

PATIENCE = 300


def _free_port():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def debians_server(directory):
    """The server's program out of its package, fetched into `directory` once: installed, it would begin to serve on this
    machine."""
    server = directory / "package/usr/sbin/in.tftpd"
    if not server.exists():
        directory.mkdir(parents=True, exist_ok=True)
        # Who comes meanwhile finds all of it or nothing.
        with tempfile.TemporaryDirectory(dir=directory) as name:
            fetched = Path(name)
            subprocess.run(["apt-get", "-qq", "download", "tftpd-hpa"], cwd=fetched, check=True)
            subprocess.run(["dpkg-deb", "-x", next(fetched.glob("tftpd-hpa_*.deb")), fetched / "package"], check=True)
            with contextlib.suppress(OSError):
                (fetched / "package").rename(directory / "package")
    return server


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


def tftp_ratios(build, server, directory, size, runs):
    """Throughput of kesto's service over that of Debian's `server`, of `size` bytes, once for each of `runs`; needs root."""
    (directory / "image").write_bytes(os.urandom(size))
    (directory / "image").chmod(0o644)
    directory.chmod(0o755)
    ours, theirs = _free_port(), _free_port()
    with subprocess.Popen([build / "tftp_bench", directory / "image", "127.0.0.1", str(ours)], stdin=subprocess.PIPE,
                          stdout=subprocess.DEVNULL) as service, \
         subprocess.Popen([server, "-L", "-u", "nobody", "-a", f"127.0.0.1:{theirs}", "-s", directory]) as debians:
        try:
            _wait_bound(ours, service)
            _wait_bound(theirs, debians)
            return [_fetch(ours, size) / _fetch(theirs, size) for _ in range(runs)]
        finally:
            debians.terminate()
            service.stdin.close()


def _peak_kib(*words):
    """The most that a program was resident. A small program starts it: the size of this one would count, too."""
    done = subprocess.run(["busybox", "time", "-f", "%M", *words], check=True, capture_output=True, text=True)
    return int(done.stderr.splitlines()[-1])


def peak_memory(build, directory, sizes):
    """{"build", "verify": [KiB at the peak for an image of each of these sizes in bytes]}"""
    peaks = {"build": [], "verify": []}
    for size in sizes:
        (directory / "part").write_bytes(os.urandom(size))
        peaks["build"].append(_peak_kib(build / "kesto", "image", "build", "-o", directory / "image.rom", "--kernel",
                                        directory / "part"))
        peaks["verify"].append(_peak_kib(build / "kesto", "image", "verify", directory / "image.rom"))
    return peaks

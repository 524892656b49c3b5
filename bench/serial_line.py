"""kesto install into the shell in a device root. How much of a serial line it uses: a pseudo-terminal that takes bytes no
faster than a line does, with flow control. Its memory, over a line that takes what comes."""

import contextlib
import json
import os
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "tests" / "support"))

import images  # noqa: E402  (the path had to be set first)
from flash_table import NAMES  # noqa: E402
from port_bridge import PortBridge  # noqa: E402
from root_session import RootSession  # noqa: E402


class PacedLine(PortBridge):
    """A bridge whose pseudo-terminal takes `rate` bytes per second. An idle moment is lost, as on a line. `took`: seconds from
    the first byte of an image of `size` bytes to its last."""

    def __init__(self, port, directory, rate, size):
        self._rate, self._size, self.took = rate, size, None
        super().__init__(port, directory)
        self.deaf = True  # what is sent is taken by _pace() alone
        self._pacer = threading.Thread(target=self._pace, daemon=True)
        self._pacer.start()

    def close(self):
        self._stop.set()
        self._pacer.join()
        super().close()

    def _pace(self):
        free_at, began, passed = time.monotonic(), None, 0
        while not self._stop.is_set():
            now = time.monotonic()
            room = int((now - free_at) * self._rate)
            try:
                data = os.read(self._master, room) if room else b""
            except BlockingIOError:
                data, free_at = b"", now
            if not data:
                time.sleep(0.001)
                continue
            if began is None and images.ID in data:
                began, passed = free_at, -data.index(images.ID)
            free_at = free_at + len(data) / self._rate if len(data) == room else now
            passed += len(data)
            self._port.send(data)
            if began is not None and self.took is None and passed >= self._size:
                self.took = free_at - began


@contextlib.contextmanager
def _device_and_image(build, size):
    """A directory with an image of `size` bytes, and a device that has room for it."""
    with tempfile.TemporaryDirectory() as name:
        directory = Path(name)
        image = images.part(images.CONFIG_LOADER, os.urandom(size - images.HEADER_SIZE))
        (directory / "image.rom").write_bytes(image)
        dev = RootSession(directory / "root", build, build / "recovery-loader")
        try:
            dev.set_partitions(*((row, 2 * size if row == "config_loader" else 0x40000, 0x20000 if row == "ubi0" else 0x10000)
                                 for row in NAMES[:11]))
            for partition in dev.partitions:
                partition.fill()
            dev.boot()
            yield directory, dev
            if dev.partition("config_loader").read(0, size) != image:
                sys.exit("bench: the image was not installed as it was")
        finally:
            dev.close()


def _install(build, directory, port, *before):
    words = [*before, build / "kesto", "install", "--port", port, "image.rom", "--settle", "300", "--json"]
    done = subprocess.run(words, cwd=directory, check=False, capture_output=True, text=True)
    if done.returncode:
        sys.exit(f"bench: nothing was installed over the line: {done.stderr}{json.loads(done.stdout)}")
    return done


def serial_ratio(build, rate, size):
    """Throughput of kesto install, of an image of `size` bytes, over what a line of `rate` bytes per second carries."""
    with _device_and_image(build, size) as (directory, dev), PacedLine(dev.console, directory, rate, size) as line:
        _install(build, directory, line.pty)
        return size / rate / line.took


def install_memory(build, size):
    """KiB that kesto install had resident at its peak, of an image of `size` bytes. A small program starts it: the size of
    this one would count, too."""
    with _device_and_image(build, size) as (directory, dev), PortBridge(dev.console, directory) as line:
        done = _install(build, directory, line.unix, "busybox", "time", "-f", "%M")
        return int(done.stderr.splitlines()[-1])

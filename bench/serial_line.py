"""How much of a serial line kesto uses: a pseudo-terminal that takes bytes no faster than a line does, with flow control, and
the shell in a device root behind it."""

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


def serial_ratio(build, rate, size):
    """Throughput of kesto install, of an image of `size` bytes, over what a line of `rate` bytes per second carries."""
    with tempfile.TemporaryDirectory() as name:
        directory = Path(name)
        image = images.part(images.CONFIG_LOADER, images.pattern(size - images.HEADER_SIZE))
        (directory / "image.rom").write_bytes(image)
        dev = RootSession(directory / "root", build, build / "recovery-loader")
        try:
            dev.set_partitions(*((row, 2 * size, 0x20000 if row == "ubi0" else 0x10000) for row in NAMES[:11]))
            for partition in dev.partitions:
                partition.fill()
            dev.boot()
            with PacedLine(dev.console, directory, rate, size) as line:
                done = subprocess.run([build / "kesto", "install", "--port", line.pty, "image.rom", "--settle", "300", "--json"],
                                      cwd=directory, check=False, capture_output=True, text=True)
                if done.returncode or not line.took:
                    sys.exit(f"bench: nothing was installed over the line: {done.stderr}{json.loads(done.stdout)}")
                return size / rate / line.took
        finally:
            dev.close()

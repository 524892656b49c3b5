"""The test's end of the device's serial ports: pseudo-terminals, drained by one background thread."""

import os
import select
import threading
import termios
import time
import tty
from collections import namedtuple


class Timeout(AssertionError):
    """What a test waited for did not come."""


Found = namedtuple("Found", "before")
Found.__doc__ = "What stood before the text that was waited for."


class SerialPort:
    """One port. `output` holds every byte that the device ever sent through it; from LIMIT on it is left to wait,
    as a program that runs wild must not fill the host."""

    LIMIT = 64 << 20

    def __init__(self, name: str):
        self.name = name
        self.master, self.slave = os.openpty()  # the open slave keeps the port's settings while nobody uses it
        self.device = os.ttyname(self.slave)
        os.set_blocking(self.master, False)
        self.alive = lambda: True  # whether a program is there that could send more
        self._received = bytearray()
        self._read_to = 0  # how much of it the test has looked at
        self._news = threading.Condition()

    def close(self) -> None:
        os.close(self.master)
        os.close(self.slave)

    @property
    def output(self) -> bytes:
        """Every byte that ever came."""
        return bytes(self._received)

    @property
    def unread(self) -> bytes:
        """The bytes that expect() has not passed yet."""
        return bytes(self._received[self._read_to:])

    def skip(self) -> None:
        """Passes everything received so far."""
        self._read_to = len(self._received)

    def drain(self) -> None:
        """Takes what has arrived; called by the thread that watches the ports."""
        if len(self._received) > self.LIMIT:
            time.sleep(0.01)
            return
        try:
            data = os.read(self.master, 65536)
        except (BlockingIOError, OSError):
            return
        with self._news:
            self._received += data
            self._news.notify_all()

    def expect(self, raw: bytes, timeout: float = 15) -> Found:
        """Waits for these bytes and passes them; returns what stood before. Fails after `timeout` seconds, or once the
        program is dead and nothing more has come."""
        end = time.monotonic() + timeout
        with self._news:
            while (at := self._received.find(raw, self._read_to)) < 0:
                left = end - time.monotonic()
                was_alive = self.alive()
                if left <= 0 or (not was_alive and not self._news.wait(0.2)):
                    state = "" if was_alive else " (the program has ended)"
                    raise Timeout(f"{self.name}: {raw!r} did not come within {timeout} s{state}; "
                                  f"unread: {self.unread!r}")
                self._news.wait(min(left, 0.2))
            before, self._read_to = bytes(self._received[self._read_to:at]), at + len(raw)
        return Found(before)

    def expect_all(self, raw: bytes, timeout: float = 10) -> None:
        """This is all that ever came, once what is still on its way has arrived: ports overtake each other."""
        with self._news:
            self._news.wait_for(lambda: len(self._received) >= len(raw), timeout)
        assert bytes(self._received) == raw

    def send(self, data: bytes, piece: int = 0, pause: float = 0, timeout: float = 60) -> None:
        """Sends bytes to the device; `piece` bytes at a time with `pause` seconds between, when given."""
        end = time.monotonic() + timeout
        view = memoryview(data)
        while view:
            if not select.select([], [self.master], [], max(0, end - time.monotonic()))[1]:
                raise Timeout(f"{self.name}: the device did not take {len(view)} of {len(data)} bytes")
            try:
                sent = os.write(self.master, view[:piece or 4096])
            except BlockingIOError:
                continue
            view = view[sent:]
            if pause and view:
                time.sleep(pause)

    def make_raw(self) -> None:
        """Settings under which the port passes bytes unchanged, before any program sets its own."""
        tty.setraw(self.slave)

    def end_input(self, ended: bool) -> None:
        """Reads of the port find its end instead of waiting; the one that waits already goes on waiting for a byte."""
        settings = termios.tcgetattr(self.slave)
        settings[6][termios.VMIN] = 0 if ended else 1
        termios.tcsetattr(self.slave, termios.TCSANOW, settings)


class SerialPorts(dict):
    """Ports by name, and the thread that drains them."""

    def __init__(self, *names: str):
        super().__init__((name, SerialPort(name)) for name in names)
        self._wake, self._stop = os.pipe()
        self._thread = threading.Thread(target=self._watch, daemon=True)
        self._thread.start()

    def _watch(self) -> None:
        by_master = {port.master: port for port in self.values()}
        while True:
            ready = select.select([self._wake, *by_master], [], [])[0]
            if self._wake in ready:
                return
            for master in ready:
                by_master[master].drain()

    def close(self) -> None:
        os.write(self._stop, b"x")
        self._thread.join()
        for port in self.values():
            port.close()
        os.close(self._wake)
        os.close(self._stop)

"""The test's end of the device's serial ports: pseudo-terminals, drained by one background thread."""

import os
import select
import threading
import time
import tty


class Timeout(AssertionError):
    """What a test waited for did not come."""


class SerialPort:
    """One port. `received` holds every byte that the device ever sent through it; from LIMIT on it is left to wait,
    as a program that runs wild must not fill the host."""

    LIMIT = 64 << 20

    def __init__(self, name: str):
        self.name = name
        self.master, self.slave = os.openpty()  # the open slave keeps the port's settings while nobody uses it
        self.device = os.ttyname(self.slave)
        os.set_blocking(self.master, False)
        self.received = bytearray()
        self.read_to = 0  # how much of `received` the test has looked at
        self.news = threading.Condition()

    def close(self) -> None:
        os.close(self.master)
        os.close(self.slave)

    @property
    def unread(self) -> bytes:
        return bytes(self.received[self.read_to:])

    def drain(self) -> None:
        """Takes what has arrived; called by the thread that watches the ports."""
        if len(self.received) > self.LIMIT:
            time.sleep(0.01)
            return
        try:
            data = os.read(self.master, 65536)
        except (BlockingIOError, OSError):
            return
        with self.news:
            self.received += data
            self.news.notify_all()

    def wait(self, found, timeout: float, alive, what: str):
        """Waits until found(unread) is not None and returns it; fails after `timeout` seconds, or once the program
        is dead and nothing more has come."""
        end = time.monotonic() + timeout
        with self.news:
            while (result := found(self.unread)) is None:
                left = end - time.monotonic()
                was_alive = alive()
                if left <= 0 or (not was_alive and not self.news.wait(0.2)):
                    state = "" if was_alive else " (the program has ended)"
                    raise Timeout(f"{self.name}: {what} did not come within {timeout} s{state}; "
                                  f"unread: {self.unread!r}")
                self.news.wait(min(left, 0.2))
        return result

    def expect_all(self, raw: bytes, timeout: float = 10) -> None:
        """This is all that ever came, once what is still on its way has arrived: ports overtake each other."""
        with self.news:
            self.news.wait_for(lambda: len(self.received) >= len(raw), timeout)
        assert bytes(self.received) == raw

    def take(self, size: int) -> bytes:
        """The next `size` unread bytes."""
        data = bytes(self.received[self.read_to:self.read_to + size])
        self.read_to += size
        return data

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

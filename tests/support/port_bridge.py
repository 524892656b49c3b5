"""Brings a serial port of a device root to a program on a computer, as cables and terminal servers do.

    with PortBridge(dev.console) as bridge:
        subprocess.run([kesto, "run", "--port", bridge.pty, "version"])

A bridge offers the port as a pseudo-terminal, a TCP port and a UNIX socket at once; what the device sends goes to whoever
is connected, as it would into a cable that nobody listens to.
"""

import os
import select
import socket
import threading
import time
import tty
from pathlib import Path


class PortBridge:
    """`pty`, `tcp` and `unix` are the words after --port; `far`, where it was made, is the end of a serial cable, for a
    server of serial ports."""

    def __init__(self, port, directory: Path):
        self._port = port
        self._read_to = len(port.output)
        self._master, self._slave = os.openpty()  # the open slave keeps the pair alive while nobody uses it
        tty.setraw(self._slave)
        os.set_blocking(self._master, False)
        self.path = os.ttyname(self._slave)
        self._tcp = socket.create_server(("127.0.0.1", 0))
        self._unix = socket.socket(socket.AF_UNIX)
        self._unix_path = directory / f"line{id(self):x}"
        self._unix.bind(str(self._unix_path))
        self._unix.listen()
        self._clients = []
        self._stop = threading.Event()
        self.deaf = False  # True: what the computer sends is not taken any more
        self.garble = None  # a function on what the computer sends
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()

    pty = property(lambda self: self.path)
    tcp = property(lambda self: f"tcp:127.0.0.1:{self._tcp.getsockname()[1]}")
    unix = property(lambda self: f"unix:{self._unix_path}")

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        self.close()

    def close(self) -> None:
        self._stop.set()
        self._thread.join()
        self.hang_up()
        for end in (self._tcp, self._unix):
            end.close()

    def hang_up(self) -> None:
        """Pulls the cable: the pseudo-terminal is gone, connections are closed."""
        for client in self._clients:
            client.close()
        self._clients = []
        for end in (self._master, self._slave):
            if end >= 0:
                os.close(end)
        self._master = self._slave = -1

    def _run(self) -> None:
        while not self._stop.is_set():
            if self._pull:
                self.hang_up()
                self._pull = False
            sources = [self._tcp, self._unix]
            if not self.deaf:
                sources += self._clients + ([self._master] if self._master >= 0 else [])
            for source in select.select(sources, [], [], 0.005)[0]:
                self._take(source)
            self._forward()

    _pull = False

    def pull(self) -> None:
        """The same from the test's thread; returns when it is done."""
        self._pull = True
        end = time.monotonic() + 10
        while self._pull and time.monotonic() < end:
            time.sleep(0.005)

    def _take(self, source) -> None:
        if source in (self._tcp, self._unix):
            self._clients.append(source.accept()[0])
            return
        try:
            data = os.read(self._master, 4096) if source == self._master else source.recv(4096)
        except OSError:
            data = b""
        if not data:
            if source in self._clients:
                self._clients.remove(source)
                source.close()
            return
        self._port.send(self.garble(data) if self.garble else data)

    def _forward(self) -> None:
        output = self._port.output[self._read_to:]
        self._read_to += len(output)
        if not output:
            return
        for client in list(self._clients):
            try:
                client.sendall(output)
            except OSError:
                self._clients.remove(client)
        if self._master >= 0:
            try:
                os.write(self._master, output)
            except (BlockingIOError, OSError):
                pass

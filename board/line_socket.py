"""
A serial line of a running board for other programs, as a UNIX socket: what comes out of the line goes to whoever is connected,
what they write goes into it. A cable has RTS/CTS, the emulated port has not: a socket that is not read does the same.

    with LineSocket(board, 1, directory / "ttyS1") as line:
        subprocess.run(["kesto", "run", "--port", f"unix:{line.path}", "version"])
"""

import contextlib
import os
import selectors
import socket
import threading
import time
from pathlib import Path

from errors import BoardError
from flow_control import WINDOW, Reader

_PIECE = 4096
# What comes this much later is something else than the transfer before.
_PAUSE = 3.0
_LONGEST_WAIT = 60.0
# An address of a socket holds no more.
_LONGEST_PATH = 107


class LineSocket:
    """/dev/ttyS`number` of the board at `path`, until the context is left. What lies at `path` is replaced."""

    def __init__(self, board, number, path):
        self.path = Path(path)
        self._board, self._number = board, number
        self._port = {1: board.console, 2: board.serial2}[number]
        self._clients = []
        self._changed = threading.Lock()
        self._transfer = None
        self._listener = socket.socket(socket.AF_UNIX)
        self.path.unlink(missing_ok=True)
        with _short(self.path) as name:
            self._listener.bind(name)
        self._listener.listen()
        self._stop, self._stopped = socket.socketpair()
        self._thread = threading.Thread(target=self._run, daemon=True, name=f"line {number}")

    def __enter__(self):
        self._port.listeners.append(self._output)
        self._thread.start()
        return self

    def __exit__(self, *unused):
        self._port.listeners.remove(self._output)
        self._stop.close()
        self._thread.join()
        self._listener.close()
        self.path.unlink(missing_ok=True)

    @property
    def is_transferring(self):
        """Whether a file is on its way through the line: a key would become a part of it."""
        return self._transfer is not None and self._transfer.is_going_on()

    def _output(self, data):
        with self._changed:
            for client in list(self._clients):
                try:
                    client.sendall(data)
                except OSError:  # gone, or it does not read
                    self._clients.remove(client)

    def _run(self):
        with selectors.DefaultSelector() as selector:
            selector.register(self._stopped, selectors.EVENT_READ)
            selector.register(self._listener, selectors.EVENT_READ)
            while True:
                for key, _ in selector.select():
                    if key.fileobj is self._stopped:
                        return
                    if key.fileobj is self._listener:
                        client, _ = self._listener.accept()
                        client.settimeout(5)
                        selector.register(client, selectors.EVENT_READ)
                        with self._changed:
                            self._clients.append(client)
                    elif not self._input(key.fileobj):
                        selector.unregister(key.fileobj)
                        with self._changed, contextlib.suppress(ValueError):
                            self._clients.remove(key.fileobj)
                        key.fileobj.close()

    def _input(self, client):
        """Passes on what the client has written. Returns whether it is still there."""
        try:
            data = client.recv(_PIECE)
            if data:
                self._pass_on(data)
            return bool(data)
        except (OSError, BoardError):  # the client has gone, or the board takes nothing
            return False

    def _pass_on(self, data):
        if self._transfer and not self._transfer.is_going_on():
            self._transfer = None
        # Nobody types so much at once.
        if self._transfer is None and len(data) == _PIECE:
            self._transfer = _Transfer(self._board, self._port, self._number)
        if self._transfer:
            self._transfer.wait()
        self._port.send(data)
        if self._transfer:
            self._transfer.sent(len(data))


class _Transfer:
    """A file that goes through the line, as fast as the shell takes it."""

    def __init__(self, board, port, number):
        self._console, self._seen = board.console, len(board.console.output)
        shell = board.sh("pidof recovery-loader").output.strip()
        self._reader = Reader(board, shell, number) if shell else None
        self._port, self._count, self._waited_at = port, 0, 0
        self._last = time.monotonic()

    def is_going_on(self):
        """Whether something came a short while ago."""
        return time.monotonic() - self._last < _PAUSE

    def wait(self):
        """Waits until the shell wants more, or has ended the transfer. Raises Timeout."""
        if self._reader and self._count - self._waited_at >= WINDOW:
            self._reader.wait(self._count, lambda: b"Done: " in self._console.output[self._seen:], _LONGEST_WAIT)
            self._waited_at = self._count

    def sent(self, count):
        """So many bytes more are on their way."""
        self._count += count
        self._last = time.monotonic()


@contextlib.contextmanager
def _short(path):
    """A name for `path` that an address of a socket holds, however long the directory's is."""
    if len(os.fsencode(path)) <= _LONGEST_PATH:
        yield str(path)
        return
    descriptor = os.open(path.parent, os.O_PATH | os.O_DIRECTORY)
    try:
        yield f"/proc/self/fd/{descriptor}/{path.name}"
    finally:
        os.close(descriptor)

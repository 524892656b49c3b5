"""
A serial line of a running board for other programs, as a UNIX socket: what comes out of the line goes to whoever is connected,
what they write goes into it. While the shell takes a file, a socket that is not read does what RTS does on a cable.

    with LineSocket(board, 1, directory / "ttyS1") as line:
        subprocess.run(["kesto", "run", "--port", f"unix:{line.path}", "version"])
"""

import contextlib
import math
import os
import selectors
import socket
import threading
import time
from pathlib import Path

from errors import BoardError, Timeout
from flow_control import WINDOW, Reader

# The console says so before and after it takes a file, from whatever line.
_BEGIN, _END = b"Begin serial download...", b"Done: "
# After so many seconds without a byte the shell takes no more.
_SILENCE = 3.0
_PIECE = 4096
# So often it is seen to that somebody still waits.
_LOOK = 5.0
# What a client has not read yet is kept for it, to this limit: the emulator hands on byte by byte, of which a socket holds no
# more than a few hundred.
_UNREAD = 1 << 20
# An address of a socket holds no more.
_LONGEST_PATH = 107


class LineSocket:
    """/dev/ttyS`number` of the board at `path`, until the context is left. What lies at `path` is replaced."""

    def __init__(self, board, number, path):
        self.path = Path(path)
        self._board, self._number = board, number
        self._port = {1: board.console, 2: board.serial2}[number]
        self._downloads = _Downloads()
        self._transfer = None
        self._clients = {}
        self._changed = threading.Lock()
        self._listener = socket.socket(socket.AF_UNIX)
        self.path.unlink(missing_ok=True)
        with _short(self.path) as name:
            self._listener.bind(name)
        self._listener.listen()
        self._ends = threading.Event()
        self._stop, self._stopped = socket.socketpair()
        self._thread = threading.Thread(target=self._run, daemon=True, name=f"line {number}")

    def __enter__(self):
        self._board.console.listeners.append(self._downloads.received)
        self._port.listeners.append(self._output)
        self._thread.start()
        return self

    def __exit__(self, *unused):
        self._port.listeners.remove(self._output)
        self._board.console.listeners.remove(self._downloads.received)
        self._ends.set()
        self._stop.close()
        self._thread.join()
        for end in (self._listener, self._stopped, *self._clients):
            end.close()
        self.path.unlink(missing_ok=True)

    @property
    def is_transferring(self):
        """Whether a file is on its way through the line: a key would become a part of it."""
        transfer = self._transfer
        return transfer is not None and transfer.is_going_on()

    def _output(self, data):
        """What a client leaves unread for too long is lost to it, as in a port: the board's other lines do not wait."""
        with self._changed:
            for unread in self._clients.values():
                if len(unread) + len(data) <= _UNREAD:
                    unread += data
            self._hand_on()
            if any(self._clients.values()):
                with contextlib.suppress(OSError):
                    self._stop.send(b"\0", socket.MSG_DONTWAIT)

    def _hand_on(self):
        """What the sockets take of what was not read."""
        for client, unread in self._clients.items():
            with contextlib.suppress(OSError):
                while unread:
                    del unread[:client.send(unread, socket.MSG_DONTWAIT)]

    def _run(self):
        with selectors.DefaultSelector() as selector:
            selector.register(self._stopped, selectors.EVENT_READ)
            selector.register(self._listener, selectors.EVENT_READ)
            while not self._ends.is_set():
                for key, events in selector.select():
                    if key.fileobj is self._listener:
                        self._accept(selector)
                    elif key.fileobj is self._stopped:
                        self._stopped.recv(_PIECE)
                    elif events & selectors.EVENT_READ and not self._input(key.fileobj):
                        self._hang_up(selector, key.fileobj)
                with self._changed:
                    self._hand_on()
                    for client, unread in self._clients.items():
                        selector.modify(client, selectors.EVENT_READ | (selectors.EVENT_WRITE if unread else 0))

    def _accept(self, selector):
        client, _ = self._listener.accept()
        selector.register(client, selectors.EVENT_READ)
        with self._changed:
            self._clients[client] = bytearray()

    def _hang_up(self, selector, client):
        selector.unregister(client)
        with self._changed:
            del self._clients[client]
        client.close()

    def _input(self, client):
        """Passes on what the client has written. Returns whether client and board are still there."""
        try:
            data = client.recv(_PIECE)
            if data:
                self._pass_on(data)
            return bool(data)
        except (OSError, BoardError):
            return False

    def _pass_on(self, data):
        download = self._downloads.current

        def given_up():
            return self._downloads.current != download or self._ends.is_set()

        if download is None:
            self._transfer = None
        elif self._transfer is None or self._transfer.download != download:
            self._transfer = _Transfer(self._board, self._port, self._number, download)
        if self._transfer:
            self._transfer.wait(len(data), given_up)
        while data:
            try:
                self._port.send(data)
                return
            except Timeout as stalled:
                # Nobody has the port open, and what is sent there is lost; or the board is slow.
                data = data[-stalled.left:] if self._transfer and not given_up() else b""


class _Downloads:
    """Knows from the console whether the shell takes a file. `current` is the number of the download, or None."""

    def __init__(self):
        self.current = None
        self._count = 0
        self._tail = b""

    def received(self, data):
        """Takes what the console shows."""
        self._tail += data
        begin, end = self._tail.rfind(_BEGIN), self._tail.rfind(_END)
        if begin >= 0:
            self._count += 1
        if begin > end:
            self.current = self._count
        elif end >= 0:
            self.current = None
        self._tail = self._tail[1 - len(_BEGIN):]


class _Transfer:
    """A file that goes through the line, as fast as the shell takes it."""

    def __init__(self, board, port, number, download):
        self.download = download
        self._board, self._port, self._number = board, port, number
        self._reader = None
        self._sent = self._waited_at = 0
        self._busy_until = 0.0

    def is_going_on(self):
        """Whether the shell may still take what comes for a part of the file."""
        return time.monotonic() < self._busy_until

    def wait(self, count, given_up):
        """
        Called before `count` more bytes are sent. Waits for the shell to open the port, and, where they would be too many for
        the driver, until it has taken all and wants more; for as long as that takes, or until given_up().
        """
        self._busy_until = math.inf
        if self._reader is None:
            self._open(given_up)
        if self._sent + count - self._waited_at > WINDOW:
            self._reader.wait(self._sent, given_up)
            self._waited_at = self._sent
        self._sent += count
        self._busy_until = time.monotonic() + _SILENCE

    def _open(self, given_up):
        """What is there when the shell opens the port is dropped."""
        while not given_up():
            with contextlib.suppress(Timeout):
                self._board.wait_receiving(self._port, _LOOK)
                break
        self._reader = Reader(self._board, self._board.sh("pidof recovery-loader", check=True).output.strip(), self._number)


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

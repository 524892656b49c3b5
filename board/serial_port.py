"""
A serial line of the machine as the host sees it: everything that comes is kept and can be waited for, and what is sent is
paced by the sender, for the emulated UART has no flow control.
"""

import re
import select
import socket
import threading
import time

from errors import BoardError, Timeout

# Bytes per second that the emulated UART takes for sure.
UART_RATE = 80_000
# A sender gives up when the line takes nothing for so many seconds.
_SEND_STALLED = 30.0


class Port:
    """
    One serial line as the host sees it. Everything that came is in `output`; expect() searches what it has not passed
    yet. Each of `listeners` is called with each piece received, from the board's reader thread.
    """

    def __init__(self, name):
        self.name = name
        self.listeners = []
        self._buffer = bytearray()
        self._position = 0
        self._changed = threading.Condition()
        self._socket = None
        self._log = None

    # The machine's side.

    def attach(self, sock, log=None):
        """The machine was started: `sock` is its end of the line, `log` a file for all that comes."""
        with self._changed:
            self._socket, self._log = sock, log
            self._changed.notify_all()

    def received(self, data):
        """Takes what the machine sent."""
        with self._changed:
            self._buffer += data
            self._changed.notify_all()
        if self._log:
            self._log.write(data)
            self._log.flush()
        for listener in self.listeners:
            listener(data)

    def closed(self):
        """The machine has ended."""
        with self._changed:
            self._socket = None
            self._changed.notify_all()

    # The side of whoever sits at the line.

    @property
    def output(self):
        """All bytes received since the board was made, over all its boots."""
        with self._changed:
            return bytes(self._buffer)

    @property
    def unread(self):
        """The bytes that expect() has not passed yet."""
        with self._changed:
            return bytes(self._buffer[self._position:])

    def skip(self):
        """Passes everything received so far."""
        with self._changed:
            self._position = len(self._buffer)

    def expect(self, *patterns, timeout=20.0):
        """
        Waits for the first of `patterns` in the unread bytes: bytes or text are found as they stand, compiled byte
        patterns as expressions. Passes it and returns the match; `.before` is what came ahead of it and `.index` says
        which pattern it was. Raises Timeout, also when the machine ends.
        """
        expressions = [_expression(pattern) for pattern in patterns]
        deadline = time.monotonic() + timeout
        with self._changed:
            while True:
                found = _first(expressions, self._buffer, self._position)
                if found:
                    self._position = found.end
                    return found
                left = deadline - time.monotonic()
                if left <= 0 or self._socket is None:
                    why = "in time" if self._socket else "before the machine ended"
                    tail = bytes(self._buffer[self._position:][-2000:])
                    raise Timeout(f"{self.name}: no {' or '.join(map(repr, patterns))} {why}; unread: {tail!r}")
                self._changed.wait(left)

    def read_until_quiet(self, quiet=0.5, timeout=20.0):
        """Waits until nothing has come for `quiet` seconds; passes and returns what was unread."""
        deadline = time.monotonic() + timeout
        with self._changed:
            length = -1
            while len(self._buffer) != length and time.monotonic() < deadline:
                length = len(self._buffer)
                self._changed.wait_for(lambda: len(self._buffer) != length, quiet)  # pylint: disable=W0640
            data = bytes(self._buffer[self._position:])
            self._position = len(self._buffer)
            return data

    def send(self, data):
        """
        Sends as fast as the line takes it: keystrokes. Text is sent as UTF-8. Raises Timeout when the line takes nothing
        for a long time: nobody has the port open and its buffers are full; its `left` is how many bytes were not sent.
        """
        data = memoryview(data.encode() if isinstance(data, str) else data)
        while data:
            sock = self._socket
            if sock is None:
                raise BoardError(f"{self.name}: the machine is off")
            try:
                if not select.select([], [sock], [], _SEND_STALLED)[1]:
                    raise Timeout(f"{self.name}: takes no more; {len(data)} bytes are left", len(data))
                data = data[sock.send(data, socket.MSG_DONTWAIT):]
            except BlockingIOError:
                pass
            except (OSError, ValueError) as error:  # closed by the other side, or by the reader meanwhile
                raise BoardError(f"{self.name}: the machine has ended") from error

    def send_paced(self, data, rate=UART_RATE, progress=None):
        """Sends at `rate` bytes per second; progress(bytes sent) is called now and then."""
        start, piece = time.monotonic(), max(16, rate // 200)
        for sent in range(0, len(data), piece):
            ahead = start + sent / rate - time.monotonic()
            if ahead > 0:
                time.sleep(ahead)
            self.send(data[sent:sent + piece])
            if progress:
                progress(min(sent + piece, len(data)))


class _Found:
    """Where a pattern was found; groups as the expression's own."""

    def __init__(self, match, index, before):
        self.start, self.end, self.index, self.before = match.start(), match.end(), index, before
        self.group, self.groups = match.group, match.groups


def _expression(pattern):
    if isinstance(pattern, re.Pattern):
        return pattern
    return re.compile(re.escape(pattern.encode() if isinstance(pattern, str) else pattern))


def _first(expressions, buffer, position):
    best = None
    data = bytes(buffer[position:])
    for index, expression in enumerate(expressions):
        match = expression.search(data)
        if match and (best is None or match.start() < best[0].start()):
            best = match, index
    if best is None:
        return None
    found = _Found(best[0], best[1], data[:best[0].start()])
    found.start += position
    found.end += position
    return found

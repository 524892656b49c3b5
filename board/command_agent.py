"""The command agent on the board (rootfs/agent.c): runs commands there as root and moves files."""

import collections
import os
import struct
import threading
import time

from errors import BoardError, Timeout

_FRAME = struct.Struct("<IIII")
_MAGIC = 0x746E6741
_HELLO, _RUN, _PUT, _GET, _DATA, _END = range(1, 7)
# Other work may keep the processors from this board for long.
_FILE_SECONDS = 600.0

Result = collections.namedtuple("Result", "status output")
Result.__doc__ = "Exit status and output (text, standard error included) of a command on the board."


class CommandAgent:
    """The host's end of the agent. One thing is asked at a time, whoever asks."""

    def __init__(self):
        self._changed = threading.Condition()
        self._buffer = bytearray()
        self._frames = collections.deque()
        self._hellos = 0
        self._socket = None
        self._one_at_a_time = threading.Lock()

    def attach(self, sock):
        """A machine was started."""
        with self._changed:
            self._buffer.clear()
            self._frames.clear()
            self._hellos, self._socket = 0, sock

    def received(self, data):
        """Takes what the machine sent."""
        with self._changed:
            self._buffer += data
            while self._take_frame():
                pass
            self._changed.notify_all()

    def _take_frame(self):
        """A machine that is reset may leave half a frame: what does not begin with the magic is dropped."""
        start = self._buffer.find(_MAGIC.to_bytes(4, "little"))
        if start > 0:
            del self._buffer[:start]
        if start < 0 or len(self._buffer) < _FRAME.size:
            return False
        _, kind, value, length = _FRAME.unpack_from(self._buffer)
        if len(self._buffer) < _FRAME.size + length:
            return False
        if kind == _HELLO:
            self._hellos += 1
            self._frames.clear()
        else:
            self._frames.append((kind, value, bytes(self._buffer[_FRAME.size:_FRAME.size + length])))
        del self._buffer[:_FRAME.size + length]
        return True

    def closed(self):
        """The machine has ended."""
        with self._changed:
            self._socket = None
            self._changed.notify_all()

    def wait_hello(self, timeout):
        """Waits for the next announcement and takes it."""
        with self._changed:
            self._changed.wait_for(lambda: self._hellos or self._socket is None, timeout)
            if not self._hellos:
                raise Timeout("no sign of the command agent")
            self._hellos = 0

    def _request(self, kind, value, data, timeout):
        """Asks one thing; returns the final value and the data that came before it."""
        with self._one_at_a_time:
            with self._changed:
                self._frames.clear()
                sock = self._socket
            if sock is None:
                raise BoardError("the machine is off")
            sock.sendall(_FRAME.pack(_MAGIC, kind, value, len(data)) + data)
            output, deadline = [], time.monotonic() + timeout
            while True:
                with self._changed:
                    self._changed.wait_for(lambda: self._frames or self._socket is None, deadline - time.monotonic())
                    if not self._frames:
                        raise Timeout("the command agent does not answer" if self._socket else "the machine ended")
                    kind, value, piece = self._frames.popleft()
                if kind == _END:
                    return value, b"".join(output)
                output.append(piece)

    def run(self, command, timeout):
        """Runs a command line as root; it is killed after `timeout` seconds. Returns its Result."""
        status, output = self._request(_RUN, int(timeout) + 1, command.encode() + b"\0", timeout + 10)
        return Result(status, output.decode(errors="replace"))

    def put(self, path, data, mode):
        """Writes a file on the board."""
        status, _ = self._request(_PUT, mode, path.encode() + b"\0" + data, _FILE_SECONDS)
        if status:
            raise BoardError(f"put {path}: {os.strerror(status)}")

    def get(self, path):
        """The bytes of a file on the board."""
        status, data = self._request(_GET, 0, path.encode(), _FILE_SECONDS)
        if status:
            raise BoardError(f"get {path}: {os.strerror(status)}")
        return data

"""
What RTS does on the device: a sender goes on only while the other side takes what comes. The emulated ports have no such
line, and the shell formats and mounts between a header and its contents, so the sender looks.
"""

import math
import re
import time

from errors import Timeout

# What the serial driver and the terminal layer hold for a reader who is busy, with a margin.
WINDOW = 32 << 10
_SELECT = b"335 "  # pselect6 of the device's processor


class Reader:
    """The process `pid` on a running board as the reader of /dev/ttyS`number`."""

    def __init__(self, board, pid, number):
        self._board, self._number = board, number
        self._call = f"/proc/{pid}/syscall"
        self._start = self._received()

    def _received(self):
        counts = self._board.get("/proc/tty/driver/serial").decode()
        return int(re.search(rf"^{self._number}:.* rx:(\d+)", counts, re.MULTILINE)[1])

    def wants_more(self, sent):
        """
        Whether all of the `sent` bytes have been taken, and the reader waits for what follows. More may have come: what was
        on its way when the counting began.
        """
        call = self._board.get(self._call)
        return call.startswith(_SELECT) and self._received() - self._start >= sent

    def wait(self, sent, given_up, timeout=math.inf):
        """
        Waits until the reader wants more than the `sent` bytes, or given_up() says that it has ended. It looks less and less
        often: looking costs the board time, too. Raises Timeout after `timeout` seconds, BoardError when the board or the
        process is gone.
        """
        deadline, pause = time.monotonic() + timeout, 0.01
        while not (given_up() or self.wants_more(sent)):
            if time.monotonic() > deadline:
                raise Timeout(f"the {sent} bytes that were sent are not taken")
            time.sleep(pause)
            pause = min(0.5, 1.5 * pause)


def send_as_taken(board, data, number=1, progress=None, timeout=600.0):
    """
    Sends an image to the shell, which listens on /dev/ttyS`number`, as fast as it takes it, until it says that it is done.
    progress(bytes sent) is called now and then. Raises Timeout when the shell takes nothing for `timeout` seconds.
    """
    port = {1: board.console, 2: board.serial2}[number]
    reader = Reader(board, board.sh("pidof recovery-loader", check=True).output.strip(), number)
    for at in range(0, len(data), WINDOW):
        reader.wait(at, lambda: b"Done: " in board.console.unread, timeout)
        if b"Done: " in board.console.unread:
            return
        port.send(data[at:at + WINDOW])
        if progress:
            progress(min(at + WINDOW, len(data)))

"""The loopback test of the serial lines, which no command leads to, run by a program on a board without a shell. The
host is the plug in a port, or the wire between the two, and loses, changes or adds bytes on the way."""

import contextlib
import re

import pytest

from board_session import BUILD, PATIENCE
from virtual_board import Board, BoardError

PROGRAM = "/usr/bin/loopback"
PORTS = {1: "console", 2: "serial2"}


@pytest.fixture(scope="module")
def board(tmp_path_factory):
    with Board(tmp_path_factory.mktemp("loopback"), files={PROGRAM: BUILD / "tests" / "loopback"}) as made:
        made.start()
        yield made


@pytest.fixture
def lines(board):
    return Lines(board)


class Lines:
    """The host's ends of the board's two free ports."""

    def __init__(self, board):
        self.board = board

    def port(self, number):
        return getattr(self.board, PORTS[number])

    @contextlib.contextmanager
    def wire(self, source, sink, altered=None):
        """Carries what comes out of one port into another, or into the same one: a plug. `altered`: {number of the
        byte, from 0: bytes instead}, where b"" loses it. Returns a list of what came out, in pieces."""
        altered, carried, problems = altered or {}, [], []

        def carry(data):
            before = sum(map(len, carried))
            carried.append(data)
            changed = b"".join(altered.get(before + at, bytes([byte])) for at, byte in enumerate(data))
            try:
                self.port(sink).send(changed)
            except BoardError as error:  # the thread that reads the board's lines has to live on
                problems.append(error)

        self.port(source).listeners.append(carry)
        try:
            yield carried
        finally:
            self.port(source).listeners.remove(carry)
        assert not problems

    def run(self, size, local=2, remote="", level=3, speed=115200):
        """What the test showed, result last."""
        return self.board.sh(f"{PROGRAM} {level} {size} {speed} {local} {remote}", PATIENCE, check=True).output

    def settings(self):
        """The terminal settings of both ports. A port that is not raw echoes: nothing may be under way."""
        return self.board.sh("stty -g -F /dev/ttyS1 && stty -g -F /dev/ttyS2", check=True).output


def pattern(size):
    return bytes(number % 256 for number in range(size))


def begin(size, speed=115200):
    return f"Testing loopback of {size} bytes at {speed} bps...\n"


def counts(sent, received):
    return f"ERROR: sent {sent} bytes, received {received} bytes\n"


def mismatch(index, expected, received):
    return f"ERROR: Data mismatch: index={index}, expected=0x{expected:02x}, received=0x{received:02x}\n"


PASSED, FAILED = "result 1\n", "result 0\n"


@pytest.mark.parametrize("size", [1, 4000])
def test_plug(lines, size):
    with lines.wire(2, 2) as carried:
        assert lines.run(size) == begin(size) + PASSED
    assert b"".join(carried) == pattern(size)


@pytest.mark.parametrize("altered, size, messages", [
    ({100: b""}, 300, counts(300, 299) + mismatch(100, 0x64, 0x65) + FAILED),
    ({299: b""}, 300, counts(300, 299) + mismatch(299, 0x2B, 0xFF) + FAILED),
    ({255: b""}, 256, counts(256, 255) + PASSED),  # the byte that is missing reads as what it should be
    ({256: b"\x80"}, 300, mismatch(256, 0x00, 0x80) + FAILED),
    ({7: b"\x07\x07"}, 300, counts(300, 301) + mismatch(8, 0x08, 0x07) + FAILED),
    ({299: b"\x2b and more"}, 300, counts(300, 309) + PASSED),
], ids=["lost", "last lost", "last 0xff lost", "changed", "doubled", "surplus"])
def test_plug_that_alters_bytes(lines, altered, size, messages):
    with lines.wire(2, 2, altered) as carried:
        assert lines.run(size) == begin(size) + messages
    assert b"".join(carried) == pattern(size)


def test_two_ports_wired_to_each_other(lines):
    before = lines.settings()
    with lines.wire(1, 2) as there, lines.wire(2, 1) as back:
        assert lines.run(1000, 1, 2) == begin(1000) + PASSED
    assert lines.settings() == before
    assert b"".join(there) == b"".join(back) == pattern(1000)


def test_what_is_said_on_the_way(lines):
    """How many pieces the lines make of the bytes is theirs; all of them are accounted for."""
    with lines.wire(2, 1), lines.wire(1, 2):
        shown = lines.run(300, 2, 1, level=7)
    head, sent, pieces = shown.partition("PROGRESS: tty_test_loopback: sent 300 bytes on local /dev/ttyS2...\n")
    assert head == ("TRACE: tty_test_loopback:\n" + begin(300)
                    + "VERBOSE: tty_open_raw: dev=/dev/ttyS2 speed=115200\n"
                      "VERBOSE: tty_open_raw: dev=/dev/ttyS1 speed=115200\n")
    assert sent
    for words in "looped back %s bytes on remote /dev/ttyS1", "received %s bytes on local /dev/ttyS2":
        message = rf"PROGRESS: tty_test_loopback: {words % '([0-9]+)'}\.\.\.\n((?:[0-9a-f]{{2}} )+)\n"
        told = re.findall(message, pieces)
        assert bytes.fromhex("".join(dump for _, dump in told)) == pattern(300)
        assert [int(count) for count, _ in told] == [len(dump) // 3 for _, dump in told]
        pieces = re.sub(message, "", pieces)
    assert pieces == ("INFO: tty_test_loopback: received total 300 bytes looped back\n"
                      "VERBOSE: tty_close_raw: dev=/dev/ttyS2\nVERBOSE: tty_close_raw: dev=/dev/ttyS1\n" + PASSED)


def test_port_is_raw_and_has_the_speed_of_its_record(lines):
    """Looked up while the test waits for bytes that do not come."""
    look = "stty -a -F /dev/ttyS2 2>/tmp/complaints"  # about the window size that a line has not
    shown = lines.board.sh(f"{PROGRAM} 3 1 57600 2 >/tmp/shown & until {look} | grep -q -e -icrnl; do usleep 20000; "
                           f"done; {look}; wait; cat /tmp/shown", PATIENCE, check=True).output
    settings, _, said = shown.partition("Testing")
    assert "Testing" + said == begin(1, 57600) + counts(1, 0) + mismatch(0, 0, 0xFF) + FAILED
    assert "speed 57600 baud" in settings
    assert {"cs8", "crtscts", "cread", "clocal", "-parenb", "-icanon", "-echo", "-isig", "-opost"} <= set(
        settings.replace(";", " ").split())


def test_stale_bytes_of_the_local_port_are_dropped(lines):
    """They stand in the line until the port is opened, and come while it settles; a drain follows, with two ports."""
    lines.board.sh("stty -F /dev/ttyS2 raw -echo", check=True)  # also while it is being opened
    with lines.wire(2, 1), lines.wire(1, 2):
        lines.port(2).send(b"stale" * 400)
        assert lines.run(100, 2, 1) == begin(100) + PASSED
    lines.board.sh("stty -F /dev/ttyS2 sane", check=True)


def test_ports_that_cannot_be_used(lines):
    """One that is not there, as local or remote port, and one without hardware behind its node."""
    shown = lines.run(10, 9)
    assert shown == (begin(10) + "tty_open_raw: open(): No such file or directory\n"
                     "ERROR: tty_test_loopback: tty_open_raw(/dev/ttyS9) error(No such file or directory)\n" + FAILED)
    before = lines.settings()
    assert lines.run(10, 2, 9) == shown
    assert lines.settings() == before, "the local port is given back"
    assert lines.run(10, 3) == (begin(10) + "ERROR: tty_test_loopback: write(/dev/ttyS3) != write_len, "
                                "error=Input/output error\n" + FAILED)
    assert lines.run(10, 2, speed=1200) == (
        begin(10, 1200) + "tty_open_raw: speed: Invalid argument\n"
        "ERROR: tty_test_loopback: tty_open_raw(/dev/ttyS2) error(Invalid argument)\n" + FAILED)

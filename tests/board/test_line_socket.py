"""The lines of a board as sockets for other programs. The board is a stand-in here: a line, and what its shell does with it."""

import socket
import threading
import time

import pytest

import serial_port
from command_agent import Result
from errors import Timeout
from flow_control import WINDOW
from line_socket import LineSocket
from serial_port import Port

PATIENCE = 120
BEGIN = b"Begin serial download...\n"
BUSY, ASKS = b"4 0x5 0x1000 0x1000\n", b"335 0x1 0xbeffe000 0x0 0x0 0x0 0x0\n"


def wait_until(condition, what):
    end = time.monotonic() + PATIENCE
    while not condition():
        assert time.monotonic() < end, what
        time.sleep(0.005)


class StandIn:
    """A board whose driver takes all that comes: `taken`. Whether its shell has opened the line and waits for more is said by
    `is_open` and `shell`."""

    def __init__(self):
        self.console, self.serial2 = Port("ttyS1"), Port("ttyS2")
        self.taken, self.stragglers = bytearray(), 0
        self.is_open, self.shell = True, ASKS
        self.looks = 0
        self._near, self._far = socket.socketpair()
        self._near.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, 4096)
        self.console.attach(self._near)
        self.runs = threading.Event()
        self.runs.set()
        self._thread = threading.Thread(target=self._take)
        self._thread.start()

    def close(self):
        self.runs.set()
        self._far.shutdown(socket.SHUT_RDWR)
        self._thread.join()
        self._near.close()
        self._far.close()

    def _take(self):
        while data := self._far.recv(4096):
            self.taken += data
            self.runs.wait(PATIENCE)

    def show(self, data):
        """The board writes to its console."""
        self.console.received(data)

    # What LineSocket asks a board for.

    def wait_receiving(self, port, timeout):
        assert port is self.console
        if not self.is_open:
            raise Timeout("nobody waits for a transfer")

    def sh(self, command, check=False):
        assert command == "pidof recovery-loader" and check
        return Result(0, "17\n")

    def get(self, path):
        if path == "/proc/17/syscall":
            self.looks += 1
            return self.shell
        assert path == "/proc/tty/driver/serial"
        return f"serinfo:1.0 driver revision:\n1: uart:16550A tx:5 rx:{len(self.taken) + self.stragglers} RTS\n".encode()


class Client:
    """A program at the socket; what comes is read only by expect()."""

    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(PATIENCE)
        self.socket.connect(str(path))
        self._thread = None

    def expect(self, data):
        got = b""
        while len(got) < len(data):
            piece = self.socket.recv(len(data) - len(got))
            assert piece, f"the line was hung up; {got=}"
            got += piece
        assert got == data

    def send(self, data):
        """From a thread of its own: a line that is not read makes a sender wait."""
        self._thread = threading.Thread(target=self._send, args=(data,))
        self._thread.start()

    def _send(self, data):
        try:
            self.socket.sendall(data)
        except OSError:  # the test is over
            pass

    def close(self):
        self.socket.close()
        if self._thread:
            self._thread.join()


@pytest.fixture
def board():
    made = StandIn()
    yield made
    made.close()


@pytest.fixture
def line(board, tmp_path):
    with LineSocket(board, 1, tmp_path / "ttyS1") as made:
        yield made


@pytest.fixture
def connect(board, line):
    made = []

    def new():
        before = len(board.taken)
        made.append(Client(line.path))
        made[-1].send(b"?")  # it is there when its first key has come
        wait_until(lambda: len(board.taken) > before, "a key is not passed on")
        return made[-1]

    yield new
    for client in made:
        client.close()


def expect_taken(board, data):
    wait_until(lambda: len(board.taken) >= len(data), "not all comes through the line")
    assert bytes(board.taken) == data


def test_a_client_types_and_reads(board, connect):
    client = connect()
    client.send(b"version\r")
    expect_taken(board, b"?version\r")
    board.show(b"version\r\nv3\r\nCLI> ")
    client.expect(b"version\r\nv3\r\nCLI> ")


def test_several_see_the_same(board, connect):
    clients = [connect(), connect()]
    board.show(b"CLI> ")
    for client in clients:
        client.expect(b"CLI> ")


def test_a_client_that_goes_away_in_the_middle(board, connect):
    """The next one goes on with the line as it is."""
    connect().close()
    gone = connect()
    gone.send(b"flash ki")
    expect_taken(board, b"??flash ki")
    gone.close()
    board.show(b"flash ki")
    client = connect()
    client.send(b"ll 2\r")
    expect_taken(board, b"??flash ki?ll 2\r")
    board.show(b"ll 2\r\n")
    client.expect(b"ll 2\r\n")


def test_a_client_that_reads_late_loses_nothing_of_a_screen(board, connect):
    """The emulator hands on byte by byte, and a socket holds few pieces: the prompt behind a long table came to nobody."""
    client = connect()
    screen = bytes(range(256)) * 100 + b"CLI> "
    for at in range(len(screen)):
        board.show(screen[at:at + 1])
    client.expect(screen)


def test_a_client_that_does_not_read_stops_nobody(board, connect):
    connect()
    client = connect()
    text = bytes(range(256)) * 16
    for _ in range(1000):
        board.show(text)
        client.expect(text)


def begin(board, client):
    del board.taken[:]
    board.show(BEGIN)
    client.expect(BEGIN)


@pytest.mark.parametrize("stragglers", [0, 700])
def test_a_file_goes_as_the_shell_takes_it(board, line, connect, stragglers):
    """Stragglers: sent before, and counted by the driver only after the counting had begun."""
    client, data = connect(), bytes(range(256)) * (3 * WINDOW // 256)
    board.is_open, board.shell = False, BUSY
    begin(board, client)
    client.send(data)
    wait_until(lambda: line.is_transferring, "no transfer is seen")
    assert not board.taken, "bytes come before the port is open, and would be dropped"
    board.is_open = True
    wait_until(lambda: board.looks > 2, "the shell is not looked at")
    assert len(board.taken) <= WINDOW, "more comes than the driver holds"
    board.stragglers = stragglers
    board.shell = ASKS
    expect_taken(board, data)
    board.show(b"Done: SUCCESS\r\n")
    client.send(b"x")
    expect_taken(board, data + b"x")
    assert not line.is_transferring


def test_a_line_that_stands_still_loses_nothing_of_a_file(board, connect, monkeypatch):
    """As on a machine with other work."""
    tried = []
    real = Port.send

    def send(port, data):
        tried.append(len(data))
        real(port, data)

    monkeypatch.setattr(Port, "send", send)
    monkeypatch.setattr(serial_port, "_SEND_STALLED", 0.01)
    client, data = connect(), bytes(range(256)) * (WINDOW // 256)
    begin(board, client)
    board.runs.clear()
    client.send(data)
    wait_until(lambda: len(tried) > 3 * WINDOW // 4096, "the line does not stand still")
    assert len(board.taken) < WINDOW
    board.runs.set()
    expect_taken(board, data)


def test_a_shell_that_gives_up_takes_the_rest_for_keys(board, connect):
    client = connect()
    board.shell = BUSY
    begin(board, client)
    client.send(bytes(3 * WINDOW))
    wait_until(lambda: board.looks > 2, "the shell is not looked at")
    board.show(b"Done: FAI")
    expect_taken(board, bytes(3 * WINDOW))


def test_each_file_is_counted_anew(board, connect):
    client = connect()
    for end in b"Done: FAILURE\r\nCLI> ", b"Done: SUCCESS\r\nCLI> ":
        begin(board, client)
        client.send(b"i" * (WINDOW + 1))
        expect_taken(board, b"i" * (WINDOW + 1))
        board.show(end)
        client.expect(end)


def test_a_client_that_goes_away_within_a_file(board, connect):
    gone = connect()
    begin(board, gone)
    gone.send(bytes(1000))
    expect_taken(board, bytes(1000))
    gone.close()
    client = connect()
    board.show(b"Done: FAILURE\r\nCLI> ")
    client.expect(b"Done: FAILURE\r\nCLI> ")


def test_a_board_that_is_gone_hangs_up(board, connect):
    client = connect()
    board.console.closed()
    client.send(b"x")
    assert client.socket.recv(1) == b""


@pytest.mark.parametrize("directory", ["short", "long" * 30])
def test_the_socket_is_gone_afterwards_and_nothing_hangs(board, tmp_path, monkeypatch, directory):
    """Neither does it where a transfer waits for the shell, or its path is longer than an address of a socket."""
    path = tmp_path / directory / "ttyS1"
    path.parent.mkdir()
    path.write_bytes(b"what another board has left")
    monkeypatch.chdir(path.parent)
    board.is_open = False
    with LineSocket(board, 1, path) as line, socket.socket(socket.AF_UNIX) as client:
        client.connect(path.name)
        board.show(BEGIN)
        client.sendall(b"i")
        wait_until(lambda: line.is_transferring, "no transfer is seen")
    assert not path.exists() and board.console.listeners == []

"""Fixtures that give a test a virtual board. Boards are booted once per worker and used again, their flash erased from
outside between tests; a board whose test failed is thrown away."""

import pytest

from board_session import BoardSession
from texts import SUCCESS
from tftp_server import TftpServer


class _Bench:
    """The board that this worker has at hand."""

    def __init__(self, make_directory):
        self._make_directory = make_directory
        self._session = None
        self.server = TftpServer()

    def take(self):
        """The board, at its prompt and as good as new; booted when there is none."""
        if self._session is None:
            directory = self._make_directory()
            (directory / "tftp").mkdir()
            self._session = BoardSession(directory, tftp=directory / "tftp", neighbour=self.server.cable)
            self._session.boot()
        else:
            self._session.renew()
        return self._session

    def throw_away(self):
        """The next test gets another board."""
        if self._session is not None:
            self._session.kill()
        self._session = None


@pytest.fixture(scope="session")
def bench(tmp_path_factory):
    made = _Bench(lambda: tmp_path_factory.mktemp("board"))
    yield made
    made.throw_away()
    made.server.shut_down()


@pytest.fixture
def board_device(bench, has_failed):
    """A board at its prompt: flash erased, boot environment and verbosity at their defaults, no faults planned. Files in
    the directory `dev.board.tftp` are served at 10.0.2.2."""
    try:
        session = bench.take()
        yield session
        if not has_failed():
            session.check()
    except BaseException:
        bench.throw_away()
        raise
    if has_failed():
        bench.throw_away()


@pytest.fixture
def own_board(tmp_path, has_failed):
    """A board of the test's own, not started yet: own_board(nand="16k") takes the options of Board."""
    made = []

    def make(**options):
        made.append(BoardSession(tmp_path / f"board {len(made)}", **options))
        return made[-1]

    try:
        yield make
        if not has_failed():
            for session in made:
                if session.board.running:
                    session.check()
    finally:
        for session in made:
            session.kill()


@pytest.fixture
def board_tk20(board_device, has_failed):
    """The same board, told to be a tk20: all outputs are driven to their defaults."""
    assert board_device.command("set opmode board tk20") == SUCCESS
    yield board_device
    if not has_failed():
        assert board_device.command("set opmode board default") == SUCCESS
        assert board_device.command("set opmode io default") == SUCCESS

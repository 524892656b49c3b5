"""Fixtures of the board tests. `dev` is the one that most tests take: a virtual board at its shell's prompt, with erased
flash. Boards are booted once per worker and used again, their flash erased from outside between tests; a board whose
test failed is thrown away. Files in the directory `dev.board.tftp` are served at 10.0.2.2; `server` is another server,
which misbehaves as told."""

import sys
from pathlib import Path

import pytest

TESTS = Path(__file__).resolve().parent.parent
sys.path[:0] = [str(TESTS.parent / "board"), str(TESTS / "support")]

from shell_session import SUCCESS, ShellSession  # noqa: E402  (the path had to be set first)
from tftp_server import TftpServer  # noqa: E402

_failed = pytest.StashKey[bool]()


@pytest.hookimpl(hookwrapper=True, tryfirst=True)
def pytest_runtest_makereport(item):
    outcome = yield
    report = outcome.get_result()
    item.stash[_failed] = item.stash.get(_failed, False) or report.failed
    session = getattr(item, "funcargs", {}).get("dev")
    if report.failed and session is not None:
        console, kernel = session.board.console.output, session.board.kernel_log.output
        report.sections.append(("console", console[-4000:].decode(errors="backslashreplace")))
        report.sections.append(("kernel's console", kernel[-2000:].decode(errors="backslashreplace")))


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
            self._session = ShellSession(directory, tftp=directory / "tftp", neighbour=self.server.cable)
            self._session.start()
        else:
            self._session.renew()
        return self._session

    def throw_away(self):
        """The next test gets another board."""
        if self._session is not None:
            self._session.board.kill()
        self._session = None


@pytest.fixture(scope="session")
def bench(tmp_path_factory):
    made = _Bench(lambda: tmp_path_factory.mktemp("board"))
    yield made
    made.throw_away()
    made.server.shut_down()


@pytest.fixture
def dev(request, bench):
    """A board at its prompt: flash erased, boot environment and verbosity at their defaults, no faults planned."""
    try:
        session = bench.take()
        yield session
        if not request.node.stash.get(_failed, False):
            session.check()
    except BaseException:
        bench.throw_away()
        raise
    if request.node.stash.get(_failed, False):
        bench.throw_away()


@pytest.fixture
def tk20(request, dev):
    """The same board, told to be a tk20: all outputs are driven to their defaults."""
    assert dev.command("set opmode board tk20") == SUCCESS
    yield dev
    if not request.node.stash.get(_failed, False):
        assert dev.command("set opmode board default") == dev.command("set opmode io default") == SUCCESS


@pytest.fixture
def server(dev, bench):
    """The TFTP server of our own, within reach and without files; the board's interface is up, too."""
    bench.server.renew()
    bench.server.connect(dev.board)
    assert dev.command("network ethernet start").endswith(SUCCESS)
    return bench.server

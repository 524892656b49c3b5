"""Board tests run the program on the virtual board (tests/README.md shows how)."""

import pytest

from texts import SUCCESS


@pytest.fixture
def dev(board_device):
    """A board at its prompt."""
    return board_device


@pytest.fixture
def tk20(board_tk20):
    """The same board as a tk20."""
    return board_tk20


@pytest.fixture
def server(dev, bench):
    """A TFTP server of our own, which misbehaves as told: within reach and without files; the board's interface is up,
    too."""
    bench.server.renew()
    bench.server.connect(dev.board)
    assert dev.command("network ethernet start").endswith(SUCCESS)
    return bench.server

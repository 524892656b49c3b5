"""Tests of documents: what they show happens."""

import pytest

import samples
from terminals import BoardTerminal, empty


def pytest_addoption(parser):
    parser.addoption("--renew", action="store_true", help="write what was shown into the documents")
    parser.addoption("--pictures", action="store_true", help="write the pictures in docs/")


@pytest.fixture(scope="session")
def workplace(tmp_path_factory):
    """The directory in which commands of documents are run, but for the tutorial's; the board's TFTP server has its files."""
    return tmp_path_factory.mktemp("work")


@pytest.fixture(scope="session")
def one_board(tmp_path_factory, workplace):
    """One board for all documents."""
    terminal = BoardTerminal(tmp_path_factory.mktemp("board"), workplace)
    yield terminal
    terminal.close()


@pytest.fixture
def device(one_board, workplace):
    """The board, as good as new, and in the workplace the sample files and nothing else."""
    empty(workplace)
    samples.write(workplace)
    one_board.renew()
    return one_board

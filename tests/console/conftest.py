"""Console tests run the program in a device root (tests/README.md shows how)."""

import pytest

from kesto_tool import Kesto


@pytest.fixture
def dev(root_device):
    """A device of its own for every test, not started yet."""
    return root_device


@pytest.fixture
def tk20(root_tk20):
    """A tk20 at its prompt."""
    return root_tk20


@pytest.fixture
def kesto(build, tmp_path):
    """The technician's tool in a directory of its own, with two files to make parts of."""
    tool = Kesto(build / "kesto", tmp_path)
    tool.file("a", b"first part")
    tool.file("b", b"the second")
    return tool

"""Console tests run the program in a device root (tests/README.md shows how)."""

import pytest


@pytest.fixture
def dev(root_device):
    """A device of its own for every test, not started yet."""
    return root_device


@pytest.fixture
def tk20(root_tk20):
    """A tk20 at its prompt."""
    return root_tk20

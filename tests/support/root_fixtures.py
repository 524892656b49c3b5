"""The fixture that gives a test a device root of its own."""

from pathlib import Path

import pytest

from root_session import RootSession


@pytest.fixture
def root_device(request, tmp_path, build, has_failed):
    """A device root with the program in it, not started yet."""
    program = Path(request.config.getoption("program") or build / "recovery-loader").resolve()
    session = RootSession(tmp_path / "root", build, program)
    try:
        yield session
        if not has_failed():
            session.check()
    finally:
        session.close()


@pytest.fixture
def root_tk20(root_device):
    """A tk20 at its prompt."""
    root_device.give_model("P2")
    root_device.boot()
    return root_device

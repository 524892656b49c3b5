"""Tests that run on both kinds of device: what they type and read is the same, so what they judge holds in the device root,
where thousands of tests are cheap, and with a real kernel and a real terminal line alike."""

import pytest


@pytest.fixture(params=[pytest.param("root", marks=pytest.mark.root), pytest.param("board", marks=pytest.mark.board)])
def dev(request):
    """A device at its prompt, of each kind."""
    session = request.getfixturevalue(f"{request.param}_device")
    if request.param == "root":
        session.make_gpio_lines()
        session.boot()
    return session


@pytest.fixture(params=[pytest.param("root", marks=pytest.mark.root), pytest.param("board", marks=pytest.mark.board)])
def tk20(request):
    """A tk20 at its prompt, of each kind."""
    return request.getfixturevalue(f"{request.param}_tk20")

"""Every session that a document shows is run, and no document shows one that is not."""

import dataclasses
from pathlib import Path

import pytest

import picture
from documents import ROOT, TYPED, blocks, documents, sessions, unmarked
from player import Player, Stale, renewed
from terminals import Computer, clone

TUTORIAL = ROOT / "docs" / "tutorial.md"
# Written by a program of other files, whose sessions are run.
WRITTEN = ROOT / "docs" / "commands.md"
# What stands in documents for the device's line, for a line that is not there, and for the computer as the device sees it.
SERIAL_PORT, MISSING_PORT, OWN_ADDRESS = "/dev/ttyUSB0", "/dev/ttyUSB1", "192.168.1.10"


def name_of(path):
    return str(path.relative_to(ROOT))


def text_of(path):
    return path.read_text(encoding="utf-8")


RUN = [path for path in documents() if path not in (TUTORIAL, WRITTEN) and sessions(text_of(path))]


def play(request, player, path):
    text = text_of(path)
    try:
        player.play(name_of(path), text)
    except Stale:
        if not request.config.getoption("renew"):
            raise
    finally:
        if request.config.getoption("renew"):
            path.write_text(renewed(text, player.found), encoding="utf-8")


@pytest.mark.parametrize("path", documents(), ids=name_of)
def test_nothing_looks_typed_that_is_not_run(path):
    assert unmarked(text_of(path)) == []


def test_there_are_sessions_of_both_kinds():
    """Nothing is run where nothing is found."""
    kinds = [block.kind for path in RUN for block in blocks(text_of(path))]
    assert kinds.count("cli") > 20 and kinds.count("console") > 5


def test_the_written_document_has_the_sessions_of_its_sources():
    shown = {tuple(block.lines) for block in sessions(text_of(WRITTEN))}
    run = {tuple(block.lines) for path in RUN for block in sessions(text_of(path))}
    assert shown and shown <= run


@pytest.mark.xdist_group("one board")
@pytest.mark.parametrize("path", RUN, ids=name_of)
def test_sessions(request, device, workplace, path):
    here = {SERIAL_PORT: device.port, MISSING_PORT: str(workplace / "ttyUSB1"), OWN_ADDRESS: "10.0.2.2"}
    play(request, Player(Computer(workplace, here), device), path)


@pytest.fixture(scope="module")
def tutorial(request, tmp_path_factory):
    """What came of playing the tutorial: from a clone whose programs are built, on the device that its `./run` starts."""
    directory = tmp_path_factory.mktemp("tutorial") / "clone"
    clone(directory)
    player = Player(Computer(directory), state=directory / "build" / "board" / "state")
    played = Played(directory, player)
    try:
        play(request, player, TUTORIAL)
        player.terminal.leave()
    except Stale as stale:
        played.stale = stale
    finally:
        player.close()
    return played


@dataclasses.dataclass
class Played:
    """A document that was played; `stale` is what was wrong with it."""

    directory: Path
    player: Player
    stale: Stale | None = None


@pytest.mark.xdist_group("tutorial")
def test_the_tutorial(tutorial):
    if tutorial.stale:
        raise tutorial.stale


# What the picture of a session shows of the tutorial.
SESSION = [
    ("version", [r"Loader"]),
    ("kesto image verify", [r"OK"]),
    ("flash download network 2", [r"Retrieving", r"^Preparing", r"^Installing", r"Done:"]),
    ("show bootenv", [r"^boot(bank|cmd)="]),
    ("flash download network 1", [r"Retrieving", r"^Preparing", r"^Installing", r"^\^\]"]),
    ("./run", [r"^Firmware .* all whole"]),
    ("shell", [r"^Firmware"]),
    ("show bootenv", [r"^bootbank="]),
]


def expect_current(request, name, new):
    """The picture docs/NAME.svg says what this new one says; docs/pictures writes it instead."""
    path = ROOT / "docs" / f"{name}.svg"
    if request.config.getoption("pictures"):
        path.write_text(new, encoding="utf-8")
    assert len(picture.text_of(new)) > 10
    assert picture.text_of(text_of(path)) == picture.text_of(new), "stale: docs/pictures draws it anew"


@pytest.mark.xdist_group("tutorial")
@pytest.mark.parametrize("name", ["flash-before", "flash-after"])
def test_picture_of_the_flash(request, tutorial, name):
    """What `kesto show` of the tutorial has drawn is what the document's picture says."""
    expect_current(request, name, text_of(tutorial.directory / f"{name}.svg"))


def test_picture_of_the_session(request):
    """It is drawn of the tutorial, which has been held against the board."""
    steps = [(step.prompt, step.typed, step.shown)
             for block in sessions(text_of(TUTORIAL)) if block.kind in TYPED for step in block.steps()]
    expect_current(request, "session", picture.session(picture.excerpt(steps, SESSION), "A session at the recovery shell"))

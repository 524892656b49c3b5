"""Fetching files over the network: from nothing to five megabytes, with any name, and from servers that have or say
nothing. The files are compared on the board."""

import hashlib

import pytest

import images
from board_session import PATIENCE
from texts import DHCP, FAILURE, SUCCESS, USING_ETH0
from tftp_server import Stops
from wired_network import HOST, LEASE, NO_PRODUCT, NOBODY, info

MEBIBYTE = 1 << 20
CLEAR = "find /tmp /root -type f -exec rm {} +"
# What the client says when it fails, and what comes of it.
FAILED = "NOTE: tftp: {}\nERROR: Child exit status=1\nERROR: Exit status=255\nERROR: TFTP get failed\n" + FAILURE


@pytest.fixture
def served(dev):
    """The directory of the emulator's TFTP server; what is in it, and what the board has fetched, is gone afterwards."""
    dev.board.sh(CLEAR, check=True)
    yield dev.board.tftp
    for file in dev.board.tftp.iterdir():
        file.unlink()
    dev.board.sh(CLEAR, check=True)


def fetch(dev, words, host=HOST):
    """Fetches a file; returns what was shown, without its first lines."""
    shown = dev.command(f"file download network {host} {words}")
    begin = USING_ETH0 + f"Retrieving file '{words.split()[0]}' via tftp...\n"
    assert shown.startswith(begin), shown
    return shown.removeprefix(begin)


def start(dev):
    assert dev.command("network ethernet start") == DHCP + NO_PRODUCT + SUCCESS


def fetched(dev):
    """The files in the directory where files go: {name: content}."""
    paths = dev.board.sh("find /tmp -type f", check=True).output.splitlines()
    return {path.removeprefix("/tmp/"): dev.board.get(path) for path in paths}


def test_the_interface_is_started_by_dhcp_and_stays_so(dev, served):
    (served / "one").write_bytes(b"\xa5")
    assert dev.command(f"file download network {HOST} one") == (
        USING_ETH0 + DHCP + NO_PRODUCT + "Retrieving file 'one' via tftp...\n" + SUCCESS)
    assert fetched(dev) == {"one": b"\xa5"}
    assert dev.command("network info") == info("up", **LEASE, link="100 full")


def test_files_of_all_sizes(dev, served):
    """A block of the protocol is 512 bytes; one that is not full is the last. Each file replaces a longer one."""
    start(dev)
    for words, path in ("file", "/tmp/file"), ("file other", "/tmp/other"), ("file /root/other", "/root/other"):
        for size in 5 * MEBIBYTE, 513, 512, 511, 1, 0:
            data = images.pattern(size)
            (served / "file").write_bytes(data)
            assert fetch(dev, words) == SUCCESS
            shown = dev.board.sh(f"sha256sum {path}; find /tmp /root -type f", check=True).output
            assert shown == f"{hashlib.sha256(data).hexdigest()}  {path}\n{path}\n", f"{size} bytes"
        dev.board.sh(f"rm {path}", check=True)


def test_what_cannot_be_fetched(dev, served):
    start(dev)
    (served / "file").write_bytes(b"file")
    for words in "missing", "missing other":
        assert fetch(dev, words) == FAILED.format("server error: (1) File not found")
    assert fetch(dev, "file /nowhere/file") == FAILED.format("can't open '/nowhere/file': No such file or directory")
    assert fetch(dev, "file /root/") == FAILED.format("can't open '/root/': Is a directory")
    assert fetched(dev) == {}


def test_a_server_that_does_not_answer(dev, server, served):
    server.files["file"] = [Stops(b""), Stops(images.pattern(MEBIBYTE), "worn out"), images.pattern(MEBIBYTE)]
    assert fetch(dev, "file", server.address) == FAILED.format("timeout")
    assert fetched(dev) == {}
    assert server.requests == ["file"]
    assert fetch(dev, "file", server.address) == FAILED.format("server error: (0) worn out")
    assert fetched(dev) == {}
    assert fetch(dev, "file", server.address) == SUCCESS
    assert fetched(dev) == {"file": images.pattern(MEBIBYTE)}
    assert server.requests == ["file"] * 3


def test_ctrl_c_while_a_server_does_not_answer(dev, served):
    start(dev)
    (served / "file").write_bytes(b"file")
    dev.type(f"file download network {NOBODY} file")
    dev.board.sh("until pidof tftp; do usleep 20000; done", PATIENCE, check=True)
    dev.interrupt()
    assert dev.text_until_prompt().endswith("\nERROR: Terminated by signal\nERROR: TFTP get failed\n" + FAILURE)
    assert dev.board.sh("pidof tftp").status != 0
    assert fetched(dev) == {}

    assert fetch(dev, "file") == SUCCESS
    assert fetched(dev) == {"file": b"file"}


# Were a piece of one of them run as a command, it would leave a file called "shot".
STRANGE_NAMES = ['a"b', "it's", '"$(id>shot)"', "$(id>shot)", "`id>shot`", "a;id>shot", "a&id>shot&", "a||id>shot", "a>shot",
                 "$HOME", "${PATH}", "a\\", "\\$(id>shot)", '\\"', "*", "?[a]{b,c}", "~", "!!", "%s%n", "-l", "(a)", "100%"]


def test_names_reach_the_server_and_the_disk_as_typed(dev, served):
    start(dev)
    for name in STRANGE_NAMES:
        (served / name).write_text(f"this is {name}")
        assert fetch(dev, name) == SUCCESS
    assert fetched(dev) == {name: f"this is {name}".encode() for name in STRANGE_NAMES}

    dev.board.sh(CLEAR, check=True)
    for name in STRANGE_NAMES:
        assert fetch(dev, f"$(id>shot) {name}") == SUCCESS
    assert fetched(dev) == dict.fromkeys(STRANGE_NAMES, b"this is $(id>shot)")
    assert dev.board.sh("find / -xdev -name shot; find /tmp -name shot", check=True).output == ""

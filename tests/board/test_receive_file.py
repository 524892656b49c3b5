"""Receiving a file over a serial line: one byte, a megabyte, and nothing. The file is compared on the board."""

import hashlib

import pytest

import artefacts
from texts import BEGIN, FAILURE, SUCCESS

MEBIBYTE = 1 << 20


def checksum_on_board(dev, path):
    return dev.board.sh(f"sha256sum {path}", check=True).output.split()[0]


@pytest.mark.parametrize("name, path, port", [("one", "/tmp/one", 1), ("/root/one", "/root/one", 2)],
                         ids=["default path, console", "absolute path, ttyS2"])
def test_one_byte(dev, name, path, port):
    assert dev.install(b"\xa5", f"file download serial {name} {port}", port) == SUCCESS
    assert dev.board.get(path) == b"\xa5"
    dev.board.sh(f"rm {path}", check=True)


def test_a_megabyte(dev):
    data = artefacts.ensure().kernel.read_bytes()[:MEBIBYTE]
    assert dev.install(data, "file download serial kernel") == SUCCESS
    assert checksum_on_board(dev, "/tmp/kernel") == hashlib.sha256(data).hexdigest()
    assert dev.board.sh("stat -c %s /tmp/kernel; rm /tmp/kernel").output == f"{len(data)}\n"


def test_every_byte_value_arrives_as_it_is(dev):
    """Nothing is taken for an interrupt, flow control or a line end on the way."""
    data = bytes(range(256)) * 64 + bytes(reversed(range(256))) * 64
    dev.command("verbose 4")
    dev.begin("file download serial /root/bytes")
    assert dev.transfer(data) == f"INFO: Downloaded {len(data)} bytes\n" + SUCCESS
    assert dev.board.get("/root/bytes") == data
    dev.board.sh("rm /root/bytes", check=True)


@pytest.mark.parametrize("name, path", [("none", "/tmp/none"), ("/root/none", "/root/none")])
def test_nothing(dev, name, path):
    dev.begin(f"file download serial {name}")
    assert dev.text_until_prompt() == "ERROR: serial download failed\n" + FAILURE
    assert dev.board.sh(f"ls {path}").status != 0, "an empty file is left"


def test_directory_that_is_not_there(dev):
    assert dev.command("file download serial /nowhere/file") == (
        BEGIN + "ERROR: fopen(/nowhere/file) error(No such file or directory)\n"
        "ERROR: serial download failed\n" + FAILURE)

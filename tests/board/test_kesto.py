"""kesto at the line of a virtual board: real flash is read, and images go into it over the console, a second port, and
the network, from kesto's own TFTP service."""

import contextlib
import json
import subprocess
from pathlib import Path

import pytest

import real_images
from board_session import PATIENCE, ROOT
from line_socket import LineSocket
from port_bridge import PortBridge
from real_images import KESTO, contents, split
from udp_relay import UdpRelay

PACE = ("--pace", "80000")  # the emulated port has no flow control
ROOTLESS = ("--force", "no-rootfs")
LIMITS = ("--limit", str(int(PATIENCE)))


class BoardKesto:
    def __init__(self, directory: Path):
        self._directory = directory
        self._bridges, self._ports = [], []

    def bridge(self, port) -> str:
        self._ports.append(port)
        self._bridges.append(PortBridge(port, self._directory))
        return self._bridges[-1].unix

    def run(self, *words) -> dict:
        """The record that the command prints, and its exit status as "exit"."""
        result = subprocess.run([KESTO, *map(str, words), *LIMITS, "--json"], cwd=self._directory,
                                capture_output=True, text=True, timeout=3 * PATIENCE, stdin=subprocess.DEVNULL)
        for port in self._ports:
            port.skip()  # what kesto has read is not the session's
        assert result.stdout, result.stderr
        return json.loads(result.stdout) | {"exit": result.returncode, "errors": result.stderr}

    def file(self, name: str, data: bytes) -> str:
        (self._directory / name).write_bytes(data)
        return name

    def close(self) -> None:
        for bridge in self._bridges:
            bridge.close()


@pytest.fixture
def kesto(tmp_path):
    tool = BoardKesto(tmp_path)
    yield tool
    tool.close()


def expect_installed(dev, image, record):
    assert record["exit"] == 0, record
    loader, kernel = split(image)
    dev.expect_flash(bootloader=loader, kernel_2=kernel)
    dev.expect_locked()
    assert dev.environment()["bootbank"] == "2"
    assert dev.environment()["kernel_size_2"] == f"{len(contents(kernel)):X}"


@pytest.mark.parametrize("way", [pytest.param("console", marks=pytest.mark.long), "another port"])
def test_over_a_serial_line(dev, kesto, way):
    image = real_images.small()
    line = kesto.bridge(dev.board.console)
    words = ["--port", line, kesto.file("image.rom", image), "--bank", "2", "--check", *ROOTLESS, *PACE]
    if way != "console":
        words += ["--data-port", kesto.bridge(dev.board.serial2)]
    record = kesto.run("install", *words)
    expect_installed(dev, image, record)
    assert [line.split(":")[0] for line in record["devices"][0]["checked"]] == ["bootloader", "kernel_2"]


def test_an_old_kernel_is_erased_before(dev, kesto):
    """Bytes that are written over others in such flash are mixed with them."""
    _, old = split(real_images.small())
    dev.board.flash_write("kernel_2", b"\0" * 70000)
    image = real_images.build(("kernel", real_images.SMALL_KERNEL))
    line = kesto.bridge(dev.board.console)
    name = kesto.file("image.rom", image)
    assert kesto.run("install", "--port", line, name, "--bank", "2", *ROOTLESS, *PACE)["exit"] == 8
    record = kesto.run("install", "--port", line, name, "--bank", "2", "--erase", "--yes", "--check", *ROOTLESS, *PACE)
    assert record["exit"] == 0, record
    dev.expect_flash(kernel_2=image)


def test_show_finds_the_places_in_flash(dev, kesto):
    dev.board.flash_write("kernel_1", split(real_images.small())[1])
    record = kesto.run("show", "--port", kesto.bridge(dev.board.console))
    rows = {row["name"]: row for row in record["flash"]}
    assert (record["exit"], rows["kernel_1"]["status"], rows["kernel_2"]["status"]) == (0, "active", "clean")
    assert rows["ubi0"]["used"] == 128 << 20
    assert rows["kernel_1"]["size"] == 12 << 20


@pytest.fixture
def relay():
    made = UdpRelay()
    yield made
    made.shut_down()


def test_from_its_own_tftp_service(own_board, kesto, relay):
    dev = own_board(neighbour=relay.cable)
    dev.boot()
    relay.connect(dev.board)
    image = real_images.small()
    record = kesto.run("install", "--port", kesto.bridge(dev.board.console), kesto.file("image.rom", image), "--bank", "2",
                       "--tftp", relay.address, "--listen", "127.0.0.1", "--check", *ROOTLESS)
    expect_installed(dev, image, record)


def test_four_boards_at_once(own_board, kesto, tmp_path):
    """One process, four consoles; no pace, for the lines know flow control. The bank of one is in use: only that one fails."""
    devices = [own_board(memory=128) for _ in range(4)]
    for dev in devices:
        dev.boot()
    devices[2].board.flash_write("kernel_2", b"\0" * 70000)
    image = real_images.build(("kernel", real_images.SMALL_KERNEL))
    name = kesto.file("image.rom", image)
    with contextlib.ExitStack() as stack:
        lines = [stack.enter_context(LineSocket(dev.board, 1, tmp_path / f"line{number}")) for number, dev in enumerate(devices)]
        ports = [word for line in lines for word in ("--port", f"unix:{line.path}")]
        record = kesto.run("install", *ports, name, "--bank", "2", "--check", *ROOTLESS)
    assert [device["status"] for device in record["devices"]] == [0, 0, 8, 0] and record["exit"] == 8, record
    for number, (dev, device) in enumerate(zip(devices, record["devices"])):
        assert device["port"] == f"unix:{tmp_path}/line{number}"
        dev.expect_flash(kernel_2=b"\0" * 70000 if number == 2 else image)
        assert dev.environment()["bootbank"] == ("1" if number == 2 else "2")
        dev.board.console.skip()

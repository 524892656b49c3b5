#!/usr/bin/env python3
"""
Installs into one bank and the other of one device, again and again, without a restart: 200 times. Every image is another
one. After each, the flash is read from outside: what was sent is in its bank, the other bank is as it was.

    tests/campaign/installations.py                              # 200 installations
    tests/campaign/installations.py --count 20 --seconds 600     # twenty, and none begins after ten minutes
    tests/campaign/installations.py --report docs/reliability.md

Every ninth comes over the serial line, the others over the network; root file systems are UBIFS and archives by turns. The
shell's memory, descriptors and processes, and what is attached and mounted on the board, have to be at the end what they
were after the first ones. Needs build/arm and build/release. Ends with 0 when all of this held.
"""

import argparse
import collections
import hashlib
import os
import random
import signal
import sys
import tempfile
import time
from pathlib import Path
from typing import NamedTuple

_ROOT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(_ROOT / "tests" / "support"), str(_ROOT / "tests" / "board"), str(_ROOT / "board")]

# A campaign runs beside other work for as long as it takes: nothing is wrong because it is slow.
if __name__ == "__main__":
    os.environ.setdefault("BOARD_PATIENCE", "3600")

# pylint: disable=wrong-import-position
import board_state  # noqa: E402
import ubi_device  # noqa: E402
from board_session import BoardSession  # noqa: E402
from board_state import State  # noqa: E402
from document import commit_of, write_between  # noqa: E402
from real_images import VERSION, build, contents, split  # noqa: E402
from texts import SUCCESS  # noqa: E402
from virtual_board import BoardError  # noqa: E402

# An odd number: the banks take turns.
SERIAL_EVERY = 9
# What is taken once, by the first of each kind, is taken before the state is looked at that must not change.
WARM_UP = 2


class Image(NamedTuple):
    """An image, the kernel's part of it, and {path: (bytes, mode)} of its root file system once installed."""

    data: bytes
    kernel: bytes
    files: dict


def make_image(number: int, archive: bool) -> Image:
    """The image of one installation; no two are alike."""
    rng = random.Random(number)
    files = ubi_device.root_files(VERSION, **{"lib/data": rng.randbytes(20_000)})
    with tempfile.TemporaryDirectory() as name:
        parts = ubi_device.PartFiles(Path(name))
        root = ("rootfs-tar", ubi_device.tar_xz(files)) if archive else ("rootfs-ubifs-128k", ubi_device.ubifs(files, lebs=200))
        # build() keeps what it has made, under the names of the files: these are gone before the next.
        data = build.__wrapped__(("kernel", parts(rng.randbytes(30_000 + number))), (root[0], parts(root[1])))
    return Image(data, split(data)[0], ubi_device.with_set_user_id(files) if archive else files)


class Installed(NamedTuple):
    """One installation."""

    number: int
    bank: str
    way: str
    image: Image
    seconds: float
    state: State
    wrong: list


def install(dev: BoardSession, number: int, banks: dict) -> Installed:
    """The installation with this number, from 0, judged; `banks` {bank: Image} is what is in them, and is changed."""
    bank, serial = "21"[number % 2], number % SERIAL_EVERY == SERIAL_EVERY - 1
    # A UBIFS image is large for a serial line.
    archive = serial or number // 2 % 2 == 0
    image = make_image(number, archive)
    began = time.monotonic()
    if serial:
        # What comes over a line goes into erased flash.
        dev.command(f"flash kill {bank} kernel")
        told = ubi_device.install(dev, image.data, f"flash download serial {bank}")
    else:
        told = ubi_device.install_from_server(dev, image.data, bank)
    seconds = time.monotonic() - began
    if told.endswith(SUCCESS) and "ERROR" not in told:
        banks[bank] = image
        wrong = differences(dev, bank, banks)
    else:
        # The next into this bank has to succeed.
        banks.pop(bank, None)
        wrong = [f"shows {told!r}"]
    way = ("serial" if serial else "network") + (", archive" if archive else ", UBIFS")
    return Installed(number, bank, way, image, seconds, State.of(dev), wrong)


def differences(dev: BoardSession, booted: str, banks: dict) -> list[str]:
    """What the flash holds otherwise than these images in these banks, of which one is booted."""
    wrong, environment = [], dev.environment()
    wanted = {"bootbank": booted, **{f"kernel_size_{bank}": f"{len(contents(image.kernel)):X}" for bank, image in banks.items()}}
    wrong += [f"{name} is {environment.get(name)}" for name, value in wanted.items() if environment.get(name) != value]
    wrong += [f"kernel_{bank} is another" for bank, image in banks.items()
              if dev.flash(f"kernel_{bank}") != image.kernel.rstrip(b"\xff")]
    with ubi_device.attached(dev) as ubi:
        for bank, image in banks.items():
            try:
                wrong += [] if ubi.files(f"rootfs_{bank}") == image.files else [f"rootfs_{bank} holds other files"]
            except BoardError as error:
                wrong.append(f"rootfs_{bank}: {error}")
    return wrong


def endure(dev: BoardSession, count: int, seconds: float = 1e9, told=lambda done: None) -> tuple[State, State, list[Installed]]:
    """
    So many installations, or until the time is up, into a device at its prompt, whose network is up and whose directory of
    files to be fetched is dev.board.tftp. The state of the board after the first ones and at the end, and each installation.
    """
    end, banks, done = time.monotonic() + seconds, {}, []
    while len(done) < count and (time.monotonic() < end or len(done) < WARM_UP):
        done.append(install(dev, len(done), banks))
        told(done[-1])
    return done[min(WARM_UP, len(done)) - 1].state, done[-1].state, done


def problems(before: State, after: State, done: list[Installed]) -> list[str]:
    """What is wrong, in words."""
    return [f"installation {one.number + 1}: {text}" for one in done for text in one.wrong] + board_state.grown(
        "at the end", before, after)


def table(before: State, after: State, done: list[Installed]) -> str:
    """The table of the document."""
    lines = [f"| installations | seconds each, median and longest | {board_state.HEAD} |", "|---|---|" + "---|" * 6]
    times = sorted(one.seconds for one in done)
    lines.append(f"| {len(done)} | {times[len(times) // 2]:.0f}, {times[-1]:.0f} | {board_state.shown(before, after)} |")
    ways = collections.Counter(f"{one.way}, bank {one.bank}" for one in done)
    lines += ["", "Of these " + "; ".join(f"{number} {way}" for way, number in sorted(ways.items())) + ". "
              f"Bytes sent: {sum(len(one.image.data) for one in done):,}. Different images: {len({one.image.data for one in done})}. "
              f"Wrong in flash afterwards: {sum(bool(one.wrong) for one in done)}. "
              f"Starts of the shell: {len({one.state.process for one in done})}."]
    return "\n".join(lines) + "\n"


def main() -> int:
    parser = argparse.ArgumentParser(prog="installations", description=__doc__.splitlines()[1])
    parser.add_argument("--count", type=int, default=200, help="installations")
    parser.add_argument("--seconds", type=float, default=1e9, help="begin no other after this time")
    parser.add_argument("--report", type=Path, help="the document whose table of installations is written anew")
    given = parser.parse_args()
    # Told to end, it takes its board with it.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    commit = commit_of()

    def told(one: Installed) -> None:
        print(f"{one.number + 1}\tbank {one.bank}\t{one.way}\t{one.seconds:.1f} s\tsha256 of the image "
              f"{hashlib.sha256(one.image.data).hexdigest()[:16]}\t{one.state}\t{'; '.join(one.wrong) or 'as sent'}", flush=True)

    with tempfile.TemporaryDirectory() as name:
        (Path(name) / "tftp").mkdir()
        with BoardSession(Path(name) / "board", tftp=Path(name) / "tftp") as dev:
            dev.boot()
            assert dev.command("network ethernet start").endswith(SUCCESS)
            before, after, done = endure(dev, given.count, given.seconds, told)
            dev.check()
    text, wrong = table(before, after, done), problems(before, after, done)
    print(text, *wrong, sep="\n")
    if given.report:
        write_between(given.report, "installations", f"At commit {commit}:\n\n{text}")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())

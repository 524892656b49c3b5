#!/usr/bin/env python3
"""
A night on a technician's bench: four boards, and one kesto install after another that serves all four at once. Every round has
another image, for the bank that is not booted; it goes over the consoles, over the second ports, and over the network by turns.

    tests/campaign/kesto_night.py                               # eight hours
    tests/campaign/kesto_night.py --seconds 600 --boards 2
    tests/campaign/kesto_night.py --seconds 600 --way console --report docs/reliability.md

After each round kesto has said of each board that it was done, and the flash of each is read from outside: what was sent is in its
bank, the other bank is as it was. Memory, descriptors and processes of the boards' shells, and what is attached and mounted, have
to be at the end what they were after the first round of each way. Needs build/arm and build/release; the way over the network needs
root, for kesto serves at a port below 1024, in a network of its own. Ends with 0 when all of this held.
"""

import argparse
import collections
import contextlib
import json
import os
import signal
import subprocess
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
from board_session import PATIENCE, BoardSession  # noqa: E402
from board_state import State  # noqa: E402
from document import commit_of, write_between  # noqa: E402
from installations import Image, differences, make_image  # noqa: E402
from line_socket import LineSocket  # noqa: E402
from udp_relay import UdpRelay  # noqa: E402

WAYS = ("console", "second port", "network")
_KESTO = _ROOT / "build" / "release" / "kesto"
# Said to be inside of the network of its own.
_INSIDE = "KESTO_NIGHT_INSIDE"


class Place:
    """A board on the bench, its lines for kesto, and {bank: Image} of what is in it."""

    def __init__(self, directory: Path):
        self.relay = UdpRelay()
        # The address of a socket is short.
        self.lines = [directory / f"line{number}" for number in (1, 2)]
        self.dev = BoardSession(directory / "board", memory=128, neighbour=self.relay.cable)
        self.banks: dict[str, Image] = {}
        self.before: State | None = None

    def boot(self) -> None:
        self.dev.boot()
        self.relay.connect(self.dev.board)

    def close(self) -> None:
        self.dev.kill()
        self.relay.shut_down()


class Round(NamedTuple):
    """One call of kesto. `wrong`: what is wrong with each board, in words."""

    number: int
    way: str
    bank: str
    image: Image
    seconds: float
    wrong: list


def play_round(places: list[Place], number: int, way: str, directory: Path) -> Round:
    """The round with this number, from 0."""
    bank, image = "21"[number % 2], make_image(number, archive=way != "network" or number % 4 < 2)
    (directory / "image.rom").write_bytes(image.data)
    words = [_KESTO, "install", directory / "image.rom", "--bank", bank, "--erase", "--yes", "--check", "--json", "--limit",
             str(int(PATIENCE))]
    with contextlib.ExitStack() as stack:
        for place in places:
            line = stack.enter_context(LineSocket(place.dev.board, 1, place.lines[0]))
            words += ["--port", f"unix:{line.path}"]
            if way == "second port":
                line = stack.enter_context(LineSocket(place.dev.board, 2, place.lines[1]))
                words += ["--data-port", f"unix:{line.path}"]
        if way == "network":
            words += ["--tftp", places[0].relay.address, "--listen", "127.0.0.1"]
        began = time.monotonic()
        done = subprocess.run([str(word) for word in words], stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
        seconds = time.monotonic() - began
    record = json.loads(done.stdout) if done.stdout else {"devices": [{"status": done.returncode, "error": done.stderr}]}
    records = record["devices"]
    failed = sum(told.get("status") != 0 for told in records)
    wrong = [] if bool(done.returncode) == bool(failed) and len(records) == len(places) else [
        f"ends with {done.returncode}, and {failed} of {len(records)} failed: {done.stderr[-500:]}"]
    for at, (place, told) in enumerate(zip(places, records)):
        place.dev.console.skip()
        if told.get("status") == 0:
            place.banks[bank] = image
            wrong += [f"board {at + 1}: {text}" for text in differences(place.dev, bank, place.banks)]
        else:
            # The next round for this bank has to succeed.
            place.banks.pop(bank, None)
            wrong.append(f"board {at + 1}: {told}")
    return Round(number, way, bank, image, seconds, wrong)


def spend(places: list[Place], ways: tuple, directory: Path, seconds: float, least: int = 1, told=lambda one: None) -> list[Round]:
    """Rounds on these boards, which are at their prompts, until the time is up and at least so many were played. Sets each board's
    `before` when each way was gone once."""
    end, rounds = time.monotonic() + seconds, []
    while time.monotonic() < end or len(rounds) < least:
        rounds.append(play_round(places, len(rounds), ways[len(rounds) % len(ways)], directory))
        told(rounds[-1])
        if len(rounds) == len(ways):
            for place in places:
                place.before = State.of(place.dev)
    return rounds


def problems(places: list[Place], rounds: list[Round]) -> list[str]:
    """What is wrong, in words."""
    wrong = [f"round {one.number + 1}, {one.way}: {text}" for one in rounds for text in one.wrong]
    for at, place in enumerate(places):
        if place.before:
            wrong += board_state.grown(f"board {at + 1}", place.before, State.of(place.dev))
    return wrong


def table(places: list[Place], rounds: list[Round], seconds: float) -> str:
    """The tables of the document."""
    lines = ["| way | rounds | boards installed | seconds a round, median and longest | rounds with something wrong |", "|---|--:|--:|---|--:|"]
    for way in dict.fromkeys(one.way for one in rounds):
        own = [one for one in rounds if one.way == way]
        times = sorted(one.seconds for one in own)
        lines.append(f"| {way} | {len(own)} | {len(own) * len(places)} | {times[len(times) // 2]:.0f}, {times[-1]:.0f} | "
                     f"{sum(bool(one.wrong) for one in own)} |")
    lines += ["", f"In {seconds / 60:.0f} minutes, {len(places)} boards; images of "
              f"{min(len(one.image.data) for one in rounds):,} to {max(len(one.image.data) for one in rounds):,} bytes.", "",
              f"| board | {board_state.HEAD} |", "|---|" + "---|" * 6]
    lines += [f"| {at + 1} | {board_state.shown(place.before, State.of(place.dev))} |" for at, place in enumerate(places) if place.before]
    return "\n".join(lines) + "\n"


def own_network() -> None:
    """Goes on in a network of its own, which has the address of this computer to itself and nothing else."""
    os.environ[_INSIDE] = "yes"
    os.execvp("unshare", ["unshare", "--net", "sh", "-c", "ip link set lo up && exec \"$@\"", "sh", sys.executable, *sys.argv])


def main() -> int:
    parser = argparse.ArgumentParser(prog="kesto_night", description=__doc__.splitlines()[1])
    parser.add_argument("--seconds", type=float, default=8 * 3600, help="begins no other round after this time")
    parser.add_argument("--boards", type=int, default=4)
    parser.add_argument("--way", action="append", choices=WAYS, help="only this way")
    parser.add_argument("--report", type=Path, help="the document whose tables are written anew")
    given = parser.parse_args()
    ways = tuple(given.way or WAYS)
    if "network" in ways and _INSIDE not in os.environ:
        own_network()
    # Told to end, it takes its boards with it.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    commit = commit_of()

    def told(one: Round) -> None:
        print(f"{one.number + 1}\t{one.way}\tbank {one.bank}\t{one.seconds:.0f} s\t{'; '.join(one.wrong) or 'as sent'}", flush=True)

    with tempfile.TemporaryDirectory(prefix="kesto-") as name, contextlib.ExitStack() as stack:
        places = []
        for number in range(given.boards):
            (Path(name) / str(number)).mkdir()
            places.append(Place(Path(name) / str(number)))
            stack.callback(places[-1].close)
            places[-1].boot()
        began = time.monotonic()
        rounds = spend(places, ways, Path(name), given.seconds, told=told)
        text, wrong = table(places, rounds, time.monotonic() - began), problems(places, rounds)
    collected = collections.Counter(bool(one.wrong) for one in rounds)
    print(text, f"{collected[False]} rounds as they have to be, {collected[True]} not", *wrong, sep="\n")
    if given.report:
        write_between(given.report, "kesto night", f"At commit {commit}:\n\n{text}")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())

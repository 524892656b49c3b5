#!/usr/bin/env python3
"""
Hours of a technician's typing in one process of the shell: random commands, whole and broken, then random bytes into its
line editor. Memory, descriptors and processes have to stay what they were.

    tests/campaign/endurance.py                          10,000 commands and a megabyte of keys
    tests/campaign/endurance.py --commands 300 --keys 20000 --seed 7
    tests/campaign/endurance.py --report docs/reliability.md

It runs in a device root (build/release must be built; root, or a kernel that gives user namespaces). The exit
status is 0 only when nothing grew and the shell answered to the end.
"""

import argparse
import random
import sys
import tempfile
import time
from dataclasses import dataclass
from pathlib import Path

TESTS = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(TESTS / "support"), str(TESTS / "console")]

# pylint: disable=wrong-import-position
from command_list import COMMANDS  # noqa: E402
from document import commit_of, write_between  # noqa: E402
from root_session import RootSession  # noqa: E402
from texts import PROMPT, QUESTION  # noqa: E402

# What ends the process or moves it to another line by design; what waits for a sender only waits.
LEFT_OUT = {"quit", "reset", "set console", "file download serial", "flash download serial"}
WORDS = ["", "0", "1", "2", "3", "-1", "6", "32", "74", "159", "160", "4294967296", "99999999999999999999", "single", "on", "off",
         "maybe", "y", "n", "kernel", "rootfs", "serial", "nand", "eth0", "eth9", "lo", "10.0.0.1", "255.255.255.0", "1.2.3", "auto",
         "10h", "100f", "file.rom", "/tmp/file", "/nowhere/file", "run flashboot", "run", "flashboot", "default", "tk10_mfg", "tk20",
         "tk30", "none", "dio2x1r", "bootbank", "mac", "id", "hwcfg", "-v", "high", "low", "NRESETIN", "%s%n", "\"", "'", ";", "$(id)",
         "\\", "a" * 300]
KEYS = bytes(range(256)).replace(b"\x03", b"")
PIECE = 512
# Whatever a sequence of the terminal still waits for.
END_OF_SEQUENCE = b"    "
COMMANDS_PER_LOOK = 100
WARM_UP = 200
# The memory of a process is counted in pages, and the system moves some of them as it likes.
MEMORY_KIB = 64


@dataclass(frozen=True)
class State:
    """What a process holds: KiB of memory that are its own, descriptors, processes that it started."""

    memory: int
    descriptors: int
    children: int

    @staticmethod
    def of(dev: RootSession) -> "State":
        # Pages of files are whoever's maps them as well, a shell of another test too.
        rollup = Path(f"/proc/{dev.pid}/smaps_rollup").read_text().splitlines()
        anonymous = sum(int(line.split()[1]) for line in rollup if line.startswith(("Anonymous:", "Swap:")))
        children = Path(f"/proc/{dev.pid}/task/{dev.pid}/children").read_text().split()
        return State(anonymous, len(list(Path(f"/proc/{dev.pid}/fd").iterdir())), len(children))


def random_line(rng: random.Random) -> str:
    """A command with random parameters; one in five misspelt, cut short or led by nonsense."""
    path = rng.choice([path for path, _, _ in COMMANDS if path not in LEFT_OUT])
    words = path.split() + [rng.choice(WORDS) for _ in range(rng.choice([0, 0, 1, 1, 2, 3, 4]))]
    if path == "show pattern":
        words = words[:2] + ["2"]  # none without an end
    if path == "verbose":
        words = words[:1]  # and no traces, which are another program's speed
    kind = rng.randrange(10)
    if kind == 0:
        words[0] = words[0][:rng.randrange(1, len(words[0]) + 1)]
        # What is short enough may be another command.
        return words[0] + "~"
    if kind == 1:
        words.insert(0, rng.choice(WORDS[:-1]) + "x")
    return " ".join(words)[:250]


def run_line(dev: RootSession, line: str, rng: random.Random) -> None:
    """Types a line and waits for the next prompt; a question is answered."""
    dev.type(line)
    deadline = time.monotonic() + dev.patience
    while PROMPT.encode() not in dev.console.unread:
        if QUESTION.encode() in dev.console.unread:
            dev.expect(QUESTION)
            dev.type(rng.choice("yn"))
        assert dev.alive and time.monotonic() < deadline, f"no prompt behind {line!r}: {dev.console.unread[-500:]!r}"
        time.sleep(0.001)
    dev.expect(PROMPT)


def forget(dev: RootSession) -> None:
    """Empties the log of the root: it is for tests that judge what was done."""
    (dev.path("/.harness/log")).write_bytes(b"")


def send_keys(dev: RootSession, keys: bytes) -> None:
    """Random keys into the line editor, in pieces; it has taken a piece when it does what is typed behind it."""
    for at in range(0, len(keys), PIECE):
        # Enter would run what stands there, and the random lines have had their turn.
        dev.keys(keys[at:at + PIECE].replace(b"\r", b"\x01").replace(b"\n", b"\x05") + END_OF_SEQUENCE)
        dev.interrupt()
        dev.type("version")
        dev.expect("Recovery Loader v")
        dev.expect(PROMPT)


def endure(dev: RootSession, commands: int, keys: int, seed: int) -> list[tuple[str, int, State, State, float]]:
    """
    Rows of (what, how many, state before, state after, seconds) of a device at its prompt. Raises when the shell stops to
    answer.
    """
    rng = random.Random(seed)

    def type_commands(count):
        for number in range(count):
            run_line(dev, random_line(rng), rng)
            if number % COMMANDS_PER_LOOK == 0:
                forget(dev)

    def press_keys(count):
        send_keys(dev, bytes(rng.choices(KEYS, k=count)))

    # What is taken once, by the first of each, is taken before.
    type_commands(WARM_UP)
    press_keys(8 * PIECE)
    rows = []
    for what, do, count in (("commands", type_commands, commands), ("keys", press_keys, keys)):
        before, started = State.of(dev), time.monotonic()
        do(count)
        rows.append((what, count, before, State.of(dev), time.monotonic() - started))
    forget(dev)
    return rows


def grown(rows) -> list[str]:
    """What has grown, in words; nothing when all is as it was."""
    return [f"{what}: {after} after {before}" for what, _, before, after, _ in rows
            if after.descriptors != before.descriptors or after.children != before.children
            or after.memory > before.memory + MEMORY_KIB]


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[1])
    parser.add_argument("--commands", type=int, default=10_000)
    parser.add_argument("--keys", type=int, default=1 << 20)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--build", type=Path, default=TESTS.parent / "build" / "release")
    parser.add_argument("--report", type=Path, help="the document whose table is written anew")
    given = parser.parse_args()
    commit = commit_of()
    with tempfile.TemporaryDirectory() as directory:
        dev = RootSession(Path(directory) / "root", given.build.resolve(), given.build.resolve() / "recovery-loader")
        try:
            dev.give_model("P2")
            dev.boot()
            dev.unknown_command_expected = dev.unused_rules_expected = True
            rows = endure(dev, given.commands, given.keys, given.seed)
            dev.check()
        finally:
            dev.close()
    text = "| what | how many | memory before, after (KiB) | descriptors | processes | seconds |\n|---|---|---|---|---|---|\n"
    for what, count, before, after, seconds in rows:
        text += (f"| {what} | {count:,} | {before.memory}, {after.memory} | {before.descriptors}, {after.descriptors} | "
                 f"{before.children}, {after.children} | {seconds:.0f} |\n")
    problems = grown(rows)
    print(text)
    if given.report:
        write_between(given.report, "endurance", f"At commit {commit}:\n\n{text}")
    print("\n".join(problems))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())

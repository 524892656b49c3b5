#!/usr/bin/env python3
"""
Cuts the power of a device at every operation of its flash, and judges what is left: what boots, whether the old bank is whole, whether
the shell comes up, whether the same command succeeds when it is given again.

    tests/campaign/power.py --seconds 3600                            # goes on where it stopped
    tests/campaign/power.py --scenario "serial kernel" --count 20     # twenty of its cuts
    tests/campaign/power.py --seconds 0 --report docs/reliability.md  # runs nothing, writes the table of all that was done

A scenario runs once undisturbed on the ARM board, whose kernel keeps a journal of what changes flash. A cut before operation n leaves the
flash as it was at the beginning with the first n - 1 done again; one in the middle of a write or an erase, a half of that besides;
`--random` cuts do another part of it. All of these are judged by their bytes. Of them, evenly spread, as many as time allows

    boot      get power on a board with the boot loader, which starts what it finds; the firmware reports whether its files are
              whole, and is told to restart into the shell. Flash that no start can tell apart is booted once
    attach    are attached and mounted by a board's kernel: the old bank's files are compared
    repeat    are given the command again on a board that runs the shell, and what it has installed is compared
    cut       are made once more, by cutting the power of a running board in the same operation

Besides, at random moments of the command on a running board,

    kill      the power of the board is cut, what is left gets power, and the command is repeated
    moment    the board stands still while what its chips' files hold is kept, which is what a cut would leave; it goes on, to
              the next of some forty moments. All are judged by their bytes; one of each environment and kernel to start gets
              power

The state of a campaign is in --directory: a device and its journal for each scenario, and results.jsonl, a line for each check.
It ends with 0 when nothing was found.
"""

import argparse
import collections
import contextlib
import json
import multiprocessing
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import traceback
from pathlib import Path

_ROOT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(_ROOT / "tests" / "support"), str(_ROOT / "tests" / "board"), str(_ROOT / "board")]

# A campaign runs beside other work: nothing is wrong because it is slow. What is stuck is tried again.
if __name__ == "__main__":
    os.environ.setdefault("BOARD_PATIENCE", "600")

# pylint: disable=wrong-import-position
import flash_journal  # noqa: E402
import layout  # noqa: E402
import ubi_device  # noqa: E402
from board_session import BUILD, NODES, PATIENCE, PROTECTED, BoardSession  # noqa: E402
from chip_files import ChipFiles  # noqa: E402
from firmware import A  # noqa: E402
from flash_journal import Replay  # noqa: E402
from power_judge import BANK_1, BANK_2, NOTHING, SHELL, Judge  # noqa: E402
from power_on import NOTHING as NOTHING_UP, RECOVERY  # noqa: E402
from power_scenarios import Scenario, scenarios, succeeded  # noqa: E402
from virtual_board import BoardError, Timeout  # noqa: E402

_TRIES = 3
CHECKS = ("boot", "attach", "repeat", "cut", "kill", "moment")
NOT_REACHED = "not reached"
# Of one run, on average.
_MOMENTS = 40
# In bank 2 it depends on the scenario which firmware: one whose files are whole.
COMES_UP = {BANK_1: re.compile(re.escape(A.report("1"))), BANK_2: re.compile(r"Firmware \S+ on rootfs_2, .* all whole"),
            SHELL: re.compile(RECOVERY), NOTHING: re.compile(NOTHING_UP)}
_BEGIN, _END = "<!-- power cuts -->\n", "<!-- end of power cuts -->\n"


# ---------------------------------------------------------------------- one scenario, undisturbed


class Recording:
    """A scenario's device before the command, and the journal of the command."""

    def __init__(self, directory: Path, scenario: Scenario):
        self.directory, self.scenario = directory, scenario
        self.operations = flash_journal.parse((directory / "journal").read_bytes())
        about = json.loads((directory / "about.json").read_text(encoding="utf-8"))
        self.commit, self.geometry = about["commit"], layout.NAND_GEOMETRIES["128k"]

    def replay(self) -> Replay:
        return Replay(self.directory / "before", self.operations, self.geometry)

    def before(self) -> Replay:
        """The device before the command."""
        return Replay(self.directory / "before", [], self.geometry)

    def cuts(self, randoms: int = 0) -> list[tuple[int, int]]:
        """(operations done, bytes done of the next) for every cut; the last one lets the command come to its end."""
        found = []
        for number, operation in enumerate(self.operations):
            found.append((number, 0))
            if operation.tears:
                found.append((number, operation.size // 2))
        found.append((len(self.operations), 0))
        rng, tearing = random.Random(self.scenario.name), [n for n, one in enumerate(self.operations) if one.tears]
        for _ in range(randoms):
            number = rng.choice(tearing)
            found.append((number, rng.randrange(1, self.operations[number].size)))
        return list(dict.fromkeys(found))


def record(directory: Path, scenario: Scenario, bench) -> Recording:
    """Runs a scenario undisturbed on a Bench, unless that was done. Raises AssertionError when the command does not succeed,
    or when its journal does not lead to the flash that it left."""
    for _ in range(_TRIES):
        try:
            if not (directory / "about.json").exists():
                _record(directory, scenario, bench)
            return Recording(directory, scenario)
        except (Timeout, BoardError) as error:
            print(f"{scenario.name}: {error}; once more", flush=True)
            bench.dev.kill()
    raise Timeout(f"{scenario.name}: this machine is too slow")


def _record(directory: Path, scenario: Scenario, bench) -> None:
    shutil.rmtree(directory, ignore_errors=True)
    bench.scenario = scenario
    chips = ChipFiles(directory / "before", "128k")
    scenario.lay(chips)
    replay = Replay(chips.directory, [], chips.geometry)
    if scenario.restarts:
        bench.dev.kill()
    bench.lay(replay)
    dev = bench.at_prompt()
    bench.board.journal_start()
    begin = time.monotonic()
    shown = in_time(scenario.run(dev))
    about = {"commit": commit_of(), "seconds": round(time.monotonic() - begin, 1)}
    (directory / "journal").write_bytes(bench.board.journal_end())
    assert succeeded(shown), f"{scenario.name}: {shown}"
    # Whatever start-up has done to flash would be missing in the journal.
    replay.operations = flash_journal.parse((directory / "journal").read_bytes())
    replay.go_to(len(replay.operations))
    different = [name for name in NODES if replay.read(name) != bench.board.flash_read(name)]
    assert not different, f"{scenario.name}: the journal does not lead to what is in {different}"
    wrong = scenario.holds(dev)
    assert not wrong, f"{scenario.name}: {wrong}"
    (directory / "about.json").write_text(json.dumps(about), encoding="utf-8")


# ---------------------------------------------------------------------- boards


class Bench:
    """A board that runs the shell, and one that goes through the boot loader, for the tries of one scenario after another."""

    def __init__(self):
        self._directory = Path(tempfile.mkdtemp(prefix="power-", dir="/dev/shm" if os.access("/dev/shm", os.W_OK) else None))
        (self._directory / "tftp").mkdir()
        # A journal takes memory of the board: of a transfer in small pieces a lot.
        self.dev = BoardSession(self._directory / "board", tftp=self._directory / "tftp", memory=512)
        self.dev.patience = PATIENCE
        self.board, self.scenario = self.dev.board, None
        # By scenario: seconds that its command took here lately, and what was booted behind random moments.
        self.spans, self.booted = {}, collections.defaultdict(set)
        self._on_network = self._repartitioned = False

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        self.close()

    def close(self):
        """Ends the boards and removes their files."""
        self.dev.kill()
        shutil.rmtree(self._directory, ignore_errors=True)

    def lay(self, flash: Replay) -> None:
        """Puts this flash there, on or off."""
        flash.lay_into(self.board)

    def at_prompt(self) -> BoardSession:
        """The shell on what lies in flash, as behind power-on: started anew where start-up depends on the flash, else with
        locks as they are at power-up."""
        if not self.board.running or self.scenario.restarts or self._repartitioned:
            assert "ERROR" not in self.dev.restart(), "start-up said ERROR"
            self._on_network, self._repartitioned = False, self.scenario.restarts
        else:
            self.board.clear_faults()
            self.board.sh("; ".join(f"flash_lock {NODES[name]} 0 -1" for name in PROTECTED), check=True)
        if self.scenario.served and not self._on_network:
            assert succeeded(self.dev.command("network ethernet start"))
            self._on_network = True
        return self.dev


def in_time(shown: str) -> str:
    """What was shown. Raises Timeout when a limit of the shell ran out, which is this machine's fault: nothing was cut off."""
    if "timed out" in shown:
        raise Timeout(f"the shell gave up waiting: {shown[-300:]!r}")
    return shown


def check_boot(bench: Bench, state: dict) -> list[str]:
    """Power, then the way to the shell."""
    came_up, shell = bench.dev.power_on.judge(bench.board)
    wrong = []
    if not COMES_UP[state["boots"]].fullmatch(came_up):
        wrong.append(f"boots {came_up}")
    if shell != RECOVERY:
        wrong.append(f"the shell does not come up: {shell}")
    return wrong


def check_attach(bench: Bench) -> list[str]:
    """The kernel's own view of the old bank's files."""
    bench.at_prompt()
    with ubi_device.attached(bench.dev) as ubi:
        return [] if ubi.files("rootfs_1") == A.files() else ["files of bank 1 are not what they were"]


def check_repeat(bench: Bench, judge: Judge) -> tuple[str, list[str]]:
    """The same command again; how it went, and what is wrong then."""
    dev, how = bench.at_prompt(), "at once"
    shown = in_time(bench.scenario.run(dev))
    for aid in bench.scenario.aids:
        if succeeded(shown):
            break
        dev.command(aid)
        how, shown = f"after {aid}", in_time(bench.scenario.run(dev))
    if not succeeded(shown):
        bench.dev.kill()
        return "failed", [f"repeated: {shown[-400:]!r}"]
    wrong = bench.scenario.holds(dev)
    if bench.scenario.old and not judge(FlashOf(bench.board))["old"]:
        wrong.append("the old bank is not what it was")
    return how, [f"repeated: {text}" for text in wrong]


class FlashOf:
    """A board's flash, to be judged."""

    def __init__(self, board):
        self._board = board

    def read(self, partition, offset=0, length=None):
        return self._board.flash_read(partition, offset, length)


def span_of(bench: Bench, recording: Recording) -> float:
    """Seconds that the scenario's command takes, as long ago as need be."""
    about = json.loads((recording.directory / "about.json").read_text(encoding="utf-8"))
    return bench.spans.get(recording.scenario.name, about["seconds"])


def run_until_dead(bench: Bench, after: float | None) -> str | None:
    """The scenario on a board whose power goes, by plan or `after` seconds. Result: what the command showed when it came to its end
    and the planned cut did not come, else None."""
    dev, shown = bench.dev, None
    timer = threading.Timer(after, bench.board.kill) if after is not None else None
    if timer:
        timer.start()
    with contextlib.suppress(Timeout, BoardError, AssertionError):
        shown = bench.scenario.run(dev)
    if timer:
        timer.cancel()
        timer.join()
    elif shown is None:
        bench.board.wait_off(PATIENCE)
    else:
        # UBI's own thread may come to the operation behind the prompt.
        with contextlib.suppress(Timeout):
            bench.board.wait_off(5)
            shown = None
    bench.board.kill()
    return None if timer else shown


def moments_of(bench: Bench, recording: Recording, rng: random.Random) -> list[Replay]:
    """The flash at random moments of the scenario's command on a running board, which goes on to the command's end, or until a
    busy machine's patience is at its end: what came before was the command all the same. None when it took much longer the last time; the next time there will be."""
    # What took no time on a quiet machine may take long now: there is an end to what is worth keeping.
    span, moments, ended, stood = span_of(bench, recording), [], threading.Event(), 0.0
    rate = max(min(8, _MOMENTS / span), 10 / span)

    def take():
        nonlocal stood
        while not ended.wait(rng.expovariate(rate)):
            begin, moment = time.monotonic(), recording.before()
            with bench.board.halted():
                moment.take_from(bench.board)
            moments.append(moment)
            stood += time.monotonic() - begin

    taker, begin, shown = threading.Thread(target=take), time.monotonic(), None
    taker.start()
    try:
        shown = bench.scenario.run(bench.dev)
        took = time.monotonic() - begin
    except Timeout as error:
        print(f"{recording.scenario.name}: {error}", flush=True)
    finally:
        ended.set()
        taker.join()
    if shown is None:
        bench.dev.kill()
    elif "timed out" not in shown:
        assert succeeded(shown), f"halted now and then, the command fails: {shown[-400:]!r}"
        bench.spans[recording.scenario.name] = max(0.1, took - stood)
    return moments


def check_cut(bench: Bench, recording: Recording, flash: Replay, judge: Judge, cut) -> tuple[str, list[str]]:
    """The power of a running board goes in that operation: what is left is judged as the journal said. What is written as it comes
    over a line comes in larger pieces on a faster machine: a run with fewer operations may not reach that one."""
    number, done = cut
    operation = recording.operations[number]
    before = sum((one.name, one.partition) == (operation.name, operation.partition) for one in recording.operations[:number])
    flash.go_to(0)
    bench.dev.kill()
    bench.lay(flash)
    bench.at_prompt()
    bench.board.cut_power_at(operation.name, operation.partition, before + 1, done)
    shown = run_until_dead(bench, None)
    if shown is not None:
        return NOT_REACHED, [] if succeeded(shown) else [f"the command fails: {shown[-400:]!r}"]
    flash.go_to(number, done or (operation.size // 2 if operation.tears else 0))
    wrong = [f"{name} is not what the journal says" for name in NODES
             if name not in ("ubi0", operation.partition) and flash.read(name) != bench.board.flash_read(name)]
    if operation.partition.startswith("kernel") and operation.name == "write":
        # What comes over a line is written as it comes, in pieces that are others each time.
        flash.go_to(len(recording.operations))
        if not flash.read(operation.partition).startswith(bench.dev.flash(operation.partition)):
            wrong.append(f"{operation.partition} does not hold the beginning of what was sent")
        flash.go_to(number, done or operation.size // 2)
    elif operation.partition != "ubi0" and flash.read(operation.partition) != bench.board.flash_read(operation.partition):
        wrong.append(f"{operation.partition} is not what the journal says")
    seen, said = judge(FlashOf(bench.board)), judge(flash)
    return "", wrong + [f"{what} is {seen[what]}, not {said[what]}" for what in ("boots", "torn", "old") if seen[what] != said[what]]


def check_kill(bench: Bench, recording: Recording, flash: Replay, judge: Judge, cut) -> tuple[str, list[str]]:
    """The power goes at a random moment of the command, wherever that is; the command is repeated then."""
    flash.go_to(0)
    bench.dev.kill()
    bench.lay(flash)
    bench.at_prompt()
    run_until_dead(bench, random.Random(str(cut)).uniform(0, span_of(bench, recording)))
    state = judge(FlashOf(bench.board))
    wrong = judged_wrong(recording.scenario, state) + check_boot(bench, state)
    how, more = check_repeat(bench, judge)
    return f"{state['boots']}, {how}", wrong + more


def check_moments(bench: Bench, recording: Recording, flash: Replay, judge: Judge, run: int) -> list[dict]:
    """What lies in flash at random moments of one run; a line for each."""
    name, rng = recording.scenario.name, random.Random(f"{recording.scenario.name} {run}")
    moments, lines = [], []
    for _ in range(_TRIES):
        flash.go_to(0)
        if recording.scenario.restarts:
            bench.dev.kill()
        bench.lay(flash)
        bench.at_prompt()
        moments = moments_of(bench, recording, rng)
        if moments:
            break
    else:
        raise Timeout("the command was over before a moment came")
    for number, moment in enumerate(moments):
        state = judge(moment, moment.version, moment.block_version)
        line = {"scenario": name, "check": "moment", "cut": (run, number), "how": "", **state,
                "wrong": judged_wrong(recording.scenario, state)}
        if starts(state) not in bench.booted[name]:
            if recording.scenario.restarts:
                bench.dev.kill()
            bench.lay(moment)
            line["wrong"] += check_boot(bench, state)
            line["booted"] = True
            bench.booted[name].add(starts(state))
        moment.close()
        lines.append(line)
    return lines


def judged_wrong(scenario: Scenario, state: dict) -> list[str]:
    """What no cut may leave."""
    wrong = ["nothing boots"] if state["boots"] == NOTHING else []
    if scenario.old and not state["old"]:
        wrong.append("the old bank is not what it was")
    # Defaults know no kernel. An image without one leaves a bank that has none, as one with a kernel that is none does.
    if scenario.old and state["boots"] == SHELL and state["bank"] == "1" and not scenario.name.endswith("defaults"):
        wrong.append("the old bank is chosen, and does not boot")
    return wrong


# ---------------------------------------------------------------------- the campaign


class Results:
    """The lines of results.jsonl: one for each check of each cut, added as they come. What ended in an exception is tried
    again by the next campaign, and counts as long as it has come to no other end."""

    def __init__(self, path: Path):
        self._path = path
        self.lines = [json.loads(line) for line in path.read_text(encoding="utf-8").splitlines()] if path.exists() else []
        self.done = {self.key(line) for line in self.lines if "trouble" not in line}

    @staticmethod
    def key(line):
        return line["scenario"], line["check"], tuple(line["cut"])

    def unresolved(self) -> list[dict]:
        """Checks that have ended in an exception only."""
        return [line for line in self.lines if "trouble" in line and self.key(line) not in self.done]

    def add(self, line: dict) -> None:
        self.lines.append(line)
        if "trouble" not in line:
            self.done.add(self.key(line))
        with open(self._path, "a", encoding="utf-8") as file:
            print(json.dumps(line), file=file)


def judge_all(recording: Recording, results: Results, cuts) -> None:
    """Judges every cut by its bytes."""
    missing = [cut for cut in sorted(cuts) if (recording.scenario.name, "bytes", cut) not in results.done]
    if not missing:
        return
    flash = recording.replay()
    judge = Judge(flash, recording.geometry)
    for cut in missing:
        flash.go_to(*cut)
        state = judge(flash, flash.version, flash.block_version)
        results.add({"scenario": recording.scenario.name, "check": "bytes", "cut": cut, **state,
                     "wrong": judged_wrong(recording.scenario, state)})
    flash.close()


def spread(length: int) -> list[int]:
    """All of range(length), so that every beginning of the list is spread evenly over it."""
    if length == 0:
        return []
    bits = (length - 1).bit_length()
    order = (int(f"{number:0{bits}b}"[::-1], 2) if bits else 0 for number in range(1 << bits))
    return [number for number in order if number < length]


def starts(state: dict) -> str:
    """The same for all flash with the same environment, and the same kernel if one is started."""
    return " ".join(state["key"].split(" ")[:3])


def tasks_of(recording: Recording, results: Results, checks, counts: dict) -> list[tuple[str, tuple]]:
    """(check, cut) of a scenario in the order in which they are worth most; `counts`: how many of each at most."""
    name, scenario = recording.scenario.name, recording.scenario
    lines = [line for line in results.lines if line["scenario"] == name and line["check"] == "bytes"]
    lines.sort(key=lambda line: tuple(line["cut"]))
    cuts = [tuple(line["cut"]) for line in lines]
    classes, by_key = {}, {}
    for line in lines:
        by_key.setdefault(line["key"], tuple(line["cut"]))
        classes.setdefault(starts(line), tuple(line["cut"]))
    keys = list(by_key.values())
    order = {
        # One of each environment and kernel first.
        "boot": list(dict.fromkeys([*classes.values(), *(keys[at] for at in spread(len(keys)))])),
        "attach": [cuts[at] for at in spread(len(cuts))] if scenario.old else [],
        "repeat": [cuts[at] for at in spread(len(cuts))],
        "cut": [cut for cut in (cuts[at] for at in spread(len(cuts))) if cut[0] < len(recording.operations)],
        "kill": [(number, -1) for number in range(counts.get("kill", 0))],
        "moment": [(run, 0) for run in range(counts.get("moment", 0))],
    }
    # A volume that was not touched needs not be mounted again.
    touched = next((n for n, one in enumerate(recording.operations) if one.partition == "ubi0"), None)
    if touched is None:
        order["attach"] = []
    planned = []
    for check in checks:
        wanted = order[check][:counts.get(check, len(order[check]))]
        planned.append([(check, cut) for cut in wanted if (name, check, cut) not in results.done])
    mixed = []
    while any(planned):
        mixed += [queue.pop(0) for queue in planned if queue]
    return mixed


def work(inbox, outbox, recordings: dict) -> None:
    """A worker: takes (scenario, check, cut) until there are no more."""
    bench, held = Bench(), {}
    try:
        for name, check, cut in iter(inbox.get, None):
            recording = recordings[name]
            if held.get("name") != name:
                if held:
                    held["flash"].close()
                flash = recording.replay()
                held = {"name": name, "flash": flash, "judge": Judge(flash, recording.geometry)}
            bench.scenario, begin = recording.scenario, time.monotonic()
            line = {"scenario": name, "check": check, "cut": cut, "how": "", "wrong": []}
            lines = [line]
            try:
                if check == "moment":
                    lines = check_moments(bench, recording, held["flash"], held["judge"], cut[0])
                else:
                    try_one(bench, recording, held["flash"], held["judge"], check, cut, line)
            except Exception:  # pylint: disable=broad-exception-caught; the campaign goes on, and says so
                line["trouble"] = traceback.format_exc()[-1500:]
                bench.dev.kill()
            for one in lines:
                one["seconds"] = round((time.monotonic() - begin) / len(lines), 1)
            outbox.put(lines)
    finally:
        bench.close()
        outbox.put(None)


def try_one(bench: Bench, recording: Recording, flash: Replay, judge: Judge, check: str, cut, line: dict) -> None:
    """One check of one cut; its result goes into the line."""
    if check == "cut":
        line["how"], line["wrong"] = check_cut(bench, recording, flash, judge, cut)
        return
    if check == "kill":
        line["how"], line["wrong"] = check_kill(bench, recording, flash, judge, cut)
        return
    flash.go_to(*cut)
    if bench.scenario.restarts and check != "boot":
        bench.dev.kill()
    bench.lay(flash)
    if check == "boot":
        line["wrong"] = check_boot(bench, judge(flash))
    elif check == "attach":
        line["wrong"] = check_attach(bench)
    else:
        line["how"], line["wrong"] = check_repeat(bench, judge)


def campaign(recordings: dict, results: Results, checks, counts: dict, workers: int, seconds: float) -> None:
    """Runs what is not done yet, scenario by scenario in turn, until there is no more or the time is over."""
    queues = [[(name, *task) for task in tasks_of(recording, results, checks, counts)] for name, recording in recordings.items()]
    # A few of a scenario in a row: a board at the prompt serves them all.
    chunks = []
    while any(queues):
        chunks += [[queue.pop(0) for _ in range(min(8, len(queue)))] for queue in queues if queue]
    inbox, outbox = multiprocessing.SimpleQueue(), multiprocessing.SimpleQueue()
    processes = [multiprocessing.Process(target=work, args=(inbox, outbox, recordings), daemon=True) for _ in range(workers)]
    for process in processes:
        process.start()
    end, tasks, running = time.monotonic() + seconds, [task for chunk in chunks for task in chunk], 0
    tasks.reverse()
    total = len(tasks)
    for _ in range(min(workers, total)):
        inbox.put(tasks.pop())
        running += 1
    while running:
        lines = outbox.get()
        if lines is None:
            raise RuntimeError("a worker has ended")
        running -= 1
        for line in lines:
            results.add(line)
            print(f"{total - len(tasks) - running}/{total} {line['scenario']}, {line['check']} {line['cut']}: "
                  f"{line['how'] or 'done'} {'; '.join(line['wrong'])} {line.get('trouble', '')} ({line['seconds']} s)", flush=True)
        if tasks and time.monotonic() < end:
            inbox.put(tasks.pop())
            running += 1
    for _ in processes:
        inbox.put(None)
    for process in processes:
        process.join()


# ---------------------------------------------------------------------- the report


def commit_of() -> str:
    """The commit of the sources, told apart from one with changes behind it."""
    return subprocess.run(["git", "describe", "--always", "--dirty"], cwd=_ROOT, capture_output=True, text=True,
                          check=True).stdout.strip()


def window(recording: Recording, lines) -> tuple[int, float]:
    """(operations, milliseconds) in which the environment is torn."""
    torn = [tuple(line["cut"]) for line in lines if line["torn"]]
    times = [one.seconds for one in recording.operations]
    numbers = sorted({number for number, _ in torn})
    return len(numbers), 1000 * sum(times[min(n + 1, len(times) - 1)] - times[n] for n in numbers)


def table(recordings: dict, results: Results) -> str:
    """The tables of the document."""
    head = ("scenario", "operations", "cuts", "bank 1", "bank 2", "the shell", "nothing", "boots", "booted", "attached", "repeated", "cut again",
            "moments", "killed", "wrong")
    rows, windows, total = [], [], collections.Counter()
    for name, recording in recordings.items():
        by_check = collections.defaultdict(list)
        for line in results.lines:
            if line["scenario"] == name and "trouble" not in line and line.get("how") != NOT_REACHED:
                by_check[line["check"]].append(line)
        judged = by_check["bytes"]
        boots = collections.Counter(line["boots"] for line in judged)
        state = {tuple(line["cut"]): line for line in judged}
        keys = {state[tuple(line["cut"])]["key"] for line in by_check["boot"]}
        booted = sum(line["key"] in keys for line in judged)
        wrong = sum(bool(line["wrong"]) for line in results.lines if line["scenario"] == name)
        wrong += sum(line["scenario"] == name for line in results.unresolved())
        row = [len(recording.operations), len(judged), boots[BANK_1], boots[BANK_2], boots[SHELL], boots[NOTHING],
               len(by_check["boot"]), booted, *(len(by_check[check]) for check in ("attach", "repeat", "cut", "moment", "kill")), wrong]
        total.update(dict(enumerate(row)))
        rows.append([name, *map(str, row)])
        count, length = window(recording, judged)
        if count:
            windows.append(f"| {name} | {count} | {length:.1f} |")
    rows.append(["**all**", *(str(total[column]) for column in range(len(head) - 1))])
    text = ["| " + " | ".join(head) + " |", "|---|" + "--:|" * (len(head) - 1)] + ["| " + " | ".join(row) + " |" for row in rows]
    ended = [line for line in results.lines if line["scenario"] in recordings and "trouble" not in line]
    how = collections.Counter(line["how"] for line in ended if line["check"] == "repeat")
    text += ["", "Repeated: " + ", ".join(f"{count} {word}" for word, count in how.most_common()) + "."]
    if missed := sum(line.get("how") == NOT_REACHED for line in ended):
        text += ["", f"Cut again: {missed} more came to their end before that operation, for what came over the line was written in larger pieces."]
    moments = [line for line in ended if line["check"] == "moment"]
    if moments:
        boots = collections.Counter(line["boots"] for line in moments)
        text += ["", f"Moments: {len(moments)}, in {len({(line['scenario'], line['cut'][0]) for line in moments})} runs; "
                 + ", ".join(f"{word} {count}" for word, count in boots.most_common())
                 + f"; with the environment torn {sum(line['torn'] for line in moments)}; booted {sum('booted' in line for line in moments)}."]
    seconds = collections.defaultdict(list)
    for line in results.lines:
        if "seconds" in line:
            seconds[line["check"]].append(line["seconds"])
    text += ["", "Seconds each, on the machine as busy as it was: " + ", ".join(
        f"{check} {sum(found) / len(found):.0f}" for check, found in seconds.items()) + "."]
    text += ["", "| scenario | operations with the environment torn | milliseconds |", "|---|--:|--:|", *windows]
    commits = sorted({recording.commit for recording in recordings.values()})
    return f"At commit {', '.join(commits)}:\n\n" + "\n".join(text) + "\n"


def write_report(path: Path, text: str) -> None:
    """Puts the tables between their marks."""
    before, begin, rest = path.read_text(encoding="utf-8").partition(_BEGIN)
    _, end, behind = rest.partition(_END)
    if not begin or not end:
        raise SystemExit(f"{path} has no place for the table")
    path.write_text(f"{before}{_BEGIN}\n{text}\n{_END}{behind}", encoding="utf-8")


def main() -> int:
    parser = argparse.ArgumentParser(prog="power", description=__doc__.splitlines()[1])
    parser.add_argument("--scenario", action="append", default=[], help="only scenarios whose name contains this")
    parser.add_argument("--every", type=int, default=1, metavar="N", help="only every nth operation")
    parser.add_argument("--random", type=int, default=0, metavar="N", help="cuts with another part of an operation done, each scenario")
    parser.add_argument("--count", type=int, metavar="N", help="at most so many of each check, each scenario")
    parser.add_argument("--check", action="append", choices=CHECKS, help="only this check (default: boot, attach, repeat, cut)")
    parser.add_argument("--kill", type=int, default=0, metavar="N", help="also kills a running board at N random moments, each scenario")
    parser.add_argument("--moments", type=int, default=0, metavar="N", dest="moment",
                        help=f"also N runs that stand still at some {_MOMENTS} random moments, each scenario")
    parser.add_argument("--seconds", type=float, default=1e9, help="begins nothing new after so long; 0: runs nothing")
    parser.add_argument("--workers", type=int, default=2, help="boards at once")
    parser.add_argument("--directory", type=Path, default=_ROOT / "build" / "power-campaign", help="where its state is")
    parser.add_argument("--record", action="store_true", help="only runs each scenario undisturbed, and judges bytes")
    parser.add_argument("--list", action="store_true", help="only name the scenarios")
    parser.add_argument("--report", type=Path, help="writes the tables into this document, of all that was done")
    options = parser.parse_args()
    chosen = [one for name, one in scenarios().items() if not options.scenario or any(text in name for text in options.scenario)]
    if options.list or not chosen:
        print("\n".join(one.name for one in chosen))
        return 0 if chosen else 2
    # Told to end, it takes its boards with it.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    options.directory.mkdir(parents=True, exist_ok=True)
    results = Results(options.directory / "results.jsonl")
    recordings = {}
    with Bench() as bench:
        for scenario in chosen:
            directory = options.directory / scenario.name.replace(" ", "-")
            if not options.seconds and not (directory / "about.json").exists():
                continue
            recording = recordings[scenario.name] = record(directory, scenario, bench)
            if options.seconds:
                cuts = [cut for cut in recording.cuts(options.random) if cut[0] % options.every == 0]
                judge_all(recording, results, cuts)
                print(f"{scenario.name}: {len(recording.operations)} operations, {len(cuts)} cuts", flush=True)
    if options.record:
        return 0
    checks = options.check or ["boot", "attach", "repeat", "cut"]
    checks = list(dict.fromkeys([*checks, *(check for check in ("kill", "moment") if getattr(options, check))]))
    counts = {} if options.count is None else {check: options.count for check in CHECKS}
    if options.seconds:
        campaign(recordings, results, checks, {**counts, "kill": options.kill, "moment": options.moment}, options.workers, options.seconds)
    if options.report:
        write_report(options.report, table(recordings, results))
    print(table(recordings, results))
    wrong = [line for line in results.lines if line["wrong"]] + results.unresolved()
    for line in wrong:
        print(f"{line['scenario']}, {line['check']} {line['cut']}: {'; '.join(line['wrong'])} {line.get('trouble', '')}")
    return 1 if wrong else 0


if __name__ == "__main__":
    assert BUILD.exists(), f"{BUILD} is not built"
    sys.exit(main())

#!/usr/bin/env python3
"""Makes every call and every tool of an operation fail, one at a time, and judges what is left.

    tests/campaign/faults.py                                      # ends with 0 when there is no finding
    tests/campaign/faults.py --command "flash clean" --every 5
    tests/campaign/faults.py --results FILE --seconds 3600    # goes on where FILE ended; findings are tried again
    tests/campaign/faults.py --report docs/reliability.md     # also writes the tables there

An operation is run once without a fault, under the kernel stand-in, which counts. Then, for each call of the C library that
can fail and for each run of a tool, a new device on which exactly that one fails, once; of more than eight calls with the
same subject, a loop over a partition or a serial line, the first three, one in the middle, and the last two.

After it: an error was shown, or
all was done that is done without the fault; nothing is attached, mounted, unlocked, open or running; the ports are set as
before; the boot bank is the old one unless the operation went through; and the same command then ends as it does
without a fault, on flash that then holds the same.
"""

import argparse
import collections
import json
import multiprocessing
import os
import re
import sys
import tempfile
import time
import traceback
from pathlib import Path
from typing import NamedTuple

_ROOT = Path(__file__).resolve().parent.parent.parent
sys.path[:0] = [str(_ROOT / "tests" / "support")]

from document import commit_of, write_between  # noqa: E402
from operations import OPERATIONS, Operation  # noqa: E402
from root_session import RootSession  # noqa: E402
from texts import PROMPT  # noqa: E402
from serial_ports import Timeout  # noqa: E402

# How a call fails on the device, where it is not an input or output error.
_ERRORS = {"access": "EACCES", "dup2": "EBUSY", "fcntl": "EINVAL", "fdopen": "ENOMEM", "fopen": "EMFILE", "fork": "EAGAIN",
           "kill": "ESRCH", "malloc": "ENOMEM", "mmap": "ENOMEM", "open": "EMFILE", "pipe": "EMFILE", "poll": "EINTR",
           "posix_spawn": "ENOMEM", "realloc": "ENOMEM", "select": "EINTR", "sigaction": "EINVAL", "socket": "EMFILE",
           "waitpid": "EINTR"}
# Whatever undoes something: when it cannot, the thing stays, and all that can be asked for is that it is said.
_UNDOING = ("ubidetach", "umount", "flash_lock")
_UNDOING_CALLS = ("unlink", "tcsetattr", "tcgetattr")

# What is left unsaid with good reason: operation, call, subject, shown text; and the reason.
_ACCEPTED = [
    ("serial", "write", r"^/dev/mtd", "", "a piece of a stream that flash does not take is missed by whoever reads the "
     "partition; the sum is over what was received"),
    ("network", "write", r"^/dev/mtd", "", "a piece of a stream that flash does not take is missed by whoever reads the "
     "partition; the sum is over what was received"),
    ("", "(fopen|fgets|fdopen)", r"^/tmp/recovery\.log$", "", "a message that was held back and cannot be kept is lost"),
    ("", "read", r"^/dev/mtd", "", "flash that cannot be read is not clean flash"),
    ("", "(ioctl|open|lseek)", r"^/dev/mtd10", "", "flash that cannot be read is not clean flash"),
    ("", "(fopen|fgets)", r"^/proc/mtd$", "", "a partition that is not found in the kernel's list keeps its node and size"),
    ("start, UBI partition split", "malloc", "", "", "a partition that is not found in the kernel's list keeps its node and size"),
    ("", "", r"^/usr/sbin/fw_printenv -n mtdparts", "", "an environment that cannot be read and one without the variable look "
     "alike"),
    ("start, UBI partition split", "fgets", r"^pipe$", "", "an environment that cannot be read and one without the variable look "
     "alike"),
    ("start", "open", r"^/dev/ttyS1$", "tty_remap_stdio: open", "a port that cannot be opened becomes no console: its descriptors are "
     "opened one by one, and stay where they are then"),
    ("flash analyze", "(posix_spawn|open|ioctl|read|)", r"/mount |/dev/mtd", r"\bdirty\b", "what cannot be read is listed as dirty"),
    ("show oem", "(posix_spawn|fgets|)", "", "not set", "an environment that cannot be read and one without the variable look "
     "alike"),
    ("splits", "(posix_spawn|)", r"^/usr/sbin/fw_setenv mtdparts", "", "a partition that is as large as asked for is not written down "
     "again"),
]
_SAID = re.compile(r"ERROR|FAILURE|NOTE|WARNING|unavailable|not found|unknown|none", re.IGNORECASE)
_PATIENCE = 300.0  # seconds: nothing is a finding for a busy machine


class Fault(NamedTuple):
    """The call or tool that fails: the nth with this subject or command line, from 0."""

    call: str  # "" is a tool
    subject: str
    index: int

    def __str__(self) -> str:
        what = f"{self.call}({self.subject})" if self.call else self.subject
        return f"{what} #{self.index + 1}"

    def plan(self, dev: RootSession) -> None:
        if self.call == "ioctl":
            path, _, request = self.subject.rpartition(" ")
            dev.answer_ioctl(int(request, 16), path, error="EIO", after=self.index, times=1, optional=True)
        elif self.call:
            dev.fail_call(self.call, "=" + self.subject[:150] if self.subject else "", error=_ERRORS.get(self.call, "EIO"),
                          result=0 if self.call == "fwrite" else -1, after=self.index, times=1, optional=True)
        else:
            tool = self.subject.split(" ")[0].rsplit("/", 1)[-1]
            dev.answer(tool, when=self.subject, after=self.index, times=1, status=1, optional=True)

    @property
    def undoing(self) -> bool:
        return self.call in _UNDOING_CALLS or any(tool in self.subject for tool in _UNDOING)


def faults_of(events) -> list[Fault]:
    """One for each call that was tallied, and for each tool that was run."""
    found, calls, tools = [], collections.Counter(), []
    for event in events.of("call", "run"):
        if event.kind == "call":
            key = (event.call, event.subject)
            found.append(Fault(*key, calls[key]))
            calls[key] += 1
        else:
            line = " ".join(event.words)
            tool = event.words[0].rsplit("/", 1)[-1]
            found.append(Fault("", line, sum(name == tool and line in other for name, other in tools)))
            tools.append((tool, line))
    return found


def without_loops(faults: list[Fault]) -> list[Fault]:
    """Of calls that are many times the same, some."""
    alike = collections.Counter(fault[:2] for fault in faults)

    def is_tried(fault):
        count = alike[fault[:2]]
        return not fault.call or count <= 8 or fault.index in (0, 1, 2, count // 2, count - 2, count - 1)
    return [fault for fault in faults if is_tried(fault)]


# ---------------------------------------------------------------------- running an operation


def _console_with_prompt(dev: RootSession):
    """The port on which the prompt stands: without its own, the console stays where the start left it."""
    for port in [*dev.ports.values(), dev.boot_console]:
        if PROMPT.encode() in port.unread:
            return port
    return None


def _wait(dev: RootSession, condition):
    end = time.monotonic() + _PATIENCE
    while not (result := condition()):
        if time.monotonic() > end or not dev.alive:
            raise Timeout(f"nothing came; screens: {dev._screens()!r}")
        time.sleep(0.005)
    return result


def start(dev: RootSession) -> str:
    dev.start()
    dev.console = _wait(dev, lambda: _console_with_prompt(dev))
    return dev.text_until_prompt()


def perform(dev: RootSession, operation: Operation, arm=lambda: None) -> str:
    """Runs the operation once and returns what it showed; `arm` is called right before it begins."""
    if not operation.line:
        arm()
        return start(dev)
    dev.mark()
    dev.keys(operation.line)
    dev.expect(operation.line)
    arm()
    dev.keys("\r")
    if operation.sent:
        path = f"/dev/ttyS{operation.port}"

        def is_raw():
            done = [event.kind for event in dev.events.of("tcflush", "tcsetattr") if event.fields[0] == path]
            return "tcflush" in done and "tcsetattr" in done[done.index("tcflush"):]
        if _wait(dev, lambda: "prompt" if PROMPT.encode() in dev.console.unread else is_raw()) != "prompt":
            dev.port(operation.port).send(operation.sent)
    # Where a fault has left the console is a part of what is judged.
    _wait(dev, lambda: _console_with_prompt(dev))
    dev.console = _console_with_prompt(dev)
    return dev.text_until_prompt()


# ---------------------------------------------------------------------- the state of a device


def flash_of(dev: RootSession) -> dict:
    """What a cut of power would leave."""
    partitions = dev.partitions
    # The stand-in's new partitions are new files and hold nothing of the old one.
    fresh = ("ubi0", "user") if any(partition.number > 10 for partition in partitions) else ()
    state = {partition.name: hash(partition.read()) for partition in partitions if partition.name not in fresh}
    state["environment"] = tuple(sorted(dev.env.items()))
    return state


def open_of(dev: RootSession) -> list[str]:
    links = []
    for entry in Path(f"/proc/{dev.pid}/fd").iterdir():
        try:
            target = os.readlink(entry).removeprefix(str(dev.directory))
            links.append(f"{entry.name} {re.sub(r'[0-9]+]$', ']', target)}")
        except FileNotFoundError:
            pass
    return sorted(links)


def running_of(dev: RootSession) -> str:
    """The program's children; one that has just ended is waited for."""
    children = Path(f"/proc/{dev.pid}/task/{dev.pid}/children")
    end = time.monotonic() + 3
    while children.read_text() and time.monotonic() < end:
        time.sleep(0.02)
    return children.read_text()


def held_of(dev: RootSession) -> set[str]:
    """What tools have attached, mounted and unlocked and not undone since."""
    held, running = set(), {}
    for event in dev.all_events.of("run", "exit"):
        if event.kind == "run":
            running[event.pid] = event.words
        elif event.status == "0" and event.pid in running:
            words = running.pop(event.pid)
            tool = words[0].rsplit("/", 1)[-1]
            if tool == "ubiattach":
                held.add("attached")
            elif tool == "ubidetach":
                held.discard("attached")
            elif tool == "mount":
                held.add("mounted")
            elif tool == "umount":
                held.discard("mounted")
            elif tool == "flash_unlock":
                held.add(f"unlocked {words[1]}")
            elif tool == "flash_lock":
                held.discard(f"unlocked {words[1]}")
    return held


def terminals_of(dev: RootSession) -> list:
    return [dev.terminal(number) for number in range(3)]


def files_of(dev: RootSession) -> list[str]:
    return sorted(str(path.relative_to(dev.path("/tmp"))) for path in dev.path("/tmp").rglob("*"))


class State(NamedTuple):
    flash: dict
    opened: list
    running: str
    held: set
    terminals: list
    files: list


def state_of(dev: RootSession) -> State:
    return State(flash_of(dev), open_of(dev), running_of(dev), held_of(dev), terminals_of(dev), files_of(dev))


# ---------------------------------------------------------------------- one device, one fault


class Reference(NamedTuple):
    """Two runs without a fault."""

    faults: list
    before: State | None
    first: str
    after_first: State
    second: str
    after_second: State


def new_device(directory: str, build: Path, operation: Operation) -> RootSession:
    dev = RootSession(Path(directory) / "root", build, build / "recovery-loader")
    dev.patience = _PATIENCE
    operation.prepare(dev)
    if operation.served:
        dev.answer("tftp", stdout=operation.served, optional=True)
    if operation.line:
        start(dev)
        operation.ready(dev)
    return dev


def again(dev: RootSession, operation: Operation) -> str:
    """The same once more; the start after power was away."""
    if not operation.line:
        dev.kill()
    return perform(dev, operation)


def make_reference(build: Path, operation: Operation) -> Reference:
    with tempfile.TemporaryDirectory() as directory:
        dev = new_device(directory, build, operation)
        try:
            before = state_of(dev) if operation.line else None
            first = perform(dev, operation, dev.tally)
            dev.tally(False)
            after_first = state_of(dev)
            faults = faults_of(dev.events if operation.line else dev.all_events)
            second = again(dev, operation)
            return Reference(faults, before, first, after_first, second, state_of(dev))
        finally:
            dev.close()


class Outcome(NamedTuple):
    operation: str
    fault: str
    kind: str  # "call" or "tool"
    verdict: str  # "reported", "coped", "accepted", "not reached", "finding"
    findings: list
    shown: str


def try_fault(build: Path, operation: Operation, reference: Reference, fault: Fault) -> Outcome:
    findings, shown, verdict = [], "", ""
    with tempfile.TemporaryDirectory() as directory:
        try:
            dev = new_device(directory, build, operation)
        except Timeout as problem:
            return Outcome(operation.name, str(fault), "call", "finding", [f"no device: {problem}"], "")
        try:
            begin = len(dev.all_events)
            shown = perform(dev, operation, lambda: fault.plan(dev))
            dev.drop_rules()
            dev.sleep_scale = 0.01
            reached = bool(dev.all_events[begin:].of("caught")) if fault.call not in ("", "ioctl") else not _is_unused(dev, fault)
            after = state_of(dev)
            verdict = judge(fault, reference, shown, after, findings) if reached else "not reached"
            if reached:
                repeated = again(dev, operation)
                judge_repeated(reference, repeated, state_of(dev), findings, fault)
        except (Timeout, AssertionError) as problem:
            findings.append(f"{'hangs' if dev.alive else 'ended'}: {str(problem)[:300]}")
        finally:
            dev.close()
    reason = findings and accepted(operation, fault, reference, shown, findings)
    if reason:
        verdict, findings = f"accepted: {reason}", []
    return Outcome(operation.name, str(fault), "call" if fault.call else "tool", "finding" if findings else verdict, findings,
                   shown)


def accepted(operation: Operation, fault: Fault, reference: Reference, shown: str, findings: list) -> str:
    """Why these findings are none; "" when they are."""
    if any("hangs" in finding or "ended" in finding or "running" in finding for finding in findings):
        return ""
    for name, call, subject, text, reason in _ACCEPTED:
        if (name in operation.name and re.fullmatch(call, fault.call) and re.search(subject, fault.subject)
                and re.search(text, shown)):
            return reason
    # Which stream an allocation was for is not known.
    lines = iter(reference.first.splitlines())
    lost = operation.sent and fault.call == "malloc" and shown != reference.first and "SUCCESS" in shown
    if lost and findings == [findings[0]] and findings[0].startswith("shows") and all(line in lines for line in shown.splitlines()):
        return "a message that was held back and cannot be kept is lost"
    return ""


def _is_unused(dev: RootSession, fault: Fault) -> bool:
    """Whether a tool or a request never came to fail."""
    if fault.call == "ioctl":
        path, _, request = fault.subject.rpartition(" ")
        return not any(event.path == path and event.request == int(request, 16) and event.result == "EIO"
                       for event in dev.all_events.of("ioctl"))
    return not any(event.rule.startswith("1-") for event in dev.all_events.of("answer"))


def judge(fault: Fault, reference: Reference, shown: str, after: State, findings: list) -> str:
    good = reference.after_first
    # Without the fault: before it where nothing was done, behind it where all was.
    told = shown != reference.first and _SAID.search(shown) is not None
    same = shown == reference.first and after.flash == good.flash
    if not told and not same:
        findings.append("nothing is said" if shown == reference.first else f"shows {shown[-200:]!r}")
    held = after.held - good.held
    if held and not fault.undoing:
        findings.append("left " + ", ".join(sorted(held)))
    if after.running:
        findings.append("left running: " + after.running)
    before = reference.before or good
    if after.opened not in (before.opened, good.opened):
        findings.append(f"left open: {sorted(set(after.opened) ^ set(good.opened))}")
    # Settings that could not be made are as they are; the next command makes them.
    if after.terminals not in (before.terminals, good.terminals) and not fault.subject.startswith("/dev/ttyS"):
        findings.append("ports are set otherwise")
    left = set(after.files) - set(before.files) - set(good.files)
    if left and not fault.undoing:
        findings.append(f"left in /tmp: {sorted(left)}")
    bank, old = (dict(state.flash["environment"]).get("bootbank") for state in (after, before))
    if bank != old and "SUCCESS" not in shown and after.flash != good.flash:
        findings.append(f"the boot bank is {bank}")
    return "coped" if same else "reported"


def judge_repeated(reference: Reference, shown: str, after: State, findings: list, fault: Fault) -> None:
    # What the first run has done need not be done, nor told, again.
    if shown not in (reference.first, reference.second) and ("SUCCESS" not in shown or "ERROR" in shown):
        findings.append(f"repeated: {shown[-200:]!r}")
    if after.flash not in (reference.after_first.flash, reference.after_second.flash):
        other = [name for name in after.flash if after.flash[name] != reference.after_second.flash.get(name)]
        findings.append(f"repeated, yet these differ: {other}")
    if after.held - reference.after_second.held and not fault.undoing:
        findings.append(f"repeated, left {after.held - reference.after_second.held}")
    if after.running:
        findings.append("repeated, left running")
    if after.terminals not in (reference.after_first.terminals, reference.after_second.terminals) and not fault.undoing:
        findings.append("repeated, and ports are set otherwise")
    if after.opened not in (reference.after_first.opened, reference.after_second.opened):
        findings.append("repeated, and left open")


# ---------------------------------------------------------------------- the campaign


def _reference_task(task):
    build, operation = task
    try:
        return operation, make_reference(build, operation)
    except Exception:  # the campaign goes on, and says so
        return operation, traceback.format_exc()


def _fault_task(task):
    return try_fault(*task)


class Results:
    """Outcomes and the number of faults there are by operation, kept in a file of lines where one is named."""

    def __init__(self, path: Path | None, commit: str):
        self.counts, self.outcomes, self.commits = {}, [], set()
        self._commit = commit
        lines = path.read_text(encoding="utf-8").splitlines() if path and path.exists() else []
        # What was found was mended since, or is found again.
        kept = [line for line in map(json.loads, lines) if not line.get("findings")]
        self._file = open(path, "w", encoding="utf-8") if path else None
        for line in kept:
            self._take(line)

    def _take(self, line: dict) -> None:
        if self._file:
            print(json.dumps(line), file=self._file, flush=True)
        self.commits.add(line.pop("commit"))
        if "count" in line:
            self.counts[line["operation"]] = line["count"]
        else:
            self.outcomes.append(Outcome(**line))

    def count(self, operation: str, count: int) -> None:
        if operation not in self.counts:
            self._take({"commit": self._commit, "operation": operation, "count": count})

    def add(self, outcome: Outcome) -> None:
        self._take({"commit": self._commit, **outcome._asdict()})

    def has(self, operation: Operation, fault: Fault) -> bool:
        return any((outcome.operation, outcome.fault) == (operation.name, str(fault)) for outcome in self.outcomes)


def campaign(build: Path, operations: list[Operation], every: int, workers: int, results: Results, seconds: float) -> None:
    """Tries every nth fault of these operations that has no result yet, and begins no other after so many seconds."""
    end = time.monotonic() + seconds
    # The same hash of the same flash in every worker.
    os.environ["PYTHONHASHSEED"] = "0"
    with multiprocessing.Pool(workers) as pool:
        tasks = []
        for operation, reference in pool.imap(_reference_task, [(build, operation) for operation in operations]):
            if isinstance(reference, str):
                results.count(operation.name, 0)
                results.add(Outcome(operation.name, "none", "call", "finding", [f"does not run: {reference}"], ""))
                print(operation.name, reference)
                continue
            results.count(operation.name, len(reference.faults))
            small = reference._replace(faults=[])
            tasks += [(build, operation, small, fault) for fault in without_loops(reference.faults)[::every]
                      if not results.has(operation, fault)]
        for done, outcome in enumerate(pool.imap_unordered(_fault_task, tasks), 1):
            results.add(outcome)
            if outcome.findings:
                print(f"{done}/{len(tasks)} {outcome.operation}: {outcome.fault}: {'; '.join(outcome.findings)}", flush=True)
            if time.monotonic() > end:
                print(f"{len(tasks) - done} are left: the time is up")
                pool.terminate()
                return


def table(counts: dict, outcomes: list[Outcome]) -> str:
    lines = ["| operation | calls and tools | tried | reported | went through | accepted | not reached | findings |",
             "|---|--:|--:|--:|--:|--:|--:|--:|"]
    total = collections.Counter()
    for name, count in counts.items():
        own = [outcome for outcome in outcomes if outcome.operation == name]
        by = collections.Counter(outcome.verdict.split(":")[0] for outcome in own)
        row = [count, len(own), by["reported"], by["coped"], by["accepted"], by["not reached"], by["finding"]]
        total.update(dict(enumerate(row)))
        lines.append(f"| {name} | " + " | ".join(map(str, row)) + " |")
    lines.append("| **all** | " + " | ".join(str(total[column]) for column in range(7)) + " |")
    reasons = collections.Counter(outcome.verdict.split(": ", 1)[1] for outcome in outcomes if outcome.verdict.startswith("accepted"))
    lines += ["", "Accepted:", ""] + [f"- {count} times: {reason}" for reason, count in reasons.most_common()]
    return "\n".join(lines) + "\n"


def main() -> int:
    parser = argparse.ArgumentParser(prog="faults")
    parser.add_argument("--command", action="append", help="only operations whose name contains this", default=[])
    parser.add_argument("--every", type=int, default=1, metavar="N", help="only every nth fault")
    parser.add_argument("--build", type=Path, default=_ROOT / "build" / "release", help="build directory")
    parser.add_argument("--workers", type=int, default=6, help="devices at once; most of their time is waiting")
    parser.add_argument("--list", action="store_true", help="only name the operations")
    parser.add_argument("--results", type=Path, help="a file that keeps every outcome, as lines; what stands in it is not tried again")
    parser.add_argument("--seconds", type=float, default=1e9, help="begin no other fault after this time")
    parser.add_argument("--report", type=Path, help="the document whose table of faults is written anew")
    options = parser.parse_args()
    operations = [operation for operation in OPERATIONS
                  if not options.command or any(text in operation.name for text in options.command)]
    if options.list or not operations:
        print("\n".join(operation.name for operation in operations))
        return 0 if operations else 2
    if os.environ.get("PYTHONHASHSEED") != "0":  # states are compared across processes
        os.execve(sys.executable, [sys.executable, *sys.argv], {**os.environ, "PYTHONHASHSEED": "0"})
    begin, results = time.monotonic(), Results(options.results, commit_of())
    if options.seconds > 0:
        campaign(options.build.resolve(), operations, options.every, options.workers, results, options.seconds)
    text = table(results.counts, results.outcomes)
    print(text)
    if options.report:
        how = "Every fault" if options.every == 1 else f"One of {options.every} faults"
        write_between(options.report, "faults", f"{how} of each operation, {len(results.outcomes)} runs, at commit "
                      f"{', '.join(sorted(results.commits))}:\n\n{text}")
    print(f"{len(results.outcomes)} runs in {time.monotonic() - begin:.0f} s")
    return 1 if any(outcome.findings for outcome in results.outcomes) else 0


if __name__ == "__main__":
    sys.exit(main())

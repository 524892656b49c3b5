#!/usr/bin/env python3
"""Fuzzes with every target for a number of executions, and reports what it did.

    tests/campaign/fuzz.py --executions 1e8 --report docs/reliability.md     # a hundred million, spread over the targets
    tests/campaign/fuzz.py --executions 1e8 --seconds 3600                   # no longer than an hour

Targets differ a thousandfold in speed. Each is run until it has its equal share of the executions, or has had --floor seconds of
processor time, whichever comes first; then those that are faster than all on average go on, in turns of the same length, until
the sum is reached.

Runs at idle priority. What was found out lies in build/fuzz-campaign: the corpus of each target, a file for each input that
brings a target down, and how many executions there were; the same command goes on from there, however it was ended. Ends with
status 1 when something was found.
"""

import argparse
import json
import os
import platform
import re
import resource
import shutil
import subprocess
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
FUZZ = ROOT / "tests/fuzz"
STATE = ROOT / "build/fuzz-campaign"
TURN_SECONDS = 120  # each target in turn, so that none waits for the end
LAST_TURN_SECONDS = 30  # when the fast ones make up for what the slow ones did not reach: they do millions in that time
FLOOR_SECONDS = 300
LONGEST_INPUT = 4096
BEGIN, END = "<!-- fuzzing -->", "<!-- end of fuzzing -->"


def build():
    for words in ["cmake", "--preset", "fuzz"], ["cmake", "--build", "--preset", "fuzz", "-j2"]:
        subprocess.run(words, cwd=ROOT, check=True, stdout=subprocess.DEVNULL)
    return sorted(path for path in (ROOT / "build/fuzz").glob("fuzz_*") if os.access(path, os.X_OK))


def commit():
    return subprocess.run(["git", "rev-parse", "--short=7", "HEAD"], cwd=ROOT, check=True, capture_output=True, text=True).stdout.strip()


def plain_addresses():
    """The sanitizers' runtime is brought down before main, now and then, by kernels that spread addresses wider than it knows."""
    words = ["setarch", platform.machine(), "-R"]
    return words if subprocess.run([*words, "true"], capture_output=True, check=False).returncode == 0 else []


def processor_seconds():
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return used.ru_utime + used.ru_stime


class Target:
    """One program, what it has done so far, and the corpus that it goes on from."""

    def __init__(self, program):
        self.program, self.name = program, program.name.removeprefix("fuzz_")
        self.directory = STATE / self.name
        self.corpus = self.directory / "corpus"
        self.corpus.mkdir(parents=True, exist_ok=True)
        self._file = self.directory / "done.json"
        self.done = {"executions": 0, "seconds": 0, "edges": 0, "features": 0, "inputs": 0, "commits": []}
        if self._file.exists():
            self.done |= json.loads(self._file.read_text())

    def findings(self):
        """The inputs that brought the program down, took too long or leaked."""
        return sorted(path.name for kind in ("crash", "leak", "timeout", "oom") for path in self.directory.glob(f"{kind}-*"))

    def run(self, executions, seconds, built_at):
        """Runs up to so many executions and seconds, and keeps the account, in processor seconds. `built_at`: the program's commit."""
        words = [*plain_addresses(), self.program, f"-runs={executions}", f"-max_total_time={seconds}",
                 f"-max_len={LONGEST_INPUT}", "-timeout=20", "-print_final_stats=1", f"-artifact_prefix={self.directory}/", self.corpus]
        if (FUZZ / "seeds" / self.name).is_dir():
            words.append(FUZZ / "seeds" / self.name)
        if (FUZZ / "dictionaries" / f"{self.name}.dict").exists():
            words.append(f"-dict={FUZZ / 'dictionaries' / self.name}.dict")
        start = processor_seconds()
        with open(self.directory / "log", "w+", encoding="utf-8", errors="replace") as log:
            # What an input has freed is forgotten soon after it: to keep it for long costs a quarter of the speed.
            subprocess.run(words, cwd=self.directory, stdout=log, stderr=log, stdin=subprocess.DEVNULL, check=False,
                           env=os.environ | {"ASAN_OPTIONS": "quarantine_size_mb=8"})
            log.seek(0)
            said = log.read()
        ran = re.findall(r"^stat::number_of_executed_units: (\d+)", said, re.MULTILINE) or re.findall(r"^#(\d+)\t", said, re.MULTILINE)
        states = re.findall(r"cov: (\d+) ft: (\d+) corp: (\d+)", said)
        if not ran and not self.findings():
            sys.exit(f"{self.name} does not run; it says:\n{said[-2000:]}")
        self.done["executions"] += int(ran[-1]) if ran else 0
        self.done["seconds"] += processor_seconds() - start
        if built_at not in self.done["commits"]:
            self.done["commits"].append(built_at)
        if states:
            self.done |= zip(("edges", "features", "inputs"), map(int, states[-1]))
        self._file.write_text(json.dumps(self.done))


def fast(targets):
    """Those that do more in a second than all together do on average."""
    executions, seconds = (sum(target.done[name] for target in targets) for name in ("executions", "seconds"))
    return [target for target in targets if target.done["executions"] * seconds >= executions * target.done["seconds"]]


def campaign(targets, executions, seconds, floor):
    """In turns, until they have done so many and each had its share or its floor, or until the time is over. One that was brought
    down goes on from its corpus."""
    share = -(-executions // len(targets))
    built_at = commit()
    end = time.monotonic() + seconds

    def missing():
        return max(0, executions - sum(target.done["executions"] for target in targets))

    def wants_more(target):
        return target.done["executions"] < share and target.done["seconds"] < floor

    while time.monotonic() < end and (missing() or any(map(wants_more, targets))):
        open_targets = list(filter(wants_more, targets))
        longest = TURN_SECONDS if open_targets else LAST_TURN_SECONDS
        for target in open_targets or fast(targets):
            turn = max(1, int(min(longest, end - time.monotonic())))
            wanted = share - target.done["executions"] if open_targets else missing()
            if wanted and time.monotonic() < end:
                target.run(wanted, turn, built_at)
                print(f"{target.name}: {target.done['executions']:,} in {target.done['seconds']:.0f} s, {missing():,} missing, "
                      f"{len(target.findings())} findings", flush=True)


def table(targets):
    total = sum(target.done["executions"] for target in targets)
    commits = list(dict.fromkeys(commit for target in targets for commit in target.done["commits"]))
    lines = [f"{total:,} executions in {sum(target.done['seconds'] for target in targets) / 3600:.1f} hours of one processor, at "
             f"commit {', '.join(commits)}:", "",
             "| target | executions | seconds | edges | features | inputs kept | findings |", "|---|--:|--:|--:|--:|--:|--:|"]
    for target in targets:
        done = target.done
        columns = [target.name, *(f"{done[name]:,.0f}" for name in ("executions", "seconds", "edges", "features", "inputs")),
                   len(target.findings())]
        lines.append(f"| {' | '.join(map(str, columns))} |")
    return "\n".join(lines)


def write_report(path, text):
    document = path.read_text()
    begin, end = document.index(BEGIN) + len(BEGIN), document.index(END)
    path.write_text(f"{document[:begin]}\n\n{text}\n\n{document[end:]}")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--executions", type=float, default=1e8, help="over all targets; those of earlier runs count")
    parser.add_argument("--seconds", type=float, default=float("inf"), help="how long at most")
    parser.add_argument("--floor", type=float, default=FLOOR_SECONDS, help="processor seconds that a slow target gets in any case")
    parser.add_argument("--target", action="append", help="only this one; may be given several times")
    parser.add_argument("--fresh", action="store_true", help="forget what earlier runs did")
    parser.add_argument("--report", type=Path, help="the document whose table is to be replaced")
    options = parser.parse_args()
    if options.fresh:
        shutil.rmtree(STATE, ignore_errors=True)
    os.sched_setscheduler(0, os.SCHED_IDLE, os.sched_param(0))
    targets = [Target(program) for program in build()]
    if options.target:
        targets = [target for target in targets if target.name in options.target]
    try:
        campaign(targets, int(options.executions), options.seconds, options.floor)
    except KeyboardInterrupt:
        pass
    print(table(targets))
    if options.report:
        write_report(options.report, table(targets))
    return 1 if any(target.findings() for target in targets) else 0


if __name__ == "__main__":
    sys.exit(main())

#!/usr/bin/env python3
"""Fuzzes with every target for a number of executions, and reports what it did.

    tests/campaign/fuzz.py --executions 1e8 --report docs/reliability.md     # a hundred million, spread over the targets
    tests/campaign/fuzz.py --executions 1e8 --seconds 3600                   # no longer than an hour

Runs at idle priority. What was found out lies in build/fuzz-campaign: the corpus of each target, a file for each input that
brings a target down, and how many executions there were; the same command goes on from there, however it was ended. Ends with
status 1 when something was found.
"""

import argparse
import json
import os
import re
import shutil
import subprocess
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
FUZZ = ROOT / "tests/fuzz"
STATE = ROOT / "build/fuzz-campaign"
TURN_SECONDS = 120  # each target in turn, so that none waits for the end
LONGEST_INPUT = 4096
BEGIN, END = "<!-- fuzzing -->", "<!-- end of fuzzing -->"


def build():
    for words in ["cmake", "--preset", "fuzz"], ["cmake", "--build", "--preset", "fuzz", "-j2"]:
        subprocess.run(words, cwd=ROOT, check=True, stdout=subprocess.DEVNULL)
    return sorted(path for path in (ROOT / "build/fuzz").glob("fuzz_*") if os.access(path, os.X_OK))


def commit():
    return subprocess.run(["git", "rev-parse", "--short=7", "HEAD"], cwd=ROOT, check=True, capture_output=True, text=True).stdout.strip()


class Target:
    """One program, what it has done so far, and the corpus that it goes on from."""

    def __init__(self, program):
        self.program, self.name = program, program.name.removeprefix("fuzz_")
        self.directory = STATE / self.name
        self.corpus = self.directory / "corpus"
        self.corpus.mkdir(parents=True, exist_ok=True)
        self._file = self.directory / "done.json"
        self.done = {"executions": 0, "seconds": 0, "edges": 0, "features": 0, "inputs": 0}
        if self._file.exists():
            self.done |= json.loads(self._file.read_text())

    def findings(self):
        """The inputs that brought the program down, took too long or leaked."""
        return sorted(path.name for kind in ("crash", "leak", "timeout", "oom") for path in self.directory.glob(f"{kind}-*"))

    def run(self, executions, seconds):
        """Runs up to so many executions and seconds, and keeps the account."""
        words = [self.program, f"-runs={executions}", f"-max_total_time={seconds}", f"-max_len={LONGEST_INPUT}", "-timeout=20",
                 "-print_final_stats=1", f"-artifact_prefix={self.directory}/", self.corpus]
        if (FUZZ / "seeds" / self.name).is_dir():
            words.append(FUZZ / "seeds" / self.name)
        if (FUZZ / "dictionaries" / f"{self.name}.dict").exists():
            words.append(f"-dict={FUZZ / 'dictionaries' / self.name}.dict")
        start = time.monotonic()
        with open(self.directory / "log", "w+", encoding="utf-8", errors="replace") as log:
            subprocess.run(words, cwd=self.directory, stdout=log, stderr=log, stdin=subprocess.DEVNULL, check=False)
            log.seek(0)
            said = log.read()
        ran = re.findall(r"^stat::number_of_executed_units: (\d+)", said, re.MULTILINE) or re.findall(r"^#(\d+)\t", said, re.MULTILINE)
        states = re.findall(r"cov: (\d+) ft: (\d+) corp: (\d+)", said)
        if not ran and not self.findings():
            sys.exit(f"{self.name} does not run; it says:\n{said[-2000:]}")
        self.done["executions"] += int(ran[-1]) if ran else 0
        self.done["seconds"] += time.monotonic() - start
        if states:
            self.done |= zip(("edges", "features", "inputs"), map(int, states[-1]))
        self._file.write_text(json.dumps(self.done))


def campaign(targets, executions, seconds):
    """In turns, until each target has had its share or the time is over. One that was brought down goes on from its corpus."""
    share = -(-executions // len(targets))
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        open_targets = [target for target in targets if target.done["executions"] < share]
        if not open_targets:
            return
        turn = max(1, int(min(TURN_SECONDS, (end - time.monotonic()) / len(open_targets))))
        for target in open_targets:
            if time.monotonic() < end:
                target.run(share - target.done["executions"], turn)
                print(f"{target.name}: {target.done['executions']:,} of {share:,}, {len(target.findings())} findings", flush=True)


def table(targets):
    total = sum(target.done["executions"] for target in targets)
    lines = [f"{total:,} executions in {sum(target.done['seconds'] for target in targets) / 3600:.1f} hours of one processor, at "
             f"commit {commit()}:", "",
             "| target | executions | edges | features | inputs kept | findings |", "|---|--:|--:|--:|--:|--:|"]
    for target in targets:
        done = target.done
        lines.append(f"| {target.name} | {done['executions']:,} | {done['edges']:,} | {done['features']:,} | {done['inputs']:,} | "
                     f"{len(target.findings())} |")
    return "\n".join(lines)


def write_report(path, text):
    document = path.read_text()
    begin, end = document.index(BEGIN) + len(BEGIN), document.index(END)
    path.write_text(f"{document[:begin]}\n\n{text}\n\n{document[end:]}")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--executions", type=float, default=1e8, help="over all targets; those of earlier runs count")
    parser.add_argument("--seconds", type=float, default=float("inf"), help="how long at most")
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
        campaign(targets, int(options.executions), options.seconds)
    except KeyboardInterrupt:
        pass
    print(table(targets))
    if options.report:
        write_report(options.report, table(targets))
    return 1 if any(target.findings() for target in targets) else 0


if __name__ == "__main__":
    sys.exit(main())

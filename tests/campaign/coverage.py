#!/usr/bin/env python3
"""Which lines and branches of src/ and host/ the unit, console and board tests run through.

    tests/campaign/coverage.py                                # builds, runs the tiers, shows the figures
    tests/campaign/coverage.py --report docs/coverage.md      # also writes the tables there
    tests/campaign/coverage.py --kept --report docs/coverage.md    # of the last run, without running anything
    tests/campaign/coverage.py --tier console --only flash    # adds the console tests with this word to the last run
    tests/campaign/coverage.py --kept --uncovered src/net     # the lines and branches that nothing runs through

A line counts when something in it can run, a branch is a condition that was true or one that was false. The programs count
in a file that they map, so that what is killed, or leaves without ceremony, has counted, too. On the virtual board it is
the ARM program, and the file is one of this machine: what was run through before the board's power was cut has counted. Tests
run side by side with time-outs that are real: a figure may differ by a line from run to run.

Lines of src/ that stay uncovered are listed with their reasons, from coverage_reasons.toml. A reason whose line
is covered now, or gone, fails the report, as does a line without one.
"""

import argparse
import collections
import datetime
import json
import os
import shutil
import subprocess
import sys
import tomllib
from pathlib import Path
from typing import NamedTuple

_ROOT = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(_ROOT / "board")]

# pylint: disable=wrong-import-position
from board_profile import raw_profile  # noqa: E402
from machine import COUNTERS_SIZE  # noqa: E402

_BUILD = _ROOT / "build" / "coverage"
BOARD_BUILD = _ROOT / "build" / "coverage-arm"
_COUNTED = _BUILD / "coverage"  # where the programs count (tests/support/root_session.py, tests/unit/main.cpp)
_KEPT = _BUILD / "counted"      # what each tier has counted
_REASONS = Path(__file__).with_name("coverage_reasons.toml")
_TIERS = ("unit", "console", "board")
_COVERED = ("src/", "host/kesto/", "host/device/")
_PROGRAMS = [_BUILD / "unit_tests", _BUILD / "recovery-loader", _BUILD / "kesto"]
_BOARD_PROGRAMS = [BOARD_BUILD / "recovery-loader"]
# What is judged there is the memory and the instructions of a build that does not count.
_NOT_COUNTED = ("console/test_kesto_description.py::test_memory_does_not_grow_with_the_image", "board/test_bench_device.py")
_MARK, _END = "<!-- coverage -->", "<!-- end of coverage -->"


class Counts(NamedTuple):
    """What was counted in one file: runs by line, and by branch, which is (line, column, value of the condition)."""

    lines: dict[int, int]
    branches: dict[tuple[int, int, bool], int]


class Figure(NamedTuple):
    covered: int
    all: int

    def __str__(self) -> str:
        return f"{100 * self.covered / self.all:.1f} %" if self.all else ""


# ---------------------------------------------------------------------------------------------- running


def run(words: list[str], **options) -> subprocess.CompletedProcess:
    return subprocess.run(words, cwd=_ROOT, check=True, **options)


def build() -> None:
    make("coverage", "unit_tests", "recovery-loader", "kesto", "recorder", "enter_root", "kernel_stand_in")
    build_for_board()
    # The board's own firmware, and what the launcher starts, are those of every day.
    for preset in ("release", "arm"):
        make(preset)
    run(["/usr/bin/python3", "board/artefacts.py"])


def build_for_board() -> None:
    """What board tests put on a board, so that it counts."""
    run(["tools/arm_sysroot.sh", str(_ROOT / "build" / "arm-sysroot")])
    make("coverage-arm", "recovery-loader", "control_device", "loopback")


def make(preset: str, *targets: str) -> None:
    """Builds these targets of a preset, or all."""
    # What counts names its sources: an object out of a cache that checkouts share may name those of another one.
    environment = {**os.environ, "CCACHE_DISABLE": "1"} if preset.startswith("coverage") else None
    run(["cmake", "--preset", preset], stdout=subprocess.DEVNULL)
    run(["cmake", "--build", "--preset", preset, "-j2", *(["--target", *targets] if targets else [])], env=environment)


def run_tier(tier: str, only: str) -> bool:
    """Runs a tier and adds what it has counted to what is kept. Returns whether all tests passed."""
    shutil.rmtree(_COUNTED, ignore_errors=True)
    _COUNTED.mkdir(parents=True)
    # kesto runs on this machine, outside of any device root.
    left_out = [f"--deselect={test}" for test in _NOT_COUNTED]
    environment = dict(os.environ, LLVM_PROFILE_FILE=f"{_COUNTED}/%m%c.profraw")
    counters = _COUNTED / "board.counters"
    if tier == "board":
        counters.write_bytes(bytes(COUNTERS_SIZE))
        environment |= {"BUILD": str(BOARD_BUILD), "BOARD_COUNTERS": str(counters), "KESTO": str(_BUILD / "kesto")}
        words = ["/usr/bin/python3", "-m", "pytest", "-q", "-n", "4", "-p", "no:cacheprovider", "-m", "not root and not long",
                 "-k", only, *left_out, "tests/board", "tests/both"]
    elif tier == "unit":
        words = [str(_BUILD / "unit_tests"), "--gtest_brief=1", f"--gtest_filter={only or '*'}"]
    else:
        words = ["/usr/bin/python3", "-m", "pytest", "-q", "-n", "6", "-p", "no:cacheprovider", f"--build={_BUILD}",
                 "-m", "not board", "-k", only, *left_out, "tests/console", "tests/both"]
    passed = subprocess.run(words, cwd=_ROOT, env=environment).returncode == 0
    if tier == "board":
        (_COUNTED / "board.profraw").write_bytes(raw_profile(BOARD_BUILD / "recovery-loader", counters))
    counted = [str(path) for path in _COUNTED.glob("*.profraw")]
    _KEPT.mkdir(exist_ok=True)
    kept = _KEPT / f"{tier}.profdata"
    before = [str(kept)] if only and kept.exists() else []
    fresh = _KEPT / f"{tier}.new"
    run(["llvm-profdata", "merge", "-sparse", "-o", str(fresh), *counted, *before])
    fresh.rename(kept)
    return passed


# ---------------------------------------------------------------------------------------------- counting


def counts_of(tiers: list[str]) -> dict[str, Counts]:
    """What these tiers have counted together, by file from the root of the sources."""
    profiles, data = [_KEPT / f"{tier}.profdata" for tier in tiers], _KEPT / "together.profdata"
    return joined(counts_in(profiles, data, _PROGRAMS), counts_in(profiles, data, _BOARD_PROGRAMS))


def joined(first: dict[str, Counts], second: dict[str, Counts]) -> dict[str, Counts]:
    """The counts of two processors. Asked for both at once, the compiler's tool shows of a function that has another name for
    each of them only one."""
    def larger(of_first: dict, of_second: dict) -> dict:
        return {place: max(of_first.get(place, 0), of_second.get(place, 0)) for place in sorted({*of_first, *of_second})}

    nothing = Counts({}, {})
    return {file: Counts(*map(larger, first.get(file, nothing), second.get(file, nothing))) for file in sorted({*first, *second})}


def counts_in(profiles: list[Path], data: Path, programs: list[Path]) -> dict[str, Counts]:
    """What these programs have counted in these profiles, by file from the root of the sources. Leaves all of it in `data`."""
    run(["llvm-profdata", "merge", "-sparse", "-o", str(data), *map(str, profiles)])
    words = ["llvm-cov", "export", f"-instr-profile={data}", str(programs[0]), *(f"-object={program}" for program in programs[1:])]
    exported = json.loads(run(words, capture_output=True, text=True).stdout)
    counts = {}
    for file in exported["data"][0]["files"]:
        name = os.path.relpath(file["filename"], _ROOT)
        if not name.startswith(_COVERED):
            continue
        branches, source = collections.Counter(), Path(file["filename"]).read_text().splitlines()
        for line, column, _, _, true, false, *_ in file.get("branches", []):
            if "if constexpr" in source[line - 1]:
                continue  # decided by the compiler
            branches[line, column, True] += true
            branches[line, column, False] += false
        counts[name] = Counts(_line_counts(file["segments"]), dict(branches))
    return counts


def _line_counts(segments: list) -> dict[int, int]:
    """A line has run as often as the busiest region that begins in it, or that reaches into it from before."""
    by_line = collections.defaultdict(list)
    for segment in segments:
        by_line[segment[0]].append(segment)
    lines, wrapped = {}, None  # the region that the line begins in
    if not segments:
        return lines
    for line in range(segments[0][0], segments[-1][0] + 1):
        own = by_line.get(line, [])
        # line, column, count, has a count, is the start of a region, is a gap
        starts = [segment for segment in own if segment[4] and segment[3] and not segment[5]]
        mapped = bool(starts) or (wrapped is not None and wrapped[3] and not (own and not own[0][3] and own[0][4]))
        if mapped:
            inherited = wrapped[2] if wrapped is not None and wrapped[3] else 0
            lines[line] = max([inherited, *(segment[2] for segment in starts)])
        if own:
            wrapped = own[-1]
    return lines


def folder_of(file: str) -> str:
    return "/".join(file.split("/")[:2])


def figures(counts: dict[str, Counts], wanted) -> tuple[Figure, Figure]:
    """Lines and branches of the files that are wanted."""
    chosen = [own for file, own in counts.items() if wanted(file)]
    lines = [count for own in chosen for count in own.lines.values()]
    branches = [count for own in chosen for count in own.branches.values()]
    return (Figure(sum(map(bool, lines)), len(lines)), Figure(sum(map(bool, branches)), len(branches)))


# ---------------------------------------------------------------------------------------------- report


def uncovered_lines(counts: dict[str, Counts], top: str) -> dict[tuple[str, str], list[int]]:
    """The lines below `top` that nothing ran through, by file and what stands in them. A brace is no line."""
    found = collections.defaultdict(list)
    for file, own in sorted(counts.items()):
        if not file.startswith(top):
            continue
        source = (_ROOT / file).read_text().splitlines()
        for line, count in sorted(own.lines.items()):
            text = source[line - 1].strip()
            if count == 0 and text.strip("{}; "):
                found[file, text].append(line)
    return dict(found)


def commit_text() -> str:
    commit = run(["git", "rev-parse", "--short=10", "HEAD"], capture_output=True, text=True).stdout.strip()
    changed = run(["git", "status", "--porcelain", "--", "src", "host"], capture_output=True, text=True).stdout.strip()
    return f"{commit}, with changes" if changed else commit


def make_report() -> tuple[str, list[str]]:
    """The tables, and what is wrong with them."""
    together = counts_of(list(_TIERS))
    alone = {tier: counts_of([tier]) for tier in _TIERS}
    lines = [f"At commit {commit_text()}, {datetime.date.today()}:", "",
             "| folder | lines | units alone | console alone | board alone | together | branches | together |",
             "|---|--:|--:|--:|--:|--:|--:|--:|"]

    def row(title: str, wanted) -> str:
        of_lines, of_branches = figures(together, wanted)
        each = [str(figures(alone[tier], wanted)[0]) or "0.0 %" for tier in _TIERS]
        return f"| {title} | {of_lines.all} | {' | '.join(each)} | {of_lines} | {of_branches.all} | {of_branches} |"

    for folder in sorted({folder_of(file) for file in together}):
        lines.append(row(f"`{folder}/`", lambda file: folder_of(file) == folder))
    for top in ("src", "host"):
        lines.append(row(f"**`{top}/`**", lambda file: file.startswith(top + "/")))
    reasons = {(entry["file"], entry["code"]): entry["reason"] for entry in
               tomllib.loads(_REASONS.read_text()).get("line", [])} if _REASONS.exists() else {}
    bare = uncovered_lines(together, "src/")
    problems = [f"{file}:{numbers[0]}: nothing runs through it, and there is no reason why: {text}"
                for (file, text), numbers in bare.items() if (file, text) not in reasons]
    problems += [f"{file}: has a reason but is covered, or gone: {text}" for file, text in reasons if (file, text) not in bare]
    lines += ["", "Lines of `src/` that no tier runs through:", ""]
    by_reason = collections.defaultdict(list)
    for (file, text), numbers in bare.items():
        by_reason[reasons.get((file, text), "no reason was found yet")].append((file, text, len(numbers)))
    for reason, places in by_reason.items():
        lines.append(f"- {reason[0].upper()}{reason[1:]}.")
        lines += [f"  - `{file}`: `{text}`{f' ({count} times)' if count > 1 else ''}" for file, text, count in places]
    return "\n".join(lines) + "\n", problems


def show_uncovered(top: str) -> None:
    counts = counts_of(list(_TIERS))
    for file, own in sorted(counts.items()):
        if not file.startswith(top):
            continue
        source = (_ROOT / file).read_text().splitlines()
        for line, count in sorted(own.lines.items()):
            if count == 0:
                print(f"{file}:{line}: never: {source[line - 1].strip()}")
        for (line, column, value), count in sorted(own.branches.items()):
            if count == 0 and own.lines.get(line, 1) > 0:
                print(f"{file}:{line}:{column}: never {str(value).lower()}: {source[line - 1].strip()}")


def write_report(path: Path, report: str) -> None:
    """Puts the report between the two marks of the page."""
    before, _, rest = path.read_text().partition(_MARK)
    _, _, after = rest.partition(_END)
    path.write_text(f"{before}{_MARK}\n\n{report}\n{_END}{after}")


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--tier", choices=_TIERS, help="runs this one only")
    parser.add_argument("--only", default="", help="filter of the unit tests, or word of pytest's -k: adds to what is kept")
    parser.add_argument("--kept", action="store_true", help="runs nothing")
    parser.add_argument("--uncovered", metavar="PATH", help="shows what nothing runs through, below this path")
    parser.add_argument("--report", type=Path, help="a page with the marks of the tables")
    arguments = parser.parse_args()
    passed = True
    if not arguments.kept:
        build()
        for tier in [arguments.tier] if arguments.tier else _TIERS:
            passed = run_tier(tier, arguments.only) and passed
    if arguments.uncovered:
        show_uncovered(arguments.uncovered)
        return 0
    missing = [tier for tier in _TIERS if not (_KEPT / f"{tier}.profdata").exists()]
    if missing:
        print(f"nothing is kept yet of: {', '.join(missing)}")
        return 1
    report, problems = make_report()
    print(report)
    if arguments.report:
        write_report(arguments.report, report)
        print("\n".join(problems) or "every uncovered line has its reason")
    return 1 if problems or not passed else 0


if __name__ == "__main__":
    sys.exit(main())

"""The judge on a small part of the device's code: every operator's mistake is noticed, and what no test asserts survives."""

import collections
import os
import shutil
import threading
from pathlib import Path

import pytest

from judge import Build, Judge
from places import OPERATORS, find_places

_ROOT = Path(__file__).resolve().parents[2]
_TESTED = ("parse.cpp", "text_buffer.h")


@pytest.fixture(scope="module")
def build(tmp_path_factory):
    """The helpers of the device that only compute, and the unit tests of two of them, built as the whole is."""
    root = tmp_path_factory.mktemp("part")
    for name in ("cmake", "tests/support"):
        shutil.copytree(_ROOT / name, root / name)
    for path in (_ROOT / "src").rglob("*"):
        if path.suffix in (".h", ".txt") or path.parent.name == "util":
            (root / path.relative_to(_ROOT)).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(path, root / path.relative_to(_ROOT))
    (root / "src/cli/main.cpp").write_text("int main() { return 0; }\n")
    (root / "tests/unit").mkdir()
    for name in (*(f"{Path(tested).stem}_test.cpp" for tested in _TESTED), "main.cpp", "device_root.cpp", "device_root.h"):
        shutil.copy(_ROOT / "tests/unit" / name, root / "tests/unit" / name)
    shutil.copy(_ROOT / "tests/CMakeLists.txt", root / "tests/CMakeLists.txt")
    whole = (_ROOT / "CMakeLists.txt").read_text()
    # Versions and packages are of the whole.
    (root / "CMakeLists.txt").write_text("".join(line for line in whole.splitlines(keepends=True)
                                                 if "version.cmake" not in line and "packaging" not in line))
    build = Build(root)
    build.directory.mkdir(parents=True)
    build.configure()
    build.make(2)
    return build


@pytest.fixture(scope="module")
def places(build):
    """By operator, in the files that are tested."""
    by_operator = collections.defaultdict(list)
    for file in (f"src/util/{tested}" for tested in _TESTED):
        for place in find_places(build.root, file, build.flags(file)):
            by_operator[place.operator].append(place)
    return by_operator


def test_sources_can_be_read_before_anything_is_built(tmp_path):
    """One includes a header that is made."""
    fresh = Build(_ROOT)
    fresh.directory = tmp_path
    fresh.configure()
    assert find_places(_ROOT, "src/commands/builtins.cpp", fresh.flags("src/commands/builtins.cpp"))


@pytest.fixture
def judge(build):
    return Judge(build, os.getpid(), threading.Event())


@pytest.mark.parametrize("operator, code, after", [
    ("comparison", "if (high < 0) {", ">="),
    ("boundary", "if (number > 255) {", ">="),
    ("constant", "if (number > 255) {", "256"),
    ("removed call", "vsnprintf(text_, Size, format, args);", ""),
    ("swapped arguments", 'if (sscanf(text, "%u.%u.%u.%u", &octet[0], &octet[1], &octet[2], &octet[3]) != 4) {', "&octet[1], &octet[0]"),
    ("changed text", 'if (length < 7 || length > 15 || strspn(text, "0123456789.") != length) {', '"0123466789."'),
    ("dropped guard", "if (number > 255) {", "false && (number > 255)"),
])
def test_a_mistake_is_noticed(judge, places, operator, code, after):
    assert operator in OPERATORS
    place, *_ = [place for place in places[operator] if place.source_line == code and place.after == after]
    verdict = judge.judge(place)
    assert verdict.verdict == "killed"
    assert verdict.by.startswith("unit ")


def test_what_no_test_runs_through_survives(judge, places, build):
    file = "src/util/elapsed.cpp"
    place = next(place for place in find_places(build.root, file, build.flags(file)) if place.operator == "constant")
    assert judge.judge(place).verdict == "survived"

"""Commands that documents show without their output: each is run, here or by what is named here."""

import os
import shutil
import subprocess
import sys

import pytest

from documents import ROOT, TYPED, commands, documents, sessions
from terminals import PATIENCE, RunTerminal

# In whose place a tier of ./test, or a test of the short form where it takes hours, does it: (file, what stands there).
ELSEWHERE = {
    "./test": (".ci/run", "./test"),
    "cmake --preset release && cmake --build --preset release -j2": (
        "tools/test_tiers.sh", 'cmake --build --preset "$1" -j2'),
    "cmake --preset arm && cmake --build --preset arm -j2": ("tools/test_tiers.sh", 'cmake --build --preset "$1" -j2'),
    "/usr/bin/python3 -m pytest -n 4 --program=build/asan/recovery-loader tests/console": (
        "tools/test_tiers.sh", "--program=build/asan/recovery-loader tests/console"),
    "/usr/bin/python3 -m pytest -n 4 tests/both -m root": ("tools/test_tiers.sh", "tests/console tests/both"),
    "tools/arm_device_root.sh && /usr/bin/python3 -m pytest -n 4 --build=build/arm-root tests/console": (
        "tools/test_tiers.sh", "--build=build/arm-root tests/console"),
}
# What takes hours, by how it begins: the test that does it in short.
IN_SHORT = {
    "tests/mutation/run ": ("tests/mutation/test_judge.py", "judge"),
    "tests/campaign/power.py ": ("tests/board/test_power_campaign.py", "import power"),
    "tests/campaign/fuzz.py ": ("tools/test_tiers.sh", "FUZZ_SECONDS"),
    # Not in ./test: what it said, and of which commit, stands in the document.
    "tools/valgrind_device_root.sh && ": ("docs/reliability.md", "Under Debian's valgrind"),
}
# What is run here as it stands. Whoever shows another command says here or above what runs it.
HERE = [
    ". tools/setup.sh && setup_need build test",
    "build/release/unit_tests --gtest_filter='mtd*'",
    "/usr/bin/python3 -m pytest -n 4 tests/console -k startup",
    "/usr/bin/python3 -m pytest tests/both -m root -k show",
    "./run --help",
]
# By a test below.
RECIPE = [command for _, command in commands((ROOT / "docs" / "porting.md").read_text(encoding="utf-8"))
          if "toolchain.cmake" in command or command == "cmake --build build" or "cmake --install" in command]
STRIP = "arm-linux-gnueabi-strip build/arm/recovery-loader"
DEMO = "./run --demo"
LAB = "pytest --lg-env integrations/labgrid/virtual-board.yaml integrations/labgrid"


def shown():
    """{command: where it is shown}"""
    found = {}
    for path in documents():
        for line, command in commands(path.read_text(encoding="utf-8")):
            found.setdefault(command, f"{path.relative_to(ROOT)}:{line}")
    return found


def typed():
    """The commands of all sessions, which are run."""
    return [step.typed for path in documents() for block in sessions(path.read_text(encoding="utf-8")) if block.kind in TYPED
            for step in block.steps() if step.typed]


def is_typed(command, sessions_have):
    """Whether a session has it, or goes on with more words; kesto is on the search path there."""
    words = command.removeprefix("build/release/")
    return any(line == words or line.startswith(words + " ") for line in sessions_have)


def nobody_runs():
    """Commands of documents that stand nowhere here."""
    sessions_have = typed()
    return {command: where for command, where in shown().items()
            if command not in (*ELSEWHERE, *HERE, *RECIPE, STRIP, DEMO, LAB) and not command.startswith(tuple(IN_SHORT))
            and not is_typed(command, sessions_have)}


def run(words, directory=ROOT):
    """A command of a document, which has to end well."""
    done = subprocess.run(["/bin/bash", "-c", words], cwd=directory, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, timeout=PATIENCE, check=False)
    assert done.returncode == 0, f"{words}\n{done.stdout[-3000:]}"
    return done.stdout


def test_every_command_that_is_shown_is_run():
    assert nobody_runs() == {}


@pytest.mark.parametrize("command", HERE)
def test_a_command_that_is_shown_ends_well(command):
    run(command)


def test_what_is_run_elsewhere_stands_there_and_is_shown():
    for path, words in (*ELSEWHERE.values(), *IN_SHORT.values()):
        assert words in (ROOT / path).read_text(encoding="utf-8"), (path, words)
    assert len(RECIPE) == 3 and {*ELSEWHERE, *HERE, *RECIPE, STRIP, DEMO, LAB} <= set(shown())


def test_the_recipe_of_a_distribution(tmp_path):
    """In a checkout that has not been built, with a toolchain file of its own: the program comes out, and starts."""
    for entry in ROOT.iterdir():
        if entry.name != "build":
            (tmp_path / entry.name).symlink_to(entry)
    (tmp_path / "build").mkdir()
    (tmp_path / "build" / "arm-sysroot").symlink_to(ROOT / "build" / "arm-sysroot")
    (tmp_path / "toolchain.cmake").write_text("include(${CMAKE_CURRENT_LIST_DIR}/cmake/arm-linux-gnueabi.cmake)\n", encoding="ascii")
    for command in RECIPE:
        run(command, tmp_path)
    run(f"tools/check_arm_start.sh {tmp_path}/root/usr/sbin/recovery-loader")


def test_the_program_is_stripped(tmp_path):
    """A copy: other tests look at the file itself."""
    (tmp_path / "build" / "arm").mkdir(parents=True)
    copy = tmp_path / "build" / "arm" / "recovery-loader"
    shutil.copy(ROOT / "build" / "arm" / "recovery-loader", copy)
    before = copy.stat().st_size
    run(STRIP, tmp_path)
    assert copy.stat().st_size <= before and "no symbols" in run(f"arm-linux-gnueabi-nm {copy} 2>&1")


@pytest.mark.long
@pytest.mark.xdist_group("tutorial")
def test_the_demonstration(tmp_path):
    """On a terminal, without anybody at it. ./run would only set up and build before that."""
    terminal = RunTerminal(["--demo"], tmp_path, tmp_path / "state")
    try:
        terminal.screen.wait(lambda: "[demonstration: " in terminal.screen.text, "the end of the demonstration")
        assert "[demonstration: all as it should be]" in terminal.screen.text
        assert "Firmware" in terminal.screen.text and "Done: FAILURE" in terminal.screen.text
    finally:
        terminal.close()


@pytest.mark.long
@pytest.mark.xdist_group("one board")
def test_the_example_of_the_lab(device, workplace, tmp_path):
    """On the board of the documents, with an image that does not take the serial line minutes."""
    home = ROOT / "integrations" / "labgrid"
    text = (home / "virtual-board.yaml").read_text(encoding="utf-8")
    image = workplace / "image.rom"
    run(f"{ROOT}/build/release/kesto image build -o {image} --version 4.1.0.0R1 --code TK --kernel uImage", workplace)
    for there, here in ((' !template "$BASE/../../build/board/state/ttyS1"', f" {device.port.removeprefix('unix:')}"),
                        ("../../build/board/firmware.img", str(image)), ("../../build/release/kesto", f"{ROOT}/build/release/kesto"),
                        ("kesto_driver.py", str(home / "kesto_driver.py")), ("limit: 300", f"limit: {PATIENCE:.0f}")):
        assert there in text
        text = text.replace(there, here)
    (tmp_path / "virtual-board.yaml").write_text(text, encoding="utf-8")
    words = LAB.replace("integrations/labgrid/virtual-board.yaml", str(tmp_path / "virtual-board.yaml"))
    output = run(words.replace("pytest ", f"{sys.executable} -m pytest -q -p no:cacheprovider -c {os.devnull} --rootdir={home} ", 1))
    assert " passed" in output

"""The counting of tests/campaign/coverage.py on a board: what the program has run through is known after the power was cut."""

import pytest

import coverage
from board_profile import raw_profile
from board_session import BoardSession
from machine import COUNTERS_SIZE
from texts import SUCCESS

PROGRAM = coverage.BOARD_BUILD / "recovery-loader"


@pytest.fixture(scope="module")
def counting(tmp_path_factory):
    """A board at its prompt whose program counts. Returns (session, file of the counters)."""
    coverage.build_for_board()
    directory = tmp_path_factory.mktemp("counting")
    counters = directory / "counters"
    counters.write_bytes(bytes(COUNTERS_SIZE))
    with pytest.MonkeyPatch.context() as patch, BoardSession(directory / "board", build=coverage.BOARD_BUILD) as dev:
        patch.setenv("BOARD_COUNTERS", str(counters))
        dev.boot()
        yield dev, counters


def counted(counters, file, line, directory):
    """How often the one line of a source that reads so was run through."""
    profile = directory / "board.profraw"
    profile.write_bytes(raw_profile(PROGRAM, counters))
    counts = coverage.counts_in([profile], directory / "board.profdata", [PROGRAM])[file]
    source = (coverage.BOARD_BUILD.parents[1] / file).read_text(encoding="utf-8").splitlines()
    (found,) = [number for number, text in enumerate(source, 1) if text.strip() == line]
    return counts.lines[found]


def test_what_ran_before_a_power_cut_has_counted(counting, tmp_path):
    dev, counters = counting
    clean = "src/commands/flash.cpp", "bool clean_partition(const mtd_partition& row) {"
    assert counted(counters, *clean, tmp_path) == 0
    assert dev.command("set bootenv bootbank 2").endswith(SUCCESS)
    assert counted(counters, *clean, tmp_path) == 0
    dev.board.cut_power_at("erase", "param_space")
    dev.type("flash clean serial")
    dev.board.wait_off(dev.patience)
    # kernel_single was erased, the next one begun.
    assert counted(counters, *clean, tmp_path) == 2
    assert counted(counters, "src/cli/main.cpp", "int main() {", tmp_path) == 1


def test_a_program_that_does_not_count_has_no_profile(tmp_path):
    with pytest.raises(LookupError, match="was not built to count"):
        raw_profile(coverage.BOARD_BUILD.parent / "arm" / "recovery-loader", tmp_path / "counters")

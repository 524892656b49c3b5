"""The campaign of power cuts in short (tests/campaign/power.py): what it judges by, and a few cuts of three scenarios."""

import contextlib
import copy

import pytest

import flash_journal
import layout
import power
import power_judge
import power_scenarios
import real_images
from board_session import DEFAULT_ENVIRONMENT, NODES
from chip_files import ChipFiles
from flash_journal import Operation, Replay
from texts import SUCCESS

GEOMETRY = layout.NAND_GEOMETRIES["128k"]
UBI, KERNEL_2 = layout.PARTITIONS["ubi0"], layout.PARTITIONS["kernel_2"]


@pytest.fixture
def chips(tmp_path):
    """Flash of a device that is not started."""
    return ChipFiles(tmp_path / "device", "128k")


def operation(name, partition, offset=0, size=0, data=b""):
    row = layout.PARTITIONS[partition]
    return Operation(name, partition, row.chip, row.offset + offset, size or len(data), data, 0.0)


# The journal.

def test_journal_leads_to_what_the_flash_holds(dev):
    dev.board.flash_write("bootenv_1", real_images.environment())
    dev.board.save_flash(dev.board.directory / "before")
    dev.board.journal_start()
    assert dev.command("set bootenv bootbank 2").endswith(SUCCESS)
    operations = flash_journal.parse(dev.board.journal_end())
    assert [(one.partition, one.name) for one in operations] == [("bootenv_1", name) for name in ("unlock", "erase", "write", "lock")]
    flash = Replay(dev.board.directory / "before", operations, GEOMETRY)
    flash.go_to(4)
    assert flash.read("bootenv_1") == dev.board.flash_read("bootenv_1")
    assert dev.environment() == DEFAULT_ENVIRONMENT | {"bootbank": "2"}
    # And what it says of a cut is what a cut does.
    dev.board.flash_write("bootenv_1", real_images.environment())
    dev.board.cut_power_at("erase", "bootenv_1")
    dev.type("set bootenv bootbank 2")
    dev.board.wait_off(dev.patience)
    flash.go_to(1, 0x8000)
    assert flash.read("bootenv_1") == dev.board.flash_read("bootenv_1")
    dev.boot()


def test_journal_is_off_until_it_is_asked_for(dev):
    assert dev.command("set bootenv bootbank 2").endswith(SUCCESS)
    assert dev.board.journal_end() == b""


def test_operations_are_done_again(chips):
    chips.flash_write("kernel_2", b"\xf0" * 8)
    chips.flash_write("ubi0", b"\xf0" * GEOMETRY.erase_block)
    chips.nand_mark_bad(0)
    flash = Replay(chips.directory, [
        operation("unlock", "kernel_2", size=65536), operation("write", "kernel_2", data=b"\x3c" * 8),
        operation("write", "ubi0", data=b"\x3c" * GEOMETRY.page), operation("erase", "ubi0", size=GEOMETRY.erase_block),
        operation("erase", "kernel_2", size=layout.NOR_ERASE_BLOCK)], GEOMETRY)

    def found(number, done=0):
        flash.go_to(number, done)
        return flash.read("kernel_2", 0, 8), flash.read("ubi0", 0, 4), flash.read("ubi0", GEOMETRY.erase_block - 4, 4)

    kept, programmed, erased = b"\xf0", b"\x30", b"\xff"
    states = {(0, 0): (kept * 8, kept * 4, kept * 4), (1, 0): (kept * 8, kept * 4, kept * 4),
              (1, 3): (programmed * 3 + kept * 5, kept * 4, kept * 4),
              (2, 1): (programmed * 8, programmed + kept * 3, kept * 4),
              (3, 0): (programmed * 8, programmed * 4, kept * 4),
              (3, 65536): (programmed * 8, erased * 4, kept * 4),
              (5, 0): (erased * 8, erased * 4, erased * 4)}
    for places in (states, reversed(states)):
        for place in places:
            assert found(*place) == states[place], place
    flash.go_to(3, 1)
    other = ChipFiles(chips.directory.parent / "other", "128k")
    flash.lay_into(other)
    assert other.flash_read("kernel_2") == flash.read("kernel_2") and other.flash_read("ubi0") == flash.read("ubi0")
    assert chips.nand_bad_blocks() == [0] and not other.nand_bad_blocks(), "an erase that was cut short has erased spare bytes"


def test_what_lies_in_flash_while_the_board_stands_still_is_what_a_cut_leaves(dev):
    dev.board.save_flash(dev.board.directory / "before")
    flash = Replay(dev.board.directory / "before", [], GEOMETRY)
    busy = "while flash_erase -q {0} 0 0 && dd if=/dev/urandom of={0} bs=64k count=9; do :; done"
    dev.board.sh(f"({busy.format(NODES['kernel_2'])}) </dev/null >/dev/null 2>&1 &", check=True)
    dev.wait_operation("write", "kernel_2", 1)
    with dev.board.halted():
        flash.take_from(dev.board)
        assert flash.read("kernel_2") == dev.board.flash_read("kernel_2") != b"\xff" * KERNEL_2.size
    # It goes on.
    done = dev.board.flash_operations()["kernel_2"]["erase"]
    dev.wait_operation("erase", "kernel_2", done)
    with dev.board.halted():
        flash.take_from(dev.board)
        dev.board.kill()
    assert {name: flash.read(name) for name in NODES} == {name: dev.board.flash_read(name) for name in NODES}
    dev.boot()


# The judge.

@pytest.fixture
def laid(chips):
    """A device that boots A from bank 1, has B in bank 2, and is judged as it is. Returns (flash, judge)."""
    power_scenarios.scenarios()["set bootenv bootbank 2"].lay(chips)
    return chips, power_judge.Judge(power.FlashOf(chips), GEOMETRY)


def judged(laid):
    state = laid[1](power.FlashOf(laid[0]))
    return state["boots"], state["torn"], state["old"]


def test_whole_device_is_whole(laid):
    assert judged(laid) == ("bank 1", False, True)


@pytest.mark.parametrize("partition, offset, boots, torn, old", [
    ("bootenv_1", 4, "shell", True, True),
    ("kernel_1", 5000, "shell", False, False),
    ("config_loader", 70, "bank 1", False, True),
    ("kernel_2", 5000, "bank 1", False, True),
])
def test_flipped_bit_is_seen(laid, partition, offset, boots, torn, old):
    byte = laid[0].flash_read(partition, offset, 1)[0]
    laid[0].flash_write(partition, bytes([byte ^ 1]), offset)
    assert judged(laid) == (boots, torn, old)


def test_flipped_bit_in_a_volume_is_seen(laid):
    """Blocks 0 and 1 hold the table of volumes, 2 the first block of the first volume."""
    at = 2 * GEOMETRY.erase_block + 2 * GEOMETRY.page + 5
    laid[0].flash_write("ubi0", bytes([laid[0].flash_read("ubi0", at, 1)[0] ^ 1]), at)
    assert judged(laid) == ("shell", False, False)


def test_volumes_without_their_table_are_none(laid):
    """One of its two copies is enough."""
    laid[0].flash_write("ubi0", b"\xff" * GEOMETRY.erase_block)
    assert judged(laid) == ("bank 1", False, True)
    laid[0].flash_write("ubi0", b"\xff" * GEOMETRY.erase_block, GEOMETRY.erase_block)
    assert judged(laid) == ("shell", False, False)


def test_what_is_known_of_flash_is_what_is_read(laid):
    """Of the UBI partition only blocks that may be others are read again."""
    block = GEOMETRY.erase_block
    flash = Replay(laid[0].directory, [
        operation("unlock", "kernel_1", size=65536), operation("write", "ubi0", 2 * block + 2 * GEOMETRY.page, data=b"\0\0"),
        operation("erase", "ubi0", 0, block), operation("erase", "ubi0", block, block),
        operation("erase", "kernel_1", size=65536)], GEOMETRY)
    places = [(0, 0), (1, 0), (1, 1), (2, 0), (2, block // 2), (3, 0), (3, block // 2), (4, 0), (4, 9), (5, 0)]
    seen = {}
    for place in [*places, *reversed(places)]:
        flash.go_to(*place)
        known, read = laid[1](flash, flash.version, flash.block_version), laid[1](flash)
        assert [known[what] for what in ("boots", "torn", "old")] == [read[what] for what in ("boots", "torn", "old")], place
        seen[place] = known["old"]
    assert [seen[place] for place in places] == [True] * 2 + [False] * 8
    # The same when it is taken from a board, whatever it is.
    moment = Replay(laid[0].directory, [], GEOMETRY)
    for place, old in (((1, 0), True), ((2, 0), False)):
        flash.go_to(*place)
        other = ChipFiles(laid[0].directory.parent / "other", "128k")
        flash.lay_into(other)
        moment.take_from(other)
        assert laid[1](moment, moment.version, moment.block_version)["old"] == old


def test_nothing_boots(laid):
    laid[0].flash_erase("bootenv_1", "config_loader")
    assert judged(laid) == ("nothing", True, True)
    assert power.judged_wrong(power_scenarios.scenarios()["serial archive"], laid[1](power.FlashOf(laid[0]))) == ["nothing boots"]


def test_results_of_before_and_of_now_are_sorted_together(laid, tmp_path):
    """Those of before come out of a file."""
    recording = power.Recording.__new__(power.Recording)
    recording.scenario, recording.operations = power_scenarios.scenarios()["set bootenv bootbank 2"], [
        operation("erase", "bootenv_1", size=65536), operation("write", "bootenv_1", data=b"\0")]
    state = {"scenario": recording.scenario.name, "check": "bytes", **laid[1](power.FlashOf(laid[0])), "wrong": []}
    results = power.Results(tmp_path / "results.jsonl")
    results.add({**state, "cut": (1, 0)})
    again = power.Results(tmp_path / "results.jsonl")
    again.add({**state, "cut": (0, 0)})
    assert [cut for _, cut in power.tasks_of(recording, again, ("repeat",), {})] == [(0, 0), (1, 0)]


def test_samples_are_spread():
    assert power.spread(0) == [] and power.spread(1) == [0]
    assert sorted(power.spread(100)) == list(range(100))
    assert all(any(at // 25 == quarter for at in power.spread(100)[:5]) for quarter in range(4))


# Some cuts.

@pytest.fixture(scope="module")
def recorded(tmp_path_factory):
    """Scenarios that were run undisturbed, and their cuts judged by their bytes."""
    made, bench = {}, power.Bench()

    def make(name):
        if name not in made:
            directory = tmp_path_factory.mktemp("campaign")
            recording = power.record(directory / "scenario", power_scenarios.scenarios()[name], bench)
            results = power.Results(directory / "results.jsonl")
            power.judge_all(recording, results, recording.cuts(randoms=20))
            made[name] = recording, results
        return made[name]
    yield make
    bench.close()


@pytest.mark.parametrize("name, changed, boots", [
    # A half of the environment is enough when the other one is erased anyway.
    ("set bootenv bootbank 2", "bootenv_1", {"bank 1": 2, "shell": 2, "bank 2": 3}),
    ("network kernel", "kernel_2", None),
])
def test_cuts_of_a_scenario(recorded, name, changed, boots):
    recording, results = recorded(name)
    # How many pieces a kernel is written in depends on how fast it comes; what is erased for it does not.
    assert sum(one.size for one in recording.operations if one[:2] == ("erase", changed)) == layout.PARTITIONS[changed].size
    lines = [line for line in results.lines if line["check"] == "bytes"]
    assert sorted(tuple(line["cut"]) for line in lines) == sorted(recording.cuts(randoms=20))
    assert len(lines) > len(recording.cuts()) > len(recording.operations)
    assert not [line for line in lines if line["wrong"]]
    planned = {tuple(line["cut"]): line["boots"] for line in lines if tuple(line["cut"]) in recording.cuts()}
    if boots:
        assert {word: list(planned.values()).count(word) for word in planned.values()} == boots
    counts = {"boot": 2, "repeat": 1, "cut": 1, "kill": 1, "moment": 1}
    tasks = power.tasks_of(recording, results, counts, counts)
    assert len(tasks) == 6
    power.campaign({name: recording}, results, counts, counts, 1, 1e9)
    done = [line for line in results.lines if line["check"] != "bytes"]
    moments = [line for line in done if line["check"] == "moment"]
    assert sorted(line["check"] for line in done if line not in moments) == ["boot", "boot", "cut", "kill", "repeat"]
    assert moments and "booted" in moments[0]
    assert not [line for line in done if line["wrong"]], done
    # What was done is not done again.
    again = power.Results(results._path)  # pylint: disable=protected-access
    assert not power.tasks_of(recording, again, counts, counts)
    table = power.table({name: recording}, again)
    assert f"| {name} | {len(recording.operations)} | {len(lines)} |" in table and f"| {len(moments)} | 1 | 0 |" in table


def test_a_cut_that_does_not_come_does_not_count(recorded, tmp_path):
    """A run that writes in larger pieces has fewer operations: here one less than the other is said to have had."""
    name = "set bootenv bootbank 2"
    longer = copy.copy(recorded(name)[0])
    longer.operations = [*longer.operations, longer.operations[1]]
    flash = longer.replay()
    with contextlib.closing(power.Bench()) as bench:
        bench.scenario = longer.scenario
        judge = power_judge.Judge(flash, GEOMETRY)
        last = len(longer.operations) - 1
        assert [power.check_cut(bench, longer, flash, judge, (number, 0)) for number in (last - 1, last)] == [
            ("", []), (power.NOT_REACHED, [])]
    results = power.Results(tmp_path / "results.jsonl")
    power.judge_all(longer, results, [(last, 0)])
    for how in ("", power.NOT_REACHED):
        results.add({"scenario": name, "check": "cut", "cut": (last, 0), "how": how, "wrong": [], "seconds": 1})
    table = power.table({name: longer}, results)
    assert "| 0 | 0 | 0 | 0 | 1 | 0 | 0 | 0 |" in table and "Cut again: 1 more came to their end" in table

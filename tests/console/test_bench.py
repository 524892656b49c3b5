"""bench/run in short, what it measures on this machine: each row comes to its end, with a figure that can be one. The
device's rows are tests/board/test_bench_device.py."""

import pytest

import figures
from figures import KIB, RATIO, SHORT, Row

pytestmark = pytest.mark.not_emulated(reason="speed of this machine's programs")

# What a busy machine makes of a ratio of times is no more than this far from the truth.
BUSY = (0.005, 500)
# (unit, least, most); a program of C++ is at least a MiB, and does not hold an image of 4 MiB
EXPECTED = {
    "one-shot checksum, times as fast as byte by byte": (RATIO, *BUSY),
    "checksum in pieces of 4 KiB, time relative to one-shot": (RATIO, *BUSY),
    "one-shot checksum, time relative to reading the memory once (memchr)": (RATIO, *BUSY),
    "streaming, throughput relative to dd bs=4096": (RATIO, *BUSY),
    # No faster than the line.
    "kesto install over a line of 92160 bytes per second, throughput relative to that": (RATIO, 0.005, 1.05),
    **{f"peak memory of kesto image {what}, {size} MiB": (KIB, 1024, 65536) for what in ("build", "verify") for size in (1, 4)},
    **{f"peak memory of kesto install, {size} MiB": (KIB, 1024, 65536) for size in (1, 2)},
}


def test_each_row_of_this_machine():
    rows = list(figures.host_rows(SHORT))
    assert [row.what for row in rows] == list(EXPECTED)
    for row in rows:
        unit, least, most = EXPECTED[row.what]
        assert row.unit == unit and row.values and all(least <= value <= most for value in row.values), row


def test_a_row_is_shown_with_its_spread_and_its_limit():
    assert str(Row("speed", [1.5, 0.5, 1.0], RATIO, "at least 1")) == (
        "speed: 1 times (0.5 to 1.5, 3 times)\n  limit: at least 1")
    assert str(Row("size", [108844], "bytes", "131072")) == "size: 108844 bytes\n  limit: 131072"

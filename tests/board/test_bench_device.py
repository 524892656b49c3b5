"""bench/run in short, what it measures of the device's program: each row comes to its end, with a figure that can be one.
Those of this machine are tests/console/test_bench.py."""

import os

import pytest

import figures
from figures import BYTES, CALLS, INSTRUCTIONS, KIB, RATIO, SHORT

# What a busy machine makes of a ratio of times is no more than this far from the truth.
BUSY = (0.005, 500)
# (unit, least, most)
EXPECTED = {
    "checksum, per byte on ARM": (INSTRUCTIONS, 0.25, 1),
    "the device's program": (BYTES, 65536, 131072),
    "the device's program at rest, resident": (KIB, 256, 4096),
    "peak memory above rest, 16 KiB installed": (KIB, 0, 1024),
    "peak memory above rest, 512 KiB installed": (KIB, 0, 1024),
    # A read and a write at least; what starts and ends the program is little.
    "per 4 KiB piece that stands ready": (CALLS, 2, 3.1),
    "per 4 KiB of a network installation, both transfers": (CALLS, 4, 1000),
    # Three for each byte, if they come one by one.
    "per KiB over serial at 80000 bytes per second": (CALLS, 3, 3500),
    "network installation, throughput relative to the transfer alone, kernel": (RATIO, *BUSY),
    "network installation, throughput relative to the transfer alone, rootfs-ubifs-128k": (RATIO, *BUSY),
    "kesto's TFTP service, throughput relative to Debian's tftpd-hpa": (RATIO, *BUSY),
    "kesto's TFTP service, throughput relative to Debian's tftpd-hpa, fetched by the board": (RATIO, *BUSY),
}


def expect_rows(rows, names):
    rows = list(rows)
    assert [row.what for row in rows] == names
    for row in rows:
        unit, least, most = EXPECTED[row.what]
        assert row.unit == unit and row.values and all(least <= value <= most for value in row.values), row


def test_each_row_of_the_device():
    expect_rows(figures.device_rows(SHORT), list(EXPECTED)[:-2])


@pytest.mark.long
@pytest.mark.skipif(os.geteuid() != 0, reason="makes a network of its own, and the server changes its user")
def test_the_rows_of_two_servers():
    expect_rows(figures.fetch_rows(SHORT), list(EXPECTED)[-2:])

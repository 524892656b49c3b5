"""What bench/run measures, a row each: on this machine, and on the virtual board. How much of it, is a Sizes."""

import os
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path
from typing import NamedTuple

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "board"))

from board_fetch import board_fetch_ratios  # noqa: E402
from installation_cost import PATIENCE, installation_cost  # noqa: E402
from kesto_figures import debians_server, peak_memory, tftp_ratios  # noqa: E402
from network_install import network_throughput  # noqa: E402
from serial_line import install_memory, serial_ratio  # noqa: E402
from virtual_board import UART_RATE, Board  # noqa: E402

ROOT = Path(__file__).resolve().parent.parent
RELEASE = ROOT / "build/release"  # with the device root of the tests
ARM = Path(os.environ.get("BUILD", ROOT / "build/arm")).resolve()
SERVER_DIRECTORY = ROOT / "build/tftpd-hpa"

RATIO, KIB, BYTES, CALLS, INSTRUCTIONS = "times", "KiB", "bytes", "system calls", "instructions"


class Row(NamedTuple):
    """A figure: each time it was taken, in its unit, and the limit in words."""

    what: str
    values: list
    unit: str
    limit: str

    def __str__(self):
        shown = f"{self.what}: {statistics.median(self.values):.6g} {self.unit}"
        if len(self.values) > 1:
            shown += f" ({min(self.values):.3g} to {max(self.values):.3g}, {len(self.values)} times)"
        return f"{shown}\n  limit: {self.limit}"


class Sizes(NamedTuple):
    """Bytes, unless their name says otherwise; runs are how often something is measured."""

    checksum: int
    checksum_turns: int
    instructions: tuple
    stream: int
    stream_runs: int
    lines: dict  # of an image, by the bytes a second of the line
    built: tuple
    installed: tuple
    fetched: int
    fetch_runs: int
    small: int
    kernel: int
    root: int
    pieces: int  # of 4 KiB
    serial_rates: tuple  # bytes a second
    network: int
    network_runs: int


# The true speed of a line of 115200 bits per second is 11520 bytes per second.
FULL = Sizes(checksum=32 << 20, checksum_turns=25, instructions=(1 << 16, 1 << 17), stream=64 << 20, stream_runs=7,
             lines={11520: 64 << 10, 92160: 512 << 10}, built=(1 << 20, 48 << 20), installed=(1 << 20, 8 << 20, 24 << 20),
             fetched=24 << 20, fetch_runs=5, small=64 << 10, kernel=6 << 20, root=22 << 20, pieces=2048,
             serial_rates=(UART_RATE, 40_000, 11_520), network=6 << 20, network_runs=5)
# Comes to its end soon, and its figures are no more than plausible.
SHORT = Sizes(checksum=1 << 20, checksum_turns=3, instructions=(1 << 13, 1 << 14), stream=4 << 20, stream_runs=1,
              lines={92160: 64 << 10}, built=(1 << 20, 4 << 20), installed=(1 << 20, 2 << 20), fetched=256 << 10, fetch_runs=1,
              small=16 << 10, kernel=256 << 10, root=512 << 10, pieces=256, serial_rates=(UART_RATE,), network=256 << 10,
              network_runs=1)


def _output(*words):
    return subprocess.run([str(word) for word in words], check=True, capture_output=True, text=True).stdout


def _instructions_per_byte(sizes):
    """Counts executed blocks of one instruction each for two sizes; what start-up takes cancels out."""
    def count(size):
        with tempfile.NamedTemporaryFile("r") as log:
            _output("qemu-arm-static", "-L", "/usr/arm-linux-gnueabi", "-singlestep", "-d", "exec,nochain", "-D", log.name,
                    "-E", f"LD_LIBRARY_PATH={ROOT}/build/arm-sysroot/lib/arm-linux-gnueabi", ARM / "checksum_bench", size)
            return sum(line.startswith("Trace") for line in log)
    small, large = sizes
    return (count(large) - count(small)) / (large - small)


def _stream_seconds(source, target, command):
    """Seconds that `command`, fed with `source` through a pipe, takes into a fresh file `target`."""
    target.unlink(missing_ok=True)
    target.touch()
    with subprocess.Popen(["cat", source], stdout=subprocess.PIPE) as feeder:
        start = time.monotonic()
        subprocess.run([str(word) for word in command], stdin=feeder.stdout, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                       check=True)
        elapsed = time.monotonic() - start
    if target.stat().st_size != source.stat().st_size:
        sys.exit(f"bench: {command[0]} has not written all")
    return elapsed


def _stream_ratios(directory, size, runs):
    source, target = directory / "source", directory / "target"
    source.write_bytes(os.urandom(size))
    ours = [RELEASE / "stream_bench", target, size]
    dd = ["dd", "bs=4096", "iflag=fullblock", "conv=notrunc", f"of={target}"]
    return [_stream_seconds(source, target, dd) / _stream_seconds(source, target, ours) for _ in range(runs)]


def host_rows(sizes):
    """Rows of what is measured on this machine, from the programs in build/release."""
    ratios = _output(RELEASE / "checksum_bench", sizes.checksum, sizes.checksum_turns).split()
    for ratio, (what, limit) in zip(ratios, {"one-shot checksum, times as fast as byte by byte": "at least 5",
                                             "checksum in pieces of 4 KiB, time relative to one-shot": "at most 1.10",
                                             "one-shot checksum, time relative to reading the memory once (memchr)": "reported"
                                             }.items(), strict=True):
        yield Row(what, [float(ratio)], RATIO, limit)
    with tempfile.TemporaryDirectory() as name:
        directory = Path(name)
        yield Row("streaming, throughput relative to dd bs=4096", _stream_ratios(directory, sizes.stream, sizes.stream_runs), RATIO,
                  "0.95")
        for rate, size in sizes.lines.items():
            yield Row(f"kesto install over a line of {rate} bytes per second, throughput relative to that",
                      [serial_ratio(RELEASE, rate, size)], RATIO, "at least 0.98")
        for what, peaks in peak_memory(RELEASE, directory, sizes.built).items():
            for size, peak in zip(sizes.built, peaks):
                yield Row(f"peak memory of kesto image {what}, {size >> 20} MiB", [peak], KIB, "equal for all sizes")
        for size in sizes.installed:
            yield Row(f"peak memory of kesto install, {size >> 20} MiB", [install_memory(RELEASE, size)], KIB, "equal for all sizes")


def device_rows(sizes):
    """Rows of what is measured of the device's program in build/arm (or $BUILD), most of it on one virtual board."""
    yield Row("checksum, per byte on ARM", [_instructions_per_byte(sizes.instructions)], INSTRUCTIONS, "at most 1")
    yield Row("the device's program", [(ARM / "recovery-loader").stat().st_size], BYTES, "131072")
    with tempfile.TemporaryDirectory() as name:
        directory = Path(name)
        (directory / "tftp").mkdir()
        with Board(directory / "board", ARM / "recovery-loader", tftp=directory / "tftp",
                   files={"/usr/bin/stream_bench": ARM / "stream_bench"}) as board:
            board.start(timeout=PATIENCE)
            board.console.expect("CLI> ", timeout=PATIENCE)
            cost = installation_cost(board, RELEASE / "kesto", directory, sizes.small, sizes.kernel, sizes.root, sizes.pieces,
                                     sizes.serial_rates)
            ratios = network_throughput(board, RELEASE / "kesto", directory, sizes.network, sizes.network_runs)
    yield Row("the device's program at rest, resident", [cost["idle"]], KIB, "reported")
    for which, size in ("small", sizes.small), ("large", sizes.root):
        yield Row(f"peak memory above rest, {size >> 10} KiB installed", [cost[which]], KIB, "equal, under 1024")
    yield Row("per 4 KiB piece that stands ready", [cost["piece"]], CALLS, "3")
    yield Row("per 4 KiB of a network installation, both transfers", [cost["network"]], CALLS, "reported")
    for rate, calls in cost["serial"].items():
        yield Row(f"per KiB over serial at {rate} bytes per second", [calls], CALLS, "reported")
    for what, values in ratios.items():
        yield Row(f"network installation, throughput relative to the transfer alone, {what}", values, RATIO, "reported")


def fetch_rows(sizes):
    """Rows of kesto's server against Debian's: fetched on this machine, and by the board; needs root."""
    with tempfile.TemporaryDirectory() as name:
        yield Row("kesto's TFTP service, throughput relative to Debian's tftpd-hpa",
                  tftp_ratios(RELEASE, debians_server(SERVER_DIRECTORY), Path(name), sizes.fetched, sizes.fetch_runs), RATIO,
                  "at least 0.9")
    yield Row("kesto's TFTP service, throughput relative to Debian's tftpd-hpa, fetched by the board",
              board_fetch_ratios(ARM / "recovery-loader", RELEASE, debians_server(SERVER_DIRECTORY), sizes.fetched, sizes.fetch_runs),
              RATIO, "at least 0.9")

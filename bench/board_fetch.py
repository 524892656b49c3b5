"""The virtual board fetches a file from kesto's TFTP service and from Debian's tftpd-hpa, turn by turn, by the shell's own
command. Both servers want port 69, and the board's network passes on what is meant for an address of this computer: so all of
it runs in a network namespace of its own, which has an address for each. Needs root."""

import json
import os
import subprocess
import sys
import tempfile
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "board"))

from virtual_board import Board  # noqa: E402  (the path had to be set first)

PORT = 69
OURS, THEIRS = "192.0.2.1", "192.0.2.2"  # addresses for documentation: nobody has them
PATIENCE = 1800


def _wait_bound(address, process):
    """Until the UDP port is taken."""
    number = "".join(f"{int(byte):02X}" for byte in reversed(address.split(".")))
    while f"{number}:{PORT:04X} " not in Path("/proc/net/udp").read_text(encoding="ascii"):
        if process.poll() is not None:
            sys.exit(f"bench: {process.args[0]} has ended")
        time.sleep(0.01)


def _fetch(board, server, size):
    """Bytes per second, of a file that has arrived as it was sent."""
    start = time.monotonic()
    board.console.send(f"file download network {server} image\r")
    if board.console.expect("Done: SUCCESS", "Done: FAILURE", timeout=PATIENCE).index:
        sys.exit(f"bench: the board could not fetch the file from {server}")
    elapsed = time.monotonic() - start
    board.console.expect("CLI> ", timeout=PATIENCE)
    return size / elapsed


def _measure(program, service, server, size, runs):
    with tempfile.TemporaryDirectory() as name:
        directory = Path(name)
        directory.chmod(0o755)
        image = directory / "image"
        image.write_bytes(os.urandom(size))
        image.chmod(0o644)
        sum_of_image = subprocess.run(["sha256sum", image], check=True, capture_output=True, text=True).stdout.split()[0]
        with subprocess.Popen([service, image, OURS, str(PORT)], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL) as ours, \
             subprocess.Popen([server, "-L", "-u", "nobody", "-a", f"{THEIRS}:{PORT}", "-s", directory]) as theirs, \
             Board(directory / "board", program) as board:
            try:
                _wait_bound(OURS, ours)
                _wait_bound(THEIRS, theirs)
                board.start()
                board.console.expect("CLI> ", timeout=PATIENCE)
                board.console.send("network ethernet start\r")
                board.console.expect("Done: SUCCESS", timeout=PATIENCE)
                ratios = []
                for _ in range(runs):
                    speeds = {}
                    for address in OURS, THEIRS:
                        speeds[address] = _fetch(board, address, size)
                        print(f"  {address}: {speeds[address] / 1024:.0f} KiB/s", file=sys.stderr, flush=True)
                        if sum_of_image not in board.sh("sha256sum /tmp/image; rm /tmp/image", PATIENCE, check=True).output:
                            sys.exit(f"bench: what came from {address} is another file")
                    ratios.append(speeds[OURS] / speeds[THEIRS])
                return ratios
            finally:
                theirs.terminate()
                ours.stdin.close()


def board_fetch_ratios(program, build, server, size, runs):
    """Throughput of a fetch of `size` bytes by the board from kesto's service over one from Debian's server, once for each of `runs`.
    `program` is the device's, `build` has tftp_bench, `server` is the program of Debian's package."""
    done = subprocess.run(["unshare", "--net", sys.executable, __file__, program, build / "tftp_bench", server, str(size), str(runs)],
                          check=True, stdout=subprocess.PIPE)
    return json.loads(done.stdout)


if __name__ == "__main__":
    subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
    for own_address in OURS, THEIRS:
        subprocess.run(["ip", "address", "add", f"{own_address}/32", "dev", "lo"], check=True)
    print(json.dumps(_measure(*sys.argv[1:4], *map(int, sys.argv[4:]))))

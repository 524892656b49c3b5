"""kesto install: an image goes into the device as it is, over each way; what would not be good is refused, what fails
leaves the line at a prompt, and says so."""

import os
import random
import signal
import socket
import struct
import subprocess
import time

import pytest

import images
from flash_table import NAMES
from kesto_device import kesto  # noqa: F401  pylint: disable=unused-import
from root_session import RootSession

pytestmark = pytest.mark.not_emulated(reason="a host tool, which never runs on the device's processor")

CONFIG = images.part(images.CONFIG_LOADER, images.pattern(70001, 4), version=(3, 1, 0, 0, "R", 1))
KERNEL = images.part(images.KERNEL, images.pattern(50001, 3), version=(3, 1, 0, 0, "R", 1), code=b"AB")
QUICK = ("--settle", "300")  # the device's second of waiting is a hundredth here
ROOTLESS = ("--force", "no-rootfs")  # a kernel alone, into a bank without a root file system


def prepare(dev):
    dev.set_partitions(*((name, 0x40000, 0x20000 if name == "ubi0" else 0x10000) for name in NAMES[:11]))
    for partition in dev.partitions:
        partition.fill()
    dev.env["bootbank"] = "1"
    dev.boot()
    return dev


@pytest.fixture
def flash(dev):
    return prepare(dev)


def installed(dev, name, image):
    return dev.partition(name).read(0, len(image)) == image


@pytest.mark.parametrize("port", ["pty", "tcp"])
def test_over_the_console(flash, kesto, port):
    kesto.file("image.rom", CONFIG)
    result = kesto.at("install", "image.rom", "--check", *QUICK, port=getattr(kesto.bridge, port))
    assert result.returncode == 0, result.stderr
    assert installed(flash, "config_loader", CONFIG)
    assert "read back: config_loader: good, 3.1.0.0R1\n" in result.stdout
    assert f"image.rom installed for bank 2, {len(CONFIG)} bytes" in result.stdout
    assert f": 100 % of {len(CONFIG)} bytes" in result.stderr


def test_over_another_port(flash, kesto):
    kesto.file("image.rom", CONFIG)
    other = kesto.bridge_to(flash.port(2))
    flash.port(2).make_raw()
    record = kesto.json("install", "image.rom", "--data-port", other.pty, *QUICK)["devices"][0]
    assert (record["status"], record["bytes"]) == (0, len(CONFIG))
    assert installed(flash, "config_loader", CONFIG)
    assert b"flash download serial 2 2 115200" in flash.console.output


def test_what_is_not_erased_is_refused_until_told(flash, kesto):
    kesto.file("image.rom", KERNEL)
    flash.partition("kernel_2").write(b"old")
    result = kesto.at("install", "image.rom", *ROOTLESS, *QUICK)
    assert result.returncode == 8
    assert result.stderr.endswith(f"kesto: {kesto.bridge.pty}: not-erased: kernel_2 of {kesto.bridge.pty} (dirty) has to be "
                                  "erased first (--erase)\n")
    result = kesto.at("install", "image.rom", "--erase", *ROOTLESS, *QUICK)  # nobody answers the question
    assert result.returncode == 8 and "Go on (y/N)?" in result.stderr
    assert flash.partition("kernel_2").read(0, 3) == b"old"
    flash.expect_not_ran("flash_erase")
    told = kesto.json("install", "image.rom", "--erase", "--yes", "--check", *ROOTLESS, *QUICK)
    assert told["ok"] is True
    assert told["devices"][0]["erased"] == [f"kernel_2 of {kesto.bridge.pty} (dirty)"]
    assert "no-rootfs" in [finding["name"] for finding in told["devices"][0]["findings"]]
    flash.expect_ran("/usr/sbin/flash_erase -q /dev/mtd6 0 0", "/usr/sbin/fw_setenv bootbank 2")
    assert installed(flash, "kernel_2", KERNEL)


def test_what_cannot_be_erased_is_not_written(flash, kesto):
    kesto.file("image.rom", KERNEL)
    flash.partition("kernel_2").write(b"old")
    flash.answer("flash_erase", status=1)
    told = kesto.json("install", "image.rom", "--erase", "--yes", *ROOTLESS, *QUICK, status=3)
    assert told["ok"] is False
    assert told["devices"][0]["message"].startswith(f"{kesto.bridge.pty}: 'flash kill 2 kernel' failed: ")
    assert flash.partition("kernel_2").read(0, 3) == b"old"


def test_a_refusal_is_not_tried_again(flash, kesto):
    kesto.file("image.rom", KERNEL)
    record = kesto.json("install", "image.rom", "--retry", "2", *QUICK, status=8)["devices"][0]
    assert (record["result"], record["attempts"]) == ("refused", 1)


def test_what_would_report_success_and_not_be_good_is_refused(flash, kesto):
    kesto.file("image.rom", images.part(images.CONFIG_LOADER, images.pattern(0x40000, 4)))
    flash.answer("dmesg", stdout='0x000000100000-0x000000140000 : "config_loader"\n')
    result = kesto.at("install", "image.rom", *QUICK)
    assert result.returncode == 8 and ": too-large: " in result.stderr and "(--force too-large" in result.stderr
    assert flash.partition("config_loader").erased


def test_reading_back_finds_what_the_device_did_not_see(flash, kesto):
    """Flash that does not take what is written into it, and says nothing."""
    kesto.file("image.rom", CONFIG)
    flash.fail_call("write", "/dev/mtd8", error="EIO")
    result = kesto.at("install", "image.rom", "--check", *QUICK)
    assert result.returncode == 3
    assert "the device reported success, but config_loader: shown as clean; do not use bank 2" in result.stderr


class Exchange:
    """A line at whose end the flash is exchanged before it is analyzed for the second time."""

    def __init__(self, partition, contents):
        self._partition, self._contents, self._number = partition, contents, 0

    def __call__(self, data):
        self._number += data.count(b"flash analyze")
        if self._number == 2:
            self._partition.fill()
            self._partition.write(self._contents)
        return data


@pytest.mark.parametrize("other, said", [
    (images.part(images.CONFIG_LOADER, images.pattern(70001, 4), version=(3, 1, 0, 1, "R", 1)),
     "version is 3.1.0.1R1, not 3.1.0.0R1"),
    (images.part(images.CONFIG_LOADER, images.pattern(70001, 4), version=(3, 1, 0, 0, "R", 1), code=b"XY"),
     "product code is XY, not -"),
    (images.part(images.CONFIG_LOADER, images.pattern(70000, 4), version=(3, 1, 0, 0, "R", 1)), "size is 70000, not 70001"),
    (images.part(images.CONFIG_LOADER, images.pattern(70001, 5), version=(3, 1, 0, 0, "R", 1)), "checksum is "),
], ids=["version", "code", "size", "checksum"])
def test_reading_back_compares(flash, kesto, other, said):
    kesto.file("image.rom", CONFIG)
    kesto.bridge.garble = Exchange(flash.partition("config_loader"), other)
    result = kesto.at("install", "image.rom", "--check", *QUICK)
    assert result.returncode == 3
    assert "the device reported success, but config_loader: " in result.stderr and said in result.stderr
    assert "is not good now" not in result.stderr  # the installation itself had come to its end


class Spoil:
    """A line that spoils the ID of one header."""

    def __init__(self, number):
        self._left = number

    def __call__(self, data):
        if images.ID in data:
            self._left -= 1
            return data.replace(images.ID, b"QESTO-1\0", 1) if self._left == 0 else data
        return data


def test_the_device_fails_in_the_middle(flash, kesto):
    """The second header is refused while most of the image is still to come."""
    kesto.file("image.rom", images.part(images.CONFIG_LOADER, images.pattern(9000, 4), more=True) + KERNEL)
    kesto.bridge.garble = Spoil(2)
    result = kesto.at("install", "image.rom", *ROOTLESS, *QUICK)
    assert result.returncode == 3
    assert ": the device did not install it: Bad image header 1" in result.stderr
    assert result.stderr.endswith("; bank 2 is not good now, bank 1 boots as before; the device is at its prompt\n")
    flash.console.skip()
    assert flash.command("verbose") == "verbosity is 3\n"


def test_the_only_good_bank_is_named(flash, kesto):
    kesto.file("image.rom", images.part(images.CONFIG_LOADER, images.pattern(9000, 4), more=True) + KERNEL)
    kesto.bridge.garble = Spoil(2)
    result = kesto.at("install", "image.rom", "--bank", "1", *ROOTLESS, *QUICK)
    assert result.returncode == 3
    assert "; bank 1 is not good now, bank 1 boots as before, and that is the same; " in result.stderr


def test_ctrl_c_in_the_middle(flash, kesto):
    kesto.file("image.rom", CONFIG)
    process = kesto.start("install", "--port", kesto.bridge.pty, "image.rom", "--pace", "20000", *QUICK)
    for line in process.stderr:
        if "10 % of" in line:
            break
    process.send_signal(signal.SIGINT)
    err = process.communicate(timeout=100)[1]
    assert process.returncode == 130
    assert err.endswith("interrupted; bank 2 is not good now, bank 1 boots as before; the device is at its prompt\n")
    flash.console.skip()
    assert flash.command("verbose") == "verbosity is 3\n"


def test_the_cable_is_pulled_in_the_middle(flash, kesto):
    kesto.file("image.rom", CONFIG)
    process = kesto.start("install", "--port", kesto.bridge.tcp, "image.rom", "--pace", "20000", *QUICK)
    for line in process.stderr:
        if "10 % of" in line:
            break
    kesto.bridge.pull()
    err = process.communicate(timeout=100)[1]
    assert process.returncode == 6
    assert "the line is lost" in err and "bank 2 is not good now" in err


def test_a_second_try(flash, kesto):
    kesto.file("image.rom", CONFIG)
    kesto.bridge.garble = Spoil(1)
    record = kesto.json("install", "image.rom", "--retry", "1", *QUICK)["devices"][0]
    assert (record["status"], record["attempts"], record["message"], record["remarks"]) == (0, 2, "", [])
    assert installed(flash, "config_loader", CONFIG)


def test_memory_does_not_grow_with_the_image(flash, kesto):
    place = flash.partition("config_loader")
    flash.set_partitions(*((row.name, 16 << 20 if row.name == place.name else row.size, row.erase_size)
                           for row in flash.partitions))
    peaks = []
    for size in 1 << 20, 12 << 20:
        image = images.part(images.CONFIG_LOADER, images.pattern(size))
        kesto.file("image.rom", image)
        flash.partition(place.name).fill()
        # Started by a small program: until it begins, a process is as large as the one that starts it.
        done = subprocess.run(["busybox", "time", "-f", "%M", kesto.program, "install", "--port", kesto.bridge.unix, "image.rom",
                               "--check", *QUICK], cwd=kesto.directory, capture_output=True, text=True)
        assert done.returncode == 0 and installed(flash, place.name, image), done.stderr
        peaks.append(int(done.stderr.splitlines()[-1]))
    assert peaks[1] < peaks[0] + 4096, "KiB"


def test_boot_tells_what_comes_up(flash, kesto):
    kesto.file("image.rom", CONFIG)
    process = kesto.start("install", "--port", kesto.bridge.pty, "image.rom", "--boot", *QUICK)
    flash.wait_ran("/sbin/reboot")
    flash.kill()
    flash.start()
    out, err = process.communicate(timeout=100)
    assert process.returncode == 0, err
    assert out.endswith("; up came: the recovery shell\n")


@pytest.mark.parametrize("expected, status, said", [
    ("Recovery Loader v", 0, "; up came: Recovery Loader v\n"),
    ("Linux version", 3, "the recovery shell came up, not 'Linux version'")], ids=["comes", "does not come"])
def test_boot_expects_a_text(flash, kesto, expected, status, said):
    kesto.file("image.rom", CONFIG)
    process = kesto.start("install", "--port", kesto.bridge.pty, "image.rom", "--boot", "--expect", expected, *QUICK)
    flash.wait_ran("/sbin/reboot")
    flash.kill()
    flash.start()
    out, err = process.communicate(timeout=100)
    assert process.returncode == status, err
    assert said in (err if status else out)


def test_a_device_that_cannot_reset_itself(flash, kesto):
    kesto.file("image.rom", CONFIG)
    flash.answer("reboot", status=1)
    result = kesto.at("install", "image.rom", "--boot", *QUICK)
    assert result.returncode == 3
    assert "the device cannot reset itself; the device is at its prompt\n" in result.stderr


def test_a_port_that_the_device_does_not_have(flash, kesto):
    kesto.file("image.rom", CONFIG)
    other = kesto.bridge_to(flash.port(2))
    result = kesto.at("install", "image.rom", "--data-port", other.pty, "--data-number", "9", *QUICK)
    assert result.returncode == 3
    assert "'flash download serial 2 9 115200' failed: " in result.stderr
    assert flash.partition("config_loader").erased


def test_every_cut_of_a_header_is_named(kesto):
    first = images.part(images.CONFIG_LOADER, b"first", more=True)
    for cut in range(1, 256):
        kesto.file("image.rom", first + CONFIG[:cut])
        result = kesto.run("install", "--port", "/dev/nosuch", "image.rom")
        assert (result.returncode, result.stderr) == (
            1, f"kesto: image.rom: part 1 at offset {len(first)}: header ends after {cut} of 256 bytes\n")


@pytest.mark.parametrize("image, said", [("nosuch", "nosuch: open error (No such file or directory)"),
                                         (".", ".: not a regular file")])
def test_no_image(kesto, image, said):
    result = kesto.run("install", "--port", "/dev/nosuch", image)
    assert (result.returncode, result.stderr) == (1, f"kesto: {said}\n")


def test_no_port(kesto):
    kesto.file("image.rom", CONFIG)
    result = kesto.run("install", "--port", "/dev/nosuch", "image.rom")
    assert (result.returncode, result.stderr.splitlines()[-1]) == (
        5, "kesto: /dev/nosuch: open error (No such file or directory)")


# ---------------------------------------------------------------------- several devices


@pytest.fixture
def devices(request, tmp_path, build):
    sessions = [RootSession(tmp_path / f"root{i}", build, build / "recovery-loader") for i in range(request.param)]
    try:
        yield [prepare(session) for session in sessions]
    finally:
        for session in sessions:
            session.close()


@pytest.mark.parametrize("devices", [4, 16], indirect=True, ids=["four", "sixteen"])
def test_several_devices_at_once(devices, kesto):
    """One of them fails, and no other."""
    kesto.file("image.rom", CONFIG)
    bridges = [kesto.bridge_to(session.console) for session in devices]
    devices[2].fail_call("write", "/dev/mtd8", error="EIO")
    ports = [word for bridge in bridges for word in ("--port", bridge.pty)]
    result = kesto.run("install", *ports, "image.rom", "--check", *QUICK)
    assert result.returncode == 3
    table = result.stdout.splitlines()[1:]
    expected = ["success"] * len(devices)
    expected[2] = "device_failed"
    assert [row.split()[1] for row in table] == expected
    for number, session in enumerate(devices):
        assert installed(session, "config_loader", CONFIG) == (number != 2)


def test_too_many_devices(kesto):
    kesto.file("image.rom", CONFIG)
    result = kesto.run("install", *(word for number in range(17) for word in ("--port", f"/dev/{number}")), "image.rom")
    assert (result.returncode, result.stderr) == (2, "kesto: more than 16 devices (see 'kesto install --help')\n")


@pytest.mark.parametrize("words, said", [
    (["--port", "/dev/a", "--tftp", "10.0.0.1:x", "--serial"], "--tftp beside --serial or --data-port"),
    (["--port", "/dev/a", "--tftp", "10.0.0.1:x", "--data-port", "/dev/b"], "--tftp beside --serial or --data-port"),
    (["--port", "/dev/a", "--port", "/dev/b", "--data-port", "/dev/c"], "as many --data-port as --port are wanted"),
    (["--port", "/dev/a", "--data-port", "/dev/a"], "the same port twice"),
])
def test_options_that_contradict(kesto, words, said):
    kesto.file("image.rom", CONFIG)
    result = kesto.run("install", *words, "image.rom")
    assert (result.returncode, result.stderr) == (2, f"kesto: {said} (see 'kesto install --help')\n")


def test_the_same_port_twice(kesto):
    kesto.file("image.rom", CONFIG)
    result = kesto.run("install", "--port", "/dev/a", "--port", "/dev/a", "image.rom")
    assert (result.returncode, result.stderr) == (2, "kesto: the same port twice (see 'kesto install --help')\n")


# ---------------------------------------------------------------------- the network


class Client:
    """A TFTP client of a few lines."""

    def __init__(self, address):
        self._address = address
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.settimeout(20)

    def ask(self, name, operation=1, **options):
        words = [name, "octet", *(str(word) for pair in options.items() for word in pair)]
        self._socket.sendto(struct.pack("!H", operation) + b"".join(w.encode() + b"\0" for w in words), (self._address, 69))
        packet, self._peer = self._socket.recvfrom(1 << 16)
        return packet

    def fetch(self, name, block=512, **options):
        packet = self.ask(name, **options)
        if options:
            assert packet[:2] == b"\0\6"
            self._acknowledge(0)
            packet = self._socket.recv(1 << 16)
        data, number = b"", 1
        while True:
            assert packet[:4] == struct.pack("!HH", 3, number & 0xFFFF)
            data += packet[4:]
            self._acknowledge(number)
            if len(packet) - 4 < block:
                return data
            number += 1
            packet = self._socket.recv(1 << 16)

    def _acknowledge(self, number):
        self._socket.sendto(struct.pack("!HH", 4, number & 0xFFFF), self._peer)


def loopback():
    """An address for this test alone: all of 127/8 is this computer."""
    return f"127.{random.randrange(1, 255)}.{random.randrange(256)}.{random.randrange(1, 255)}"


def test_kesto_serves_the_image_itself(flash, kesto):
    if os.geteuid() != 0:
        pytest.skip("UDP port 69 takes a privilege")
    kesto.file("the image.rom", CONFIG)
    address = loopback()
    flash.answer("tftp", stdout=CONFIG, held="begin")
    process = kesto.start("install", "--port", kesto.bridge.pty, "the image.rom", "--tftp", "10.0.0.1", "--listen", address,
                          "--check", *QUICK)
    flash.wait_ran("tftp -g -r the_image.rom -l - 10.0.0.1")
    assert Client(address).fetch("the_image.rom") == CONFIG
    assert Client(address).fetch("/the_image.rom", 1428, blksize=1428, tsize=0) == CONFIG
    assert Client(address).ask("the_image.rom", blksize=65464, tsize=0) == (
        b"\0\6blksize\0" + b"65464\0" + b"tsize\0" + str(len(CONFIG)).encode() + b"\0")
    assert Client(address).ask("other.rom")[:4] == b"\0\5\0\1"
    assert Client(address).ask("the_image.rom", operation=2)[:4] == b"\0\5\0\2"
    flash.release("tftp")
    out, err = process.communicate(timeout=100)
    assert process.returncode == 0, err
    assert installed(flash, "config_loader", CONFIG)


def test_a_server_that_is_there_already(flash, kesto):
    kesto.file("image.rom", CONFIG)
    flash.answer("tftp", stdout=CONFIG)
    result = kesto.at("install", "image.rom", "--tftp", "10.0.0.9:lab/a.rom")
    assert result.returncode == 0, result.stderr
    assert flash.ran.count("tftp -g -r lab/a.rom -l - 10.0.0.9") == 2


def test_a_server_that_has_vanished(flash, kesto):
    kesto.file("image.rom", CONFIG)
    flash.answer("tftp", stdout=CONFIG[:5000], status=1)
    result = kesto.at("install", "image.rom", "--tftp", "10.0.0.9:a.rom")
    assert result.returncode == 3
    assert result.stderr.endswith("; the device is at its prompt\n")
    assert flash.partition("config_loader").erased


def test_a_server_that_vanishes_in_the_second_transfer(flash, kesto):
    """The first is verified, the second one written."""
    kesto.file("image.rom", CONFIG)
    flash.answer("tftp", stdout=CONFIG, times=1)
    flash.answer("tftp", stdout=CONFIG[:5000], status=1)
    result = kesto.at("install", "image.rom", "--tftp", "10.0.0.9:a.rom")
    assert result.returncode == 3
    assert result.stderr.endswith("; bank 2 is not good now, bank 1 boots as before; the device is at its prompt\n")


def test_a_device_that_does_not_come_back(flash, kesto):
    """The transfer never ends, and while a command runs nothing but its end brings the prompt."""
    kesto.file("image.rom", CONFIG)
    flash.answer("tftp", stdout=CONFIG, held="begin")
    result = kesto.at("install", "image.rom", "--tftp", "10.0.0.9:a.rom", "--install-limit", "1")
    flash.release("tftp")
    assert result.returncode == 4
    assert result.stderr.endswith(
        "; the line is not at a prompt: the device may still be at work, look at it before power is cut\n")


def test_what_the_device_says_in_another_alphabet(flash, kesto):
    flash.env["owner"] = "caf\xe9"
    kesto.file("image.rom", CONFIG)
    result = kesto.at("install", "image.rom", *QUICK)
    assert result.returncode == 0, result.stderr


def test_port_69_takes_a_privilege(kesto):
    if os.geteuid() != 0:
        pytest.skip("only root can give up what it takes")
    kesto.file("image.rom", CONFIG)
    for path in (kesto.directory, *list(kesto.directory.parents)[:-2]):
        path.chmod(0o755)
    result = kesto.run("install", "--port", "/dev/nosuch", "image.rom", "--tftp", loopback(), user=65534, group=65534)
    assert result.returncode == 9
    assert result.stderr.startswith("kesto: UDP port 69 needs a privilege: grant it once with 'setcap cap_net_bind_service+ep")


def test_an_address_of_somebody_else(kesto):
    kesto.file("image.rom", CONFIG)
    result = kesto.run("install", "--port", "/dev/nosuch", "image.rom", "--tftp", "192.0.2.1")
    assert result.returncode == 9
    assert "192.0.2.1 is no address of this computer" in result.stderr


# ---------------------------------------------------------------------- a server of serial ports


@pytest.fixture
def serial_server(tmp_path, flash, kesto):
    """Debian's ser2net in front of the console's line."""
    with socket.create_server(("127.0.0.1", 0)) as probe:
        number = probe.getsockname()[1]
    configuration = tmp_path / "ser2net.yaml"
    configuration.write_text(
        "%YAML 1.1\n---\nconnection: &device\n"
        f"  accepter: telnet(rfc2217),tcp,127.0.0.1,{number}\n"
        f"  connector: serialdev,{kesto.bridge.pty},115200n81,local\n  options:\n    kickolduser: true\n")
    with open(tmp_path / "ser2net.log", "wb") as log:
        server = subprocess.Popen(["ser2net", "-n", "-d", "-c", configuration, "-P", tmp_path / "pid"], stdout=log, stderr=log)
    end = time.monotonic() + 30
    while True:
        try:
            socket.create_connection(("127.0.0.1", number)).close()
            break
        except OSError:
            assert server.poll() is None and time.monotonic() < end, (tmp_path / "ser2net.log").read_text()
            time.sleep(0.05)
    yield f"rfc2217:127.0.0.1:{number}"
    server.kill()
    server.wait()


def test_over_a_server_of_serial_ports(flash, kesto, serial_server):
    """Every byte arrives, those that telnet has other plans with included."""
    kesto.file("image.rom", CONFIG)
    assert CONFIG.count(b"\xff") > 10
    result = kesto.at("install", "image.rom", "--check", *QUICK, port=serial_server)
    assert result.returncode == 0, result.stderr
    assert installed(flash, "config_loader", CONFIG)

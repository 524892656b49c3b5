"""The driver for labgrid, with labgrid's own classes: over each of its console resources, and what it makes of failures."""

import sys
from pathlib import Path

import pytest
from labgrid import Target
from labgrid.binding import BindingState, StateError
from labgrid.driver import ExecutionError, SerialDriver
from labgrid.resource import NetworkSerialPort, RawSerialPort

import images
from kesto_device import kesto  # noqa: F401  pylint: disable=unused-import

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "integrations" / "labgrid"))

from kesto_driver import KestoDriver, KestoError, UnixSerialPort  # noqa: E402

pytestmark = pytest.mark.not_emulated(reason="a host tool, which never runs on the device's processor")

CONFIG = images.part(images.CONFIG_LOADER, images.pattern(5001, 4), version=(3, 1, 0, 0, "R", 1))


@pytest.fixture
def target():
    made = Target("main")
    yield made
    made.deactivate_all_drivers()


def driver_at(target, kesto, **options):
    driver = KestoDriver(target, None, **options)
    driver.program = str(kesto.program)
    target.activate(driver)
    return driver


@pytest.fixture
def shell(dev, target, kesto):
    dev.boot()
    RawSerialPort(target, None, port=kesto.bridge.pty)
    return driver_at(target, kesto)


@pytest.mark.parametrize("resource", ["raw", "network", "unix"])
def test_over_each_console_resource(dev, target, kesto, resource):
    dev.boot()
    host, number = kesto.bridge.tcp.split(":")[1:]
    {"raw": lambda: RawSerialPort(target, None, port=kesto.bridge.pty),
     "network": lambda: NetworkSerialPort(target, None, host=host, port=int(number), protocol="raw"),
     "unix": lambda: UnixSerialPort(target, None, path=kesto.bridge.unix.removeprefix("unix:"))}[resource]()
    shell = driver_at(target, kesto)
    lines, errors, status = shell.run("version")
    assert (errors, status) == ([], 0) and "Recovery Loader" in "\n".join(lines)
    assert shell.get_status() == 1


@pytest.mark.parametrize("command, said", [("nonsense", "nonsense"), ("flash kill 9", "flash kill 9")])
def test_a_command_that_fails(dev, shell, command, said):
    dev.unknown_command_expected = True
    lines, errors, status = shell.run(command)
    assert status == 3 and lines and said in errors[0]
    with pytest.raises(ExecutionError) as raised:
        shell.run_check(command)
    assert raised.value.stderr == errors


def test_show_is_the_record_of_the_device(dev, shell):
    dev.env["bootbank"] = "2"
    assert shell.show()["bootenv"]["bootbank"] == "2"


def prepare_flash(dev):
    for partition in dev.partitions:
        partition.fill()


def test_install_returns_the_record(dev, target, kesto):
    """An image is a path here; the settle time of kesto is the device's, so this takes seconds."""
    dev.set_partitions(("config_loader", 0x40000, 0x10000))
    prepare_flash(dev)
    dev.boot()
    RawSerialPort(target, None, port=kesto.bridge.pty)
    record = driver_at(target, kesto).install(kesto.file("image.rom", CONFIG), bank=2)
    assert (record["status"], record["bank"], record["bytes"]) == (0, "2", len(CONFIG))
    assert record["checked"] and dev.partition("config_loader").read(0, len(CONFIG)) == CONFIG


def test_an_image_that_is_refused(kesto, shell):
    image = kesto.file("image.rom", CONFIG[:-1])
    with pytest.raises(KestoError, match="image.rom") as raised:
        shell.install(image)
    assert raised.value.status == 1


def test_a_port_that_is_not_there(target, kesto):
    RawSerialPort(target, None, port="/dev/ttyNothing")
    shell = driver_at(target, kesto)
    for ask in (lambda: shell.run("version"), shell.show, shell.reset, shell.get_status, lambda: shell.install("image.rom")):
        with pytest.raises(KestoError) as raised:
            ask()
        assert raised.value.status in (1, 5)


def test_nobody_answers(target, kesto, dev):
    """A line without a device: the prompt does not come within the limit."""
    UnixSerialPort(target, None, path=kesto.bridge.unix.removeprefix("unix:"))
    shell = driver_at(target, kesto, limit=1)
    with pytest.raises(KestoError) as raised:
        shell.run("version")
    assert raised.value.status == 4 and raised.value.report["result"] == "no_prompt"
    assert shell.get_status() == 0


def test_another_driver_gives_the_port_up(dev, target, kesto):
    dev.boot()
    RawSerialPort(target, None, port=kesto.bridge.pty)
    console = SerialDriver(target, None)
    target.activate(console)
    shell = driver_at(target, kesto)
    assert console.state is BindingState.bound
    assert shell.run("version")[2] == 0


def test_a_driver_that_is_not_active_does_nothing(target, kesto):
    UnixSerialPort(target, None, path="nowhere")
    with pytest.raises(StateError):
        KestoDriver(target, None).run("version")


def test_no_kesto(target, kesto):
    UnixSerialPort(target, None, path="nowhere")
    shell = driver_at(target, kesto)
    shell.program = "/nowhere/kesto"
    with pytest.raises(KestoError, match="/nowhere/kesto: No such file"):
        shell.show()


@pytest.fixture
def heard(target, kesto, tmp_path):
    """Drivers whose kesto notes its words and answers with nothing but good news."""
    program = tmp_path / "kesto"
    program.write_text("#!/bin/sh\nprintf '%s\\n' \"$@\" >\"$0.words\"\necho '{\"commands\":[],\"devices\":[{}]}'\n")
    program.chmod(0o755)

    def words_of(act, **options):
        shell = driver_at(target, kesto, **options)
        shell.program = str(program)
        act(shell)
        return Path(f"{program}.words").read_text().splitlines()

    return words_of


def test_options_of_an_installation(target, heard):
    NetworkSerialPort(target, None, host="[::1]", port=7001, speed=9600)
    words = heard(lambda shell: shell.install("a.rom", bank=1, erase=True, check=False, boot=True, expect="login:",
                                              tftp="10.0.0.1", force=["no-rootfs"], retry=2), flow=False, pace=900, limit=7)
    assert words == ["install", "--port", "rfc2217:::1:7001", "--speed", "9600", "--no-flow", "--limit", "7", "--json", "a.rom",
                     "--yes", "--bank", "1", "--expect", "login:", "--tftp", "10.0.0.1", "--retry", "2", "--pace", "900",
                     "--erase", "--boot", "--force", "no-rootfs"]


def test_a_limit_of_one_command(target, heard):
    UnixSerialPort(target, None, path="/run/line")
    words = heard(lambda shell: shell.run("version", timeout=1.5), limit=90)
    assert words == ["run", "--port", "unix:/run/line", "--limit", "2", "--json", "version"]

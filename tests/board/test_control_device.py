"""Every operation of the control device library against a real /dev/ctrl. No command of the shell calls it, so a
program on the board does; the kernel's own account of what came is compared, to the byte."""

import errno
import re

import pytest

from board_session import BUILD, ROOT
from texts import FAILURE, SUCCESS

PROGRAM = "/tmp/control_device"
NOT_THERE = "No such file or directory"
BUSY = "Device or resource busy"

# (operation, request number, as the kernel takes it apart, what is said at level 6, name in errors)
SWITCHES = [
    ("ctrl_erst_assert", 0x4C04, "00004c04 none 4c 4 0 0x0", "Asserting external reset signal", "ERST_ASSERT"),
    ("ctrl_ethphy_powerdown", 0x4C05, "00004c05 none 4c 5 0 0x0", "Powering down 3V3_PHY rail", "ETH_POWERDOWN"),
    ("ctrl_ethphy_powerup", 0x4C06, "00004c06 none 4c 6 0 0x0", "Powering up 3V3_PHY rail", "ETH_POWERUP"),
    ("ctrl_wlan_powerdown", 0x4C07, "00004c07 none 4c 7 0 0x0", "Powering down 3V3_WL rail", "WL_POWERDOWN"),
    ("ctrl_wlan_powerup", 0x4C08, "00004c08 none 4c 8 0 0x0", "Powering up 3V3_WL rail", "WL_POWERUP"),
]

DISABLE, ENABLE, STATUS = "00004c01 none 4c 1 0 0x0", "00004c02 none 4c 2 0 0x0", "80044c03 read 4c 3 4"
DISABLE_NUMBER, ENABLE_NUMBER, STATUS_NUMBER, PIN_MODE_NUMBER = 0x4C01, 0x4C02, 0x80044C03, 0x40144C0A

# (operation, name, what mode 0 is called, name in errors, request for mode 0, request for every other mode)
PINS = [re.findall(r"\w[\w-]*", row) for row in (ROOT / "tests/support/pins.inc").read_text(encoding="ascii").splitlines()
        if row.startswith("{")]


def opened(*requests):
    """The device opened for reading and writing for each request, and closed again."""
    return [text for request in requests for text in ("open rw", request, "close")]


def pin_request(data, result=0):
    return f"40144c0a write 4c 10 20 {data} {result}"


class ControlDevice:
    """/dev/ctrl, and the program that uses it."""

    def __init__(self, board):
        self.board = board

    def run(self, operation, level=3):
        """What one operation with its argument showed, its result last."""
        return self.board.sh(f"{PROGRAM} {level} {operation}", check=True).output

    def seen(self):
        """What the kernel saw since it was last asked, without the times."""
        texts = [text for _, text in self.board.ctrl_log()]
        self.board.ctrl_clear()
        return texts


@pytest.fixture
def ctrl(dev):
    dev.board.put(PROGRAM, (BUILD / "tests" / "control_device").read_bytes(), 0o755)
    dev.board.ctrl_clear()
    yield ControlDevice(dev.board)
    dev.board.ctrl_clear()
    dev.board.sh(f"rm {PROGRAM}", check=True)


def test_shell_itself_asks_for_nothing(dev):
    """Not even on the board whose signals have pin modes and a button."""
    dev.board.ctrl_clear()
    assert dev.command("set opmode board tk10_mfg") == SUCCESS
    assert "NRESETIN" in dev.command("gpiolib info")
    assert dev.command("gpiolib set TX2 1") == "ERROR: gpio70 (TX2) is not an output\n" + FAILURE
    assert dev.command("set opmode board default") == SUCCESS
    assert dev.board.ctrl_log() == []


def test_rails_and_the_reset_line(ctrl):
    for operation, number, request, action, name in SWITCHES:
        assert ctrl.run(operation) == "result 1\n"
        assert ctrl.seen() == opened(f"{request} 0")
        assert ctrl.run(operation, level=6) == f"VERBOSE: {action}\nresult 1\n"
        ctrl.board.ctrl_clear()
        ctrl.board.ctrl_fail(number, errno.EBUSY)
        assert ctrl.run(operation, 6) == f"VERBOSE: {action}\nERROR: ioctl({name}) error={BUSY}\nresult 0\n"
        assert ctrl.seen() == opened(f"{request} -16")


def test_pins(ctrl):
    for operation, name, peripheral, _, used, unused in PINS:
        assert ctrl.run(f"{operation} 0", level=5) == "result 1\n"
        assert ctrl.seen() == opened(pin_request(used))
        for mode, called, data in (0, peripheral, used), (1, "gpio", unused), (2, "gpio", unused), (-1, "gpio", unused):
            shown = ctrl.run(f"{operation} {mode}", level=6)
            assert shown == f"VERBOSE: Setting {name} pin to {called} mode\nresult 1\n"
            assert ctrl.seen() == opened(pin_request(data))


def test_pins_that_are_refused(ctrl):
    ctrl.board.ctrl_fail(PIN_MODE_NUMBER, errno.EINVAL)
    for operation, _, _, label, *_ in PINS:
        for mode in 0, 1:
            assert ctrl.run(f"{operation} {mode}") == (
                f"ERROR: pin {label} ioctl(VEXO_CTRL_IOCS_PIN_MODE) error=Invalid argument\nresult 0\n")
    expected = [pin_request(data, -22) for *_, used, unused in PINS for data in (used, unused)]
    assert ctrl.seen() == opened(*expected)


def test_reset_function(ctrl):
    assert ctrl.run("ctrl_urst_disable") + ctrl.run("ctrl_urst_enable") == "result 1\n" * 2
    assert ctrl.seen() == opened(f"{DISABLE} 0", f"{ENABLE} 0")
    ctrl.board.ctrl_reset_input(0x12345678)
    assert ctrl.run("ctrl_urst_status", level=7) == "status 0x12345678\nresult 1\n"
    assert ctrl.run("ctrl_sleep", level=7) == "status 0x12345678\nresult 1\n", "the same request"
    assert ctrl.seen() == opened(f"{STATUS} 78563412 0", f"{STATUS} 78563412 0")


def test_reset_function_that_is_refused(ctrl):
    """Each is told about, and counts as done."""
    for number in DISABLE_NUMBER, ENABLE_NUMBER, STATUS_NUMBER:
        ctrl.board.ctrl_fail(number, errno.EBUSY)
    assert ctrl.run("ctrl_urst_disable") == f"ERROR: ctrl_urst_disable: ioctl(URST_DISABLE) error={BUSY}\nresult 1\n"
    assert ctrl.run("ctrl_urst_enable") == f"ERROR: ctrl_urst_enable: ioctl(URST_ENABLE) error={BUSY}\nresult 1\n"
    untouched = "status 0xa5a5a5a5\nresult 1\n"
    assert ctrl.run("ctrl_urst_status") == f"ERROR: ctrl_urst_status: ioctl(URST_STATUS) error={BUSY}\n" + untouched
    assert ctrl.run("ctrl_sleep") == f"ERROR: ctrl_sleep: ioctl(URST_STATUS) error={BUSY}\n" + untouched
    assert ctrl.seen() == opened(f"{DISABLE} -16", f"{ENABLE} -16", f"{STATUS} - -16", f"{STATUS} - -16")


def test_sleep_passes_its_argument_on(ctrl):
    """The kernel gets the very number, which points nowhere here."""
    for argument in "0", "0x123":
        shown = ctrl.run(f"ctrl_sleep {argument}")
        assert shown == "ERROR: ctrl_sleep: ioctl(URST_STATUS) error=Bad address\nresult 1\n"
    assert ctrl.seen() == opened(f"{STATUS} 0x0 -14", f"{STATUS} 0x123 -14")


class Watch:
    """A watch of the reset input, as the kernel saw it: the requests, and when each came."""

    def __init__(self, ctrl):
        log = [(time, text) for time, text in ctrl.board.ctrl_log() if text not in ("open rw", "close")]
        self.times, self.requests = [time for time, _ in log], [text for _, text in log]
        assert ctrl.seen() == opened(*self.requests)

    def gaps(self):
        return [later - earlier for earlier, later in zip(self.times, self.times[1:])]


RELEASED, PUSHED = f"{STATUS} 00000000 0", f"{STATUS} 01000000 0"


def test_button_is_watched_for_its_time(ctrl):
    assert ctrl.run("ctrl_test_nresetin 350", level=7) == "TRACE: ctrl_test_nresetin: ms=350\nresult 0\n"
    watch = Watch(ctrl)
    looks = len(watch.requests) - 3
    assert watch.requests == [RELEASED, f"{DISABLE} 0"] + [RELEASED] * looks + [f"{ENABLE} 0"]
    assert 1 <= looks <= 4 and watch.times[-1] - watch.times[1] >= 0.35
    assert min(watch.gaps()[1:-1]) >= 0.1


@pytest.mark.parametrize("limit", ["0", "-5"])
def test_button_is_looked_at_once_at_least(ctrl, limit):
    assert ctrl.run(f"ctrl_test_nresetin {limit}") == "result 0\n"
    watch = Watch(ctrl)
    assert watch.requests == [RELEASED, f"{DISABLE} 0", RELEASED, f"{ENABLE} 0"]
    assert watch.gaps()[1] >= 0.1


def test_button_that_is_pushed(ctrl):
    """The push comes while the program watches; the reset function is off until a second after."""
    debug = "/sys/kernel/debug/vboard/ctrl"
    shown = ctrl.board.sh(f"{PROGRAM} 3 ctrl_test_nresetin 60000 >/tmp/watched & "
                          f"until [ $(grep -c 80044c03 {debug}/log) -ge 3 ]; do usleep 20000; done; "
                          f"echo 1 >{debug}/reset_input; wait; cat /tmp/watched; rm /tmp/watched", check=True).output
    assert shown == "result 1\n"
    watch = Watch(ctrl)
    looks = len(watch.requests) - 4
    assert looks >= 2
    assert watch.requests == [RELEASED, f"{DISABLE} 0"] + [RELEASED] * looks + [PUSHED, f"{ENABLE} 0"]
    assert min(watch.gaps()[1:-1]) >= 0.1 and watch.gaps()[-1] >= 1


def test_watch_with_requests_that_are_refused(ctrl):
    """A refused status is no push, also while the button is down; a refused enable is told, and the push counts."""
    ctrl.board.ctrl_reset_input(1)
    ctrl.board.ctrl_fail(STATUS_NUMBER, errno.EIO)
    error = "ERROR: ctrl_urst_status: ioctl(URST_STATUS) error=Input/output error\n"
    assert ctrl.run("ctrl_test_nresetin 0") == error * 2 + "result 0\n"
    assert Watch(ctrl).requests == [f"{STATUS} - -5", f"{DISABLE} 0", f"{STATUS} - -5", f"{ENABLE} 0"]
    ctrl.board.ctrl_reset_input(1)
    ctrl.board.ctrl_fail(ENABLE_NUMBER, errno.EBUSY)
    assert ctrl.run("ctrl_test_nresetin 0") == f"ERROR: ctrl_urst_enable: ioctl(URST_ENABLE) error={BUSY}\nresult 1\n"
    assert Watch(ctrl).requests == [PUSHED, f"{DISABLE} 0", PUSHED, f"{ENABLE} -16"]

"""Speed, duplex and auto-negotiation at the prompt, down to the records that the kernel is handed."""

import pytest

from ethernet import (FULL_10, FULL_100, GET_LINK, GET_SETTINGS, HALF_10, HALF_100, SET_SETTINGS, Ethernet, Settings,
                      ethtool_requests)
from network import command, without_card
from texts import FAILURE, INCOMPLETE, SUCCESS

ALL = HALF_10 | FULL_10 | HALF_100 | FULL_100

MODES = {
    "auto": ({"autoneg": 1, "advertising": ALL}, "auto"),
    "auto-10h": ({"autoneg": 1, "advertising": HALF_10}, "auto 10 half"),
    "auto-10f": ({"autoneg": 1, "advertising": FULL_10}, "auto 10 full"),
    "auto-100h": ({"autoneg": 1, "advertising": HALF_100}, "auto 100 half"),
    "auto-100f": ({"autoneg": 1, "advertising": FULL_100}, "auto 100 full"),
    "10h": ({"autoneg": 0, "speed": 10, "duplex": 0}, "fixed 10 half"),
    "10f": ({"autoneg": 0, "speed": 10, "duplex": 1}, "fixed 10 full"),
    "100h": ({"autoneg": 0, "speed": 100, "duplex": 0}, "fixed 100 half"),
    "100f": ({"autoneg": 0, "speed": 100, "duplex": 1}, "fixed 100 full"),
}


def shown(dev):
    """The link mode and link state of `network info`."""
    lines = dev.command("network info").splitlines()
    return tuple(next(line.split(" : ")[1] for line in lines if f"{label} : " in line)
                 for label in ("link mode", "link state"))


@pytest.mark.parametrize("name", ["", "eth0 "])
@pytest.mark.parametrize("mode", MODES)
def test_each_mode_is_set_and_read_back(dev, mode, name):
    changed, text = MODES[mode]
    before = Settings(autoneg=7, speed=1000)
    dev.boot()
    Ethernet(dev).settings = before
    assert command(dev, f"network ethernet link {name}{mode}") == SUCCESS
    assert ethtool_requests(dev) == [Settings(*[GET_SETTINGS] + [0] * 17).pack(),
                                     before._replace(cmd=SET_SETTINGS, **changed).pack()]
    assert shown(dev)[0] == text


@pytest.mark.parametrize("mode", ["auto", "auto-10h", "auto-10f", "auto-100h", "auto-100f"])
def test_a_card_that_lacks_the_mode_advertises_nothing(dev, mode):
    dev.boot()
    Ethernet(dev).settings = Settings(supported=0x2C0)
    assert dev.command(f"network ethernet link {mode}") == SUCCESS
    assert Ethernet(dev).settings.advertising == 0
    assert shown(dev) == ("<unknown>", "100 full")


def test_the_link_has_the_fixed_mode_when_there_is_a_cable(dev):
    dev.boot()
    dev.command("network ethernet link 10f")
    assert shown(dev) == ("fixed 10 full", "10 full")
    Ethernet(dev).set(cable=0)
    assert shown(dev) == ("fixed 10 full", "down")
    dev.command("network ethernet link auto")
    assert shown(dev) == ("auto", "down")


def test_the_link_is_asked_for_before_the_settings(dev):
    dev.boot()
    dev.mark()
    dev.command("network info")
    assert [request[0] for request in ethtool_requests(dev)] == [GET_LINK, GET_SETTINGS]


@pytest.mark.parametrize("words, output", [
    ("", INCOMPLETE),
    (" eth0", INCOMPLETE),
    (" AUTO", "ERROR: Invalid parameter 'AUTO'\n"),
    (" aut", "ERROR: Invalid parameter 'aut'\n"),
    (" auto-", "ERROR: Invalid parameter 'auto-'\n"),
    (" 10", "ERROR: Invalid parameter '10'\n"),
    (" 1000f", "ERROR: Invalid parameter '1000f'\n"),
    (" eth1 auto", "ERROR: Invalid parameter 'eth1'\n"),
    (" eth1 10h", "ERROR: Invalid parameter 'eth1'\n"),
    (" eth0 eth0", "ERROR: Invalid parameter 'eth0'\n"),
])
def test_words_that_are_refused(dev, words, output):
    dev.boot()
    assert command(dev, f"network ethernet link{words}") == output
    assert ethtool_requests(dev) == []


def test_surplus_words_are_ignored(dev):
    dev.boot()
    assert dev.command("network ethernet link 10h 100f") == SUCCESS
    assert Ethernet(dev).settings.speed == 10


def test_a_failure_shows_only_the_result(dev):
    without_card(dev)
    dev.boot()
    assert dev.command("network ethernet link auto") == FAILURE
    dev.command("verbose 6")
    assert dev.command("network ethernet link auto-100h") == (
        "VERBOSE: cmd_network_ethernet_link: if_idx=0 mode=auto-100h\n"
        "VERBOSE: Failed to get device settings for 'eth0'\n" + FAILURE)


def test_a_card_that_refuses_the_mode(dev):
    dev.boot()
    dev.command("verbose 6")
    dev.answer_ioctl(0x8946, "socket", error="EINVAL", after=1)
    before = Ethernet(dev).settings
    assert dev.command("network ethernet link 100h").endswith("VERBOSE: Failed to set device settings for 'eth0'\n" + FAILURE)
    assert Ethernet(dev).settings == before


def test_no_socket(dev):
    dev.boot()
    dev.command("verbose 6")
    dev.fail_call("socket", error="EMFILE")
    assert dev.command("network ethernet link auto").endswith("VERBOSE: Failed to get control socket for 'eth0'\n" + FAILURE)


def test_setting_a_mode_does_not_start_the_interface(dev):
    dev.boot()
    dev.mark()
    dev.command("network ethernet link 100f")
    assert dev.ran == []
    assert "(down)" in dev.command("network info")

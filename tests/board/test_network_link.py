"""Speed, duplex and auto-negotiation of a real card: all nine modes, read back by the shell and, by another request, by
ethtool."""

import pytest

from texts import DHCP, SUCCESS
from wired_network import HOST, LEASE, NO_PRODUCT, Settings, info, interface, settings

MODES = {
    # keyword: configured mode, link state, and what the card is set to
    "auto-10h": ("auto 10 half", "10 half", Settings(True, {"10baseT/Half"}, "10Mb/s", "Half")),
    "auto-10f": ("auto 10 full", "10 full", Settings(True, {"10baseT/Full"}, "10Mb/s", "Full")),
    "auto-100h": ("auto 100 half", "100 half", Settings(True, {"100baseT/Half"}, "100Mb/s", "Half")),
    "auto-100f": ("auto 100 full", "100 full", Settings(True, {"100baseT/Full"}, "100Mb/s", "Full")),
    # A fixed mode leaves the advertised modes as they were.
    "10h": ("fixed 10 half", "10 half", Settings(False, {"100baseT/Full"}, "10Mb/s", "Half")),
    "10f": ("fixed 10 full", "10 full", Settings(False, {"100baseT/Full"}, "10Mb/s", "Full")),
    "100h": ("fixed 100 half", "100 half", Settings(False, {"100baseT/Full"}, "100Mb/s", "Half")),
    "100f": ("fixed 100 full", "100 full", Settings(False, {"100baseT/Full"}, "100Mb/s", "Full")),
    "auto": ("auto", "100 full", Settings(True, {"10baseT/Half", "10baseT/Full", "100baseT/Half", "100baseT/Full"},
                                          "100Mb/s", "Full")),
}
NEGOTIATING = MODES["auto"][2]


@pytest.mark.parametrize("name", ["", "eth0 "])
def test_every_mode_while_the_interface_is_stopped(dev, name):
    for keyword, (mode, _, card) in MODES.items():
        assert dev.command(f"network ethernet link {name}{keyword}") == SUCCESS
        assert dev.command("network info") == info("down", mode=mode)
        assert settings(dev) == card, keyword
        assert not interface(dev).up, "setting a mode does not start the interface"


def test_every_mode_of_a_link(dev):
    assert dev.command("network ethernet start") == DHCP + NO_PRODUCT + SUCCESS
    for keyword, (mode, link, card) in MODES.items():
        assert dev.command(f"network ethernet link {keyword}") == SUCCESS
        assert dev.command("network info") == info("up", **LEASE, mode=mode, link=link)
        assert settings(dev) == card, keyword
        assert dev.board.sh(f"ping -c 1 -W 5 {HOST}").status == 0, keyword


def test_every_mode_without_a_cable(dev):
    assert dev.command("network ethernet start") == DHCP + NO_PRODUCT + SUCCESS
    dev.board.unplug()
    for keyword, (mode, _, card) in MODES.items():
        assert dev.command(f"network ethernet link {keyword}") == SUCCESS
        assert dev.command("network info") == info("up", **LEASE, mode=mode, link="down")
        assert settings(dev) == card, keyword

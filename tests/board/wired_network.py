"""The wired interface on the board: what the shell says about it, and what the kernel says when it is asked from outside.

    assert dev.command("network ethernet start") == DHCP + NO_PRODUCT + SUCCESS
    assert dev.command("network info") == info("up", **LEASE, link="100 full")
    assert interface(dev) == Interface(up=True, running=True, mac=MAC, address="10.0.2.15/24", gateway="10.0.2.2")
    assert settings(dev).speed == "100Mb/s"
"""

import re
import time
from typing import NamedTuple

from board_session import PATIENCE
from texts import network_info

NO_LINK = "NOTE: Network link up timeout\n"

# The card's own address, the computer behind the cable, an address that nobody has, and what the computer leases.
MAC = "52:54:00:12:34:56"
HOST, NOBODY = "10.0.2.2", "10.0.2.99"
LEASE = {"ip": "10.0.2.15", "netmask": "255.255.255.0", "gateway": HOST}
NO_PRODUCT = f"NOTE: Can't get mac address from product config, using {MAC}\n"


def info(state, mac=MAC, **shown):
    """What `network info` shows."""
    return network_info(state, mac.upper(), **shown)


class Interface(NamedTuple):
    """The interface as the kernel has it. `running`: up, and with a link."""

    up: bool
    running: bool
    mac: str
    address: str | None = None
    gateway: str | None = None


def interface(dev):
    shown = dev.board.sh("ip address show eth0; ip route", check=True).output
    flags = re.search(r"<(.*?)>", shown)[1].split(",")
    address, gateway = re.search(r"inet (\S+)", shown), re.search(r"^default via (\S+) dev eth0", shown, re.MULTILINE)
    return Interface("UP" in flags, "LOWER_UP" in flags, re.search(r"ether (\S+)", shown)[1],
                     address and address[1], gateway and gateway[1])


class Settings(NamedTuple):
    """The card's settings as the kernel has them, in the words of ethtool."""

    negotiates: bool
    advertised: set[str]
    speed: str
    duplex: str


def settings(dev):
    shown = dev.board.sh("ethtool eth0", check=True).output
    one = dict(re.findall(r"^\t(\S.*?): +(\S.*)$", shown, re.MULTILINE))
    advertised = re.search(r"Advertised link modes:((?:\s+\d+base\S+|\s+Not reported)+)", shown)[1]
    return Settings(one["Auto-negotiation"] == "on", set(re.findall(r"\d+base\S+", advertised)), one["Speed"],
                    one["Duplex"])


def wait_running(dev, running):
    """Waits until the card's driver has noticed that the cable was plugged in or pulled."""
    deadline = time.monotonic() + PATIENCE
    while interface(dev).running != running:
        assert time.monotonic() < deadline, "the driver does not notice the cable"
        time.sleep(0.05)

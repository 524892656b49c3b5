"""The wired interface of a device root, seen from a test: state() and set() of what ethernet.h describes."""

import struct
from typing import NamedTuple

from product import MAC, record

FILE = "/.harness/eth0"

SIOCGIFADDR = 0x8915
SIOCGIFNETMASK = 0x891B
SIOCGIFHWADDR = 0x8927
SIOCETHTOOL = 0x8946

GET_SETTINGS, SET_SETTINGS, GET_LINK = 1, 2, 0xA

HALF_10, FULL_10, HALF_100, FULL_100 = 1, 2, 4, 8


class Settings(NamedTuple):
    """struct ethtool_cmd of linux/ethtool.h, field by field; the fresh card's values but for numbers that tell the
    other fields apart."""

    cmd: int = GET_SETTINGS
    supported: int = 0x2CF
    advertising: int = 0x2CF
    speed: int = 100
    duplex: int = 1
    port: int = 0
    phy_address: int = 2
    transceiver: int = 3
    autoneg: int = 1
    mdio_support: int = 5
    maxtxpkt: int = 6
    maxrxpkt: int = 7
    speed_hi: int = 8
    eth_tp_mdix: int = 9
    eth_tp_mdix_ctrl: int = 10
    lp_advertising: int = 11
    reserved_0: int = 12
    reserved_1: int = 13

    _FORMAT = "<IIIHBBBBBBIIHBBIII"

    def pack(self) -> bytes:
        return struct.pack(self._FORMAT, *self)

    @classmethod
    def unpack(cls, data: bytes) -> "Settings":
        return cls(*struct.unpack(cls._FORMAT, data))


class Ethernet:
    """`Ethernet(dev).set(cable=0)` before or during a session."""

    def __init__(self, device):
        self._file = device.path(FILE)

    def state(self) -> dict[str, str]:
        return dict(line.split("=", 1) for line in self._file.read_text(encoding="ascii").splitlines())

    def set(self, **values) -> None:
        lines = {**self.state(), **{key: str(value) for key, value in values.items()}}
        self._file.write_text("".join(f"{key}={value}\n" for key, value in lines.items()), encoding="ascii")

    @property
    def settings(self) -> Settings:
        return Settings.unpack(bytes.fromhex(self.state()["settings"]))

    @settings.setter
    def settings(self, settings: Settings) -> None:
        self.set(settings=settings.pack().hex())


def ethtool_requests(device) -> list[bytes]:
    """The records of the ethtool requests since the last mark(), as they were handed to the kernel."""
    return [event.argument[16:] for event in device.ioctls if event.request == SIOCETHTOOL]


def product_record(mac: str) -> bytes:
    """A product configuration record (src/prodcfg/record.h) whose only item is MAC address 0."""
    return record((MAC[0], bytes.fromhex(mac.replace(":", ""))))

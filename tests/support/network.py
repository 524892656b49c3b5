"""A network session as tests see it: the wired interface, what starting it shows and does, and its texts."""

from ethernet import product_record
from root_session import RootSession
from texts import SUCCESS

NO_PRODUCT = "NOTE: Can't get mac address from product config, using 00:20:4A:00:00:02\n"
UNABLE_TO_CONFIGURE = "ERROR: Unable to configure network 'eth0'\n"
UNABLE_TO_START = "ERROR: Unable to start network 'eth0'\n"

OWN_MAC = "00:20:4a:00:00:02"  # of the interface of a fresh root

# What a start does, in the form of steps().
UP = ["/sbin/ifconfig eth0 up 2>&1"]
DOWN = ["/sbin/ifconfig eth0 down 2>&1", 2]
POLL = ["/sbin/ifconfig eth0"]
LINKED = [*POLL, 2, *POLL]
LEASE = ["/sbin/udhcpc -nq -t 5 -i eth0 &>/dev/null"]
STARTED_BY_DHCP = [*UP, *LINKED, *LEASE, 1]


def set_mac(mac: str) -> list:
    return [f"/sbin/ifconfig eth0 hw ether {mac.upper()} 2>&1"]


def steps(dev: RootSession) -> list:
    """Since the last mark(), in order: command lines as the program composed them, and pauses in seconds."""
    return [event.line if event.kind == "shell" else event.seconds for event in dev.events.of("shell", "sleep")]


def command(dev: RootSession, line: str) -> str:
    """Types a command; the judgement of what it did begins here."""
    dev.mark()
    return dev.command(line)


def start(dev: RootSession, line: str = "network ethernet start") -> None:
    """Starts the interface of a fresh root."""
    assert dev.command(line).endswith(SUCCESS)
    dev.mark()


def put_product_mac(dev: RootSession, mac: str) -> None:
    """Gives the device a product record with this MAC address; to be called before the start."""
    dev.partition("prod_config").write(product_record(mac))


def without_card(dev: RootSession) -> None:
    dev.remove("/.harness/eth0")

"""The wired interface with a real card, kernel, DHCP server and tools: start, stop, info, ping, MAC address and cable."""

import re

from board_session import BoardSession
from ethernet import product_record
from texts import ALREADY_RUNNING, ALREADY_STOPPED, DHCP, FAILURE, STATIC, SUCCESS, USING_ETH0
from wired_network import HOST, LEASE, MAC, NO_LINK, NO_PRODUCT, NOBODY, Interface, info, interface, wait_running

DOWN = Interface(up=False, running=False, mac=MAC)
LEASED = Interface(up=True, running=True, mac=MAC, address="10.0.2.15/24", gateway=HOST)


def test_dhcp(dev):
    assert dev.command("network info") == info("down")
    assert interface(dev) == DOWN

    assert dev.command("network ethernet start") == DHCP + NO_PRODUCT + SUCCESS
    assert dev.command("network info") == info("up", **LEASE, link="100 full")
    assert interface(dev) == LEASED
    assert dev.command("network ethernet start") == ALREADY_RUNNING + FAILURE
    assert dev.command("network ethernet start 10.0.2.77 255.255.255.0") == ALREADY_RUNNING + FAILURE
    assert interface(dev) == LEASED, "a started interface is left as it is"

    assert dev.command("network ethernet stop") == SUCCESS
    assert dev.command("network info eth0") == info("down", ip="10.0.2.15", netmask="255.255.255.0")
    assert interface(dev) == DOWN._replace(address="10.0.2.15/24"), "the routes go with the interface, the address stays"
    assert dev.command("network ethernet stop") == ALREADY_STOPPED + SUCCESS

    assert dev.command("network ethernet start eth0") == DHCP + NO_PRODUCT + SUCCESS
    assert dev.command("network info eth0") == info("up", **LEASE, link="100 full")
    assert interface(dev) == LEASED


def test_static_addresses(dev):
    assert dev.command(f"network ethernet start 10.0.2.77 255.255.255.0 {HOST}") == STATIC + NO_PRODUCT + SUCCESS
    assert dev.command("network info") == info("up", ip="10.0.2.77", netmask="255.255.255.0", gateway=HOST, link="100 full")
    assert interface(dev) == Interface(up=True, running=True, mac=MAC, address="10.0.2.77/24", gateway=HOST)
    assert dev.board.sh(f"ping -c 1 -W 5 {HOST}").status == 0

    assert dev.command("network ethernet stop unknown") == SUCCESS
    assert interface(dev) == DOWN._replace(address="10.0.2.77/24")

    assert dev.command("network ethernet start eth0 10.0.7.8 255.255.240.0") == STATIC + NO_PRODUCT + SUCCESS
    assert dev.command("network info") == info("up", ip="10.0.7.8", netmask="255.255.240.0", link="100 full")
    assert interface(dev) == Interface(up=True, running=True, mac=MAC, address="10.0.7.8/20")


def test_no_dhcp_server(tmp_path):
    with BoardSession(tmp_path, netdev="hubport,hubid=0") as dev:
        dev.boot()
        assert dev.command("network ethernet start") == (
            DHCP + NO_PRODUCT + "ERROR: system(/sbin/udhcpc -nq -t 5 -i eth0 &>/dev/null) sys_rc=256 exitstatus=1\n"
            "NOTE: DHCP request failed\n" + FAILURE)
        assert dev.command("network info") == info("down", link="100 full"), "down, for it was not started"
        assert interface(dev) == Interface(up=True, running=True, mac=MAC)
        dev.check()


def test_a_gateway_that_cannot_be_reached(dev):
    """The tool says so, and that is a failure; what was configured until then stays, and a stop has nothing to do."""
    assert dev.command("network ethernet start 10.0.2.77 255.255.255.0 192.168.1.1") == (
        STATIC + NO_PRODUCT + "NOTE: route: SIOCADDRT: Network is unreachable\nERROR: Child exit status=1\n"
        "ERROR: Exit status=255\n"
        "ERROR: Unable to configure network 'eth0'\n" + FAILURE)
    assert interface(dev)._replace(running=False) == DOWN._replace(up=True, address="10.0.2.77/24")
    assert dev.command("network ethernet stop") == ALREADY_STOPPED + SUCCESS
    assert interface(dev).up


# ---------------------------------------------------------------------- ping


def ping(dev, words):
    """What `network ping` shows, with all times alike."""
    times = re.sub(r"time=[\d.]+ ms", "time=T ms", dev.command(f"network ping {words}"))
    return re.sub(r"= [\d.]+/[\d.]+/[\d.]+ ms\n", "= T/T/T ms\n", times)


REPLIES = (f"PING {HOST} ({HOST}): 56 data bytes\n"
           + "".join(f"64 bytes from {HOST}: seq={number} ttl=255 time=T ms\n" for number in range(4))
           + f"\n--- {HOST} ping statistics ---\n4 packets transmitted, 4 packets received, 0% packet loss\n"
           "round-trip min/avg/max = T/T/T ms\n")
SILENCE = (f"PING {NOBODY} ({NOBODY}): 56 data bytes\n\n--- {NOBODY} ping statistics ---\n"
           "4 packets transmitted, 0 packets received, 100% packet loss\n")


def test_ping(dev):
    assert dev.command(f"network ping {HOST}") == "ERROR: No network interface is running\n"
    assert dev.command(f"network ping eth0 {HOST}") == "ERROR: Network interface 'eth0' is not running\n"
    assert interface(dev) == DOWN, "a ping does not start the interface"

    assert dev.command("network ethernet start") == DHCP + NO_PRODUCT + SUCCESS
    assert ping(dev, HOST) == USING_ETH0 + REPLIES + SUCCESS
    assert ping(dev, f"eth0 {HOST}") == REPLIES + SUCCESS
    assert ping(dev, f"eth0 {NOBODY}") == SILENCE + SUCCESS
    assert ping(dev, NOBODY) == USING_ETH0 + SILENCE + SUCCESS


# ---------------------------------------------------------------------- the MAC address of the product record

OTHER_MAC = "00:00:5e:bc:de:0f"


def test_the_mac_address_of_the_product_record(tmp_path):
    with BoardSession(tmp_path) as dev:
        dev.board.flash_write("prod_config", product_record(OTHER_MAC))
        dev.boot()
        assert interface(dev) == DOWN, "not before the interface is started"

        assert dev.command("network ethernet start") == DHCP + "NOTE: Reconfiguring eth0 mac address\n" + SUCCESS
        assert dev.command("network info") == info("up", mac=OTHER_MAC, **LEASE, link="100 full")
        assert interface(dev) == LEASED._replace(mac=OTHER_MAC)

        assert dev.command("network ethernet stop") == SUCCESS
        assert dev.command("network ethernet start 10.0.2.77 255.255.255.0") == STATIC + SUCCESS, "it has it already"
        assert interface(dev) == Interface(up=True, running=True, mac=OTHER_MAC, address="10.0.2.77/24")
        dev.check()


# ---------------------------------------------------------------------- the cable

IFCONFIG = "/sbin/ifconfig"
IFCONFIG_THAT_TELLS = b"""#!/bin/sh
read -r now rest </proc/uptime
echo "$now $*" >>/tmp/calls
exec /bin/busybox ifconfig "$@"
"""


def listened(dev, line):
    """Types a command; returns what it showed, the arguments of the ifconfigs that ran, and the seconds between them."""
    dev.board.sh(f"rm -f /tmp/calls {IFCONFIG}", check=True)
    dev.board.put(IFCONFIG, IFCONFIG_THAT_TELLS, 0o755)
    shown = dev.command(line)
    dev.board.sh(f"ln -sf /bin/busybox {IFCONFIG}", check=True)
    times, calls = zip(*(call.split(" ", 1) for call in dev.board.get("/tmp/calls").decode().splitlines()))
    dev.board.sh("rm /tmp/calls", check=True)
    times = [float(time) for time in times]
    return shown, list(calls), [later - earlier for earlier, later in zip(times, times[1:])]


def test_no_cable(dev):
    dev.board.unplug()
    shown, calls, pauses = listened(dev, "network ethernet start")
    assert shown == DHCP + NO_PRODUCT + NO_LINK + FAILURE
    assert calls == ["eth0 up"] + ["eth0"] * (1 + 6), "one look for UP, six for RUNNING"
    assert pauses[1] >= 1.99 and all(pause >= 0.99 for pause in pauses[2:]), pauses
    assert dev.command("network info") == info("down")
    assert interface(dev) == DOWN._replace(up=True)

    dev.board.plug_in()
    assert dev.command("network ethernet start") == DHCP + NO_PRODUCT + SUCCESS
    assert interface(dev) == LEASED


def test_cable_pulled_while_the_interface_is_started(dev):
    assert dev.command("network ethernet start") == DHCP + NO_PRODUCT + SUCCESS
    dev.board.unplug()
    assert dev.command("network info") == info("up", **LEASE, link="down"), "up is what the shell made it"
    wait_running(dev, False)
    assert interface(dev) == LEASED._replace(running=False)

    dev.board.plug_in()
    assert dev.command("network info") == info("up", **LEASE, link="100 full")
    wait_running(dev, True)
    assert dev.board.sh(f"ping -c 1 -W 5 {HOST}").status == 0

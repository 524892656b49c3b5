"""The wired interface at the prompt: start, stop, info and ping."""

import pytest

from ethernet import Ethernet
from network import (DOWN, LEASE, LINKED, NO_PRODUCT, OWN_MAC, POLL, STARTED_BY_DHCP, UNABLE_TO_CONFIGURE, UP, command,
                     put_product_mac, set_mac, start, steps, without_card)
from texts import ALREADY_RUNNING, ALREADY_STOPPED, DHCP, FAILURE, INCOMPLETE, STATIC, SUCCESS, USING_ETH0, network_info

OTHER_MAC = "00:00:5e:bc:de:0f"

# ---------------------------------------------------------------------- start


@pytest.mark.parametrize("line", ["network ethernet start", "network ethernet start eth0", "net eth sta",
                                  "NETWORK Ethernet START eth0"])
def test_start_by_dhcp(dev, line):
    dev.boot()
    assert command(dev, line) == DHCP + NO_PRODUCT + SUCCESS
    assert steps(dev) == STARTED_BY_DHCP


@pytest.mark.parametrize("name", ["", "eth0 "])
@pytest.mark.parametrize("words, configuration", [
    ("192.168.1.5 255.255.255.0", []),
    ("192.168.1.5 255.255.255.0 192.168.1.1", ["/sbin/route add default gw 192.168.1.1 eth0 2>&1"]),
    ("192.168.1.5 255.255.255.0 192.168.1.1 and more words", ["/sbin/route add default gw 192.168.1.1 eth0 2>&1"]),
])
def test_start_with_a_static_address(dev, name, words, configuration):
    dev.boot()
    assert command(dev, f"network ethernet start {name}{words}") == STATIC + NO_PRODUCT + SUCCESS
    assert steps(dev) == [*DOWN, "/sbin/ifconfig eth0 192.168.1.5 2>&1", "/sbin/ifconfig eth0 netmask 255.255.255.0 2>&1",
                          *configuration, *UP, *LINKED, 1]
    assert Ethernet(dev).state()["address"] == "192.168.1.5"


@pytest.mark.parametrize("words, output", [
    ("192.168.1.5", INCOMPLETE),
    ("eth0 192.168.1.5", INCOMPLETE),
    ("0.0.0.0 255.255.255.0", "ERROR: Invalid IP address '0.0.0.0'\n"),
    ("255.255.255.255 255.255.255.0", "ERROR: Invalid IP address '255.255.255.255'\n"),
    ("eth1", "ERROR: Invalid IP address 'eth1'\n"),
    ("ETH0", "ERROR: Invalid IP address 'ETH0'\n"),
    ("dhcp", "ERROR: Invalid IP address 'dhcp'\n"),
    ("eth0 eth0", "ERROR: Invalid IP address 'eth0'\n"),
    ("192.168.1.256", "ERROR: Invalid IP address '192.168.1.256'\n"),
    ("192.168.1.5 0.0.0.0", "ERROR: Invalid netmask '0.0.0.0'\n"),
    ("192.168.1.5 255.255.255.255", "ERROR: Invalid netmask '255.255.255.255'\n"),
    ("192.168.1.5 255.255.255", "ERROR: Invalid netmask '255.255.255'\n"),
    ("192.168.1.5 255.255.255.0 0.0.0.0", "ERROR: Invalid gateway '0.0.0.0'\n"),
    ("192.168.1.5 255.255.255.0 255.255.255.255", "ERROR: Invalid gateway '255.255.255.255'\n"),
    ("192.168.1.5 255.255.255.0 gw", "ERROR: Invalid gateway 'gw'\n"),
    ("192.168.1.5 255.255.255.0 $(reboot)", "ERROR: Invalid gateway '$(reboot)'\n"),
    ("10.0.2.77 255.255.255.255", "ERROR: Invalid netmask '255.255.255.255'\n"),
    ("10.0.2.77 255.255.255.0 $(reboot)", "ERROR: Invalid gateway '$(reboot)'\n"),
])
def test_words_that_start_refuses_leave_the_interface_alone(dev, words, output):
    dev.boot()
    assert command(dev, f"network ethernet start {words}") == output
    assert steps(dev) == [] and not dev.ioctls


def test_addresses_reach_the_tools_as_numbers(dev):
    """What is accepted as an address may be written strangely; the command line has the number."""
    dev.boot()
    command(dev, "network ethernet start 010.1.02.3 255.0.0.0. 10.0.0.1")
    assert steps(dev)[2:5] == ["/sbin/ifconfig eth0 10.1.2.3 2>&1", "/sbin/ifconfig eth0 netmask 255.0.0.0 2>&1",
                               "/sbin/route add default gw 10.0.0.1 eth0 2>&1"]


@pytest.mark.parametrize("words", ["", " eth0", " 192.168.1.5 255.255.255.0", " eth0 192.168.1.5 255.255.255.0"])
def test_a_started_interface_is_not_started_again(dev, words):
    dev.boot()
    start(dev)
    assert command(dev, f"network ethernet start{words}") == ALREADY_RUNNING + FAILURE
    assert steps(dev) == [] and not dev.ioctls


def test_words_are_checked_before_the_state(dev):
    dev.boot()
    start(dev)
    assert command(dev, "network ethernet start 192.168.1.5") == INCOMPLETE


def test_the_mac_address_of_the_product_record_is_set(dev):
    put_product_mac(dev, OTHER_MAC)
    dev.boot()
    assert command(dev, "network ethernet start") == DHCP + "NOTE: Reconfiguring eth0 mac address\n" + SUCCESS
    assert steps(dev) == [*DOWN, *set_mac(OTHER_MAC), *STARTED_BY_DHCP]
    assert Ethernet(dev).state()["hwaddr"] == OTHER_MAC.upper()
    dev.command("network ethernet stop")
    assert command(dev, "network ethernet start") == DHCP + SUCCESS, "it is set already"
    assert steps(dev) == STARTED_BY_DHCP


def test_the_right_mac_address_is_not_set_again(dev):
    put_product_mac(dev, OWN_MAC)
    dev.boot()
    assert command(dev, "network ethernet start") == DHCP + SUCCESS
    assert steps(dev) == STARTED_BY_DHCP, "the interface was not taken down"
    dev.command("network ethernet stop")
    assert command(dev, "network ethernet start 10.0.0.2 255.0.0.0") == STATIC + SUCCESS
    assert steps(dev)[:2] == DOWN, "a static address takes it down nevertheless"


@pytest.mark.parametrize("mac", ["01:00:5e:bc:de:0f", "ff:ff:ff:ff:ff:ff", "00:00:00:00:00:00"])
def test_a_mac_address_that_no_card_may_have_is_not_set(dev, mac):
    put_product_mac(dev, mac)
    dev.boot()
    assert command(dev, "network ethernet start") == DHCP + NO_PRODUCT + SUCCESS
    assert steps(dev) == STARTED_BY_DHCP


def test_start_without_a_card(dev):
    without_card(dev)
    dev.boot()
    assert command(dev, "network ethernet start") == (
        DHCP + "ERROR: Can't get configured mac address\n" + UNABLE_TO_CONFIGURE + FAILURE)
    assert steps(dev) == []


@pytest.mark.parametrize("lines", [1, 3])
def test_a_tool_that_prints_anything_has_failed(dev, lines):
    dev.answer("ifconfig", when="netmask", stdout="a warning\n" * lines)
    dev.boot()
    assert command(dev, "network ethernet start 10.0.0.2 255.0.0.0 10.0.0.1") == (
        STATIC + NO_PRODUCT + "NOTE: a warning\n" * lines + f"ERROR: Exit status={lines}\n" + UNABLE_TO_CONFIGURE + FAILURE)
    assert steps(dev)[-1] == "/sbin/ifconfig eth0 netmask 255.0.0.0 2>&1", "nothing is undone"
    assert "(down)" in dev.command("network info")


def test_an_interface_that_does_not_come_up(dev):
    dev.boot()
    Ethernet(dev).set(up_after=3)
    assert command(dev, "network ethernet start") == (
        DHCP + NO_PRODUCT + "NOTE: Network interface up timeout\n" + FAILURE)
    assert steps(dev) == [*UP, *POLL, 1, *POLL, 1, *POLL]


def test_an_interface_without_a_cable(dev):
    dev.boot()
    Ethernet(dev).set(cable=0)
    assert command(dev, "network ethernet start") == (
        DHCP + NO_PRODUCT + "NOTE: Network link up timeout\n" + FAILURE)
    assert steps(dev) == [*UP, *POLL, 2, *([*POLL, 1] * 5), *POLL]
    Ethernet(dev).set(cable=1)
    assert command(dev, "network ethernet start") == DHCP + NO_PRODUCT + SUCCESS
    assert steps(dev) == STARTED_BY_DHCP


def test_no_answer_to_the_request_for_an_address(dev):
    dev.answer("udhcpc", times=1, status=1, stdout="udhcpc: no lease, failing\n")
    dev.boot()
    assert command(dev, "network ethernet start") == (
        DHCP + NO_PRODUCT + "ERROR: system(/sbin/udhcpc -nq -t 5 -i eth0 &>/dev/null) sys_rc=256 exitstatus=1\n"
        "NOTE: DHCP request failed\n" + FAILURE)
    assert steps(dev) == [*UP, *LINKED, *LEASE]
    assert command(dev, "network ethernet start") == DHCP + NO_PRODUCT + SUCCESS


def test_the_words_of_start_at_verbose(dev):
    dev.boot()
    dev.command("verbose 6")
    prefix = "VERBOSE: cmd_network_ethernet_start: "
    assert dev.command("network ethernet start 10.0.0.2 255.0.0.0").startswith(
        f"{prefix}ip_addr=10.0.0.2\n{prefix}netmask=255.0.0.0\n{prefix}gateway=0.0.0.0\n" + STATIC)
    assert dev.command("network ethernet start") == (
        f"{prefix}ip_addr=0.0.0.0\n{prefix}netmask=0.0.0.0\n{prefix}gateway=0.0.0.0\n" + ALREADY_RUNNING + FAILURE)


def test_ctrl_c_ends_a_tool_that_configures_and_the_start_with_it(dev):
    dev.answer("ifconfig", when="eth0 192.168.1.5", hold=60, times=1)
    dev.boot()
    dev.mark()
    dev.type("network ethernet start 192.168.1.5 255.255.255.0")
    dev.wait_for("answer")
    dev.interrupt()
    assert dev.text_until_prompt().endswith(
        "\n" + STATIC + NO_PRODUCT + "\nERROR: Terminated by signal\n" + UNABLE_TO_CONFIGURE + FAILURE)
    assert steps(dev) == [*DOWN, "/sbin/ifconfig eth0 192.168.1.5 2>&1"]
    assert dev.ignores(2)
    assert "(down)" in dev.command("network info")


def test_ctrl_c_does_not_end_the_request_for_an_address(dev):
    dev.answer("udhcpc", delay=1)
    dev.boot()
    dev.type("network ethernet start")
    dev.wait_for("run", "ignored", "/sbin/udhcpc")
    dev.interrupt()
    assert dev.text_until_prompt().endswith("\n" + DHCP + NO_PRODUCT + SUCCESS)
    assert "(up)" in dev.command("network info")


# ---------------------------------------------------------------------- stop


@pytest.mark.parametrize("words", ["", " eth0", " foo", " eth1", " eth0 more"])
def test_stop(dev, words):
    dev.boot()
    assert command(dev, f"network ethernet stop{words}") == ALREADY_STOPPED + SUCCESS
    assert steps(dev) == []
    start(dev)
    assert command(dev, f"network ethernet stop{words}") == SUCCESS
    assert steps(dev) == ["/sbin/ifconfig eth0 down 2>&1"]
    assert command(dev, f"network ethernet stop{words}") == ALREADY_STOPPED + SUCCESS


def test_stop_succeeds_whatever_the_tool_does(dev):
    dev.boot()
    start(dev)
    dev.answer("ifconfig", when="down", status=1)
    assert dev.command("network ethernet stop").endswith(SUCCESS)
    assert "(down)" in dev.command("network info")


def test_ctrl_c_while_it_stops_counts_as_stopped(dev):
    """The interface may still be up: the tool that takes it down was ended."""
    dev.boot()
    start(dev)
    dev.answer("ifconfig", when="down", hold=60, times=1)
    dev.type("network ethernet stop")
    dev.wait_for("answer")
    dev.interrupt()
    assert dev.text_until_prompt() == "network ethernet stop\n\nERROR: Terminated by signal\n" + SUCCESS
    assert dev.ignores(2)
    assert dev.command("network ethernet stop") == ALREADY_STOPPED + SUCCESS


def test_an_interface_that_was_configured_halfway_counts_as_stopped(dev):
    dev.answer("udhcpc", status=1)
    dev.boot()
    dev.command("network ethernet start")
    assert command(dev, "network ethernet stop") == ALREADY_STOPPED + SUCCESS
    assert Ethernet(dev).state()["up"] == "1", "the program's own record counts, not the kernel's"


# ---------------------------------------------------------------------- info


def info(state, hw="00:20:4A:00:00:02", link="100 full", **shown):
    return network_info(state, hw, link=link, **shown)


@pytest.mark.parametrize("line", ["network info", "network info eth0", "network info eth0 eth1"])
def test_info_before_between_and_after(dev, line):
    dev.answer("iproute", times=1)
    dev.answer("iproute", times=1, stdout="default via 10.0.0.1 dev eth0\n10.0.0.0/8 dev eth0\n")
    dev.boot()
    assert dev.command(line) == info("down")
    start(dev, "network ethernet start 10.0.0.2 255.0.0.0 10.0.0.1")
    assert dev.command(line) == info("up", ip="10.0.0.2", netmask="255.0.0.0", gateway="10.0.0.1")
    dev.command("network ethernet stop")
    assert dev.command(line) == info("down", ip="10.0.0.2", netmask="255.0.0.0"), "what the kernel still has"


def test_info_up_and_down_is_the_programs_own_record(dev):
    dev.boot()
    Ethernet(dev).set(up=1, address="10.0.0.7", netmask="255.0.0.0")
    assert dev.command("network info") == info("down", ip="10.0.0.7", netmask="255.0.0.0")


def test_info_without_a_card(dev):
    without_card(dev)
    dev.boot()
    assert dev.command("network info") == info("down", hw="<unavailable>", mode="<error>", link="<error>")


def test_info_asks_in_this_order(dev):
    dev.boot()
    dev.mark()
    dev.command("network info")
    kinds = [f"{event.request:#x}" if event.kind == "ioctl" else event.line for event in dev.events.of("ioctl", "shell")]
    assert kinds == ["0x8927", "0x8915", "0x891b",
                     "/bin/iproute | /bin/grep eth0 | /bin/grep default | /usr/bin/awk '{print $3}'", "0x8946", "0x8946"]


@pytest.mark.parametrize("name", ["eth1", "ETH0", "lo", "eth"])
def test_info_of_an_unknown_interface(dev, name):
    dev.boot()
    assert command(dev, f"network info {name}") == f"ERROR: Invalid parameter '{name}'\n"
    assert not dev.ioctls


# ---------------------------------------------------------------------- ping

PING = "/bin/ping -I eth0 -c 4 -W 2 10.0.0.1 2>&1"
REPLIES = "PING 10.0.0.1 (10.0.0.1): 56 data bytes\n64 bytes from 10.0.0.1: seq=0 ttl=64 time=0.4 ms\n"
SILENCE = "PING 10.0.0.1 (10.0.0.1): 56 data bytes\n\n4 packets transmitted, 0 packets received, 100% packet loss\n"


@pytest.mark.parametrize("name, notice", [("", USING_ETH0), ("eth0 ", "")])
@pytest.mark.parametrize("status, stdout", [(0, REPLIES), (1, SILENCE)])
def test_ping_shows_what_the_tool_says_and_succeeds(dev, name, notice, status, stdout):
    dev.answer("ping", status=status, stdout=stdout)
    dev.boot()
    start(dev)
    assert command(dev, f"network ping {name}10.0.0.1") == notice + stdout + SUCCESS
    assert steps(dev) == [PING]


def test_ping_prints_lines_as_they_come(dev):
    dev.answer("ping", stdout="first\n", held="end")
    dev.boot()
    start(dev)
    dev.type("network ping 10.0.0.1")
    dev.expect("first\n")
    dev.release("ping")
    assert dev.text_until_prompt() == SUCCESS


def test_ctrl_c_is_left_to_the_ping(dev):
    """The shell goes on reading what it says, whatever it makes of Ctrl-C."""
    dev.answer("ping", stdout=REPLIES, hold=1)
    dev.boot()
    start(dev)
    dev.type("network ping eth0 10.0.0.1")
    dev.expect(REPLIES)
    dev.interrupt()
    assert dev.text_until_prompt() == SUCCESS
    assert [str(event) for event in dev.events.of("exit")][-1] == "exit ping 0"
    assert dev.ignores(2)


def test_ping_does_not_start_the_interface(dev):
    dev.boot()
    dev.mark()
    assert dev.command("network ping 10.0.0.1") == "ERROR: No network interface is running\n"
    assert dev.command("network ping eth0 10.0.0.1") == "ERROR: Network interface 'eth0' is not running\n"
    assert steps(dev) == []


@pytest.mark.parametrize("words, output", [
    ("", INCOMPLETE),
    (" eth0", INCOMPLETE),
    (" 0.0.0.0", "ERROR: Invalid IP address '0.0.0.0'\n"),
    (" eth0 255.255.255.255", "ERROR: Invalid IP address '255.255.255.255'\n"),
    (" eth1 10.0.0.1", "ERROR: Invalid IP address 'eth1'\n"),
    (" localhost", "ERROR: Invalid IP address 'localhost'\n"),
])
@pytest.mark.parametrize("started", [False, True])
def test_words_that_ping_refuses(dev, words, output, started):
    dev.boot()
    if started:
        start(dev)
    assert command(dev, f"network ping{words}") == output
    assert steps(dev) == []


def test_ping_that_cannot_be_started(dev):
    dev.boot()
    start(dev)
    dev.fail_call("posix_spawn", "/bin/ping", error="ENOMEM")
    assert dev.command("network ping 10.0.0.1") == (
        USING_ETH0 + f"ERROR: net_ping: popen({PING}) error(Cannot allocate memory)\n" + FAILURE)


def test_ping_at_verbose(dev):
    dev.boot()
    start(dev)
    dev.command("verbose 6")
    assert dev.command("network ping eth0 10.0.0.1") == (
        "VERBOSE: cmd_network_ping: if_idx=0 (eth0), ip_addr=10.0.0.1\n" f"VERBOSE: net_ping: popen({PING})\n" + SUCCESS)


@pytest.mark.parametrize("line, name", [
    ("network info", "cmd_network_info"), ("network ping", "cmd_network_ping"),
    ("network ethernet stop", "cmd_network_ethernet_stop"), ("network ethernet link", "cmd_network_ethernet_link"),
    ("network ethernet start 1", "cmd_network_ethernet_start"),
])
def test_traces_of_handlers(dev, line, name):
    dev.boot()
    dev.command("verbose 7")
    assert dev.command(line).startswith(f"TRACE: {name}:\n")

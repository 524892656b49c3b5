"""Fetching a file over the network: the words, the names, and what the client says."""

import pytest

from network import (NO_PRODUCT, STARTED_BY_DHCP, UNABLE_TO_CONFIGURE, UNABLE_TO_START, command, start, steps,
                     without_card)
from texts import DHCP, FAILURE, INCOMPLETE, SUCCESS, USING_ETH0

GET_FAILED = "ERROR: TFTP get failed\n"


@pytest.fixture
def up(dev):
    """A device at the prompt whose interface is started."""
    dev.boot()
    start(dev)
    return dev


def retrieving(name):
    return USING_ETH0 + f"Retrieving file '{name}' via tftp...\n"


@pytest.mark.parametrize("words, output", [
    ("", INCOMPLETE),
    (" 10.0.0.1", INCOMPLETE),
    (" 0.0.0.0 file", "ERROR: Invalid IP address '0.0.0.0'\n"),
    (" 255.255.255.255 file", "ERROR: Invalid IP address '255.255.255.255'\n"),
    (" file", "ERROR: Invalid IP address 'file'\n"),
    (" 10.0.0.1.x file", "ERROR: Invalid IP address '10.0.0.1.x'\n"),
])
def test_words_that_are_refused(dev, words, output):
    dev.boot()
    assert command(dev, f"file download network{words}") == output
    assert steps(dev) == []


@pytest.mark.parametrize("words, remote, local", [
    ("file", "file", "/tmp/file"),
    ("dir/file", "dir/file", "/tmp/dir/file"),
    ("/srv/file", "/srv/file", "/srv/file"),
    ("file other", "file", "/tmp/other"),
    ("file /cfg/other", "file", "/cfg/other"),
    ("file other surplus", "file", "/tmp/other"),
    ("file ../other", "file", "/tmp/../other"),
])
def test_where_the_file_goes(up, words, remote, local):
    assert command(up, f"file download network 10.0.0.1 {words}") == retrieving(remote) + SUCCESS
    assert steps(up) == [f'tftp -g -l {local} -r "{remote}" 10.0.0.1 2>&1']


def test_the_words_at_info(up):
    up.command("verbose 4")
    assert up.command("file download network 10.0.0.1 file other") == (
        "INFO: cmd_file_download_network: ip_addr=10.0.0.1 file_remote=file file_local=/tmp/other\n"
        + retrieving("file") + SUCCESS)


def test_the_interface_is_started_by_dhcp_and_stays_so(dev):
    dev.boot()
    assert command(dev, "file download network 10.0.0.1 file") == (
        USING_ETH0 + DHCP + NO_PRODUCT + "Retrieving file 'file' via tftp...\n" + SUCCESS)
    assert steps(dev) == [*STARTED_BY_DHCP, 'tftp -g -l /tmp/file -r "file" 10.0.0.1 2>&1']
    assert command(dev, "file download network 10.0.0.1 file") == retrieving("file") + SUCCESS


def test_without_a_network(dev):
    without_card(dev)
    dev.boot()
    assert command(dev, "file download network 10.0.0.1 file") == (
        USING_ETH0 + DHCP + "ERROR: Can't get configured mac address\n" + UNABLE_TO_CONFIGURE + UNABLE_TO_START
        + GET_FAILED + FAILURE)
    dev.expect_ran_exactly([])


@pytest.mark.parametrize("status, stdout, stderr, shown", [
    (0, "", "", SUCCESS),
    (0, "file\n", "", "file\n" + SUCCESS),
    (0, "100% done\nfile 100% done\n", "", "NOTE: 100% done\nNOTE: file 100% done\n" + SUCCESS),
    (1, "", "tftp: server error: (1) File not found\n",
     "NOTE: tftp: server error: (1) File not found\nERROR: Child exit status=1\nERROR: Exit status=255\n"
     + GET_FAILED + FAILURE),
    (1, "", "tftp: timeout\n",
     "NOTE: tftp: timeout\nERROR: Child exit status=1\nERROR: Exit status=255\n" + GET_FAILED + FAILURE),
])
def test_what_the_client_says_is_shown(up, status, stdout, stderr, shown):
    up.answer("tftp", status=status, stdout=stdout, stderr=stderr)
    assert up.command("file download network 10.0.0.1 file") == retrieving("file") + shown


def test_ctrl_c_ends_a_transfer(up):
    up.answer("tftp", hold=60)
    up.mark()
    up.type("file download network 10.0.0.1 file")
    up.expect(retrieving("file"))
    up.wait_for("answer")
    up.interrupt()
    assert up.text_until_prompt() == "\nERROR: Terminated by signal\n" + GET_FAILED + FAILURE


GET = 'tftp -g -l /tmp/file -r "file" 10.0.0.1'


@pytest.mark.parametrize("call, match, error, told", [
    ("fork", "", "EAGAIN", f"ERROR: exec_system_cmd_print_with_match({GET}): fork failed\n"),
    ("waitpid", "program", "ECHILD", f"ERROR: exec_system_cmd_print_with_match({GET}): error waiting for child\n"),
    ("posix_spawn", "", "EMFILE",
     f"ERROR: exec_system_cmd_print_with_match: popen({GET} 2>&1) error(Too many open files)\nERROR: Exit status=255\n"),
], ids=["fork", "waitpid", "popen"])
def test_client_that_cannot_be_run(up, call, match, error, told):
    up.fail_call(call, match, error=error, times=1)
    assert up.command("file download network 10.0.0.1 file") == retrieving("file") + told + GET_FAILED + FAILURE


def test_verbosity_7_traces_the_run(up):
    up.command("verbose 7")
    assert up.command("file download network 10.0.0.1 file").endswith(
        "Retrieving file 'file' via tftp...\n"
        "TRACE: exec_system_cmd_print_with_match: print=' ' dont_print='' notes=true\n"
        f"VERBOSE: exec_system_cmd_print_with_match: fork popen({GET} 2>&1)\n" + SUCCESS)


# ---------------------------------------------------------------------- names

STRANGE_NAMES = [
    ('a"b', r'a\"b', r'a\"b'),
    ("$(reboot)", r"\$(reboot)", r"\$\(reboot\)"),
    ("`reboot`", r"\`reboot\`", r"\`reboot\`"),
    ("$HOME", r"\$HOME", r"\$HOME"),
    ("back\\slash", r"back\\slash", r"back\\slash"),
    ("end\\", r"end\\", r"end\\"),
    ("a;reboot", "a;reboot", r"a\;reboot"),
    ("a&reboot&", "a&reboot&", r"a\&reboot\&"),
    ("a|reboot>x<y", "a|reboot>x<y", r"a\|reboot\>x\<y"),
    ("it's", "it's", r"it\'s"),
    ("*?[a]{b,c}~!#", "*?[a]{b,c}~!#", r"\*\?\[a\]\{b,c\}\~\!\#"),
    ("100%", "100%", "100%"),
    ("-l", "-l", "-l"),
    ("b\xe4h", "b\xe4h", "b\xe4h"),
]


@pytest.mark.parametrize("name, quoted, bare", STRANGE_NAMES)
def test_a_remote_name_reaches_the_client_as_typed(up, name, quoted, bare):
    assert command(up, f"file download network 10.0.0.1 {name}") == retrieving(name) + SUCCESS
    assert [event.words for event in up.events.of("run")] == [["tftp", "-g", "-l", f"/tmp/{name}", "-r", name, "10.0.0.1"]]
    assert steps(up) == [f'tftp -g -l /tmp/{bare} -r "{quoted}" 10.0.0.1 2>&1']


@pytest.mark.parametrize("name, quoted, bare", STRANGE_NAMES)
def test_a_local_name_reaches_the_client_as_typed(up, name, quoted, bare):
    assert command(up, f"file download network 10.0.0.1 file {name}") == retrieving("file") + SUCCESS
    assert [event.words for event in up.events.of("run")] == [["tftp", "-g", "-l", f"/tmp/{name}", "-r", "file", "10.0.0.1"]]
    assert steps(up) == [f'tftp -g -l /tmp/{bare} -r "file" 10.0.0.1 2>&1']


@pytest.mark.parametrize("character", ["x", '"', "$", "`", ";"])
def test_the_longest_names_that_can_be_typed(up, character):
    name = character.rjust(225, "x") if character == "x" else "x" + character * 224
    assert command(up, f"file download network 10.0.0.1 {name}").endswith(SUCCESS)
    assert [event.words for event in up.events.of("run")] == [["tftp", "-g", "-l", f"/tmp/{name}", "-r", name, "10.0.0.1"]]

"""Receiving a file over a serial line: whatever arrives until the line falls silent is the file."""

import os
import re
import time

import pytest

import images
from downloads import expect_at_rest, settings, steps
from texts import BEGIN, FAILURE, SUCCESS

FAILED = "ERROR: serial download failed\n" + FAILURE
CONSOLE_DURING_COMMAND = "console 115200 rtscts signals"


def download_file(dev, data, words="firmware", port=None):
    """Sends a file in one piece. The three seconds of silence behind it are cut short."""
    dev.fail_call("select", error=None, result=0, after=1, times=1)
    return dev.install(data, f"file download serial {words}", port=port)


def fail_to_download(dev, words="firmware"):
    """A download that fails before it listens. Then the console's input was closed and opened again."""
    shown = dev.begin(f"file download serial {words}") + dev.text_until_prompt()
    dev.wait_for("open", "/dev/ttyS1", "04002")
    dev.wait_for("tcsetattr", "/dev/ttyS1", *console_input_settings(dev))
    return shown


def console_input_settings(dev):
    """The fields of the event that gave the console its settings at the start."""
    return next(event for event in dev.startup.of("tcsetattr")).fields[1:]


# ---------------------------------------------------------------------- the words of the command


@pytest.mark.parametrize("words, message", [
    ("", "Incomplete command"),
    *((f"name {port}", f"Invalid serial port '{port}', range is 0 to 2")
      for port in ("3", "-1", "x", "1x", "0x1", "4294967296", "99999999999999999999")),
    *((f"name 1 {rate}", f"Invalid baud rate '{rate}'") for rate in ("4800", "0", "115201", "fast", "9600x", "4294976896")),
    ("name 3 4800", "Invalid serial port '3', range is 0 to 2"),
])
def test_words_that_are_refused(dev, words, message):
    dev.boot()
    assert dev.command(f"file download serial {words}".rstrip()) == f"ERROR: {message}\n"
    dev.expect_quiet()
    assert steps(dev)[1:-1] == [], "nothing between the settings before the command and those after it"
    assert list(dev.path("/tmp").iterdir()) == []


@pytest.mark.parametrize("words, path, port, speed", [
    ("name", "/tmp/name", 1, 115200),
    ("/cfg/name", "/cfg/name", 1, 115200),
    ("name 0", "/tmp/name", 0, 115200),
    ("name 1", "/tmp/name", 1, 115200),
    ("name 2", "/tmp/name", 2, 115200),
    ("name 2 921600", "/tmp/name", 2, 921600),
    ("name 0 9600 more words", "/tmp/name", 0, 9600),
    ("3", "/tmp/3", 1, 115200),
])
def test_words_choose_path_port_and_rate(dev, words, path, port, speed):
    dev.boot()
    dev.command("verbose 4")
    assert download_file(dev, b"contents", words, port=port) == (
        f"INFO: cmd_file_download_serial: filename={path} dev=/dev/ttyS{port} speed={speed}\n"
        f"INFO: tty_download: dev=/dev/ttyS{port} file={path}\n" + BEGIN + "INFO: Downloaded 8 bytes\n" + SUCCESS)
    assert dev.path(path).read_bytes() == b"contents"
    raw = [(event.path, settings(event)) for event in dev.events.of("tcsetattr") if "raw" in settings(event)]
    assert raw == [(f"/dev/ttyS{port}", f"raw {speed}" + (" rtscts" if port != 0 else ""))]


def test_port_and_rate_default_to_those_of_the_console(dev):
    dev.cmdline("cli_console=ttyS0,19200")
    dev.boot()
    dev.command("verbose 4")
    assert download_file(dev, b"contents").startswith(
        "INFO: cmd_file_download_serial: filename=/tmp/firmware dev=/dev/ttyS0 speed=19200\n")


@pytest.mark.parametrize("name", ["a", "-rf", "..hidden", "$(reboot)", "`reboot`", "a;b", "a'b\"c", "100%s%n", "\xe4\xf6"])
def test_name_is_taken_as_it_is(dev, name):
    dev.boot()
    assert download_file(dev, b"contents", name) == SUCCESS
    assert [entry.name for entry in dev.path("/tmp").iterdir()] == [os.fsdecode(name.encode("latin-1"))]
    assert dev.shell_lines == []


def test_longest_name_that_can_be_typed(dev):
    """A line takes 256 characters; the buffer of the path has room for more than is left of them."""
    dev.boot()
    name = "n" * (256 - len("fi d s "))
    assert dev.install(b"contents", f"fi d s {name}") == SUCCESS
    assert dev.path(f"/tmp/{name}").read_bytes() == b"contents"


# ---------------------------------------------------------------------- the session


def test_whole_session(dev):
    dev.boot()
    assert dev.install(b"contents", "file download serial firmware") == SUCCESS
    assert steps(dev) == [
        f"settings /dev/ttyS1 {CONSOLE_DURING_COMMAND}",
        "sleep 1",
        "open /dev/ttyS1 0402 0",  # O_RDWR | O_NOCTTY
        "tcflush /dev/ttyS1 input 0",
        "settings /dev/ttyS1 raw 115200 rtscts",
        f"settings /dev/ttyS1 {CONSOLE_DURING_COMMAND}",
        "settings /dev/ttyS1 console 115200 rtscts",
    ]
    assert dev.path("/tmp/firmware").read_bytes() == b"contents"
    expect_at_rest(dev)


def test_verbosity_6_tells_every_step(dev):
    dev.boot()
    dev.command("verbose 6")
    assert download_file(dev, b"contents", "/cfg/name 2", port=2) == (
        "INFO: cmd_file_download_serial: filename=/cfg/name dev=/dev/ttyS2 speed=115200\n"
        "INFO: tty_download: dev=/dev/ttyS2 file=/cfg/name\n" + BEGIN +
        "VERBOSE: tty_open_raw: dev=/dev/ttyS2 speed=115200\n"
        "VERBOSE: tty_close_raw: dev=/dev/ttyS2\n"
        "INFO: Downloaded 8 bytes\n" + SUCCESS)


def test_verbosity_7_traces_the_command(dev):
    dev.boot()
    dev.command("verbose 7")
    assert download_file(dev, b"contents").startswith("TRACE: cmd_file_download_serial:\n")


@pytest.mark.parametrize("size", [1, 4095, 4097, 5 << 20])
def test_file_of_any_length(dev, size):
    dev.boot()
    dev.command("verbose 4")
    data = images.pattern(size)
    assert dev.install(data, "file download serial firmware").endswith(BEGIN + f"INFO: Downloaded {size} bytes\n" + SUCCESS)
    assert dev.path("/tmp/firmware").read_bytes() == data
    expect_at_rest(dev)


def test_bytes_that_a_terminal_would_treat(dev):
    dev.boot()
    data = b"\x03\x1c\x1a\x04\x11\x13\r\n\xff\0reset\r" * 100
    assert dev.install(data, "file download serial firmware") == SUCCESS
    assert dev.path("/tmp/firmware").read_bytes() == data
    dev.expect_ran_exactly([])


def test_older_file_is_replaced(dev):
    dev.boot()
    dev.path("/tmp/firmware").write_bytes(b"a longer file of another time")
    assert download_file(dev, b"new") == SUCCESS
    assert dev.path("/tmp/firmware").read_bytes() == b"new"


def test_two_files_one_after_the_other(dev):
    dev.boot()
    for name, data in ("one", b"first"), ("two", b"second"):
        assert download_file(dev, data, name) == SUCCESS
        assert dev.path(f"/tmp/{name}").read_bytes() == data


# ---------------------------------------------------------------------- silence


def test_nothing_arrives(dev):
    dev.boot()
    dev.command("verbose 4")
    start = time.monotonic()
    dev.begin("file download serial firmware")
    assert dev.text_until_prompt(45) == "INFO: Downloaded 0 bytes\n" + FAILED
    assert 30 <= time.monotonic() - start
    assert not dev.path("/tmp/firmware").exists()
    expect_at_rest(dev)


def test_pause_of_three_seconds_ends_the_file(dev):
    dev.boot()
    start = time.monotonic()
    dev.begin("file download serial firmware 2")
    dev.send_stream(b"first half", port=2)
    assert dev.text_until_prompt() == SUCCESS
    assert 3 <= time.monotonic() - start < 25, "not the 30 seconds of the first wait"
    dev.send(b"second half", port=2)
    dev.expect_quiet()
    assert dev.path("/tmp/firmware").read_bytes() == b"first half"


def test_shorter_pauses_do_not(dev):
    dev.boot()
    dev.begin("file download serial firmware")
    dev.send_stream(b"one")
    for piece in b"two", b"three", b"four", b"five":
        time.sleep(0.9)
        dev.send(piece)
    assert dev.text_until_prompt() == SUCCESS
    assert dev.path("/tmp/firmware").read_bytes() == b"onetwothreefourfive"


def test_only_the_first_wait_is_long(dev):
    dev.trace("select")
    dev.boot()
    assert dev.install(b"contents", "file download serial firmware", piece=4, pause=0.1) == SUCCESS
    waits = [event.seconds for event in dev.events.of("select")]
    assert waits[0] == 30 and len(waits) > 1 and set(waits[1:]) == {3}


# ---------------------------------------------------------------------- what fails


@pytest.mark.parametrize("path, error", [
    ("/nowhere/firmware", "No such file or directory"),
    ("/tmp", "Is a directory"),
    ("subdirectory/firmware", "No such file or directory"),
])
def test_file_that_cannot_be_made(dev, path, error):
    dev.boot()
    dev.command("verbose 4")
    shown = dev.begin(f"file download serial {path}") + dev.text_until_prompt()
    full = path if path.startswith("/") else f"/tmp/{path}"
    assert shown.endswith(f"INFO: Downloaded 0 bytes\nERROR: fopen({full}) error({error})\n" + FAILED)
    assert dev.path("/tmp").is_dir()
    assert f"settings /dev/ttyS1 {CONSOLE_DURING_COMMAND}" in steps(dev)[5:], "the port was given back"
    expect_at_rest(dev)


def test_error_that_a_long_path_cuts(dev):
    """The text has room for 255 characters: its end, with the line's, is lost, but the failure is told."""
    dev.boot()
    path = "/nowhere/" + "n" * (256 - len("fi d s /nowhere/"))
    whole = f"fopen({path}) error(No such file or directory)\n"
    assert len(whole) > 255
    shown = dev.begin(f"fi d s {path}") + dev.text_until_prompt()
    assert shown == f"ERROR: {whole[:255]}" + FAILED


def test_no_memory_for_the_buffer(dev):
    dev.boot()
    dev.fail_call("malloc", 4096, error="ENOMEM")
    assert fail_to_download(dev) == "ERROR: malloc(4096) error(Cannot allocate memory)\n" + FAILED
    assert not dev.path("/tmp/firmware").exists()
    expect_at_rest(dev)


@pytest.mark.parametrize("data, told", [
    (b"12345", "fwrite(5) error(No space left on device)"), (b"contents", "fwrite(8) error(No space left on device)")])
def test_write_that_fails(dev, data, told):
    dev.boot()
    dev.command("verbose 4")
    dev.fail_call("fwrite", "/tmp/firmware", error="ENOSPC", result=0)
    shown = dev.install(data, "file download serial firmware 2", port=2)
    assert shown.endswith(BEGIN + f"INFO: Downloaded 0 bytes\nERROR: {told}\n" + FAILED)
    assert not dev.path("/tmp/firmware").exists()
    expect_at_rest(dev)


def test_write_that_fails_later_ends_the_transfer(dev):
    dev.boot()
    dev.command("verbose 4")
    dev.fail_call("fwrite", "/tmp/firmware", error="ENOSPC", result=0, after=1)
    dev.begin("file download serial firmware 2")
    dev.send_stream(b"first", port=2)
    dev.expect_quiet()
    dev.send(b"second", port=2)
    assert dev.text_until_prompt() == "INFO: Downloaded 5 bytes\nERROR: fwrite(6) error(No space left on device)\n" + FAILED
    assert not dev.path("/tmp/firmware").exists()


def test_write_that_fails_only_when_the_file_is_closed(dev):
    """As on a file system that filled up: few bytes wait in a buffer until then."""
    dev.boot()
    dev.command("verbose 4")
    refusing = "/.harness/proc/self/clear_refs"  # opens for writing, and takes nothing
    assert download_file(dev, b"contents", refusing).endswith(
        BEGIN + "INFO: Downloaded 8 bytes\nERROR: fwrite(8) error(Invalid argument)\n" + FAILED)
    expect_at_rest(dev)


@pytest.mark.parametrize("call, outcome", [
    ("select", {"error": "EINTR"}), ("read", {"error": "EIO"}), ("read", {"error": None, "result": 0})],
    ids=["failing wait", "failing read", "end of input"])
@pytest.mark.parametrize("sent, count, end", [(b"", 0, FAILED), (b"some", 4, SUCCESS)], ids=["at once", "after some bytes"])
def test_port_that_fails_ends_the_file(dev, call, outcome, sent, count, end):
    """What arrived before counts as the whole file."""
    dev.boot()
    dev.command("verbose 4")
    dev.trace("/dev/ttyS2")
    dev.fail_call(call, "/dev/ttyS2" if call == "read" else "", after=1 if sent else 0, **outcome)
    dev.begin("file download serial firmware 2")
    dev.wait_for("tcsetattr", "/dev/ttyS2")
    if sent:
        dev.send(sent, port=2)
        dev.wait_for("read", "/dev/ttyS2", str(len(sent)))
    dev.send(b"more", port=2)
    assert dev.text_until_prompt() == f"INFO: Downloaded {count} bytes\n" + end
    assert dev.path("/tmp/firmware").exists() == (count > 0)
    expect_at_rest(dev)


# ---------------------------------------------------------------------- what a failed download removes


def test_a_file_that_was_there_stays_when_the_port_is_missing(dev):
    dev.remove_port(2)
    dev.boot()
    dev.path("/tmp/firmware").write_bytes(b"of another time")
    assert fail_to_download(dev, "firmware 2").endswith(FAILED)
    assert dev.path("/tmp/firmware").read_bytes() == b"of another time"


def test_a_program_that_is_running_stays(dev):
    dev.boot()
    dev.path("/tmp/program").write_bytes(b"code")
    dev.fail_call("fopen", "/tmp/program", error="ETXTBSY")
    shown = dev.begin("file download serial program") + dev.text_until_prompt()
    assert shown == "ERROR: fopen(/tmp/program) error(Text file busy)\n" + FAILED
    assert dev.path("/tmp/program").read_bytes() == b"code"


def test_a_device_stays(dev):
    dev.boot()
    os.mkfifo(dev.path("/dev/node"))
    with open(os.open(dev.path("/dev/node"), os.O_RDWR), "rb"):  # opening it for writing waits for a reader
        dev.fail_call("fwrite", "/dev/node", error="EIO", result=0)
        assert dev.install(b"contents", "file download serial /dev/node 2", port=2).endswith(
            "ERROR: fwrite(8) error(Input/output error)\n" + FAILED)
    assert dev.path("/dev/node").is_fifo()


def test_a_link_stays(dev):
    """What it points to was overwritten; its own name was there before."""
    dev.boot()
    dev.path("/tmp/link").symlink_to("target")
    dev.fail_call("fwrite", "/tmp/target", error="ENOSPC", result=0)
    assert dev.install(b"contents", "file download serial link 2", port=2).endswith(FAILED)
    assert dev.path("/tmp/link").is_symlink()


def test_the_part_that_arrived_is_removed_though_a_longer_file_was_there(dev):
    dev.boot()
    dev.path("/tmp/firmware").write_bytes(b"a longer file of another time")
    dev.fail_call("fwrite", "/tmp/firmware", error="ENOSPC", result=0)
    assert dev.install(b"contents", "file download serial firmware 2", port=2).endswith(FAILED)
    assert not dev.path("/tmp/firmware").exists()


# ---------------------------------------------------------------------- ports the device does not have


def test_console_answers_after_a_port_that_is_missing(dev):
    """The copy of the console's record that is closed then has the console's own input; the console opens it again."""
    dev.remove_port(2)
    dev.boot()
    assert fail_to_download(dev, "firmware 2") == (
        "tty_open_raw: open(): No such file or directory\n"
        "ERROR: tty_open_raw() error(No such file or directory)\n" + FAILED)
    assert dev.command("verbose") == "verbosity is 3\n"
    expect_at_rest(dev)


def test_console_without_a_port_of_its_own_answers_after_its_port_is_missing(dev):
    dev.remove_port(1)
    dev.boot()
    dev.begin("file download serial firmware")
    assert dev.text_until_prompt() == (
        "tty_open_raw: open(): No such file or directory\n"
        "ERROR: tty_open_raw() error(No such file or directory)\n" + FAILED)
    dev.type("verbose")
    dev.expect("verbosity is 3\n")


def test_download_after_one_whose_port_is_missing(dev):
    dev.remove_port(0)
    dev.boot()
    fail_to_download(dev, "firmware 0")
    assert download_file(dev, b"contents") == SUCCESS
    assert dev.path("/tmp/firmware").read_bytes() == b"contents"
    kernel = images.part(images.KERNEL, b"kernel")
    assert dev.install(kernel) == images.info(kernel) + SUCCESS
    expect_at_rest(dev)


def test_interrupt_character_after_a_port_that_is_missing(dev):
    dev.remove_port(2)
    dev.boot()
    fail_to_download(dev, "firmware 2")
    dev.keys("half a line")
    dev.interrupt()
    assert dev.text_until_prompt() == "half a line\n"


def test_console_at_a_speed_that_no_transfer_has(dev):
    dev.cmdline("cli_console=ttyS1,4800")
    dev.boot()
    dev.begin("file download serial firmware")
    assert re.fullmatch(r"tty_open_raw: speed: .*\nERROR: tty_open_raw\(\) error\(.*\)\n" + re.escape(FAILED),
                        dev.text_until_prompt())


# ---------------------------------------------------------------------- what is reported is readable


def before_the_shell(dev):
    """What was the console until the shell took its own passes bytes as they are."""
    dev.boot_console.make_raw()
    dev.boot()


def before_the_last_change(dev):
    dev.boot()
    dev.port(1).make_raw()
    dev.command("set console 9600")


@pytest.mark.parametrize("prepare", [before_the_shell, before_the_last_change])
@pytest.mark.parametrize("failure", [("open", "/dev/ttyS2", "EIO"), ("malloc", 4096, "ENOMEM")], ids=["port", "memory"])
def test_the_console_has_its_settings_when_a_failure_is_reported(dev, prepare, failure):
    """Not those of before, with which the copy of its record was closed: another speed, say."""
    prepare(dev)
    dev.fail_call(*failure[:2], error=failure[2], times=1)
    dev.command("verbose 6")
    dev.keys("file download serial file 2\r")
    dev.expect(BEGIN)
    screen = dev.screen_until_prompt()
    assert screen.endswith(b"ERROR: serial download failed\r\nDone: FAILURE\r\n")
    assert screen.count(b"\n") == screen.count(b"\r\n")

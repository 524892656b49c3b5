"""What a sender goes on sending when its transfer has ended: the line is also the operator's, and the prompt must not
run a file's bytes as commands. What is typed after a transfer that ended as it should is not lost either."""

import contextlib
import threading
import time

import pytest

import images
from session import CTRL_C
from texts import BEGIN, FAILURE, SENDER_GOES_ON, SUCCESS

COMMANDS = b"\rreset\rflash kill 2 kernel\rshow klog\r"
REFUSED = images.part(images.KERNEL, b"k" * 100, fields={images.HEADER_TYPE: 1})
FILE_FAILED = "ERROR: serial download failed\n" + FAILURE


def expect_nothing_was_run(dev):
    dev.expect_quiet(0.3)
    dev.expect_ran_exactly([])
    assert dev.command("verbose") == "verbosity is 3\n"


@contextlib.contextmanager
def sending(dev, data, pause, port=None):
    """Meanwhile a sender sends these bytes, again and again, as long as the line takes them."""
    ended = threading.Event()

    def send():
        while not ended.wait(pause):
            try:
                dev.send(data, port=port)
            except (OSError, AssertionError):  # the line is full: nobody reads it any more
                return

    sender = threading.Thread(target=send)
    sender.start()
    try:
        yield
    finally:
        ended.set()
        sender.join()


# ---------------------------------------------------------------------- the rest of a transfer that failed


def test_the_rest_of_a_refused_image(dev):
    dev.boot()
    dev.begin("flash download serial 1")
    dev.send_stream(REFUSED + COMMANDS + images.pattern(10000) + COMMANDS, piece=512, pause=0.02)
    assert dev.text_until_prompt().count("Done: ") == 1
    expect_nothing_was_run(dev)


@pytest.mark.parametrize("path", ["/nowhere/file", "/tmp"])
def test_the_rest_of_a_file_that_cannot_be_opened(dev, path):
    dev.boot()
    dev.begin(f"file download serial {path}")
    dev.send(COMMANDS + images.pattern(10000) + COMMANDS, piece=512, pause=0.02)
    assert dev.text_until_prompt().endswith(FILE_FAILED)
    expect_nothing_was_run(dev)


def test_the_rest_of_a_file_that_has_no_room(dev):
    dev.boot()
    dev.fail_call("fwrite", "/tmp/file", error="ENOSPC", result=0)
    dev.begin("file download serial file")
    dev.send_stream(images.pattern(100))
    dev.send(COMMANDS + images.pattern(10000) + COMMANDS, piece=512, pause=0.02)
    assert dev.text_until_prompt().endswith("error(No space left on device)\n" + FILE_FAILED)
    expect_nothing_was_run(dev)


@pytest.mark.parametrize("call", [("open", "/dev/ttyS1", "EIO"), ("malloc", 4096, "ENOMEM")], ids=["port", "memory"])
def test_a_file_whose_transfer_cannot_begin(dev, call):
    dev.boot()
    dev.fail_call(*call[:2], error=call[2], times=1)
    dev.begin("file download serial file")
    dev.wait_for("caught")
    dev.send(COMMANDS + images.pattern(10000) + COMMANDS, piece=512, pause=0.02)
    assert dev.text_until_prompt().endswith(FILE_FAILED)
    expect_nothing_was_run(dev)


def test_an_image_whose_port_cannot_be_opened(dev):
    dev.boot()
    dev.fail_call("open", "/dev/ttyS1", error="EIO", times=1)
    dev.begin("flash download serial 1")
    dev.wait_for("caught")
    dev.send(COMMANDS + images.pattern(10000) + COMMANDS, piece=512, pause=0.02)
    assert dev.text_until_prompt().endswith("ERROR: Failed to write firmware image\n" + FAILURE)
    expect_nothing_was_run(dev)


@pytest.mark.parametrize("line", ["file download serial file", "flash download serial 1"])
def test_a_sender_that_starts_when_the_time_is_over(dev, line):
    dev.boot()
    dev.fail_call("select", error=None, result=0)
    dev.begin(line)
    dev.wait_for("caught")
    dev.send(COMMANDS + images.pattern(10000) + COMMANDS, piece=512, pause=0.02)
    assert dev.text_until_prompt().endswith(FAILURE)
    dev.drop_rules()
    expect_nothing_was_run(dev)


# ---------------------------------------------------------------------- a sender that does not stop


def test_a_sender_that_goes_on_is_told_of_and_waited_for(dev):
    dev.boot()
    dev.begin("flash download serial 1")
    dev.send_stream(REFUSED)
    with sending(dev, COMMANDS, pause=0.02):
        dev.expect(SENDER_GOES_ON)
        dev.expect_quiet(1)
    assert dev.text_until_prompt().endswith(FAILURE)
    assert dev.console.output.decode("latin-1").count("NOTE: ") == 1
    expect_nothing_was_run(dev)


def test_ctrl_c_ends_the_wait_for_a_noisy_line(dev):
    """One byte every half second: the line never falls silent."""
    dev.boot()
    dev.begin("file download serial /nowhere/file")
    while SENDER_GOES_ON.encode().rstrip() not in dev.console.unread:
        dev.send(b"~")
        time.sleep(0.5)
    ended = False
    for _ in range(20):
        dev.send(b"~")
        for _ in range(3):
            time.sleep(0.15)
            dev.interrupt()
        time.sleep(0.15)
        ended = ended or FAILURE.encode().rstrip() in dev.console.unread
        if ended:
            break
    assert ended, "three presses are the end"
    assert dev.text_until_prompt().endswith(SENDER_GOES_ON + FILE_FAILED)


def test_a_line_that_hangs_up_meanwhile_ends_the_wait(dev):
    """Its end of input is no silence: it is readable without end."""
    dev.boot()
    dev.sleep_scale = 1
    dev.type("set console 2")  # a line that is not the controlling terminal
    dev.console = dev.port(2)
    dev.text_until_prompt()
    dev.begin("file download serial /nowhere/file")
    while SENDER_GOES_ON.encode().rstrip() not in dev.console.unread:
        dev.send(b"~", port=2)
        time.sleep(0.05)
    before = len(dev.sleeps)
    dev.hang_up(2)
    dev.wait_until(lambda: len(dev.sleeps) > before)  # the line editor has the line again, and waits for its return
    assert dev.processor_seconds(2) < 0.1


@pytest.mark.parametrize("data, pause", [
    (CTRL_C * 16, 0.003), (b"\x03" + b"x" * 15, 0.003), (b"\x03\x03", 0.1)],
    ids=["many at once", "among others", "in pairs"])
def test_bytes_of_a_file_do_not_end_it(dev, data, pause):
    """Whatever they are: at line rate there is no silence around them."""
    dev.boot()
    dev.begin("file download serial /nowhere/file")
    with sending(dev, data, pause):
        dev.expect(SENDER_GOES_ON)
        dev.expect_quiet(1)
    dev.send(COMMANDS)
    assert dev.text_until_prompt().endswith(FILE_FAILED)
    expect_nothing_was_run(dev)


def test_ctrl_c_between_other_keys_does_not_end_it(dev):
    dev.boot()
    dev.begin("file download serial /nowhere/file")
    for _ in range(6):
        for key in b"\x03", b"\x03", b"c":
            dev.send(key)
            time.sleep(0.2)
    dev.send(COMMANDS)
    assert dev.text_until_prompt().endswith(FILE_FAILED)
    expect_nothing_was_run(dev)


@pytest.mark.parametrize("data", [images.part(images.KERNEL, b"k" * 100), REFUSED], ids=["complete", "refused"])
def test_another_line_that_never_falls_silent_does_not_hold_the_shell(dev, data):
    """Nothing that arrives there could be run as a command."""
    dev.boot()
    dev.begin("flash download serial 1 2")
    dev.send_stream(data, port=2)
    with sending(dev, b"....", pause=0.02, port=2):
        assert "NOTE: " not in dev.text_until_prompt()


# ---------------------------------------------------------------------- after a transfer that ended as it should


def test_what_is_typed_behind_an_image_is_not_lost(dev):
    dev.boot()
    dev.begin("flash download serial 1")
    dev.send_stream(images.part(images.KERNEL, b"k" * 100))
    while len(dev.sleeps) < 2:  # before the transfer, and behind it
        time.sleep(0.01)
    dev.keys("verbose 5\r")
    assert dev.text_until_prompt().endswith(SUCCESS)
    assert dev.text_until_prompt() == "verbose 5\nverbosity is 5\n"


def test_what_is_typed_while_another_line_carries_a_refused_image_is_not_lost(dev):
    dev.boot()
    dev.begin("flash download serial 1 2")
    dev.send_stream(REFUSED, port=2)
    while len(dev.sleeps) < 2:
        time.sleep(0.01)
    dev.keys("verbose 5\r")
    assert dev.text_until_prompt().endswith(FAILURE)
    assert dev.text_until_prompt() == "verbose 5\nverbosity is 5\n"


def test_what_follows_an_image_at_once_is_its_sender_s(dev):
    """A header that says too early that no other follows: the next part would be run as commands."""
    dev.boot()
    dev.begin("flash download serial 1")
    dev.send_stream(images.part(images.KERNEL, b"k" * 100) + COMMANDS)
    assert dev.text_until_prompt().endswith(SUCCESS)
    assert dev.command("verbose") == "verbosity is 3\n"


def test_what_is_typed_behind_a_file_is_not_lost(dev):
    dev.boot()
    dev.fail_call("select", error=None, result=0, after=1, times=1)
    dev.begin("file download serial file")
    dev.send_stream(b"contents")
    dev.wait_for("caught")
    dev.keys("verbose 5\r")
    assert dev.text_until_prompt().endswith(SUCCESS)
    assert dev.text_until_prompt() == "verbose 5\nverbosity is 5\n"
    assert dev.path("/tmp/file").read_bytes() == b"contents"

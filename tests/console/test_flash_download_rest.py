"""What a sender goes on sending when the installation has ended: the line is also the operator's, and the prompt must not
run an image's bytes as commands."""

import threading

import pytest

import images
from texts import SUCCESS


@pytest.mark.parametrize("image", [
    images.part(images.KERNEL, b"k" * 100, fields={images.HEADER_TYPE: 1}),
    images.part(images.KERNEL, b"k" * 100),
], ids=["refused", "complete"])
def test_what_follows_an_image_is_not_run_as_commands(dev, image):
    dev.boot()
    dev.mark()
    dev.type("flash download serial 1")
    dev.expect("Begin serial download...\n")
    dev.send_stream(image + b"\rreset\rshow klog\r" + images.pattern(10000), piece=512, pause=0.02)
    assert dev.text_until_prompt().count("\nDone: ") == 1
    dev.expect_quiet(0.5)
    dev.expect_not_ran("reboot", "dmesg")


def test_another_line_that_never_falls_silent_does_not_hold_the_shell(dev):
    """Nothing that arrives there could be run as a command."""
    dev.boot()
    dev.mark()
    dev.type("flash download serial 1 2")
    dev.expect("Begin serial download...\n")
    dev.send_stream(images.part(images.KERNEL, b"k" * 100), port=2)
    ended = threading.Event()

    def chatter():
        while not ended.wait(0.02):
            try:
                dev.send(b"....", port=2)
            except (OSError, AssertionError):  # the line is full: nobody reads it any more
                return

    sender = threading.Thread(target=chatter)
    sender.start()
    try:
        assert dev.text_until_prompt().endswith(SUCCESS)
    finally:
        ended.set()
        sender.join()

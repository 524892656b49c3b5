"""What a sender goes on sending when the installation has ended: the line is also the operator's, and the prompt must not
run an image's bytes as commands."""

import pytest

import images


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

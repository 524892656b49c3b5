"""How the shell runs tools and tells of those that fail."""

import signal

import pytest

from texts import FAILURE


@pytest.mark.parametrize("answer, codes", [
    ({"status": 1}, "sys_rc=256 exitstatus=1"),
    ({"status": 2}, "sys_rc=512 exitstatus=2"),
    ({"status": 255}, "sys_rc=65280 exitstatus=255"),
    ({"signal": signal.SIGHUP}, "sys_rc=1 exitstatus=0"),
    ({"signal": signal.SIGKILL}, "sys_rc=9 exitstatus=0"),
    ({"signal": signal.SIGTERM}, "sys_rc=15 exitstatus=0"),
])
def test_a_tool_that_fails(dev, answer, codes):
    dev.answer("dmesg", **answer)
    dev.boot()
    assert dev.command("show klog") == f"ERROR: system(/bin/dmesg) {codes}\n" + FAILURE


def test_a_tool_that_is_missing(dev):
    dev.remove("/bin/dmesg")
    dev.boot()
    assert dev.command("show klog").endswith("ERROR: system(/bin/dmesg) sys_rc=32512 exitstatus=127\n" + FAILURE)


def test_a_device_without_any_tool(dev):
    dev.remove_tools()
    dev.boot()
    for line in ("show klog", "show system", "reset", "show bootenv", "set bootenv bootbank 1"):
        assert "sys_rc=32512 exitstatus=127\n" in dev.command(line)


def test_a_line_that_cannot_be_run(dev):
    dev.boot()
    dev.fail_call("posix_spawn", "/bin/dmesg", error="ENOMEM")
    assert dev.command("show klog") == "ERROR: system(/bin/dmesg) returned -1\n" + FAILURE
    dev.expect_ran_exactly([])


@pytest.mark.parametrize("level", [3, 6])
def test_the_line_is_shown_before_it_runs_from_verbosity_6_on(dev, level):
    dev.answer("dmesg", stdout="output\n")
    dev.boot()
    dev.command(f"verbose {level}")
    announcement = "VERBOSE: system(/bin/dmesg)\n" if level >= 6 else ""
    assert dev.command("show klog") == announcement + "output\n"


def test_output_goes_to_the_console_as_it_is(dev):
    output = bytes(range(1, 256)).replace(b"\n", b"") + b"\nERROR: not ours\n" + b"x" * 1000 + b"\nno end"
    dev.answer("dmesg", stdout=output, stderr="warning\n")
    dev.boot()
    assert dev.screen_of(b"show klog") == b"show klog\r\nwarning\r\n" + output.replace(b"\n", b"\r\n")


def test_much_output(dev):
    output = "".join(f"[{i:12}] a line of the kernel's log\n" for i in range(4000))
    dev.answer("dmesg", stdout=output)
    dev.boot()
    assert dev.command("show klog") == output


def test_a_tool_inherits_the_console_and_the_ignored_interrupt(dev):
    dev.boot()
    dev.command("show system")
    assert [event.sigint for event in dev.events.of("run")] == ["ignored", "ignored"]
    assert dev.events.of("input") == []

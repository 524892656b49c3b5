"""The harness itself: a device that records wrongly, or lets a fault pass, would make every other test worthless."""

import os
import signal
import time
import zlib

import pytest

from event_log import join_words
from serial_ports import Timeout
from session import onlcr, plain
from texts import BANNER, FAILURE


# ---------------------------------------------------------------------- the screen


def test_texts_have_one_line_end_and_bytes_are_raw(dev):
    dev.boot()
    assert dev.screen_of(b"affirm") == b"affirm\r\naffirm is OFF\r\n"
    assert dev.command("affirm") == "affirm is OFF\n"
    assert onlcr("a\nb\n") == b"a\r\nb\r\n" and plain(b"a\r\nb\r\n") == "a\nb\n"


def test_expect_returns_what_stood_before_and_reads_on_behind_it(dev):
    dev.boot()
    dev.type("affirm")
    assert dev.expect("is ") == "affirm\naffirm "
    assert dev.text_until_prompt() == "OFF\n"


def test_expect_gives_up(dev):
    dev.boot()
    with pytest.raises(Timeout, match="'never' did not come within 0.1 s"):
        dev.expect("never", timeout=0.1)


def test_expect_quiet_sees_output(dev):
    dev.boot()
    dev.expect_quiet()
    dev.keys("x")
    with pytest.raises(AssertionError, match="unexpected output"):
        dev.expect_quiet()


# ---------------------------------------------------------------------- tools and the shell


def test_runs_are_noted_as_composed_and_as_seen_by_the_tool(dev):
    dev.boot()
    dev.command("show system")
    assert dev.shell_lines == ["/usr/bin/top -b -n1", "/bin/ps"]
    assert dev.ran == ["/usr/bin/top -b -n1", "/bin/ps"]
    assert dev.sequence == ["run /usr/bin/top -b -n1", "run /bin/ps"]
    dev.expect_ran("/usr/bin/top -b -n1", "/bin/ps")
    dev.expect_not_ran("dmesg")
    with pytest.raises(AssertionError):
        dev.expect_ran("/bin/ps", "/usr/bin/top -b -n1")
    with pytest.raises(AssertionError):
        dev.expect_ran_exactly(["/bin/ps"])
    with pytest.raises(AssertionError):
        dev.expect_not_ran("top")


def test_mark_forgets(dev):
    dev.boot()
    dev.command("show system")
    dev.mark()
    assert dev.ran == [] and dev.events == []
    dev.command("show klog")
    assert dev.ran == ["/bin/dmesg"]
    assert "/bin/ps" in dev.all_events.ran


def test_words_are_quoted_only_where_they_could_be_misread():
    assert join_words(["fw_setenv", "mtdparts", "nand:1k(ubi0),-(user)"]) == "fw_setenv mtdparts nand:1k(ubi0),-(user)"
    assert join_words(["tftp", "-r", "my file", ""]) == "tftp -r 'my file' ''"


def test_answers_by_number_of_times_then_by_command_line_then_lasting(dev):
    dev.answer("dmesg", stdout="lasting\n")
    dev.answer("dmesg", stdout="not this one\n", when="-n 1", optional=True)
    dev.answer("dmesg", stdout="first\n", times=1)
    dev.answer("dmesg", stdout="twice\n", times=2)
    dev.boot()
    assert [dev.command("show klog") for _ in range(5)] == ["first\n", "twice\n", "twice\n", "lasting\n", "lasting\n"]
    dev.answer("dmesg", stdout="replaced\n")
    assert dev.command("show klog") == "replaced\n"


def test_answer_for_a_command_line(dev):
    dev.answer("dmesg", stdout="other\n", optional=True)
    dev.answer("dmesg", stdout="this\n", when="/bin/dmesg")
    dev.boot()
    assert dev.command("show klog") == "this\n"


def test_tool_fails_or_dies_as_told(dev):
    dev.boot()
    dev.answer("dmesg", status=2, stderr="no buffer\n")
    assert dev.command("show klog").startswith("no buffer\nERROR: system(/bin/dmesg) sys_rc=512 exitstatus=2\n")
    dev.answer("dmesg", signal=signal.SIGKILL)
    dev.command("show klog")
    assert [event.status for event in dev.events.of("exit")] == ["2", "signal 9"]


def test_output_of_any_size_and_bytes(dev):
    """Console settings change only line feeds."""
    data = bytes(range(256)) * 400
    dev.answer("dmesg", stdout=data)
    dev.boot()
    dev.type("show klog")
    assert dev.screen_until_prompt() == b"show klog\r\n" + data.replace(b"\n", b"\r\n")


def test_slow_tool(dev):
    dev.answer("dmesg", stdout="ab", piece=1, pause=0.1, delay=0.1, hold=0.1)
    dev.boot()
    began = time.monotonic()
    dev.command("show klog")
    assert 0.4 <= time.monotonic() - began < 3


def test_missing_tool_is_missing(dev):
    dev.boot()
    dev.remove("/bin/dmesg")
    assert "exitstatus=127" in dev.command("show klog")
    assert dev.ran == []


def test_environment_tools_share_the_environment_of_the_test(dev):
    dev.env["bootdelay"] = "5"
    dev.boot()
    dev.command("set bootenv bootdelay 7")
    assert dev.env["bootdelay"] == "7"
    dev.command("set bootenv bootcmd run flashboot")
    assert dev.env["bootcmd"] == "run flashboot"
    assert dict(dev.env) == {"bootbank": "1", "ethaddr": "00:20:4a:00:00:01", "bootdelay": "7",
                             "bootcmd": "run flashboot"}


# ---------------------------------------------------------------------- kernel requests, sleeps, failing calls


def test_flash_requests_of_the_device_kernel(dev):
    dev.env["mtdparts"] = "atmel_nand:65536k(ubi0),-(user)"
    dev.boot()
    assert [(p.name, p.node, p.size, p.erase_size) for p in dev.partitions[10:]] == [
        ("ubi0", "/dev/mtd11", 0x4000000, 0x20000), ("user", "/dev/mtd12", 0x4000000, 0x20000)]
    assert dev.partition("user").file.stat().st_size == 0x4000000


def test_failing_call_fails_as_often_as_told(dev):
    dev.boot()
    dev.fail_call("posix_spawn", "/bin/dmesg", error="ENOMEM", after=1, times=1)
    assert [dev.command("show klog") for _ in range(3)] == [
        "", "ERROR: system(/bin/dmesg) returned -1\n" + FAILURE, ""]
    assert [(event.call, event.subject, event.error) for event in dev.events.of("caught")] == [
        ("posix_spawn", "/bin/dmesg", "ENOMEM")]


def test_dropped_rules_are_gone(dev):
    dev.boot()
    dev.fail_call("posix_spawn", error="ENOMEM", optional=True)
    dev.drop_rules()
    assert dev.command("show klog") == ""


def test_sleeps_are_noted_as_asked_for_and_shortened(dev):
    dev.boot()
    began = time.monotonic()
    dev.type("file download serial x 2")
    dev.expect("Begin serial download...\n")
    dev.send_stream(b"x" * 5000, port=2)
    dev.text_until_prompt()
    assert dev.sleeps == [1.0]
    assert time.monotonic() - began < 3.9, "the silence that ends the transfer is real, the second before it is not"
    assert dev.path("/tmp/x").read_bytes() == b"x" * 5000


def test_stream_is_sent_once_the_port_is_open_and_arrives_whole(dev):
    data = bytes(range(256)) * 2000
    dev.boot()
    dev.type("file download serial x")
    dev.expect("Begin serial download...\n")
    dev.send_stream(data)
    dev.text_until_prompt()
    assert dev.path("/tmp/x").read_bytes() == data


def test_trace_notes_transfers_and_waits(dev):
    dev.trace("/dev/ttyS2", "select")
    dev.boot()
    dev.type("file download serial x 2")
    dev.expect("Begin serial download...\n")
    dev.send_stream(b"hello", port=2)
    dev.text_until_prompt()
    received = dev.events.of("read")
    assert [(event.path, event.data, event.crc32) for event in received] == [
        ("/dev/ttyS2", b"hello", zlib.crc32(b"hello"))]
    assert [(event.path, event.seconds) for event in dev.events.of("select")] == [
        ("/dev/ttyS2", 30.0), ("/dev/ttyS2", 3.0)]


# ---------------------------------------------------------------------- what fails any test


def test_death_of_the_program_is_noticed(dev):
    dev.boot()
    dev.check()
    dev.kill()
    with pytest.raises(AssertionError, match="the program ended with status"):
        dev.check()
    with pytest.raises(Timeout, match="the program has ended"):
        dev.text_until_prompt()
    dev.death_expected = True


def test_unknown_command_is_noticed(dev):
    dev.boot()
    dev.command("nonsense")
    with pytest.raises(AssertionError, match="Unknown Command"):
        dev.check()
    dev.unknown_command_expected = True


def test_second_start_is_noticed_but_the_version_is_not_one(dev):
    text = dev.boot()
    dev.command("version")
    dev.check()
    dev.answer("dmesg", stdout=text[text.index(BANNER):])
    dev.command("show klog")
    with pytest.raises(AssertionError, match="a second start-up"):
        dev.check()
    dev.starts = 2


def test_starts_of_the_test_itself_are_counted(dev):
    dev.boot()
    dev.kill()
    dev.boot()
    dev.check()


def test_log_that_runs_full_is_noticed(dev):
    dev.boot()
    with open(dev.path("/.harness/log"), "a", encoding="ascii") as log:
        log.write("1\t1\tsleep\t1\n" * (dev.log.LIMIT // 12))
    dev.command("show klog")
    assert "/bin/dmesg" not in dev.ran, "nothing is written any more"
    with pytest.raises(AssertionError, match="the log is full"):
        dev.check()
    dev.path("/.harness/log").write_text("")


def test_rules_in_vain_are_noticed(dev):
    dev.boot()
    dev.answer("dmesg")
    dev.fail_call("fork")
    dev.answer("ps", optional=True)
    with pytest.raises(AssertionError, match="answer.'dmesg', when=''.*fork"):
        dev.check()
    dev.unused_rules_expected = True


def test_nothing_outlives_the_device(dev):
    dev.boot()
    dev.answer("dmesg", hold=60)
    dev.type("show klog")
    dev.wait_ran("/bin/dmesg")
    program = dev.pid
    dev.kill()
    with pytest.raises(ProcessLookupError):
        os.kill(program, 0)
    dev.death_expected = True


# ---------------------------------------------------------------------- one of many


def test_tally_names_the_calls_that_could_fail(dev):
    dev.boot()
    dev.tally()
    dev.command("set bootenv silent on")
    dev.tally(False)
    calls = [(event.call, event.subject) for event in dev.events.of("call")]
    assert ("posix_spawn", "/usr/sbin/fw_setenv silent on > /dev/null 2>&1") in calls and ("waitpid", "program") in calls
    dev.mark()
    dev.command("affirm")
    assert dev.events.of("call") == []


def test_nth_run_of_a_tool_gets_an_answer(dev):
    dev.answer("fw_setenv", when="silent", after=1, times=1, status=1)
    dev.boot()
    shown = [dev.command("set bootenv silent on") for _ in range(3)]
    assert [text.endswith(FAILURE) for text in shown] == [False, True, False]


def test_subject_of_a_failing_call_may_be_the_whole(dev):
    dev.boot()
    dev.fail_call("posix_spawn", "=/usr/sbin/fw_setenv silent", error="ENOMEM", optional=True)
    assert not dev.command("set bootenv silent on").endswith(FAILURE)
    dev.fail_call("posix_spawn", "=/usr/sbin/fw_setenv silent on > /dev/null 2>&1", error="ENOMEM", times=1)
    assert dev.command("set bootenv silent on").endswith(FAILURE)

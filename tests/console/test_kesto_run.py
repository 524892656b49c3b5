"""kesto run: the prompt is found in every state of the line, commands come back as the shell answered, and each way to
fail has its line and its status."""

import fcntl
import json
import os
import select
import signal

import pytest

from kesto_device import kesto  # noqa: F401  pylint: disable=unused-import
from texts import PROMPT, QUESTION, SUCCESS

pytestmark = pytest.mark.not_emulated(reason="a host tool, which never runs on the device's processor")

VERBOSE = "verbosity is 3\n"


@pytest.mark.parametrize("port", ["pty", "tcp", "unix"])
def test_a_command_by_each_kind_of_line(dev, kesto, port):
    dev.boot()
    result = kesto.at("run", "verbose", "affirm", port=getattr(kesto.bridge, port))
    assert (result.returncode, result.stdout, result.stderr) == (0, VERBOSE + "affirm is OFF\n", "")


def test_history_does_not_show_how_the_prompt_was_found(dev, kesto):
    dev.boot()
    result = kesto.at("run", "verbose", "history")
    assert result.stdout == VERBOSE + "\nCommand history:\n  verbose\n  history\n\n"


@pytest.mark.parametrize("keys", ["flash kill", "flash kill\x01", "flash kill\x1b", "flash kill\x1b[", "x" * 256],
                         ids=["half a line", "cursor at its start", "behind ESC", "behind ESC [", "a full line"])
def test_a_line_that_somebody_began_is_not_run(dev, kesto, keys):
    dev.boot()
    dev.keys(keys)
    dev.expect(keys[:9])
    result = kesto.at("run", "verbose")
    assert (result.returncode, result.stdout, result.stderr) == (0, VERBOSE, "")
    dev.expect_not_ran("flash_erase")


def test_a_pending_question_is_answered_with_no(dev, kesto):
    dev.boot()
    dev.command("affirm on")
    dev.type("flash kill")
    dev.expect(QUESTION)
    result = kesto.at("run", "verbose")
    assert (result.returncode, result.stdout, result.stderr) == (0, VERBOSE, "")
    assert "<aborted>" in dev.text_until_prompt()
    dev.expect_not_ran("flash_erase")


def test_an_answer_that_somebody_began_is_left_to_them(dev, kesto):
    """Whatever is typed behind a y, Enter makes it a yes."""
    dev.boot()
    dev.command("affirm on")
    dev.type("flash kill")
    dev.expect(QUESTION)
    dev.keys("y")
    dev.expect("y")
    result = kesto.at("run", "--limit", "12", "verbose")
    assert result.returncode == 4
    assert "the line is silent: is the device on, the speed right, or a question half answered?" in result.stderr
    dev.expect_not_ran("flash_erase")


def test_a_command_that_runs_is_waited_for_and_not_disturbed(dev, kesto):
    dev.boot()
    dev.answer("dmesg", stdout="kernel\n", held="end")
    dev.type("show klog")
    dev.wait_ran("/bin/dmesg")
    process = kesto.start("run", "--port", kesto.bridge.pty, "verbose")
    dev.wait_typed_ahead(2)
    dev.release("dmesg")
    out, err = process.communicate(timeout=60)
    assert (process.returncode, out, err) == (0, VERBOSE, "")
    assert b"\x03" not in dev.console.output and b"Terminated" not in dev.console.output


def test_the_time_limit_names_the_command(dev, kesto):
    dev.boot()
    dev.answer("dmesg", stdout="kernel\n", held="end")
    process = kesto.start("run", "--port", kesto.bridge.pty, "--limit", "2", "show klog", "verbose")
    dev.wait_ran("/bin/dmesg")
    out, err = process.communicate(timeout=60)
    assert (process.returncode, out) == (4, "")
    assert err.startswith(f"kesto: {kesto.bridge.pty}: no prompt after 'show klog' within 2 s; the last line it shows is "
                          "'kernel'; the line is not at a prompt")
    assert err.count("\n") == 1
    dev.release("dmesg")


def test_waits_for_a_restart_and_types_nothing_before(dev, kesto):
    dev.boot()
    process = kesto.start("run", "--port", kesto.bridge.pty, "--reset", "verbose")
    dev.kill()
    dev.console.skip()
    before = len(dev.console.output)
    dev.start()
    out, err = process.communicate(timeout=60)
    assert (process.returncode, out, err) == (0, VERBOSE, "")
    assert dev.console.output[before:].count(PROMPT.encode()) >= 2


def test_what_failed_is_named(dev, kesto):
    dev.boot()
    dev.unknown_command_expected = True
    for command, line in (("flash kill 1 roof", "'flash kill 1 roof' failed: ERROR: Invalid parameter 'roof'"),
                          ("flesh", "the shell does not know 'flesh'"), ("s", "the shell does not know 's'")):
        result = kesto.at("run", command, "verbose")
        assert (result.returncode, result.stderr) == (3, f"kesto: {line}\n")
        assert VERBOSE not in result.stdout


def test_a_failure_without_an_error(dev, kesto):
    dev.boot()
    dev.answer("fw_setenv", status=1)
    result = kesto.at("run", "set bootenv silent on")
    assert result.returncode == 3
    assert result.stdout.endswith("Done: FAILURE\n")


def test_a_question_is_answered_as_the_person_said(dev, kesto):
    dev.boot()
    dev.command("affirm on")
    result = kesto.at("run", "flash kill 2 kernel")
    assert (result.returncode, result.stderr) == (3, "kesto: 'flash kill 2 kernel' asks for a yes, and --yes was not given\n")
    dev.expect_not_ran("flash_erase")
    result = kesto.at("run", "--yes", "flash kill 2 kernel")
    assert (result.returncode, result.stderr) == (0, "")
    assert result.stdout.endswith(SUCCESS)


def test_a_script(dev, kesto):
    dev.boot()
    script = kesto.file("commands", "# first\n\n  verbose 4\n; second\nverbose 3\n")
    result = kesto.at("run", "--script", script)
    assert (result.returncode, result.stdout, result.stderr) == (0, "verbosity is 4\n" + VERBOSE, "")


def test_a_script_stops_at_an_unknown_command(dev, kesto):
    dev.boot()
    dev.unknown_command_expected = True
    kesto.file("commands", "verbose 4\nflush\nverbose 5\n")
    result = kesto.at("run", "--script", "commands")
    assert (result.returncode, result.stderr) == (3, "kesto: commands:2: the shell does not know 'flush'\n")
    assert result.stdout == "verbosity is 4\nERROR: Unknown Command\n"


@pytest.mark.parametrize("name, text, said", [
    ("nosuch", None, "nosuch: open error (No such file or directory)"),
    ("empty", "# nothing\n", "empty: holds no command"),
])
def test_a_script_that_is_none(dev, kesto, name, text, said):
    if text is not None:
        kesto.file(name, text)
    result = kesto.at("run", "--script", name, port="/dev/nosuch")
    assert (result.returncode, result.stdout, result.stderr) == (1, "", f"kesto: {said}\n")


def test_for_programs(dev, kesto):
    dev.boot()
    dev.unknown_command_expected = True
    record = kesto.json("run", "verbose", "flesh", status=3)
    assert record["commands"][0] | {"seconds": 0} == {
        "command": "verbose", "result": "success", "seconds": 0, "text": VERBOSE}
    assert record["commands"][1]["result"] == "unknown_command"
    assert (record["format"], record["port"], record["result"], record["status"]) == (
        1, kesto.bridge.pty, "device_failed", 3)


def test_a_line_that_garbles_runs_nothing(dev, kesto):
    dev.boot()
    kesto.bridge.garble = lambda data: data.replace(b"kill", b"kyll")
    result = kesto.at("run", "flash kill 2")
    assert result.returncode == 4
    assert "'flash kill 2' was typed and came back as 'flash kyll 2'; nothing was run" in result.stderr
    dev.expect_not_ran("flash_erase")
    assert "Unknown" not in dev.console.output.decode()


def test_somebody_else_is_at_the_line(dev, kesto):
    """A login prompt echoes and knows no Ctrl-C."""
    master, slave = os.openpty()
    process = kesto.start("run", "--port", os.ttyname(slave), "--limit", "20", "verbose")
    os.set_blocking(master, True)
    while process.poll() is None:
        try:
            data = os.read(master, 100)
        except OSError:
            break
        os.write(master, data if b"\x03" not in data else b"\r\n=> ")
        while process.poll() is None and not select.select([master], [], [], 0.1)[0]:
            pass
    err = process.communicate(timeout=60)[1]
    os.close(master), os.close(slave)
    assert process.returncode == 4
    assert "this is not the shell; it shows '=>'" in err


def test_silence(kesto):
    master, slave = os.openpty()
    result = kesto.run("run", "--port", os.ttyname(slave), "--limit", "2", "verbose")
    os.close(master), os.close(slave)
    assert result.returncode == 4
    assert "no prompt of the shell within 2 s; the line is silent: is the device on, the speed right, or a question half answered?" in result.stderr


@pytest.mark.parametrize("port", ["pty", "tcp", "unix"])
def test_the_cable_is_pulled(dev, kesto, port):
    dev.boot()
    dev.answer("dmesg", held="end")
    process = kesto.start("run", "--port", getattr(kesto.bridge, port), "show klog")
    dev.wait_ran("/bin/dmesg")
    kesto.bridge.pull()
    err = process.communicate(timeout=60)[1]
    assert process.returncode == 6
    assert "the line is lost" in err and err.count("\n") == 1
    dev.release("dmesg")


def test_the_device_restarts_in_the_middle(dev, kesto):
    dev.boot()
    dev.answer("dmesg", held="end")
    process = kesto.start("run", "--port", kesto.bridge.pty, "show klog", "verbose")
    dev.wait_ran("/bin/dmesg")
    dev.unused_rules_expected = True
    dev.kill()
    dev.start()
    out, err = process.communicate(timeout=60)
    assert (process.returncode, err) == (
        7, f"kesto: {kesto.bridge.pty}: the device restarted during 'show klog' and is at its prompt again\n")


def test_ctrl_c_gives_the_line_back(dev, kesto):
    dev.boot()
    process = kesto.start("run", "--port", kesto.bridge.pty, "show pattern 0")
    dev.expect("!\"#$%")
    process.send_signal(signal.SIGINT)
    err = process.communicate(timeout=60)[1]
    assert (process.returncode, err) == (130, "kesto: interrupted; the device is at its prompt\n")
    dev.console.skip()
    assert dev.command("verbose") == VERBOSE


def test_a_port_in_use_names_its_user(dev, kesto):
    dev.boot()
    with open(kesto.bridge.pty, "rb+", buffering=0) as other:
        fcntl.flock(other, fcntl.LOCK_EX)
        result = kesto.at("run", "verbose")
    name = open("/proc/self/comm", encoding="ascii").read().strip()
    assert (result.returncode, result.stderr) == (
        5, f"kesto: {kesto.bridge.pty}: in use by {name} (PID {os.getpid()})\n")


def test_reset_goes_on_when_the_shell_is_back(dev, kesto):
    dev.boot()
    process = kesto.start("run", "--port", kesto.bridge.pty, "reset", "verbose")
    dev.wait_ran("/sbin/reboot")
    dev.kill()
    dev.start()
    out, err = process.communicate(timeout=60)
    assert (process.returncode, out.endswith(VERBOSE), err) == (0, True, "")


def test_ports_tells_which_answers(dev, kesto):
    dev.boot()
    master, slave = os.openpty()
    result = kesto.run("ports", "--port", kesto.bridge.pty, "--port", os.ttyname(slave), "--limit", "3", "--json")
    found = {row["port"]: row["state"] for row in json.loads(result.stdout)["ports"]}
    assert found[kesto.bridge.pty] == "prompt of the shell"
    assert found[os.ttyname(slave)].startswith("no prompt of the shell within 3 s; the line is silent")
    os.close(master), os.close(slave)

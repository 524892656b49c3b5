"""What each verbosity shows: levels and their prefixes, whole traces of simple commands."""

import pytest

from console_port import block
from texts import FAILURE, SETTING_DEFAULTS, SUCCESS


def erased(name: str, node: str) -> list[str]:
    lines = [f"PROGRESS: Erasing boot environment partition {name}\n", "TRACE: flash_erase_whole_partition:\n"]
    for words in f"flash_unlock {node}", f"flash_erase {node} 0 0", f"flash_lock {node} 0 -1":
        lines += ["TRACE: exec_system_cmd:\n", f"VERBOSE: system(/usr/sbin/{words})\n"]
    return lines


DEFAULTS = ["TRACE: cmd_set_bootenv_defaults:\n", "TRACE: helper_set_bootenv_defaults:\n", SETTING_DEFAULTS,
            *erased("bootenv_1", "/dev/mtd3"), *erased("bootenv_2", "/dev/mtd4"),
            "PROGRESS: Writing defaults to boot environment partition(s)\n", "TRACE: uboot_env_set_val:\n",
            "TRACE: exec_system_cmd:\n", "VERBOSE: system(/usr/sbin/fw_setenv dummy_variable  )\n", SUCCESS]


@pytest.mark.parametrize("level", [1, 2, 3, 4, 5, 6, 7, 8, 99, 4294967295])
def test_a_verbosity_shows_the_levels_up_to_it(dev, level):
    hidden = tuple(f"{prefix}: " for prefix, from_level in (("PROGRESS", 5), ("VERBOSE", 6), ("TRACE", 7)) if level < from_level)
    dev.boot()
    dev.command(f"verbose {level}")
    assert dev.command("set bootenv defaults") == "".join(line for line in DEFAULTS if not line.startswith(hidden))


@pytest.mark.parametrize("level, text", [(1, ""), (2, ""), (3, "ERROR: Unknown Command\n")])
def test_errors_are_shown_from_verbosity_3_on(dev, level, text):
    dev.unknown_command_expected = True
    dev.boot()
    assert dev.command("nonsense") == "ERROR: Unknown Command\n"
    dev.command(f"verbose {level}")
    assert dev.command("nonsense") == text
    assert dev.command("verbose") == f"verbosity is {level}\n"


def test_a_failed_command_still_ends_with_failure_where_errors_are_hidden(dev):
    dev.answer("dmesg", status=1)
    dev.boot()
    dev.command("verbose 2")
    assert dev.command("show klog") == FAILURE


@pytest.mark.parametrize("line, trace", [
    ("verbose", "TRACE: cmd_verbose:\nverbosity is 7\n"),
    ("affirm", "TRACE: cmd_affirm:\naffirm is OFF\n"),
    ("history", "TRACE: cmd_history:\n\nCommand history:\n  verbose 7\n  history\n\n"),
    ("help quit", "TRACE: cmd_help:\n\nBrief Command Summary:\n\n  quit \n\n"),
    ("quit", ""),
    ("reset", "TRACE: cmd_reset:\nTRACE: exec_system_cmd:\nVERBOSE: system(/sbin/reboot)\n"),
    ("show klog", "TRACE: cmd_show_klog:\nTRACE: exec_system_cmd:\nVERBOSE: system(/bin/dmesg)\n"),
    ("show system", "TRACE: cmd_show_system:\n\n"
                    "TRACE: exec_system_cmd:\nVERBOSE: system(/usr/bin/top -b -n1)\n"
                    "TRACE: exec_system_cmd:\nVERBOSE: system(/bin/ps)\n\n"),
    ("set bootenv bootbank 2", "TRACE: cmd_set_bootenv_bootbank:\nTRACE: uboot_env_set_val:\n"
                               "TRACE: exec_system_cmd:\nVERBOSE: system(/usr/sbin/fw_setenv bootbank 2 )\n" + SUCCESS),
    ("set bootenv bootcmd", "TRACE: cmd_set_bootenv_bootcmd:\nERROR: Incomplete command\n"),
    ("set bootenv bootdelay x", "TRACE: cmd_set_bootenv_bootdelay:\nERROR: Invalid parameter 'x'\n"),
    ("set bootenv silent", "TRACE: cmd_set_bootenv_silent:\nERROR: Incomplete command\n"),
    ("set console 9600", "TRACE: cmd_set_console:\n"
                         "VERBOSE: tty_remap_stdio: dev=/dev/ttyS1 delay_secs=0\n" +
                         block(speed=9600) + SUCCESS),
    ("set console", "TRACE: cmd_set_console:\n<no change>\n" + SUCCESS),
])
def test_the_whole_trace_of_a_command(dev, line, trace):
    dev.boot()
    dev.command("verbose 7")
    assert dev.command(line) == trace


def test_a_failed_listing_with_its_trace(dev):
    dev.answer("fw_printenv", status=1)
    dev.boot()
    dev.command("verbose 7")
    assert dev.command("show bootenv") == (
        "TRACE: cmd_show_bootenv:\nTRACE: exec_system_cmd:\nVERBOSE: system(fw_printenv)\n"
        "ERROR: system(fw_printenv) sys_rc=256 exitstatus=1\n" + FAILURE)

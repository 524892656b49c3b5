"""The boot environment: its commands, the lines they compose, and the reset to the boot loader's defaults."""

import pytest

from texts import FAILURE, INCOMPLETE, SETTING_DEFAULTS, SUCCESS, invalid, system_failed

HIDDEN = " > /dev/null 2>&1"


def extraneous(word: str) -> str:
    return f"ERROR: Extraneous parameter '{word}'\n"


# ---------------------------------------------------------------------- writing single variables


@pytest.mark.parametrize("line, assignment", [
    ("bootbank 1", "bootbank 1"),
    ("bootbank 2", "bootbank 2"),
    ("bootbank single", "bootbank single"),
    ("bootbank 2 1", "bootbank 2"),
    ("bootcmd run flashboot", "bootcmd run flashboot"),
    ("bootcmd run cfgldrboot", "bootcmd run cfgldrboot"),
    ("bootcmd run flashboot x", "bootcmd run flashboot"),
    ("silent on", "silent on"),
    ("silent off", "silent "),
    ("silent on off", "silent on"),
])
def test_a_variable_is_set(dev, line, assignment):
    dev.boot()
    assert dev.command(f"set bootenv {line}") == SUCCESS
    assert dev.shell_lines == [f"/usr/sbin/fw_setenv {assignment}{HIDDEN}"]
    dev.expect_ran_exactly([f"/usr/sbin/fw_setenv {assignment}".rstrip()])


def test_the_environment_holds_what_was_set(dev):
    dev.boot()
    for line in ("bootbank single", "bootcmd run cfgldrboot", "bootdelay -1", "silent on"):
        dev.command(f"set bootenv {line}")
    assert {name: dev.env[name] for name in ("bootbank", "bootcmd", "bootdelay", "silent")} == {
        "bootbank": "single", "bootcmd": "run cfgldrboot", "bootdelay": "-1", "silent": "on"}
    dev.command("set bootenv silent off")
    assert "silent" not in dev.env


@pytest.mark.parametrize("text, number", [
    ("-1", -1), ("0", 0), ("1", 1), ("10", 10), ("007", 7), ("+5", 5), ("-0", 0), ("2147483647", 2147483647),
])
def test_a_boot_delay_is_set(dev, text, number):
    dev.boot()
    assert dev.command(f"set bootenv bootdelay {text}") == f"Setting bootdelay to {number}\n{SUCCESS}"
    assert dev.shell_lines == [f"/usr/sbin/fw_setenv bootdelay {number}{HIDDEN}"]
    assert dev.env["bootdelay"] == str(number)


@pytest.mark.parametrize("line, refusal", [
    ("bootbank", INCOMPLETE),
    ("bootbank 3", invalid("3")),
    ("bootbank SINGLE", invalid("SINGLE")),
    ("bootbank Single", invalid("Single")),
    ("bootbank 01", invalid("01")),
    ("bootbank 1;", invalid("1;")),
    ("bootcmd", INCOMPLETE),
    ("bootcmd run", INCOMPLETE),
    ("bootcmd x", INCOMPLETE),
    ("bootcmd Run flashboot", invalid("Run")),
    ("bootcmd x y", invalid("x")),
    ("bootcmd flashboot run", invalid("flashboot")),
    ("bootcmd run foo", invalid("foo") + FAILURE),
    ("bootcmd run Flashboot", invalid("Flashboot") + FAILURE),
    ("bootcmd run flashboo", invalid("flashboo") + FAILURE),
    ("bootdelay", INCOMPLETE),
    ("bootdelay 3 x", extraneous("x")),
    ("bootdelay x y", extraneous("y")),
    ("bootdelay -2", invalid("-2")),
    ("bootdelay 5s", invalid("5s")),
    ("bootdelay s", invalid("s")),
    ("bootdelay -", invalid("-")),
    ("bootdelay 0x5", invalid("0x5")),
    ("bootdelay 1.5", invalid("1.5")),
    ("bootdelay 2147483648", invalid("2147483648")),
    ("bootdelay 4294967295", invalid("4294967295")),
    ("bootdelay 9223372036854775808", invalid("9223372036854775808")),
    ("bootdelay 99999999999999999999", invalid("99999999999999999999")),
    ("bootdelay -99999999999999999999", invalid("-99999999999999999999")),
    ("silent", INCOMPLETE),
    ("defaults x", extraneous("x")),
    ("defaults x y", extraneous("x")),
])
def test_a_refused_parameter_writes_nothing(dev, line, refusal):
    dev.boot()
    assert dev.command(f"set bootenv {line}") == refusal
    dev.expect_ran_exactly([])


@pytest.mark.parametrize("word", ["ON", "Off", "yes", "1", "maybe"])
def test_silent_takes_on_and_off_only(dev, word):
    """A refused word ends the command; only that of bootcmd is also reported as a failure."""
    dev.boot()
    assert dev.command(f"set bootenv silent {word}") == invalid(word)
    dev.expect_ran_exactly([])


@pytest.mark.parametrize("line, before, assignment", [
    ("bootbank 1", "", "bootbank 1"),
    ("bootcmd run flashboot", "", "bootcmd run flashboot"),
    ("bootdelay 5", "Setting bootdelay to 5\n", "bootdelay 5"),
    ("silent on", "", "silent on"),
    ("silent off", "", "silent "),
])
def test_a_write_that_fails(dev, line, before, assignment):
    dev.answer("fw_setenv", stderr="Cannot write\n", status=1)
    dev.boot()
    environment = dict(dev.env)
    command = f"/usr/sbin/fw_setenv {assignment}{HIDDEN}"
    assert dev.command(f"set bootenv {line}") == \
        f"{before}ERROR: system({command}) sys_rc=256 exitstatus=1\n{FAILURE}"
    assert dict(dev.env) == environment


@pytest.mark.parametrize("level", [1, 3, 5])
def test_the_writing_tool_is_hidden_below_verbosity_6(dev, level):
    dev.answer("fw_setenv", stdout="out\n", stderr="err\n")
    dev.boot()
    dev.command(f"verbose {level}")
    assert dev.command("set bootenv bootbank 2") == SUCCESS
    assert dev.shell_lines == [f"/usr/sbin/fw_setenv bootbank 2{HIDDEN}"]


@pytest.mark.parametrize("level", [6, 7, 99])
def test_the_writing_tool_is_shown_from_verbosity_6_on(dev, level):
    dev.answer("fw_setenv", stdout="out\n", stderr="err\n")
    dev.boot()
    dev.command(f"verbose {level}")
    assert dev.command("set bootenv bootbank 2").endswith(
        f"VERBOSE: system(/usr/sbin/fw_setenv bootbank 2 )\nerr\nout\n{SUCCESS}")
    assert dev.shell_lines == ["/usr/sbin/fw_setenv bootbank 2 "]
    dev.command("set bootenv silent off")
    assert dev.shell_lines[1:] == ["/usr/sbin/fw_setenv silent  "]


# ---------------------------------------------------------------------- defaults

ERASE_1 = ["/usr/sbin/flash_unlock /dev/mtd3", "/usr/sbin/flash_erase -q /dev/mtd3 0 0",
           "/usr/sbin/flash_lock /dev/mtd3 0 -1"]
ERASE_2 = ["/usr/sbin/flash_unlock /dev/mtd4", "/usr/sbin/flash_erase -q /dev/mtd4 0 0",
           "/usr/sbin/flash_lock /dev/mtd4 0 -1"]
WRITE = ["/usr/sbin/fw_setenv dummy_variable"]


def not_erased(name: str) -> str:
    return f"ERROR: Failed to erase boot environment partition {name}\n"


def test_defaults_erase_both_partitions_and_make_the_tool_write(dev):
    for name in ("bootenv_1", "bootenv_2"):
        dev.partition(name).write(b"bootbank=2\0")
    dev.boot()
    assert dev.command("set bootenv defaults") == SETTING_DEFAULTS + SUCCESS
    assert dev.shell_lines == ERASE_1 + ERASE_2 + [WRITE[0] + " " + HIDDEN]
    assert dev.partition("bootenv_1").erased and dev.partition("bootenv_2").erased


def test_defaults_report_their_progress_at_verbosity_5(dev):
    dev.boot()
    dev.command("verbose 5")
    assert dev.command("set bootenv defaults") == (
        SETTING_DEFAULTS +
        "PROGRESS: Erasing boot environment partition bootenv_1\n"
        "PROGRESS: Erasing boot environment partition bootenv_2\n"
        "PROGRESS: Writing defaults to boot environment partition(s)\n" + SUCCESS)
    assert dev.shell_lines[1] == "/usr/sbin/flash_erase /dev/mtd3 0 0"


def test_defaults_are_traced_by_the_step_that_flash_clean_shares(dev):
    dev.boot()
    dev.command("verbose 7")
    for line in "set bootenv defaults", "flash clean":
        assert "TRACE: helper_set_bootenv_defaults:\n" + SETTING_DEFAULTS in dev.command(line)


@pytest.mark.parametrize("tool, node, report, ran", [
    ("flash_erase", "mtd3", system_failed(ERASE_1[1]) + not_erased("bootenv_1"), ERASE_1 + ERASE_2),
    ("flash_erase", "mtd4", system_failed(ERASE_2[1]) + not_erased("bootenv_2"), ERASE_1 + ERASE_2),
    ("flash_erase", "", system_failed(ERASE_1[1]) + not_erased("bootenv_1") + system_failed(ERASE_2[1]) + not_erased("bootenv_2"),
     ERASE_1 + ERASE_2),
    ("flash_unlock", "mtd3", system_failed(ERASE_1[0]) + not_erased("bootenv_1"), [ERASE_1[0], ERASE_1[2]] + ERASE_2),
    ("flash_unlock", "mtd4", system_failed(ERASE_2[0]) + not_erased("bootenv_2"), ERASE_1 + [ERASE_2[0], ERASE_2[2]]),
    ("flash_lock", "mtd3", system_failed(ERASE_1[2]) + not_erased("bootenv_1"), ERASE_1 + ERASE_2),
    ("flash_lock", "mtd4", system_failed(ERASE_2[2]) + not_erased("bootenv_2"), ERASE_1 + ERASE_2),
])
def test_defaults_go_on_after_a_failed_erase_but_write_nothing(dev, tool, node, report, ran):
    dev.answer(tool, when=node, status=1)
    dev.boot()
    assert dev.command("set bootenv defaults") == SETTING_DEFAULTS + report + FAILURE
    dev.expect_ran_exactly(ran)


def test_defaults_whose_write_fails(dev):
    dev.answer("fw_setenv", status=1)
    dev.boot()
    assert dev.command("set bootenv defaults") == SETTING_DEFAULTS + system_failed(WRITE[0] + " " + HIDDEN) + FAILURE
    dev.expect_ran_exactly(ERASE_1 + ERASE_2 + WRITE)


def test_defaults_take_the_nodes_from_the_kernels_list(dev):
    dev.set_partitions(("bootenv_2", 0x10000, 0x10000), ("other", 0x10000, 0x10000), ("bootenv_1", 0x10000, 0x10000))
    dev.boot()
    assert dev.command("set bootenv defaults") == SETTING_DEFAULTS + SUCCESS
    dev.expect_ran_exactly([line.replace("mtd3", "mtd2") for line in ERASE_1] +
                           [line.replace("mtd4", "mtd0") for line in ERASE_2] + WRITE)
    assert not dev.partition("other").erased


@pytest.mark.parametrize("answer", ["n", "", "ny", "x"])
def test_defaults_declined_change_nothing(dev, answer):
    dev.partition("bootenv_1").write(b"bootbank=2\0")
    dev.boot()
    dev.command("affirm on")
    dev.type("set bootenv defaults")
    dev.expect("? ")
    dev.keys(answer + "\r")
    assert dev.text_until_prompt() == f"{answer[:1]}\n<aborted>\n"
    dev.expect_ran_exactly([])
    assert dev.partition("bootenv_1").read(0, 11) == b"bootbank=2\0"


# ---------------------------------------------------------------------- show


@pytest.mark.parametrize("line", ["show bootenv", "show bootenv bootbank", "show bootenv x y"])
def test_show_lists_everything(dev, line):
    dev.answer("fw_printenv", stdout="bootbank=1\nbootcmd=run flashboot\n")
    dev.boot()
    assert dev.command(line) == "bootbank=1\nbootcmd=run flashboot\n"
    dev.expect_ran_exactly(["fw_printenv"])  # found through the search path


def test_show_that_fails(dev):
    dev.answer("fw_printenv", stderr="Cannot read\n", status=1)
    dev.boot()
    assert dev.command("show bootenv") == f"Cannot read\n{system_failed('fw_printenv')}{FAILURE}"

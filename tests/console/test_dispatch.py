"""From a line to its handler: words, matching, refusals, help."""

import pytest

from command_list import COMMANDS, PLACEHOLDERS, listing
from texts import AMBIGUOUS, BANNER, BRIEF, INCOMPLETE, SUCCESS, UNKNOWN, VERBOSE


@pytest.fixture
def dev(dev):
    dev.unknown_command_expected = True
    dev.boot()
    return dev


@pytest.fixture
def handler_of(dev):
    """Types a line and returns the name of the handler that ran, from its trace."""
    dev.command("verbose 7")

    def run(line):
        output = dev.command(line)
        return output.split("\n")[0].removeprefix("TRACE: ").removesuffix(":")

    return run


# ---------------------------------------------------------------------- matching


@pytest.mark.parametrize("line, handler", [
    ("show bootenv", "cmd_show_bootenv"),
    ("SHOW BOOTENV", "cmd_show_bootenv"),
    ("Sh BootEnv", "cmd_show_bootenv"),
    ("sh boot", "cmd_show_bootenv"),
    ("sh c", "cmd_show_console"),
    ("show k", "cmd_show_klog"),
    ("vers", "cmd_version"),
    ("verb", "cmd_verbose"),
    ("VERSION", "cmd_version"),
    ("a", "cmd_affirm"),
    ("he", "cmd_help"),
    ("hi", "cmd_history"),
    ("?", "cmd_help"),
    ("!", "cmd_history"),
    ("rese", "cmd_reset"),
    ("reb", "cmd_reset"),
    ("REBOOT", "cmd_reset"),
    ("fi d s", "cmd_file_download_serial"),
    ("FL DOWN SER x", "cmd_flash_download_serial"),
    ("set bootenv bootb 1", "cmd_set_bootenv_bootbank"),
    ("set bootenv bootc", "cmd_set_bootenv_bootcmd"),
    ("set bootenv bootd", "cmd_set_bootenv_bootdelay"),
    ("set b de", "cmd_set_bootenv_defaults"),
    ("set b s", "cmd_set_bootenv_silent"),
    ("set c", "cmd_set_console"),
])
def test_a_word_or_a_unique_prefix_in_any_case_selects(handler_of, line, handler):
    assert handler_of(line) == handler


def test_every_command_is_reached_by_its_full_words(handler_of):
    # A parameter that no transfer takes, so that none waits for a sender.
    words = {"flash download serial": "flash download serial x"}
    for path, _, _ in COMMANDS:
        if path != "quit":
            expected = "cmd_" + path.replace(" ", "_")
            assert handler_of(words.get(path, path)) == expected


def test_a_prefix_of_both_name_and_alias_counts_once(handler_of):
    assert handler_of("re") == "cmd_reset"  # reset, and its alias reboot


@pytest.mark.parametrize("line", ["s", "se", "S", "h", "ver", "v", "f", "set bootenv boot", "set bootenv BOOT 1",
                                  "s bootenv"])
def test_a_prefix_of_several_commands_is_ambiguous(dev, line):
    assert dev.command(line) == AMBIGUOUS
    dev.expect_ran_exactly([])


def test_a_whole_word_beats_abbreviations(dev):
    assert dev.command("set") == INCOMPLETE  # not ambiguous with serial, show, ...
    assert dev.command("reset") == ""  # placeholders begin with it, too
    dev.expect_ran_exactly(["/sbin/reboot"])


@pytest.mark.parametrize("line", ["x", "b", "bf", "md", "shows", "helpp", "??", "!!", "-", "versionn", "show x",
                                  "show consoles", "flash erase 0 0", "serial x", "file upload x", "set bootenv x 1",
                                  "set bootenv bootbanks 1", "\xe9", "show \xfe"])
def test_no_match_is_unknown(dev, line):
    assert dev.command(line) == UNKNOWN
    dev.expect_ran_exactly([])


@pytest.mark.parametrize("table", PLACEHOLDERS, ids=lambda table: table or "root")
def test_placeholders_are_not_noticed(dev, table):
    for name in PLACEHOLDERS[table]:
        assert dev.command(f"{table} {name}".strip()) == UNKNOWN, name
    dev.expect_ran_exactly([])


@pytest.mark.parametrize("line", ["set", "serial", "show", "flash", "file", "file upload", "file download",
                                  "set bootenv", "flash download", "gpiolib", "network", "SER", "set boot",
                                  "show # console"])
def test_a_table_without_a_further_word_is_incomplete(dev, line):
    assert dev.command(line) == INCOMPLETE


def test_the_prompt_follows_every_refusal_and_nothing_is_left_of_it(dev):
    for line in ("set", "show x version", "ver sion", "set bootenv"):
        dev.command(line)
    assert dev.command("version").startswith(BANNER)


# ---------------------------------------------------------------------- words


@pytest.mark.parametrize("line", ["", " ", "   \t ", "#", ";", "# version", ";version", "#version", "  ; version",
                                  "\t#"])
def test_empty_lines_and_comments_do_nothing(dev, line):
    assert dev.command(line) == ""


@pytest.mark.parametrize("line, word", [
    ("verbose a;b", "a;b"),
    ("verbose a#", "a#"),
    ("verbose x;", "x;"),
    ("verbose 'a b'", "'a"),
    ('verbose "a b"', '"a'),
    ("verbose \\a", "\\a"),
    ("verbose\tx", "x"),
    ("\t verbose \t\t x \t", "x"),
    ("verbose x # comment", "x"),
    ("verbose \xe4\xf6", "\xe4\xf6"),
])
def test_blanks_and_tabs_part_words_and_nothing_quotes(dev, line, word):
    """The refusal names the word that reached the handler."""
    assert dev.command(line) == f"ERROR: Invalid verbose level '{word}'\nverbosity is 3\n"


@pytest.mark.parametrize("line", ["verbose # 4", "verbose ;4", "verbose #", "verbose #4 5", "verbose ;"])
def test_no_word_of_a_comment_is_a_parameter(dev, line):
    assert dev.command(line) == "verbosity is 3\n"


def test_a_comment_begins_with_a_word_not_within_one(dev):
    assert dev.command("verbose 4#5") == "verbosity is 4\n"


def test_a_comment_passes_no_parameter(dev):
    dev.answer("fw_printenv", stdout="bootbank=1\n")
    assert dev.command("show bootenv # comment") == "bootbank=1\n"
    assert dev.command("set bootenv bootdelay 5 # comment") == "Setting bootdelay to 5\n" + SUCCESS
    assert dev.command("set bootenv bootdelay 5 #comment more") == "Setting bootdelay to 5\n" + SUCCESS


@pytest.mark.parametrize("count", [19, 20, 21, 22, 40, 120])
def test_many_words(dev, count):
    assert dev.command("affirm on" + " x" * (count - 2)) == "affirm is ON\n"
    assert dev.command(" ".join(["x"] * count)) == UNKNOWN
    assert dev.command("affirm") == "affirm is ON\n"


def test_a_line_of_words_to_the_last_character(dev):
    line = ("affirm on" + " x" * 130)[:256]
    assert dev.command(line) == "affirm is ON\n"
    assert dev.command("affirm " + "o" * 249) == f"ERROR: invalid affirm option={'o' * 249}\naffirm is ON\n"
    assert dev.command("z" * 256) == UNKNOWN


def test_handlers_ignore_surplus_words(dev):
    assert dev.command("affirm on off x") == "affirm is ON\n"
    assert dev.command("verbose 4 5") == "verbosity is 4\n"
    assert dev.command("quit now please") == ""


# ---------------------------------------------------------------------- help


@pytest.mark.parametrize("line", ["help", "?", "HELP", "help # all"])
def test_help_lists_every_command_briefly(dev, line):
    assert dev.command(line) == BRIEF + listing() + "\n"


@pytest.mark.parametrize("line", ["help -v", "? -v"])
def test_help_lists_every_command_with_its_text(dev, line):
    assert dev.command(line) == VERBOSE + listing(verbose=True)


@pytest.mark.parametrize("words", ["set", "show", "flash", "file", "file download", "set bootenv", "version", "help",
                                   "quit", "set console", "set bootenv bootdelay", "show klog",
                                   "flash download serial", "network ethernet", "gpiolib", "show product"])
def test_help_of_one_command_or_table(dev, words):
    assert dev.command(f"help {words}") == BRIEF + listing(words) + "\n"
    assert dev.command(f"help -v {words}") == VERBOSE + listing(words, verbose=True)


def test_help_goes_by_whole_names_and_its_raw_bytes_are_those_of_a_terminal(dev):
    assert dev.screen_of(b"help -v version") == (
        b"help -v version\r\n\r\nVerbose Command Summary:\r\n\r\n"
        b"  version \r\n    Show the Loader CLI version\r\n\r\n")


@pytest.mark.parametrize("words", ["sh", "?", "!", "exit", "SET", "serial", "file upload", "resetcpu", "bootflash",
                                   "set base", "set bootenv dns", "set bootenv nothing", "set SET", "nothing", "-V",
                                   "show -v", "set bootenv boot", "\xe9"])
def test_help_of_what_is_not_there_names_the_first_word(dev, words):
    refusal = f"ERROR: Invalid parameter '{words.split()[0]}'\n"
    assert dev.command(f"help {words}") == BRIEF + refusal + "\n"
    assert dev.command(f"help -v {words}") == VERBOSE + refusal + "\n"


def test_the_verbose_option_counts_in_first_place_only(dev):
    assert dev.command("help version -v") == BRIEF + listing("version") + "\n"
    assert dev.command("help -v -v") == VERBOSE + "ERROR: Invalid parameter '-v'\n\n"


def test_help_ignores_words_behind_the_command(dev):
    assert dev.command("help version x y") == BRIEF + listing("version") + "\n"
    assert dev.command("help set console x y") == BRIEF + listing("set console") + "\n"

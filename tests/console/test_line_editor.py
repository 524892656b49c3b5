"""The line editor: what every key puts on the screen, to the byte, and what it leaves in the line."""

import random
import termios
import time

import pytest

from texts import BANNER

HOME, LEFT, CANCEL, DELETE, END, RIGHT, BACKSPACE = b"\x01", b"\x02", b"\x03", b"\x04", b"\x05", b"\x06", b"\x08"
KILL, NEWER, OVERWRITE, OLDER, ERASE, ESC, RUBOUT = b"\x0b", b"\x0e", b"\x0f", b"\x10", b"\x15", b"\x1b", b"\x7f"
ENTER = b"\r"
B = b"\b"
FULL = 256  # characters that a line holds


@pytest.fixture
def dev(dev):
    dev.unknown_command_expected = True
    dev.boot()
    return dev


def screen_of_keys(dev, keys: bytes) -> bytes:
    """What the keys put on the screen; the line is abandoned after them."""
    dev.keys(keys + CANCEL)
    screen = dev.screen_until_prompt()
    assert screen.endswith(b"\r\n")
    return screen[:-2]


def check(dev, keys: bytes, echo: bytes, line: bytes, cursor: int) -> None:
    """The keys show `echo`, and leave `line` with the cursor at this column: going home steps back over as many
    columns, going to the end then shows the line."""
    assert screen_of_keys(dev, keys) == echo
    assert screen_of_keys(dev, keys + HOME + END) == echo + B * cursor + line


def enter(dev, *lines: str) -> None:
    for line in lines:
        dev.command(line)


# ---------------------------------------------------------------------- single keys

TYPED = b"abcd"
AT_START = (TYPED + HOME, TYPED + B * 4)
IN_MIDDLE = (TYPED + LEFT * 2, TYPED + B * 2)
BEFORE_LAST = (TYPED + LEFT, TYPED + B)
AT_END = (TYPED, TYPED)
EMPTY = (b"", b"")


@pytest.mark.parametrize("where, key, echo, line, cursor", [
    (EMPTY, HOME, b"", b"", 0),
    (AT_START, HOME, b"", b"abcd", 0),
    (IN_MIDDLE, HOME, B * 2, b"abcd", 0),
    (AT_END, HOME, B * 4, b"abcd", 0),
    (EMPTY, LEFT, b"", b"", 0),
    (AT_START, LEFT, b"", b"abcd", 0),
    (IN_MIDDLE, LEFT, B, b"abcd", 1),
    (AT_END, LEFT, B, b"abcd", 3),
    (EMPTY, DELETE, b"", b"", 0),
    (AT_START, DELETE, b"bcd " + B * 4, b"bcd", 0),
    (IN_MIDDLE, DELETE, b"d " + B * 2, b"abd", 2),
    (BEFORE_LAST, DELETE, b" " + B, b"abc", 3),
    (AT_END, DELETE, b"", b"abcd", 4),
    (EMPTY, END, b"", b"", 0),
    (AT_START, END, b"abcd", b"abcd", 4),
    (IN_MIDDLE, END, b"cd", b"abcd", 4),
    (AT_END, END, b"", b"abcd", 4),
    (EMPTY, RIGHT, b"", b"", 0),
    (AT_START, RIGHT, b"a", b"abcd", 1),
    (IN_MIDDLE, RIGHT, b"c", b"abcd", 3),
    (AT_END, RIGHT, b"", b"abcd", 4),
    (EMPTY, KILL, b"", b"", 0),
    (AT_START, KILL, b"    " + B * 4, b"", 0),
    (IN_MIDDLE, KILL, b"  " + B * 2, b"ab", 2),
    (AT_END, KILL, b"", b"abcd", 4),
    (EMPTY, OVERWRITE, b"", b"", 0),
    (IN_MIDDLE, OVERWRITE, b"", b"abcd", 2),
    (EMPTY, OLDER, b"", b"", 0),
    (IN_MIDDLE, OLDER, b"", b"abcd", 2),
    (EMPTY, NEWER, b"", b"", 0),
    (IN_MIDDLE, NEWER, b"", b"abcd", 2),
    (EMPTY, b"X", b"X", b"X", 1),
    (AT_START, b"X", b"Xabcd" + B * 4, b"Xabcd", 1),
    (IN_MIDDLE, b"X", b"Xcd" + B * 2, b"abXcd", 3),
    (AT_END, b"X", b"X", b"abcdX", 5),
])
def test_key(dev, where, key, echo, line, cursor):
    keys, before = where
    check(dev, keys + key, before + echo, line, cursor)


@pytest.mark.parametrize("key", [BACKSPACE, RUBOUT, b"\xff"], ids=["backspace", "delete", "255"])
@pytest.mark.parametrize("where, echo, line, cursor", [
    (EMPTY, b"", b"", 0),
    (AT_START, b"", b"abcd", 0),
    (IN_MIDDLE, B + b"cd " + B * 3, b"acd", 1),
    (BEFORE_LAST, B + b"d " + B * 2, b"abd", 2),
    (AT_END, B + b" " + B, b"abc", 3),
])
def test_keys_that_delete_to_the_left(dev, key, where, echo, line, cursor):
    keys, before = where
    check(dev, keys + key, before + echo, line, cursor)


@pytest.mark.parametrize("key", [ERASE, b"\x18"], ids=["ctrl-u", "ctrl-x"])
@pytest.mark.parametrize("where, echo", [
    (EMPTY, b""),
    (AT_START, b"    " + B * 4),
    (IN_MIDDLE, B * 2 + b"    " + B * 4),
    (AT_END, B * 4 + b"    " + B * 4),
])
def test_keys_that_erase_the_line(dev, key, where, echo):
    keys, before = where
    check(dev, keys + key, before + echo, b"", 0)
    check(dev, keys + key + b"x", before + echo + b"x", b"x", 1)


def test_every_byte_that_is_no_key_is_an_ordinary_character(dev):
    keys = {0, 1, 2, 3, 4, 5, 6, 8, 10, 11, 13, 14, 15, 16, 21, 24, 27, 127, 255}
    for byte in set(range(256)) - keys:
        character = bytes([byte])
        check(dev, b"a" + character, b"a" + character, b"a" + character, 2)
        check(dev, b"ab" + LEFT + character, b"ab" + B + character + b"b" + B, b"a" + character + b"b", 2)


@pytest.mark.parametrize("keys, echo, line, cursor", [
    (b"a\0", b"a", b"a", 2),
    (b"\0a", b"a", b"", 2),
    (b"ab" + LEFT + b"\0", b"ab" + B + B, b"a", 2),
    (b"a\0b" + HOME + RIGHT * 3, b"ab" + B * 3 + b"a\0b", b"a", 3),
    (b"a\0b" + LEFT + BACKSPACE, b"ab" + B + B + b"b " + B * 2, b"ab", 1),
    (b"a\0b" + HOME + KILL, b"ab" + B * 3 + b"   " + B * 3, b"", 0),
    (OVERWRITE + b"a\0b", b"ab", b"a", 3),
])
def test_a_nul_takes_a_column_and_ends_what_is_shown(dev, keys, echo, line, cursor):
    check(dev, keys, echo, line, cursor)


# ---------------------------------------------------------------------- overwrite mode


@pytest.mark.parametrize("keys, echo, line, cursor", [
    (b"abcd" + HOME + OVERWRITE + b"XY", b"abcd" + B * 4 + b"XY", b"XYcd", 2),
    (b"abcd" + LEFT + OVERWRITE + b"XY", b"abcd" + B + b"XY", b"abcXY", 5),
    (OVERWRITE + b"ab", b"ab", b"ab", 2),
    (b"ab" + OVERWRITE + b"c" + OVERWRITE + LEFT + b"X", b"abc" + B + b"Xc" + B, b"abXc", 3),
    (OVERWRITE + b"abc" + LEFT + BACKSPACE, b"abc" + B + B + b"c " + B * 2, b"ac", 1),
])
def test_overwrite_mode(dev, keys, echo, line, cursor):
    check(dev, keys, echo, line, cursor)


@pytest.mark.parametrize("end", [ENTER, CANCEL], ids=["entered", "abandoned"])
def test_every_line_begins_in_insert_mode(dev, end):
    dev.keys(b"#" + OVERWRITE + end)
    dev.screen_until_prompt()
    check(dev, b"ab" + LEFT + b"X", b"ab" + B + b"Xb" + B, b"aXb", 2)


# ---------------------------------------------------------------------- full lines


def test_the_257th_character_is_dropped_without_echo(dev):
    line = bytes(33 + i % 90 for i in range(FULL))
    check(dev, line + b"Z", line, line, FULL)
    check(dev, line + b"Z" * 50 + BACKSPACE, line + B + b" " + B, line[:-1], FULL - 1)


@pytest.mark.parametrize("keys, echo, line, cursor", [
    (LEFT + b"Z", B, b"x" * 256, 255),
    (HOME + b"Z", B * 256, b"x" * 256, 0),
    (OVERWRITE + b"Z", b"", b"x" * 256, 256),
    (HOME + OVERWRITE + b"Z", B * 256 + b"Z", b"Z" + b"x" * 255, 1),
    (LEFT * 100 + OVERWRITE + b"YZ", B * 100 + b"YZ", b"x" * 156 + b"YZ" + b"x" * 98, 158),
    (LEFT + OVERWRITE + b"YZ", B + b"Y", b"x" * 255 + b"Y", 256),
    (BACKSPACE + b"YZ", B + b" " + B + b"Y", b"x" * 255 + b"Y", 256),
    (HOME + DELETE + b"YZ", B * 256 + b"x" * 255 + b" " + B * 256 + b"Y" + b"x" * 255 + B * 255,
     b"Y" + b"x" * 255, 1),
    (ESC + b"[E", b"", b"x" * 256, 256),
    (BACKSPACE * 2 + ESC + b"[E", (B + b" " + B) * 2 + ESC + b"[", b"x" * 254 + ESC + b"[", 256),
    (ERASE, B * 256 + b" " * 256 + B * 256, b"", 0),
    (LEFT * 3 + KILL, B * 3 + b"   " + B * 3, b"x" * 253, 253),
])
def test_a_full_line(dev, keys, echo, line, cursor):
    check(dev, b"x" * FULL + keys, b"x" * FULL + echo, line, cursor)


@pytest.mark.parametrize("length", [255, 256, 257, 300, 1000, 5000])
def test_a_long_line_is_run_up_to_its_256th_character(dev, length):
    word = "w" * (length - len("affirm "))
    dev.type("affirm " + word)
    kept = word[:FULL - len("affirm ")]
    assert dev.text_until_prompt() == f"affirm {kept}\nERROR: invalid affirm option={kept}\naffirm is OFF\n"


# ---------------------------------------------------------------------- escape sequences


@pytest.mark.parametrize("final, key", [(b"A", OLDER), (b"B", NEWER), (b"C", RIGHT), (b"D", LEFT), (b"H", HOME)],
                         ids=["up", "down", "right", "left", "home"])
def test_cursor_keys_act_as_their_control_keys(dev, final, key):
    enter(dev, "#first", "#second")
    for before in (b"", OLDER, OLDER * 2, b"abc", b"abc" + LEFT, b"abc" + HOME):
        expected = screen_of_keys(dev, before + key + END)
        dev.command("#second")  # browsing starts from here again
        assert screen_of_keys(dev, before + ESC + b"[" + final + END) == expected
        dev.command("#second")


def test_every_other_final_byte_is_inserted_with_its_sequence(dev):
    for byte in set(range(1, 256)) - {*b"ABCDH", 10, 13}:
        sequence = ESC + b"[" + bytes([byte])
        check(dev, b"ab" + sequence, b"ab" + sequence, b"ab" + sequence, 5)
    check(dev, b"a" + ESC + b"[\0", b"a" + ESC + b"[", b"a" + ESC + b"[", 4)


def test_a_sequence_in_the_middle_of_a_line_is_drawn_byte_by_byte(dev):
    check(dev, b"ab" + LEFT + ESC + b"[E", b"ab" + B + ESC + b"b" + B + b"[b" + B + b"Eb" + B,
          b"a" + ESC + b"[Eb", 4)


def test_esc_and_any_byte_but_a_bracket_inserts_esc_and_loses_the_byte(dev):
    for byte in set(range(256)) - {ord("["), 10, 13}:
        keys = b"ab" + ESC + bytes([byte])
        check(dev, keys, b"ab" + ESC, b"ab" + ESC, 3)


@pytest.mark.parametrize("keys, line", [
    (ESC + b"OA", ESC + b"A"),
    (ESC + ESC + b"[A", ESC + b"[A"),
    (ESC + b"[3~", ESC + b"[3~"),
    (ESC + b"[[A", ESC + b"[[A"),
    (ESC + b"[1;5C", ESC + b"[1;5C"),
    (ESC + b"[" + ESC + b"[D", ESC + b"[" + ESC + b"[D"),
    (ESC + b"xy", ESC + b"y"),
])
def test_longer_and_broken_sequences(dev, keys, line):
    check(dev, keys, line, line, len(line))


def test_ctrl_c_within_a_sequence_abandons_nothing(dev):
    """Ctrl-C behind ESC is the lost byte, behind ESC [ an ordinary one."""
    check(dev, b"ab" + ESC + CANCEL + b"c", b"ab" + ESC + b"c", b"ab" + ESC + b"c", 4)
    check(dev, b"ab" + ESC + b"[" + CANCEL, b"ab" + ESC + b"[" + CANCEL, b"ab" + ESC + b"[" + CANCEL, 5)


@pytest.mark.parametrize("pending", [ESC, ESC + b"["], ids=["ESC", "ESC ["])
def test_enter_accepts_the_line_without_a_pending_sequence(dev, pending):
    dev.keys(b"verbose x" + pending + ENTER)
    assert dev.text_until_prompt() == "verbose x\nERROR: Invalid verbose level 'x'\nverbosity is 3\n"
    check(dev, b"A", b"A", b"A", 1)  # the next line begins without it, too


def test_split_sequences_are_put_together(dev):
    for byte in b"abc\x1b[DX":
        dev.keys(bytes([byte]))
        time.sleep(0.02)
    assert screen_of_keys(dev, b"") == b"abc" + B + b"Xc" + B


# ---------------------------------------------------------------------- accepting and abandoning


def test_enter_runs_the_whole_line_wherever_the_cursor_stands(dev):
    dev.keys(b"verion" + LEFT * 3 + b"s" + HOME + ENTER)
    screen = dev.screen_until_prompt()
    echo = b"verion" + B * 3 + b"sion" + B * 3 + B * 4 + b"\r\n"
    assert screen.startswith(echo + BANNER.encode()) and screen.count(b"\n") == 2


def test_a_line_ends_at_a_nul_for_its_words(dev):
    dev.keys(b"verbose x\0 y z" + ENTER)
    assert dev.text_until_prompt() == "verbose x y z\nERROR: Invalid verbose level 'x'\nverbosity is 3\n"


def test_lf_is_enter(dev):
    dev.keys(b"#x\n")
    assert dev.screen_until_prompt() == b"#x\r\n"


def test_cr_lf_is_enter_and_an_empty_line(dev):
    dev.keys(b"#x\r\n")
    assert dev.screen_until_prompt() == b"#x\r\n"
    assert dev.screen_until_prompt() == b"\r\n"
    dev.expect_quiet()


def test_cr_itself_is_enter_where_the_port_does_not_translate_it(dev):
    settings = termios.tcgetattr(dev.console.slave)
    settings[0] &= ~termios.ICRNL
    termios.tcsetattr(dev.console.slave, termios.TCSANOW, settings)
    dev.keys(b"#x\r")
    assert dev.screen_until_prompt() == b"#x\r\n"


def test_ctrl_c_abandons_the_line(dev):
    dev.keys(b"set bootenv bootbank 1" + LEFT + CANCEL)
    assert dev.screen_until_prompt() == b"set bootenv bootbank 1" + B + b"\r\n"
    dev.expect_ran_exactly([])
    assert dev.screen_of(b"") == b"\r\n"


def test_ctrl_c_on_an_empty_line_shows_a_new_prompt(dev):
    assert screen_of_keys(dev, b"") == b""


def test_signals_of_the_port_are_off_while_a_line_is_edited_and_on_until_the_next(dev):
    for keys in (b"version" + ENTER, ENTER, b"abc" + CANCEL):
        dev.mark()
        dev.keys(keys)
        dev.screen_until_prompt()
        assert [event.lflag & termios.ISIG for event in dev.events.of("tcsetattr")] == [termios.ISIG, 0]


def test_keys_typed_ahead_are_the_next_lines(dev):
    dev.keys(b"#one\r#two\rabc" + LEFT)
    assert dev.screen_until_prompt() == b"#one\r\n"
    assert dev.screen_until_prompt() == b"#two\r\n"
    assert screen_of_keys(dev, b"") == b"abc" + B


# ---------------------------------------------------------------------- history


def shown(old: bytes, new: bytes, cursor: int | None = None) -> bytes:
    """What replaces the line `old`, with the cursor at its end or elsewhere, by `new`."""
    back = len(old) if cursor is None else cursor
    return B * back + b" " * len(old) + B * len(old) + new


def listed(dev, command: str = "history") -> list[str]:
    text = dev.command(command)
    assert text.startswith("\nCommand history:\n") and text.endswith("\n\n")
    lines = text.split("\n")[2:-2]
    assert all(line.startswith("  ") for line in lines)
    return [line[2:] for line in lines]


def test_older_and_newer_lines(dev):
    enter(dev, "#one", "#three")
    back = b"#three" + shown(b"#three", b"#one")
    assert screen_of_keys(dev, OLDER * 2) == back
    enter(dev, "#4")
    back = b"#4" + shown(b"#4", b"#three") + shown(b"#three", b"#one")
    assert screen_of_keys(dev, OLDER * 3 + NEWER) == back + shown(b"#one", b"#three")
    enter(dev, "#5")
    assert screen_of_keys(dev, OLDER + HOME + END) == b"#5" + B * 2 + b"#5"


def test_browsing_stops_at_the_oldest_line(dev):
    enter(dev, "#a", "#bc")
    steps = b"#bc" + shown(b"#bc", b"#a")
    assert screen_of_keys(dev, OLDER * 5) == steps
    enter(dev, "#d")
    assert screen_of_keys(dev, OLDER * 5 + NEWER) == b"#d" + shown(b"#d", b"#bc") + shown(b"#bc", b"#a") + \
        shown(b"#a", b"#bc")


def test_newer_than_the_newest_is_the_empty_line(dev):
    enter(dev, "#abc")
    assert screen_of_keys(dev, OLDER + NEWER + NEWER + b"x") == b"#abc" + shown(b"#abc", b"") + b"x"


def test_a_recalled_line_replaces_what_was_typed(dev):
    enter(dev, "#abc")
    assert screen_of_keys(dev, b"12345" + LEFT * 2 + OLDER) == b"12345" + B * 2 + shown(b"12345", b"#abc", 3)


def test_a_recalled_line_is_edited_and_run_like_a_typed_one(dev):
    dev.command("verbose a")
    dev.keys(OLDER + BACKSPACE + b"b" + ENTER)
    assert dev.text_until_prompt() == "verbose a\b \bb\nERROR: Invalid verbose level 'b'\nverbosity is 3\n"
    assert listed(dev) == ["verbose a", "verbose b", "history"]


def test_editing_a_recalled_line_leaves_the_stored_one(dev):
    enter(dev, "#one", "#two")
    screen_of_keys(dev, OLDER * 2 + b"xyz" + HOME + DELETE)
    assert listed(dev) == ["#one", "#two", "history"]


@pytest.mark.parametrize("between", [ERASE + ENTER, CANCEL, b"x" + CANCEL], ids=["empty", "abandoned", "changed"])
def test_browsing_goes_on_after_an_empty_or_abandoned_line(dev, between):
    enter(dev, "#one", "#two", "#three")
    dev.keys(OLDER * 2 + between)
    dev.screen_until_prompt()
    assert screen_of_keys(dev, OLDER) == b"#one"
    assert screen_of_keys(dev, NEWER + NEWER) == b"#two" + shown(b"#two", b"#three")
    assert screen_of_keys(dev, NEWER) == b""


def test_browsing_begins_again_after_a_line(dev):
    enter(dev, "#one", "#two", "#three")
    dev.keys(OLDER * 2 + ENTER)
    dev.screen_until_prompt()
    assert screen_of_keys(dev, OLDER * 2) == b"#two" + shown(b"#two", b"#three")


def test_lines_are_stored_as_typed(dev):
    lines = ["  verbose   4  ", "# comment", "# comment", "   ", "\t", "verbose 3 ; x", "nonsense", "#\xe9\xfe"]
    for line in lines:
        dev.command(line)
    dev.command("")
    screen_of_keys(dev, b"abandoned")
    assert listed(dev, "!") == lines + ["!"]


def test_a_stored_line_ends_at_a_nul(dev):
    dev.keys(b"#ab\0cd" + ENTER)
    assert dev.screen_until_prompt() == b"#abcd\r\n"
    assert listed(dev) == ["#ab", "history"]
    assert screen_of_keys(dev, OLDER * 2) == b"history" + shown(b"history", b"#ab")


def test_a_full_line_is_stored_whole(dev):
    line = "#" + "".join(chr(33 + i % 90) for i in range(FULL - 1))
    enter(dev, line)
    assert listed(dev) == [line, "history"]
    assert screen_of_keys(dev, OLDER * 2) == b"history" + shown(b"history", line.encode())


@pytest.mark.parametrize("count", [1, 18, 19, 20, 21, 25, 39, 40, 41])
def test_the_last_twenty_lines_are_kept(dev, count):
    lines = [f"#{i}" for i in range(count)]
    enter(dev, *lines)
    assert listed(dev) == (lines + ["history"])[-20:]


def test_the_history_of_a_fresh_shell_holds_the_command_itself(dev):
    assert dev.screen_of(b"history") == b"history\r\n\r\nCommand history:\r\n  history\r\n\r\n"


def test_browsing_through_a_ring_that_has_wrapped(dev):
    lines = [f"#{i}" for i in range(25)]
    enter(dev, *lines)
    kept = [line.encode() for line in lines[-20:]]
    there = kept[-1] + b"".join(shown(kept[i + 1], kept[i]) for i in range(18, -1, -1))
    back = b"".join(shown(kept[i - 1], kept[i]) for i in range(1, 20)) + shown(kept[-1], b"")
    assert screen_of_keys(dev, OLDER * 30 + NEWER * 30) == there + back


# ---------------------------------------------------------------------- the end of input


def test_the_end_of_input_acts_as_backspaces_and_the_shell_goes_on(dev):
    dev.keys(b"abc")
    dev.expect(b"abc")
    dev.console.end_input(True)
    dev.keys(b"d")
    # Whichever came first, the key or the end: four characters were typed, and four go.
    dev.wait_until(lambda: dev.console.unread.count(B + b" " + B) == 4)
    assert sorted(dev.console.unread.split(B + b" " + B)) == [b"", b"", b"", b"", b"d"]
    dev.console.skip()
    dev.expect_quiet(0.2)
    dev.console.end_input(False)
    assert dev.command("verbose") == "verbosity is 3\n"


def test_a_lasting_end_of_input_costs_no_processor_time(dev):
    dev.sleep_scale = 1
    dev.console.end_input(True)
    dev.keys(b"a")
    dev.expect(b"a" + B + b" " + B)
    assert dev.processor_seconds(2) < 0.1
    assert 1 <= len(dev.sleeps) <= 40


def test_a_console_that_hung_up_costs_no_processor_time(dev):
    dev.sleep_scale = 1
    dev.type("set console 2")  # a line that is not the controlling terminal
    dev.console = dev.port(2)
    dev.text_until_prompt()
    dev.mark()
    dev.hang_up(2)
    assert dev.processor_seconds(2) < 0.1
    assert 1 <= len(dev.sleeps) <= 40  # and the program has noticed


# ---------------------------------------------------------------------- the whole


def terminal_shows(screen: bytes) -> bytes:
    """What stands on a terminal's line after these bytes."""
    cells, column = bytearray(), 0
    for byte in screen:
        if byte == 8:
            column -= 1
            assert column >= 0, "the cursor left the line"
        else:
            cells[column:column + 1] = bytes([byte])
            column += 1
    return bytes(cells).rstrip(b" ")


@pytest.mark.parametrize("seed", range(4))
def test_the_terminal_shows_the_line_whatever_is_typed(dev, seed):
    """Random keys; the line as the history has it is the one that stood on the screen."""
    chance = random.Random(seed)
    editing = [HOME, LEFT, DELETE, END, RIGHT, BACKSPACE, KILL, OVERWRITE, OLDER, NEWER, ESC + b"[A", ESC + b"[B",
               ESC + b"[C", ESC + b"[D", ESC + b"[H", LEFT * 9, RIGHT * 3]
    for _ in range(40):
        keys = b"".join(chance.choice(editing) if chance.random() < 0.5 else
                        bytes(chance.choices(b"WXYZwxyz_=", k=chance.choice((1, 2, 5, 40, 200))))
                        for _ in range(chance.randrange(60)))
        dev.keys(keys + b"." + ENTER)  # never an empty line, which would not be stored
        line = terminal_shows(dev.screen_until_prompt().split(b"\r\n")[0])
        assert screen_of_keys(dev, OLDER) == line

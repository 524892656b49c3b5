"""The one terminal of ./run: it shows the boot loader's line and the console in turn. The board is a stand-in here."""

from types import SimpleNamespace

from launcher import LOADER_BEGINS, LOADER_ENDS, _Screen
from serial_port import Port

LOADER = LOADER_BEGINS + b"2023.01\r\n=> run flashboot" + LOADER_ENDS
KERNEL = b"\r\n\r\n[    0.000000] Booting Linux on physical CPU 0x0\r\n"
LINE = b"\r\n" + LOADER + KERNEL + LOADER + KERNEL
SHOWN = b"\r\n" + LOADER + b"\r\n\r\n" + LOADER + b"\r\n\r\n"


def play(sizes):
    """The line in pieces of these sizes. What the terminal shows, and after each piece whether keys go to the console."""
    board, shown = SimpleNamespace(console=Port("ttyS1"), kernel_log=Port("kernel")), bytearray()
    screen, at, at_console = _Screen(board, shown.extend), 0, []
    for size in sizes:
        board.kernel_log.received(LINE[at:at + size])
        at += size
        at_console.append(screen.port is board.console)
    return bytes(shown), at_console


def test_marks_that_arrive_in_two_pieces():
    for cut in range(1, len(LINE)):
        shown, at_console = play([cut, len(LINE) - cut])
        assert (cut, shown, at_console[-1]) == (cut, SHOWN, True)


def test_keys_follow_the_screen():
    first, last = (find(LOADER_ENDS) + len(LOADER_ENDS) for find in (LINE.find, LINE.rfind))
    again = LINE.rfind(LOADER_BEGINS) + len(LOADER_BEGINS)
    shown, at_console = play([1] * len(LINE))
    assert shown == SHOWN
    assert at_console == [first <= count < again or count >= last for count in range(1, len(LINE) + 1)]

"""The signals of the boards (signals.inc), as gpiolib info lists them after a start with all inputs low.

    dev.command("gpiolib info") == listing(TK20)
    lines(TK20)[74] == ("out", 1)
"""

import re
from pathlib import Path

from texts import FAILURE, SUCCESS

HEADING = ("num  dir lv signal name          description               source        pull part\n"
           "---- --- -- -------------------- ------------------------- ------------- ---- ----\n")

_DOCUMENTS = (Path(__file__).parent / "signals.inc").read_text(encoding="ascii")


def _rows(board, with_io_option):
    """The rows of gpiolib info; pins that a peripheral has show neither direction nor level."""
    text = ""
    for line in re.search(rf'R"{board}\(\n(.*?)\){board}"', _DOCUMENTS, re.S)[1].splitlines():
        gpio, name, description, source, connector, _, way, pull, default, _, io_mode, pin_mode, partner, *_ = line.split("|")
        level = {"in": "-" if gpio == "-1" else "0", "out": default}[way]
        if pin_mode != "-":
            way = level = "-"
        partner = partner.replace("-1", "-")
        if with_io_option or io_mode == "0":
            text += f"{gpio:5}{way:4}{level:3}{name:21}{description:26}{source + '/' + connector:14}{pull:5}{partner:4}\n"
    return text


# Without the I/O option, and with it.
TK20, TK20_DIO2X1R = _rows("tk20", False), _rows("tk20", True)
TK10_MFG = _rows("tk10_mfg", False)

# The signals of each port's line driver in the order in which they are driven, and their levels in each mode with the
# flags that the kernel is asked for.
LINE_DRIVERS = {
    1: {"SEL_RS232": 136, "4W_B": 137, "2W_B": 138, "TX_2W_TE": 141, "RX_TE": 140},
    2: {"SEL_RS232": 128, "4W_B": 129, "2W_B": 130, "TX_2W_TE": 133, "RX_TE": 132},
}
RS232_LEVELS = (1, 1, 1, 0, 0)
BUS_MODES = [
    ("rs485", (0, 1, 0, 0, 0), 0x03),
    ("rs485 term", (0, 1, 0, 1, 0), 0x23),
    ("rs422", (0, 0, 1, 0, 0), 0x11),
    ("rs422 term", (0, 0, 1, 0, 1), 0x31),
]
# What a UART that refuses the request makes the shell say.
RS485_REFUSED = ("ERROR: ioctl(TIOCSRS485) on /dev/ttyS{port}\n"
                 "tty_set_termios: tty_configure_mode(): Inappropriate ioctl for device\n"
                 "tty_remap_stdio: tty_set_termios(): Inappropriate ioctl for device\n" + FAILURE + SUCCESS)


def driver_levels(dev, port):
    """What the line driver of this port gets, in the order of LINE_DRIVERS."""
    return tuple(dev.level(number) for number in LINE_DRIVERS[port].values())


def row_of(rows, name):
    """The row of one signal."""
    return next(line + "\n" for line in rows.splitlines() if f" {name} " in line)


def lines(rows):
    """{number: (direction, level)} of the signals that are plain GPIO: the lines that the shell takes."""
    columns = (row.split()[:3] for row in rows.splitlines())
    return {int(number): (direction, int(level)) for number, direction, level in columns if level != "-"}


def with_levels(rows, levels):
    """The same rows with other levels, by number."""
    return "".join(row if (number := int(row.split()[0])) not in levels else f"{row[:9]}{levels[number]}{row[10:]}"
                   for row in rows.splitlines(keepends=True))


def listing(rows):
    """What gpiolib info shows."""
    return "\n" + HEADING + rows + "\n"

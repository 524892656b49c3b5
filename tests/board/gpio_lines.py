"""The kernel's GPIO lines behind the signals of a board.

    expect_lines(dev, TK20)                        # exactly these are exported, in these directions, at these levels
"""

import re

from signals import lines

_SYSFS = ("cd /sys/class/gpio; "
          "for line in gpio[0-9]*; do read way <$line/direction; read level <$line/value; echo $line $way $level; done")
_LISTED = re.compile(r"^ gpio-(\d+) +\( +\|sysfs +\) (in|out) +(hi|lo) *$", re.M)


def exported(dev):
    """{number: (direction, level)} of the exported lines. The directories that the shell works in, the kernel's list of
    lines in use and the chip itself agree about them."""
    listed = {int(number): (direction, int(level == "hi"))
              for number, direction, level in _LISTED.findall(dev.board.sh("cat /sys/kernel/debug/gpio").output)}
    held = {number: line[:2] for number, line in dev.board.gpio().items() if line.held}
    assert listed == held
    if held:
        rows = (row.split() for row in dev.board.sh(_SYSFS, check=True).output.splitlines())
        assert {int(name[4:]): (direction, int(level)) for name, direction, level in rows} == held
    else:
        assert dev.board.sh("ls -d /sys/class/gpio/gpio[0-9]*").status != 0
    return held


def expect_lines(dev, rows):
    """Exactly the lines of these rows are exported, in the direction and at the level that stands there."""
    assert exported(dev) == lines(rows)


"""The settings of the port that is the console: the block that shows them, and what its terminal has."""

import termios

SPEEDS = {9600: termios.B9600, 19200: termios.B19200, 38400: termios.B38400, 57600: termios.B57600,
          115200: termios.B115200, 230400: termios.B230400, 460800: termios.B460800, 921600: termios.B921600}


def block(port: int = 1, speed: int = 115200, flow: str | None = None, mode: str = "rs232", term: str = "off") -> str:
    """The settings as shown. Flow control is left off where the mode is a bus, unless given."""
    if flow is None:
        flow = "hwflow" if mode == "rs232" else "noflow"
    return (f"\nCurrent console settings:\n  Device: /dev/ttyS{port}\n  Mode:   {mode}\n  Speed:  {speed} bps\n"
            f"  Flow:   {flow}\n  Term:   {'n/a' if mode == 'rs232' else term}\n\n")


def terminal_settings(speed: int = 115200, flow: bool = True, signals: bool = False) -> tuple:
    """The port's flags and special characters; `signals` while a command runs."""
    constant = SPEEDS[speed]
    cc = [0] * 32
    cc[termios.VINTR], cc[termios.VERASE], cc[termios.VMIN] = 3, 8, 1
    cflag = constant | termios.CS8 | termios.CREAD | termios.CLOCAL | (termios.CRTSCTS if flow else 0)
    return (termios.IGNBRK | termios.ICRNL, termios.OPOST | termios.ONLCR, cflag, termios.ISIG if signals else 0,
            cc)

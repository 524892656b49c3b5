"""A serial download as a session sees it: the screen from the command to the next prompt, the port's settings, and
what was done in which order."""

import re
import termios

import images
from root_session import RootSession

_SPEEDS = {getattr(termios, f"B{speed}"): speed
           for speed in (4800, 9600, 19200, 38400, 57600, 115200, 230400, 460800, 921600)}
_CBAUD = 0o10017
_ONE_BYTE = bytes(1 if at == termios.VMIN else 0 for at in range(32))


def settings(event) -> str:
    """The settings that a tcsetattr asked for, in words: "raw 115200 rtscts"."""
    raw = (event.iflag, event.oflag, event.lflag, event.cc) == (termios.IGNPAR, 0, 0, _ONE_BYTE)
    console = (event.iflag, event.oflag) == (termios.IGNBRK | termios.ICRNL, termios.OPOST | termios.ONLCR)
    framing = event.cflag & ~_CBAUD & ~termios.CRTSCTS
    if event.action != "now" or not (raw or console) or framing != termios.CS8 | termios.CREAD | termios.CLOCAL:
        return " ".join(event.fields[1:])
    words = ["raw" if raw else "console", str(_SPEEDS[event.cflag & _CBAUD])]
    words += ["rtscts"] * bool(event.cflag & termios.CRTSCTS)
    words += ["signals"] * bool(event.lflag == termios.ISIG)
    return " ".join(words)


def steps(dev: RootSession) -> list[str]:
    """What happened since the last mark(), in order: tools, sleeps, and what was done to ports."""
    return [f"settings {event.path} {settings(event)}" if event.kind == "tcsetattr" else str(event)
            for event in dev.events.of("run", "sleep", "open", "tcflush", "tcsetattr")]


def expect_at_rest(dev: RootSession) -> None:
    """After a download, however it ended: no files of it are left, the port of the console has its settings, and the
    shell answers."""
    assert not dev.path("/tmp/image.rom").exists()
    assert not dev.path("/tmp/recovery.log").exists()
    last = [settings(event) for event in dev.all_events.of("tcsetattr") if event.path == f"/dev/{dev.console.name}"][-1]
    assert re.fullmatch(r"console \d+( rtscts)?", last), "the editor's: no signals"
    assert dev.command("quit") == ""


def image_that_fails() -> bytes:
    """A header that is refused at once, without anything behind it."""
    return images.header(images.KERNEL, fields={images.HEADER_TYPE: 1})

"""A session with the shell at its console: what is typed, and what the screen shows.

    dev.boot()
    assert dev.command("verbose 4") == "verbosity is 4\\n"
    dev.type("flash kill")
    dev.expect(QUESTION)
    dev.keys("n\\r")
    assert dev.text_until_prompt() == "n\\n<aborted>\\n"
    assert dev.install(image, "flash download serial 2") == images.info(image) + SUCCESS

There are two kinds: RootSession has the program in a device root, behind pseudo-terminals; BoardSession has it on the
virtual board, behind the lines of the machine. A test that keeps to what stands here runs on both, see tests/both.

Text and bytes: where a test gives or gets str, line ends are "\\n" as the program wrote them; bytes are raw, with the
"\\r\\n" that the console port makes of them.
"""

import os
import time

from texts import BANNER, BEGIN, NOTICE, PROMPT, UNKNOWN

CTRL_C = b"\x03"
ENTER = b"\r"


def onlcr(text: str) -> bytes:
    """The raw bytes that the console port sends for a text."""
    return text.encode("latin-1").replace(b"\n", b"\r\n")


def plain(raw: bytes) -> str:
    """The text that the program wrote for these raw bytes of the console port."""
    return raw.decode("latin-1").replace("\r\n", "\n")


class Session:
    """What both kinds have in common. A kind provides

    ports             {number: port} of the serial ports, ttyS0 being 0
    console           the port that the shell is on; a test that moves it some other way than move() says so here
    start()           powers up and waits for nothing; kill() cuts the power
    wait_receiving()  waits until the shell has opened a port for a transfer and dropped its stale input
    terminal()        the settings of a port, as the kernel has them
    environment()     the boot environment in flash
    give_product()    the product record in flash, before a start
    level(), set_level()   a GPIO line
    only_changed()    no other GPIO line is touched meanwhile
    refuse_rs485()    the ports take no RS-485 from now on
    give_firmware(), expect_still_boots()   firmware in bank 1, and that power brings it up
    expect_flash(), expect_locked()   what the serial flash holds, and that it is protected

    and a port has send(bytes), expect(bytes, timeout=...).before, unread and output.
    """

    # Seconds for what must come: nothing fails for a busy machine or the emulator. Less where programs are known to hang.
    patience = float(os.environ.get("SESSION_PATIENCE", "300"))
    console = None
    ports = {}

    def __init__(self):
        self.unknown_command_expected = False
        self.starts = 0  # asked for; a kind's start() counts them

    def port(self, number: int):
        """The test's end of /dev/ttyS<number>."""
        return self.ports[number]

    # ------------------------------------------------------------------ starting

    def boot(self) -> str:
        """Starts, waits for the first prompt and returns the text before it, in which the banner stands once."""
        self.start()
        return self.first_prompt()

    def restart(self) -> str:
        """Cuts the power and starts again."""
        self.kill()
        return self.boot()

    def first_prompt(self) -> str:
        """Waits for the first prompt after a start."""
        text = self.text_until_prompt()
        assert text.count(BANNER) == 1, f"one banner expected: {text!r}"
        return text

    # ------------------------------------------------------------------ typing

    def keys(self, data: bytes | str) -> None:
        """Sends keys to the console as they are."""
        self.console.send(data.encode("latin-1") if isinstance(data, str) else data)

    def type(self, line: str) -> None:
        """Types a line and Enter."""
        self.keys(line.encode("latin-1") + ENTER)

    def interrupt(self) -> None:
        """Ctrl-C."""
        self.keys(CTRL_C)

    def command(self, line: str, timeout: float | None = None) -> str:
        """Types a line, and returns what the program printed between its echo and the next prompt."""
        self.type(line)
        return self._behind_echo(line, self.text_until_prompt(timeout))

    def move(self, line: str, port: int) -> str:
        """Types a line that moves the console to another port, and goes on there. Returns what is shown there; where
        it was typed there is its echo and no more."""
        self.type(line)
        assert self.expect(line + "\n") == ""
        left, self.console = self.console, self.port(port)
        text = self.text_until_prompt()
        assert left.unread == b""
        return text

    @staticmethod
    def _behind_echo(line: str, text: str) -> str:
        echo = line + "\n"
        assert text.startswith(echo), f"the echo of {line!r} is missing: {text!r}"
        return text[len(echo):]

    # ------------------------------------------------------------------ the screen

    def expect(self, text: str | bytes, timeout: float | None = None) -> str:
        """Waits for a text on the console, reads up to its end, and returns what stood before it."""
        return plain(self._take_until(onlcr(text) if isinstance(text, str) else text, timeout))

    def expect_quiet(self, seconds: float = 0.1) -> None:
        """Nothing more appears on the console."""
        time.sleep(seconds)
        assert self.console.unread == b"", f"unexpected output: {self.console.unread!r}"

    def screen_until_prompt(self, timeout: float | None = None) -> bytes:
        """Waits for the next prompt, reads on behind it, and returns the raw bytes before it."""
        return self._take_until(PROMPT.encode(), timeout)

    def text_until_prompt(self, timeout: float | None = None) -> str:
        """The same as text, with "\\n" as the only line end."""
        return plain(self.screen_until_prompt(timeout))

    def screen_of(self, keys: bytes, timeout: float | None = None) -> bytes:
        """Sends keys and Enter; returns every raw byte up to the next prompt."""
        self.keys(keys + ENTER)
        return self.screen_until_prompt(timeout)

    def shown_environment(self) -> dict[str, str]:
        """The boot environment as the shell shows it."""
        lines = self.command("show bootenv").splitlines()
        return dict(line.split("=", 1) for line in lines if line != "Cannot read environment, using default")

    def _take_until(self, raw: bytes, timeout: float | None) -> bytes:
        return self.console.expect(raw, timeout=timeout or self.patience).before

    # ------------------------------------------------------------------ serial transfers

    def begin(self, line: str) -> str:
        """Types a download command and waits for its begin; returns what was shown before "Begin ..."."""
        self.type(line)
        return self._behind_echo(line, self.expect(BEGIN))

    def send_stream(self, data: bytes, port: int | None = None, **pace) -> None:
        """Sends bytes into the console, or another port, once the shell has opened it for a transfer: bytes before
        that would be lost, as opening empties the port's input queue."""
        self.wait_receiving(port)
        self.send(data, port, **pace)

    def install(self, data: bytes, line: str = "flash download serial 2", port: int | None = None,
                timeout: float | None = None, **pace) -> str:
        """A whole serial transfer, into the console or another port. Returns what was shown from the command to the
        next prompt; "Begin ..." is left out where nothing comes before it."""
        before = self.begin(line)
        return (before and before + BEGIN) + self.transfer(data, port, timeout, **pace)

    def transfer(self, data: bytes, port: int | None = None, timeout: float | None = None, **pace) -> str:
        """The same behind begin(): returns what was shown since."""
        self.send_stream(data, port, **pace)
        return self.text_until_prompt(timeout)

    # ------------------------------------------------------------------ the end of a test

    def check(self) -> None:
        """What no session may show, whatever the test was about: a start that nobody asked for, something typed that
        was taken for an unknown command."""
        for number, shown in self._screens().items():
            if not self.unknown_command_expected:
                assert UNKNOWN not in shown, f"{number}: {shown!r}"
        starts = "".join(self._screens().values()).count(NOTICE)
        assert starts <= self.starts, f"a second start-up: {self._screens()!r}"

    def _screens(self) -> dict[int, str]:
        return {number: plain(bytes(port.output)) for number, port in self.ports.items()}

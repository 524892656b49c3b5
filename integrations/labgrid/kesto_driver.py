"""
A labgrid driver for a device at the prompt of its recovery shell. kesto does the work, and says in JSON what came of it.

    shell = target.get_driver("KestoDriver")
    shell.run_check("show product id")
    shell.install("firmware.img", bank=2, erase=True)
"""

import json
import math
import shutil
import subprocess

import attr
from labgrid.driver.commandmixin import CommandMixin
from labgrid.driver.common import Driver
from labgrid.driver.exception import ExecutionError
from labgrid.factory import target_factory
from labgrid.protocol import CommandProtocol, ResetProtocol
from labgrid.resource.base import SerialPort
from labgrid.resource.common import Resource
from labgrid.resource.serialport import NetworkSerialPort
from labgrid.step import step
from labgrid.util.proxy import proxymanager

# Exit status of kesto that is the device's own answer, and no failure to ask it.
_DEVICE_FAILED = 3


@target_factory.reg_resource
@attr.s(eq=False)
class UnixSerialPort(Resource):
    """A serial line behind a socket of this computer, as virtual machines have them. `path`: of the socket."""

    path = attr.ib(validator=attr.validators.instance_of(str))


class KestoError(ExecutionError):
    """
    kesto did not get its work done. `msg` is its line about it, which says in what state the device is; `status` its exit
    status, `report` its JSON, None when it came to nothing.
    """

    def __init__(self, status, text, report):
        super().__init__(text)
        self.status, self.report = status, report

    def __str__(self):
        return f"{self.msg} (kesto: exit status {self.status})"


@target_factory.reg_driver
@attr.s(eq=False)
class KestoDriver(CommandMixin, Driver, CommandProtocol, ResetProtocol):
    """
    Args:
        limit (number): seconds that a command may take, and the prompt to come
        flow (bool): whether the line has RTS/CTS; a serial port of this computer or one set by RFC 2217
        pace (int): bytes per second of an image over a line without flow control; 0: as fast as the line takes it

    kesto is the one of `tools` in the environment, else the one on the search path. It has the port only while it works;
    activating this driver deactivates others that use the port, such as a SerialDriver.
    """

    bindings = {"port": {"SerialPort", "NetworkSerialPort", "UnixSerialPort"}}

    limit = attr.ib(default=60, validator=attr.validators.instance_of((int, float)))
    flow = attr.ib(default=True, validator=attr.validators.instance_of(bool))
    pace = attr.ib(default=0, validator=attr.validators.instance_of(int))

    def __attrs_post_init__(self):
        super().__attrs_post_init__()
        config = self.target.env.config if self.target.env else None
        self.program = (config and config.get_tool("kesto")) or shutil.which("kesto") or "kesto"

    def on_activate(self):
        for other in list(self.port.clients):
            if other is not self:
                self.target.deactivate(other)

    @Driver.check_active
    @step(args=["cmd"], result=True)
    def run(self, cmd, *, timeout=None, codec="utf-8", decodeerrors="strict"):  # pylint: disable=unused-argument
        """
        Runs a line of the shell. Returns what it printed as a list of lines, a list with kesto's line about a failure, and
        the exit status: 0, or 3 when the device failed, said so, or does not know the command. Raises KestoError when the
        device could not be asked. `timeout`: seconds, else `limit`.
        """
        return self._run(cmd, timeout=timeout)

    @Driver.check_active
    @step(args=["cmd"], result=True)
    def run_check(self, cmd, *, timeout=None, codec="utf-8", decodeerrors="strict"):
        """The same, but returns what was printed only, and raises ExecutionError when the command failed."""
        return self._run_check(cmd, timeout=timeout, codec=codec, decodeerrors=decodeerrors)

    def _run(self, cmd, *, timeout=None, codec="utf-8", decodeerrors="strict"):  # pylint: disable=unused-argument
        status, report, text = self._kesto("run", cmd, limit=timeout)
        if report is None or status not in (0, _DEVICE_FAILED):
            raise KestoError(status, text, report)
        shown = [line for done in report["commands"] for line in done["text"].splitlines()]
        return shown, [text] if text else [], status

    @Driver.check_active
    @step(result=True)
    def get_status(self):
        """1 when the prompt of the shell is there, 0 when nothing came in time. Raises KestoError for a port that fails."""
        status, report, text = self._kesto("run", "version")
        if status not in (0, 4):
            raise KestoError(status, text, report)
        return int(status == 0)

    @Driver.check_active
    @step()
    def show(self):
        """What the device is and holds, as docs/kesto-json.md describes it under "A device". Changes nothing."""
        return self._expect(*self._kesto("show"))

    @Driver.check_active
    @step(args=["image", "bank", "tftp"])
    def install(self, image, *, bank=None, erase=False, check=True, boot=False, expect=None, tftp=None, force=(), retry=0):
        """
        Installs an image: a path, or a name among the `images` of the environment. It is verified and judged against the
        device before anything happens.

        Args:
            bank: 1, 2 or "single"; else the bank that is not booted
            erase (bool): erase what has to be erased
            check (bool): read back and compare afterwards
            boot (bool): reset the device then and wait for what comes up, with the text `expect` in it
            tftp (str): ADDRESS:FILE or ADDRESS: over the network, not over the line
            force: names of findings to go on in spite of
            retry (int): try again so often

        Returns the record of the device, docs/kesto-json.md. Raises KestoError when it is not as good as it was asked for.
        """
        words = [self._image(image), "--yes"]
        for option, value in (("--bank", bank), ("--expect", expect), ("--tftp", tftp), ("--retry", retry or None),
                              ("--pace", self.pace or None)):
            words += [] if value is None else [option, str(value)]
        words += [word for word, wanted in (("--erase", erase), ("--check", check), ("--boot", boot)) if wanted]
        for name in force:
            words += ["--force", name]
        return self._expect(*self._kesto("install", *words))["devices"][0]

    @Driver.check_active
    @step(args=["wait"])
    def reset(self, wait=False):
        """
        Has the shell reset the device, which then boots what its boot environment says. `wait`: until the shell is back,
        for a device that boots into it.
        """
        self._expect(*self._kesto("run", "reset", *(["version"] if wait else [])))

    # How kesto is called.

    def _image(self, image):
        config = self.target.env.config if self.target.env else None
        if config and str(image) in config.data.get("images", {}):
            return config.get_image_path(str(image))
        return str(image)

    def _port(self):
        """The words for kesto that name the port."""
        flow = [] if self.flow else ["--no-flow"]
        if isinstance(self.port, UnixSerialPort):
            return ["--port", f"unix:{self.port.path}"]
        if isinstance(self.port, SerialPort):
            return ["--port", self.port.port, "--speed", str(self.port.speed), *flow]
        assert isinstance(self.port, NetworkSerialPort)
        host, port = proxymanager.get_host_and_port(self.port)
        if self.port.protocol == "raw":
            return ["--port", f"tcp:{host}:{port}"]
        return ["--port", f"rfc2217:{host}:{port}", "--speed", str(self.port.speed), *flow]

    def _kesto(self, command, *words, limit=None):
        """Exit status, the report as a dictionary or None, and what kesto says of a failure."""
        line = [self.program, command, *self._port(), "--limit", str(math.ceil(limit or self.limit)), "--json", *words]
        try:
            with subprocess.Popen(line, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                  encoding="utf-8", errors="replace") as process:
                try:
                    out, errors = process.communicate()
                except KeyboardInterrupt:  # it reaches kesto, too, which brings the line back to the prompt
                    process.communicate()
                    raise
        except OSError as error:
            raise KestoError(None, f"{self.program}: {error.strerror}", None) from error
        try:
            report = json.loads(out)
        except ValueError:
            report = None
        said = errors.splitlines()
        return process.returncode, report, said[-1].removeprefix("kesto: ") if said and process.returncode else ""

    @staticmethod
    def _expect(status, report, text):
        if status or report is None:
            raise KestoError(status, text, report)
        return report

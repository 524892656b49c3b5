"""kesto at the line of a device root: what the tests of its commands for devices share."""

import json
import subprocess
from pathlib import Path

import pytest

from port_bridge import PortBridge

PATIENCE = 120


class DeviceKesto:
    """Runs the program against the console of a device, through a bridge."""

    def __init__(self, program: Path, dev, directory: Path):
        self.program, self.dev, self.directory = program, dev, directory
        self._bridges = {}

    @property
    def bridge(self) -> PortBridge:
        return self.bridge_to(self.dev.console)

    def bridge_to(self, port) -> PortBridge:
        if port not in self._bridges:
            self._bridges[port] = PortBridge(port, self.directory)
        return self._bridges[port]

    def close(self) -> None:
        for bridge in self._bridges.values():
            bridge.close()

    def start(self, *words, **options) -> subprocess.Popen:
        return subprocess.Popen([self.program, *map(str, words)], cwd=self.directory, stdin=options.pop("stdin", subprocess.DEVNULL),
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, **options)

    def run(self, *words, **options) -> subprocess.CompletedProcess:
        process = self.start(*words, **options)
        out, err = process.communicate(timeout=PATIENCE)
        return subprocess.CompletedProcess(words, process.returncode, out, err)

    def at(self, command: str, *words, port=None, **options) -> subprocess.CompletedProcess:
        """A command at the device."""
        return self.run(command, "--port", port or self.bridge.pty, *words, **options)

    def json(self, command: str, *words, status=0, **options) -> dict:
        result = self.at(command, *words, "--json", **options)
        assert result.returncode == status, result.stderr
        return json.loads(result.stdout)

    def file(self, name: str, contents: bytes | str) -> Path:
        path = self.directory / name
        path.write_bytes(contents.encode() if isinstance(contents, str) else contents)
        return path


@pytest.fixture
def kesto(request, dev, tmp_path):
    build = Path(request.config.getoption("build")).resolve()
    directory = tmp_path / "computer"
    directory.mkdir()
    tool = DeviceKesto(build / "kesto", dev, directory)
    yield tool
    tool.close()

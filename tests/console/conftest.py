"""Fixtures of the console tests: `dev`, a device of its own for every test (tests/README.md shows how to use it)."""

import os
import sys
from pathlib import Path

import pytest

TESTS = Path(__file__).resolve().parent.parent
sys.path.insert(0, str(TESTS / "support"))

from device import Device  # noqa: E402  (the path had to be set first)

_reports = pytest.StashKey[dict]()


def pytest_addoption(parser):
    parser.addoption("--build", default=os.environ.get("BUILD", TESTS.parent / "build" / "release"),
                     help="build directory to test (default: build/release, or $BUILD)")
    parser.addoption("--program", help="another program than the one of the build directory")


@pytest.hookimpl(hookwrapper=True, tryfirst=True)
def pytest_runtest_makereport(item):
    outcome = yield
    report = outcome.get_result()
    item.stash.setdefault(_reports, {})[report.when] = report
    device = getattr(item, "funcargs", {}).get("dev")
    if report.failed and report.when == "call" and device is not None:  # the ends, of what may be long
        report.sections.append(("screen", repr(device.screen[-10000:])))
        report.sections.append(("boot console", repr(bytes(device.boot_console.received[-10000:]))))
        report.sections.append(("events", "\n".join(map(str, device.all_events[-500:]))))


@pytest.fixture
def dev(request, tmp_path):
    """A device with the program on it, not started yet."""
    build = Path(request.config.getoption("build")).resolve()
    program = Path(request.config.getoption("program") or build / "recovery-loader").resolve()
    device = Device(tmp_path / "root", build, program)
    try:
        yield device
        if request.node.stash[_reports]["call"].passed:
            device.check()
    finally:
        device.close()

"""What all tests of the program share: the sessions on both kinds of device, and what is shown of one whose test failed."""

import itertools
import zlib
from pathlib import Path

import pytest

from session import Session

pytest_plugins = ["root_fixtures", "board_fixtures"]

_ROOT = Path(__file__).resolve().parent.parent
_failed = pytest.StashKey[bool]()


def pytest_addoption(parser):
    parser.addoption("--build", default=_ROOT / "build" / "release",
                     help="build directory to test in the device root (default: build/release; the board has $BUILD)")
    parser.addoption("--program", help="another program than the one of the build directory, in the device root")
    parser.addoption("--one-case", action="store_true", help="of each parametrised test one case, always the same")


@pytest.hookimpl(trylast=True)
def pytest_collection_modifyitems(config, items):
    # After marks and names have chosen theirs.
    if not config.getoption("one_case"):
        return
    chosen, left = [], []
    for function, cases in itertools.groupby(items, lambda item: item.nodeid.partition("[")[0]):
        cases = list(cases)
        # Not always the first: that is the plainest.
        chosen.append(cases.pop(zlib.crc32(function.encode()) % len(cases)))
        left += cases
    config.hook.pytest_deselected(items=left)
    items[:] = chosen


@pytest.hookimpl(hookwrapper=True, tryfirst=True)
def pytest_runtest_makereport(item):
    outcome = yield
    report = outcome.get_result()
    item.stash[_failed] = item.stash.get(_failed, False) or not report.passed
    if report.failed and report.when == "call":
        for session in {value for value in getattr(item, "funcargs", {}).values() if isinstance(value, Session)}:
            report.sections += session.report()


@pytest.fixture
def has_failed(request):
    """Called while a fixture is taken down: whether the test has failed, or was left out."""
    return lambda: request.node.stash.get(_failed, False)


@pytest.fixture(scope="session")
def build(request):
    """The build directory whose programs are tested in the device root."""
    return Path(request.config.getoption("build")).resolve()

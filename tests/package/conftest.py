"""The packages that packaging/build has made, and a bare system for them."""

from pathlib import Path

import pytest

import bare_root

BUILD = Path(__file__).resolve().parents[2] / "build"
PACKAGES = BUILD / "packages"


@pytest.fixture(scope="session")
def kesto_package():
    (package,) = PACKAGES.glob("kesto_*_amd64.deb")
    return package


@pytest.fixture(scope="session")
def loader_package():
    (package,) = PACKAGES.glob("recovery-loader_*_armel.deb")
    return package


@pytest.fixture(scope="session")
def _archive(kesto_package, loader_package):
    needed = bare_root.dependencies(kesto_package) + bare_root.dependencies(loader_package)
    return bare_root.archive(BUILD / "bare-root", set(needed))


@pytest.fixture
def system(_archive, tmp_path):
    """A bare Debian 12 with what the packages say they need, and without them."""
    return bare_root.BareRoot(_archive, tmp_path / "root")

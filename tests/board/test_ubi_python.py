"""Python archives installed into a user volume that is in use."""

import re

import pytest

import images
import real_images
import ubi_device
from texts import NOT_INSTALLED, SUCCESS
from ubi_device import attached, contents, expect_given_back, fresh_layout, install, make, tar_gz, ubifs

PACKAGES = "python/lib/python2.7/site-packages"
OWN = contents({f"{PACKAGES}/thermo/__init__.py": b"print('21.5 C')\n", f"{PACKAGES}/thermo/table.bin": images.pattern(3000),
                "log/today": b"the user's other files\n"})
OLD = contents({"python/bin/python": (b"old" * 300, 0o755), "python/lib/python2.7/gone.py": b"only in the old one\n"})
NEW = contents({"bin/python": (b"new" * 400, 0o755), "lib/python2.7/os.py": b"import sys\n",
                "lib/python2.7/site-packages/README": b"packages go here\n"})


@pytest.fixture
def parts(tmp_path):
    return ubi_device.PartFiles(tmp_path)


def test_installed_packages_survive(dev, parts):
    dev.board.flash_write("ubi0", make(vexo_user=ubifs({**OWN, **OLD}, lebs=200)))
    image = parts.build(("python", tar_gz(NEW)))
    assert install(dev, image) == real_images.info(image) + SUCCESS
    expect_given_back(dev)
    with attached(dev) as ubi:
        assert ubi.files("vexo_user") == {**OWN, **{f"python/{path}": entry for path, entry in NEW.items()}}
        assert ubi.holds_something() == {"vexo_user"}
    assert not dev.flash("bootenv_1"), "a Python archive switches no bank"


def test_too_little_space(dev, parts):
    dev.board.flash_write("ubi0", make(vexo_user=ubifs({**OWN, **OLD}, lebs=40)))
    image = parts.build(("python", tar_gz(NEW)))
    shown = install(dev, image[:images.HEADER_SIZE])
    refused = re.fullmatch(re.escape(real_images.info(image)) + r"ERROR: ERROR: Not enough space for Python installation "
                           r"\(6291456 required, (\d+) available\)\n" + re.escape(
                               "ERROR: Failed to write firmware image\n" + NOT_INSTALLED), shown)
    assert refused, shown
    # Of 40 blocks of 124 KiB, the file system itself takes a part.
    assert 1_000_000 < int(refused[1]) < 40 * 126_976
    expect_given_back(dev)
    with attached(dev) as ubi:
        assert ubi.files("vexo_user") == {**OWN, **OLD}
        assert ubi.layout() == fresh_layout()

"""show oem: the file with the defaults of an end product's maker, looked for in a real volume, and the address that the
boot environment has. Whatever is found, the device is given back."""

import pytest

import images
import real_images
import ubi_device
from texts import SUCCESS
from ubi_device import attached, expect_given_back, fresh_layout, install, make, ubifs

DEFAULTS = "cfg/hidden.oem.xml"
NO_ADDRESS = "OEM Ethernet address not set\n"
NOT_PRESENT = NO_ADDRESS + "OEM Defaults File: Not Present\n"
OTHER = {"cfg/other.xml": (b"<other/>", 0o644)}


def private(files):
    """A volume for private files that holds these, of the size it has on a fresh device."""
    return ubifs(files, lebs=fresh_layout()["vexo_private"])


def show_oem(dev):
    shown = dev.command("show oem")
    expect_given_back(dev)
    return shown


def test_defaults_that_were_installed(dev, tmp_path):
    """By the installation that is meant for them, into a volume that holds another file."""
    oem = b"<oem><name>Acme</name></oem>\n" * 40
    dev.board.flash_write("ubi0", make(vexo_private=private(OTHER)))
    dev.board.flash_fill("bootenv_1", real_images.environment(ethaddr="00:00:5e:01:02:03"))
    assert show_oem(dev) == "OEM Ethernet address: 00:00:5e:01:02:03\nOEM Defaults File: Not Present\n"
    image = ubi_device.PartFiles(tmp_path).build(("oem-defaults", oem))
    assert install(dev, image) == real_images.info(image) + SUCCESS
    assert show_oem(dev) == ("OEM Ethernet address: 00:00:5e:01:02:03\n"
                             "OEM Defaults File: Present, size=0x488 (1160)\n")
    with attached(dev) as ubi:
        assert ubi.files("vexo_private") == {**OTHER, DEFAULTS: (oem, 0o644)}


@pytest.mark.parametrize("data, size", [(b"", "size=0x0 (0)"), (images.pattern(70_001), "size=0x11171 (70001)")],
                         ids=["empty", "large"])
def test_defaults_that_are_there(dev, data, size):
    dev.board.flash_write("ubi0", make(vexo_private=private({DEFAULTS: data})))
    assert show_oem(dev) == f"{NO_ADDRESS}OEM Defaults File: Present, {size}\n"
    with attached(dev) as ubi:
        assert ubi.files("vexo_private") == {DEFAULTS: (data, 0o644)}, "looking changes nothing"


def test_defaults_elsewhere_do_not_count(dev):
    """Beside the directory, or in another volume."""
    root = {DEFAULTS: (b"<oem/>", 0o644)}
    dev.board.flash_write("ubi0", make(rootfs_1=ubifs(root), vexo_private=private({"hidden.oem.xml": b"<oem/>"})))
    assert show_oem(dev) == NOT_PRESENT


def test_volume_is_missing(dev):
    volumes = {name: lebs for name, lebs in fresh_layout().items() if name != "vexo_private"}
    dev.board.flash_write("ubi0", make(volumes, vexo_user=ubifs({DEFAULTS: b"<oem/>"})))
    assert show_oem(dev) == NOT_PRESENT


@pytest.mark.parametrize("volumes", [{}, {"vexo_private": images.pattern(5000)}], ids=["empty", "something else"])
def test_volume_holds_no_file_system(dev, volumes):
    dev.board.flash_write("ubi0", make(**volumes))
    assert show_oem(dev) == NOT_PRESENT


def test_flash_that_is_erased_or_holds_no_volumes(dev):
    """An erased device stays erased: it is not even attached, which would format it. One with something else in it
    cannot be attached, and keeps it."""
    assert show_oem(dev) == NOT_PRESENT
    assert not dev.flash("ubi0")
    garbage = images.pattern(1 << 20)
    dev.board.flash_write("ubi0", garbage)
    assert show_oem(dev) == NO_ADDRESS + "ERROR: Failed to attach /dev/mtd10 to ubi0\nOEM Defaults File: Not Present\n"
    assert dev.flash("ubi0") == garbage.rstrip(b"\xff")

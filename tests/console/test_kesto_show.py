"""kesto show: what a device's commands tell, on a page, for programs, and as a picture to scale."""

import json
import re
import xml.etree.ElementTree as ElementTree

import pytest

import images
from flash_table import NAMES
from kesto_device import kesto  # noqa: F401  pylint: disable=unused-import
from product import HWCFG, MAC, PRODUCT_ID

pytestmark = pytest.mark.not_emulated(reason="a host tool, which never runs on the device's processor")

KERNEL = images.part(images.KERNEL, images.pattern(5000), version=(3, 1, 0, 0, "R", 1), code=b"AB")
KERNEL_LOG = """\
nand: 128 MiB, SLC, erase size: 128 KiB, page size: 2048, OOB size: 64
0x000000000000-0x000000010000 : "bootstrap"
0x000000010000-0x000000020000 : "prod_config"
0x000000100000-0x000000140000 : "kernel_1"
0x000000140000-0x000000180000 : "kernel_2"
"""
SVG = "{http://www.w3.org/2000/svg}"


@pytest.fixture
def flash(dev):
    dev.set_partitions(*((name, 0x40000, 0x20000 if name == "ubi0" else 0x10000) for name in NAMES[:11]))
    for partition in dev.partitions:
        partition.fill()
    dev.give_product((PRODUCT_ID, b"P9AB"), (HWCFG, b"sp2"), (MAC[0], bytes(range(6))))
    dev.partition("kernel_2").write(KERNEL)
    dev.env["bootbank"] = "2"
    dev.answer("dmesg", stdout=KERNEL_LOG)
    dev.boot()
    return dev


def test_for_programs(flash, kesto):
    record = kesto.json("show")
    assert record["format"] == 1
    assert record["product"]["id"] == "P9AB" and record["product"]["mac"][0] == "00:01:02:03:04:05"
    rows = {row["name"]: row for row in record["flash"]}
    assert list(rows) == list(NAMES)
    kernel = rows["kernel_2"]
    assert kernel == {"name": "kernel_2", "device": "mtd6", "type": "serial", "format_name": "uImage", "image": "kernel",
                      "bank": "2", "protect": False, "t": False, "clean": False, "start": 0x140000, "size": 0x40000,
                      "erase_block": None, "status": "active", "version": "3.1.0.0R1", "code": "AB", "used": 5000,
                      "crc": f"{images.field(KERNEL, images.HEADER_CHECKSUM):08x}"}
    assert rows["bootloader"]["protect"] and rows["param_space"]["clean"]
    assert (rows["kernel_1"]["status"], rows["kernel_single"]["status"]) == ("clean", None)
    assert rows["ubi0"]["erase_block"] == 128 << 10 and record["ubi"]["ubi0"] is None
    assert record["banks"][1] == {"bank": "2", "active": True, "rootfs": {"status": "clean", "version": None, "code": None},
                                  "kernel": {"status": "active", "version": "3.1.0.0R1", "code": "AB"}}
    assert record["bootenv"]["bootbank"] == "2"
    assert record["console"] == {"device": "/dev/ttyS1", "mode": "rs232", "speed": "115200 bps", "flow": "hwflow",
                                 "term": "n/a"}
    assert record["network"]["state"] == "down"


def test_the_record_is_what_image_check_takes(flash, kesto):
    kesto.file("device.json", json.dumps(kesto.json("show")))
    kesto.file("image.rom", KERNEL)
    result = kesto.run("image", "check", "image.rom", "--bank", "2", "--device", "device.json", "--json")
    found = {finding["name"]: finding["severity"] for finding in json.loads(result.stdout)["findings"]}
    assert found["not-erased"] == "danger" and "active-bank" in found


@pytest.mark.parametrize("disturbed", ["0x" + "0" * 100_000, "x" * 100_000, "nand: " + "1" * 100_000],
                         ids=["digits", "letters", "blocks"])
def test_a_line_without_an_end(flash, kesto, disturbed):
    """A line that is disturbed brings anything; what stands around it still counts."""
    flash.answer("dmesg", stdout=KERNEL_LOG + disturbed + "\n")
    rows = {row["name"]: row for row in kesto.json("show", port=kesto.bridge.unix)["flash"]}
    assert rows["kernel_2"]["start"] == 0x140000


def test_a_page_for_people(flash, kesto):
    result = kesto.at("show")
    assert (result.returncode, result.stderr) == (0, "")
    assert re.search(r"^  2 +boots +kernel 3\.1\.0\.0R1 AB", result.stdout, re.MULTILINE)
    assert re.search(r"^  kernel_2 +mtd6 +0x140000 +256 KiB +active +3\.1\.0\.0R1 +AB +0x1388 ", result.stdout, re.MULTILINE)
    assert "Product    P9AB, hardware sp2" in result.stdout


def test_a_picture_to_scale(flash, kesto):
    assert kesto.at("show", "--svg", "flash.svg").returncode == 0
    picture = ElementTree.parse(kesto.directory / "flash.svg").getroot()
    pieces = {}
    for group in picture.iter(SVG + "g"):
        rect = group.find(SVG + "rect")
        pieces[group.find(SVG + "title").text.split(":")[0]] = (rect.get("class"), float(rect.get("x")), float(rect.get("width")))
    assert pieces["kernel_2"][0] == "active" and pieces["kernel_1"][0] == "clean"
    assert pieces["kernel_2"][2] == pytest.approx(4 * pieces["bootstrap"][2], abs=0.05)
    assert pieces["kernel_2"][1] == pytest.approx(pieces["kernel_1"][1] + pieces["kernel_1"][2], abs=0.05)


def test_no_name_leaves_the_picture(flash, kesto):
    """Those of narrow pieces stand beside them, at the right edge before them."""
    flash.answer("dmesg", stdout='0x000000000000-0x000001000000 : "kernel_1"\n0x000001000000-0x000001010000 : "param_space"\n')
    assert kesto.at("show", "--svg", "flash.svg").returncode == 0
    picture = ElementTree.parse(kesto.directory / "flash.svg").getroot()
    assert "param_space" in ElementTree.tostring(picture, encoding="unicode")
    for text in picture.iter(SVG + "text"):
        length = 7 * len(text.text)
        left = float(text.get("x")) - (length if text.get("text-anchor") == "end" else 0)
        assert 0 <= left and left + length <= float(picture.get("width")), text.text


def test_a_picture_that_cannot_be_written(flash, kesto):
    result = kesto.at("show", "--svg", "nowhere/flash.svg")
    assert (result.returncode, result.stderr) == (1, "kesto: nowhere/flash.svg: write error (No such file or directory)\n")

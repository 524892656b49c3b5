"""show product and show oem: what the factory and the maker of the end product have set."""

import pytest

from product import HWCFG, MAC, PRODUCT_ID, record, sealed
from texts import SUCCESS

NO_RECORD = "ERROR: No valid product config found\n"

ID_LINE = "  Product ID: P2AB\n"
HWCFG_LINE = "  Product HWCFG: sp4,dio2x1r\n"
MAC_LINES = [f"    {n}: {n}0:{n}1:{n}2:{n}3:{n}4:{n}E\n" for n in range(6)]
MACS = "  Product MAC Address(es):\n"
ITEMS = [(PRODUCT_ID, b"P2AB"), (HWCFG, b"sp4,dio2x1r"),
         *((MAC[n], bytes([16 * n, 16 * n + 1, 16 * n + 2, 16 * n + 3, 16 * n + 4, 16 * n + 14])) for n in range(6))]


@pytest.fixture
def product(dev):
    """A device with everything in its record, at the prompt."""
    dev.give_product(*ITEMS)
    dev.make_gpio_lines()
    dev.boot()
    return dev


# ---------------------------------------------------------------------- show product


def test_everything(product):
    assert product.command("show product") == ("\nProduct Configuration:\n" + ID_LINE + HWCFG_LINE + MACS
                                               + "".join(MAC_LINES) + "\n" + SUCCESS)


@pytest.mark.parametrize("word", ["i", "id"])
def test_id(product, word):
    assert product.command(f"show product {word}") == "\n" + ID_LINE + "\n" + SUCCESS


@pytest.mark.parametrize("word", ["h", "hw", "hwc", "hwcf", "hwcfg"])
def test_hwcfg(product, word):
    assert product.command(f"show product {word}") == "\n" + HWCFG_LINE + "\n" + SUCCESS


@pytest.mark.parametrize("word", ["m", "ma", "mac"])
def test_all_macs(product, word):
    assert product.command(f"show product {word}") == "\n" + MACS + "".join(MAC_LINES) + "\n" + SUCCESS


@pytest.mark.parametrize("number", range(6))
def test_one_mac(product, number):
    assert product.command(f"show product m {number}") == "\n" + MACS + MAC_LINES[number] + "\n" + SUCCESS


@pytest.mark.parametrize("number", ["6", "9", "-1", "00", "3x", "a", "mac"])
def test_mac_that_does_not_exist(product, number):
    assert product.command(f"show product mac {number}") == f"\nERROR: Invalid mac id '{number}'\n"


@pytest.mark.parametrize("word", ["c", "cal", "calibration"])
def test_calibration_shows_no_section(product, word):
    assert product.command(f"show product {word}") == "\n\n" + SUCCESS


@pytest.mark.parametrize("word", ["idx", "hwcfgs", "macs", "mac0", "calibrations", "x", "ID", "Mac", "d", "product"])
def test_word_that_is_no_leading_part_of_a_keyword(product, word):
    assert product.command(f"show product {word}") == f"ERROR: Invalid parameter '{word}'\n"


def test_surplus_words_are_ignored(product):
    assert product.command("show product # comment") == product.command("show product")
    assert product.command("show product id 3 x") == "\n" + ID_LINE + "\n" + SUCCESS
    assert product.command("show product mac 0 1") == "\n" + MACS + MAC_LINES[0] + "\n" + SUCCESS


def test_items_that_are_missing(dev):
    dev.give_product()
    dev.boot()
    none = [f"    {n}: 00:00:00:00:00:00\n" for n in range(6)]
    assert dev.command("show product") == ("\nProduct Configuration:\n  Product ID: <not set>\n"
                                           "  Product HWCFG: <not set>\n" + MACS + "".join(none) + "\n" + SUCCESS)


def test_texts_that_fill_their_fields(dev):
    dev.give_product((HWCFG, b"h" * 64), (PRODUCT_ID, b"ABCD"), (MAC[0], b"\xff" * 6))
    dev.boot()
    assert dev.command("show product id") == "\n  Product ID: ABCD\n\n" + SUCCESS
    assert dev.command("show product hwcfg") == f"\n  Product HWCFG: {'h' * 64}\n\n" + SUCCESS
    assert dev.command("show product mac 0") == "\n" + MACS + "    0: FF:FF:FF:FF:FF:FF\n\n" + SUCCESS


def test_control_bytes_are_not_sent_to_the_terminal(dev):
    dev.give_product((HWCFG, b"\x1b[2Jsp4\x07\x80\xff~"), (PRODUCT_ID, b"P2\r\x9b"))
    dev.boot()
    assert dev.command("show product id") == "\n  Product ID: P2??\n\n" + SUCCESS
    assert dev.command("show product hwcfg") == "\n  Product HWCFG: ?[2Jsp4???~\n\n" + SUCCESS


def test_empty_texts_are_set(dev):
    dev.give_product((HWCFG, b""), (PRODUCT_ID, b""))
    dev.boot()
    assert dev.command("show product id") == "\n  Product ID: \n\n" + SUCCESS
    assert dev.command("show product hwcfg") == "\n  Product HWCFG: \n\n" + SUCCESS


@pytest.mark.parametrize("content", [
    b"\0" * 1024,
    b"\xff" * 1024,
    record(*ITEMS)[:2] + b"\x03\0",
    bytes([record(*ITEMS)[0] ^ 1]) + record(*ITEMS)[1:],
    record((PRODUCT_ID, b"P1")),
], ids=["zeroes", "erased", "too short", "wrong checksum", "good"])
def test_record_counts_only_when_it_is_whole(dev, content, request):
    dev.partition("prod_config").write(content)
    text = dev.boot()
    assert "ERROR" not in text, "a device without record is no error"
    good = "good" in request.node.callspec.id
    assert (dev.command("show product id") == NO_RECORD) == (not good)
    assert (dev.command("show product x") == NO_RECORD) == (not good), "words are not looked at"


@pytest.mark.parametrize("failure, message", [
    ({"error": "EIO"}, "read(1024) error(Input/output error)"),
    ({"error": None, "result": 1023}, "only 1023/1024 bytes read, error(Success)"),
], ids=["failing", "short"])
def test_flash_that_cannot_be_read_is_told_at_the_start(dev, failure, message):
    dev.give_product(*ITEMS)
    dev.fail_call("read", "/dev/mtd1", **failure)
    assert f"ERROR: prodcfg_read: {message}\n" in dev.boot()
    assert dev.command("show product") == NO_RECORD


def test_item_past_the_end_is_told_at_the_start(dev):
    rest = record((MAC[0], b"123456"), (MAC[1], b"123456"))[2:]
    dev.partition("prod_config").write(sealed(rest.replace(b"\x02\x06\x00", b"\x02\x07\x00")) + b"x")
    assert "ERROR: tlv_parse_buffer: parse underrun\n" in dev.boot()
    assert dev.command("show product") == NO_RECORD


def test_item_of_wrong_length_is_told_and_the_rest_counts(dev):
    dev.give_product((MAC[0], b"12345"), (PRODUCT_ID, b"P1"))
    assert "ERROR: tlv_parse_buffer: skipping invalid tlv type=1 length=5\n" in dev.boot()
    assert dev.command("show product id") == "\n  Product ID: P1\n\n" + SUCCESS


def test_product_partition_moved_by_the_kernel(dev):
    """The node is that of the partition's name, whatever its number."""
    rows = [(p.name, p.size, p.erase_size) for p in dev.partitions]
    rows.insert(0, rows.pop(1))
    dev.set_partitions(*rows)
    dev.give_product(*ITEMS)
    dev.make_gpio_lines()
    dev.boot()
    assert dev.command("show product id") == "\n" + ID_LINE + "\n" + SUCCESS


# ---------------------------------------------------------------------- show oem

NOT_PRESENT = "OEM Defaults File: Not Present\n"


def put_defaults_file(dev, size):
    """The file as it appears once the volume is mounted."""
    dev.path("/mnt/cfg").mkdir()
    dev.path("/mnt/cfg/hidden.oem.xml").write_bytes(b"x" * size)


def test_oem_with_address_and_defaults_file(dev):
    put_defaults_file(dev, 1234)
    dev.env["ethaddr"] = "00:00:5e:01:02:03"
    dev.boot()
    assert dev.command("show oem") == ("OEM Ethernet address: 00:00:5e:01:02:03\n"
                                       "OEM Defaults File: Present, size=0x4d2 (1234)\n")
    assert dev.shell_lines[0].startswith("/usr/sbin/fw_printenv -n ethaddr")
    dev.expect_ran("/bin/mount -t ubifs -o sync,compr=zlib ubi0:vexo_private /mnt", "/bin/umount /mnt")
    assert [line for line in dev.ran if "ubiattach" in line] and [line for line in dev.ran if "ubidetach" in line]


def test_oem_with_nothing_set(dev):
    del dev.env["ethaddr"]
    dev.boot()
    assert dev.command("show oem") == "OEM Ethernet address not set\n" + NOT_PRESENT


def test_oem_with_an_empty_address(dev):
    dev.env["ethaddr"] = ""
    dev.boot()
    assert dev.command("show oem").startswith("OEM Ethernet address not set\n")


def test_oem_with_an_empty_defaults_file(dev):
    put_defaults_file(dev, 0)
    dev.boot()
    assert dev.command("show oem").endswith("OEM Defaults File: Present, size=0x0 (0)\n")


def test_oem_with_a_volume_that_cannot_be_mounted(dev):
    put_defaults_file(dev, 10)
    dev.answer("mount", status=32)
    dev.boot()
    assert dev.command("show oem").endswith(NOT_PRESENT)


def test_oem_on_erased_flash(dev):
    dev.set_partitions(*((p.name, 0x40000 if p.name == "ubi0" else p.size, p.erase_size) for p in dev.partitions))
    dev.partition("ubi0").fill()
    put_defaults_file(dev, 10)
    dev.boot()
    assert dev.command("show oem").endswith(NOT_PRESENT)
    dev.expect_not_ran("ubiattach", "mount")


def test_oem_address_is_cut_to_its_field(dev):
    dev.env["ethaddr"] = "0123456789" * 5
    dev.boot()
    assert dev.command("show oem").startswith("OEM Ethernet address: 012345678901234567890123456789\n")


def test_oem_gives_no_result_line(dev):
    dev.boot()
    assert "Done:" not in dev.command("show oem extra words")

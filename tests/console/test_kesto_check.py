"""kesto image check, and the JSON of info, verify and check. What a device does with the same images is judged on the
board; here it is what the tool says of it."""

import copy
import json

import pytest

import images
from images import (BOOT_ENV, BOOTLOADER, BOOTSTRAP, CONFIG_LOADER, KERNEL, OEM_DEFAULTS, PYTHON_SETUP,
                    ROOTFS_SIZE_KIB, ROOTFS_TAR_LZMA, ROOTFS_UBIFS_16KEB, ROOTFS_UBIFS_128KEB, TOTAL_SIZE_KIB)
from kesto_tool import patched

pytestmark = pytest.mark.not_emulated(reason="a host tool, which never runs on the device's processor")

LEB = 126976


def image_of(*parts) -> bytes:
    """Parts are a contents type, or (type, length), or (type, length, options of images.part)."""
    made = []
    for number, part in enumerate(parts):
        given = part if isinstance(part, tuple) else (part,)
        kind, length, options = given + (None, 10, {})[len(given):]
        made.append(images.part(kind, bytes(i % 251 for i in range(length)), more=number + 1 < len(parts), **options))
    return b"".join(made)


def device(bank="1", clean=False, **status) -> dict:
    """The record of a device with two banks that runs `bank`, or of one whose flash is all clean but for the boot
    loaders. `status` by name of a row."""
    sizes = {"bootstrap": 0x4000, "prod_config": 0x2000, "bootloader": 0x80000, "bootenv_1": 0x10000, "bootenv_2": 0x10000,
             "kernel_1": 1000, "kernel_2": 1000, "kernel_single": 2000, "config_loader": 1000, "param_space": 0x10000,
             "ubi0": 128 << 20}
    of_bank = {"1": "1", "2": "2", "single": "single"}.get(bank)
    rows = []
    for name in [*sizes, "rootfs_1", "rootfs_2", "rootfs_single", "vexo_private", "vexo_user"]:
        other_schema = name.endswith("_single") != (bank == "single") and name.startswith(("kernel", "rootfs"))
        in_ubi = name not in sizes
        if name == "ubi0" or other_schema:
            found = None
        elif clean:
            found = "active" if name in ("bootstrap", "bootloader", "prod_config") else "clean"
        else:
            found = "inactive" if name[-1] in "12" and name[-1] != of_bank and name.startswith(("kernel", "rootfs")) else "active"
        rows.append({"name": name, "device": "-", "status": status.get(name, found), "size": sizes.get(name),
                     "erase_block": None if in_ubi else 131072 if name == "ubi0" else 4096,
                     "code": "TK" if found == "active" else None})
    volumes = []
    if not clean:
        lebs = {"rootfs_1": 10, "rootfs_2": 10, "rootfs_single": 1} if bank != "single" else {
            "rootfs_1": 1, "rootfs_2": 1, "rootfs_single": 20}
        volumes = [{"name": name, "reserved_ebs": count} for name, count in lebs.items()]
    return {"format": 1, "flash": rows, "bootenv": {"bootbank": bank},
            "ubi": {"ubi0": {"leb_size": LEB, "available": 0, "volumes": volumes}}}


def check(kesto, image: bytes, bank="2", record: dict | None = None, *words) -> dict:
    kesto.file("in.rom", image)
    words = [*words, "--json", "--bank", bank]
    if record is not None:
        kesto.file("device.json", json.dumps(record).encode())
        words += ["--device", "device.json"]
    result = kesto.run("image", "check", "in.rom", *words)
    assert result.stderr == ""
    report = json.loads(result.stdout)
    assert result.returncode == (0 if report["ok"] else 1)
    return report


def found(report) -> set:
    """What was found, as "severity name", with the number of the part and the way where it is not for both."""
    said = set()
    for finding in report["findings"]:
        part = "" if finding["part"] is None else f" {finding['part']}"
        way = f" {finding['ways'][0]}" if len(finding["ways"]) == 1 and len(report["ways"]) == 2 else ""
        said.add(f"{finding['severity']} {finding['name']}{part}{way}")
    return said


# --- where parts go


@pytest.mark.parametrize("bank", ["1", "2", "single"])
@pytest.mark.parametrize("kind,name,raw,header", [
    (BOOTSTRAP, "bootstrap", True, 0), (BOOTLOADER, "bootloader", True, 256), (BOOT_ENV, "bootenv_1", True, 0),
    (KERNEL, "kernel_{}", True, 256), (CONFIG_LOADER, "config_loader", True, 256),
    (ROOTFS_UBIFS_16KEB, "rootfs_{}", False, 0), (OEM_DEFAULTS, "vexo_private", False, 0),
    (ROOTFS_TAR_LZMA, "rootfs_{}", False, 0), (ROOTFS_UBIFS_128KEB, "rootfs_{}", False, 0),
    (PYTHON_SETUP, "vexo_user", False, 0)])
def test_destinations(kesto, kind, name, raw, header, bank):
    part = check(kesto, image_of(kind), bank)["parts"][0]
    assert part["destination"] == name.format(bank)
    assert part["kind"] == ("raw" if raw else "volume")
    assert part["written"] == header + 10
    assert part["erase_block"] == {ROOTFS_UBIFS_16KEB: 16384, ROOTFS_UBIFS_128KEB: 131072}.get(kind)
    assert part["erased"] == (["network"] if kind in (KERNEL, CONFIG_LOADER) else [])


@pytest.mark.parametrize("kind", [0, 5, 6, 7, 9, 99])
def test_no_place(kesto, kind):
    report = check(kesto, patched(image_of(KERNEL), 24, kind))
    assert found(report) == {"refused no-place 0"}
    assert (report["parts"][0]["destination"], report["parts"][0]["kind"]) == (None, None)
    assert report["environment"] == {}


@pytest.mark.parametrize("bank", ["1", "2", "single"])
def test_what_is_set_at_the_end(kesto, bank):
    assert check(kesto, image_of((KERNEL, 171), ROOTFS_TAR_LZMA), bank)["environment"] == {
        f"kernel_size_{bank}": "AB", "bootbank": bank}
    assert check(kesto, image_of(ROOTFS_TAR_LZMA), bank)["environment"] == {
        f"kernel_size_{bank}": "0", "bootbank": bank}
    assert check(kesto, image_of(CONFIG_LOADER), bank)["environment"] == {}


def test_an_image_that_is_good(kesto):
    report = check(kesto, image_of(KERNEL, ROOTFS_UBIFS_128KEB), "2", device(kernel_2="clean"))
    assert (found(report), report["ok"], report["formats"]) == (set(), True, False)
    kernel, rootfs = report["parts"]
    assert (kernel["room"], kernel["fits"]) == (1000, True)
    assert (rootfs["room"], rootfs["fits"]) == (10 * LEB, True)


# --- raw partitions


@pytest.mark.parametrize("status,expected", [("clean", set()), ("active", {"danger not-erased 0 serial"}),
                                             ("inactive", {"danger not-erased 0 serial"}),
                                             ("dirty", {"danger not-erased 0 serial"}),
                                             (None, {"possible not-erased 0 serial"})])
@pytest.mark.parametrize("kind,name", [(KERNEL, "kernel_2"), (CONFIG_LOADER, "config_loader")])
def test_flash_that_is_not_erased(kesto, kind, name, status, expected):
    record = device(**{name: status})
    assert found(check(kesto, image_of(kind), "2", record)) == expected
    assert found(check(kesto, image_of(kind), "2", record, "--network")) == set()
    assert found(check(kesto, image_of(kind), "2", record, "--serial")) == {line[:-7] for line in expected}


@pytest.mark.parametrize("kind,name", [(BOOTSTRAP, "bootstrap"), (BOOTLOADER, "bootloader")])
@pytest.mark.parametrize("status,severity", [("clean", "note"), ("active", "danger"), ("dirty", "danger"), (None, "possible")])
def test_boot_loader_over_an_old_one(kesto, kind, name, status, severity):
    assert found(check(kesto, image_of(kind), "2", device(**{name: status}))) == {f"{severity} boot-loader 0"}


@pytest.mark.parametrize("length,fits", [(1000 - 256, True), (1000 - 255, False)])
def test_kernel_larger_than_its_partition(kesto, length, fits):
    report = check(kesto, image_of((KERNEL, length)), "2", device(kernel_2="clean"))
    assert found(report) == (set() if fits else {"danger too-large 0"})
    assert (report["parts"][0]["fits"], report["parts"][0]["written"]) == (fits, length + 256)


def test_one_partition_twice(kesto):
    assert found(check(kesto, image_of(KERNEL, KERNEL), "2", device(kernel_2="clean"))) == {"danger written-twice 1"}


def test_no_contents(kesto):
    assert "danger empty-part 0" in found(check(kesto, image_of((KERNEL, 0)), "2", device(kernel_2="clean")))


# --- the boot environment


def test_boot_env_on_a_new_device(kesto):
    new = device("", clean=True)
    assert found(check(kesto, image_of(BOOT_ENV), "1", new)) == set()
    assert found(check(kesto, image_of(BOOT_ENV), "1", device("", clean=True, bootenv_1="dirty"))) == {"danger boot-env-mixed 0"}
    assert found(check(kesto, image_of(BOOT_ENV), "1", device())) == {"note boot-env-skipped 0"}


def test_boot_env_and_a_root_file_system(kesto):
    new = device("", clean=True)
    assert found(check(kesto, image_of(KERNEL, BOOT_ENV, ROOTFS_TAR_LZMA), "1", new)) == {"danger boot-env-lost 1 network"}
    assert found(check(kesto, image_of(KERNEL, ROOTFS_TAR_LZMA, BOOT_ENV), "1", new)) == {"danger boot-env-lost 2"}
    assert found(check(kesto, image_of(BOOT_ENV, ROOTFS_TAR_LZMA, KERNEL), "1")) == {
        "note boot-env-skipped 0", "possible boot-env-lost 0 network", "possible boot-env-mixed 0 serial",
        "possible not-erased 2 serial"}


# --- volumes


def test_erase_blocks(kesto):
    in_use = device(kernel_2="clean")
    assert found(check(kesto, image_of(KERNEL, ROOTFS_UBIFS_16KEB), "2", in_use)) == {"refused erase-block 1"}
    assert found(check(kesto, image_of(KERNEL, ROOTFS_UBIFS_128KEB), "2", in_use)) == set()
    assert "refused erase-block 1" in found(check(kesto, image_of(ROOTFS_UBIFS_16KEB, ROOTFS_UBIFS_128KEB)))


@pytest.mark.parametrize("kind", [OEM_DEFAULTS, PYTHON_SETUP])
def test_what_wants_volumes(kesto, kind):
    new = device("", clean=True)
    note = {"note python-packages {}"} if kind == PYTHON_SETUP else set()
    said = lambda lines, part: {line.format(part) for line in lines}
    assert found(check(kesto, image_of(kind), "1", new)) == {"refused clean-flash 0"} | said(note, 0)
    assert found(check(kesto, image_of(KERNEL, ROOTFS_TAR_LZMA, kind), "1", new)) == said(note, 2)
    assert found(check(kesto, image_of(kind), "1", device())) == said(note, 0)
    assert found(check(kesto, image_of(kind), "1")) == {"possible clean-flash 0"} | said(note, 0)


@pytest.mark.parametrize("kind,severity", [(ROOTFS_UBIFS_128KEB, "refused"), (ROOTFS_TAR_LZMA, "danger")])
def test_more_than_the_volume_holds(kesto, kind, severity):
    record = device(kernel_2="clean")
    assert found(check(kesto, image_of(KERNEL, (kind, 10 * LEB)), "2", record)) == set()
    report = check(kesto, image_of(KERNEL, (kind, 10 * LEB + 1)), "2", record)
    assert found(report) == {f"{severity} volume-too-small 1"}
    assert report["parts"][1]["fits"] is False


def test_formatting(kesto):
    new = device("", clean=True)
    report = check(kesto, image_of(KERNEL, (ROOTFS_UBIFS_128KEB, 10, {"fields": {ROOTFS_SIZE_KIB: 1000}})), "2", new)
    assert (found(report), report["formats"]) == (set(), True)
    assert report["parts"][1]["room"] == -(-1000 * 1024 // LEB) * LEB
    assert check(kesto, image_of(ROOTFS_TAR_LZMA))["formats"] is None
    assert check(kesto, image_of(KERNEL))["formats"] is False
    assert check(kesto, image_of(ROOTFS_TAR_LZMA), "2", device())["formats"] is False


@pytest.mark.parametrize("fields,fits", [({}, True), ({ROOTFS_SIZE_KIB: 60000}, True), ({ROOTFS_SIZE_KIB: 65536}, False),
                                         ({TOTAL_SIZE_KIB: 131072}, True), ({TOTAL_SIZE_KIB: 131073}, False),
                                         ({ROOTFS_SIZE_KIB: 4294967295, TOTAL_SIZE_KIB: 4294967295}, False),
                                         ({ROOTFS_SIZE_KIB: 40000, TOTAL_SIZE_KIB: 80000}, False)])
def test_sizes_of_a_format(kesto, fields, fits):
    report = check(kesto, image_of(KERNEL, (ROOTFS_TAR_LZMA, 10, {"fields": fields})), "2", device("", clean=True))
    assert found(report) == (set() if fits else {"refused format-too-large 1"})


def test_a_format_makes_two_banks(kesto):
    """So a device whose environment says single refuses its first root file system, and one without a boot bank has
    no room in the volume of the single bank."""
    image = image_of(KERNEL, ROOTFS_UBIFS_128KEB)
    assert "refused schema 1" in found(check(kesto, image, "single", device("single", clean=True)))
    assert "refused volume-too-small 1" in found(check(kesto, image, "single", device("", clean=True)))
    assert "note schema-change 1" in found(check(kesto, image, "single", device("1", clean=True)))


@pytest.mark.parametrize("active,bank,room", [("1", "single", 19), ("single", "2", 10)])
def test_change_of_schema(kesto, active, bank, room):
    report = check(kesto, image_of(KERNEL, ROOTFS_UBIFS_128KEB), bank, device(active), "--network")
    assert found(report) == {"danger schema-change 1"}
    assert report["parts"][1]["room"] == room * LEB


@pytest.mark.parametrize("active,volumes", [("1", "single"), ("2", "single"), ("single", "1")])
def test_volumes_that_do_not_agree_with_the_bank(kesto, active, volumes):
    record = device(active)
    record["ubi"] = device(volumes)["ubi"]
    assert "refused schema 1" in found(check(kesto, image_of(KERNEL, ROOTFS_TAR_LZMA), active, record, "--network"))


# --- the whole image


def test_half_a_system(kesto):
    assert found(check(kesto, image_of(ROOTFS_TAR_LZMA), "2", device())) == {"danger no-kernel"}
    assert found(check(kesto, image_of(KERNEL), "2", device(), "--network")) == set()
    for status in ("clean", "dirty"):
        assert found(check(kesto, image_of(KERNEL), "2", device(rootfs_2=status), "--network")) == {"danger no-rootfs"}
    assert found(check(kesto, image_of(KERNEL), "2", None, "--network")) == {"possible no-rootfs"}


def test_the_bank_that_is_booted(kesto):
    assert found(check(kesto, image_of(KERNEL, ROOTFS_TAR_LZMA), "1", device(), "--network")) == {"note active-bank"}


def test_another_product(kesto):
    image = image_of((KERNEL, 10, {"code": b"TK"}), (CONFIG_LOADER, 10, {"code": b"XY"}))
    assert found(check(kesto, image, "2", device(), "--network")) == {"danger other-product 1"}
    nothing = device()
    for row in nothing["flash"]:
        row["code"] = None
    assert found(check(kesto, image, "2", nothing, "--network")) == set()


# --- the report for people


def test_report(kesto):
    kesto.file("in.rom", image_of((KERNEL, 999), ROOTFS_UBIFS_128KEB, CONFIG_LOADER))
    kesto.file("device.json", json.dumps(device()).encode())
    result = kesto.run("image", "check", "in.rom", "--bank", "2", "--device", "device.json")
    assert (result.returncode, result.stderr) == (1, "")
    assert result.stdout == (
        "Part 0, firmware_kernel: 1255 bytes into kernel_2, which has 1000: does not fit; erased before over the network only\n"
        f"Part 1, firmware_rootfs_ubifs_128keb: 10 bytes into rootfs_2, which has {10 * LEB}: fits; its volume is replaced; "
        "needs erase blocks of 128 KiB\n"
        "Part 2, config_loader: 266 bytes into config_loader, which has 1000: fits; erased before over the network only\n"
        "The UBI partition is not formatted.\n"
        "At the end: kernel_size_2=3E7 bootbank=2\n"
        "danger too-large, part 0: 1255 bytes for kernel_2, which has 1000: the end would be cut off\n"
        "danger not-erased, part 0, over serial only: kernel_2 is written over what it holds: 'flash kill 2 kernel' before\n"
        "danger not-erased, part 2, over serial only: config_loader is written over what it holds, and only a network "
        "installation erases it\n"
        "in.rom: not good\n")
    result = kesto.run("image", "check", "in.rom", "--bank", "1", "--network")
    assert (result.returncode, result.stdout.splitlines()[-1]) == (0, "in.rom: OK")


# --- bad input


@pytest.mark.parametrize("size", [0, 1, 255, 256, 265, 267, 521, 522, 531])
@pytest.mark.parametrize("command", [["check", "--bank", "2"], ["verify"], ["info"]])
def test_an_image_cut_short(kesto, command, size):
    kesto.file("short.rom", image_of(KERNEL, BOOTLOADER)[:size])
    by_text = kesto.run("image", *command, "short.rom")
    by_json = kesto.run("image", *command, "short.rom", "--json")
    assert (by_text.returncode, by_json.returncode, by_text.stderr, by_json.stderr) == (1, 1, "", "")
    report = json.loads(by_json.stdout)
    fault = report["fault"]
    assert (report["format"], report["ok"], report["size"], fault["device"]) == (1, False, size, None)
    assert by_text.stdout.splitlines()[-1] == (
        f"short.rom: part {fault['part']} at offset {fault['offset']}: {fault['text']}")


@pytest.mark.parametrize("change,fault", [
    ("nonsense", "not JSON at offset 2"),
    ([], "the record: an object is wanted"),
    ({"format": 2}, "format: 1 is wanted"),
    ({"format": None}, "format: 1 is wanted"),
    ({"flash": None}, "flash: an array is wanted"),
    ({"flash": {}}, "flash: an array is wanted"),
    ({"flash": [{"name": "kernel_1"}, 3]}, "flash[1]: an object is wanted"),
    ({"flash": [{"size": 3}]}, "flash[0].name: a name is wanted"),
    ({"flash": [{"name": 3}]}, "flash[0].name: a text is wanted"),
    ({"flash": [{"name": "ubi0", "size": -1}]}, "flash[0].size: a number from 0 is wanted"),
    ({"flash": [{"name": "ubi0", "size": 1.5}]}, "flash[0].size: a number from 0 is wanted"),
    ({"flash": [{"name": "ubi0", "erase_block": 2**32}]}, "flash[0].erase_block: a number from 0 is wanted"),
    ({"bootenv": None}, "bootenv: an object is wanted"),
    ({"bootenv": {"bootbank": 1}}, "bootenv.bootbank: a text is wanted"),
    ({"ubi": 3}, "ubi: an object is wanted"),
    ({"ubi": {"ubi0": {"leb_size": "x"}}}, "ubi.ubi0.leb_size: a number from 0 is wanted"),
    ({"ubi": {"ubi0": {"volumes": [{}]}}}, "ubi.ubi0.volumes[0].name: a name is wanted"),
])
def test_bad_record_of_a_device(kesto, change, fault):
    record = {**device(), **change} if isinstance(change, dict) else change
    kesto.file("device.json", b"nonsense" if change == "nonsense" else json.dumps(record).encode())
    kesto.file("in.rom", image_of(KERNEL))
    kesto.refuses(f"device.json: {fault}", "image", "check", "in.rom", "--bank", "2", "--device", "device.json")


def test_what_a_record_may_leave_out(kesto):
    assert found(check(kesto, image_of(KERNEL, ROOTFS_UBIFS_128KEB), "2", {"format": 1, "flash": [], "bootenv": {}})) == {
        "possible not-erased 0 serial"}
    record = copy.deepcopy(device())
    record["ubi"] = {"ubi0": None}
    assert found(check(kesto, image_of(KERNEL, ROOTFS_UBIFS_128KEB), "2", record, "--network")) == set()


def test_record_that_cannot_be_read(kesto):
    kesto.file("in.rom", image_of(KERNEL))
    for name, message in [("missing", "open error (No such file or directory)"), (".", "read error (Is a directory)")]:
        kesto.refuses(f"{name}: {message}", "image", "check", "in.rom", "--bank", "2", "--device", name)
    kesto.sparse("large", 1 << 40)
    kesto.refuses("large: too large for a device's record", "image", "check", "in.rom", "--bank", "2", "--device", "large")


def test_misuse_of_check(kesto):
    kesto.file("in.rom", image_of(KERNEL))
    name = "image check "
    for bank in ("", "3", "Single", "12"):
        kesto.misused(f"bad bank '{bank}', 1, 2 or single is wanted", "image", "check", "in.rom", "--bank", bank, command=name)
    kesto.misused("option '--bank' is missing", "image", "check", "in.rom", command=name)
    kesto.misused("option '--bank' needs a value", "image", "check", "in.rom", "--bank", command=name)
    kesto.misused("too few arguments", "image", "check", "--bank", "2", command=name)
    kesto.misused("too many arguments", "image", "check", "in.rom", "b", "--bank", "2", command=name)
    kesto.refuses("missing: open error (No such file or directory)", "image", "check", "missing", "--bank", "2")
    kesto.refuses(".: not a regular file", "image", "check", ".", "--bank", "2")


# --- JSON of info and verify


@pytest.mark.parametrize("command", ["info", "verify"])
def test_json_of_an_image(kesto, command):
    image = kesto.build("--version", "3.1.0.0R1", "--code", "AB", "--rootfs-size-kib", "51200", "--rootfs-tar", "a",
                        "--version", "none", "--code", "none", "--oem-defaults", "b")
    result = kesto.run("image", command, "--json", "out.rom")
    assert (result.returncode, result.stderr, result.stdout.count("\n")) == (0, "", 1)
    assert json.loads(result.stdout) == {
        "format": 1, "image": "out.rom", "size": 532, "ok": True, "fault": None,
        "parts": [
            {"part": 0, "offset": 0, "type": 12, "type_name": "firmware_rootfs_tar_lzma", "length": 10,
             "contents_checksum": f"{images.checksum(b'first part'):08x}", "header_checksum": f"{images.field(image, 16):08x}",
             "version": "3.1.0.0R1", "code": "AB", "next_header_flag": 1, "rootfs_size_kib": 51200, "total_size_kib": 0},
            {"part": 1, "offset": 266, "type": 11, "type_name": "oem_defaults", "length": 10,
             "contents_checksum": f"{images.checksum(b'the second'):08x}",
             "header_checksum": f"{images.field(image, 266 + 16):08x}",
             "version": None, "code": None, "next_header_flag": 0, "rootfs_size_kib": 0, "total_size_kib": 0}]}


def test_json_of_a_bad_header(kesto):
    kesto.file("bad.rom", patched(kesto.build("--kernel", "a", "--bootloader", "b"), 8, 1, 266))
    for command in ("info", "verify"):
        result = kesto.run("image", command, "bad.rom", "--json")
        report = json.loads(result.stdout)
        assert (result.returncode, result.stderr, len(report["parts"])) == (1, "", 1)
        assert report["fault"] == {"part": 1, "offset": 266, "text": "bad header", "device": "bad HeaderType in header"}


def test_json_of_verify_is_nothing_but_json(kesto):
    """Also where the device's code has an error to tell."""
    kesto.file("in.rom", image_of(5))
    result = kesto.run("image", "verify", "--json", "in.rom")
    assert (result.returncode, result.stderr) == (1, "")
    assert json.loads(result.stdout)["fault"]["text"] == (
        "the device has no place for contents of type 5 (firmware_rootfs_jffs2_or_ext2)")
    kesto.file("in.rom", image_of(KERNEL)[:-1] + b"x")
    assert json.loads(kesto.run("image", "verify", "--json", "in.rom").stdout)["fault"]["text"].startswith("contents checksum is ")


def test_names_that_are_no_text(kesto):
    kesto.build("--kernel", "a")
    (kesto.directory / "out.rom").rename(kesto.directory / "\udcff\".rom")
    for command in (["info"], ["verify"], ["check", "--bank", "2", "--network"]):
        result = kesto.run("image", *command, "--json", "\udcff\".rom")
        assert (result.returncode, json.loads(result.stdout)["image"]) == (0, "\ufffd\".rom")


@pytest.mark.parametrize("command", ["info", "verify", "check"])
def test_json_of_a_file_that_cannot_be_read(kesto, command):
    bank = ["--bank", "1"] if command == "check" else []
    kesto.refuses("missing: open error (No such file or directory)", "image", command, "--json", "missing", *bank)

"""Parts of an image that go into UBI volumes, arriving over a serial line or the network: state of the flash (clean, in
use) x type x event."""

import pytest

import images
from downloads import expect_at_rest
from network import command, start
from texts import FAILURE, INSTALLING, NOT_INSTALLED, PREPARING, SKIPPED_BOOT_ENV, SUCCESS

QUIET = " &> /dev/null"
ATTACH = [f"/usr/sbin/ubiattach /dev/ubi_ctrl -d 0 -p /dev/mtd10{QUIET}", f"/sbin/mdev -s{QUIET}"]
DETACH = [f"/usr/sbin/ubidetach /dev/ubi_ctrl -p /dev/mtd10{QUIET}"]
UNMOUNT = [f"/bin/umount /mnt{QUIET}"]
SCHEMA = ["/usr/sbin/fw_printenv -n bootbank 2>/dev/null"] * 2


def mount(volume):
    return [f"/bin/mount -t ubifs -o sync,compr=zlib ubi0:{volume} /mnt{QUIET}"]


def make(volume, size, name):
    return [f"/usr/sbin/ubimkvol /dev/ubi0 -n {volume} {size} -N {name}{QUIET}", f"/sbin/mdev -s{QUIET}"]


def switch_to(bank, kernel_size="0"):
    return [f"/usr/sbin/fw_setenv kernel_size_{bank} {kernel_size} > /dev/null 2>&1",
            f"/usr/sbin/fw_setenv bootbank {bank} > /dev/null 2>&1"]


UBI_SIZE = 0x400000
# Of 4 MiB: a quarter for each bank, two per cent for the private volume.
FORMAT = (DETACH + ["/usr/sbin/ubiformat /dev/mtd10 -y -q"] + ATTACH + make(0, "-s 1024KiB", "rootfs_1") +
          make(1, "-s 1024KiB", "rootfs_2") + make(2, "-s 1KiB", "rootfs_single") +
          make(3, "-s 81KiB", "vexo_private") + make(4, "-m", "vexo_user") + DETACH)
INSTALL_OEM = ATTACH + mount("vexo_private") + [
    f"/usr/bin/install -D -m644 /tmp/image.part /mnt/cfg/hidden.oem.xml{QUIET}"] + UNMOUNT + DETACH

PYTHON_SPACE = ["rm -rf /tmp/python 2>/dev/null", "mv /mnt/python/ /tmp/ 2>/dev/null",
                "mv /tmp/python /mnt/ 2>/dev/null"]
PYTHON_SAVE = ["rm -rf /tmp/site-packages/ 2>/dev/null",
               "cp -r /mnt/python/lib/python2.7/site-packages /tmp/ 2>/dev/null",
               "rm -rf /mnt/python/ 2>/dev/null", "mkdir -p /mnt/python/ 2>/dev/null"]
PYTHON_RESTORE = ["mkdir -p /mnt/python/lib/python2.7/site-packages/ 2>/dev/null",
                  "cp -r /tmp/site-packages/* /mnt/python/lib/python2.7/site-packages/ 2>/dev/null"]


def write_archive(volume=1, name="rootfs_2"):
    return (ATTACH + SCHEMA + [f"/usr/sbin/ubiupdatevol /dev/ubi0_{volume} -t"] + mount(name) +
            ["tar -mxJf - -C /mnt", "/bin/chmod 4755 /mnt/bin/busybox"] + UNMOUNT + DETACH)


def write_ubifs(size, volume=1):
    return ATTACH + SCHEMA + [f"/usr/sbin/ubiupdatevol /dev/ubi0_{volume} -s {size} -"] + DETACH


@pytest.fixture
def used(dev):
    """A device whose UBI partition is in use, in the dual schema, with the root file system's busybox in place."""
    dev.set_partitions(*((p.name, UBI_SIZE if p.name == "ubi0" else p.size, p.erase_size) for p in dev.partitions))
    dev.use_ubi()
    return dev


@pytest.fixture
def clean(used):
    used.partition("ubi0").fill()
    return used


def fed(dev, tool):
    """The size of what a tool was fed with."""
    return [int(event.fields[1]) for event in dev.events.of("input") if tool in event.fields[0]]


ARCHIVE = images.part(images.ROOTFS_TAR_LZMA, images.pattern(9001, 1))
UBIFS = images.part(images.ROOTFS_UBIFS_128KEB, images.pattern(8193, 2))
OEM = images.part(images.OEM_DEFAULTS, b"<oem/>")
PYTHON = images.part(images.PYTHON_SETUP, images.pattern(301, 3))


def test_archive_into_flash_in_use(used):
    used.boot()
    assert used.install(ARCHIVE).endswith(images.info(ARCHIVE) + SUCCESS)
    assert used.shell_lines == write_archive() + switch_to(2)
    assert fed(used, "tar") == [9001]
    assert used.env["bootbank"] == "2"
    expect_at_rest(used)


def test_archive_formats_clean_flash_first(clean):
    clean.boot()
    assert clean.install(ARCHIVE).endswith(SUCCESS)
    assert clean.shell_lines == FORMAT + write_archive() + switch_to(2)


def test_sizes_in_the_header_split_the_partition(clean):
    archive = images.part(images.ROOTFS_TAR_LZMA, b"archive", fields={
        images.ROOTFS_SIZE_KIB: 512, images.TOTAL_SIZE_KIB: 2048})
    clean.boot()
    assert clean.install(archive).endswith(SUCCESS)
    assert clean.env["mtdparts"] == "atmel_nand:2048k(ubi0),-(user)"
    assert [(p.name, p.size) for p in clean.partitions][-2:] == [("ubi0", 0x200000), ("user", UBI_SIZE - 0x200000)]
    assert "/usr/sbin/flash_erase -q /dev/mtd11 0 0" in clean.shell_lines
    assert make(0, "-s 512KiB", "rootfs_1")[0] in clean.shell_lines


def test_flash_that_cannot_be_formatted(clean):
    clean.answer("ubiformat", status=1)
    clean.boot()
    assert clean.install(ARCHIVE).endswith(
        "ERROR: system(/usr/sbin/ubiformat /dev/mtd10 -y -q) sys_rc=256 exitstatus=1\n"
        "ERROR: Failed to format ubi0\nERROR: Failed to write firmware image\n" + NOT_INSTALLED)
    clean.expect_not_ran("fw_setenv")


@pytest.mark.parametrize("bank, volume, name", [("1", 0, "rootfs_1"), ("2", 1, "rootfs_2")])
def test_ubifs_image_goes_into_the_volume_of_the_bank(used, bank, volume, name):
    used.boot()
    assert used.install(UBIFS, f"flash download serial {bank}").endswith(SUCCESS)
    assert used.shell_lines == write_ubifs(8193, volume) + switch_to(bank)
    assert fed(used, "ubiupdatevol") == [8193]


def test_single_bank_changes_the_schema(used):
    used.boot()
    screen = used.install(UBIFS, "flash download serial single")
    assert screen.endswith("NOTE: Changing rootfs bank schema for ubi0 to 'single'\n" + SUCCESS)
    resizes = [f"/usr/sbin/ubirsvol /dev/ubi0 -n {n} -S {lebs}{QUIET}" for n, lebs in ((0, 1), (1, 1), (2, 15))]
    assert used.shell_lines == (ATTACH + SCHEMA + resizes + ["/usr/sbin/ubiupdatevol /dev/ubi0_2 -s 8193 -"] + DETACH +
                                switch_to("single"))


def test_inconsistent_schema_is_refused_and_said(used):
    used.path("/sys/class/ubi/ubi0/ubi0_2/reserved_ebs").write_text("15\n")
    used.boot()
    assert used.install(UBIFS).endswith("ERROR: Rootfs schema mismatch. Expected dual, detected single.\n"
                                          "NOTE: Try full \"flash clean\" first.\n"
                                          "ERROR: Failed to write firmware image\n" + NOT_INSTALLED)
    used.expect_not_ran("ubiupdatevol", "ubirsvol", "fw_setenv")


def test_oem_defaults_are_installed_as_a_file(used):
    used.boot()
    assert used.install(OEM).endswith(images.info(OEM) + SUCCESS)
    assert used.shell_lines == INSTALL_OEM, "the boot bank is not touched"
    assert not used.path("/tmp/image.part").exists()


def test_oem_defaults_are_refused_by_clean_flash(clean):
    clean.boot()
    assert clean.install(OEM).endswith("ERROR: Cannot write OEM defaults file to clean flash\n"
                                         "ERROR: Failed to write firmware image\n" + NOT_INSTALLED)
    assert clean.shell_lines == []


def test_oem_defaults_behind_what_formats_the_flash(clean):
    """The stand-ins leave the flash as clean as it was, so the format itself is what makes it used."""
    archive = images.part(images.ROOTFS_TAR_LZMA, b"archive", more=True)
    clean.answer("ubiformat", delay=0.01)
    clean.boot()
    screen = clean.install(archive + OEM)
    assert screen.endswith("ERROR: Cannot write OEM defaults file to clean flash\n"
                           "ERROR: Failed to write firmware image\n" + NOT_INSTALLED)
    assert "bootbank" not in clean.env or clean.env["bootbank"] == "1"


def test_oem_defaults_that_cannot_be_installed(used):
    used.answer("install", status=1)
    used.boot()
    assert used.install(OEM).endswith(
        "ERROR: Failed to install file to /cfg//hidden.oem.xml within ubi0:vexo_private\n"
        "ERROR: Failed to write OEM defaults\nERROR: Failed to write firmware image\n" + NOT_INSTALLED)
    assert used.shell_lines == INSTALL_OEM
    assert not used.path("/tmp/image.part").exists()


def test_oem_defaults_that_stop_arriving(used):
    used.boot()
    screen = used.install(OEM[:-1])
    assert screen.endswith("ERROR: Failed to read firmware image [Connection timed out]\n"
                           "ERROR: Failed to write OEM defaults\nERROR: Failed to write firmware image\n" +
                           NOT_INSTALLED)
    assert not used.path("/tmp/image.part").exists()
    assert used.shell_lines == []


def test_python_is_a_self_contained_installation(used):
    used.boot()
    assert used.install(PYTHON).endswith(SUCCESS)
    lines = used.shell_lines
    assert lines[:3] == ATTACH + mount("vexo_user")
    assert "tar -xmzaf - -C /mnt/python/" in lines
    assert lines[-4:] == PYTHON_RESTORE + UNMOUNT + DETACH
    assert fed(used, "tar") == [301]


def test_whole_image_sets_the_kernel_size_and_switches_once_at_the_end(used):
    kernel = images.part(images.KERNEL, images.pattern(0xABC, 4), more=True)
    archive = images.part(images.ROOTFS_TAR_LZMA, b"archive", more=True)
    used.boot()
    screen = used.install(kernel + archive + OEM)
    assert screen.endswith(images.info(kernel) + images.info(archive) + images.info(OEM) + SUCCESS)
    assert used.shell_lines == write_archive() + INSTALL_OEM + switch_to(2, "ABC")


@pytest.mark.parametrize("image, tool", [(ARCHIVE, "tar"), (UBIFS, "ubiupdatevol")])
def test_corrupted_contents_leave_the_boot_bank(used, image, tool):
    used.boot()
    damaged = image[:300] + bytes([image[300] ^ 1]) + image[301:]
    screen = used.install(damaged)
    calculated, expected = images.checksum(damaged[256:]), images.field(damaged, images.CONTENTS_CHECKSUM)
    assert screen.endswith(f"ERROR: Failed checksum test: calculated 0x{calculated:x} vs 0x{expected:x}" +
                           NOT_INSTALLED)
    used.expect_not_ran("fw_setenv")
    assert used.shell_lines[-1:] == DETACH
    expect_at_rest(used)


@pytest.mark.parametrize("image, word", [
    (ARCHIVE, "firmware"), (UBIFS, "firmare"), (images.part(images.PYTHON_SETUP, images.pattern(9001, 6)), "firmware")])
def test_stream_that_stops_gives_the_device_back(used, image, word):
    used.boot()
    screen = used.install(image[:5000])
    assert screen.endswith(f"ERROR: Failed to read {word} image [Connection timed out]\n"
                           "ERROR: Failed to write firmware image\n" + NOT_INSTALLED)
    used.expect_not_ran("fw_setenv")
    assert used.shell_lines[-1:] == DETACH
    assert used.install(image).endswith(SUCCESS), "the next good installation works"


def test_tool_that_dies_costs_the_installation_not_the_shell(used):
    big = images.part(images.ROOTFS_TAR_LZMA, images.pattern(300000, 5))
    used.answer("tar", signal=9, reads=10)
    used.boot()
    screen = used.install(big)
    assert screen.endswith("ERROR: Failed to write firmware image [Broken pipe]\n"
                           "ERROR: \nError writing to pipe\n"
                           "ERROR: Failed to write firmware image\n" + NOT_INSTALLED)
    assert used.shell_lines[-2:] == UNMOUNT + DETACH


def test_header_that_lies_about_its_length_times_out(used):
    longer = {images.CONTENTS_LENGTH: 9002, images.FINAL_LENGTH: 9002}
    used.boot()
    screen = used.install(images.header(images.ROOTFS_TAR_LZMA, ARCHIVE[256:], fields=longer) + ARCHIVE[256:])
    assert "ERROR: Failed to read firmware image [Connection timed out]\n" in screen
    used.expect_not_ran("fw_setenv")


def test_boot_environment_behind_the_root_file_system_that_the_flash_was_formatted_for(clean):
    archive = images.part(images.ROOTFS_TAR_LZMA, images.pattern(9001, 1), more=True)
    clean.boot()
    clean.begin("flash download serial 2")
    clean.send_stream(archive)
    clean.wait_for("run", "ignored", "/bin/umount")
    clean.partition("ubi0").write(b"UBI#")
    clean.send(BOOT_ENV)
    assert clean.text_until_prompt() == images.info(archive) + images.info(BOOT_ENV) + SKIPPED_BOOT_ENV + SUCCESS
    assert clean.shell_lines == FORMAT + write_archive() + switch_to(2)
    assert clean.partition("bootenv_1").read(0, 4) == bytes(4)


# ---------------------------------------------------------------------- over the network

TFTP = 'tftp -g -r "image.rom" -l - 10.0.0.1'
NOT_PREPARED = "ERROR: Failed to prepare system\n" + FAILURE
LOADER = images.part(images.BOOTLOADER, b"loader", more=True)
BOOT_ENV = images.part(images.BOOT_ENV, images.pattern(3000))


def install(dev, image, bank="2", verbosity=3):
    """A network installation on a device that is started for it; what it showed from "Preparing ..." on."""
    dev.answer("tftp", stdout=image)
    dev.boot()
    start(dev)
    dev.command(f"verbose {verbosity}")
    shown = command(dev, f"flash download network {bank} 10.0.0.1 image.rom")
    assert shown.count(PREPARING) == 1
    return PREPARING + shown.partition(PREPARING)[2]


def update(size, volume=1):
    """A UBIFS image whose volume was made to suit it before."""
    return ATTACH + [f"/usr/sbin/ubiupdatevol /dev/ubi0_{volume} -s {size} -"] + DETACH


def test_network_archive_into_flash_in_use(used):
    assert install(used, ARCHIVE) == PREPARING + INSTALLING + images.info(ARCHIVE) + SUCCESS
    assert used.shell_lines == [TFTP, TFTP] + write_archive() + switch_to(2)


def test_network_archive_formats_clean_flash_between_the_transfers(clean):
    """The stand-ins leave the flash as clean as it was; the second transfer may not format it nevertheless."""
    assert install(clean, ARCHIVE) == PREPARING + INSTALLING + images.info(ARCHIVE) + SUCCESS
    assert clean.shell_lines == [TFTP] + FORMAT + [TFTP] + write_archive() + switch_to(2)


def test_network_ubifs_image_looks_at_the_schema_between_the_transfers(used):
    assert install(used, UBIFS) == PREPARING + INSTALLING + images.info(UBIFS) + SUCCESS
    assert used.shell_lines == [TFTP] + ATTACH + SCHEMA + DETACH + [TFTP] + update(8193) + switch_to(2)


def test_network_ubifs_image_formats_clean_flash_before_the_schema(clean):
    assert install(clean, UBIFS).endswith(SUCCESS)
    assert clean.shell_lines == [TFTP] + FORMAT + ATTACH + SCHEMA + DETACH + [TFTP] + update(8193) + switch_to(2)


def test_network_ubifs_image_changes_the_schema_between_the_transfers(used):
    assert install(used, UBIFS, "single") == (
        PREPARING + "NOTE: Changing rootfs bank schema for ubi0 to 'single'\n" + INSTALLING + images.info(UBIFS) +
        SUCCESS)
    resizes = [f"/usr/sbin/ubirsvol /dev/ubi0 -n {n} -S {lebs}{QUIET}" for n, lebs in ((0, 1), (1, 1), (2, 15))]
    assert used.shell_lines == ([TFTP] + ATTACH + SCHEMA + resizes + DETACH + [TFTP] + update(8193, 2) +
                                switch_to("single"))


@pytest.mark.parametrize("spoil, output", [
    (lambda dev: dev.path("/sys/class/ubi/ubi0/ubi0_2/reserved_ebs").write_text("15\n"),
     "ERROR: Rootfs schema mismatch. Expected dual, detected single.\nNOTE: Try full \"flash clean\" first.\n"),
    (lambda dev: dev.remove("/sys/class/ubi/ubi0/avail_eraseblocks"),
     "ERROR: Failed to discover all current rootfs volume sizes\n"),
], ids=["inconsistent", "not known"])
def test_network_schema_that_does_not_fit_ends_before_the_second_transfer(used, spoil, output):
    spoil(used)
    assert install(used, UBIFS) == PREPARING + output + NOT_PREPARED
    assert used.shell_lines == [TFTP] + ATTACH + SCHEMA[:1] + DETACH
    expect_at_rest(used)


def test_network_device_that_cannot_be_attached_ends_before_the_second_transfer(used):
    used.answer("ubiattach", status=1)
    assert install(used, UBIFS) == PREPARING + "ERROR: Failed to attach /dev/mtd10 to ubi0\n" + NOT_PREPARED
    assert used.shell_lines == [TFTP] + ATTACH + DETACH


def test_network_flash_that_cannot_be_formatted(clean):
    clean.answer("ubiformat", status=1)
    assert install(clean, ARCHIVE) == (
        PREPARING + "ERROR: system(/usr/sbin/ubiformat /dev/mtd10 -y -q) sys_rc=256 exitstatus=1\n" + NOT_PREPARED)
    assert clean.shell_lines == [TFTP] + FORMAT[:2]


def test_network_oem_defaults(used):
    assert install(used, OEM) == PREPARING + INSTALLING + images.info(OEM) + SUCCESS
    assert used.shell_lines == [TFTP, TFTP] + INSTALL_OEM


def test_network_oem_defaults_are_refused_by_clean_flash(clean):
    assert install(clean, OEM) == PREPARING + "ERROR: Cannot write OEM defaults file to clean flash\n" + NOT_PREPARED
    assert clean.shell_lines == [TFTP]


def test_network_python_saves_before_and_restores_after_the_second_transfer(used):
    assert install(used, PYTHON) == PREPARING + INSTALLING + images.info(PYTHON) + SUCCESS
    begin, end = ATTACH + mount("vexo_user"), UNMOUNT + DETACH
    assert used.shell_lines == ([TFTP] + begin + PYTHON_SPACE + PYTHON_SAVE + end +
                                [TFTP] + begin + ["tar -xmzaf - -C /mnt/python/"] + end + begin + PYTHON_RESTORE + end)


def test_network_boot_environment_is_erased_without_and_written_with_its_lock_bracket(clean):
    assert install(clean, BOOT_ENV) == PREPARING + INSTALLING + images.info(BOOT_ENV) + SUCCESS
    assert clean.shell_lines == [TFTP, "/usr/sbin/flash_erase -q /dev/mtd3 0 0", TFTP,
                                 "/usr/sbin/flash_unlock /dev/mtd3", "/usr/sbin/flash_lock /dev/mtd3 0 -1"]
    assert clean.partition("bootenv_1").read(0, 3000) == BOOT_ENV[256:]


def test_network_boot_environment_that_the_root_file_system_leaves_no_clean_flash_for(clean):
    """Erased while the flash was clean, dropped because the format for the root file system came in between."""
    environment = images.part(images.BOOT_ENV, images.pattern(3000), more=True)
    clean.answer("tftp", times=1, stdout=environment + ARCHIVE)
    clean.answer("tftp", times=1, stdout=environment + ARCHIVE, held="begin")
    clean.boot()
    start(clean)
    clean.mark()
    clean.type("flash download network 2 10.0.0.1 image.rom")
    clean.expect(INSTALLING)
    clean.partition("ubi0").write(b"UBI#")
    clean.release("tftp")
    assert clean.text_until_prompt() == images.info(environment) + SKIPPED_BOOT_ENV + images.info(ARCHIVE) + SUCCESS
    assert clean.shell_lines == ([TFTP, "/usr/sbin/flash_erase -q /dev/mtd3 0 0"] + FORMAT + [TFTP] + write_archive() +
                                 switch_to(2))
    assert clean.partition("bootenv_1").read(0, 3000) == b"\xff" * 3000


def test_network_preparing_at_verbosity_6(used):
    shown = install(used, LOADER + UBIFS, verbosity=6)
    destination = "VERBOSE: image_validate_destination: mtd_dev_name=/dev/ubi0_0\n"
    sysfs = "/sys/class/ubi/ubi0"
    assert shown.partition(INSTALLING)[0] == (
        PREPARING +
        "VERBOSE: Preparing system for bootloader\n" + destination +
        "VERBOSE: flash_erase_whole_partition mtd /dev/mtd2\n"
        "VERBOSE: system(/usr/sbin/flash_erase /dev/mtd2 0 0)\n"
        "VERBOSE: Preparing system for firmware_rootfs_ubifs_128keb\n" + destination +
        "VERBOSE: ubi_write_buffer_ubifs_fd mtd /dev/ubi0_1\n"
        "VERBOSE: system(/usr/sbin/ubiattach /dev/ubi_ctrl -d 0 -p /dev/mtd10)\n"
        "VERBOSE: system(/sbin/mdev -s)\n" +
        "".join(f"VERBOSE: ubi_get_volume_size_in_lebs: fopen({sysfs}/ubi0_{n}/reserved_ebs)\n" for n in range(3)) +
        f"VERBOSE: ubi_get_free_num_lebs: fopen({sysfs}/avail_eraseblocks)\n"
        "VERBOSE: Current # of LEB's: 1=8 2=8 S=1 free=0\n"
        "VERBOSE: No rootfs bank schema change needed. Still 'dual'\n"
        "VERBOSE: system(/usr/sbin/ubidetach /dev/ubi_ctrl -p /dev/mtd10)\n")

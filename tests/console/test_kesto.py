"""kesto, the technician's tool, as a program on a computer: what it builds to the byte, what it says, how it ends."""

import ctypes
import os
import resource
import signal
import struct
import subprocess
import time

import pytest

import images
from kesto_tool import patched
from texts import BANNER

pytestmark = pytest.mark.not_emulated(reason="a host tool, which never runs on the device's processor")

TYPES = images.TYPE_NAMES
OPTIONS = {"bootstrap": 1, "bootloader": 2, "boot-env": 3, "kernel": 4, "config-loader": 8, "rootfs-ubifs-16k": 10,
           "oem-defaults": 11, "rootfs-tar": 12, "rootfs-ubifs-128k": 13, "python": 14}
HEADER_SUM, TYPE, LENGTH, CHECKSUM, NEXT = 16, 24, 40, 52, 200


# --- image build: the bytes


def test_header_to_the_byte(kesto):
    kesto.file("one", b"\x01")
    image = kesto.build("--version", "3.1.0.0R1", "--code", "AB", "--rootfs-size-kib", 0x12345678,
                        "--total-size-kib", 0x9ABCDEF0, "--rootfs-tar", "one")
    assert image == bytes.fromhex(
        "4b4553544f2d3100"  # 0 "KESTO-1"
        "00000000"          # 8 header type
        "00000100"          # 12 header length
        # 16: the complement of 9a65fc0d, which is 4b455354 + 4f2d3100 + 100 + c + 03010000 + 52014142 + 1 + 1
        # + feffffff + feffffff + 12345678 + 9abcdef0 = 3_9a65fc0a with the carries added
        "659a03f2"
        "00000000"          # 20
        "0000000c"          # 24 contents type
        "00000000"          # 28 mangle type
        "030100005201"      # 32 version
        "4142"              # 38 product code
        "00000001"          # 40 contents length
        "00000001"          # 44 final length
        "00000000"          # 48
        "feffffff"          # 52 contents checksum
        + "00" * 36 +
        "feffffff"          # 92 final checksum
        + "00" * 36 +
        "00000000"          # 132 passcode type
        + "00" * 64 +
        "00000000"          # 200 next header flag
        "12345678"          # 204 size of the root file system
        "00000000"          # 208
        "9abcdef0"          # 212 size of the UBI partition
        + "00" * 40 +
        "01")


@pytest.mark.parametrize("option,number", OPTIONS.items())
def test_every_type_with_a_destination_has_an_option(kesto, option, number):
    image = kesto.build(f"--{option}", "a")
    assert images.field(image, TYPE) == number
    assert image[256:] == b"first part"


@pytest.mark.parametrize("number", range(15))
def test_general_part_by_name_and_number(kesto, number):
    names = [TYPES[number], str(number)] + [option for option, type in OPTIONS.items() if type == number]
    for name in names:
        result = kesto.run("image", "build", "-o", "out.rom", "--part", f"{name}=a")
        assert result.returncode == 0
        image = (kesto.directory / "out.rom").read_bytes()
        assert images.field(image, TYPE) == number
        # The device has no place for types 0, 6, 7 and 9, and refuses type 5 because it has no such partition.
        warning = (f"kesto: warning: part 0: the device has no place for contents of type {TYPES[number]} and will "
                   "refuse this image\n")
        assert result.stderr == (warning if number in (0, 5, 6, 7, 9) else "")


def test_file_names_may_hold_any_character(kesto):
    kesto.file("a=b, c:d", b"odd")
    assert kesto.build("--part", "kernel=a=b, c:d", "--kernel", "a=b, c:d").count(b"odd") == 2


def test_parts_stand_in_the_order_of_the_command_line(kesto):
    image = kesto.build("--kernel", "b", "--config-loader", "a", "--bootloader", "b")
    offsets = [0, 256 + 10, 2 * (256 + 10)]
    assert len(image) == 3 * (256 + 10)
    assert [images.field(image, offset + TYPE) for offset in offsets] == [4, 8, 2]
    assert [images.field(image, offset + NEXT) for offset in offsets] == [1, 1, 0]
    assert [image[offset + 256:offset + 266] for offset in offsets] == [b"the second", b"first part", b"the second"]


def test_traits_hold_for_the_parts_behind_them(kesto):
    image = kesto.build("--bootstrap", "a",
                        "--version", "1.2.3.4a5", "--code", "~ ", "--bootloader", "a", "--kernel", "a",
                        "--version", "255.0.10.255Z255", "--code", "none", "--kernel", "a",
                        "--version", "none", "--kernel", "a")
    traits = [image[offset + 32:offset + 40] for offset in range(0, len(image), 266)]
    first = b"\1\2\3\4a\5~ "
    assert traits == [bytes(8), first, first, b"\xff\0\x0a\xffZ\xff\0\0", bytes(8)]


@pytest.mark.parametrize("option,number", OPTIONS.items())
def test_sizes_are_for_root_file_systems(kesto, option, number):
    image = kesto.build("--rootfs-size-kib", 4294967295, "--total-size-kib", 1, f"--{option}", "a", "--rootfs-tar", "a")
    wanted = [(0xFFFFFFFF, 1) if number in (10, 12, 13) else (0, 0), (0xFFFFFFFF, 1)]
    assert [(images.field(image, part + 204), images.field(image, part + 212)) for part in (0, 266)] == wanted


@pytest.mark.parametrize("size", [1, 2, 3, 4, 5, 255, 256, 257, 4095, 262143, 262144, 262145, 1000003])
def test_lengths_and_checksums(kesto, size):
    contents = (b"\xff\xfe\xfd\x80 \x7f" * (size // 6 + 1))[:size]
    kesto.file("contents", contents)
    image = kesto.build("--kernel", "contents", "--boot-env", "a")
    assert image[256:256 + size] == contents
    assert [images.field(image, field) for field in (40, 44, 52, 92)] == [size, size, images.checksum(contents), images.checksum(contents)]
    for part in (0, 256 + size):
        assert patched(image, NEXT, images.field(image, part + NEXT), part) == image, "checksum of the header"
    assert kesto.run("image", "verify", "out.rom").stdout == f"out.rom: OK, 2 parts, {size + 2 * 256 + 10} bytes\n"


def test_holes_and_zeros_are_contents_like_any_other(kesto):
    # Data at places of every phase of a word, runs of zeros that are no hole, and a hole at the end.
    pieces = {0: b"\x11", 70001: b"\x22\x33", 300002: bytes(300000) + b"\x44", 900003: b"\x55\x66\x77\x88\x99"}
    size = 1500001
    contents = kesto.sparse("sparse", size, pieces).read_bytes()
    image = kesto.build("--kernel", "sparse", "--bootloader", "a")
    assert image[256:256 + size] == contents
    assert images.field(image, CHECKSUM) == images.checksum(contents)
    assert image[-10:] == b"first part"
    assert kesto.run("image", "verify", "out.rom").returncode == 0
    assert kesto.build("--bootloader", "a", "--kernel", "sparse")[-size:] == contents
    assert kesto.run("image", "verify", "out.rom").returncode == 0


def test_zeros_become_a_hole(kesto):
    kesto.file("zeros", bytes(4 << 20) + b"\x01")
    assert kesto.build("--kernel", "zeros")[256:] == bytes(4 << 20) + b"\x01"
    assert (kesto.directory / "out.rom").stat().st_blocks * 512 < 1 << 20


# The weight of the last byte in the word that it ends in.
@pytest.mark.parametrize("size,weight", [(2**31 - 1, 0x100), (2**31, 1), (2**32 - 1, 0x100)])
def test_lengths_around_2_31_and_2_32(kesto, size, weight):
    kesto.sparse("large", size, {0: b"\x80", size - 3: b"\x12\x34\x56"})
    result = kesto.run("image", "build", "-o", "out.rom", "--rootfs-ubifs-128k", "large", "--kernel", "a")
    assert (result.returncode, result.stderr) == (0, "")
    assert result.stdout == f"out.rom: 2 parts, {size + 256 + 266} bytes\n"
    image = kesto.directory / "out.rom"
    assert image.stat().st_size == size + 256 + 266
    assert image.stat().st_blocks * 512 < 1 << 20, "the hole was filled"
    with image.open("rb") as file:
        header = file.read(257)
        file.seek(256 + size - 4)
        assert file.read(12) == b"\0\x12\x34\x56KESTO-1\0"
    checksum = 0xFFFFFFFF - (0x80000000 + 0x123456 * weight)
    assert [images.field(header, field) for field in (40, 44, 52, 92, NEXT)] == [size, size, checksum, checksum, 1]
    assert header[256] == 0x80
    assert kesto.run("image", "verify", "out.rom").stdout == f"out.rom: OK, 2 parts, {size + 256 + 266} bytes\n"

    # The device shows lengths as its 32-bit numbers with a sign.
    info = kesto.run("image", "info", "out.rom").stdout
    assert f"  Contents Length: 0x{size:X} ({size if size < 2**31 else size - 2**32})\n" in info
    assert f"Part 1 at offset {size + 256}:\n" in info

    with image.open("r+b") as file:
        file.seek(256 + size - 1)
        file.write(b"\x57")
    assert kesto.run("image", "verify", "out.rom").stdout == (
        f"out.rom: part 0 at offset 0: contents checksum is 0x{checksum - weight:08X}, the header says "
        f"0x{checksum:08X}\n")


def test_contents_from_a_pipe(kesto):
    reading, writing = os.pipe()
    data = os.urandom(50001)
    os.write(writing, data)
    os.close(writing)
    result = kesto.run("image", "build", "-o", "out.rom", "--kernel", "/dev/stdin", stdin=reading)
    os.close(reading)
    image = (kesto.directory / "out.rom").read_bytes()
    assert (result.returncode, result.stderr) == (0, "")
    assert image[256:] == data
    assert images.field(image, CHECKSUM) == images.checksum(data)


# --- image build: the output file


def test_output_is_named_when_it_is_complete(kesto):
    pipe = kesto.directory / "pipe"
    os.mkfifo(pipe)
    old = kesto.file("out.rom", b"the old image")
    words = ["image", "build", "-o", "out.rom", "--kernel", "a", "--bootloader", "pipe"]
    with kesto.start(*words, stdout=subprocess.PIPE) as build:
        with pipe.open("wb") as writing:
            writing.write(b"half")
            writing.flush()
            wait_for_temporary_file(kesto, build.pid)
            assert old.read_bytes() == b"the old image"
        assert build.wait(10) == 0
    assert old.read_bytes()[-4:] == b"half"
    assert set(kesto.files()) == {"a", "b", "pipe", "out.rom"}


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_a_signal_leaves_nothing_behind(kesto, number):
    pipe = kesto.directory / "pipe"
    os.mkfifo(pipe)
    words = ["image", "build", "-o", "out.rom", "--kernel", "a", "--bootloader", "pipe"]
    with kesto.start(*words, stdout=subprocess.PIPE) as build:
        with pipe.open("wb"):
            wait_for_temporary_file(kesto, build.pid)
            build.send_signal(number)
            assert build.wait(10) == -number
    assert set(kesto.files()) == {"a", "b", "pipe"}


def wait_for_temporary_file(kesto, pid):
    """Until the header and contents of the first part stand in it."""
    deadline = time.monotonic() + 10
    path = kesto.directory / f"out.rom.kesto-{pid}"
    while not path.exists() or path.stat().st_size < 266:
        assert time.monotonic() < deadline
        time.sleep(0.01)


def test_output_follows_the_umask(kesto):
    result = kesto.run("image", "build", "-o", "out.rom", "--kernel", "a", umask=0o027)
    assert result.returncode == 0
    assert (kesto.directory / "out.rom").stat().st_mode & 0o7777 == 0o640


def test_output_behind_a_symbolic_link(kesto):
    (kesto.directory / "sub").mkdir()
    real = kesto.file("sub/real.rom", b"old")
    link = kesto.directory / "out.rom"
    link.symlink_to("sub/real.rom")
    image = kesto.build("--kernel", "a")
    assert link.is_symlink()
    assert real.read_bytes() == image


def test_output_is_an_input(kesto):
    (kesto.directory / "link").symlink_to("a")
    os.link(kesto.directory / "a", kesto.directory / "hard")
    for output, path in [("a", "a"), ("link", "a"), ("a", "link"), ("hard", "a"), ("./a", "a")]:
        kesto.refuses_build(f"{path}: is input and output", "-o", output, "--bootloader", "b", "--kernel", path)


def test_output_is_no_regular_file(kesto):
    # A pipe stands for all the devices that must not be replaced: a fault here is not to cost /dev/null.
    os.mkfifo(kesto.directory / "pipe")
    (kesto.directory / "directory").mkdir()
    for output in ("pipe", "directory"):
        kesto.refuses_build(f"{output}: not a regular file", "-o", output, "--kernel", "a")


def test_output_that_cannot_be_created(kesto):
    kesto.refuses_build("nowhere/out: create error (No such file or directory)", "-o", "nowhere/out", "--kernel", "a")
    kesto.refuses_build("a/out: create error (Not a directory)", "-o", "a/out", "--kernel", "a")


def test_write_error(kesto):
    kesto.file("out.rom", b"the old image")
    kesto.file("large", b"x" * 100000)
    kesto.refuses_build("out.rom: write error (File too large)",
                        "-o", "out.rom", "--kernel", "large",
                        preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (50000, 50000)))
    assert (kesto.directory / "out.rom").read_bytes() == b"the old image"


# --- image build: bad input


@pytest.mark.parametrize("name,message", [
    ("missing", "open error (No such file or directory)"),
    ("", "open error (No such file or directory)"),
    ("a/b", "open error (Not a directory)"),
    ("directory", "read error (Is a directory)"),
    ("empty", "is empty"),
    ("/dev/null", "is empty"),
    ("/proc/self/mem", "read error (Input/output error)"),
])
def test_bad_input_file(kesto, name, message):
    (kesto.directory / "directory").mkdir()
    kesto.file("empty", b"")
    kesto.refuses_build(f"{name}: {message}", "-o", "out.rom", "--kernel", "a", "--bootloader", name)


def test_unreadable_input_file(kesto):
    kesto.file("secret", b"x").chmod(0)
    kesto.refuses_build("secret: open error (Permission denied)", "-o", "out.rom", "--kernel", "secret",
                        preexec_fn=obey_file_modes)


def obey_file_modes():
    """Takes from root, for the program to be executed, what makes it pass over file modes."""
    for capability in (1, 2):  # CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH
        ctypes.CDLL(None).prctl(24, capability, 0, 0, 0)  # PR_CAPBSET_DROP


def test_file_of_4_gib_is_too_large(kesto):
    kesto.sparse("large", 2**32)
    kesto.refuses_build("large: too large, a part holds at most 4294967295 bytes",
                        "-o", "out.rom", "--kernel", "a", "--rootfs-tar", "large")


def test_pipe_of_4_gib_is_too_large(kesto):
    with subprocess.Popen(["head", "-c", str(2**32), "/dev/zero"], stdout=subprocess.PIPE) as source:
        kesto.refuses_build("/dev/stdin: too large, a part holds at most 4294967295 bytes",
                            "-o", "out.rom", "--kernel", "/dev/stdin", stdin=source.stdout)
        source.stdout.close()
    assert source.returncode == 0, "was not read to the last byte"


@pytest.mark.parametrize("text", ["", "3.1.0.0", "3.1.0.0R", "3.1.0R1", "3.1.0.0.0R1", "256.1.0.0R1", "3.1.0.256R1",
                                  "3.1.0.0R256", "-3.1.0.0R1", "+3.1.0.0R1", " 3.1.0.0R1", "3.1.0.0R1 ", "3.1.0.0 1",
                                  "3.1.0.0RR1", "3.1.0.071", "3,1,0,0R1", "3.1..0R1", "x", "None"])
def test_bad_version(kesto, text):
    kesto.refuses_build(f"bad version '{text}', one like 3.1.0.0R1 is wanted",
                        "-o", "out.rom", "--version", text, "--kernel", "a")


@pytest.mark.parametrize("text", ["", "A", "ABC", "A\x7f", "\x1fB", "A\n", "ä", "NONE"])
def test_bad_product_code(kesto, text):
    kesto.refuses_build(f"bad product code '{text}', two printable characters are wanted",
                        "-o", "out.rom", "--code", text, "--kernel", "a")


@pytest.mark.parametrize("option", ["--rootfs-size-kib", "--total-size-kib"])
@pytest.mark.parametrize("text", ["", "-1", "+1", " 1", "1 ", "1k", "0x10", "4294967296", "none"])
def test_bad_size(kesto, option, text):
    kesto.refuses_build(f"bad size '{text}', a number of KiB is wanted",
                        "-o", "out.rom", option, text, "--rootfs-tar", "a")


@pytest.mark.parametrize("name", ["", "rootfs", "Kernel", "kernel ", "unknown", "15", "-1", "4294967300", "firmware"])
def test_unknown_type(kesto, name):
    kesto.refuses_build(f"unknown contents type '{name}'", "-o", "out.rom", "--part", f"{name}=a")


@pytest.mark.parametrize("words,message", [
    ([], "no output file"),
    (["--kernel", "a"], "no output file"),
    (["-o", "", "--kernel", "a"], "no output file"),
    (["-o", "out.rom"], "no parts"),
    (["-o"], "option '-o' needs a value"),
    (["-o", "out.rom", "--kernel"], "option '--kernel' needs a value"),
    (["-o", "out.rom", "--kernal", "a"], "option '--kernal' is not known here"),
    (["-o", "out.rom", "--rootfs-ubifs", "a"], "option '--rootfs-ubifs' is not known here"),  # could be two
    (["-xo", "out.rom", "--kernel", "a"], "option '-x' is not known here"),
    (["-o", "out.rom", "--kernel", "a", "b"], "'b' belongs to no option"),
    (["-o", "out.rom", "--part", "kernel"], "bad part 'kernel', TYPE=FILE is wanted"),
    (["-o", "out.rom", "--kernel", "a", "--version", "1.1.1.1R1"],
     "--version holds for parts behind it, and there is none"),
    (["-o", "out.rom", "--kernel", "a", "--code", "AB"], "--code holds for parts behind it, and there is none"),
    (["-o", "out.rom", "--rootfs-size-kib", "1", "--kernel", "a"],
     "--rootfs-size-kib holds for root file systems behind it, and there is none"),
    (["-o", "out.rom", "--rootfs-tar", "a", "--total-size-kib", "1", "--kernel", "a"],
     "--total-size-kib holds for root file systems behind it, and there is none"),
])
def test_misuse_of_build(kesto, words, message):
    kesto.misused(message, "image", "build", *words)


# --- image info and image verify


def test_info(kesto):
    kesto.build("--version", "3.1.0.0R1", "--code", "AB", "--rootfs-size-kib", "51200", "--rootfs-ubifs-16k", "a",
                "--version", "none", "--code", "none", "--oem-defaults", "b")
    result = kesto.run("image", "info", "out.rom")
    assert (result.returncode, result.stderr) == (0, "")
    assert result.stdout == (
        "Part 0 at offset 0:\n"
        "Image info:\n"
        "  Contents Type: firmware_rootfs_ubifs_16keb (10)\n"
        "  Contents Length: 0xA (10)\n"
        f"  Contents Checksum: 0x{images.checksum(b'first part'):08X}\n"
        "  Contents Version: 3.1.0.0R1\n"
        "  Product Code: AB\n"
        "  Next Header Flag: 1\n"
        "  Rootfs Size: 51200 KiB\n"
        "  Total Size: default\n"
        "Part 1 at offset 266:\n"
        "Image info:\n"
        "  Contents Type: oem_defaults (11)\n"
        "  Contents Length: 0xA (10)\n"
        f"  Contents Checksum: 0x{images.checksum(b'the second'):08X}\n"
        "  Contents Version: none\n"
        "  Product Code: none\n"
        "  Next Header Flag: 0\n"
        "  Rootfs Size: default\n"
        "  Total Size: default\n")


def test_info_goes_on_behind_a_part_without_destination(kesto):
    kesto.run("image", "build", "-o", "out.rom", "--part", "recovery_loader=a", "--kernel", "b")
    result = kesto.run("image", "info", "out.rom")
    assert result.returncode == 0
    assert "  Contents Type: recovery_loader (7)\n" in result.stdout
    assert "  Product Code: none\nERROR: Contents Type 7 not supported\n  Next Header Flag: 1\n" in result.stdout
    assert "  Contents Type: firmware_kernel (4)\n" in result.stdout


def test_info_does_not_look_at_contents_and_flags(kesto):
    image = kesto.build("--kernel", "a", "--bootloader", "b")
    broken = patched(image, NEXT, 0x10203)
    broken = patched(broken, NEXT, 7, part=266)
    kesto.file("broken", broken.replace(b"first", b"worst"))
    result = kesto.run("image", "info", "broken")
    assert result.returncode == 0
    assert [line for line in result.stdout.splitlines() if "Next" in line] == ["  Next Header Flag: 66051",
                                                                             "  Next Header Flag: 7"]


# What is wrong with the second part of an image, and what is said about it. The first word of a message that is the
# device's own is ERROR.
HEADER_FAULTS = {
    "id": (0, b"KESTO-2", "ERROR: bad Header ID in header\n"),
    "end of id": (7, b"x", "ERROR: bad Header ID in header\n"),
    "header type": (8, 1, "ERROR: bad HeaderType in header\n"),
    "header length": (12, 255, "ERROR: bad HeaderLength in header\n"),
    "mangle type": (28, 0x01000000, "ERROR: bad ContentsMangleType in header\n"),
    "final length": (44, 11, "ERROR: ContentsLength/ContentsFinalLength mismatch\n"),
    "passcode type": (132, 1, "ERROR: bad ContentsPasscodeType\n"),
    "final checksum": (92, 1, "ERROR: image_header_verify: ContentsChecksum32/ContentsFinalChecksum32 mismatch\n"),
}


@pytest.mark.parametrize("command", ["info", "verify"])
@pytest.mark.parametrize("fault", HEADER_FAULTS)
def test_bad_header(kesto, command, fault):
    offset, value, message = HEADER_FAULTS[fault]
    image = kesto.build("--kernel", "a", "--bootloader", "b")
    kesto.file("bad.rom", patched(image, offset, value, part=266))
    result = kesto.run("image", command, "bad.rom")
    assert (result.returncode, result.stderr) == (1, "")
    assert result.stdout.endswith(message + "bad.rom: part 1 at offset 266: bad header\n")
    assert result.stdout.count("part 1") == 1
    assert command == "info" or result.stdout.startswith(message)


@pytest.mark.parametrize("command", ["info", "verify"])
@pytest.mark.parametrize("offset", [20, 23, 24, 32, 38, 48, 56, 100, 140, 203, 204, 208, 212, 216, 252])
def test_header_checksum_covers_every_field(kesto, command, offset):
    image = kesto.build("--kernel", "a")
    bad = patched(image, offset, images.field(image, offset) ^ 0x01000000, resum=False)
    kesto.file("bad.rom", bad)
    stored = struct.unpack("<I", image[16:20])[0]
    calculated = images.field(patched(bad, 0, b"K"), HEADER_SUM)
    result = kesto.run("image", command, "bad.rom")
    assert (result.returncode, result.stderr) == (1, "")
    # The device reads the stored number in the order of its own memory when it shows it.
    assert result.stdout == (f"ERROR: Header Checksum failed! Expected 0x{stored:x} and calculated 0x{calculated:x}\n"
                             "bad.rom: part 0 at offset 0: bad header\n")


@pytest.mark.parametrize("command", ["info", "verify"])
@pytest.mark.parametrize("size,message", [
    (0, "part 0 at offset 0: header ends after 0 of 256 bytes"),
    (1, "part 0 at offset 0: header ends after 1 of 256 bytes"),
    (255, "part 0 at offset 0: header ends after 255 of 256 bytes"),
    (256, "part 0 at offset 0: contents end after 0 of 10 bytes"),
    (265, "part 0 at offset 0: contents end after 9 of 10 bytes"),
    (267, "part 1 at offset 266: header ends after 1 of 256 bytes"),
    (531, "part 1 at offset 266: contents end after 9 of 10 bytes"),
])
def test_file_that_is_too_short(kesto, command, size, message):
    image = kesto.build("--kernel", "a", "--bootloader", "b")
    kesto.file("short.rom", image[:size])
    result = kesto.run("image", command, "short.rom")
    assert (result.returncode, result.stderr) == (1, "")
    assert result.stdout.splitlines()[-1] == f"short.rom: {message}"
    assert command == "info" or result.stdout.count("\n") == 1


def test_contents_of_nearly_4_gib_that_are_not_there(kesto):
    image = kesto.build("--kernel", "a")
    image = patched(patched(image, 40, 0xFFFFFFFF), 44, 0xFFFFFFFF)
    kesto.file("short.rom", image)
    assert kesto.run("image", "verify", "short.rom").stdout == (
        "short.rom: part 0 at offset 0: contents end after 10 of 4294967295 bytes\n")


@pytest.mark.parametrize("number", range(16))
def test_verify_destination(kesto, number):
    kesto.file("typed.rom", patched(kesto.build("--kernel", "a"), TYPE, number))
    result = kesto.run("image", "verify", "typed.rom")
    name = TYPES[number] if number < 15 else "unknown"
    refused = f"typed.rom: part 0 at offset 0: the device has no place for contents of type {number} ({name})\n"
    if number in OPTIONS.values():
        expected = (0, "typed.rom: OK, 1 part, 266 bytes\n")
    elif number == 5:
        expected = (1, "ERROR: No partition for rootfs image\n" + refused)
    else:
        expected = (1, refused)
    assert (result.returncode, result.stdout, result.stderr) == (*expected, "")


@pytest.mark.parametrize("offset", [256, 261, 265])
def test_verify_contents(kesto, offset):
    image = bytearray(kesto.build("--kernel", "a"))
    image[offset] ^= 4
    kesto.file("bad.rom", image)
    result = kesto.run("image", "verify", "bad.rom")
    assert (result.returncode, result.stderr) == (1, "")
    assert result.stdout == (f"bad.rom: part 0 at offset 0: contents checksum is 0x{images.checksum(image[256:]):08X}, "
                             f"the header says 0x{images.checksum(b'first part'):08X}\n")


@pytest.mark.parametrize("part,flag,message", [
    (0, 0, "part 0 at offset 0: says that it is the last one, but 266 bytes follow"),
    (266, 1, "part 1 at offset 266: promises another part, but the file ends"),
    (266, 0x80000000, "part 1 at offset 266: promises another part, but the file ends"),
    (0, 0x80000000, None),
])
def test_verify_flag(kesto, part, flag, message):
    kesto.file("bad.rom", patched(kesto.build("--kernel", "a", "--bootloader", "b"), NEXT, flag, part))
    result = kesto.run("image", "verify", "bad.rom")
    assert result.stdout == (f"bad.rom: {message}\n" if message else "bad.rom: OK, 2 parts, 532 bytes\n")
    assert (result.returncode, result.stderr) == (1 if message else 0, "")


def test_verify_trailer(kesto):
    kesto.file("bad.rom", kesto.build("--kernel", "a") + b"\0")
    assert kesto.run("image", "verify", "bad.rom").stdout == (
        "bad.rom: part 0 at offset 0: says that it is the last one, but 1 bytes follow\n")


@pytest.mark.parametrize("command", ["info", "verify"])
def test_file_that_cannot_be_read(kesto, command):
    kesto.refuses("missing: open error (No such file or directory)", "image", command, "missing")
    kesto.refuses(".: not a regular file", "image", command, ".")
    kesto.refuses("/dev/null: not a regular file", "image", command, "/dev/null")


@pytest.mark.parametrize("command", ["info", "verify"])
def test_misuse_of_info_and_verify(kesto, command):
    name = f"image {command} "
    kesto.misused("too few arguments", "image", command, command=name)
    kesto.misused("too many arguments", "image", command, "a", "b", command=name)
    kesto.misused("option '-x' is not known here", "image", command, "-x", "a", command=name)
    kesto.misused("option '--long' is not known here", "image", command, "--long", "a", command=name)
    kesto.misused("option '--help=me' is not known here", "image", command, "--help=me", command=name)


# --- the program


@pytest.mark.parametrize("words,message", [
    ([], "no command"),
    (["image"], "no command 'image'"),
    (["image", "--verbose"], "no command 'image'"),
    (["image", "make"], "no command 'image make'"),
    (["imag", "build"], "no command 'imag build'"),
    (["image build"], "no command 'image build'"),
    (["--verbose"], "no command '--verbose'"),
    (["build", "-o", "out.rom"], "no command 'build'"),
])
def test_no_such_command(kesto, words, message):
    kesto.misused(message, *words, command="")


@pytest.mark.parametrize("name", ["image", "verify", "info", "--", "{}", "[a]", "-"])
def test_operands_may_have_any_name(kesto, name):
    kesto.build("--kernel", "a")
    (kesto.directory / "out.rom").rename(kesto.directory / name)
    words = ["--", name] if name == "--" else [name]
    assert kesto.run("image", "verify", *words).stdout == f"{name}: OK, 1 part, 266 bytes\n"
    assert kesto.build("--kernel", name)[256:] == (kesto.directory / name).read_bytes()


@pytest.mark.parametrize("option", ["-h", "--help"])
def test_help(kesto, option):
    result = kesto.run(option)
    assert (result.returncode, result.stderr) == (0, "")
    assert result.stdout.startswith("NAME\n  kesto - ")
    sections = [line for line in result.stdout.splitlines() if line.isupper()]
    assert sections == ["NAME", "SYNOPSIS", "COMMANDS", "EXIT STATUS", "EXAMPLES"]
    for command in ("build", "info", "verify"):
        assert f"\n  kesto image {command} " in result.stdout
        own = kesto.run("image", command, option)
        assert (own.returncode, own.stderr) == (0, "")
        assert own.stdout.startswith(f"usage: kesto image {command} ")
    assert max(map(len, result.stdout.splitlines())) < 110


def test_version(kesto):
    """It is the shell's own, which stands in its banner."""
    found = kesto.run("--version")
    version = BANNER.split()[-2].removeprefix("v")
    assert (found.returncode, found.stdout, found.stderr) == (0, f"kesto {version}\n", "")
    assert kesto.run("--version", "image").stdout == found.stdout
    kesto.misused("option '--version=1' is not known here", "--version=1", command="")


def test_help_of_build_shows_every_option(kesto):
    shown = kesto.run("image", "build", "--help").stdout
    for option in [*OPTIONS, "output", "part", "version", "code", "rootfs-size-kib", "total-size-kib"]:
        assert f"--{option} " in shown


@pytest.mark.parametrize("words", [["--help"], ["image", "build", "--help"], ["image", "info", "out.rom"],
                                   ["image", "verify", "out.rom"]])
def test_standard_output_that_cannot_be_written(kesto, words):
    kesto.build("--kernel", "a")
    with open("/dev/full", "wb") as full:
        result = subprocess.run([kesto.program, *words], cwd=kesto.directory, stdout=full, stderr=subprocess.PIPE)
    assert result.returncode == 1
    assert result.stderr == b"kesto: standard output: write error (No space left on device)\n"

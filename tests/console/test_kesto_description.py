"""kesto image build --description and kesto image extract: an image as text and files, and back to the same bytes."""

import json
import os
import random
import re
import resource
import signal
import subprocess
import time
from pathlib import Path

import pytest

import images
from kesto_tool import patched

pytestmark = pytest.mark.not_emulated(reason="a host tool, which never runs on the device's processor")

OPTIONS = {1: "bootstrap", 2: "bootloader", 3: "boot-env", 4: "kernel", 8: "config-loader", 10: "rootfs-ubifs-16k",
           11: "oem-defaults", 12: "rootfs-tar", 13: "rootfs-ubifs-128k", 14: "python"}
# What a header may say beside what follows from its contents.
FREE_BYTES = [*range(20, 24), *range(32, 40), *range(48, 52), *range(56, 92), *range(96, 132), *range(136, 256)]


def write(kesto, text, name="image.toml"):
    return kesto.file(name, text.encode())


def described(kesto, text, *words) -> bytes:
    write(kesto, text)
    return kesto.build(*words, "--description", "image.toml")


def refused(kesto, message, text):
    write(kesto, text)
    kesto.refuses_build(f"image.toml:{message}", "-o", "out.rom", "--description", "image.toml")


# --- descriptions


def test_description_and_command_line_give_the_same_bytes(kesto):
    by_words = kesto.build("--version", "3.1.0.0R1", "--code", "AB", "--bootloader", "a", "--version", "3.2.0.0R1",
                           "--rootfs-size-kib", 51200, "--total-size-kib", 131072, "--rootfs-tar", "b",
                           "--version", "none", "--code", "none", "--kernel", "a")
    assert described(kesto, """
        version = "3.1.0.0R1"
        code = "AB"

        [[part]]
        type = "bootloader"
        file = "a"

        [[part]]
        type = "firmware_rootfs_tar_lzma"
        file = "b"
        version = "3.2.0.0R1"
        rootfs-size-kib = 51_200
        total-size-kib = 0x20000

        [[part]]
        type = 4
        file = "a"
        version = "none"
        code = "none"
        """) == by_words


def test_traits_of_the_command_line_hold_where_the_description_names_none(kesto):
    image = described(kesto, '[[part]]\ntype = "kernel"\nfile = "a"\n[[part]]\ntype = "kernel"\nfile = "a"\ncode = "ZZ"\n',
                      "--version", "1.2.3.4a5", "--code", "AB", "--bootloader", "b")
    assert [image[at + 32:at + 40] for at in (0, 266, 532)] == [b"\1\2\3\4a\5AB", b"\1\2\3\4a\5AB", b"\1\2\3\4a\5ZZ"]


def test_a_description_is_parts_among_others(kesto):
    write(kesto, '[[part]]\ntype = "bootloader"\nfile = "a"\n')
    image = kesto.build("--kernel", "b", "--description", "image.toml", "--oem-defaults", "b")
    assert [images.field(image, at + 24) for at in (0, 266, 532)] == [4, 2, 11]


def test_files_are_beside_their_description(kesto):
    (kesto.directory / "sub").mkdir()
    kesto.file("sub/c", b"of the sub directory")
    write(kesto, f'[[part]]\ntype = 4\nfile = "c"\n[[part]]\ntype = 8\nfile = "{kesto.directory}/a"\n', "sub/image.toml")
    image = kesto.build("--description", "sub/image.toml")
    assert image[256:276] == b"of the sub directory"
    assert image.endswith(b"first part")
    absolute = kesto.build("--description", kesto.directory / "sub/image.toml")
    assert absolute == image


def test_bytes_of_the_header(kesto):
    image = described(kesto, """
        [[part]]
        type = "kernel"
        file = "a"
        header-bytes = { 20 = "00ff", 200 = "80000000", 255 = "A5" }
        [[part]]
        type = "kernel"
        empty = true
        """)
    assert image[20:22] == b"\0\xff"
    assert image[200:204] == b"\x80\0\0\0"
    assert image[255] == 0xA5
    assert patched(image, 20, image[20:22]) == image, "checksum of the header"
    assert len(image) == 2 * 256 + 10


def test_a_type_that_no_device_knows(kesto):
    write(kesto, '[[part]]\ntype = 4294967295\nfile = "a"\n')
    result = kesto.run("image", "build", "-o", "out.rom", "--description", "image.toml")
    assert (result.returncode, result.stderr) == (
        0, "kesto: warning: part 0: the device has no place for contents of type unknown and will refuse this image\n")
    assert images.field((kesto.directory / "out.rom").read_bytes(), 24) == 0xFFFFFFFF


@pytest.mark.parametrize("line,message", [
    ('type = "kernal"', "3: unknown contents type 'kernal'"),
    ('type = -1', "3: type is a number from 0 to 4294967295"),
    ('type = 4294967296', "3: type is a number from 0 to 4294967295"),
    ('type = 4.0', "3: type is a text"),
    ('type = "kernel"\nversion = "3.1"', "4: bad version '3.1', one like 3.1.0.0R1 is wanted"),
    ('type = "kernel"\nversion = 3', "4: version is a text"),
    ('type = "kernel"\ncode = "ABC"', "4: bad product code 'ABC', two printable characters are wanted"),
    ('type = "kernel"\nverison = "3.1.0.0R1"', "4: unknown key 'verison'"),
    ('type = "kernel"\nrootfs-size-kib = 1', "4: sizes are for root file systems"),
    ('type = "rootfs-tar"\nrootfs-size-kib = 4294967296', "4: rootfs-size-kib is a number from 0 to 4294967295"),
    ('type = "kernel"\nheader-bytes = "00"', "4: header-bytes is a table of offsets and hexadecimal digits"),
    ('type = "kernel"\nheader-bytes = { x = "00" }', "4: 'x' is no offset in a header"),
    ('type = "kernel"\nheader-bytes = { 20 = "0" }', "4: pairs of hexadecimal digits are wanted, not '0'"),
    ('type = "kernel"\nheader-bytes = { 20 = "0g" }', "4: pairs of hexadecimal digits are wanted, not '0g'"),
    ('type = "kernel"\nheader-bytes = { 255 = "0000" }', "4: byte 256 of a header is not free"),
    ('type = "kernel"\nheader-bytes = { 4294967295 = "00" }', "4: byte 4294967295 of a header is not free"),
    ('type = "kernel"\nempty = true', "1: the part is empty and has a file"),
    ('type = "kernel"\nempty = 1', "4: empty is true or false"),
    ("", "1: the part has no type"),
])
def test_bad_part(kesto, line, message):
    refused(kesto, message, f'[[part]]\nfile = "a"\n{line}\n')


@pytest.mark.parametrize("offset", [0, 7, 8, 12, 16, 19, 24, 28, 31, 40, 47, 52, 55, 92, 95, 132, 135])
def test_bytes_that_follow_from_the_contents(kesto, offset):
    refused(kesto, f"4: byte {offset} of a header is not free",
            f'[[part]]\ntype = 4\nfile = "a"\nheader-bytes = {{ {offset} = "00" }}\n')


@pytest.mark.parametrize("text,message", [
    ("", "1: no [[part]]"),
    ("# nothing\n", "1: no [[part]]"),
    ("part = 3\n", "1: parts are written [[part]]"),
    ("part = [ 3 ]\n", "1: parts are written [[part]]"),
    ("\nparts = 3\n", "2: unknown key 'parts'"),
    ('version = "x"\n', "1: bad version 'x', one like 3.1.0.0R1 is wanted"),
    ('[[part]]\ntype = 4\n', "1: the part has no file"),
    ('[[part]]\ntype = 4\nfile = "a\\u0000b"\n', "3: file is a text"),
    ('[[part]]\ntype = 4\nfile = "a"\n' * 1001, "1: more than 1000 parts"),
])
def test_bad_description(kesto, text, message):
    refused(kesto, message, text)


@pytest.mark.parametrize("text,line", [('[[part]\n', 1), ('[[part]]\ntype = "kernel\n', 2), ('[[part]]\ntype = 4\ntype = 4\n', 3),
                                       ("\xe9 = 1\n", 1), ("[[part]]\nfile = a\n", 2)])
def test_no_toml(kesto, text, line):
    kesto.file("image.toml", text.encode("latin-1"))
    result = kesto.run("image", "build", "-o", "out.rom", "--description", "image.toml")
    assert result.returncode == 1
    assert result.stderr.startswith(f"kesto: image.toml:{line}: ")
    assert result.stderr.count("\n") == 1
    assert not (kesto.directory / "out.rom").exists()


def test_description_that_cannot_be_read(kesto):
    for name, message in [("missing", "open error (No such file or directory)"), (".", "read error (Is a directory)")]:
        kesto.refuses_build(f"{name}: {message}", "-o", "out.rom", "--description", name)
    kesto.sparse("large", 1 << 40)
    kesto.refuses_build("large: too large for a description", "-o", "out.rom", "--description", "large")


def test_part_of_a_description_that_is_missing(kesto):
    (kesto.directory / "sub").mkdir()
    write(kesto, '[[part]]\ntype = 4\nfile = "c"\n', "sub/image.toml")
    kesto.refuses_build("sub/c: open error (No such file or directory)", "-o", "out.rom", "--description", "sub/image.toml")


def examples() -> list[Path]:
    return sorted((Path(__file__).resolve().parents[2] / "docs/images").glob("*.toml"))


@pytest.mark.parametrize("example", examples(), ids=lambda path: path.stem)
def test_examples_of_the_documents(kesto, example):
    text = example.read_text()
    for name in re.findall(r'^file = "(.*)"$', text, re.M):
        kesto.file(name, name.encode())
    image = described(kesto, text)
    check = json.loads(kesto.run("image", "check", "out.rom", "--bank", "1", "--serial", "--json").stdout)
    assert not [line for line in check["findings"] if line["severity"] in ("refused", "danger")]
    there_and_back(kesto, image)


def test_there_is_an_example_for_every_type():
    assert {name for path in examples() for name in re.findall(r'^type = "(.*)"$', path.read_text(), re.M)} == set(OPTIONS.values())


# --- extract


def extract(kesto, image, directory="parts"):
    result = kesto.run("image", "extract", image, "-d", directory)
    assert (result.returncode, result.stderr) == (0, "")
    return result.stdout


def there_and_back(kesto, image: bytes) -> dict[str, bytes]:
    """The image is extracted and built again, and is the same. Result: the files it consists of."""
    kesto.file("in.rom", image)
    extract(kesto, "in.rom")
    result = kesto.run("image", "build", "-o", "out.rom", "--description", "parts/image.toml")
    assert result.returncode == 0, result.stderr
    assert (kesto.directory / "out.rom").read_bytes() == image
    return {path.name: path.read_bytes() for path in (kesto.directory / "parts").iterdir()}


@pytest.mark.parametrize("number", [*range(15), 15, 99, 0xFFFFFFFF])
def test_every_type_there_and_back(kesto, number):
    files = there_and_back(kesto, images.part(number, b"contents") if number < 15 else
                           patched(images.part(4, b"contents"), 24, number))
    name = OPTIONS.get(number) or (images.TYPE_NAMES[number] if number < 15 else "unknown")
    assert set(files) == {"image.toml", f"0-{name}"}
    assert files[f"0-{name}"] == b"contents"


def test_description_of_an_image(kesto):
    image = kesto.build("--version", "3.1.0.0R1", "--code", '"\\', "--bootloader", "a", "--rootfs-size-kib", 5,
                        "--rootfs-ubifs-128k", "b")
    files = there_and_back(kesto, patched(image, 20, 0x0A0B0C0D, 266))
    assert files["image.toml"].decode() == (
        "# For 'kesto image build -o OUT --description THIS_FILE'.\n"
        "\n"
        "[[part]]\n"
        'type = "bootloader"\n'
        'file = "0-bootloader"\n'
        'version = "3.1.0.0R1"\n'
        'code = "\\"\\\\"\n'
        "\n"
        "[[part]]\n"
        'type = "rootfs-ubifs-128k"\n'
        'file = "1-rootfs-ubifs-128k"\n'
        'version = "3.1.0.0R1"\n'
        'code = "\\"\\\\"\n'
        "rootfs-size-kib = 5\n"
        "[part.header-bytes]\n"
        '20 = "0a0b0c0d"\n')


@pytest.mark.parametrize("offset", FREE_BYTES)
def test_every_free_byte_of_a_header_there_and_back(kesto, offset):
    image = kesto.build("--version", "3.1.0.0R1", "--code", "AB", "--rootfs-size-kib", 1, "--rootfs-tar", "a", "--kernel", "b")
    first = bytes([image[offset] ^ 0xA5 or 1])
    last = bytes([image[offset] ^ 0x5A])
    image = patched(image, offset, first)
    # The flag of the last part is 0, and no other byte would do.
    there_and_back(kesto, image if offset in range(200, 204) else patched(image, offset, last, 266))


@pytest.mark.parametrize("seed", range(8))
def test_any_image_there_and_back(kesto, seed):
    make = random.Random(seed)
    count = make.randint(1, 6)
    image = b""
    for number in range(count):
        part = bytearray(images.part(make.randrange(15), make.randbytes(make.choice([1, 2, 3, 255, 256, 4097, 262147])),
                                     more=number + 1 < count))
        for offset in make.sample(FREE_BYTES, make.randint(0, len(FREE_BYTES))):
            part[offset] = part[offset] if 200 <= offset < 204 and number + 1 == count else make.randrange(1, 256)
        image += patched(bytes(part), 20, bytes(part[20:24]))
    there_and_back(kesto, image)


def test_a_part_without_contents_there_and_back(kesto):
    files = there_and_back(kesto, images.part(4, b"", more=True) + images.part(11, b"x"))
    assert set(files) == {"image.toml", "1-oem-defaults"}


def test_holes_and_lengths_around_2_31_there_and_back(kesto):
    size = 2**31 + 5
    kesto.sparse("large", size, {1: b"\x80", 2**31 - 1: b"\x12\x34\x56"})
    assert kesto.run("image", "build", "-o", "in.rom", "--rootfs-ubifs-128k", "large", "--kernel", "a").returncode == 0
    extract(kesto, "in.rom")
    contents = kesto.directory / "parts" / "0-rootfs-ubifs-128k"
    assert contents.stat().st_size == size
    assert contents.stat().st_blocks * 512 < 1 << 20, "the hole was filled"
    assert kesto.run("image", "build", "-o", "out.rom", "--description", "parts/image.toml").returncode == 0
    assert subprocess.run(["cmp", "in.rom", "out.rom"], cwd=kesto.directory).returncode == 0


def test_what_extract_says(kesto):
    kesto.build("--kernel", "a")
    assert extract(kesto, "out.rom", "one/") == "one/: 1 part and image.toml\n"
    kesto.build("--kernel", "a", "--kernel", "b")
    (kesto.directory / "two").mkdir()
    assert extract(kesto, "out.rom", "two") == "two: 2 parts and image.toml\n"


def refuses_extract(kesto, message, image, directory="parts", **options):
    """One line on standard error and nothing in the file system."""
    before = kesto.files()
    kesto.refuses(message, "image", "extract", image, "-d", directory, **options)
    assert kesto.files() == before


def test_a_directory_that_is_there_already(kesto):
    kesto.build("--kernel", "a")
    (kesto.directory / "full").mkdir()
    kesto.file("full/mine", b"")
    (kesto.directory / "empty").mkdir()
    (kesto.directory / "link").symlink_to("empty")
    for name in ("full", "a", "link", "out.rom"):
        refuses_extract(kesto, f"{name}: is there already", "out.rom", name)
    refuses_extract(kesto, "nowhere/parts: create error (No such file or directory)", "out.rom", "nowhere/parts")
    refuses_extract(kesto, "missing: open error (No such file or directory)", "missing")
    refuses_extract(kesto, ".: not a regular file", ".")


@pytest.mark.parametrize("size", range(256 + 10 + 256 + 10))
def test_an_image_cut_at_every_byte(kesto, size):
    kesto.file("short.rom", kesto.build("--kernel", "a", "--bootloader", "b")[:size])
    before = kesto.files()
    result = kesto.run("image", "extract", "short.rom", "-d", "parts")
    part, offset = (0, 0) if size < 266 else (1, 266)
    have = size - offset
    what = f"header ends after {have} of 256" if have < 256 else f"contents end after {have - 256} of 10"
    if size == 266:
        part, offset, what = 0, 0, "promises another part, but the file ends"
    assert (result.returncode, result.stderr) == (1, "")
    assert result.stdout.startswith(f"short.rom: part {part} at offset {offset}: {what}")
    assert result.stdout.count("\n") == 1
    assert kesto.files() == before


@pytest.mark.parametrize("offset,value,part,message", [
    (0, b"x", 266, "bad header"),
    (52, 0, 0, "bad header"),
    (200, 0, 0, "says that it is the last one, but 266 bytes follow"),
    (200, 1, 266, "promises another part, but the file ends"),
])
def test_images_that_no_description_gives(kesto, offset, value, part, message):
    kesto.file("bad.rom", patched(kesto.build("--kernel", "a", "--bootloader", "b"), offset, value, part))
    before = kesto.files()
    result = kesto.run("image", "extract", "bad.rom", "-d", "parts")
    assert (result.returncode, result.stderr) == (1, "")
    assert result.stdout.endswith(f"bad.rom: part {part // 266} at offset {part}: {message}\n")
    assert kesto.files() == before


def test_damaged_contents(kesto):
    kesto.file("bad.rom", kesto.build("--kernel", "a", "--bootloader", "b")[:-1] + b"x")
    before = kesto.files()
    result = kesto.run("image", "extract", "bad.rom", "-d", "parts")
    assert result.returncode == 1
    assert result.stdout.startswith("bad.rom: part 1 at offset 266: contents checksum is ")
    assert kesto.files() == before


def test_more_parts_than_a_description_holds(kesto):
    kesto.file("many.rom", b"".join(images.part(4, b"x", more=True) for _ in range(1000)) + images.part(4, b"x"))
    before = kesto.files()
    result = kesto.run("image", "extract", "many.rom", "-d", "parts")
    assert (result.returncode, result.stdout) == (1, "many.rom: part 1000 at offset 257000: more than 1000 parts\n")
    assert kesto.files() == before


def test_no_room_for_the_parts(kesto):
    kesto.file("large", b"x" * 100000)
    kesto.build("--kernel", "a", "--bootloader", "large")
    before = kesto.files()
    result = kesto.run("image", "extract", "out.rom", "-d", "parts",
                       preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (50000, 50000)))
    assert (result.returncode, result.stdout) == (1, "")
    assert result.stderr.startswith("kesto: parts.kesto-")
    assert result.stderr.endswith("/1-bootloader: write error (File too large)\n")
    assert kesto.files() == before


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_a_signal_leaves_nothing_behind(kesto, number):
    # Contents that take a while: a hole would be over at once.
    with (kesto.directory / "large").open("wb") as file:
        for _ in range(192):
            file.write(bytes(range(256)) * 4096)
    kesto.build("--kernel", "a", "--bootloader", "large")
    before = set(kesto.files())
    with kesto.start("image", "extract", "out.rom", "-d", "parts") as process:
        directory = kesto.directory / f"parts.kesto-{process.pid}"
        deadline = time.monotonic() + 60
        while not (directory / "0-kernel").exists():
            assert time.monotonic() < deadline and process.poll() is None
            time.sleep(0.001)
        process.send_signal(number)
        assert process.wait(60) == -number
    assert set(kesto.files()) == before


def test_memory_does_not_grow_with_the_image(kesto):
    def peak(*words):
        process = subprocess.Popen([kesto.program, *words], cwd=kesto.directory, stdout=subprocess.DEVNULL)
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = 0
        assert status == 0
        return usage.ru_maxrss

    peaks = []
    for megabytes in (1, 64):
        kesto.file("contents", bytes(range(256)) * 4096 * megabytes)
        directory = f"parts{megabytes}"
        peaks.append([peak("image", "build", "-o", "out.rom", "--kernel", "contents"),
                      peak("image", "extract", "out.rom", "-d", directory),
                      peak("image", "build", "-o", "again.rom", "--description", f"{directory}/image.toml"),
                      peak("image", "verify", "--json", "out.rom"),
                      peak("image", "check", "--bank", "2", "--network", "out.rom")])
    for small, large in zip(*peaks):
        assert large < small + 2048, "KiB"

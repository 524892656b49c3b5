"""Builds firmware images for tests, from the format's table of offsets and with a checksum of its own kind: nothing
here comes from the program or the host tools, so that an error they share is seen.

    image = part(KERNEL, b"..." , more=True) + part(CONFIG_LOADER, b"...", version=(3, 1, 0, 0, "R", 1), code=b"AB")
    damaged = part(KERNEL, payload, fields={MANGLE_TYPE: 1})      # any field wrong, header checksum right
"""

import struct

HEADER_SIZE = 256
ID = b"KESTO-1\0"

# Offsets of the header's 32-bit big-endian fields.
HEADER_TYPE = 8
HEADER_LENGTH = 12
HEADER_CHECKSUM = 16
CONTENTS_TYPE = 24
MANGLE_TYPE = 28
CONTENTS_LENGTH = 40
FINAL_LENGTH = 44
CONTENTS_CHECKSUM = 52
FINAL_CHECKSUM = 92
PASSCODE_TYPE = 132
NEXT_HEADER_FLAG = 200
ROOTFS_SIZE_KIB = 204
TOTAL_SIZE_KIB = 212

# Offsets of the two text-like fields.
VERSION = 32
PRODUCT_CODE = 38

# Contents types.
(INVALID, BOOTSTRAP, BOOTLOADER, BOOT_ENV, KERNEL, ROOTFS_JFFS2_OR_EXT2, PRODUCTION_LOADER, RECOVERY_LOADER,
 CONFIG_LOADER, RESERVED, ROOTFS_UBIFS_16KEB, OEM_DEFAULTS, ROOTFS_TAR_LZMA, ROOTFS_UBIFS_128KEB,
 PYTHON_SETUP) = range(15)

TYPE_NAMES = ("invalid", "bootstrap", "bootloader", "boot_env", "firmware_kernel", "firmware_rootfs_jffs2_or_ext2",
              "production_loader", "recovery_loader", "config_loader", "reserved", "firmware_rootfs_ubifs_16keb",
              "oem_defaults", "firmware_rootfs_tar_lzma", "firmware_rootfs_ubifs_128keb", "python_setup")
WITHOUT_DESTINATION = (INVALID, PRODUCTION_LOADER, RECOVERY_LOADER, RESERVED)


def checksum(data: bytes) -> int:
    """The ones'-complement checksum, byte by byte: each byte at its place in a big-endian 32-bit word."""
    total = sum(byte << (24 - 8 * (at % 4)) for at, byte in enumerate(data))
    for _ in range(2):
        total = (total >> 32) + (total & 0xFFFFFFFF)
    return ~total & 0xFFFFFFFF


def field(header: bytes, offset: int) -> int:
    """A 32-bit field of a header."""
    return struct.unpack_from(">I", header, offset)[0]


def with_field(header: bytes, offset: int, value: int) -> bytes:
    """The header with one field changed and nothing else: a header checksum that was right is wrong then."""
    return header[:offset] + struct.pack(">I", value) + header[offset + 4:]


def sign(header: bytes) -> bytes:
    """The header with the checksum that belongs to it."""
    cleared = with_field(header, HEADER_CHECKSUM, 0)
    return with_field(cleared, HEADER_CHECKSUM, checksum(cleared))


def header(contents_type: int, contents: bytes = b"", *, more: bool = False, version=(), code: bytes = b"",
           fields: dict[int, int] | None = None) -> bytes:
    """A header for these contents. `more`: another part follows; `version`: a, b, c, d, letter, n; `fields`: 32-bit
    fields, by offset, that differ from what a builder writes."""
    made = bytearray(HEADER_SIZE)
    made[:len(ID)] = ID
    made[VERSION:VERSION + len(version)] = bytes(ord(v) if isinstance(v, str) else v for v in version)
    made[PRODUCT_CODE:PRODUCT_CODE + len(code)] = code
    summed = checksum(contents)
    values = {HEADER_LENGTH: HEADER_SIZE, CONTENTS_TYPE: contents_type, CONTENTS_LENGTH: len(contents),
              FINAL_LENGTH: len(contents), CONTENTS_CHECKSUM: summed, FINAL_CHECKSUM: summed,
              NEXT_HEADER_FLAG: int(more), **(fields or {})}
    for offset, value in values.items():
        struct.pack_into(">I", made, offset, value)
    return sign(bytes(made))


def part(contents_type: int, contents: bytes = b"", **options) -> bytes:
    """A header and its contents."""
    return header(contents_type, contents, **options) + contents


def pattern(size: int, seed: int = 1) -> bytes:
    """`size` bytes that repeat late and hold every value, among them all that a terminal might treat in a special
    way."""
    block = bytes(range(256)) + bytes((7 * i * i + 13 * i + seed) % 251 for i in range(997))
    return (block * (size // len(block) + 1))[:size]


def info(head: bytes) -> str:
    """What the program shows of a header."""

    def signed(value):
        return value - (1 << 32) if value >> 31 else value

    contents_type, length = field(head, CONTENTS_TYPE), field(head, CONTENTS_LENGTH)
    name = TYPE_NAMES[contents_type] if contents_type < len(TYPE_NAMES) else "unknown"
    numbers, code = head[VERSION:VERSION + 6], head[PRODUCT_CODE:PRODUCT_CODE + 2]
    letter = chr(numbers[4]) if 0x20 <= numbers[4] <= 0x7E else "?"
    version = "{}.{}.{}.{}{}{}".format(*numbers[:4], letter, numbers[5]) if any(numbers) else "none"
    shown_code = code.decode("ascii") if all(0x20 <= byte <= 0x7E for byte in code) else "none"
    text = (f"Image info:\n"
            f"  Contents Type: {name} ({signed(contents_type)})\n"
            f"  Contents Length: 0x{length:X} ({signed(length)})\n"
            f"  Contents Checksum: 0x{field(head, CONTENTS_CHECKSUM):08X}\n"
            f"  Contents Version: {version}\n"
            f"  Product Code: {shown_code}\n")
    if name == "unknown" or contents_type in WITHOUT_DESTINATION:
        text += f"ERROR: Contents Type {signed(contents_type)} not supported\n"
    return text

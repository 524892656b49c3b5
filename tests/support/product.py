"""What the factory makes of a device: its product record, and the operating mode that the shell takes from it."""

import struct

MAC, HWCFG, DESCRIPTION, PRODUCT_ID = (1, 2, 7, 8, 9, 10), 5, 6, 11  # item types; of the MAC addresses by number


def record(*items: tuple[int, bytes]) -> bytes:
    """A product record of these items (type, value), with its checksum."""
    body = b"".join(struct.pack("<BH", kind, len(value)) + value for kind, value in items)
    return sealed(struct.pack("<H", 4 + len(body)) + body)


def sealed(rest: bytes) -> bytes:
    """A record from its total length on, with the right checksum before it."""
    words = rest + bytes(len(rest) % 2)
    total = sum(struct.unpack(f"<{len(words) // 2}H", words))
    return struct.pack("<H", -total & 0xFFFF) + rest


def model_record(product_id: str, hwcfg: str | None = None) -> bytes:
    """The record of a model with this product ID and hardware configuration."""
    items = [(PRODUCT_ID, product_id.encode())] + ([(HWCFG, hwcfg.encode())] if hwcfg is not None else [])
    return record(*items)


def mode_block(model: str = "tk10_eval", io: str = "none", ports: int = 2) -> str:
    """The operating mode as the shell shows it."""
    return f"\nCurrent operating mode:\n  Board:    {model}\n  I/O:      {io}\n  # Serial: {ports}\n"

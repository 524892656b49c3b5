"""The board behind a console test: the product record in flash, and the kernel's tree of GPIO lines."""

from product import board_record, record


def give_product(dev, *items: tuple[int, bytes]) -> None:
    """Writes a product record into flash, before the start."""
    dev.partition("prod_config").write(record(*items))


def give_board(dev, product_id: str, hwcfg: str | None = None) -> None:
    """Makes the device one of this product ID and hardware configuration, with GPIO lines; before the start."""
    dev.partition("prod_config").write(board_record(product_id, hwcfg))
    make_gpio_lines(dev)


def make_gpio_lines(dev, numbers=range(32, 160)) -> None:
    """Makes the tree below /sys/class/gpio with these lines exported already; what is written there is logged."""
    top = dev.path("/sys/class/gpio")
    for name in ("export", "unexport"):
        (top / name).write_text("")
    for number in numbers:
        line = top / f"gpio{number}"
        line.mkdir()
        (line / "direction").write_text("in\n")
        (line / "value").write_text("0\n")
    dev.trace("/sys/class/gpio")


def level(dev, number: int) -> str:
    """What the program last drove the line to, or "0"."""
    return dev.path(f"/sys/class/gpio/gpio{number}/value").read_text()[0]


def set_level(dev, number: int, value: str) -> None:
    dev.path(f"/sys/class/gpio/gpio{number}/value").write_text(value + "\n")


def gpio_writes(events) -> list[str]:
    """What was written below /sys/class/gpio, in order: "gpio74/value 1". Fails for a value that does not end in one
    zero byte."""
    writes = []
    for event in events.of("write"):
        if event.path.startswith("/sys/class/gpio/"):
            assert event.data.index(b"\0") == len(event.data) - 1, f"{event.path}: {event.data!r}"
            writes.append(f"{event.path.removeprefix('/sys/class/gpio/')} {event.data[:-1].decode()}")
    return writes

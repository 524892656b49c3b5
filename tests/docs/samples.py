"""The small files that images of the documents' examples are made of: the same bytes in every run."""

import io
import lzma
import random
import tarfile

VERSION, CODE = "4.1.0.0R1", "TK"
_INFO = f'VEXO_PRODUCT_VERSION="{VERSION}"\nVEXO_PRODUCT_CODE="{CODE}"\n'


def _tar(**files):
    archive = io.BytesIO()
    with tarfile.open(fileobj=archive, mode="w") as tar:
        for path, data in files.items():
            member = tarfile.TarInfo(path)
            member.size, member.mode = len(data), 0o644
            tar.addfile(member, io.BytesIO(data))
    return archive.getvalue()


def write(directory):
    """Writes them all."""
    for name, size in (("u-boot.bin", 1001), ("uImage", 30001), ("config.uimg", 5001), ("recovery", 5001), ("rootfs.ubifs", 3001)):
        (directory / name).write_bytes(random.Random(name).randbytes(size))
    root = _tar(**{"etc/.vexo_product_info": _INFO.encode(), "etc/release": f"Firmware {VERSION}\n".encode(),
                   "bin/busybox": b"#!/bin/sh\n"})
    (directory / "rootfs.tar.xz").write_bytes(lzma.compress(root, check=lzma.CHECK_CRC32))
    (directory / "oem.xml").write_text("<oem><name>pump control</name></oem>\n", encoding="ascii")

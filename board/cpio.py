"""Writes "newc" cpio archives, the form of an initial RAM file system, without needing to be root."""

import os
import stat

_ALIGNMENT = 4


class Archive:
    """Collects entries in memory; everything in it belongs to root. Parent directories are made as needed."""

    def __init__(self):
        self._entries = {}

    def __contains__(self, path):
        return path.strip("/") in self._entries

    def _add(self, path, mode, data=b"", device=(0, 0)):
        path = path.strip("/")
        parent = os.path.dirname(path)
        if parent and parent not in self._entries:
            self.directory(parent)
        self._entries[path] = (mode, data, device)

    def directory(self, path, mode=0o755):
        self._add(path, stat.S_IFDIR | mode)

    def file(self, path, data, mode=0o644):
        self._add(path, stat.S_IFREG | mode, data)

    def copy(self, path, source, mode=None):
        """Adds the contents of the host's file `source`, with its permissions when no mode is given."""
        with open(source, "rb") as stream:
            self.file(path, stream.read(), stat.S_IMODE(os.stat(source).st_mode) if mode is None else mode)

    def symlink(self, path, target):
        self._add(path, stat.S_IFLNK | 0o777, target.encode())

    def character_device(self, path, major, minor, mode=0o600):
        self._add(path, stat.S_IFCHR | mode, b"", (major, minor))

    def to_bytes(self):
        """The whole archive. Archives may be joined end to end; a later entry replaces an earlier one."""
        parts = []
        for number, (path, entry) in enumerate(self._entries.items(), 1):
            parts.append(_entry(path, number, *entry))
        parts.append(_entry("TRAILER!!!", 0, 0, b"", (0, 0)))
        return b"".join(parts)


def _padding(length):
    return b"\0" * (-length % _ALIGNMENT)


def _entry(path, number, mode, data, device):
    name = path.encode() + b"\0"
    links = 2 if stat.S_ISDIR(mode) else 1
    fields = (number, mode, 0, 0, links, 0, len(data), 0, 0, *device, len(name), 0)
    head = b"070701" + b"".join(b"%08X" % field for field in fields) + name
    return head + _padding(len(head)) + data + _padding(len(data))


def names(archive):
    """Absolute paths of the entries in the archive's bytes, up to its first end."""
    found, at = [], 0
    while archive[at:at + 6] == b"070701":
        size, length = int(archive[at + 54:at + 62], 16), int(archive[at + 94:at + 102], 16)
        path = archive[at + 110:at + 110 + length - 1].decode()
        if path == "TRAILER!!!":
            break
        found.append("/" + path)
        at += 110 + length
        at += -at % _ALIGNMENT + size
        at += -at % _ALIGNMENT
    return found

#!/usr/bin/env python3
"""
Unpacks Debian packages of another processor into a directory of one's own: neither root nor a foreign architecture on
this machine is needed, because the package lists are private, too. By hand:

    tools/foreign_packages.py armel DIRECTORY PACKAGE...

A directory that exists is complete: it is unpacked beside, compared with what the packages say they hold, and renamed
at last. check() compares again, later. The tools called are apt-get, apt-cache, dpkg and dpkg-deb.
"""

import argparse
import contextlib
import getpass
import os
import pathlib
import shutil
import subprocess
import sys
import tarfile
import tempfile
import time

# Seconds between tries when a package list is just being renewed on the server.
PAUSES = (2, 5)
_RENEWED = ("unexpected size", "Hash Sum mismatch", "Mirror sync in progress")
# What the packages said they hold, in the tree: a line "SIZE PATH" for each plain file.
CONTENTS = ".contents"


class PackageError(Exception):
    """Packages could not be fetched or unpacked; the text says why."""


def say(text):
    """A word about what takes its time."""
    print(f"setup: {text}", file=sys.stderr, flush=True)


def _run(*words, **options):
    done = subprocess.run([str(word) for word in words], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          stdin=subprocess.DEVNULL, text=True, errors="replace", check=False, **options)
    if done.returncode:
        raise PackageError(f"failed: {' '.join(str(word) for word in words)}\n{done.stdout.strip()}")
    return done.stdout


class PackageLists:
    """The package lists of one architecture, and what is fetched by them, in a temporary directory. A context manager."""

    def __init__(self, architecture):
        self.architecture = architecture
        self._directory = tempfile.TemporaryDirectory(prefix="packages-")
        self._path = pathlib.Path(self._directory.name)
        for name in ("lists/partial", "cache/archives/partial"):
            (self._path / name).mkdir(parents=True)

    def __enter__(self):
        self._update()
        return self

    def __exit__(self, *unused):
        self._directory.cleanup()

    def _apt(self, tool, *words):
        return _run(tool, "-q", "-o", f"APT::Architecture={self.architecture}",
                    "-o", f"APT::Architectures={self.architecture}", "-o", f"Dir::State::lists={self._path}/lists",
                    "-o", f"Dir::Cache={self._path}/cache", "-o", "Dir::State::status=/dev/null",
                    "-o", f"APT::Sandbox::User={getpass.getuser()}", "-o", "Debug::NoLocking=1", *words,
                    cwd=self._path, env={**os.environ, "LC_ALL": "C.UTF-8"})

    def _update(self):
        """A server that renews a list may be between the old and the new one: that passes."""
        say(f"fetching the package lists for {self.architecture}")
        for pause in (*PAUSES, None):
            try:
                self._apt("apt-get", "update", "--error-on=any")
                return
            except PackageError as error:
                if not any(word in str(error) for word in _RENEWED):
                    raise
            if pause is None:
                say("a package list is still being renewed; going on with the other lists")
            else:
                say(f"a package list is just being renewed; trying again in {pause} s")
                time.sleep(pause)

    def depends(self, package):
        """The field Depends of the package's newest version, as text."""
        shown = self._apt("apt-cache", "show", "--no-all-versions", package)
        return next((line.partition(": ")[2] for line in shown.splitlines() if line.startswith("Depends: ")), "")

    def download(self, *packages):
        """Fetches these packages ("NAME" or "NAME=VERSION") alone. Returns their files."""
        return self._fetch("download", packages, self._path)

    def download_closure(self, *packages):
        """Fetches these packages and all that they depend on. Returns their files."""
        words = ("install", "--yes", "--download-only", "--no-install-recommends")
        return self._fetch(words, packages, self._path / "cache" / "archives")

    def _fetch(self, words, packages, place):
        say(f"fetching for {self.architecture}: {' '.join(packages)}")
        before = set(place.glob("*.deb"))
        self._apt("apt-get", *([words] if isinstance(words, str) else words), *packages)
        return sorted(set(place.glob("*.deb")) - before)


def _plain_files(package):
    """(path, size) of the plain files that a package says it holds."""
    with subprocess.Popen(["dpkg-deb", "--fsys-tarfile", str(package)], stdout=subprocess.PIPE) as unpacker:
        with tarfile.open(fileobj=unpacker.stdout, mode="r|") as tar:
            files = [(member.name.removeprefix("./"), member.size) for member in tar if member.isreg()]
        unpacker.stdout.read()
    if unpacker.returncode:
        raise PackageError(f"{package.name} is damaged")
    return files


def damaged(tree):
    """The files of a tree that are missing or have another size than their package said; the list itself counts, too."""
    try:
        lines = (tree / CONTENTS).read_text(encoding="utf-8").splitlines()
    except OSError:
        return [CONTENTS]
    return _different(tree, {path: int(size) for size, _, path in (line.partition(" ") for line in lines)})


def _different(tree, contents):
    """Of {path: size}, the paths that are not there with that size."""
    found = []
    for path, size in contents.items():
        try:
            if os.lstat(f"{tree}/{path}").st_size != size:
                found.append(path)
        except OSError:
            found.append(path)
    return found


def _plain_files_under(tree):
    return [os.path.relpath(os.path.join(directory, name), tree)
            for directory, _, names in os.walk(tree) for name in names
            if not os.path.islink(os.path.join(directory, name))]


@contextlib.contextmanager
def _beside(tree):
    """A directory to be filled, which becomes the tree at last; whatever goes wrong, it goes away and there is no tree."""
    tree.parent.mkdir(parents=True, exist_ok=True)
    new = pathlib.Path(tempfile.mkdtemp(prefix=f".{tree.name}-", dir=tree.parent))
    new.chmod(0o755)
    try:
        yield new
        shutil.rmtree(tree, ignore_errors=True)
        new.rename(tree)
    except OSError as error:
        raise PackageError(f"{tree} could not be made: {error}") from error
    finally:
        shutil.rmtree(new, ignore_errors=True)


def unpack(tree, packages, finish=lambda new: None):
    """
    Makes the directory `tree` of these package files, in the place of one that is there. finish(directory) may add to it
    before it gets its name. Raises PackageError; then there is no tree, or the one that was there.
    """
    tree = pathlib.Path(tree).absolute()
    with _beside(tree) as new:
        contents = {}
        for package in packages:
            _run("dpkg-deb", "--extract", package, new)
            contents.update(_plain_files(package))
        lost = _different(new, contents)
        if lost or not contents:
            raise PackageError(f"{tree.name} was disturbed while it was unpacked: {len(lost) or 'all'} files are missing")
        finish(new)
        contents = {path: (new / path).lstat().st_size for path in [*contents, *_plain_files_under(new)]}
        (new / CONTENTS).write_text("".join(f"{size} {path}\n" for path, size in sorted(contents.items())), encoding="utf-8")


def main():
    """Returns the exit status."""
    parser = argparse.ArgumentParser(description="Unpacks Debian packages of another processor.")
    parser.add_argument("architecture")
    parser.add_argument("directory", type=pathlib.Path)
    parser.add_argument("packages", nargs="+")
    options = parser.parse_args()
    if not damaged(options.directory):
        return 0
    try:
        with PackageLists(options.architecture) as lists:
            unpack(options.directory, lists.download(*options.packages))
    except PackageError as error:
        say(str(error))
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())

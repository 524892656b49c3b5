"""
What boards are made from lies under build/board/ (VBOARD_BUILD moves it): each file is made again when what it is made of
changes. Everything gets its name only when it is whole: set-up may be interrupted, or its directory removed, at any time.
"""

import contextlib
import fcntl
import hashlib
import os
import pathlib
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent
BUILD = pathlib.Path(os.environ.get("VBOARD_BUILD", ROOT / "build" / "board")).absolute()
CROSS = "arm-linux-gnueabi-"

sys.path.insert(0, str(ROOT / "tools"))

import foreign_packages  # noqa: E402


class SetupError(Exception):
    """Something that the machine must offer is not there; the text says what to do."""


def run(*command, **options):
    """Runs a build step and returns its output, which is shown only when it fails, in a SetupError."""
    try:
        done = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              stdin=subprocess.DEVNULL, text=True, check=False, **options)
    except OSError as error:
        raise SetupError(f"{error}; ./run installs what the board needs") from error
    if done.returncode:
        raise SetupError(f"failed: {' '.join(str(word) for word in command)}\n{done.stdout}")
    return done.stdout


def _digest(inputs):
    """Of strings, and of files by path, size and time."""
    digest = hashlib.sha256()
    for item in inputs:
        text = str(item)
        if isinstance(item, pathlib.Path):
            status = item.stat()
            text += f" {status.st_size} {status.st_mtime_ns}"
        digest.update(text.encode() + b"\0")
    return digest.hexdigest()


def make(target, inputs, maker):
    """Calls maker(path) for a new `target` unless the present one was made of the same inputs: strings and paths."""
    stamp = target.with_name(target.name + ".stamp")
    digest = _digest([HERE / "artefact_cache.py", *inputs])
    if target.exists() and stamp.exists() and stamp.read_text() == digest:
        return target
    target.parent.mkdir(parents=True, exist_ok=True)
    stamp.unlink(missing_ok=True)
    new = target.with_name(target.name + ".new")
    maker(new)
    new.replace(target)
    stamp.write_text(digest)
    return target


class PackageTree:
    """
    Packages of the device's processors, unpacked once at `path`. fetch(lists) names their files and `finish` may add to
    the tree before it gets its name, see tools/foreign_packages.py.
    """

    def __init__(self, name, architecture, fetch, finish=lambda new: None):
        self.path = BUILD / name
        self._architecture, self._fetch, self._finish = architecture, fetch, finish

    @property
    def contents(self):
        """The list of what is in it: stands for the tree among the inputs of what is made of it."""
        return self.path / foreign_packages.CONTENTS

    def ensure(self):
        """Fetches and unpacks the packages where there is no tree. Raises SetupError."""
        if not self.contents.exists():
            self._make()

    def ensure_whole(self):
        """The same, and compares each file: for those who are about to make something of it."""
        self.ensure()
        missing = foreign_packages.damaged(self.path)
        if missing:
            foreign_packages.say(f"{self.path} has lost {len(missing)} files, fetching it again")
            self._make()

    def _make(self):
        try:
            with foreign_packages.PackageLists(self._architecture) as lists:
                foreign_packages.unpack(self.path, self._fetch(lists), self._finish)
        except foreign_packages.PackageError as error:
            raise SetupError(str(error)) from error


@contextlib.contextmanager
def exclusive():
    """Several test processes may ask for the same at once; one makes it, the others wait."""
    BUILD.mkdir(parents=True, exist_ok=True)
    with open(BUILD / "lock", "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield

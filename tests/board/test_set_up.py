"""Setting the board up: packages for the device's processor come whole or not at all, whatever disturbs it. The packages are
small ones made here, and a stand-in for apt-get hands them out."""

import os
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

import foreign_packages
from foreign_packages import PackageError, PackageLists, damaged, unpack

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tools"))


FILES = {"kernel": {"boot/vmlinuz": b"k" * 5000}, "headers": {"usr/src/Makefile": b"all:\n", "usr/src/empty": b""}}
RENEWED = "E: Failed to fetch Packages.xz  File has unexpected size (1 != 2). Mirror sync in progress?"


def make_package(directory, name, files):
    root = directory / name
    for path, data in {**files, "DEBIAN/control": (f"Package: {name}\nVersion: 1\nArchitecture: armhf\nMaintainer: none\n"
                                                   "Description: for a test\n").encode()}.items():
        (root / path).parent.mkdir(parents=True, exist_ok=True)
        (root / path).write_bytes(data)
    package = directory / f"{name}.deb"
    subprocess.run(["dpkg-deb", "--root-owner-group", "--build", root, package], check=True, stdout=subprocess.DEVNULL)
    return package


class Host:
    """The machine that is set up: `tree` is what is made there. Tools can be replaced by scripts."""

    def __init__(self, directory, monkeypatch):
        self.build = directory / "build"
        self.tree = self.build / "tree"
        self._tools = directory / "tools"
        self._tools.mkdir()
        monkeypatch.setenv("PATH", f"{self._tools}:{os.environ['PATH']}")
        self.packages = [make_package(directory, name, files) for name, files in FILES.items()]
        self.log = directory / "log"
        self.log.touch()

    def replace(self, tool, script):
        path = self._tools / tool
        path.write_text(f"#!/bin/sh\necho {tool} \"$@\" >>{self.log}\n{script}\n")
        path.chmod(0o755)

    def calls(self, tool, word):
        return sum(line.startswith(f"{tool} ") and word in line.split() for line in self.log.read_text().splitlines())

    def expect_whole(self):
        found = {str(path.relative_to(self.tree)): path.read_bytes() for path in self.tree.rglob("*") if path.is_file()}
        del found[foreign_packages.CONTENTS]
        assert found == {path: data for files in FILES.values() for path, data in files.items()}
        assert damaged(self.tree) == []

    def expect_nothing(self):
        assert not self.tree.exists()
        assert list(self.build.glob(".*")) == [], "what was begun is left behind"


@pytest.fixture
def host(tmp_path, monkeypatch):
    return Host(tmp_path, monkeypatch)


def test_packages_make_a_tree(host):
    unpack(host.tree, host.packages)
    host.expect_whole()


@pytest.mark.parametrize("victim", ["kernel", "headers"])
def test_directory_is_removed_while_a_package_is_unpacked(host, victim):
    """Unpacking makes the directory anew and would go on as if nothing had happened."""
    host.replace("dpkg-deb", f'case "$*" in *--extract*/{victim}.deb*) rm -rf {host.build}/.[!.]* {host.build}/* ;; esac\n'
                             f'exec {shutil.which("dpkg-deb", path="/usr/bin")} "$@"')
    if victim == "kernel":
        unpack(host.tree, host.packages)  # before anything was there: nothing is lost
        host.expect_whole()
        return
    with pytest.raises(PackageError, match="disturbed"):
        unpack(host.tree, host.packages)
    host.expect_nothing()
    host.replace("dpkg-deb", 'exec /usr/bin/dpkg-deb "$@"')
    unpack(host.tree, host.packages)
    host.expect_whole()


def test_directory_is_removed_before_it_gets_its_name(host):
    with pytest.raises(PackageError):
        unpack(host.tree, host.packages, finish=lambda new: shutil.rmtree(host.build))
    assert not host.tree.exists()


def test_one_file_is_removed_before_the_tree_gets_its_name(host):
    with pytest.raises(PackageError):
        unpack(host.tree, host.packages, finish=lambda new: (new / "boot/vmlinuz").unlink())
    host.expect_nothing()


def test_package_that_is_cut_short(host):
    whole = host.packages[1].read_bytes()
    host.packages[1].write_bytes(whole[:-100])
    with pytest.raises(PackageError):
        unpack(host.tree, host.packages)
    host.expect_nothing()


def test_set_up_that_is_killed_leaves_no_tree(host):
    """Also when it is killed at the last moment: the name comes last."""
    script = ("import os, signal, sys; sys.path.insert(0, sys.argv[1]); import foreign_packages\n"
              "foreign_packages.unpack(sys.argv[2], sys.argv[3:], lambda new: os.kill(os.getpid(), signal.SIGKILL))")
    done = subprocess.run([sys.executable, "-c", script, Path(foreign_packages.__file__).parent, host.tree, *host.packages],
                          check=False)
    assert done.returncode == -9 and not host.tree.exists()
    unpack(host.tree, host.packages)
    host.expect_whole()


def test_tree_that_has_lost_something_is_known(host):
    unpack(host.tree, host.packages)
    (host.tree / "boot/vmlinuz").write_bytes(b"k" * 4999)
    (host.tree / "usr/src/Makefile").unlink()
    assert damaged(host.tree) == ["boot/vmlinuz", "usr/src/Makefile"]
    unpack(host.tree, host.packages)
    host.expect_whole()


def lists_are_renewed(host, times):
    """The first `times` looks at the package lists find them half renewed."""
    host.replace("apt-get", f'case "$*" in *update*) [ $(grep -c " update" {host.log}) -gt {times} ] || '
                            f'{{ echo "{RENEWED}"; exit 100; }} ;; esac')


@pytest.mark.parametrize("times", [1, 2])
def test_list_that_is_being_renewed_is_tried_again_with_a_word(host, times, monkeypatch, capfd):
    monkeypatch.setattr(foreign_packages, "PAUSES", (0, 0))
    lists_are_renewed(host, times)
    with PackageLists("armhf"):
        assert host.calls("apt-get", "update") == times + 1
    assert capfd.readouterr().err.count("just being renewed; trying again") == times


def test_list_that_stays_half_renewed(host, monkeypatch, capfd):
    """What is needed may stand in the others."""
    monkeypatch.setattr(foreign_packages, "PAUSES", (0, 0))
    lists_are_renewed(host, 9)
    with PackageLists("armhf"):
        assert host.calls("apt-get", "update") == 3
    assert "going on with the other lists" in capfd.readouterr().err


def test_lists_that_cannot_be_had(host):
    host.replace("apt-get", "echo 'E: Could not resolve host'; exit 100")
    with pytest.raises(PackageError, match="Could not resolve"), PackageLists("armhf"):
        pass
    assert host.calls("apt-get", "update") == 1


def test_firmware_for_a_board_that_was_never_set_up(host):
    """./run lays an image beside a new board before it starts it."""
    host.replace("apt-get", "echo 'E: Could not resolve host'; exit 100")
    made = subprocess.run([ROOT / "board" / "firmware_images.py", "1.0.0.0R1", host.build / "image"], capture_output=True, text=True,
                          check=False, env={**os.environ, "VBOARD_BUILD": str(host.build)})
    assert made.returncode != 0 and "Could not resolve host" in made.stderr
    assert host.calls("apt-get", "update") == 1

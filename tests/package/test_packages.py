"""The packages: what is in them, and that a bare Debian 12 installs each, runs it and gets rid of it."""

import os
import re
import select
import subprocess
import tarfile
import time
from pathlib import Path

import pytest

from bare_root import control_field

ROOT = Path(__file__).resolve().parents[2]
PACKAGES = ROOT / "build" / "packages"
BANNER = re.compile(r"Zentavio Solvantra Recovery Loader v(\S+) \(")
# A program of another processor is found, linked and started by the emulator: that takes its time on a busy machine.
PATIENCE = 60

KESTO_FILES = {
    "bin/kesto", "share/bash-completion/completions/kesto", "share/man/man1/kesto.1.gz", "share/man/man5/kesto-image.5.gz",
    "share/doc/kesto/changelog.gz", "share/doc/kesto/copyright", "share/doc/kesto/kesto-json.md",
    *(f"share/doc/kesto/examples/{path.name}" for path in (ROOT / "docs" / "images").glob("*.toml"))}
LOADER_FILES = {
    "sbin/recovery-loader", "share/man/man8/recovery-loader.8.gz", "share/doc/recovery-loader/changelog.gz",
    "share/doc/recovery-loader/copyright", "share/doc/recovery-loader/examples/inittab"}


def output(*words, **options):
    return subprocess.run(words, check=True, stdout=subprocess.PIPE, text=True, **options).stdout


def files_below(directory):
    return {str(path.relative_to(directory)) for path in directory.rglob("*") if not path.is_dir()}


def shell_says(system, keys, wanted):
    """Starts the device's program by the emulator, types keys and reads until `wanted` is there. Returns what was said."""
    words = system.words("/qemu-arm-static", "/usr/sbin/recovery-loader")
    with subprocess.Popen(words, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT) as shell:
        try:
            shell.stdin.write(keys)
            shell.stdin.flush()
            said, deadline = b"", time.monotonic() + PATIENCE
            while wanted not in said:
                assert select.select([shell.stdout], [], [], max(0, deadline - time.monotonic()))[0], said
                piece = os.read(shell.stdout.fileno(), 4096)
                assert piece, said
                said += piece
            return said.decode()
        finally:
            shell.kill()  # the shell itself never ends


# --- what was made


def test_lintian_has_nothing_to_say(kesto_package, loader_package):
    said = subprocess.run(["lintian", "--fail-on", "error,warning", "--allow-root", kesto_package, loader_package],
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    assert (said.returncode, said.stdout) == (0, "")


def test_sums_are_those_of_all_files():
    said = output("sha256sum", "--check", "--strict", "SHA256SUMS", cwd=PACKAGES)
    assert {line.removesuffix(": OK") for line in said.splitlines()} == files_below(PACKAGES) - {"SHA256SUMS"}
    assert len(said.splitlines()) == 4


@pytest.mark.parametrize("name, architecture, files", [("kesto", "amd64", KESTO_FILES), ("recovery-loader", "armel", LOADER_FILES)])
def test_package_and_archive_hold_the_same_files(name, architecture, files):
    (package,) = PACKAGES.glob(f"{name}_*_{architecture}.deb")
    version = control_field(package, "Version")
    packed = {line.split()[-1].removeprefix("./usr/") for line in output("dpkg-deb", "--contents", package).splitlines()
              if not line.startswith("d")}
    assert packed == files
    with tarfile.open(PACKAGES / f"{name}-{version}-{architecture}.tar.gz") as archive:
        assert {member.name.partition("/")[2] for member in archive if not member.isdir()} == files


@pytest.mark.parametrize("preset, files", [("release", KESTO_FILES | LOADER_FILES), ("arm", LOADER_FILES)])
def test_cmake_installs_everything_where_it_belongs(preset, files, tmp_path):
    output("cmake", "--install", ROOT / "build" / preset, "--prefix", tmp_path / "usr")
    assert files_below(tmp_path / "usr") == files


def test_device_package_asks_for_the_c_library_that_its_program_needs(loader_package, tmp_path):
    output("dpkg-deb", "--extract", loader_package, tmp_path)
    versions = re.findall(r"GLIBC_([0-9.]+)", output("arm-linux-gnueabi-readelf", "-V", tmp_path / "usr/sbin/recovery-loader"))
    newest = max(versions, key=lambda version: [int(number) for number in version.split(".")])
    assert f"libc6 (>= {newest})" in control_field(loader_package, "Depends")


def test_changelog_begins_with_the_package_s_version(kesto_package, tmp_path):
    output("dpkg-deb", "--extract", kesto_package, tmp_path)
    shown = output("dpkg-parsechangelog", "--file", "-", input=output("zcat", tmp_path / "usr/share/doc/kesto/changelog.gz"))
    assert f"Source: kesto\nVersion: {control_field(kesto_package, 'Version')}\n" in shown


# --- on a bare system


def test_kesto_is_installed_runs_and_goes(system, kesto_package):
    files, packages = system.files(), system.packages()
    system.install(kesto_package)
    assert {path for path in KESTO_FILES if not (system.path / "usr" / path).is_file()} == set()

    (system.path / "part").write_bytes(b"contents")
    system.run("kesto", "image", "build", "-o", "/image.rom", "--kernel", "/part")
    assert system.run("kesto", "image", "verify", "/image.rom") == "/image.rom: OK, 1 part, 264 bytes\n"
    for name in ("part", "image.rom"):
        (system.path / name).unlink()

    system.remove("kesto")
    assert system.packages() == packages
    assert system.files() == files


def test_device_package_is_installed_runs_and_goes(system, loader_package):
    files, packages = system.files(), system.packages()
    system.install(loader_package)
    assert {path for path in LOADER_FILES if not (system.path / "usr" / path).is_file()} == set()

    said = shell_says(system, b"verbose 5\r", b"verbosity is 5")
    assert BANNER.search(said)[1] == control_field(loader_package, "Version")

    system.remove("recovery-loader:armel")
    assert system.packages() == packages
    assert system.files() == files

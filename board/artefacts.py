"""
Makes what every board boots from, under build/board/: Debian's kernel, unpacked; the kernel module; the base of the
root file system. Each is made again when what it is made of changes. Needs no root.
"""

import contextlib
import fcntl
import gzip
import hashlib
import lzma
import os
import pathlib
import re
import shutil
import struct
import subprocess

from cpio import Archive

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent
BUILD = pathlib.Path(os.environ.get("VBOARD_BUILD", ROOT / "build" / "board"))

# Loaded at boot, in this order, each after what it needs. The compressors come first: UBIFS looks for them once.
MODULES = ("virtio_pci", "virtio_console", "lzo", "zstd", "deflate", "mtd", "ubi", "ubifs", "jffs2", "e100")

# Where the command lines of the device look for a tool, and where Debian keeps it.
TOOLS = {
    **{f"/usr/sbin/{name}": f"/usr/sbin/{name}" for name in (
        "flash_unlock", "flash_erase", "flashcp", "nandwrite", "mtd_debug", "mtdinfo", "nandtest", "jffs2dump",
        "ubiattach", "ubidetach", "ubiformat", "ubimkvol", "ubirmvol", "ubirsvol", "ubiupdatevol", "ubinfo")},
    "/usr/sbin/fw_printenv": "/usr/bin/fw_printenv",
    "/usr/bin/install": "/usr/bin/install",
    # For tests, which read back what the shell has set; the device has none.
    "/usr/sbin/ethtool": "/usr/sbin/ethtool",
    # Called through a bridge of the same name.
    "/usr/lib/board/flash_lock": "/usr/sbin/flash_lock",
    "/usr/lib/board/nanddump": "/usr/sbin/nanddump",
    "/usr/lib/board/fw_setenv": "/usr/bin/fw_setenv",
}
BRIDGES = {
    "/usr/sbin/flash_lock": "flash_lock",
    "/usr/sbin/nanddump": "nanddump",
    "/usr/sbin/fw_setenv": "fw_setenv",
    "/bin/iproute": "iproute",
    "/sbin/reboot": "reboot",
}
CONFIGURATION = {
    "/etc/fw_env.config": "fw_env.config",
    "/etc/u-boot-initial-env": "u-boot-initial-env",
    "/usr/share/udhcpc/default.script": "udhcpc.script",
    "/etc/udhcpc/default.script": "udhcpc.script",
}
DIRECTORIES = ("/proc", "/sys", "/dev", "/mnt", "/cfg", "/root", "/var", "/run", "/etc/network")


class SetupError(Exception):
    """Something that the machine must offer is not there; the text says what to do."""


def _run(*command, **options):
    """Runs a build step; its output is shown only when it fails."""
    done = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          stdin=subprocess.DEVNULL, text=True, check=False, **options)
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


def _make(target, inputs, make):
    """Calls make(path) for a new `target` unless the present one was made of the same inputs."""
    stamp = target.with_name(target.name + ".stamp")
    digest = _digest([HERE / "artefacts.py", *inputs])
    if target.exists() and stamp.exists() and stamp.read_text() == digest:
        return target
    target.parent.mkdir(parents=True, exist_ok=True)
    stamp.unlink(missing_ok=True)
    new = target.with_name(target.name + ".new")
    make(new)
    new.replace(target)
    stamp.write_text(digest)
    return target


def _kernel_release():
    """Release and package version of the kernel that the installed headers belong to."""
    depends = _run("dpkg-query", "-W", "-f", "${Depends}", "linux-headers-amd64")
    found = re.search(r"linux-headers-(\S+) \(= ([^)]+)\)", depends)
    if not found:
        raise SetupError("the package linux-headers-amd64 is not installed")
    return found.groups()


def _kernel_tree(release, version):
    """The kernel image package, fetched once and unpacked, not installed."""
    tree = BUILD / f"linux-{release}-{version}"
    if (tree / "complete").exists():
        return tree
    packages = BUILD / "packages"
    packages.mkdir(parents=True, exist_ok=True)
    name = f"linux-image-{release}"
    try:
        _run("apt-get", "-qq", "-o", "APT::Sandbox::User=root", "download", f"{name}={version}", cwd=packages)
    except SetupError as error:
        raise SetupError(f"{error}\nIf that kernel is outdated: apt-get update && apt-get install "
                         "linux-headers-amd64") from error
    (package,) = packages.glob(f"{name}_*.deb")
    shutil.rmtree(tree, ignore_errors=True)
    _run("dpkg", "-x", package, tree)
    package.unlink()
    _run("/usr/sbin/depmod", "-b", tree, release)
    (tree / "complete").touch()
    return tree


def _unpack_vmlinux(image, target):
    """Takes the ELF kernel out of a bzImage: started directly, it saves its own unpacking at each boot."""
    data = image.read_bytes()
    setup_sectors = data[0x1F1] or 4
    # Boot protocol 2.08 and later: where the compressed kernel stands behind the real-mode code.
    offset, length = struct.unpack_from("<II", data, 0x248)
    payload = data[(setup_sectors + 1) * 512 + offset:][:length]
    if payload.startswith(b"\xfd7zXZ"):
        kernel = lzma.LZMADecompressor().decompress(payload)
    elif payload.startswith(b"\x1f\x8b"):
        kernel = gzip.decompress(payload[:-4])
    elif payload.startswith(b"\x28\xb5\x2f\xfd"):
        kernel = subprocess.run(["zstd", "-dc"], input=payload, stdout=subprocess.PIPE, check=False).stdout
    else:
        raise SetupError(f"{image}: unknown kernel compression")
    if not kernel.startswith(b"\x7fELF"):
        raise SetupError(f"{image}: no ELF kernel inside")
    target.write_bytes(kernel)


def _build_module(release, target):
    """Builds in a directory of links, so that the sources stay clean."""
    work = BUILD / "module"
    shutil.rmtree(work, ignore_errors=True)
    work.mkdir(parents=True)
    for source in (HERE / "kernel").iterdir():
        (work / source.name).symlink_to(source)
    _run("make", "-C", f"/lib/modules/{release}/build", f"M={work}", "modules")
    _run("strip", "--strip-debug", "-o", target, work / "vboard.ko")


def _build_agent(target):
    _run("gcc", "-O2", "-Wall", "-Wextra", "-Werror", "-static", "-s", "-o", target, HERE / "rootfs" / "agent.c")


def shared_libraries(program):
    """Paths of the libraries and the loader that a program needs; none for a static one or a script."""
    done = subprocess.run(["ldd", str(program)], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          check=False)
    if "not found" in done.stdout:
        raise SetupError(f"{program} needs a library that is not here:\n{done.stdout}")
    return re.findall(r"(/\S+) \(0x", done.stdout) if done.returncode == 0 else []


def add_program(archive, path, source, present=()):
    """Adds a program and its libraries, at the paths where the loader looks, but for those already `present`."""
    archive.copy(path, source, 0o755)
    for library in shared_libraries(source):
        if library not in archive and library not in present:
            archive.copy(library, os.path.realpath(library), 0o755)


def _modules_in_order(tree, release):
    """The module files to load, each after the ones that it needs."""
    directory = tree / "lib" / "modules" / release
    needs = {}
    for line in (directory / "modules.dep").read_text().splitlines():
        path, _, others = line.partition(":")
        needs[path] = others.split()
    by_name = {os.path.basename(path).split(".")[0].replace("-", "_"): path for path in needs}
    builtin = (directory / "modules.builtin").read_text()
    order = []

    def add(path):
        for other in needs[path]:
            add(other)
        if path not in order:
            order.append(path)

    for name in MODULES:
        if name in by_name:
            add(by_name[name])
        elif f"/{name}.ko" not in builtin:
            raise SetupError(f"the kernel has no module {name}")
    return [directory / path for path in order]


def _add_busybox(archive):
    archive.copy("/bin/busybox", "/bin/busybox", 0o755)
    for path in _run("/bin/busybox", "--list-full").split():
        if path != "bin/busybox":
            archive.symlink(path, "/bin/busybox")


def _build_base(target, tree, release, module, agent):
    archive = Archive()
    archive.directory("/tmp", 0o1777)
    for path in DIRECTORIES:
        archive.directory(path)
    archive.character_device("/dev/console", 5, 1)
    _add_busybox(archive)
    for path, source in TOOLS.items():
        add_program(archive, path, source)
    for path, source in BRIDGES.items():
        archive.copy(path, HERE / "rootfs" / "bridges" / source, 0o755)
    for path, source in CONFIGURATION.items():
        archive.copy(path, HERE / "rootfs" / "etc" / source, 0o755 if source.endswith(".script") else 0o644)
    archive.copy("/init", HERE / "rootfs" / "init", 0o755)
    archive.copy("/usr/lib/board/agent", agent, 0o755)
    archive.file("/etc/passwd", b"root::0:0:root:/root:/bin/sh\n")
    archive.file("/etc/group", b"root:x:0:\n")
    order = []
    for source in [*_modules_in_order(tree, release), module]:
        path = f"/lib/modules/{source.name}"
        archive.copy(path, source, 0o644)
        order.append(path)
    archive.file("/etc/modules.order", "".join(f"{path}\n" for path in order).encode())
    target.write_bytes(archive.to_bytes())


class Artefacts:
    """What ensure() made: paths of the ELF kernel and of the base archive, and the libraries that the base holds."""

    def __init__(self, kernel, base, libraries, boot_image):
        self.kernel, self.base, self.libraries, self.boot_image = kernel, base, libraries, boot_image


@contextlib.contextmanager
def exclusive(name="lock"):
    """Several test processes may ask for the same at once; one makes it, the others wait."""
    BUILD.mkdir(parents=True, exist_ok=True)
    with open(BUILD / name, "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield


def ensure():
    """Makes what is missing or outdated. Raises SetupError."""
    tools = [pathlib.Path(path).resolve() for path in TOOLS.values()]
    missing = [str(path) for path in [*tools, pathlib.Path("/bin/busybox")] if not path.exists()]
    if missing:
        raise SetupError(f"not installed: {' '.join(missing)}; ./run installs what the board needs")
    libraries = sorted({library for tool in tools for library in shared_libraries(tool)})
    with exclusive():
        release, version = _kernel_release()
        tree = _kernel_tree(release, version)
        image = tree / "boot" / f"vmlinuz-{release}"
        kernel = _make(BUILD / "vmlinux", [release, version],
                       lambda target: _unpack_vmlinux(image, target))
        module = _make(BUILD / "vboard.ko", [release, version, *sorted((HERE / "kernel").iterdir())],
                       lambda target: _build_module(release, target))
        agent = _make(BUILD / "agent", [HERE / "rootfs" / "agent.c"], _build_agent)
        sources = sorted(path for path in (HERE / "rootfs").rglob("*") if path.is_file())
        base = _make(BUILD / "base.cpio",
                     [release, version, module, agent, HERE / "cpio.py", *sources, *tools,
                      pathlib.Path("/bin/busybox"), *(pathlib.Path(library).resolve() for library in libraries)],
                     lambda target: _build_base(target, tree, release, module, agent))
    return Artefacts(kernel, base, libraries, image)


if __name__ == "__main__":
    print(ensure().base)

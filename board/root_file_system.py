"""
The device's root file system: Debian's user space for its processor at the paths where the device's command lines look,
what bridges the years between their tools and today's, first process and command agent (rootfs/).
"""

import os
import re

import cpio
import device_kernel
from artefact_cache import BUILD, CROSS, HERE, PackageTree, SetupError, make, run

# Where the command lines of the device look for a tool, and where Debian keeps it.
TOOLS = {
    **{f"/usr/sbin/{name}": f"/usr/sbin/{name}" for name in (
        "flash_unlock", "flash_erase", "flashcp", "nandwrite", "mtd_debug", "mtdinfo", "nandtest", "jffs2dump",
        "ubiattach", "ubidetach", "ubiformat", "ubimkvol", "ubirmvol", "ubirsvol", "ubiupdatevol", "ubinfo")},
    "/usr/sbin/fw_printenv": "/usr/bin/fw_printenv",
    "/usr/bin/install": "/usr/bin/install",
    # For tests, which read back what the shell has set; the device has none.
    "/usr/sbin/ethtool": "/sbin/ethtool",
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
    "/usr/share/udhcpc/default.script": "udhcpc.script",
    "/etc/udhcpc/default.script": "udhcpc.script",
}
DIRECTORIES = ("/proc", "/sys", "/dev", "/mnt", "/cfg", "/root", "/var", "/run", "/etc/network")
DEFAULT_ENVIRONMENT = HERE / "bootloader" / "default-environment"
LIBRARY_DIRECTORIES = ("/lib/arm-linux-gnueabi", "/usr/lib/arm-linux-gnueabi")

TREE = PackageTree("userland-armel", "armel", lambda lists: lists.download_closure(
    "busybox-static", "libc6", "zlib1g", "mtd-utils", "libubootenv-tool", "coreutils", "ethtool"))


def _libraries_of(program):
    """Names of the libraries that a program needs, and the path of its loader first; none for a static one or a script."""
    with open(program, "rb") as start:
        magic = start.read(4)
    if magic != b"\x7fELF":
        return []
    shown = run(f"{CROSS}readelf", "-hld", program)
    if not re.search(r"Machine: +ARM$", shown, re.MULTILINE):
        raise SetupError(f"{program} is no program for the device's processor")
    return re.findall(r"program interpreter: (\S+)\]", shown) + re.findall(r"\(NEEDED\).*\[(\S+)\]", shown)


def _find_library(name):
    """(path on the device, file in the tree) of a library by its name, or of the loader by its path."""
    paths = [name] if name.startswith("/") else [f"{directory}/{name}" for directory in LIBRARY_DIRECTORIES]
    for path in paths:
        # The loader's link is absolute.
        source = TREE.path / path.lstrip("/")
        if source.is_symlink() and source.readlink().is_absolute():
            source = TREE.path / str(source.readlink()).lstrip("/")
        if source.exists():
            return path, source
    raise SetupError(f"the user space for the device has no {name}")


def add_program(archive, path, source, present=()):
    """Adds a program, and the libraries that it needs, but for those already `present`, at the paths where the loader looks."""
    archive.copy(path, source, 0o755)
    names = _libraries_of(source)
    while names:
        library, found = _find_library(names.pop())
        if library not in archive and library not in present:
            archive.copy(library, found, 0o755)
            names += _libraries_of(found)


def _add_busybox(archive):
    busybox = TREE.path / "bin" / "busybox"
    archive.copy("/bin/busybox", busybox, 0o755)
    for path in run("qemu-arm-static", busybox, "--list-full").split():
        if path != "bin/busybox":
            archive.symlink(path, "/bin/busybox")


def _build_agent(target):
    run(f"{CROSS}gcc", "-O2", "-Wall", "-Wextra", "-Werror", "-static", "-s", "-o", target, HERE / "rootfs" / "agent.c")


def _build_base(target, module, agent):
    TREE.ensure_whole()
    device_kernel.TREE.ensure_whole()
    archive = cpio.Archive()
    archive.directory("/tmp", 0o1777)
    for path in DIRECTORIES:
        archive.directory(path)
    archive.character_device("/dev/console", 5, 1)
    _add_busybox(archive)
    for path, source in TOOLS.items():
        add_program(archive, path, TREE.path / source.lstrip("/"))
    for path, source in BRIDGES.items():
        archive.copy(path, HERE / "rootfs" / "bridges" / source, 0o755)
    for path, source in CONFIGURATION.items():
        archive.copy(path, HERE / "rootfs" / "etc" / source, 0o755 if source.endswith(".script") else 0o644)
    # What the tools answer, and write, where the flash holds no good environment: the boot loader's own defaults.
    archive.copy("/etc/u-boot-initial-env", DEFAULT_ENVIRONMENT, 0o644)
    archive.copy("/init", HERE / "rootfs" / "init", 0o755)
    archive.copy("/usr/lib/board/agent", agent, 0o755)
    archive.file("/etc/passwd", b"root::0:0:root:/root:/bin/sh\n")
    archive.file("/etc/group", b"root:x:0:\n")
    order = []
    for source in [*device_kernel.modules_in_order(), module]:
        path = f"/lib/modules/{source.name}"
        archive.copy(path, source, 0o644)
        order.append(path)
    archive.file("/etc/modules.order", "".join(f"{path}\n" for path in order).encode())
    target.write_bytes(archive.to_bytes())


def base(module):
    """The archive that every board's root file system begins with."""
    agent = make(BUILD / "agent", [HERE / "root_file_system.py", HERE / "rootfs" / "agent.c"], _build_agent)
    sources = sorted(path for path in (HERE / "rootfs").rglob("*") if path.is_file())
    code = [HERE / name for name in ("cpio.py", "device_kernel.py", "root_file_system.py")]
    return make(BUILD / "base.cpio", [TREE.contents, device_kernel.TREE.contents, module, agent, DEFAULT_ENVIRONMENT, *code, *sources],
                lambda target: _build_base(target, module, agent))


def overlay(base_archive, programs, files):
    """
    The archive that lies over the base. `programs`: {path on the device: host path}, with the libraries that the base does
    not have; `files`: {path: host path or bytes}, programs too where the path lies in a directory for programs.
    """
    present = {path for path in cpio.names(base_archive) if ".so" in path}
    archive = cpio.Archive()
    for path, source in programs.items():
        add_program(archive, path, source, present)
    for path, source in files.items():
        program = os.path.dirname(path).endswith("bin")
        if isinstance(source, bytes):
            archive.file(path, source, 0o755 if program else 0o644)
        elif program:
            add_program(archive, path, source, present)
        else:
            archive.copy(path, source)
    return archive.to_bytes()

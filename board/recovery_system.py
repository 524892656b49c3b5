"""
The recovery system as it lies in flash: the kernel and the root file system with the shell, as an image's config loader
part. It is installed like any other (`flash download ...`); the first time, the factory lays it into its partition.
"""

import gzip
import pathlib
import tempfile

import artefacts
import boot_loader
import device_kernel
import root_file_system
from artefact_cache import BUILD, HERE, ROOT, exclusive, make, run

KESTO = ROOT / "build" / "release" / "kesto"
VERSION, CODE = "3.1.0.0R1", "TK"


def image(programs, files):
    """
    The bytes of an image with the recovery system: header and contents of a config loader part, as they lie in the
    partition. `programs` and `files`: laid over the root file system, see root_file_system.overlay(). Raises SetupError.
    """
    made = artefacts.ensure()
    target = BUILD / ("recovery.rom" if not files else "recovery-with-files.rom")
    with exclusive():
        sources = [made.base, device_kernel.packed(), HERE / "boot_loader.py", HERE / "recovery_system.py", KESTO]
        for path, source in [*programs.items(), *files.items()]:
            sources += [path, source if isinstance(source, bytes) else pathlib.Path(source)]
        return make(target, sources, lambda new: _make(new, made.base, programs, files)).read_bytes()


def _make(target, base, programs, files):
    archive = base.read_bytes()
    archive += root_file_system.overlay(archive, programs, files)
    with tempfile.TemporaryDirectory() as name:
        contents = pathlib.Path(name) / "recovery"
        boot_loader.startable(contents, gzip.compress(archive, mtime=0), "Recovery system")
        run(KESTO, "image", "build", "-o", target, "--version", VERSION, "--code", CODE, "--config-loader", contents)

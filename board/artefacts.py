"""What every board boots from: the kernel, and the base of the root file system. Needs no root."""

import sys

import device_kernel
import root_file_system
from artefact_cache import BUILD, ROOT, SetupError, exclusive


class Artefacts:
    """What ensure() made: paths of the kernel and of the root file system's base (an uncompressed archive)."""

    def __init__(self, kernel, base):
        self.kernel, self.base = kernel, base


def ensure():
    """Makes what is missing or outdated; at first that takes a minute and fetches Debian's packages. Raises SetupError."""
    with exclusive():
        try:
            device_kernel.TREE.ensure()
            root_file_system.TREE.ensure()
            return Artefacts(device_kernel.startable(), root_file_system.base(device_kernel.module()))
        except OSError as error:
            raise SetupError(f"{BUILD} was disturbed while the board was set up: {error}") from error


__all__ = ["Artefacts", "BUILD", "ROOT", "SetupError", "ensure"]

if __name__ == "__main__":
    try:
        print(ensure().base)
    except SetupError as problem:
        sys.exit(str(problem))

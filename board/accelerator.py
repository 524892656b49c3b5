"""How the machine's processor is run: by KVM where that works, else emulated."""

import os
import pathlib
import tempfile

import artefacts
from errors import BoardError

# A KVM that boots at all boots in a third of this.
_KVM_PROBE_SECONDS = 10.0


def _kvm_works():
    """Boots a board under KVM: there are machines where it is offered and hangs, or stumbles over an instruction."""
    from virtual_board import Board  # pylint: disable=C0415,R0401  (which needs to be told the accelerator)

    if not os.access("/dev/kvm", os.R_OK | os.W_OK):
        return False
    with tempfile.TemporaryDirectory() as directory, Board(directory, accelerator="kvm") as board:
        try:
            board.start(timeout=_KVM_PROBE_SECONDS)
        except BoardError:
            return False
        return board.sh("true").status == 0


def default_accelerator():
    """"kvm" when a board boots with it, which is tried once per boot of the host; else "tcg". VBOARD_ACCEL overrides."""
    if "VBOARD_ACCEL" in os.environ:
        return os.environ["VBOARD_ACCEL"]
    artefacts.ensure()
    boot = pathlib.Path("/proc/sys/kernel/random/boot_id").read_text(encoding="ascii").strip()
    note = artefacts.BUILD / "accelerator"
    with artefacts.exclusive("accelerator.lock"):
        words = note.read_text(encoding="ascii").split() if note.exists() else []
        if words[:1] != [boot] or len(words) != 2:
            words = [boot, "kvm" if _kvm_works() else "tcg"]
            note.write_text(" ".join(words), encoding="ascii")
    return words[1]

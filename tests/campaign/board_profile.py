"""What a program has counted on virtual boards, as a raw profile that llvm-profdata reads.

The program (preset coverage-arm) counts in a file of this machine that the boards map: its counters and nothing else
(tests/support/board_counters.cpp). What describes them stands in sections of the program. Both together, behind a header, are
what compiler-rt's own runtime would have written: version 8 of the format of llvm/ProfileData/InstrProfData.inc, for 32 bits.
"""

import struct
import subprocess
import tempfile
from pathlib import Path

_MAGIC = int.from_bytes(b"\xfflprofR\x81", "big")
_VERSION = 8
# Name and hash of a function, place of its counters, its address, its values, number of counters, numbers of values.
_FUNCTION = struct.Struct("<QQIIII4x4x")
_HEADER = struct.Struct("<11Q")


def raw_profile(program: Path, counted: Path) -> bytes:
    """The raw profile of a program that was counted in a file. Raises LookupError when the program has no counters."""
    (size, start), (_, own) = _place(program, "cnts"), _place(program, "data")
    functions, names = _section(program, "data"), _section(program, "names")
    # Each function says how far its counters lie behind its record.
    moved = b""
    for at in range(0, len(functions), _FUNCTION.size):
        fields = list(_FUNCTION.unpack_from(functions, at))
        fields[2] = (fields[2] + own - start + len(functions)) % 2 ** 32
        moved += _FUNCTION.pack(*fields)
    counters = counted.read_bytes()[:size]
    header = _HEADER.pack(_MAGIC, _VERSION, 0, len(functions) // _FUNCTION.size, 0, size // 8, 0, len(names), len(functions), 0, 1)
    return header + moved + counters + names + bytes(-len(names) % 8)


def _section(program: Path, name: str) -> bytes:
    with tempfile.NamedTemporaryFile() as file:
        subprocess.run(["llvm-objcopy", f"--dump-section=__llvm_prf_{name}={file.name}", str(program), "/dev/null"], check=True)
        return Path(file.name).read_bytes()


def _place(program: Path, name: str) -> tuple[int, int]:
    """Size and address of a section."""
    shown = subprocess.run(["llvm-size", "-A", "-d", str(program)], capture_output=True, text=True, check=True).stdout
    for line in shown.splitlines():
        if line.startswith(f"__llvm_prf_{name} "):
            size, address = line.split()[1:3]
            return int(size), int(address)
    raise LookupError(f"{program} was not built to count: it has no __llvm_prf_{name}")

"""kesto, the technician's tool, run as a program on a computer, and images whose headers were tampered with."""

import struct
import subprocess
from pathlib import Path

import images

HEADER_SUM = 16


class Kesto:
    """Runs the program in a directory of its own."""

    def __init__(self, program: Path, directory: Path):
        self.program, self.directory = program, directory

    def run(self, *words, **options) -> subprocess.CompletedProcess:
        return subprocess.run([self.program, *map(str, words)], cwd=self.directory, capture_output=True, text=True,
                              timeout=120, **options)

    def start(self, *words, **options) -> subprocess.Popen:
        """Without waiting for its end. What this process ignores, behind nohup or in the background, it does not."""
        return subprocess.Popen(["/usr/bin/env", "--default-signal", self.program, *words], cwd=self.directory, **options)

    def build(self, *words) -> bytes:
        """Builds out.rom, which must succeed without a word on standard error."""
        result = self.run("image", "build", "-o", "out.rom", *words)
        assert (result.returncode, result.stderr) == (0, "")
        return (self.directory / "out.rom").read_bytes()

    def refuses(self, message: str, *words, status=1, **options):
        """The command fails with this one line on standard error and nothing else."""
        result = self.run(*words, **options)
        assert (result.returncode, result.stdout, result.stderr) == (status, "", f"kesto: {message}\n")

    def refuses_build(self, message: str, *words, **options):
        """Such a build leaves the directory as it was."""
        before = self.files()
        self.refuses(message, "image", "build", *words, **options)
        assert self.files() == before

    def misused(self, message: str, *words, command="image build "):
        before = self.files()
        self.refuses(f"{message} (see 'kesto {command}--help')", *words, status=2)
        assert self.files() == before

    def files(self) -> dict:
        return {path.name: (path.stat().st_ino, path.stat().st_mtime_ns) for path in self.directory.iterdir()}

    def file(self, name: str, contents: bytes) -> Path:
        path = self.directory / name
        path.write_bytes(contents)
        return path

    def sparse(self, name: str, size: int, pieces: dict | None = None) -> Path:
        """A file that is a hole but for `pieces`, bytes by offset."""
        path = self.directory / name
        with path.open("wb") as file:
            for offset, data in (pieces or {}).items():
                file.seek(offset)
                file.write(data)
            file.truncate(size)
        return path


def patched(image: bytes, offset: int, value, part: int = 0, resum=True) -> bytes:
    """The image with a number or bytes put into the header at `part`, whose checksum is brought in line."""
    image = bytearray(image)
    data = value if isinstance(value, bytes) else struct.pack(">I", value)
    image[part + offset:part + offset + len(data)] = data
    if resum:
        image[part + HEADER_SUM:part + HEADER_SUM + 4] = bytes(4)
        image[part + HEADER_SUM:part + HEADER_SUM + 4] = struct.pack(">I", images.checksum(image[part:part + 256]))
    return bytes(image)

"""The places of docs/reliability.md that campaigns write."""

import subprocess
from pathlib import Path

_ROOT = Path(__file__).resolve().parents[2]


def commit_of() -> str:
    """The commit of the sources, told apart from one with changes behind it."""
    return subprocess.run(["git", "describe", "--always", "--dirty"], cwd=_ROOT, capture_output=True, text=True,
                          check=True).stdout.strip()


def write_between(path: Path, name: str, text: str) -> None:
    """Replaces what stands between the marks `name` and "end of `name`" of a document. Raises SystemExit when it has none."""
    begin, end = f"<!-- {name} -->\n", f"<!-- end of {name} -->\n"
    before, found, rest = path.read_text(encoding="utf-8").partition(begin)
    _, found_end, behind = rest.partition(end)
    if not found or not found_end:
        raise SystemExit(f"{path} has no place for {name}")
    path.write_text(f"{before}{begin}\n{text}\n{end}{behind}", encoding="utf-8")

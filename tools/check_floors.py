#!/usr/bin/env python3
"""Holds the folders of the code against their floors.

    tools/check_floors.py [ROOT]

The table "The house" in docs/architecture.md lists the folders from the roof down, one row each:

    | 3 | `src/image/` | what lives there |

A file includes from its own folder and from folders on lower floors; folders on one floor include from each other
only without a circle. Fails on an include that runs up, on folders that include each other in a circle, on a folder
of src/, host/ or bench/ that is not in the table, and on a row without a folder.
"""
import pathlib
import re
import sys

ROW = re.compile(r"^\| *(\d+) *\| *`([^`]+)/` *\|")
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"')
SOURCES = (".cpp", ".h")
# Made by the build from no folder's file (cmake/build_date.cmake).
MADE = {"build_date.h"}


def read_floors(root):
    """The floor of every folder in the table, by its path."""
    floors = {}
    for line in (root / "docs/architecture.md").read_text().splitlines():
        if row := ROW.match(line):
            floors[row[2]] = int(row[1])
    return floors


def source_files(root):
    return sorted(path for top in ("src", "host", "bench") for path in (root / top).rglob("*") if path.suffix in SOURCES)


def folder_of(path, root):
    """src/ and host/ have rooms; bench/ is one."""
    parts = path.relative_to(root).parts
    return "/".join(parts[:2]) if parts[0] in ("src", "host") and len(parts) > 2 else parts[0]


def find_included(path, name, root):
    """The file that an include in quotes means: one beside the file, or one below src/ or host/."""
    for candidate in (path.parent / name, root / "src" / name, root / "host" / name):
        if candidate.is_file():
            return candidate.resolve()
    return None


def find_circle(arrows):
    """Folders that include each other in a circle, in order, or an empty list."""
    done = set()

    def visit(folder, way):
        if folder in way:
            return way[way.index(folder):] + [folder]
        if folder in done:
            return []
        for target in sorted(arrows.get(folder, ())):
            if circle := visit(target, way + [folder]):
                return circle
        done.add(folder)
        return []

    for folder in sorted(arrows):
        if circle := visit(folder, []):
            return circle
    return []


def check(root):
    """What is wrong, a line each, and the arrows between folders."""
    floors = read_floors(root)
    faults = []
    arrows = {}
    seen = set()
    for path in source_files(root):
        folder = folder_of(path, root)
        seen.add(folder)
        for number, line in enumerate(path.read_text().splitlines(), 1):
            include = INCLUDE.match(line)
            target = find_included(path, include[1], root) if include else None
            if target is None:
                if include and include[1] not in MADE:
                    faults.append(f"{path.relative_to(root)}:{number}: no such file: {include[1]}")
                continue
            other = folder_of(target, root)
            if other == folder:
                continue
            arrows.setdefault(folder, set()).add(other)
            if floors.get(other, 0) > floors.get(folder, 0):
                faults.append(f"{path.relative_to(root)}:{number}: runs up: {folder}/ includes from {other}/")
    faults += [f"{folder}/ is not in the table of docs/architecture.md" for folder in sorted(seen - set(floors))]
    faults += [f"docs/architecture.md: no sources in {folder}/" for folder in floors if folder not in seen]
    if circle := find_circle(arrows):
        faults.append("a circle: " + " -> ".join(f"{folder}/" for folder in circle))
    return faults, arrows


def main():
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ".").resolve()
    faults, arrows = check(root)
    for fault in faults:
        print(fault)
    print(f"{sum(map(len, arrows.values()))} arrows between folders, {len(faults)} faults")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())

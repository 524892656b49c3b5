"""What the shell on a board holds, for campaigns that let it work for long."""

import re
from dataclasses import dataclass

from board_session import BoardSession

# The memory of a process is counted in pages, and the system moves some of them as it likes.
MEMORY_KIB = 64


@dataclass(frozen=True)
class State:
    """
    KiB of memory that are the shell's own, its descriptors, processes it has started; UBI devices, file systems mounted, and
    files in /tmp of the whole board; the shell's process.
    """

    memory: int
    descriptors: int
    children: int
    attached: int
    mounted: int
    files: int
    process: str

    @staticmethod
    def of(dev: BoardSession) -> "State":
        """Now, at the prompt."""
        pid = dev.shell_pid()
        look = (f"grep -E '^(Anonymous|Swap):' /proc/{pid}/smaps_rollup; echo ---; ls /proc/{pid}/fd; echo ---; "
                f"cat /proc/{pid}/task/{pid}/children; echo; echo ---; ls /sys/class/ubi; echo ---; cat /proc/mounts; echo ---; "
                "ls -A /tmp")
        memory, descriptors, children, ubi, mounts, files = dev.board.sh(look, check=True).output.split("---\n")
        assert "Anonymous:" in memory, "this kernel does not say what a process holds"
        return State(sum(int(number) for number in re.findall(r": +(\d+) kB", memory)), len(descriptors.split()),
                     len(children.split()), len([word for word in ubi.split() if word != "version"]), len(mounts.splitlines()),
                     len(files.split()), pid)


def grown(what: str, before: State, after: State) -> list[str]:
    """What is not as it was, in words."""
    wrong = [f"{what}: {name} {getattr(before, name)}, then {getattr(after, name)}"
             for name in ("descriptors", "children", "attached", "mounted", "files", "process")
             if getattr(before, name) != getattr(after, name)]
    if after.memory > before.memory + MEMORY_KIB:
        wrong.append(f"{what}: memory {before.memory} KiB, then {after.memory}")
    return wrong


def shown(before: State, after: State) -> str:
    """The cells of a table: before, after, of all but the process."""
    return " | ".join(f"{getattr(before, name)}, {getattr(after, name)}"
                      for name in ("memory", "descriptors", "children", "attached", "mounted", "files"))


HEAD = "memory of its own (KiB) | descriptors | processes | attached | mounted | files in /tmp"

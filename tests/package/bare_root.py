"""A bare Debian 12 system in a directory, where packages are installed, run and removed.

Made by mmdebstrap, which takes a minute, and kept as an archive; every test unpacks its own. Tools run: mmdebstrap, tar,
unshare, chroot, dpkg, qemu-arm-static. For a caller who is not root, mmdebstrap wants a range of subordinate user numbers
(/etc/subuid and /etc/subgid, which adduser writes) and the tools of the package uidmap; nothing else here wants a privilege.
"""

import fcntl
import hashlib
import os
import re
import shutil
import subprocess
from pathlib import Path

# What is not a trace of a package: the lists of dpkg, which are compared by what they say, and its log.
_BOOKS = re.compile(r"var/lib/dpkg/(status|status-old|lock.*|triggers/.*|available.*)|var/log/dpkg\.log|var/lib/dpkg/info/format")


def control_field(package, field):
    """What a package's file says of itself; "" for a field that it has not."""
    return subprocess.run(["dpkg-deb", "--field", package, field], check=True, stdout=subprocess.PIPE, text=True).stdout.strip()


def dependencies(package):
    """The packages that a package says it needs, as apt wants them named on a machine of this processor."""
    suffix = {"armel": ":armel"}.get(control_field(package, "Architecture"), "")
    return [re.sub(r" *\(.*\)", "", entry).strip() + suffix for entry in control_field(package, "Depends").split(",")]


def _sources():
    """Debian's own lines of this machine's package sources."""
    lines = subprocess.run(["apt-get", "indextargets", "--format", "$(ORIGIN) deb $(REPO_URI) $(RELEASE) $(COMPONENT)",
                            "Created-By: Packages"], check=True, stdout=subprocess.PIPE, text=True).stdout.splitlines()
    return sorted({line.removeprefix("Debian ") for line in lines if re.match(r"Debian deb \S+ bookworm", line)})


def archive(directory, packages):
    """
    The archive of a system with Debian's essential packages and these ("NAME" or "NAME:ARCHITECTURE"), for this computer's
    programs and the device's. Made in `directory` unless it is there.
    """
    name = hashlib.sha256(" ".join(sorted(packages)).encode()).hexdigest()[:16]
    directory.mkdir(parents=True, exist_ok=True)
    made = directory / f"{name}.tar"
    with open(directory / "lock", "w", encoding="utf-8") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not made.exists():
            new = made.with_suffix(".new.tar")
            # Nothing of it has to survive a power cut: without waits for the disk it takes a fraction of the time.
            subprocess.run(["mmdebstrap", "--quiet", "--variant=essential", "--architectures=amd64,armel",
                            "--dpkgopt=force-unsafe-io", f"--include={','.join(sorted(packages))}", "bookworm", new, *_sources()],
                           check=True, stdin=subprocess.DEVNULL)
            new.rename(made)
    return made


class BareRoot:
    """The system in a directory of its own."""

    def __init__(self, archive_path, directory):
        self.path = directory
        directory.mkdir()
        subprocess.run(["tar", "-x", "-C", directory, "--no-same-owner", "--exclude=./dev/*", "-f", archive_path], check=True)
        (directory / "dev" / "null").touch()
        shutil.copy(shutil.which("qemu-arm-static"), directory)

    def words(self, *words):
        """
        The command line that runs these words in the system, as its root: alone with its processes and without a network.
        All of them end with the command.
        """
        enter = 'mount -t proc proc "$0/proc" && mount --bind /dev/null "$0/dev/null" && exec chroot "$0" "$@"'
        return ["unshare", "--map-root-user", "--mount", "--net", "--pid", "--fork", "--kill-child", "--", "sh", "-c", enter,
                self.path, *words]

    def run(self, *words):
        """Runs the words there. Returns all output; fails when the status is not 0."""
        done = subprocess.run(self.words(*words), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL": "C", "HOME": "/"}, text=True, check=False)
        assert done.returncode == 0, f"{words}: status {done.returncode}\n{done.stdout}"
        return done.stdout

    def install(self, package):
        """Installs a package's file by dpkg, which refuses it when something that it needs is not there."""
        shutil.copy(package, self.path / "package.deb")
        self.run("dpkg", "--install", "/package.deb")
        (self.path / "package.deb").unlink()

    def remove(self, name):
        self.run("dpkg", "--purge", name)

    def packages(self):
        """All packages that dpkg knows, with what it thinks of them."""
        return self.run("dpkg-query", "--show", "--showformat", "${binary:Package} ${Version} ${db:Status-Abbrev}\n").splitlines()

    def files(self):
        """{path: what it is} of everything in the system but dpkg's books."""
        found = {}
        for directory, directories, files in os.walk(self.path):
            for name in (*directories, *files):
                path = Path(directory, name)
                relative = str(path.relative_to(self.path))
                if not _BOOKS.fullmatch(relative):
                    status = path.lstat()
                    found[relative] = (oct(status.st_mode), None if path.is_dir() else (status.st_size, status.st_mtime_ns))
        return found

"""Builds a mutant and finds the test that notices it.

Only the changed file is compiled, and only the unit tests and the program are linked, each in a directory of the
mutant's own: several are judged side by side, and the sources stay as they are.
"""

import itertools
import json
import os
import re
import resource
import shlex
import shutil
import signal
import subprocess
import threading
import time
import xml.etree.ElementTree
from collections.abc import Iterable
from dataclasses import dataclass
from pathlib import Path

from places import Place
from traces import Traces

# The console tests that concern a folder, or a file of the commands.
_CONSOLE = {
    "analysis": ["console/test_flash_analyze.py"],
    "bootenv": ["console/test_bootenv.py"],
    "cli": ["console/test_dispatch.py", "console/test_line_editor.py", "console/test_builtins.py", "console/test_startup.py",
            "both/test_shell.py"],
    "console": ["console/test_console_modes.py", "console/test_console_settings.py", "console/test_transfer_end.py",
                "console/test_startup.py", "both/test_signals.py"],
    "flash": ["console/test_flash_download.py", "console/test_flash_maintenance.py", "console/test_flash_download_failure.py"],
    "image": ["console/test_flash_download.py", "console/test_flash_download_ubi.py", "console/test_flash_download_network.py",
              "console/test_flash_download_failure.py"],
    "mtd": ["console/test_startup_flash.py", "console/test_flash_maintenance.py", "console/test_flash_analyze.py"],
    "net": ["console/test_network.py", "console/test_link_mode.py", "console/test_file_download_network.py"],
    "platform": ["console/test_gpiolib.py", "console/test_opmode.py", "console/test_startup.py", "both/test_signals.py"],
    "prodcfg": ["console/test_product.py", "console/test_startup.py"],
    "tty": ["console/test_console_modes.py", "console/test_file_download.py", "both/test_port.py"],
    "ubi": ["console/test_flash_download_ubi.py", "console/test_flash_maintenance.py"],
    "util": ["console/test_logging.py", "console/test_builtins.py", "console/test_dispatch.py"],
    "util/unique_file": ["console/test_file_download.py", "console/test_product.py"],
    "commands/affirm": ["console/test_flash_maintenance.py", "console/test_product.py"],
    "commands/bootenv": ["console/test_bootenv.py"],
    "commands/builtins": ["console/test_builtins.py", "console/test_logging.py", "console/test_startup.py"],
    "commands/command": ["console/test_dispatch.py", "console/test_builtins.py"],
    "commands/console": ["console/test_console_modes.py", "console/test_console_settings.py", "console/test_logging.py"],
    "commands/download": ["console/test_flash_download.py", "console/test_file_download.py",
                          "console/test_flash_download_network.py"],
    "commands/flash": ["console/test_flash_maintenance.py"],
    "commands/flash_analyze": ["console/test_flash_analyze.py"],
    "commands/gpiolib": ["console/test_gpiolib.py", "console/test_pattern.py", "both/test_signals.py"],
    "commands/network": ["console/test_network.py", "console/test_link_mode.py"],
    "commands/network_download": ["console/test_flash_download_network.py", "console/test_file_download_network.py"],
    "commands/opmode": ["console/test_opmode.py"],
    "commands/product": ["console/test_product.py"],
    "commands/serial_download": ["console/test_flash_download.py", "console/test_file_download.py",
                                 "console/test_transfer_end.py"],
}
_CONSOLE_SECONDS = 1500.0  # a session that hangs ends by itself, as a test that fails
_SLOW_SECONDS = 4.0        # unit tests that take longer than this come after the others
_PATIENCE = "60"           # seconds that a console test waits for what must come
_ELSEWHERE = 40            # console tests of other folders that are asked last
_FREE_BYTES = 4 << 30      # a mutant that writes without end is stopped before the disk is full


@dataclass
class Verdict:
    verdict: str  # killed, time-out, survived, same code, does not compile; open: not all tests were asked
    by: str = ""


class Stopped(Exception):
    """A run did not end by itself."""


class Ended(Exception):
    """The judge was told to end."""


class Build:
    """The unchanged build that mutants are made from."""

    def __init__(self, root: Path):
        self.root, self.directory = root, root / "build" / "mutation"
        self._same = {}
        self.passing = set()  # tests that were seen to pass without a mutant

    def configure(self) -> None:
        """Lists how each source is compiled, and makes the header that they want made, so that they can be read."""
        # No optimization, no debug information: what counts is how fast a file is compiled and linked.
        self._run(["cmake", "-S", str(self.root), "-B", str(self.directory), "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
                   "-DCMAKE_CXX_FLAGS_DEBUG=-O0 -g0", "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=mold", "-DBUILD_HOST_TOOLS=OFF"])
        self._ninja("build_date")
        entries = json.loads((self.directory / "compile_commands.json").read_text())
        self._commands = {os.path.relpath(entry["file"], self.root): shlex.split(entry["command"]) for entry in entries}

    def make(self, workers: int) -> None:
        """Brings the build up to date. The first time, measures how long the unit tests take, and fails when not all pass;
        and finds out which test runs through which code."""
        self._ninja("unit_tests", "recovery-loader")
        self._links = {target: self._link_command(target) for target in ("unit_tests", "recovery-loader")}
        self._read_dependencies()
        self._read_suites()
        self._measure()
        self._traces = Traces(self, self._console_files(itertools.chain(*_CONSOLE.values())))
        self._traces.load(workers)

    def commands(self) -> dict[str, list[str]]:
        """How each source is compiled."""
        return self._commands

    def slow_tests(self) -> list[str]:
        """The unit tests that take much longer than the others."""
        return [test for test, _, _ in self._slow]

    def flags(self, file: str) -> list[str]:
        """What the compiler's front end is told about the file: include directories and definitions."""
        command = self._commands.get(file) or next(own for name, own in self._commands.items() if name.startswith("src/"))
        return [word for word in command if re.match(r"-[IDU]|-fno-(exceptions|rtti)", word)]

    def files(self) -> list[str]:
        """The files of the product, with the headers that hold code."""
        return sorted(str(path.relative_to(self.root)) for path in (self.root / "src").rglob("*") if path.suffix in (".cpp", ".h"))

    def _ninja(self, *targets: str) -> None:
        # The banner's date does not follow the commit here: what was built and measured stays good for the next one.
        self._run(["ninja", "-C", str(self.directory), "-j2", *targets], dict(os.environ, SOURCE_DATE_EPOCH="1700000000"))

    def _run(self, words: list[str], environment: dict | None = None) -> str:
        result = subprocess.run(words, capture_output=True, text=True, env=environment)
        if result.returncode != 0:
            raise RuntimeError(f"{' '.join(words)}:\n{result.stdout[-3000:]}{result.stderr[-3000:]}")
        return result.stdout

    def _link_command(self, target: str) -> list[str]:
        line = self._run(["ninja", "-C", str(self.directory), "-t", "commands", target]).splitlines()[-1]
        return shlex.split(re.fullmatch(r": && (.*) && :", line.strip())[1])

    def _read_dependencies(self) -> None:
        """Which sources are compiled again when a file has changed."""
        objects = {}
        for file, command in self._commands.items():
            objects[command[command.index("-o") + 1]] = file
        self._users, user = {}, None
        for line in self._run(["ninja", "-C", str(self.directory), "-t", "deps"]).splitlines():
            if not line.startswith(" "):
                user = objects.get(line.split(":")[0])
            elif user and line.strip():
                file = os.path.relpath(os.path.join(self.directory, line.strip()), self.root)
                self._users.setdefault(file, set()).add(user)

    def _read_suites(self) -> None:
        """The unit tests' suites, by the headers that their files include."""
        self._suites = {}
        for path in (self.root / "tests/unit").glob("*_test.cpp"):
            text = path.read_text()
            suites = set(re.findall(r"^(?:TEST|TEST_F|TEST_P|TYPED_TEST)\((\w+),", text, re.MULTILINE))
            for header in re.findall(r'^#include "(\w+/\w+\.h)"', text, re.MULTILINE):
                self._suites.setdefault(header, set()).update(suites)

    def _measure(self) -> None:
        results = self.directory / "baseline.xml"
        if not results.exists():
            made = self.directory / "baseline.new.xml"
            run = subprocess.run([str(self.directory / "unit_tests"), f"--gtest_output=xml:{made}", "--gtest_brief=1"], capture_output=True, text=True)
            if run.returncode != 0:
                raise RuntimeError(f"the unit tests fail without a mutant:\n{run.stdout[-3000:]}")
            made.rename(results)
        self._seconds, self._slow = {}, []
        for suite in xml.etree.ElementTree.parse(results).getroot():
            for test in suite:
                name, seconds = f"{suite.get('name')}.{test.get('name')}", float(test.get("time"))
                self.passing.add(name)
                if seconds > _SLOW_SECONDS:
                    self._slow.append((name, _plain_suite(name), seconds))
                else:
                    self._seconds[name] = seconds
        self._units, suite = [], ""
        for line in self._run([str(self.directory / "unit_tests"), "--gtest_list_tests"]).splitlines():
            if not line.startswith(" "):
                suite = line.split("#")[0].strip()
            elif suite + line.split("#")[0].strip() not in self.slow_tests():
                self._units.append(suite + line.split("#")[0].strip())

    # ------------------------------------------------------------------ what a mutant is judged by

    def unit_stages(self, place: Place) -> list[tuple[str, float]]:
        """Filters of the unit tests that run through the mutant, with how long they take: of the tests of the file and its
        folder first those through the very block, then the others; then the slow ones alike, and last those of other
        folders. A filter may be empty."""
        folder, name = place.file.split("/")[1], Path(place.file).stem
        own = self._suites.get(f"{folder}/{name}.h", set())
        near = own.union(*(suites for header, suites in self._suites.items() if header.startswith(folder + "/")))
        through, others = self._traces.tests("unit", place, self._units)
        # The slow ones are not traced: they run through what the others of their suite do.
        alike = own if len(through) == len(self._units) else {_plain_suite(test) for test in through}
        stages = [[test for test in through if _plain_suite(test) in near], [test for test in others if _plain_suite(test) in near],
                  [test for test, suite, _ in self._slow if suite in near & alike],
                  [test for test in through + others if _plain_suite(test) not in near]]
        slow = {test: seconds for test, _, seconds in self._slow}
        return [(":".join(tests), sum(self._seconds.get(test, slow.get(test, 1.0)) for test in tests)) for tests in stages]

    def console_tests(self, place: Place) -> list[str]:
        """The console tests that concern the file's folder and run through the mutant, as arguments of pytest."""
        return self._traces.console(place, self._console_files_of(place))

    def other_console_tests(self, place: Place) -> list[str]:
        """Some of the console tests of other folders that run through the mutant."""
        return self._traces.elsewhere(place, self._console_files_of(place), _ELSEWHERE)

    def _console_files_of(self, place: Place) -> list[str]:
        folder, name = place.file.split("/")[1], Path(place.file).stem
        names = _CONSOLE.get(f"{folder}/{name}") or _CONSOLE[folder]
        # The headers of the commands hold what help shows of them.
        helped = ["console/test_dispatch.py"] if folder == "commands" and place.file.endswith(".h") else []
        return self._console_files([*helped, *names])

    def _console_files(self, names: Iterable[str]) -> list[str]:
        """Those that there are."""
        return [f"tests/{name}" for name in dict.fromkeys(names) if (self.root / "tests" / name).exists()]

    def compile_all(self, place: Place, directory: Path, optimized: bool = False) -> dict[str, Path] | None:
        """Compiles the mutant and what includes it, into `directory`. Returns the new objects by source, or None when it does
        not compile. Warnings are no reason: a mistake need not look like one."""
        source = (self.root / place.file).read_bytes()
        return self._compile(place.file, place.apply(source), directory, optimized)

    def _compile(self, file: str, content: bytes, directory: Path, optimized: bool) -> dict[str, Path] | None:
        shutil.rmtree(directory, ignore_errors=True)
        changed = directory / file
        changed.parent.mkdir(parents=True)
        changed.write_bytes(content)
        objects = {}
        for user in sorted(self._users.get(file, set())):
            if optimized and not user.startswith("src/"):
                continue
            command = list(self._commands[user])
            if command[0].endswith("ccache"):
                command.pop(0)
            output = directory / "objects" / f"{user.replace('/', '.')}.o"
            output.parent.mkdir(exist_ok=True)
            command[command.index("-o") + 1] = str(output)
            if user == file:
                command[command.index("-c") + 1] = str(changed)
            # The changed header stands before the one of the sources.
            command[1:1] = [f"-I{directory}/src"]
            command += ["-w", *(["-O2"] if optimized else [])]
            if subprocess.run(command, cwd=self.directory, capture_output=True).returncode != 0:
                return None
            objects[user] = output
        return objects

    def is_same_code(self, place: Place, directory: Path) -> bool:
        """Whether the optimizer makes the same of the mutant as of the file without it."""
        if place.file not in self._same:
            plain = self._compile(place.file, (self.root / place.file).read_bytes(), directory, optimized=True)
            self._same[place.file] = {user: path.read_bytes() for user, path in plain.items()}
        changed = self.compile_all(place, directory, optimized=True)
        return changed is not None and {user: path.read_bytes() for user, path in changed.items()} == self._same[place.file]

    def link(self, target: str, objects: dict[str, Path], output: Path, extra: list[Path] = ()) -> None:
        """Links the program with these objects in place of the ones of the same sources, and with the extra ones."""
        command = list(self._links[target])
        command[command.index("-o") + 1] = str(output)
        loose = [str(path) for path in extra]
        for user, path in objects.items():
            own = self._commands[user]
            plain = own[own.index("-o") + 1]
            if plain in command:
                command[command.index(plain)] = str(path)
            elif user.startswith("src/") and user != "src/cli/main.cpp":
                loose.append(str(path))  # stands for the library's member, which nobody asks for any more
        command[command.index("-o"):command.index("-o")] = loose
        run = subprocess.run(command, cwd=self.directory, capture_output=True, text=True)
        if run.returncode != 0:
            raise RuntimeError(f"{place_of(objects)} does not link:\n{run.stderr[-2000:]}")


def _plain_suite(test: str) -> str:
    """The name of a unit test's suite as the source has it."""
    suite = test.split(".")[0]
    return suite.split("/")[1] if "/" in suite else suite


def place_of(objects: dict[str, Path]) -> str:
    return ", ".join(objects)


class Judge:
    """Judges mutants one after the other in a directory of its own."""

    def __init__(self, build: Build, number: int, ended: threading.Event, quick: bool = False):
        self.build, self._ended, self._quick = build, ended, quick
        self.directory = build.directory / f"worker-{number}"
        self._temporary = self.directory / "tmp"

    def judge(self, place: Place) -> Verdict:
        """Builds the mutant and runs tests until one fails twice."""
        shutil.rmtree(self.directory, ignore_errors=True)
        self._temporary.mkdir(parents=True)
        (self.directory / "tests").symlink_to(self.build.directory / "tests")
        objects = self.build.compile_all(place, self.directory / "made")
        if not objects:
            return Verdict("does not compile")
        if "/main.cpp" not in place.file:
            self.build.link("unit_tests", objects, self.directory / "unit_tests")
            *near, slow, far = self.build.unit_stages(place)
        else:
            near, slow, far = [], None, None
        verdict = self._units(near)
        if verdict or self._quick:
            return verdict or Verdict("open")
        if self.build.is_same_code(place, self.directory / "optimized"):
            return Verdict("same code")
        self.build.link("recovery-loader", objects, self.directory / "recovery-loader")
        console = self.build.console_tests(place)
        # What the shell does is seen on the console; what it uses, by other units.
        if far is None or place.file.split("/")[1] in ("cli", "commands", "console"):
            verdict = self._console(console) or (self._units([slow, far]) if far else None)
        else:
            verdict = self._units([far]) or self._console(console) or self._units([slow])
        return verdict or self._console(self.build.other_console_tests(place)) or Verdict("survived")

    def _units(self, stages: list[tuple[str, float]]) -> Verdict | None:
        for tests, seconds in stages:
            if not tests:
                continue
            verdict = self._unit(tests, 60 + 8 * seconds)
            if verdict:
                return verdict
        return None

    # ------------------------------------------------------------------ running

    def _unit(self, tests: str, seconds: float) -> Verdict | None:
        """The verdict when a unit test fails, and fails again when it is run alone."""
        stopped = False
        try:
            status, output = self._run(self._unit_words(tests), seconds)
        except Stopped as stop:
            status, output, stopped = 1, str(stop), True
        if status == 0:
            return None
        # The one that failed, or the last that began.
        failed = re.findall(r"^\[  FAILED  \] ([\w/]+\.[\w/]+)", output, re.MULTILINE) or \
            re.findall(r"^\[ RUN      \] ([\w/]+\.[\w/]+)", output, re.MULTILINE)[-1:]
        if not failed:
            return Verdict("time-out" if stopped else "killed", "before the first unit test")
        test, verdict = failed[0], "killed"
        try:
            status, _ = self._run(self._unit_words(test), 60)
        except Stopped:
            status, verdict = 1, "time-out"
        if status == 0:
            return None
        if test not in self.build.passing:
            if self._run([str(self.build.directory / "unit_tests"), f"--gtest_filter={test}"], 600)[0] != 0:
                raise RuntimeError(f"{test} fails without a mutant")
            self.build.passing.add(test)
        return Verdict(verdict, f"unit {test}")

    def _unit_words(self, tests: str) -> list[str]:
        return [str(self.directory / "unit_tests"), f"--gtest_filter={tests}", "--gtest_fail_fast"]

    def _console(self, tests: list[str]) -> Verdict | None:
        """The verdict when a console test fails, fails again, and passes with the unchanged program."""
        if not tests:
            return None
        program = self.directory / "recovery-loader"
        try:
            failed = self._pytest(program, tests, [*(["-n", "2"] if len(tests) > 30 or tests[0].endswith(".py") else []), "-m", "not board"])
        except Stopped:
            return Verdict("time-out", "console " + " ".join(sorted({test.split("::")[0] for test in tests})))
        if not failed or not self._pytest(program, failed[:1], []):
            return None
        if failed[0] not in self.build.passing:
            if self._pytest(self.build.directory / "recovery-loader", failed[:1], []):
                raise RuntimeError(f"{failed[0]} fails without a mutant")
            self.build.passing.add(failed[0])
        return Verdict("killed", f"console {failed[0].removeprefix('tests/')}")

    def _pytest(self, program: Path, tests: list[str], options: list[str]) -> list[str]:
        """The tests that failed, of these."""
        words = ["/usr/bin/python3", "-m", "pytest", "-x", "-q", "--tb=no", "-rfE", "-p", "no:cacheprovider",
                 f"--basetemp={self._temporary}/pytest", f"--build={self.build.directory}", f"--program={program}", *options, *tests]
        status, output = self._run(words, _CONSOLE_SECONDS, self.build.root)
        # What is behind the name is why; a parameter of the test may look like that.
        failed = re.findall(r"^(?:FAILED|ERROR) (tests/[^ \[]*(?:\[.*?\])?)(?: - .*)?$", output, re.MULTILINE)
        if status != 0 and not failed:
            raise RuntimeError(f"{' '.join(words)}:\n{output[-3000:]}")
        return failed

    def _run(self, words: list[str], seconds: float, directory: Path | None = None) -> tuple[int, str]:
        log = self.directory / "output"
        environment = dict(os.environ, TMPDIR=str(self._temporary), SESSION_PATIENCE=_PATIENCE)
        with log.open("wb") as output:
            process = subprocess.Popen(words, stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT, cwd=directory,
                                       env=environment, start_new_session=True, preexec_fn=_without_core)
            end = time.monotonic() + seconds
            try:
                while True:
                    try:
                        status = process.wait(timeout=1)
                        return status, log.read_text(errors="replace")
                    except subprocess.TimeoutExpired:
                        if self._ended.is_set():
                            raise Ended from None
                        if time.monotonic() > end or shutil.disk_usage(self.directory).free < _FREE_BYTES:
                            raise Stopped(log.read_text(errors="replace")) from None
            finally:
                self._end(process)

    def _end(self, process: subprocess.Popen) -> None:
        """Ends what is left of a run, politely first: it removes its device root then."""
        for number in (signal.SIGTERM, signal.SIGKILL):
            if process.poll() is None:
                os.killpg(process.pid, number)
                try:
                    process.wait(timeout=10)
                except subprocess.TimeoutExpired:
                    pass
        for left in self._temporary.iterdir():
            shutil.rmtree(left, ignore_errors=True) if left.is_dir() else left.unlink()


def _without_core() -> None:
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))

"""Which test runs through which code: what does not run through a mutant's function cannot notice it, and is not asked.

The unit tests and the console tests run once with a program that writes down the beginnings of blocks that it comes
through (trace.cpp). Sources that change make the traces worthless: then they are made again. A test that was added or
changed since counts as one that may notice everything.
"""

import collections
import hashlib
import json
import os
import re
import shutil
import subprocess
from pathlib import Path

_NAME_ROOM = 4096
_COMPILE = ["-O0", "-g1", "-w"]


class Traces:
    """Answers for one build; `unit` and `console` are asked apart."""

    def __init__(self, build, console_files: list[str]):
        self._build, self._root = build, build.root
        self._directory, self._file = build.directory / "traced", build.directory / "traces.json"
        self._console_files = console_files

    def load(self, workers: int) -> None:
        """Makes the traces of these sources, unless they are there."""
        stamp = self._stamp()
        if self._file.exists():
            self._traces = json.loads(self._file.read_text())
            if self._traces["stamp"] == stamp:
                return
        self._link()
        self._traces = {"stamp": stamp, "unit": self._run_units(), "console": self._run_console(workers)}
        self._file.write_text(json.dumps(self._traces))

    def tests(self, tier: str, place, all_tests: list[str]) -> tuple[list[str], list[str]]:
        """Of all tests of a tier those that a mutant has to fear: those that run through its very block, and the others that
        run through its function. All are, when it stands in none, or in one that the compiler may compute, and for the unit
        tests when it stands in a header: what it holds is also compiled into the tests, which are not traced."""
        own = self._traces[tier]
        known = {test: 1 << number for number, (test, stamp) in enumerate(own["tests"]) if self._test_stamp(tier, test) == stamp}
        in_function = [(line, int(bits, 16)) for line, bits in own["blocks"].get(place.file, [])
                       if place.function[0] <= line <= place.function[1]]
        if place.function == (0, 0) or not in_function or tier == "unit" and place.file.endswith(".h"):
            return list(all_tests), []
        through = 0
        for _, bits in in_function:
            through |= bits
        before = [line for line, _ in in_function if line <= place.line]
        block = 0
        for line, bits in in_function:
            if before and line == max(before):
                block |= bits
        near = [test for test in all_tests if test not in known or block & known[test]]
        far = [test for test in all_tests if test in known and through & known[test] and not block & known[test]]
        return near, far

    def console(self, place, files: list[str]) -> list[str]:
        """Of the console tests in these files those that a mutant has to fear, the likeliest first; a file that was changed
        since stands for all of its tests."""
        known = [test for test, stamp in self._traces["console"]["tests"] if test.split("::")[0] in files
                 and self._test_stamp("console", test) == stamp]
        whole = [file for file in files if not any(test.startswith(file + "::") for test in known)]
        near, far = self.tests("console", place, known)
        if near == known:
            return files
        return near + whole + far

    def elsewhere(self, place, files: list[str], most: int) -> list[str]:
        """Console tests in other files that run through the mutant's very block, at most so many of them."""
        others = [test for test, stamp in self._traces["console"]["tests"] if test.split("::")[0] not in files
                  and self._test_stamp("console", test) == stamp]
        near, _ = self.tests("console", place, others)
        return near[::max(1, -(-len(near) // most))] if near != others else []

    # ------------------------------------------------------------------ making them

    def _stamp(self) -> str:
        """Of the device's sources, and of what traces."""
        digest = hashlib.sha1()
        for path in sorted([*(self._root / "src").rglob("*"), *Path(__file__).parent.glob("trace*.cpp")]):
            if path.is_file():
                digest.update(path.name.encode() + path.read_bytes())
        return digest.hexdigest()

    def _test_stamp(self, tier: str, test: str) -> str:
        """Of the file that the test stands in; the same for a test that stands in none any more."""
        if not hasattr(self, "_stamps"):
            self._stamps = {}
            for path in (self._root / "tests").rglob("*"):
                if path.suffix == ".py":
                    self._stamps[str(path.relative_to(self._root))] = hashlib.sha1(path.read_bytes()).hexdigest()
                elif path.name.endswith("_test.cpp"):
                    digest = hashlib.sha1(path.read_bytes()).hexdigest()
                    for suite in re.findall(r"^(?:TEST|TEST_F|TEST_P|TYPED_TEST)\((\w+),", path.read_text(), re.MULTILINE):
                        self._stamps[suite] = digest
        if tier == "console":
            return self._stamps.get(test.split("::")[0], "")
        suite = test.split(".")[0]
        return self._stamps.get(suite.split("/")[1] if "/" in suite else suite, "")

    def _link(self) -> None:
        shutil.rmtree(self._directory, ignore_errors=True)
        (self._directory / "traces").mkdir(parents=True)
        (self._directory / "tests").symlink_to(self._build.directory / "tests")
        objects, compilers = {}, []
        for file, command in self._build.commands().items():
            if file.startswith("src/"):
                objects[file] = self._directory / f"{file.replace('/', '.')}.o"
                compilers.append((command, objects[file], [*_COMPILE, "-fsanitize-coverage=trace-pc"], None))
        unit = next(command for file, command in self._build.commands().items() if file.startswith("tests/unit/"))
        extra = []
        for name in ("trace.cpp", "trace_units.cpp"):
            extra.append(self._directory / f"{name}.o")
            compilers.append((unit, extra[-1], _COMPILE, Path(__file__).with_name(name)))
        running = []
        for command, output, options, source in compilers:
            if len(running) == 2:
                self._wait(running.pop(0))
            words = list(command)
            words[words.index("-o") + 1] = str(output)
            if source:
                words[words.index("-c") + 1] = str(source)
            running.append(subprocess.Popen([*words, *options], cwd=self._build.directory, stderr=subprocess.PIPE, text=True))
        for process in running:
            self._wait(process)
        self._build.link("unit_tests", objects, self._directory / "unit_tests", extra)
        self._build.link("recovery-loader", objects, self._directory / "recovery-loader", extra[:1])

    def _wait(self, process: subprocess.Popen) -> None:
        _, errors = process.communicate()
        if process.returncode != 0:
            raise RuntimeError(f"{' '.join(process.args)}:\n{errors[-3000:]}")

    # A test that fails here, because this program is slower than the other, has its trace as well.

    def _run_units(self) -> dict:
        program = self._directory / "unit_tests"
        subprocess.run([str(program), f"--gtest_filter=-{':'.join(self._build.slow_tests())}", "--gtest_brief=1"])
        return self._read("unit", program, self._directory / "traces")

    def _run_console(self, workers: int) -> dict:
        if not self._console_files:
            return {"tests": [], "blocks": {}}
        # Beside the build directory, which is what the device root has of this machine.
        traces = self._build.directory / "traces"
        shutil.rmtree(traces, ignore_errors=True)
        traces.mkdir()
        program = self._directory / "recovery-loader"
        words = ["/usr/bin/python3", "-m", "pytest", "-q", "--tb=short", "-n", str(workers), "-m", "not board",
                 "-p", "no:cacheprovider", f"--build={self._build.directory}", f"--program={program}", *self._console_files]
        subprocess.run(words, cwd=self._root, env=dict(os.environ, SESSION_PATIENCE="120"))
        return self._read("console", program, traces)

    def _read(self, tier: str, program: Path, traces: Path) -> dict:
        """The tests, and the blocks of each file as the line that they begin in and the tests that run through them."""
        numbers, through = {}, collections.defaultdict(int)
        for path in sorted(traces.iterdir()):
            data = path.read_bytes()
            test = data[:_NAME_ROOM].rstrip(b"\0").decode()
            if tier == "console":
                test = re.sub(r" \((setup|call|teardown)\)$", "", test)
                test = test if test.startswith("tests/") else f"tests/{test}"
                if data[_NAME_ROOM - 1]:
                    test = test.split("[")[0]  # too long a name: it stands for all cases of the test
            number = numbers.setdefault(test, len(numbers))
            for found in re.finditer(rb"[^\0]", data[_NAME_ROOM:]):
                value, at = found[0][0], found.start() * 8
                for bit in range(8):
                    if value >> bit & 1:
                        through[at + bit] |= 1 << number
        blocks = collections.defaultdict(lambda: collections.defaultdict(int))
        for address, file, line in self._all_blocks(program):
            blocks[file][line] |= through[address]
        shutil.rmtree(traces)
        return {"tests": [(test, self._test_stamp(tier, test)) for test in numbers],
                "blocks": {file: [(line, f"{bits:x}") for line, bits in sorted(own.items())] for file, own in blocks.items()}}

    def _all_blocks(self, program: Path) -> list[tuple[int, str, int]]:
        """Every block of the device's code in the program: where its call returns to, file and line."""
        listing = subprocess.run(["objdump", "-d", "--no-show-raw-insn", str(program)], capture_output=True, text=True, check=True).stdout
        lines = listing.splitlines()
        calls = [lines[number].split(":")[0].strip() for number in range(len(lines)) if
                 lines[number].endswith("<__sanitizer_cov_trace_pc>") and "call" in lines[number]]
        symbols = subprocess.run(["nm", str(program)], capture_output=True, text=True, check=True).stdout
        start = int(re.search(r"^([0-9a-f]+) \w __executable_start$", symbols, re.MULTILINE)[1], 16)
        places = subprocess.run(["addr2line", "-e", str(program)], input="\n".join(calls), capture_output=True, text=True, check=True).stdout
        found = []
        for call, place in zip(calls, places.splitlines()):
            file, _, line = place.split(" ")[0].rpartition(":")
            file = os.path.relpath(os.path.realpath(file), self._root)
            if line.isdigit() and file.startswith("src/"):
                found.append((int(call, 16) + 5 - start, file, int(line)))
        return found

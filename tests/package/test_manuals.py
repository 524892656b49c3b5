"""The manual pages, as man shows them from the build tree, and the completion of kesto in bash."""

import re
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
BUILD = ROOT / "build" / "release"
KESTO = BUILD / "kesto"
PAGES = ("recovery-loader.8", "kesto.1", "kesto-image.5")


def page_file(page):
    return BUILD / "man" / f"man{page[-1]}" / f"{page}.gz"


def shown(page):
    """The page as plain text on one line, with single blanks and without hyphens of its own."""
    name, section = page.rsplit(".", 1)
    words = ["man", "--no-hyphenation", "-M", BUILD / "man", section, name]
    text = subprocess.run(words, check=True, stdout=subprocess.PIPE, text=True, stdin=subprocess.DEVNULL,
                          env={"PATH": "/usr/bin:/bin", "MANWIDTH": "1000", "LC_ALL": "C.UTF-8"}).stdout
    return " ".join(text.split())


@pytest.mark.parametrize("page", PAGES)
def test_man_shows_the_page_without_a_warning(page):
    words = ["man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", page_file(page)]
    done = subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=True,
                          env={"PATH": "/usr/bin:/bin", "MANWIDTH": "80", "LC_ALL": "C.UTF-8"})
    assert done.stderr == ""
    assert len(done.stdout) > 1000


@pytest.mark.parametrize("page", PAGES)
def test_mandoc_has_no_warning(page):
    words = ["mandoc", "-Tlint", "-Wwarning", page_file(page)]
    done = subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    assert (done.returncode, done.stdout) == (0, "")


def test_manual_of_the_shell_has_every_command():
    text = shown("recovery-loader.8")
    commands = re.findall(r"^### `(.*)`$", (ROOT / "docs" / "commands.md").read_text(encoding="utf-8"), re.MULTILINE)
    assert len(commands) > 20
    assert [command for command in commands if f" {command} " not in text] == []


def kesto_help(*words):
    return subprocess.run([KESTO, *words, "--help"], check=True, stdout=subprocess.PIPE, text=True).stdout


def commands():
    """kesto's commands, as lists of words."""
    return [line.split() for line in re.findall(r"^  ((?:image )?[a-z]+)  +[A-Z]", kesto_help(), re.MULTILINE)]


def options(*command):
    return set(re.findall(r"^  (?:-., )?(--[a-z0-9-]+)", kesto_help(*command), re.MULTILINE))


def test_manual_of_kesto_has_every_option_of_every_command():
    text = shown("kesto.1")
    text = text[text.index(" COMMANDS "):]
    assert len(commands()) == 9
    begins = [text.index(re.findall(r"usage: (.*)", kesto_help(*command))[0]) for command in commands()]
    for command, begin, end in zip(commands(), begins, [*begins[1:], text.index(" EXAMPLES ")]):
        assert [option for option in options(*command) if f"{option} " not in text[begin:end]] == []


def test_manual_of_the_image_has_every_field():
    text = shown("kesto-image.5")
    rows = re.findall(r"^\| ([0-9]+-[0-9]+) \| ([a-z ]+) \|", (ROOT / "docs" / "image-format.md").read_text(encoding="utf-8"),
                      re.MULTILINE)
    assert len(rows) > 15
    assert [row for row in rows if f" {row[0]} {row[1]}: " not in text] == []


# --- bash


def completed(line, directory=ROOT):
    """What bash offers behind this line, in the order of the alphabet; the completion is found by its name."""
    words = line.split(" ")
    script = """
        . /usr/share/bash-completion/bash_completion && _completion_loader kesto
        [ $? -eq 124 ] && complete -p kesto | grep -q _kesto || { echo "not loaded"; exit 1; }
        COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
        _kesto
        printf '%s\\n' "${COMPREPLY[@]}"
    """
    done = subprocess.run(["bash", "--norc", "-c", script, "bash", *words], check=True, stdout=subprocess.PIPE, text=True,
                          cwd=directory, env={"PATH": f"{BUILD}:/usr/bin:/bin", "HOME": "/",
                                              "BASH_COMPLETION_USER_DIR": str(directory / "completion")})
    return sorted(done.stdout.split())


@pytest.fixture
def place(tmp_path):
    """A directory with two files and a directory, where bash finds the completion under kesto's name."""
    (tmp_path / "completion" / "completions").mkdir(parents=True)
    (tmp_path / "completion" / "completions" / "kesto").symlink_to(ROOT / "packaging" / "kesto.bash-completion")
    for name in ("image.rom", "image.toml"):
        (tmp_path / name).touch()
    return tmp_path


def test_completion_knows_the_commands(place):
    assert completed("kesto ", place) == ["--help", "--version", "image", "install", "ports", "run", "show"]
    assert completed("kesto im", place) == ["image"]
    assert completed("kesto image ", place) == ["--help", "build", "check", "extract", "info", "verify"]
    assert completed("kesto image ex", place) == ["extract"]
    assert completed("kesto nonsense ", place) == []


def test_completion_knows_the_options_of_each_command(place):
    for command in commands():
        assert completed(f"kesto {' '.join(command)} --", place) == sorted(options(*command) | {"--help"}), command


def test_completion_knows_what_an_option_takes(place):
    assert completed("kesto install --bank ", place) == ["1", "2", "single"]
    assert completed("kesto image check image.rom --bank s", place) == ["single"]
    assert completed("kesto image build -o im", place) == ["image.rom", "image.toml"]
    assert completed("kesto image build --description image.t", place) == ["image.toml"]
    assert completed("kesto image extract image.rom -d comp", place) == ["completion"]
    assert completed("kesto install --retry ", place) == []
    ports = subprocess.run([KESTO, "ports", "--list"], check=True, stdout=subprocess.PIPE, text=True).stdout
    assert completed("kesto run --port ", place) == sorted(line.split()[0] for line in ports.splitlines())


def test_completion_offers_files_for_operands(place):
    assert completed("kesto image verify im", place) == ["image.rom", "image.toml"]
    assert completed("kesto install --erase im", place) == ["image.rom", "image.toml"]

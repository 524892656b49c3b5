"""What the reference says of each command beside its help: the failure messages are the program's own, and no command is
without its text."""

import re
import subprocess

import pytest

from documents import ROOT, documents

SOURCES = [path for path in documents() if (ROOT / "src") in path.parents]
GENERATOR = ROOT / "build" / "release" / "command_reference"
# The formats of all messages, where enough of them is fixed to know one by it.
FORMATS = [text for path in (ROOT / "src").rglob("*.cpp")
           for text in re.findall(r'"((?:[^"\\]|\\.)*)"', path.read_text(encoding="utf-8"))
           if len(re.sub(r"%[-0-9.*]*l*[a-z]|[^a-zA-Z]", "", text)) >= 7]
MESSAGES = [re.compile("(?:ERROR: )?" + re.sub(r"%[-0-9.*]*l*[a-z]", ".+", re.escape(text.removesuffix(r"\n")).replace(r"\-", "-")))
            for text in FORMATS]


def quoted(path):
    return re.findall(r"`ERROR: ([^`]+)`", path.read_text(encoding="utf-8").replace("\n", " "))


@pytest.mark.parametrize("path", SOURCES, ids=lambda path: path.name if hasattr(path, "name") else "")
def test_failure_messages_are_those_of_the_program(path):
    assert [text for text in quoted(path) if not any(message.fullmatch(text) for message in MESSAGES)] == []


def test_failure_messages_are_found():
    assert sum(len(quoted(path)) for path in SOURCES) > 30
    assert not any(message.fullmatch("Something that no command says") for message in MESSAGES)


def reference(directory):
    return subprocess.run([GENERATOR, directory], capture_output=True, text=True, check=False)


def test_every_command_has_a_text_that_says_what_it_changes():
    done = reference(ROOT / "src")
    assert (done.returncode, done.stderr) == (0, "")
    commands = re.split(r"^### ", done.stdout, flags=re.MULTILINE)[1:]
    assert len(commands) > 25
    assert [text.splitlines()[0] for text in commands if not re.search(r"\b(Changes|Erases|Writes)\b", text)] == []


def test_a_command_without_a_text_is_told(tmp_path):
    for path in SOURCES:
        (tmp_path / path.name).write_text(path.read_text(encoding="utf-8").replace("## flash kill\n", "## flash revive\n"),
                                          encoding="utf-8")
    done = reference(tmp_path)
    assert done.returncode == 1
    assert done.stderr == ("no text for the command 'flash kill'\n"
                           "no command 'flash revive', which there is a text for\n")

"""What runs the documents finds what is wrong with one: a difference, a session that nobody marked, a stale picture."""

import xml.etree.ElementTree as ElementTree

import pytest

import picture
from comparison import is_same
from documents import commands, sessions, unmarked
from player import Player, Stale, renewed
from terminals import Computer

DOCUMENT = """# Title

```console
$ echo one; echo two
one
two
$ printf 'a\\n' >file && \\
    cat file
a
```

```sh script.sh
echo "three $1"
```

```console
$ sh script.sh x
three x
$ false
$ echo $?
1
```
"""


def play(directory, text):
    player = Player(Computer(directory))
    player.play("document", text)
    return player


def test_what_a_document_shows_is_so(tmp_path):
    assert [typed for _, typed, _ in play(tmp_path, DOCUMENT).transcript] == [
        "echo one; echo two", "printf 'a\\n' >file && \\\n    cat file", "sh script.sh x", "false", "echo $?"]


@pytest.mark.parametrize("right, wrong, line", [("one\ntwo", "one\nthree", 4), ("one\ntwo", "one", 4), ("three x\n", "", 17),
                                                ("$ false\n", "$ false\nfalse\n", 19), ("\n1\n", "\n0\n", 20)])
def test_what_is_not_so_is_told_with_its_line_and_mended(tmp_path, right, wrong, line):
    text = DOCUMENT.replace(right, wrong)
    assert text != DOCUMENT
    player = Player(Computer(tmp_path))
    with pytest.raises(Stale, match=f"document:{line}: "):
        player.play("document", text)
    assert renewed(text, player.found) == DOCUMENT


@pytest.mark.parametrize("expected, found, same", [
    (["a", "b"], ["a", "b"], True), (["a"], ["a", "b"], False), (["a", "b"], ["a"], False), ([], ["a"], False), ([], [], True),
    (["..."], ["a", "b"], True), (["...", "b"], ["a", "b"], True), (["a", "..."], ["a", "b", "c"], True),
    (["...", "b"], ["b", "c"], False),
    (["a", "...", "c", "...", "e"], ["a", "b", "c", "d", "e"], True), (["a", "...", "c", "..."], ["a", "b"], False),
    (["a", "...", "a"], ["a"], False),
    (["min/avg/max = 0.961/2.498/9.224 ms"], ["min/avg/max = 13.515/35.198/50.1 ms"], True),
    (["took 1.5 s"], ["took 20.25 s"], True), (["3 parts, 76771 bytes"], ["3 parts, 76772 bytes"], True),
    (["3 parts"], ["4 parts"], False), (["crc 1234abcd"], ["crc 00ffee11"], True), (["a  b"], ["a b"], True),
    (["Firmware 4.1.0.0R1"], ["Firmware 4.2.0.0R2"], False), (["Done: SUCCESS"], ["Done: FAILURE"], False)])
def test_comparison(expected, found, same):
    assert is_same(expected, found) is same


@pytest.mark.parametrize("text", ["    $ ls\n", "CLI> help\n", "```\n$ ls\n```\n", "```sh\n$ ls\n```\n", "    CLI> help\n"])
def test_sessions_without_a_mark_are_found(text):
    assert len(unmarked("# Title\n\n" + text)) == 1


def test_sessions_with_a_mark_and_other_text_are_let_be():
    assert unmarked(DOCUMENT) == [] and len(sessions(DOCUMENT)) == 3
    assert unmarked("`CLI> ` is the prompt\n\n    cmake --preset release\n") == []


def test_commands_without_output_are_found():
    text = DOCUMENT + """
    ./run                what it does
    build/release/kesto install --port /dev/ttyUSB0 image.rom
    A=b cmake -S . \\
        -B build
    cmake --build build   # and this
    . tools/setup.sh && setup_need build

    kernel/              a directory
    waits for a key

Say `kesto show`.
"""
    assert [command for _, command in commands(text)] == [
        "./run", "build/release/kesto install --port /dev/ttyUSB0 image.rom", "A=b cmake -S . -B build", "cmake --build build",
        ". tools/setup.sh && setup_need build"]
    assert text.splitlines()[commands(text)[2][0] - 1] == "    A=b cmake -S . \\"


STEPS = [("CLI> ", "version", ["Loader (now)"]), ("CLI> ", "show bootenv", ["a=1", "bootbank=2", "c=3"])]


def test_a_picture_says_what_was_shown():
    drawn = picture.session(picture.excerpt(STEPS, [("version", ["Loader"]), ("show", ["^bootbank"])]), "A title")
    ElementTree.fromstring(drawn)
    assert picture.text_of(drawn) == ["A title", "CLI> version", "Loader (now)", "CLI> show bootenv", "...", "bootbank=2", "..."]


def test_a_picture_of_something_else_is_another():
    drawn = [picture.text_of(picture.session(picture.excerpt(steps, [("show", ["^bootbank"])]), "A title"))
             for steps in (STEPS, [("CLI> ", "show bootenv", ["bootbank=1"])])]
    assert drawn[0] != drawn[1]

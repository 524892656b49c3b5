"""The operators find every mistake that they stand for, and none where it is not one; the order is spread and stays."""

import collections
import textwrap

import pytest

from places import OPERATORS, Place, find_places, in_order

HEAD = """\
#define LIMIT 7
int take(int, int);
int say(const char*, ...);
void note(const char* text, int value);
"""


def mutants(tmp_path, code, operator=None):
    """The changed lines, by operator, of code below HEAD."""
    (tmp_path / "sample.cpp").write_text(HEAD + textwrap.dedent(code))
    source = (tmp_path / "sample.cpp").read_bytes()
    places = [place for place in find_places(tmp_path, "sample.cpp", []) if place.line > HEAD.count("\n")]
    return [place.changed_line(source) for place in places if operator in (None, place.operator)]


@pytest.mark.parametrize("operator, code, expected", [
    ("comparison", "bool f(int a) { return a == 3; }", ["bool f(int a) { return a != 3; }"]),
    ("comparison", "bool f(int a) { return a <= LIMIT; }", ["bool f(int a) { return a > LIMIT; }"]),
    ("comparison", "bool f(bool a) { return !a; }", ["bool f(bool a) { return a; }"]),
    ("comparison", "int f(int a) { return a + 3; }", []),
    ("boundary", "bool f(int a) { return a < 3; }", ["bool f(int a) { return a <= 3; }"]),
    ("boundary", "bool f(int a) { return a >= 3; }", ["bool f(int a) { return a > 3; }"]),
    ("boundary", "bool f(int a) { return a == 3; }", []),
    ("constant", "int f() { return 41; }", ["int f() { return 42; }"]),
    ("constant", "int f() { return 1; }", ["int f() { return 0; }"]),
    ("constant", "unsigned f() { return 0xFFu; }", ["unsigned f() { return 0x100u; }"]),
    ("constant", "int f() { return 0777; }", ["int f() { return 01000; }"]),
    ("constant", "bool f() { return true; }", ["bool f() { return false; }"]),
    ("constant", "char f() { return 'a'; }", ["char f() { return 'b'; }"]),
    ("constant", "int f() { return LIMIT; }", []),
    ("constant", "int f() { int room[9]; return room[2]; }", ["int f() { int room[9]; return room[3]; }"]),
    ("constant", "static_assert(sizeof(int) == 4);", []),
    ("removed call", "void f() { note(\"a\", 2); }", ["void f() { ; }"]),
    ("removed call", "void f() { (void)take(1, 2); }", ["void f() { ; }"]),
    ("removed call", "int f() { return take(1, 2); }", []),
    ("removed call", "int f() { if (take(1, 2)) { return 3; } return 4; }", []),
    ("swapped arguments", "int f(int a, int b) { return take(a, b); }", ["int f(int a, int b) { return take(b, a); }"]),
    ("swapped arguments", "int f(int a) { return take(a, a); }", []),
    ("swapped arguments", "void f() { note(\"a\", 2); }", []),
    ("swapped arguments", "int f(int a, int b) { return say(\"%i %i\", a, b); }",
     ["int f(int a, int b) { return say(\"%i %i\", b, a); }"]),
    ("changed text", r'int f() { return say("done\n"); }', [r'int f() { return say("doxe\n"); }']),
    ("changed text", r'int f() { return say("%08lX %s\n", 1, "x"); }',
     [r'int f() { return say("%08lX %s", 1, "x"); }', r'int f() { return say("%08lX %s\n", 1, "y"); }']),
    ("changed text", r'int f() { return say("[%x]"); }', []),
    ("dropped guard", "int f(int a) { if (a < 3) { return 1; } return 2; }",
     ["int f(int a) { if (false && (a < 3)) { return 1; } return 2; }"]),
    ("dropped guard", "int f(int a) { if (a < 3) { note(\"a\", 1); } return 2; }", []),
    ("dropped guard", "int f(int a) { if (a < 3) { return 1; } else { a = 2; } return a; }", []),
    ("dropped guard", "bool f(bool a, bool b) { return a && b; }",
     ["bool f(bool a, bool b) { return a; }", "bool f(bool a, bool b) { return b; }"]),
    ("dropped guard", "void f() { for (;;) { if (take(1, 2)) { break; } } }",
     ["void f() { for (;;) { if (false && (take(1, 2))) { break; } } }"]),
])
def test_operator(tmp_path, operator, code, expected):
    assert operator in OPERATORS
    assert mutants(tmp_path, code, operator) == expected


def test_what_a_macro_or_an_included_file_says_is_left_alone(tmp_path):
    (tmp_path / "other.h").write_text("inline bool other(int a) { return a == 3; }\n")
    assert mutants(tmp_path, """\
        #include "other.h"
        #define IS_THREE(a) ((a) == 3)
        bool f(int a) { return IS_THREE(a); }
        """) == []


def test_a_file_that_does_not_compile_is_refused(tmp_path):
    with pytest.raises(RuntimeError, match="expected"):
        mutants(tmp_path, "int f( { return 3; }")


def test_a_mutant_keeps_its_name_when_other_lines_change(tmp_path):
    def names(code):
        (tmp_path / "sample.cpp").write_text(code)
        return {place.name: place.line for place in find_places(tmp_path, "sample.cpp", [])}

    line = "bool f(int a) { return a == 3 || a == 3; }\n"
    before, after = names(line), names("int g() { return 8; }\n\n" + line)
    assert len(before) == 5 and set(before.values()) == {1}
    assert {name: number - 2 for name, number in after.items() if name in before} == before
    assert len(after) == len(before) + 1


def made_up(file, count, operator="constant"):
    return [Place(file, operator, 0, 0, "", "", 1, "", f"{file}-{operator}-{number}") for number in range(count)]


def test_the_order_begins_with_all_files_and_operators():
    places = {f"{number}.cpp": made_up(f"{number}.cpp", 9) + made_up(f"{number}.cpp", 3, "boundary") for number in range(20)}
    places["large.cpp"] = made_up("large.cpp", 400)
    order = in_order(places, seed=5)
    assert sorted(order, key=lambda place: place.name) == sorted(sum(places.values(), []), key=lambda place: place.name)
    begin = collections.Counter(place.file for place in order[:50])
    assert len(begin) == 21 and begin["large.cpp"] == max(begin.values()) < 20
    assert collections.Counter(place.operator for place in order[:50])["boundary"] > 10


def test_the_order_is_the_seed_s():
    places = {f"{number}.cpp": made_up(f"{number}.cpp", 30) for number in range(5)}
    turned = {file: own[::-1] for file, own in reversed(places.items())}
    assert in_order(places, 1) == in_order(turned, 1) != in_order(places, 2)

"""Of the tests those are asked that may notice a mutant: all that run through its function, and all that nobody traced."""

from types import SimpleNamespace

import pytest

from places import Place, find_places
from traces import Traces

NAMES = ["a.one", "a.two", "b.one", "c.changed"]


@pytest.fixture
def traces(tmp_path):
    """Blocks of lines 10, 12 and 20 of a file, and the tests that run through them: by bit, of NAMES."""
    (tmp_path / "tests").mkdir()
    (tmp_path / "tests/a_test.cpp").write_text("TEST(a, one) {}\nTEST(a, two) {}\nTEST(b, one) {}\n")
    (tmp_path / "tests/c_test.cpp").write_text("TEST_F(c, changed) {}\n")
    own = Traces(SimpleNamespace(root=tmp_path, directory=tmp_path / "build"), [])
    tests = [(test, own._test_stamp("unit", test)) for test in NAMES[:3]] + [(NAMES[3], "of another text")]
    own._traces = {"unit": {"tests": tests, "blocks": {"src/a.cpp": [(10, "3"), (12, "1"), (20, "4")]}}}
    return own


def place(line, function, file="src/a.cpp"):
    return Place(file, "constant", 0, 1, "1", "0", line, "", "name", function)


@pytest.mark.parametrize("line, function, block, others", [
    (10, (10, 15), ["a.one", "a.two", "c.changed"], []),
    (11, (10, 15), ["a.one", "a.two", "c.changed"], []),
    (13, (10, 15), ["a.one", "c.changed"], ["a.two"]),
    (21, (20, 22), ["b.one", "c.changed"], []),
    (31, (30, 32), NAMES, []),  # of which there is nothing in the program
    (5, (0, 0), NAMES, []),
])
def test_the_tests_to_fear(traces, line, function, block, others):
    assert traces.tests("unit", place(line, function), NAMES) == (block, others)


def test_what_a_header_holds_is_in_the_tests_too(traces):
    traces._traces["unit"]["blocks"]["src/a.h"] = [(10, "1")]
    assert traces.tests("unit", place(10, (10, 11), "src/a.h"), NAMES) == (NAMES, [])


def test_a_new_test_may_notice_everything(traces):
    assert traces.tests("unit", place(21, (20, 22)), [*NAMES, "d.added"]) == (["b.one", "c.changed", "d.added"], [])


def test_the_function_is_the_outermost_that_runs_on_the_device(tmp_path):
    (tmp_path / "sample.cpp").write_text("""\
int table = 3;
constexpr int computed() { return 4; }
int outer(int a) {
  auto inner = [](int b) {
    return b + 5;
  };
  return inner(a) + 6;
}
""")
    functions = {found.before: found.function for found in find_places(tmp_path, "sample.cpp", []) if found.operator == "constant"}
    assert functions == {"3": (0, 0), "4": (0, 0), "5": (3, 8), "6": (3, 8)}

"""What the coverage campaign makes of the compiler's regions, and which reasons it finds stale."""

import pytest

import coverage
from coverage import Counts

# line, column, count, has a count, begins a region, is a gap
FUNCTION = [[1, 10, 5, True, True, False], [2, 7, 5, True, True, False], [2, 20, 0, True, True, True],
            [2, 21, 0, True, True, False], [4, 4, 5, True, False, False], [6, 2, 0, False, False, False]]


def test_lines_of_a_branch_that_is_not_taken_have_not_run():
    #  1 f() {   2 if (a) {   3 b;   4 }   5 return;   6 }
    assert coverage._line_counts(FUNCTION) == {1: 5, 2: 5, 3: 0, 4: 0, 5: 5, 6: 5}


def test_lines_between_functions_are_no_lines():
    segments = [[1, 1, 1, True, True, False], [2, 2, 0, False, False, False], [5, 1, 0, True, True, False],
                [6, 2, 0, False, False, False]]
    assert coverage._line_counts(segments) == {1: 1, 2: 1, 5: 0, 6: 0}


def test_figures_are_those_of_the_files_that_are_wanted():
    counts = {"src/util/a.cpp": Counts({1: 3, 2: 0}, {(1, 4, True): 1, (1, 4, False): 0}), "src/tty/b.cpp": Counts({1: 0}, {})}
    assert coverage.figures(counts, lambda file: "util" in file) == ((1, 2), (1, 2))
    assert str(coverage.figures(counts, lambda file: True)[0]) == "33.3 %"


def test_a_line_has_run_when_it_has_on_either_processor():
    first = {"src/a.cpp": Counts({1: 3, 2: 0}, {(1, 4, True): 1, (1, 4, False): 0})}
    second = {"src/a.cpp": Counts({1: 0, 2: 5, 3: 0}, {(1, 4, False): 2, (3, 1, True): 0}), "src/b.cpp": Counts({1: 1}, {})}
    assert coverage.joined(first, second) == {
        "src/a.cpp": Counts({1: 3, 2: 5, 3: 0}, {(1, 4, False): 2, (1, 4, True): 1, (3, 1, True): 0}), "src/b.cpp": Counts({1: 1}, {})}


@pytest.fixture
def tree(monkeypatch, tmp_path):
    (tmp_path / "src").mkdir()
    (tmp_path / "src" / "a.cpp").write_text("f() {\n  never();\n}\n")
    monkeypatch.setattr(coverage, "_ROOT", tmp_path)
    monkeypatch.setattr(coverage, "_REASONS", tmp_path / "reasons.toml")
    monkeypatch.setattr(coverage, "commit_text", lambda: "0123456789")
    counts = {"src/a.cpp": Counts({1: 1, 2: 0, 3: 0}, {})}
    monkeypatch.setattr(coverage, "counts_of", lambda tiers: counts)
    return tmp_path


def reason(tree, code):
    (tree / "reasons.toml").write_text(f'[[line]]\nfile = "src/a.cpp"\ncode = "{code}"\nreason = "a kernel of today has it"\n')


def test_an_uncovered_line_needs_a_reason(tree):
    _, problems = coverage.make_report()
    assert problems == ["src/a.cpp:2: nothing runs through it, and there is no reason why: never();"]
    reason(tree, "never();")
    text, problems = coverage.make_report()
    assert problems == [] and "- A kernel of today has it.\n  - `src/a.cpp`: `never();`\n" in text


def test_a_reason_for_another_line_is_stale(tree):
    reason(tree, "once();")
    _, problems = coverage.make_report()
    assert problems[1:] == ["src/a.cpp: has a reason but is covered, or gone: once();"]

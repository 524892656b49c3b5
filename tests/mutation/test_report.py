"""The report counts the last verdict of each mutant, and tells which survivors and reasons do not belong together."""

import importlib.machinery
import importlib.util
from pathlib import Path

import pytest

from places import Place

_LOADER = importlib.machinery.SourceFileLoader("mutation_run", str(Path(__file__).with_name("run")))
runner = importlib.util.module_from_spec(importlib.util.spec_from_loader("mutation_run", _LOADER))
_LOADER.exec_module(runner)

PLACES = {"src/util/parse.cpp": [Place("src/util/parse.cpp", "boundary", 0, 1, "<", "<=", 1, "a < b", name)
                                 for name in ("one", "two", "three", "four")]}


def result(name, verdict, by=""):
    return {"name": name, "file": "src/util/parse.cpp", "line": 1, "operator": "boundary", "code": "a < b", "mutant": "a <= b",
            "verdict": verdict, "by": by, "commit": "0123456789"}


@pytest.fixture
def report(monkeypatch):
    def make(results, reasons=None):
        monkeypatch.setattr(runner, "read_results", lambda: results)
        monkeypatch.setattr(runner, "read_reasons", lambda: reasons or {})
        return runner.make_report(PLACES)

    return make


def test_rows(report):
    text, problems = report([result("one", "killed", "unit parse_test.a"), result("two", "survived"), result("three", "same code"),
                             result("four", "time-out", "console both/test_port.py")],
                            {"two": {"kind": "accepted", "reason": "no device has it"}})
    assert problems == []
    assert "| all | 4 | 3 | 1 | 1 | 1 | 0 | 67 % |" in text
    assert "- `src/util/parse.cpp`: `a < b` as `a <= b`. Accepted: no device has it." in text


def test_what_is_open_is_not_counted_and_told(report):
    text, problems = report([result("one", "killed", "unit parse_test.a"), result("two", "open")])
    assert problems == [] and "| all | 4 | 1 | 1 | 0 | 0 | 0 | 100 % |" in text
    assert "1 of which only the unit tests of the folder were asked yet: they" in text and "the score is not final" in text


def test_what_is_equivalent_does_not_count(report):
    text, _ = report([result("one", "killed", "unit parse_test.a"), result("two", "survived")],
                     {"two": {"kind": "equivalent", "reason": "b is never reached"}})
    assert "| all | 4 | 2 | 1 | 0 | 1 | 1 | 100 % |" in text


def test_a_survivor_that_is_killed_later(report):
    text, problems = report([result("one", "survived"), result("one", "killed", "unit parse_test.b")])
    assert problems == []
    assert "- `src/util/parse.cpp`: `a < b` as `a <= b` (unit parse_test.b)" in text
    assert "No survivor is left." in text


def test_a_survivor_without_a_reason_is_a_problem(report):
    _, problems = report([result("one", "survived")])
    assert [problem.split(":")[0] for problem in problems] == ["one"]


@pytest.mark.parametrize("results", [[], [result("one", "killed", "unit parse_test.a")]])
def test_a_reason_without_a_survivor_is_a_problem(report, results):
    _, problems = report(results, {"one": {"kind": "accepted", "reason": "once"}})
    assert problems == ["one: has a reason but is no survivor"]


def test_results_of_code_that_is_gone_are_left_out(report):
    text, problems = report([result("five", "survived")])
    assert problems == [] and "0 mutants judged" in text


def test_a_page_keeps_what_stands_around_its_tables(tmp_path):
    page = tmp_path / "page.md"
    page.write_text("before\n<!-- mutation -->\nold\n<!-- end of mutation -->\nafter\n")
    runner.write_report(page, "new\n")
    assert page.read_text() == "before\n<!-- mutation -->\n\nnew\n\n<!-- end of mutation -->\nafter\n"


def test_a_line_that_was_cut_off_is_left_out(monkeypatch, tmp_path):
    monkeypatch.setattr(runner, "_RESULTS", tmp_path / "results.jsonl")
    (tmp_path / "results.jsonl").write_text('{"name": "one"}\n{"name": "tw')
    assert runner.read_results() == [{"name": "one"}]

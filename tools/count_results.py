"""Adds up the JUnit results of a test run: count_results.py DIRECTORY TIER...

Every tier must have left results of at least one test. A skipped test counts as failed: what was not run is not
known to work. The last line printed is "N passed, N failed"; exit status 0 only without failures.
"""

import sys
import xml.etree.ElementTree as ElementTree
from pathlib import Path


def outcomes(file):
    """(name, problem or None) of each test in a result file; problem is the first line of what went wrong."""
    try:
        cases = list(ElementTree.parse(file).iter("testcase"))
    except ElementTree.ParseError as error:
        yield file.name, f"unreadable results: {error}"
        return
    for case in cases:
        problem = next((child for child in case if child.tag in ("failure", "error", "skipped")), None)
        name = f"{case.get('classname')}.{case.get('name')}"
        if problem is not None:
            text = problem.get("message") or problem.text or ""
            yield name, f"{problem.tag}: {text.strip().splitlines()[0] if text.strip() else ''}"
        elif case.get("status") == "notrun":
            yield name, "not run"
        else:
            yield name, None


def main(directory, tiers):
    passed = failed = 0
    for tier in tiers:
        results = [result for file in sorted(directory.glob(f"{tier}*.xml")) for result in outcomes(file)]
        problems = [(name, problem) for name, problem in results if problem]
        if not any(problem is None for _, problem in results):
            problems.append((tier, "no test passed"))
        for name, problem in problems:
            print(f"FAILED {tier}: {name}: {problem}")
        good = sum(problem is None for _, problem in results)
        print(f"{tier}: {good} passed, {len(problems)} failed")
        passed += good
        failed += len(problems)
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(Path(sys.argv[1]), sys.argv[2:]))

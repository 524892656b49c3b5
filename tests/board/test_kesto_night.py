"""The night of kesto on a bench of boards (tests/campaign/kesto_night.py): a round of each way, and what is said of a round
that went wrong. Four boards at once are in test_kesto.py."""

import json
import os

import pytest

import kesto_night
from kesto_night import Place, Round


@pytest.fixture
def places(tmp_path_factory):
    made = []

    def make(count):
        for number in range(count):
            made.append(Place(tmp_path_factory.mktemp(f"place{number}")))
        return made

    yield make
    for place in made:
        place.close()


@pytest.mark.long
@pytest.mark.skipif(os.geteuid() != 0, reason="kesto serves at a port below 1024")
def test_a_round_of_each_way(places, tmp_path):
    bench = places(2)
    for place in bench:
        place.boot()
    rounds = kesto_night.spend(bench, kesto_night.WAYS, tmp_path, seconds=0, least=4)
    assert [(one.way, one.bank) for one in rounds] == [("console", "2"), ("second port", "1"), ("network", "2"), ("console", "1")]
    assert not kesto_night.problems(bench, rounds)
    assert bench[0].before.process == bench[0].dev.shell_pid()
    assert "| console | 2 | 4 |" in kesto_night.table(bench, rounds, 60)


@pytest.mark.parametrize("status, told, wrong", [
    (0, [0], "ends with 0, and 0 of 1 failed"),
    (0, [0, 3], "ends with 0, and 1 of 2 failed"),
    (9, [0, 0], "ends with 9, and 0 of 2 failed"),
    (3, [3, 3], "board 1: {'status': 3}"),
], ids=["a board is missing", "success in spite of one", "no reason", "each"])
def test_what_kesto_says_is_judged(places, tmp_path, monkeypatch, status, told, wrong):
    """Its word, and not only the flash: no board is on here."""
    record = json.dumps({"devices": [{"status": one} for one in told]})
    (tmp_path / "kesto").write_text(f"#!/bin/sh\necho '{record}'\nexit {status}\n", encoding="ascii")
    (tmp_path / "kesto").chmod(0o755)
    monkeypatch.setattr(kesto_night, "_KESTO", tmp_path / "kesto")
    monkeypatch.setattr(kesto_night, "differences", lambda *_: [])
    monkeypatch.setattr(kesto_night, "LineSocket", lambda board, number, path: _Line(path))
    played = kesto_night.play_round(places(2), 0, "console", tmp_path)
    assert isinstance(played, Round) and played.wrong[0].startswith(wrong)


class _Line:
    def __init__(self, path):
        self.path = path

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        pass

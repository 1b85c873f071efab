"""The progress bar of long runs."""

from __future__ import annotations

import sys

import nimbrel as nb
import pytest

DRAWN = nb.program(nb.reset(1), nb.h(0), nb.read(0, 2))
IN_TURN = nb.program(DRAWN, nb.x(0, flag=2))


@pytest.mark.parametrize(("records", "unit"), [(DRAWN, "2/2"), (IN_TURN, "7/7")])
def test_a_bar_on_standard_error_counts_to_the_end(
    records: nb.Program, unit: str, capsys: pytest.CaptureFixture[str]
) -> None:
    pytest.importorskip("tqdm")
    nb.sample(records, 7, progress=True)
    captured = capsys.readouterr()
    assert unit in captured.err
    assert captured.out == ""


def test_without_a_bar_nothing_is_printed(capsys: pytest.CaptureFixture[str]) -> None:
    nb.sample(IN_TURN, 7)
    assert capsys.readouterr() == ("", "")


def test_a_missing_tqdm_is_an_error_that_names_the_extra(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setitem(sys.modules, "tqdm.auto", None)
    with pytest.raises(ImportError, match=r"pip install nimbrel\[progress\]"):
        nb.sample(DRAWN, 7, progress=True)
    with pytest.raises(ImportError, match=r"pip install nimbrel\[progress\]"):
        nb.expectation(nb.program(nb.reset(1)), {"Z": 1.0}, progress=True)

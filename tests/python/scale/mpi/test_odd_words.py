"""Unusual words of records mean on ranks what they mean in one process."""

from pathlib import Path

import pytest

from support.mpi import on_ranks

DRIVER = Path(__file__).parent / "drivers" / "odd_words.py"


@pytest.mark.parametrize("ranks", [1, 4])
def test_odd_words(ranks: int) -> None:
    found = on_ranks(ranks, DRIVER)
    assert (found.stdout, found.returncode) == ("compared\n", 0), found.stderr

"""A rank that fails ends all ranks, with a text on standard error."""

from pathlib import Path

import pytest

from support.mpi import on_ranks

DRIVER = Path(__file__).parent / "drivers" / "failures.py"
TEXTS = {
    "killed": "signal 9",
    "memory": "rank 1: no memory for a part of 0.25 GiB",
    "unequal": "the ranks were given different work: ranks 0, 2, 3: run",
    "own_error": "KeyError: 'of this rank alone'",
}


@pytest.mark.parametrize("case", TEXTS)
def test_all_ranks_end_with_the_text(case: str) -> None:
    found = on_ranks(4, DRIVER, case)
    assert found.returncode != 0
    assert TEXTS[case] in found.stderr
    assert "came to its end" not in found.stdout

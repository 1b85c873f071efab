"""Exchanges of parts that travel in many pieces leave the bits of one process."""

from pathlib import Path

import pytest

from support.mpi import on_ranks

DRIVER = Path(__file__).parent / "drivers" / "large_parts.py"


@pytest.mark.parametrize("ranks", [2, 4])
def test_large_parts(ranks: int) -> None:
    found = on_ranks(ranks, DRIVER)
    assert (found.stdout, found.returncode) == (f"the same on {ranks} ranks\n", 0), found.stderr

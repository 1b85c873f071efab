"""A program that runs again has the bits of one process, wherever its qubits lie by then."""

from pathlib import Path

import pytest

from support.mpi import on_ranks

DRIVER = Path(__file__).parent / "drivers" / "repeated_programs.py"


@pytest.mark.parametrize("ranks", [1, 4])
def test_repeated_programs(ranks: int) -> None:
    found = on_ranks(ranks, DRIVER)
    assert (found.stdout, found.returncode) == ("all the same\n", 0), found.stderr

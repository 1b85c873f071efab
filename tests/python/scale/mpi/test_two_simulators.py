"""Ranks that use two simulators in different order get an error that names the ranks."""

from pathlib import Path

from support.mpi import on_ranks

DRIVER = Path(__file__).parent / "drivers" / "two_simulators.py"


def test_two_simulators() -> None:
    found = on_ranks(2, DRIVER)
    assert (found.stdout, found.returncode) == ("told apart\n", 0), found.stderr

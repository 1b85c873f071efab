"""Exchanges send no more than they must, and take little memory beside the part."""

from pathlib import Path

from support.mpi import on_ranks

DRIVER = Path(__file__).parent / "drivers" / "traffic.py"


def test_traffic_and_memory() -> None:
    found = on_ranks(4, DRIVER)
    assert (found.stdout, found.returncode) == ("as expected\n", 0), found.stderr

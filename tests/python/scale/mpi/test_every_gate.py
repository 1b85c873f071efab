"""Every gate, with its target and its controls in all places, has the bits of one process."""

from pathlib import Path

import pytest

from support.mpi import on_ranks

DRIVER = Path(__file__).parent / "drivers" / "every_gate.py"


@pytest.mark.parametrize("ranks", [1, 2, 4, 8])
def test_every_gate(ranks: int) -> None:
    found = on_ranks(ranks, DRIVER)
    assert found.returncode == 0, found.stderr
    assert found.stdout.endswith(" records\n")
    assert found.stdout.count("\n") == 1

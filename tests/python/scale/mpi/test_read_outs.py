"""Probabilities, products, samples and projections on ranks are those of one process."""

from pathlib import Path

import pytest

from support.mpi import on_ranks

DRIVER = Path(__file__).parent / "drivers" / "read_outs.py"


@pytest.mark.parametrize("options", [(), ("--sums-by-parts",)], ids=["gathered", "by parts"])
@pytest.mark.parametrize("ranks", [1, 4])
def test_read_outs(ranks: int, options: tuple[str, ...]) -> None:
    found = on_ranks(ranks, DRIVER, *options)
    assert (found.stdout, found.returncode) == ("all the same\n", 0), found.stderr

"""Random programs on ranks give the amplitudes and read flags of one process with one block."""

from pathlib import Path

import pytest

from support.mpi import on_ranks

DRIVER = Path(__file__).parent / "drivers" / "random_programs.py"
SHORT, ALL = 40, 200


def check(ranks: int, first: int, count: int, *options: str) -> None:
    found = on_ranks(ranks, DRIVER, str(first), str(count), *options)
    assert (found.stdout, found.returncode) == (f"{count} programs\n", 0), found.stderr


@pytest.mark.parametrize("ranks", [1, 2, 4, 8])
def test_bits_of_one_process(ranks: int) -> None:
    check(ranks, 0, SHORT)


@pytest.mark.slow
@pytest.mark.parametrize("ranks", [1, 2, 4, 8])
def test_bits_of_one_process_on_all_programs(ranks: int) -> None:
    check(ranks, SHORT, ALL - SHORT)


@pytest.mark.parametrize("ranks", [2, 8])
def test_sums_over_parts_differ_by_rounding_alone(ranks: int) -> None:
    check(ranks, 0, SHORT, "--sums-by-parts")

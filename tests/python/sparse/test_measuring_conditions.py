"""The classical conditions under which a sparse filter reads, writes, clears and frees."""

from types import ModuleType

import pytest

from models.opcodes import CLEAR, FLAG_NAND, FREE, READ, WRITE, X
from support.dense import reset
from support.driver import rec
from support.sparse import SparseFilter, open_sparse

CONDITION_FAILS = pytest.mark.parametrize("flag", [-1, 3, -4, 6000, -6000])
CONDITION_HOLDS = pytest.mark.parametrize("flag", [0, 1, 4, -3, 100_000_004])


def with_flag_4(filter_: SparseFilter) -> None:
    """Flag 4 at 1, flag 3 at 0, and qubit 0 of two at 1."""
    filter_.run(rec(FLAG_NAND, read_flag=4), reset(2), rec(X, target_mask=1))


@CONDITION_FAILS
@pytest.mark.parametrize("low", [READ, WRITE, CLEAR])
def test_a_failed_condition(engine: ModuleType, low: int, flag: int) -> None:
    with open_sparse(engine) as filter_:
        with_flag_4(filter_)
        for targets in (1, 3):
            filter_.run(rec(low, target_mask=targets, cond_flag=flag, read_flag=9, target_offset=9))
        assert filter_.ranked() == [(1, 1.0)]
        assert filter_.flag(9) == 0


@CONDITION_HOLDS
def test_a_condition_that_holds(engine: ModuleType, flag: int) -> None:
    with open_sparse(engine) as filter_:
        with_flag_4(filter_)
        filter_.run(rec(READ, target_mask=1, cond_flag=flag, read_flag=9))
        assert filter_.flag(9) == 1
        filter_.run(rec(WRITE, target_mask=2, cond_mask=2, cond_flag=flag))
        assert filter_.ranked() == [(3, 1.0)]
        filter_.run(rec(CLEAR, target_mask=1, cond_flag=flag))
        assert filter_.ranked() == [(2, 1.0)]


@CONDITION_FAILS
@pytest.mark.parametrize("targets", [1, 3])
def test_a_free_has_its_condition_in_the_read_flag_word(
    engine: ModuleType, targets: int, flag: int
) -> None:
    with open_sparse(engine) as filter_:
        with_flag_4(filter_)
        filter_.run(rec(FREE, target_mask=targets, read_flag=flag))
        assert filter_.ranked() == [(1, 1.0)]


@CONDITION_HOLDS
@pytest.mark.parametrize("targets", [1, 3])
def test_a_free_does_not_look_at_its_condition_word(
    engine: ModuleType, targets: int, flag: int
) -> None:
    with open_sparse(engine) as filter_:
        with_flag_4(filter_)
        filter_.run(rec(FREE, target_mask=targets, cond_flag=-1, read_flag=flag))
        assert filter_.ranked() == [(0, 1.0)]

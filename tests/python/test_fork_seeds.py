"""What a forked process draws: never its parent's outcomes, and the same again after a seed."""

import pytest
from fork_draws import answer_of


def test_children_draw_apart_from_each_other_and_from_their_parent() -> None:
    draws = answer_of("family()")
    assert len(set(draws)) == len(draws)


def test_children_of_a_seeded_process_draw_apart() -> None:
    draws = answer_of("seeded_family(5)")
    assert len(set(draws)) == len(draws)


def test_a_seed_repeats_the_draws_of_all_children() -> None:
    one, other = answer_of("families_of_one_seed(5)")
    assert one == other
    assert one == answer_of("seeded_family(5)")
    assert not set(one) & set(answer_of("seeded_family(6)"))


def test_without_a_seed_nothing_repeats() -> None:
    assert not set(answer_of("family()")) & set(answer_of("family()"))


def test_a_seed_of_the_engine_alone_reaches_no_child() -> None:
    one, other = answer_of("families_of_an_engine_seed(5)")
    assert one[-1] == other[-1]
    assert not set(one[:-1]) & set(other[:-1])


def test_a_child_that_seeds_itself_goes_on_as_any_process() -> None:
    in_process, in_child = answer_of("families_at_two_depths(5)")
    assert in_process == in_child


def test_forks_leave_the_parent_draws_as_they_are() -> None:
    alone, beside = answer_of("draws_beside_forks(5)")
    assert alone == beside


def test_a_child_can_be_repeated_alone() -> None:
    *children, _ = answer_of("seeded_family(5)")
    assert answer_of("draws_by_derivation(5)") == children


@pytest.mark.parametrize("method", ["fork", "spawn"])
def test_workers_of_a_pool_draw_apart(method: str) -> None:
    draws = [draw for pool in answer_of(f"two_pools({method!r})") for draw in pool]
    assert len(set(draws)) == 4


def test_a_seed_repeats_the_workers_of_a_forked_pool() -> None:
    one, other = answer_of("two_pools('fork', 5)")
    assert one == other


def test_a_spawned_worker_takes_nothing_from_a_seed() -> None:
    one, other = answer_of("two_pools('spawn', 5)")
    assert not set(one) & set(other)

"""Outcomes in forked processes: never their parent's, and repeatable by a seed."""

import pytest

from support.fork_draws import answer_of


@pytest.fixture(scope="module")
def seeded() -> list[int]:
    """The draws of a seeded process and its children, those of the parent last."""
    draws: list[int] = answer_of("seeded_family(5)")
    return draws


def test_children_draw_apart_and_never_the_same_again() -> None:
    draws = [draw for _ in range(2) for draw in answer_of("family()")]
    assert len(set(draws)) == len(draws)


def test_children_of_a_seeded_process_draw_apart(seeded: list[int]) -> None:
    assert len(set(seeded)) == len(seeded)


def test_a_seed_repeats_the_draws_of_all_children(seeded: list[int]) -> None:
    assert answer_of("families_of_one_seed(5)") == [seeded, seeded]


def test_another_seed_gives_other_draws(seeded: list[int]) -> None:
    assert not set(seeded) & set(answer_of("seeded_family(6)"))


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


def test_a_child_can_be_repeated_alone(seeded: list[int]) -> None:
    assert answer_of("draws_by_derivation(5)") == seeded[:-1]


def test_forks_within_a_fork_draw_apart() -> None:
    draws = answer_of("nested_forks(5)")
    assert len(set(draws)) == 3
    assert answer_of("nested_forks(5)") == draws


def test_workers_of_a_forked_pool_draw_apart() -> None:
    draws = [draw for pool in answer_of("two_pools('fork')") for draw in pool]
    assert len(set(draws)) == 4


def test_a_seed_repeats_the_workers_of_a_forked_pool() -> None:
    one, other = answer_of("two_pools('fork', 5)")
    assert one == other


def test_a_seed_reaches_no_spawned_worker() -> None:
    draws = [draw for pool in answer_of("two_pools('spawn', 5)") for draw in pool]
    assert len(set(draws)) == 4

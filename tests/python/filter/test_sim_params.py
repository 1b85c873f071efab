"""The effect of each simulator parameter, a switch on or off."""

from __future__ import annotations

import re
from collections.abc import Callable
from pathlib import Path
from types import ModuleType
from typing import Any, TypeAlias

import numpy as np
import pytest

from support.dense import (
    DenseFilter,
    assert_same_bits,
    basis,
    bits_of,
    open_dense,
    printed_by,
    reset,
)

Observer: TypeAlias = Callable[[DenseFilter, Any, int], bool]
"""Gives a switch a value, makes a register and tells whether the switch is on."""


def workers() -> set[str]:
    """The ids of the process's threads; a set, because one that has ended may linger in it."""
    return {task.name for task in Path("/proc/self/task").iterdir()}


def printed_at_reset(filter_: DenseFilter, capfd: Any, num_qubits: int) -> str:
    return printed_by(capfd, lambda: filter_.run(reset(num_qubits)))


def without_addresses(text: str) -> str:
    return re.sub(r"0x[0-9a-f]+", "0x", text)


def starts_at_random(filter_: DenseFilter, _: Any, value: int) -> bool:
    filter_.set(randomized=value)
    filter_.run(reset(3))
    return not np.array_equal(bits_of(filter_.state(3)), bits_of(basis(3, 0)))


def makes_the_register_anew(filter_: DenseFilter, capfd: Any, value: int) -> bool:
    # The only effect of this switch: the register's shape differs.
    filter_.set(verbose=1)
    filter_.run(reset(3))
    filter_.set(use_opencl=value, verbose=1)
    return "Allocating" in printed_at_reset(filter_, capfd, 3)


def starts_workers(filter_: DenseFilter, _: Any, value: int) -> bool:
    before = workers()
    filter_.set(num_block_qubits=1, is_async=value)
    filter_.run(reset(3))
    return len(workers() - before) == 4


def prints(filter_: DenseFilter, capfd: Any, value: int) -> bool:
    filter_.set(verbose=value)
    return printed_at_reset(filter_, capfd, 3) != ""


OBSERVERS: dict[str, Observer] = {
    "randomized": starts_at_random,
    "use_opencl": makes_the_register_anew,
    "async": starts_workers,
    "verbose": prints,
}


@pytest.mark.parametrize("value", [0, 1, 2, 256, 2**31, 2**32 - 1, 2**32, 2**32 + 1])
@pytest.mark.parametrize("is_on", OBSERVERS.values(), ids=OBSERVERS.keys())
def test_a_switch_is_on_unless_its_32_bits_are_0(
    engine: ModuleType, capfd: pytest.CaptureFixture[str], is_on: Observer, value: int
) -> None:
    with open_dense(engine) as filter_:
        assert is_on(filter_, capfd, value) == (value not in (0, 2**32))


@pytest.mark.parametrize("value", [2, 2**32 - 1])
def test_a_switch_above_1_does_as_1(
    engine: ModuleType, capfd: pytest.CaptureFixture[str], value: int
) -> None:
    texts, states = [], []
    with open_dense(engine) as filter_:
        for on in (1, value):
            filter_.set(num_block_qubits=1, randomized=on, use_opencl=0, is_async=on, verbose=on)
            filter_.run(reset(2))  # another shape, so that the next reset creates a register
            engine.random_seed(0, 5)
            texts.append(without_addresses(printed_at_reset(filter_, capfd, 3)))
            states.append(filter_.state(3))
        assert texts[0] == texts[1] != ""
        assert_same_bits(states[1], states[0])
        filter_.set(num_block_qubits=1, use_opencl=1, verbose=1)
        filter_.run(reset(3))
        filter_.set(num_block_qubits=1, use_opencl=value, verbose=1)
        assert "Allocating" not in printed_at_reset(filter_, capfd, 3)


@pytest.mark.parametrize("value", [1, 2, 3])
def test_num_block_qubits_is_taken_as_it_comes(
    engine: ModuleType, capfd: pytest.CaptureFixture[str], value: int
) -> None:
    with open_dense(engine) as filter_:
        filter_.set(num_block_qubits=value, verbose=1)
        text = printed_at_reset(filter_, capfd, 4)
    assert f"\n    User requested num_block_qubits: {value}\n" in text
    assert f"(qubits: 4, blocks: {2 ** (4 - value)}, terms: 16, " in text


@pytest.mark.parametrize("value", [1, 2, 255, 2**32 - 1])
def test_max_ram_size_gb_is_taken_as_it_comes(engine: ModuleType, value: int) -> None:
    with open_dense(engine) as filter_:
        filter_.set(max_ram_size_gb=value)
        with pytest.raises(SystemError) as caught:
            filter_.run(reset(60))
    assert f"limit of {value} GB.\n" in str(caught.value.__cause__)


@pytest.mark.parametrize(("value", "blocks"), [(1, 1), (2, 2), (3, 2)])
def test_max_num_threads_is_taken_as_it_comes(
    engine: ModuleType, capfd: pytest.CaptureFixture[str], value: int, blocks: int
) -> None:
    with open_dense(engine) as filter_:
        filter_.set(max_num_threads=value, verbose=1)
        text = printed_at_reset(filter_, capfd, 14)
    assert f"\n    User requested max_threads: {value}\n" in text
    assert f"(qubits: 14, blocks: {blocks}, terms: 16384, " in text


def test_one_call_sets_every_parameter(
    engine: ModuleType, capfd: pytest.CaptureFixture[str]
) -> None:
    with open_dense(engine) as filter_:
        engine.setup_sim_params(filter_.handle, 2, 5, 3, 1, 0, 2, 4)
        with pytest.raises(SystemError) as caught:
            filter_.run(reset(40))
        before = workers()
        text = printed_at_reset(filter_, capfd, 4)
        assert len(workers() - before) == 4
        assert not np.array_equal(filter_.state(4), basis(4, 0))
    assert "limit of 5 GB.\n" in str(caught.value.__cause__)
    assert "    User requested num_block_qubits: 2\n" in text
    assert "     (ignoring max_num_threads in favor of num_block_qubits)\n" in text


def test_a_later_call_replaces_every_parameter(
    engine: ModuleType, capfd: pytest.CaptureFixture[str]
) -> None:
    with open_dense(engine) as filter_:
        filter_.set(2, 5, 3, 1, 1, 1, 1)
        filter_.set(0, 0, 0, 0, 0, 0, 0)
        before = workers()
        assert printed_at_reset(filter_, capfd, 14) == ""
        assert workers() <= before
        assert_same_bits(filter_.state(14), basis(14, 0))

"""The register's size after a reset, and the effect of mask bits outside of it."""

from __future__ import annotations

import contextlib
from collections.abc import Callable, Iterator
from types import ModuleType
from typing import TypeAlias

import nimbrel as nb
import numpy as np
import pytest
from nimbrel import (
    BitSimulator,
    CliffordSimulator,
    DenseSimulator,
    Opcode,
    Simulator,
    SparseSimulator,
)

from support.driver import FilterDriver

FILTERS = ["StreamQPU", "StreamSparseQPU", "StreamBitQPU", "StreamCliffordQPU"]
AMPLITUDES = FILTERS[:2]

OpenFilter: TypeAlias = Callable[[str], FilterDriver]


@pytest.fixture
def open_filter(engine: ModuleType) -> Iterator[OpenFilter]:
    """Opens filters by type name, without the companion's checks."""
    with contextlib.ExitStack() as opened:

        def open_one(filter_type: str) -> FilterDriver:
            filter_ = FilterDriver(engine, filter_type)
            opened.callback(filter_.close)
            return filter_

        yield open_one


def num_qubits_of(engine: ModuleType, sim: Simulator) -> int:
    if isinstance(sim, BitSimulator):
        return len(sim.bits())
    if isinstance(sim, CliffordSimulator):
        return len(sim.generators())
    assert isinstance(sim, DenseSimulator | SparseSimulator)
    # An X on all qubits of a mask acts on the qubits of the register only.
    engine.put_instructions(sim.handle, nb.record(Opcode.X, target_mask=2**64 - 1), 1)
    return int(sim.terms()[0][0]).bit_count()


@pytest.mark.parametrize("filter_type", FILTERS)
def test_a_reset_looks_at_its_qubit_count_alone(engine: ModuleType, filter_type: str) -> None:
    others = {"cond_mask": 7, "cond_neg_mask": 3, "angle": 3.0, "cond_flag": -1, "read_flag": 9}
    offsets = {"target_offset": 64, "cond_offset": 64}
    with Simulator(filter_type) as sim:
        sim.run(nb.record(Opcode.RESET, target_mask=5, **others, **offsets))
        assert num_qubits_of(engine, sim) == 5


@pytest.mark.parametrize("filter_type", FILTERS)
def test_a_reset_changes_no_flag(filter_type: str) -> None:
    with Simulator(filter_type) as sim:
        sim.run(nb.reset(2), nb.x(0), nb.read([0, 1], 2), nb.reset(2))
        assert sim.flags(2, 2) == 1


@pytest.mark.parametrize("filter_type", AMPLITUDES)
def test_a_dropped_qubit_takes_no_flag(open_filter: OpenFilter, filter_type: str) -> None:
    filter_ = open_filter(filter_type)
    filter_.run(nb.reset(3), nb.write([0, 1, 2], 0b101), nb.swap(1, 2), nb.read([0, 1, 9], 2))
    assert filter_.flags(2, 3) == 0b011


@pytest.mark.parametrize("filter_type", AMPLITUDES)
@pytest.mark.parametrize("controls", [{"controls": 9}, {"zeros": 9}], ids=["control", "negated"])
def test_a_dropped_control_is_no_control(
    open_filter: OpenFilter, filter_type: str, controls: dict[str, int]
) -> None:
    filter_ = open_filter(filter_type)
    filter_.run(nb.reset(2), nb.x(0, **controls), nb.read(0, 2))
    assert filter_.flag(2) == 1


@pytest.mark.parametrize(
    ("filter_type", "controls", "rotated"),
    [
        ("StreamQPU", {"controls": 9}, 0),
        ("StreamQPU", {"zeros": 9}, 1),
        ("StreamSparseQPU", {"controls": 9}, 1),
        ("StreamSparseQPU", {"zeros": 9}, 1),
    ],
)
def test_a_pauli_rotation_takes_a_control_outside_for_0_on_the_dense_filter(
    open_filter: OpenFilter, filter_type: str, controls: dict[str, int], rotated: int
) -> None:
    filter_ = open_filter(filter_type)
    filter_.run(nb.reset(2), nb.ppr(90, 0, (), **controls), nb.read(0, 2))
    assert filter_.flag(2) == rotated


@pytest.mark.parametrize(("filter_type", "flipped"), [("StreamQPU", 1), ("StreamSparseQPU", 0)])
def test_a_swap_with_one_target_inside_flips_it_on_the_dense_filter(
    open_filter: OpenFilter, filter_type: str, flipped: int
) -> None:
    filter_ = open_filter(filter_type)
    filter_.run(nb.reset(2), nb.swap(1, 9), nb.read(1, 2))
    assert filter_.flag(2) == flipped


def test_spare_bits_of_the_bit_filter_are_bits(open_filter: OpenFilter) -> None:
    filter_ = open_filter("StreamBitQPU")
    filter_.run(nb.reset(70), nb.x(100), nb.x(3, controls=100), nb.read([3, 100], 2))
    assert filter_.flags(2, 2) == 0b11
    assert filter_.call("pull_state", np.zeros(1, dtype=np.complex128)) == "0001" + "0" * 66
    filter_.run(nb.reset(70), nb.read(100, 2))
    assert filter_.flag(2) == 0


@pytest.mark.parametrize("gate", [nb.x(200, controls=0), nb.x(0, controls=[1, 200])])
def test_the_bit_filter_refuses_a_later_word_though_a_control_fails(
    open_filter: OpenFilter, gate: np.ndarray
) -> None:
    filter_ = open_filter("StreamBitQPU")
    outside = "Error: qubit offset 192 lies outside the register of 70 qubits."
    filter_.fails(outside, nb.reset(70), gate)


def test_an_integer_in_the_angle_word_is_no_angle(open_filter: OpenFilter) -> None:
    words = np.zeros((3, 11), dtype=np.uint64)
    words[:, 0] = [Opcode.RESET, Opcode.RX, Opcode.READ]
    words[:, 1] = 1
    words[2, 5] = 2
    words[1, 3] = 180
    filter_ = open_filter("StreamQPU")
    filter_.call("put_instructions", words, len(words))
    assert filter_.flag(2) == 0
    words.view(np.float64)[1, 3] = 180
    filter_.call("put_instructions", words, len(words))
    assert filter_.flag(2) == 1

"""Expectation values against full matrices, on every filter."""

from __future__ import annotations

import random
from typing import Any

import nimbrel as nb
import numpy as np
import pytest

from models.matrices import Matrix, gate_matrix, pauli_product
from support.outcomes import as_model

NUM_QUBITS = 4
CLIFFORD = (nb.h, nb.s, nb.s_inv, nb.x, nb.y, nb.z)
OTHERS = (nb.t, nb.rootx, nb.rooty_inv)
LETTERS = "IXYZ"
UNIVERSAL = ("auto", "StreamQPU", "StreamSparseQPU")


def state_of(records: nb.RecordArray) -> Matrix:
    reset, *gates = as_model(records)
    state = np.zeros(1 << reset.target_mask, dtype=np.complex128)
    state[0] = 1
    for gate in gates:
        state = gate_matrix(reset.target_mask, gate) @ state
    return state


def value_of(state: Matrix, label: str) -> float:
    masks = [
        sum(1 << place for place, letter in enumerate(reversed(label)) if letter in letters)
        for letters in ("XY", "YZ")
    ]
    product = pauli_product(len(state).bit_length() - 1, *masks)
    return float(np.vdot(state, product @ state).real)


def random_program(rng: random.Random, gates: tuple[Any, ...]) -> nb.Program:
    parts = [nb.reset(NUM_QUBITS)]
    for _ in range(25):
        a, b = rng.sample(range(NUM_QUBITS), 2)
        parts.append(rng.choice((rng.choice(gates)(a), nb.x(b, controls=a))))
    return nb.program(*parts)


def labels(rng: random.Random, count: int) -> list[str]:
    return ["".join(rng.choices(LETTERS, k=NUM_QUBITS)) for _ in range(count)]


@pytest.mark.parametrize("filter_", UNIVERSAL)
@pytest.mark.parametrize("number", range(12))
def test_random_states(rng: random.Random, number: int, filter_: str) -> None:
    records = random_program(rng, CLIFFORD + OTHERS * (number % 2))
    state = state_of(records)
    for label in labels(rng, 8):
        got = nb.expectation(records, {label: 1.0}, filter=filter_)
        assert got == pytest.approx(value_of(state, label), abs=1e-10), label


@pytest.mark.parametrize("number", range(20))
def test_random_stabilizer_states(rng: random.Random, number: int) -> None:
    records = random_program(rng, CLIFFORD)
    state = state_of(records)
    for label in labels(rng, 8 + number):
        got = nb.expectation(records, {label: 1.0}, filter="StreamCliffordQPU")
        assert got == round(value_of(state, label)), label


@pytest.mark.parametrize("filter_", [*UNIVERSAL, "StreamCliffordQPU", "StreamBitQPU"])
def test_basis_states_on_every_filter(filter_: str) -> None:
    records = nb.program(nb.reset(3), nb.x([0, 2]))
    terms = {"ZII": 1.0, "IZI": 10.0, "ZIZ": 100.0, "XII": 1000.0, "III": 5.0, "YZY": 7.0}
    assert nb.expectation(records, terms, filter=filter_) == pytest.approx(-1 + 10 + 100 + 5)


def test_the_value_is_the_sum_over_the_terms() -> None:
    records = nb.program(nb.reset(2), nb.h(0), nb.x(1, controls=0))
    pairs = [("XX", 0.5), ("ZZ", 0.25), ("XX", 2.0), ("II", -1.0)]
    value = nb.expectation(records, pairs)
    assert isinstance(value, float)
    assert value == pytest.approx(1.75)
    assert nb.expectation(records, iter(pairs)) == pytest.approx(1.75)


def test_a_list_of_observables_gives_an_array() -> None:
    records = nb.program(nb.reset(2), nb.h(0), nb.x(1, controls=0))
    values = nb.expectation(records, [{"XX": 2.0}, [("ZI", 1.0)], {"YY": 1.0}])
    np.testing.assert_allclose(values, [2, 0, -1], atol=1e-12)
    assert values.dtype == np.float64
    assert nb.expectation(records, []).shape == (0,)


def test_complex_coefficients_give_a_complex_value() -> None:
    records = nb.program(nb.reset(1), nb.h(0))
    value = nb.expectation(records, {"X": 1j, "I": 2.0})
    assert isinstance(value, complex)
    assert value == pytest.approx(2 + 1j)
    assert isinstance(nb.expectation(records, {"X": 1 + 0j}), float)


def test_an_object_with_a_list_of_its_terms() -> None:
    class Sum:
        def to_list(self) -> list[tuple[str, complex]]:
            return [("ZX", 3 + 0j)]

    assert nb.expectation(nb.program(nb.reset(2), nb.h(0)), Sum()) == pytest.approx(3)


def test_the_leftmost_letter_is_the_highest_qubit() -> None:
    records = nb.program(nb.reset(3), nb.x(2))
    assert nb.expectation(records, [{"ZII": 1.0}, {"IIZ": 1.0}]).tolist() == [-1, 1]
    assert nb.expectation(records, {"Z": 1.0}) == 1


@pytest.mark.parametrize("low", [0, 31, 40])
def test_products_of_high_qubits_on_a_wide_register(low: int) -> None:
    ends = (low, 99)
    records = nb.program(nb.reset(100), nb.h(ends[0]), nb.x(ends[1], controls=ends[0]))
    words = ["".join(letter if 99 - k in ends else "I" for k in range(100)) for letter in "XYZ"]
    assert nb.expectation(records, [{word: 1.0} for word in words]).tolist() == [1, -1, 1]


def test_high_qubits_of_a_sparse_register() -> None:
    records = nb.program(nb.reset(60), nb.ry(60, 59), nb.x(3, controls=59))
    high, both = "Z" + "I" * 59, "X" + "I" * 55 + "X" + "III"
    np.testing.assert_allclose(
        nb.expectation(records, [{high: 1.0}, {both: 1.0}]), [0.5, np.sin(np.pi / 3)]
    )


@pytest.mark.parametrize("filter_", ["StreamQPU", "StreamSparseQPU", "StreamCliffordQPU"])
def test_the_state_of_an_open_simulator_stays(filter_: str) -> None:
    records = nb.program(nb.reset(3), nb.h(0), nb.x([1, 2], controls=0), nb.s(1))
    with nb.Simulator(filter_) as simulator:
        before = nb.expectation(records, {"YXX": 1.0, "XXY": 2.0}, filter=simulator)
        simulator.run(nb.s_inv(1), nb.x([1, 2], controls=0), nb.h(0), nb.read(range(3), 2))
        assert simulator.flags(2, 3) == 0
    assert before == pytest.approx(nb.expectation(records, {"YXX": 1.0, "XXY": 2.0}))


@pytest.mark.parametrize(
    ("parts", "index"),
    [
        ([nb.h(0), nb.read(0, 2)], 2),
        ([nb.h(0), nb.read(0, 2), nb.x(0, flag=2)], 3),
        ([nb.h(0), nb.clear(0), nb.h(0)], 2),
        ([nb.h(0), nb.clear(0)], 2),
        ([nb.ppm([0], [])], 1),
    ],
)
def test_a_random_state_is_refused_with_the_index_of_the_record(
    parts: list[nb.Program], index: int
) -> None:
    with pytest.raises(ValueError, match=f"record {index} .*random"):
        nb.expectation(nb.program(nb.reset(1), *parts), {"Z": 1.0}, filter="StreamQPU")


@pytest.mark.parametrize(
    ("observable", "error", "text"),
    [
        ({"XW": 1.0}, ValueError, "letters I, X, Y and Z, not 'XW'"),
        ({"": 1.0}, ValueError, "letters I, X, Y and Z, not ''"),
        ({"ZII": 1.0}, ValueError, "qubit 2, outside the register of 2 qubits"),
        ({3: 1.0}, TypeError, "a Pauli label is a string, not 3"),
    ],
)
def test_a_wrong_observable_is_refused(observable: Any, error: type[Exception], text: str) -> None:
    with pytest.raises(error, match=text):
        nb.expectation(nb.program(nb.reset(2), nb.h(0)), observable)

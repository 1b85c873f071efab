"""`cz` is the controlled Z, signs and phases included, also on a Clifford filter."""

from __future__ import annotations

import importlib
import random
from typing import Any

import nimbrel as nb
import numpy as np
import pytest
from nimbrel import Opcode

from models import wire
from models.matrices import Matrix, gate_matrix
from support.program_check import AmplitudeSimulator

stim: Any = importlib.import_module("stim")  # it has no types

CIRCUITS = 300


def matrix_of(num_qubits: int, records: nb.RecordArray) -> Matrix:
    whole: Matrix = np.eye(1 << num_qubits, dtype=np.complex128)
    for words in records.tolist():
        whole = gate_matrix(num_qubits, wire.Record(*words[:9])) @ whole
    return whole


@pytest.mark.parametrize(("a", "b"), [(0, 1), (1, 0), (0, 2), (2, 1)])
def test_the_gates_multiply_to_the_full_matrix(a: int, b: int) -> None:
    signs = [-1 if index >> a & index >> b & 1 else 1 for index in range(8)]
    assert np.array_equal(matrix_of(3, nb.cz(a, b)), np.diag(signs).astype(np.complex128))


def test_its_records_are_s_on_both_cnot_inverse_s_cnot() -> None:
    expected = nb.program(
        nb.s([3, 5], flag=-9),
        nb.x(5, controls=3, flag=-9),
        nb.s_inv(5, flag=-9),
        nb.x(5, controls=3, flag=-9),
    )
    assert nb.cz(3, 5, flag=-9).tobytes() == expected.tobytes()
    assert len(expected) == 4


def test_qubits_of_different_words() -> None:
    made = nb.cz(70, 3)
    assert made["opcode"].tolist() == [
        *(Opcode.EXTEND, Opcode.S, Opcode.X, Opcode.S_INV, Opcode.X),
    ]
    with nb.Simulator("StreamCliffordQPU") as sim:
        sim.run(nb.reset(128), nb.h([3, 70]), made)
        assert sim.generators()[3] == "+" + "_" * 3 + "X" + "_" * 66 + "Z" + "_" * 57


@pytest.mark.parametrize(
    ("a", "b", "text"),
    [
        (4, 4, "cz needs two different qubits, not 4 twice"),
        (0, -1, "target qubit -1 is negative"),
        (-2, 0, "target qubit -2 is negative"),
    ],
)
def test_bad_qubits_are_refused(a: int, b: int, text: str) -> None:
    with pytest.raises(ValueError, match=f"^{text}$"):
        nb.cz(a, b)


def test_a_bit_filter_refuses_it_before_anything_changes() -> None:
    with nb.Simulator("StreamBitQPU") as sim:
        sim.run(nb.reset(2), nb.x(0))
        with pytest.raises(RuntimeError) as caught:
            sim.run(nb.cz(0, 1))
        assert caught.value.args == ("qc.s has not been implemented for the Bit sim.",)
        assert sim.bits() == "10"


@pytest.mark.parametrize("simulator", [nb.DenseSimulator, nb.SparseSimulator])
def test_it_is_a_controlled_z_of_one_record_elsewhere(simulator: AmplitudeSimulator) -> None:
    start = nb.program(nb.reset(3), nb.h([0, 1, 2]), nb.t(0), nb.ry(40.0, 1), nb.x(2, controls=1))
    states: list[list[complex]] = []
    for gate in (nb.cz(0, 2), nb.z(2, controls=0)):
        with simulator() as sim:
            sim.run(start, gate)
            states.append([sim.value_of(index) for index in range(8)])
    assert np.allclose(states[0], states[1], rtol=0, atol=1e-15)


def circuit(rng: random.Random, width: int) -> tuple[nb.RecordArray, Any]:
    """The same random gates for both simulators."""
    parts, beside = [nb.reset(width)], stim.Circuit(f"I {width - 1}")
    for _ in range(rng.randrange(5, 12 * width)):
        a, b = rng.sample(range(width), 2)
        name = rng.choice(["H", "S", "CX", "CZ"])
        own = {"H": nb.h(a), "S": nb.s(a), "CX": nb.x(b, controls=a), "CZ": nb.cz(a, b)}
        parts.append(own[name])
        beside.append(name, [a, b] if name.startswith("C") else [a])
    return nb.program(*parts), beside


def canonical(generators: list[Any]) -> list[str]:
    """One list for each state: equal lists are equal states, signs included."""
    simulator = stim.TableauSimulator()
    simulator.set_state_from_stabilizers(generators)
    return [str(row) for row in simulator.canonical_stabilizers()]


def test_random_circuits_end_in_the_state_of_an_independent_simulator(rng: random.Random) -> None:
    wrong = 0
    for number in range(CIRCUITS):
        # A few of them reach into a second word.
        program, beside = circuit(rng, 128 if number % 50 == 0 else rng.randrange(2, 9))
        with nb.Simulator("StreamCliffordQPU") as sim:
            sim.run(program)
            found = [stim.PauliString(row) for row in sim.generators()]
        expected = stim.TableauSimulator()
        expected.do(beside)
        rows = [str(row) for row in expected.canonical_stabilizers()]
        wrong += canonical(found) != rows
    assert wrong == 0

"""`cz` is the controlled Z, signs and phases included, also on a Clifford filter."""

from __future__ import annotations

import random
from typing import Any

import nimbrel as nb
import numpy as np
import pytest
from nimbrel import Opcode

from models import wire
from models.matrices import Matrix, gate_matrix
from programs.drawn import DrawnRandom, check_programs
from support.program_check import AmplitudeSimulator
from support.stim_states import canonical, canonical_of, stim


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


def random_gate(rng: random.Random, width: int) -> tuple[nb.RecordArray, Any]:
    """The same gate for both simulators."""
    a, b = rng.sample(range(width), 2)
    name = rng.choice(["H", "S", "CX", "CZ"])
    own = {"H": nb.h(a), "S": nb.s(a), "CX": nb.x(b, controls=a), "CZ": nb.cz(a, b)}
    return own[name], stim.CircuitInstruction(name, [a, b] if name.startswith("C") else [a])


def compare_with_stim(rng: DrawnRandom, width: int) -> None:
    gates = [random_gate(rng, width) for _ in rng.steps(6 * min(width, 9))]
    expected = stim.TableauSimulator()
    expected.set_num_qubits(width)
    with nb.Simulator("StreamCliffordQPU") as sim:
        sim.run(nb.reset(width), *(own for own, _ in gates))
        found = canonical(sim.generators())
    for _, beside in gates:
        expected.do(beside)
    assert found == canonical_of(expected)


@pytest.mark.parametrize(("width", "count"), [*((width, 40) for width in range(2, 9)), (128, 10)])
def test_random_circuits_end_in_the_state_of_stim(width: int, count: int) -> None:
    check_programs(lambda rng: compare_with_stim(rng, width), count, width)

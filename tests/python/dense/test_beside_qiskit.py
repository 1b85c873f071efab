"""The dense filter and the tests' gate matrices, compared with qiskit."""

from __future__ import annotations

import random
from types import ModuleType

import hypothesis
import numpy as np
import pytest
from hypothesis import given

from models import matrices
from models.opcodes import PPR
from models.wire import Record, described
from programs.dense import GATES, tidy_gate
from programs.drawn import DrawnRandom, drawn_randoms
from support.dense import open_dense, random_state
from support.qiskit_circuits import evolved, matrix_of

QUBITS = 4


def random_gate(rng: random.Random, low: int) -> Record:
    """A gate whose Pauli product has no factor on a control: qiskit has no such gates."""
    gate = tidy_gate(rng, low, QUBITS)
    return gate._replace(cond_mask=gate.cond_mask & ~gate.read_flag) if low == PPR else gate


@pytest.mark.parametrize("low", GATES, ids=hex)
def test_the_matrix_of_every_gate_is_that_of_qiskit(low: int, rng: random.Random) -> None:
    for _ in range(10):
        gate = random_gate(rng, low)
        np.testing.assert_allclose(
            matrices.gate_matrix(QUBITS, gate),
            matrix_of(QUBITS, gate),
            rtol=0,
            atol=1e-9,
            err_msg=described(gate),
        )


@hypothesis.settings(max_examples=60)
@given(rng=drawn_randoms())
def test_programs_end_in_the_state_of_qiskit(engine: ModuleType, rng: DrawnRandom) -> None:
    program: list[Record] = [random_gate(rng, rng.choice(GATES)) for _ in rng.steps(8)]
    hypothesis.note("\n".join(map(described, program)))
    state = random_state(random.Random(1), QUBITS)
    with open_dense(engine, QUBITS) as filter_:
        filter_.load(state)
        filter_.run_records(program)
        got = filter_.state(QUBITS)
    np.testing.assert_allclose(got, evolved(state, program), rtol=0, atol=1e-9)

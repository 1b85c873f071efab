"""Every gate of Stim changes a random stabilizer state as Stim's own tableau does."""

from __future__ import annotations

import random
from typing import Any

import pytest

from support.stim_circuits import nimbrel_stim, run_state, stim, stim_state

GATES = {name: data for name, data in stim.gate_data().items() if data.is_unitary}
ONE_QUBIT = [name for name, data in GATES.items() if data.is_single_qubit_gate]
TWO_QUBIT = [name for name, data in GATES.items() if data.is_two_qubit_gate]
PRODUCTS = [name for name, data in GATES.items() if data.takes_pauli_targets]


def random_state(rng: random.Random, num_qubits: int) -> Any:
    """A circuit that prepares a random stabilizer state."""
    circuit = stim.Circuit()
    for _ in range(6 * num_qubits):
        a, b = rng.sample(range(num_qubits), 2)
        circuit.append(rng.choice(["H", "S", "C_XYZ", "X"]), [a])
        circuit.append("CX", [a, b])
    return circuit


@pytest.mark.parametrize("qubits", [[0], [2], [1, 3, 0], [2, 2, 2]], ids=str)
@pytest.mark.parametrize("name", ONE_QUBIT)
def test_a_gate_on_one_qubit_is_exact(name: str, qubits: list[int], rng: random.Random) -> None:
    for _ in range(4):
        circuit = random_state(rng, 4)
        circuit.append(name, qubits)
        assert run_state(circuit) == stim_state(circuit)


@pytest.mark.parametrize("qubits", [[0, 1], [3, 0], [1, 2, 2, 3]], ids=str)
@pytest.mark.parametrize("name", TWO_QUBIT)
def test_a_gate_on_two_qubits_is_exact(name: str, qubits: list[int], rng: random.Random) -> None:
    for _ in range(4):
        circuit = random_state(rng, 4)
        circuit.append(name, qubits)
        assert run_state(circuit) == stim_state(circuit)


@pytest.mark.parametrize(
    "product", ["X0", "!Z1", "Y2", "X0*Y1*Z3", "!Y0*Y1", "X0*Z0*Y0*Y1*X1*Z1 Z2"]
)
@pytest.mark.parametrize("name", PRODUCTS)
def test_a_rotation_about_a_product_is_exact(name: str, product: str, rng: random.Random) -> None:
    try:
        rotated = stim.Circuit(f"{name} {product}")
    except ValueError:
        pytest.fail("Stim refuses the product")
    for _ in range(4):
        circuit = random_state(rng, 4) + rotated
        assert run_state(circuit) == stim_state(circuit)


@pytest.mark.parametrize("name", [*TWO_QUBIT, "MXX", "MYY", "MZZ"])
def test_gates_reach_every_word_of_a_wide_register(name: str, rng: random.Random) -> None:
    # The engine prints all of a tableau whose size is a multiple of 64.
    for a, b in ((3, 70), (127, 64), (100, 1)):
        circuit = random_state(rng, 128)
        if name in TWO_QUBIT:
            circuit.append(name, [a, b])
        else:
            # Measured twice, the product has the same outcome.
            circuit.append(name, [a, b, a, b])
            row = nimbrel_stim.sample(circuit, 1).measurements[0, 0]
            assert row in (0, 3)
            continue
        assert run_state(circuit) == stim_state(circuit)


def test_every_gate_of_stim_is_read() -> None:
    for name, data in stim.gate_data().items():
        if name in ("REPEAT",):
            continue
        arguments = [0.0] * data.num_parens_arguments_range.start
        targets = [stim.target_x(0)] if data.takes_pauli_targets else [0, 1]
        if name in ("TICK", "SHIFT_COORDS", "DETECTOR", "OBSERVABLE_INCLUDE"):
            targets = []
        circuit = stim.Circuit("E(0) X0" if name == "ELSE_CORRELATED_ERROR" else "")
        circuit.append(name, targets, arguments)
        assert nimbrel_stim.from_circuit(circuit).num_measurements == circuit.num_measurements

"""The truth of the dense benchmark on small registers, in plain NumPy, and comparisons."""

from collections.abc import Sequence
from typing import TypeAlias

import numpy as np
import numpy.typing as npt
from dense_tasks import SEED, Gate

Amplitudes: TypeAlias = npt.NDArray[np.complex128]

LARGEST_MODEL = 12  # qubits; above, the simulators are compared with one another
TOLERANCE = 1e-10  # norm of the difference of two states of norm 1

PAULI = {
    "X": np.array([[0, 1], [1, 0]], dtype=np.complex128),
    "Y": np.array([[0, -1j], [1j, 0]], dtype=np.complex128),
    "Z": np.array([[1, 0], [0, -1]], dtype=np.complex128),
}


class MismatchError(Exception):
    """A simulator's state is not the one expected."""


def random_state(num_qubits: int) -> Amplitudes:
    """A seeded random state of norm 1, shape (2**num_qubits,), no amplitude 0."""
    rng = np.random.default_rng([SEED, num_qubits])
    state = np.empty(1 << num_qubits, dtype=np.complex128)
    rng.random(out=state.view(np.float64))
    state -= 0.5 + 0.5j
    state /= np.linalg.norm(state)
    return state


def pauli_rotation(angle: float, paulis: str) -> Amplitudes:
    """The matrix of a Pauli rotation; the first letter belongs to the lowest index bit."""
    product: Amplitudes = np.eye(1, dtype=np.complex128)
    for letter in paulis:
        product = np.kron(PAULI[letter], product).astype(np.complex128)
    half = np.radians(angle) / 2
    matrix: Amplitudes = np.cos(half) * np.eye(len(product)) - 1j * np.sin(half) * product
    return matrix


def matrix_of(gate: Gate) -> Amplitudes:
    """The matrix of a gate over the qubits it names, the first one least significant."""
    if gate.name in ("RX", "RZ"):
        return pauli_rotation(gate.angle, gate.name[1])
    if gate.name == "PAULI":
        return pauli_rotation(gate.angle, gate.paulis)
    if gate.name == "CNOT":  # index bit 0 is the control
        return np.eye(4, dtype=np.complex128)[[0, 3, 2, 1]]
    fixed: dict[str, Amplitudes] = {
        "X": PAULI["X"],
        "H": (PAULI["X"] + PAULI["Z"]) / np.sqrt(2),
        "T": np.diag([1, np.exp(0.25j * np.pi)]),
    }
    return fixed[gate.name]


def apply_gate(state: Amplitudes, gate: Gate) -> Amplitudes:
    """The state after a unitary gate, shape (2**n,)."""
    num_qubits = len(state).bit_length() - 1
    count = len(gate.qubits)
    # Axis 0 of the tensor is the highest qubit, for the state and for the matrix alike.
    axes = [num_qubits - 1 - qubit for qubit in reversed(gate.qubits)]
    tensor = state.reshape([2] * num_qubits)
    matrix = matrix_of(gate).reshape([2] * (2 * count))
    moved = np.tensordot(matrix, tensor, (range(count, 2 * count), axes))
    return np.ascontiguousarray(np.moveaxis(moved, range(count), axes)).reshape(-1)


def after_gates(start: Amplitudes, gates: Sequence[Gate]) -> Amplitudes:
    """The state after several unitary gates."""
    for gate in gates:
        start = apply_gate(start, gate)
    return start


def after_measurement(start: Amplitudes, qubit: int, found: Amplitudes) -> Amplitudes:
    """The state that `start` collapses to with the outcome that `found` shows."""
    pairs = found.reshape(-1, 2, 1 << qubit)
    outcome = int(np.linalg.norm(pairs[:, 1]) > np.linalg.norm(pairs[:, 0]))
    collapsed = start.reshape(-1, 2, 1 << qubit).copy()
    collapsed[:, 1 - outcome] = 0
    collapsed /= np.linalg.norm(collapsed)
    flat: Amplitudes = collapsed.reshape(-1)
    return flat


def compare(found: Amplitudes, expected: Amplitudes, what: str) -> None:
    """Check that two states are numerically the same, their phase included.

    Raises:
        MismatchError: If they are not.
    """
    distance = float(np.linalg.norm(found - expected))
    if not distance <= TOLERANCE:  # also when it is not a number
        raise MismatchError(f"{what}: the state differs by {distance:.2g}")

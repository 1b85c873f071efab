"""Gates as full matrices, from their textbook definition: equal to the engine's up to rounding.

A state is a complex vector of 2^n amplitudes, qubit 0 the least significant bit of the index.
Controls are a projector on the terms in which they hold. No qubit may be control and target.
"""

from __future__ import annotations

from typing import Any, TypeAlias

import numpy as np
import numpy.typing as npt

from models import opcodes
from models.wire import Record, set_bits

Matrix: TypeAlias = npt.NDArray[np.complexfloating[Any, Any]]

ONE = np.eye(2, dtype=np.complex128)
X = np.array([[0, 1], [1, 0]], dtype=np.complex128)
Y = np.array([[0, -1j], [1j, 0]], dtype=np.complex128)
Z = np.diag([1, -1]).astype(np.complex128)
H = (X + Z) / np.sqrt(2)

# A square root has eigenvalues 1 and i on the two eigenspaces of its Pauli.
PLAIN: dict[int, Matrix] = {
    opcodes.X: X,
    opcodes.LELBOW: X,
    opcodes.RELBOW: X,
    opcodes.Y: Y,
    opcodes.Z: Z,
    opcodes.H: H,
    opcodes.ROOTX: ((1 + 1j) * ONE + (1 - 1j) * X) / 2,
    opcodes.ROOTX_INV: ((1 - 1j) * ONE + (1 + 1j) * X) / 2,
    opcodes.ROOTY: ((1 + 1j) * ONE + (1 - 1j) * Y) / 2,
    opcodes.ROOTY_INV: ((1 - 1j) * ONE + (1 + 1j) * Y) / 2,
    opcodes.S: np.diag([1, 1j]),
    opcodes.S_INV: np.diag([1, -1j]),
    opcodes.T: np.diag([1, np.exp(0.25j * np.pi)]),
    opcodes.T_INV: np.diag([1, np.exp(-0.25j * np.pi)]),
}
AXES = {opcodes.RX: X, opcodes.RY: Y, opcodes.RZ: Z}


def on_qubits(num_qubits: int, factors: dict[int, Matrix]) -> Matrix:
    """The tensor product with the given 2x2 factors at their qubits and 1 elsewhere."""
    product: Matrix = np.eye(1, dtype=np.complex128)
    for qubit in range(num_qubits):
        product = np.kron(factors.get(qubit, ONE), product)
    return product


def turned(pauli: Matrix, angle: float) -> Matrix:
    """exp(-i angle pauli), the angle in radians."""
    turn: Matrix = np.cos(angle) * np.eye(len(pauli)) - 1j * np.sin(angle) * pauli
    return turn


def one_qubit_matrix(record: Record) -> Matrix:
    low = record.opcode & 0xFFFFFFFF
    if low in AXES:
        return turned(AXES[low], np.deg2rad(record.angle) / 2)
    if low == opcodes.PHASE:
        return np.diag([1, np.exp(1j * np.deg2rad(record.angle))])
    return PLAIN[low]


def pauli_product(num_qubits: int, x_mask: int, z_mask: int) -> Matrix:
    factors: dict[int, Matrix] = {}
    for qubit in range(num_qubits):
        carried = x_mask >> qubit & 1, z_mask >> qubit & 1
        factors[qubit] = {(0, 0): ONE, (1, 0): X, (0, 1): Z, (1, 1): Y}[carried]
    return on_qubits(num_qubits, factors)


def exchanged(num_qubits: int, targets: int) -> Matrix:
    """The permutation matrix that swaps the two lowest qubits of the mask."""
    a, c = list(set_bits(targets))[:2]
    size = 1 << num_qubits
    result = np.zeros((size, size), dtype=np.complex128)
    for index in range(size):
        differ = bool(index & a) != bool(index & c)
        result[index ^ (a | c) if differ else index, index] = 1
    return result


def qubit_numbers(mask: int) -> list[int]:
    return [bit.bit_length() - 1 for bit in set_bits(mask)]


def unconditional(num_qubits: int, record: Record) -> Matrix:
    """The gate without its controls: one matrix on each target, a Pauli rotation or a swap."""
    low = record.opcode & 0xFFFFFFFF
    if low == opcodes.PPR:
        product = pauli_product(num_qubits, record.target_mask, record.cond_mask)
        return turned(product, np.deg2rad(record.angle))
    if low == opcodes.SWAP:
        return exchanged(num_qubits, record.target_mask)
    matrix = one_qubit_matrix(record)
    return on_qubits(num_qubits, dict.fromkeys(qubit_numbers(record.target_mask), matrix))


def controls(record: Record) -> tuple[int, int]:
    """The mask of controls and the mask of negated ones. A rotation has them in other words."""
    is_rotation = record.opcode & 0xFFFFFFFF == opcodes.PPR
    mask = record.read_flag if is_rotation else record.cond_mask
    return mask, mask & record.cond_neg_mask


def gate_matrix(num_qubits: int, record: Record) -> Matrix:
    """The gate with its controls, a matrix of 2^n by 2^n."""
    mask, zeros = controls(record)
    holds = np.array([index & mask == mask ^ zeros for index in range(1 << num_qubits)])
    gate = unconditional(num_qubits, record)
    result: Matrix = np.where(holds, gate, np.eye(1 << num_qubits))
    return result


def probability_of_plus(state: Matrix, x_mask: int, z_mask: int) -> float:
    """The probability to find +1 on measuring a Pauli product of a normalised state."""
    product = pauli_product(len(state).bit_length() - 1, x_mask, z_mask)
    return float((1 + np.vdot(state, product @ state).real) / 2)


def probability_of(state: Matrix, value: int, mask: int) -> float:
    """The probability to read `value` on the qubits of the mask."""
    return float(sum(abs(a) ** 2 for i, a in enumerate(state) if not (i ^ value) & mask))

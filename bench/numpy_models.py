"""Checks in plain NumPy: gates on a dense state, on a list of terms, and on a tableau's rows."""

from collections.abc import Iterable, Sequence

import nimbrel as nb
import numpy as np
from gates import Gate
from peers import Amplitudes, Terms

_PAULI = {
    "X": np.array([[0, 1], [1, 0]], dtype=np.complex128),
    "Y": np.array([[0, -1j], [1j, 0]], dtype=np.complex128),
    "Z": np.array([[1, 0], [0, -1]], dtype=np.complex128),
}
_FIXED: dict[str, Amplitudes] = {
    "X": _PAULI["X"],
    "H": (_PAULI["X"] + _PAULI["Z"]) / np.sqrt(2),
    "T": np.diag([1, np.exp(0.25j * np.pi)]),
    "CNOT": np.eye(4, dtype=np.complex128)[[0, 3, 2, 1]],  # index bit 0 is the control
}
_LETTERS = np.frombuffer(b"_XZY", dtype=np.uint8)


def random_state(num_qubits: int, seed: int) -> Amplitudes:
    """A seeded random state of norm 1, shape (2**num_qubits,), no amplitude 0."""
    rng = np.random.default_rng([seed, num_qubits])
    state = np.empty(1 << num_qubits, dtype=np.complex128)
    rng.random(out=state.view(np.float64))
    state -= 0.5 + 0.5j
    state /= np.linalg.norm(state)
    return state


def pauli_rotation(degrees: float, paulis: str) -> Amplitudes:
    """The matrix of a Pauli rotation; the first letter belongs to the lowest index bit."""
    product: Amplitudes = np.eye(1, dtype=np.complex128)
    for letter in paulis:
        product = np.kron(_PAULI[letter], product).astype(np.complex128)
    half = np.radians(degrees) / 2
    matrix: Amplitudes = np.cos(half) * np.eye(len(product)) - 1j * np.sin(half) * product
    return matrix


def after_gates(state: Amplitudes, gates: Sequence[Gate]) -> Amplitudes:
    """The dense state after unitary gates, shape (2**n,)."""
    num_qubits = len(state).bit_length() - 1
    for gate in gates:
        matrix = pauli_rotation(gate.degrees, gate.paulis) if gate.paulis else _FIXED[gate.name]
        count = len(gate.qubits)
        # Axis 0 of the tensor is the highest qubit, for the state and for the matrix alike.
        axes = [num_qubits - 1 - qubit for qubit in reversed(gate.qubits)]
        tensors = matrix.reshape([2] * (2 * count)), state.reshape([2] * num_qubits)
        moved = np.tensordot(*tensors, (range(count, 2 * count), axes))
        state = np.ascontiguousarray(np.moveaxis(moved, range(count), axes)).reshape(-1)
    return state


def after_measurement(start: Amplitudes, qubit: int, found: Amplitudes) -> Amplitudes:
    """The state that `start` collapses to with the outcome that `found` shows."""
    pairs = found.reshape(-1, 2, 1 << qubit)
    outcome = int(np.linalg.norm(pairs[:, 1]) > np.linalg.norm(pairs[:, 0]))
    collapsed = start.reshape(-1, 2, 1 << qubit).copy()
    collapsed[:, 1 - outcome] = 0
    collapsed /= np.linalg.norm(collapsed)
    flat: Amplitudes = collapsed.reshape(-1)
    return flat


def after_hadamards(state: Amplitudes) -> Amplitudes:
    """The dense state after a Hadamard on every qubit."""
    for place in range(len(state).bit_length() - 1):
        low, high = np.moveaxis(state.reshape(-1, 2, 1 << place), 1, 0)
        state = np.stack([low + high, low - high], axis=1).reshape(-1) / np.sqrt(2)
    return state


def after_walk(gate: np.void, terms: Terms) -> Terms:
    """A list of terms after a record of X or a phase, in ascending order of the index."""
    indices, amplitudes = terms
    target, controls = gate["target_mask"], gate["cond_mask"]
    if gate["opcode"] == nb.Opcode.X:
        moved = np.where(indices & controls == controls, indices ^ target, indices)
        order = np.argsort(moved)
        return moved[order], amplitudes[order]
    degrees = {nb.Opcode.Z: 180.0, nb.Opcode.T_INV: -45.0, nb.Opcode.T: 45.0}
    turned = np.exp(1j * np.radians(degrees.get(gate["opcode"], float(gate["angle"]))))
    both = target | controls
    return indices, np.where(indices & both == both, amplitudes * turned, amplitudes)


def tableau_rows(num_qubits: int, gates: Iterable[Gate]) -> list[str]:
    """The destabilizers, then the generators, after gates on a register in 0.

    Each is a sign and a letter for each qubit, qubit 0 first.
    """
    identity = np.eye(num_qubits, dtype=np.uint8)
    xs = np.hstack([identity, 0 * identity])  # one array of bits for each qubit, over all rows
    zs = np.hstack([0 * identity, identity])
    signs = np.zeros(2 * num_qubits, dtype=np.uint8)
    for name, qubits, _ in gates:
        x, z = xs[qubits[-1]], zs[qubits[-1]]
        if name == "CNOT":
            # X on the control and Z on the target give a sign with I I or with Z X beside them.
            control_x, control_z = xs[qubits[0]], zs[qubits[0]]
            signs ^= control_x & z & (1 ^ x ^ control_z)
            x ^= control_x
            control_z ^= z
            continue
        flips = {"H": x & z, "S": x & z, "S_INV": x & ~z, "X": z, "Y": x ^ z, "Z": x}
        signs ^= flips[name]
        if name == "H":
            x[:], z[:] = z.copy(), x.copy()
        elif name in ("S", "S_INV"):
            z ^= x
    letters = _LETTERS[xs | zs << 1].T
    return ["+-"[sign] + row.tobytes().decode() for sign, row in zip(signs, letters, strict=True)]
